// Where a request's values must not go: what bash runs, splits or computes.
//
// What is told are values that nothing in the script ever looks at.

#include <algorithm>
#include <string.h>

#include "flow.h"
#include "rules.h"
#include "text.h"

struct sink {
  const context &c;
  const script &s;
  const bash_command &command;
  findings *found;
};

static void tell_at(const sink &at, const bash_expansion &expansion,
                    const char *rule, const std::string &text)
{
  tell(at.found, *at.s.file, expansion.line, expansion.column, rule, text);
}

static std::string shown(const bash_expansion &expansion)
{
  return expansion.subscript.empty() ? "\"$" + expansion.name + "\""
                                     : "\"${" + full_name(expansion) + "}\"";
}

// One finding a word: quotes mend all of it at once.
static void check_unquoted(const sink &at, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (!expansion.quoted && !expansion.arithmetic &&
        is_input(at.c, at.command, expansion)) {
      tell_at(at, expansion, "unquoted",
              shown(expansion) + " comes from the request and is split into"
                                 " words and matched with files here; write it"
                                 " in double quotes");
      return;
    }
  }
}

static void check_number(const sink &at, const bash_word &word, bool operand)
{
  for (const bash_expansion &expansion : word.expansions) {
    if ((!expansion.arithmetic && !operand) || expansion.based) {
      continue;
    }
    if (at.c.padded.count(
            scoped(at.c, at.command.function, full_name(expansion))) != 0) {
      tell_at(at, expansion, "number-octal",
              shown(expansion) + " may begin with 0, which means octal here;"
                                 " write [ x -gt y ], or 10# in front");
    } else if (is_input(at.c, at.command, expansion)) {
      tell_at(at, expansion, "input-number",
              shown(expansion) + " comes from the request and is computed with"
                                 " before anything has seen that it is a"
                                 " number: bash runs commands in subscripts");
    }
  }
}

// Words that run what they are given.
static void check_eval(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  const std::string &name = first_word(at.command);
  if (name == "eval") {
    for (size_t i = 1; i < words.size(); i++) {
      if (words[i].text.find_first_of("$`") != std::string::npos) {
        tell(at.found, *at.s.file, at.command.line, at.command.column, "eval",
             "eval runs whatever the values say; use arrays, printf -v or a"
             " case instead");
        return;
      }
    }
  }
  static const std::set<std::string> shells = {"bash", "sh", "dash", "ash",
                                               "su"};
  for (size_t i = 1; i + 1 < words.size(); i++) {
    if (shells.count(name) != 0 && words[i].plain == "-c" &&
        !words[i + 1].expansions.empty()) {
      tell_at(at, words[i + 1].expansions[0], "eval",
              name +
                  " -c runs whatever the values say; hand them over as"
                  " arguments: " +
                  name + " -c '... \"$1\"' -- \"$value\"");
    }
  }
}

// Programs of other languages that are made of values.
static void check_program(const sink &at)
{
  static const std::set<std::string> languages = {
      "awk", "gawk", "mawk", "sed", "perl", "python3", "lua"};
  // Options whose values are no programs.
  static const std::set<std::string> with_value = {"-v", "-F", "-f"};
  if (languages.count(first_word(at.command)) == 0) {
    return;
  }
  for (size_t i = 1; i < at.command.words.size(); i++) {
    const bash_word &word = at.command.words[i];
    if (word.plain[0] == '-' && word.plain != "-e") {
      const bool takes_value = with_value.count(word.plain) != 0;
      i += takes_value ? 1 : 0;
      continue;
    }
    const bash_expansion *input = input_of(at.c, at.command, word);
    if (input != nullptr && word.text.size() > input->name.size() + 5) {
      tell_at(at, *input, "eval",
              shown(*input) + " comes from the request and becomes a part of a"
                              " program here; hand it over as a value");
    }
    if (word.plain != "-e") {
      return;
    }
  }
}

// The length of the name in NAME=VALUE, npos where there is no value.
static size_t name_length(const std::string &text)
{
  int depth = 0;
  for (size_t i = 0; i < text.size(); i++) {
    depth += strchr("{[", text[i]) != nullptr ? 1 : 0;
    depth -= strchr("}]", text[i]) != nullptr ? 1 : 0;
    if (text[i] == '=' && depth == 0) {
      return i;
    }
  }
  return std::string::npos;
}

// The input in a builtin's word, in its name alone where a value is stored as
// it stands.
static const bash_expansion *input_name(const sink &at, const bash_word &word)
{
  static const std::set<std::string> stores = {"declare", "local", "export",
                                               "typeset", "readonly"};
  size_t end = stores.count(first_word(at.command)) != 0
                   ? name_length(word.text)
                   : std::string::npos;
  for (const bash_word &other : at.command.words) {
    if (other.plain[0] == '-' && other.plain.find('i') != std::string::npos) {
      end = std::string::npos; // a number: its value is computed
    }
  }
  for (const bash_expansion &expansion : word.expansions) {
    const size_t column = static_cast<size_t>(expansion.column - word.column);
    if ((end == std::string::npos ||
         (expansion.line == word.line && column < end)) &&
        is_input(at.c, at.command, expansion)) {
      return &expansion;
    }
  }
  return nullptr;
}

// Builtins that evaluate the names they are given.
static void check_names(const sink &at)
{
  static const std::set<std::string> builtins = {
      "declare", "local", "export",  "typeset", "readonly",
      "unset",   "read",  "mapfile", "let",     "readarray"};
  const std::string &name = first_word(at.command);
  const bool printf_name = name == "printf" && at.command.words.size() > 2 &&
                           at.command.words[1].plain == "-v";
  if (builtins.count(name) == 0 && !printf_name) {
    return;
  }
  const size_t first = printf_name ? 2 : 1;
  const size_t end = printf_name ? 3 : at.command.words.size();
  for (size_t i = first; i < end; i++) {
    const bash_expansion *input = input_name(at, at.command.words[i]);
    if (input != nullptr && at.command.words[i].plain[0] != '-') {
      tell_at(at, *input, "eval",
              shown(*input) + " comes from the request and " + name +
                  " evaluates it; look at it first, or use an associative"
                  " array");
    }
  }
}

// The name in ${!name} is evaluated, its subscript included.
static void check_indirect(const sink &at, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (expansion.indirect && is_input(at.c, at.command, expansion)) {
      tell_at(at, expansion, "eval",
              shown(expansion) + " comes from the request and ${!...}"
                                 " evaluates it; use an associative array");
    }
  }
}

// A file of the folder that a script sources and that is not there.
static void check_sourced(const sink &at, const bash_word &word)
{
  const std::string name = sourced_name(at.s.name, word.plain);
  const device &dev = at.c.dev;
  if (name.empty() || dev.scripts.count(name) + dev.odd.count(name) != 0 ||
      is_library(name)) {
    return;
  }
  std::set<std::string> names;
  for (const auto &entry : dev.scripts) {
    names.insert(entry.first);
  }
  tell(at.found, *at.s.file, word.line, word.column, "script-missing",
       "Script " + in_quotes("scripts/" + name) + " does not exist" +
           did_you_mean(name, names));
}

// Files that are run in the shell itself.
static void check_source(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  const std::string &name = first_word(at.command);
  if ((name != "." && name != "source") || words.size() < 2) {
    return;
  }
  const bash_word &word = words[1];
  const std::string &path = word.plain;
  const std::string file = path.substr(path.rfind('/') + 1);
  const bool made = word.text.find_first_of("$`<") != std::string::npos;
  if (is_own_path(path) && file.find('$') == std::string::npos &&
      path.find("..") == std::string::npos) {
    check_sourced(at, word);
  } else if (made || starts_with(path, "/dev/")) {
    tell(at.found, *at.s.file, word.line, word.column, "source",
         word.text + " is run as commands; read values with read, and"
                     " source only files of the scripts' folder");
  } else if (path[0] != '/') {
    tell(at.found, *at.s.file, word.line, word.column, "source-folder",
         word.text +
             " is looked for in whatever folder is the current one;"
             " write \"${BASH_SOURCE%/*}/" +
             file + "\"");
  }
}

// Commands whose arguments are paths.
static void check_path(const sink &at)
{
  static const std::set<std::string> commands = {
      "cat",   "rm",    "cp",  "mv", "mkdir", "rmdir", "ln",     "touch",
      "chmod", "chown", "tee", "cd", "tail",  "head",  "source", "."};
  std::vector<const bash_word *> paths;
  for (const bash_redirect &redirect : at.command.redirects) {
    if (redirect.op.find("<<") == std::string::npos) {
      paths.push_back(&redirect.target);
    }
  }
  if (commands.count(first_word(at.command)) != 0) {
    for (size_t i = 1; i < at.command.words.size(); i++) {
      paths.push_back(&at.command.words[i]);
    }
  }
  for (const bash_word *path : paths) {
    const bash_expansion *input = input_of(at.c, at.command, *path);
    if (input != nullptr) {
      tell_at(at, *input, "input-path",
              shown(*input) + " comes from the request and chooses a file;"
                              " compare it with a list first");
    }
  }
}

// The subscript of an indexed array is computed, names in it and all.
static void check_subscript(const sink &at, const std::string &array,
                            const std::string &subscript, int line, int column)
{
  if (at.c.maps.count(array) != 0) {
    return;
  }
  std::string name;
  for (const char c : subscript + " ") {
    if (is_name_char(c)) {
      name += c;
      continue;
    }
    bash_expansion expansion;
    expansion.name = name;
    expansion.line = line;
    expansion.column = column;
    const bool based = c == '#'; // 10#$row
    if (!name.empty() && is_input(at.c, at.command, expansion)) {
      tell_at(at, expansion, "input-number",
              shown(expansion) +
                  " comes from the request and is computed here,"
                  " as a subscript" +
                  (array.empty() ? " can be"
                                 : ", unless the array is declared"
                                   " with -A") +
                  ": bash runs commands in it");
      return;
    }
    if (based) {
      return;
    }
    name.clear();
  }
}

// let computes the text of its words.
static void check_let(const sink &at)
{
  if (first_word(at.command) != "let") {
    return;
  }
  for (size_t i = 1; i < at.command.words.size(); i++) {
    const bash_word &word = at.command.words[i];
    check_subscript(at, "", word.plain, word.line, word.column);
  }
}

// The first word of a command is run.
static void check_command(const sink &at)
{
  if (at.command.kind != BASH_SIMPLE || at.command.words.empty()) {
    return;
  }
  const bash_expansion *input = input_of(at.c, at.command, at.command.words[0]);
  if (input != nullptr) {
    tell_at(at, *input, "eval",
            shown(*input) + " comes from the request and is run as a command"
                            " here");
  }
}

static void check_words(const sink &at)
{
  const bash_command &command = at.command;
  static const std::set<std::string> operators = {"-eq", "-ne", "-lt",
                                                  "-le", "-gt", "-ge"};
  for (size_t i = 0; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    const bool test = command.kind == BASH_TEST;
    const bool operand =
        test && ((i > 0 && operators.count(command.words[i - 1].text) != 0) ||
                 (i + 1 < command.words.size() &&
                  operators.count(command.words[i + 1].text) != 0));
    check_number(at, word, operand);
    check_indirect(at, word);
    if (command.kind == BASH_SIMPLE || command.kind == BASH_FOR) {
      check_unquoted(at, word);
    }
  }
  for (const bash_assignment &assignment : command.assignments) {
    check_number(at, assignment.value, false);
    check_subscript(at, assignment.name, assignment.subscript,
                    assignment.value.line, assignment.value.column);
    check_indirect(at, assignment.value);
    for (const bash_word &element : assignment.elements) {
      check_number(at, element, false);
      check_unquoted(at, element);
    }
  }
  for (const bash_redirect &redirect : command.redirects) {
    if (redirect.op != "<<<") {
      check_unquoted(at, redirect.target);
    }
  }
}

static void check_command_sinks(const sink &at)
{
  check_eval(at);
  check_program(at);
  check_command(at);
  check_let(at);
  check_names(at);
  check_source(at);
  check_path(at);
  check_words(at);
}

void check_input(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    const context c = follow_values(dev, entry.first);
    for (const script *s : c.files) {
      for (const bash_command &command : s->code.commands) {
        check_command_sinks({c, *s, command, found});
      }
    }
  }
}
