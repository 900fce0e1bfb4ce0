// Where a request's values go in a script.
//
// A value of the request is followed from where it comes in (standard input,
// the argument that is the sub-item, what orv_read has filled) through
// assignments and calls to where bash would run, split or compute it.  A
// variable that is compared with a pattern or handed to a function that
// decides on something counts as judged wherever it is used: what is told are
// values that nothing in the script ever looks at.

#include "lint.h"

#include <algorithm>
#include <ctype.h>
#include <string.h>

// A script with the files that it sources: they share variables and functions.
struct context {
  const device &dev;
  std::vector<const script *> files;
  std::set<std::string> functions;
  std::set<std::string> locals; // "function::name"
  std::set<std::string> input;  // scoped names that hold a request's values
  std::set<std::string> judged; // scoped names that something has looked at
  std::set<std::string> padded; // the page's numbers, which may begin with 0
  std::set<std::string> maps;   // arrays whose subscripts are text
};

// --- names -------------------------------------------------------------------

// $1, $2, $@: those of the function, or of the script outside of any.
static bool is_parameter(const std::string &name)
{
  return !name.empty() && (isdigit(static_cast<unsigned char>(name[0])) != 0 ||
                           name == "@" || name == "*");
}

// The name with the function that it belongs to.
static std::string scoped(const context &c, const std::string &function,
                          const std::string &name)
{
  const std::string own = function + "::" + name;
  return is_parameter(name) || c.locals.count(own) != 0 ? own : "::" + name;
}

static const std::string &first_word(const bash_command &command)
{
  static const std::string none;
  return command.kind == BASH_SIMPLE && !command.words.empty()
             ? command.words[0].plain
             : none;
}

static bool declares(const bash_command &command)
{
  static const std::set<std::string> words = {"local", "declare", "typeset"};
  return words.count(first_word(command)) != 0;
}

// declare -A NAME: text may stand in its subscripts.
static void collect_maps(context *c, const bash_command &command)
{
  const bool is_map = std::any_of(
      command.words.begin(), command.words.end(), [](const bash_word &word) {
        return word.plain[0] == '-' &&
               word.plain.find('A') != std::string::npos;
      });
  if (!is_map) {
    return;
  }
  for (const bash_assignment &assignment : command.assignments) {
    c->maps.insert(assignment.name);
  }
  for (const bash_word &word : command.words) {
    c->maps.insert(word.plain);
  }
}

// A name that a function declares is its own there.
static void collect_locals(context *c)
{
  for (const script *s : c->files) {
    c->functions.insert(s->code.functions.begin(), s->code.functions.end());
    for (const bash_command &command : s->code.commands) {
      if (!declares(command)) {
        continue;
      }
      collect_maps(c, command);
      if (command.function.empty()) {
        continue;
      }
      for (const bash_assignment &assignment : command.assignments) {
        c->locals.insert(command.function + "::" + assignment.name);
      }
      for (const bash_word &word : command.words) {
        c->locals.insert(command.function + "::" + word.plain);
      }
    }
  }
}

// --- what is judged ----------------------------------------------------------

static constexpr char NAME_PART[] = "%%="; // ${line%%=*}

static std::string full_name(const bash_expansion &expansion)
{
  return expansion.subscript.empty()
             ? expansion.name
             : expansion.name + "[" + expansion.subscript + "]";
}

// A value of an array is judged by its subscript as it is written.
static void judge(context *c, const bash_command &command,
                  const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    c->judged.insert(
        scoped(*c, command.function, expansion.name) +
        (expansion.subscript.empty() ? "" : "[" + expansion.subscript + "]"));
  }
}

// [[ -n $x ]] looks at nothing; a comparison does.
static bool compares(const bash_command &command)
{
  return std::any_of(command.words.begin(), command.words.end(),
                     [](const bash_word &word) {
                       return word.text == "==" || word.text == "!=" ||
                              word.text == "=" || word.text == "=~";
                     });
}

// What decides on a branch has looked at its words.
static std::vector<std::string> patterns_of(const bash_command &command)
{
  std::vector<std::string> patterns = command.patterns;
  for (size_t i = 1; i + 1 < command.words.size(); i++) {
    const std::string &op = command.words[i].text;
    if (op == "==" || op == "=" || op == "!=" || op == "=~") {
      patterns.push_back(command.words[i + 1].plain);
    }
  }
  return patterns;
}

// Whether the patterns ask only which of the page's lines it is, as new_name=*
// does: whatever stands behind was not looked at.  `named` becomes true when
// they name the variable.
static bool asks_which_line(const bash_command &command, bool *named)
{
  bool lines = false;
  *named = true;
  for (const std::string &pattern : patterns_of(command)) {
    std::string alternative;
    for (const char c : pattern + "|") {
      if (c != '|') {
        alternative +=
            strchr(" '\"\\\n", c) == nullptr ? std::string(1, c) : "";
        continue;
      }
      if (alternative != "*") {
        if (!starts_with(alternative, "new_") || alternative.back() != '*' ||
            alternative.find('[') != std::string::npos) {
          return false;
        }
        lines = true;
        *named &= alternative.find('=') != std::string::npos;
      }
      alternative.clear();
    }
  }
  return lines;
}

static void judge_names(context *c, const bash_command &command)
{
  for (const bash_word &word : command.words) {
    for (const bash_expansion &expansion : word.expansions) {
      c->judged.insert(scoped(*c, command.function, full_name(expansion)) +
                       NAME_PART);
    }
  }
}

static void collect_judged(context *c)
{
  for (const script *s : c->files) {
    for (const bash_command &command : s->code.commands) {
      bool named;
      if (asks_which_line(command, &named)) {
        if (named) {
          judge_names(c, command);
        }
        continue;
      }
      const std::string &name = first_word(command);
      const bool asks = command.condition && c->functions.count(name) != 0;
      const bool tests = (name == "[" || name == "test") && compares(command);
      if (command.kind == BASH_CASE || asks || tests ||
          (command.kind == BASH_TEST && compares(command))) {
        for (const bash_word &word : command.words) {
          judge(c, command, word);
        }
      }
    }
  }
}

// --- what comes from a request -----------------------------------------------

// Takes away all but plain characters.
static bool cleans(const std::string &rest)
{
  return rest.find("[!") != std::string::npos ||
         rest.find("[^") != std::string::npos || starts_with(rest, "@Q") ||
         rest == "+" || starts_with(rest, ":+") || starts_with(rest, "+");
}

// Whether the expansion brings in a value that nothing has looked at.
static bool is_input(const context &c, const bash_command &command,
                     const bash_expansion &expansion)
{
  const std::string name = scoped(c, command.function, expansion.name);
  const std::string all = scoped(c, command.function, full_name(expansion));
  const bool is_name = starts_with(expansion.rest, NAME_PART) &&
                       c.judged.count(all + NAME_PART) != 0;
  if (expansion.length || cleans(expansion.rest) || is_name ||
      c.judged.count(all) != 0 ||
      (expansion.subscript.empty() && c.judged.count(name) != 0)) {
    return false;
  }
  return c.input.count(name) != 0;
}

static const bash_expansion *
input_of(const context &c, const bash_command &command, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (is_input(c, command, expansion)) {
      return &expansion;
    }
  }
  return nullptr;
}

// Whether the command reads the script's own input.
static bool reads_input(const context &c, const bash_command &command)
{
  for (const bash_redirect &redirect : command.redirects) {
    if (redirect.op == "<<<") {
      return input_of(c, command, redirect.target) != nullptr;
    }
  }
  return !command.redirected_in && !command.piped_in;
}

static bool add_input(context *c, const bash_command &command,
                      const std::string &name)
{
  return c->input.insert(scoped(*c, command.function, name)).second;
}

// The variables that read, mapfile and the like fill.
static bool follow_reading(context *c, const bash_command &command)
{
  static const std::set<std::string> readers = {"read", "mapfile", "readarray"};
  static const std::string with_value = "dinNptuaCcsO";
  if (readers.count(first_word(command)) == 0 || !reads_input(*c, command)) {
    return false;
  }
  bool more = false;
  for (size_t i = 1; i < command.words.size(); i++) {
    const std::string &word = command.words[i].plain;
    if (word[0] == '-' && word.size() > 1) {
      const char option = word.back();
      const bool value = with_value.find(option) != std::string::npos &&
                         option != 'a' && option != 's';
      i += value && i + 1 < command.words.size() ? 1 : 0;
    } else if (command.words[i].expansions.empty()) {
      more |= add_input(c, command, word.substr(0, word.find('[')));
    }
  }
  return more;
}

// The whole of standard input as one value.
static bool reads_all(const std::string &value)
{
  for (const char *all :
       {"$(cat)", "$(</dev/stdin)", "$(< /dev/stdin)", "$(cat -)", "`cat`"}) {
    if (value.find(all) != std::string::npos) {
      return true;
    }
  }
  return false;
}

// A variable made of input is input.
static bool follow_assignments(context *c, const bash_command &command)
{
  bool more = false;
  for (const bash_assignment &assignment : command.assignments) {
    bool input = input_of(*c, command, assignment.value) != nullptr ||
                 reads_all(assignment.value.text);
    for (const bash_word &element : assignment.elements) {
      input |= input_of(*c, command, element) != nullptr;
    }
    if (input) {
      more |= add_input(c, command, assignment.name);
    }
  }
  if (command.kind == BASH_FOR && !command.words.empty()) {
    for (size_t i = 1; i < command.words.size(); i++) {
      if (input_of(*c, command, command.words[i]) != nullptr ||
          reads_all(command.words[i].text)) {
        more |= add_input(c, command, command.words[0].plain);
      }
    }
  }
  return more;
}

// An expression that lets anything into the groups of BASH_REMATCH.
static bool is_loose(const std::string &expression)
{
  return expression.find(".*") != std::string::npos ||
         expression.find(".+") != std::string::npos;
}

// What an expression such as (.*) lets through is input still.
static bool follow_match(context *c, const bash_command &command)
{
  if (command.kind != BASH_TEST) {
    return false;
  }
  for (size_t i = 1; i + 1 < command.words.size(); i++) {
    if (command.words[i].text != "=~" ||
        !is_loose(command.words[i + 1].plain)) {
      continue;
    }
    for (const bash_expansion &expansion : command.words[i - 1].expansions) {
      if (c->input.count(scoped(*c, command.function, expansion.name)) != 0) {
        return c->input.insert("::BASH_REMATCH").second;
      }
    }
  }
  return false;
}

// The parameters of a function that is called with a request's values.
static bool follow_call(context *c, const bash_command &command)
{
  const std::string &name = first_word(command);
  if (name == "orv_read") {
    return c->input.insert("::orv").second;
  }
  if (c->functions.count(name) == 0 || starts_with(name, "orv_")) {
    return false;
  }
  bool more = false;
  for (size_t i = 1; i < command.words.size(); i++) {
    if (input_of(*c, command, command.words[i]) != nullptr) {
      more |= c->input.insert(name + "::" + std::to_string(i)).second;
      c->input.insert(name + "::@");
    }
  }
  return more;
}

// The number of the argument that is the sub-item, 0 when none is.
static size_t subitem_argument(const script_line &line)
{
  const std::vector<std::string> words = split_words(line.text);
  for (size_t i = 1; i < words.size(); i++) {
    if (words[i].find("$S$") != std::string::npos) {
      return i;
    }
  }
  return 0;
}

// Values that the page's own checks hold to something harmless: those of fields
// with such a check, and of lists.  Cells are checked up to the first blank
// row.
static void add_checked(context *c, const std::string &script_name)
{
  static const std::set<std::string> words_of_list = {"keyword", "word"};
  static const std::set<std::string> numbers = {"decimal", "number", "signed"};
  for (const form *f : forms_of(c->dev, script_name)) {
    for (const form_item &item : f->items) {
      const form_line *check = attribute(item, "check");
      const std::vector<std::string> words =
          split_words(check != nullptr ? check->text : "");
      const auto is_one_of = [&](const std::set<std::string> &checks) {
        return std::any_of(words.begin(), words.end(),
                           [&](const std::string &word) {
                             return checks.count(lower(word)) != 0;
                           });
      };
      const bool number = is_one_of(numbers);
      const std::string name = "::orv[" + item.name + "]";
      if (item.table < 0 &&
          (number || is_one_of(words_of_list) || item.type == PT_SELECT ||
           item.type == PT_CHECKBOX) &&
          c->judged.insert(name).second && number) {
        c->padded.insert(name);
      }
    }
  }
}

// Which argument is the sub-item depends on the header's line.
static void add_arguments(context *c, const std::string &script_name)
{
  for (const auto &entry : c->dev.forms) {
    for (const script_line &line : entry.second.scripts) {
      const size_t argument = subitem_argument(line);
      if (line.script == script_name && argument != 0) {
        c->input.insert("::" + std::to_string(argument));
        c->input.insert("::@");
        c->input.insert("::*");
      }
    }
  }
}

// Until nothing new is reached: functions may call each other in any order.
static void follow_input(context *c)
{
  bool more = true;
  while (more) {
    more = false;
    for (const script *s : c->files) {
      for (const bash_command &command : s->code.commands) {
        more |= follow_reading(c, command) || follow_match(c, command);
        more |= follow_assignments(c, command);
        more |= follow_call(c, command);
      }
    }
  }
}

// --- where it must not go ----------------------------------------------------

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
  if (languages.count(first_word(at.command)) == 0) {
    return;
  }
  for (size_t i = 1; i < at.command.words.size(); i++) {
    const bash_word &word = at.command.words[i];
    if (word.plain[0] == '-' && word.plain != "-e") {
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

// Files that are run in the shell itself.
static void check_source(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  const std::string &name = first_word(at.command);
  if ((name != "." && name != "source") || words.size() < 2) {
    return;
  }
  const std::string &path = words[1].plain;
  const bool own = path.find("BASH_SOURCE") != std::string::npos ||
                   path.find("dirname") != std::string::npos ||
                   path.find("${0%") != std::string::npos;
  const size_t slash = path.rfind('/');
  const std::string file =
      path.substr(slash == std::string::npos ? 0 : slash + 1);
  const bool literal = file.find('$') == std::string::npos;
  const bool above = path.find("..") != std::string::npos;
  if (own && literal && !above) {
    if (at.c.dev.scripts.count(file) == 0 && !is_library(file)) {
      std::set<std::string> names;
      for (const auto &entry : at.c.dev.scripts) {
        names.insert(entry.first);
      }
      tell(at.found, *at.s.file, words[1].line, words[1].column,
           "script-missing",
           "Script " + in_quotes("scripts/" + file) + " does not exist" +
               did_you_mean(file, names));
    }
  } else if (words[1].text.find_first_of("$`<") != std::string::npos ||
             starts_with(path, "/dev/")) {
    tell(at.found, *at.s.file, words[1].line, words[1].column, "source",
         words[1].text + " is run as commands; read values with read, and"
                         " source only files of the scripts' folder");
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

void check_input(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    context c = {dev,
                 {},
                 library_functions,
                 {},
                 {},
                 {},
                 {},
                 {"orv", "orv_was", "orv_label"}};
    for (const std::string &name : with_sources(dev, entry.first)) {
      c.files.push_back(&dev.scripts.at(name));
    }
    collect_locals(&c);
    collect_judged(&c);
    add_checked(&c, entry.first);
    add_arguments(&c, entry.first);
    follow_input(&c);
    for (const script *s : c.files) {
      for (const bash_command &command : s->code.commands) {
        const sink at = {c, *s, command, found};
        check_eval(at);
        check_program(at);
        check_command(at);
        check_let(at);
        check_names(at);
        check_source(at);
        check_path(at);
        check_words(at);
      }
    }
  }
}
