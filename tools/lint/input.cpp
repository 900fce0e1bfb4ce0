// Places where a request's values must not go: where bash runs, splits or
// evaluates them.
//
// Only values that nothing in the script ever checks are reported.

#include <algorithm>
#include <string.h>

#include "rules.h"
#include "sinks.h"
#include "text.h"

// Callers pass only words that bash splits: x=$y, [[ ]] and the subject of a
// case are not, and `cat <<<$x` gives the whole value.
// One finding per word: one pair of quotes fixes all of it.
static void check_unquoted(const sink &at, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (!expansion.quoted && !expansion.arithmetic &&
        is_input(at.c, at.command, expansion)) {
      report_at(at, expansion, "unquoted",
                shown(expansion) +
                    " comes from the request and undergoes word splitting and "
                    "globbing here; put it in double quotes");
      return;
    }
  }
}

// $((10#-5)) is an error, since the base stands before digits alone, and
// 10#0x10 is one as well.  So 10# is enough only for checks that let digits
// through and nothing else.
// A number that the page has checked may be 0900, 0x10 or -5.
void check_octal(const sink &at, const bash_expansion &expansion)
{
  const std::string name =
      scoped(at.c, at.command.function, full_name(expansion));
  const auto padded = at.c.padded.find(name);
  if (padded == at.c.padded.end() || (expansion.based && !padded->second)) {
    return;
  }
  report_at(at, expansion, "number-octal",
            shown(expansion) +
                (expansion.based
                     ? " may have a sign or begin with 0x, which 10# does not "
                       "accept; call orv_number first"
                     : " may begin with 0, which means octal here; use [ x -gt "
                       "y ], or call orv_number first"));
}

// Octal is reported for checked values, too: "09" passes every check for a
// number, and [[ 09 -gt 8 ]] is an error that counts as false.  A base in front
// makes no value safe: 10#$x runs the command of "0+a[$(reboot)]".
static void check_number(const sink &at, const bash_word &word, bool operand)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (!expansion.arithmetic && !operand) {
      continue;
    }
    check_octal(at, expansion);
    if (is_input(at.c, at.command, expansion)) {
      report_at(
          at, expansion, "input-number",
          shown(expansion) +
              " comes from the request and is evaluated as a number before it "
              "has been checked: bash runs commands in subscripts" +
              (expansion.based ? ", and a base in front prevents nothing"
                               : ""));
    }
  }
}

// What root runs lies in other folders, so a name below scripts/ says nothing
// there.
// A sourced file of the folder that does not exist.
static void check_sourced(const sink &at, const bash_word &word)
{
  const std::string name =
      sourced_name(at.s.name, with_own_folder(at.s, word.plain));
  const device &dev = at.c.dev;
  if (name.empty() || dev.programs.count(at.s.name) != 0 ||
      dev.scripts.count(name) + dev.odd.count(name) != 0 || is_library(name)) {
    return;
  }
  std::set<std::string> names;
  for (const auto &entry : dev.scripts) {
    names.insert(entry.first);
  }
  report(at.found, *at.s.file, word.line, word.column, "script-missing",
         "Script " + in_quotes("scripts/" + name) + " does not exist" +
             did_you_mean(name, names));
}

// Files that run in the shell itself.
// A path in the own folder is right as soon as the file is there.  Of all
// others what may hold values is told first, since to run these is worse than
// to miss a file.  For `. orv.bash` bash looks through PATH, then in the
// current folder.
static void check_source(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  const std::string &name = first_word(at.command);
  if ((name != "." && name != "source") || words.size() < 2) {
    return;
  }
  const bash_word &word = words[1];
  const std::string path = with_own_folder(at.s, word.plain);
  const std::string file = path.substr(path.rfind('/') + 1);
  const bool made = word.text.find_first_of("$`<") != std::string::npos;
  if (is_own_path(path) && file.find('$') == std::string::npos &&
      path.find("..") == std::string::npos) {
    check_sourced(at, word);
  } else if (made || starts_with(path, "/dev/") ||
             path.find("/state/") != std::string::npos) {
    report(at.found, *at.s.file, word.line, word.column, "source",
           word.text + " is run as commands; use read for values, and source "
                       "only files in the scripts' folder");
  } else if (path[0] != '/') {
    report(at.found, *at.s.file, word.line, word.column, "source-folder",
           word.text +
               " is relative to the current folder, which may be any; write "
               "\"${BASH_SOURCE%/*}/" +
               file + "\"");
  }
}

// A file that is read or written relative to the current folder: which one that
// is depends on the web server.
// A script that says `cd` anywhere has chosen its folder.  ">&2" names a
// descriptor and "<<<" a text.
static void check_relative(const sink &at)
{
  for (const bash_redirect &redirect : at.command.redirects) {
    const std::string &path = redirect.target.plain;
    if (redirect.op.find('&') == std::string::npos && redirect.op != "<<<" &&
        redirect.op != "<<" && redirect.op != "<<-" &&
        (starts_with(path, "./") || starts_with(path, "../")) &&
        at.s.words.count("cd") == 0) {
      report(at.found, *at.s.file, redirect.target.line, redirect.target.column,
             "source-folder",
             redirect.target.text +
                 " is relative to the current folder, which may be any; write "
                 "\"${BASH_SOURCE%/*}/...\"");
      return;
    }
  }
}

// Of grep, sed and the like only some words are, so they are not in the list.
// The names of values behind the file of orv_store choose no file.
// Commands whose arguments are paths.
static void check_path(const sink &at)
{
  static const word_set commands = {
      "cat",    "rm",    "cp",       "mv",        "mkdir",  "rmdir", "ln",
      "touch",  "chmod", "chown",    "tee",       "cd",     "tail",  "head",
      "source", ".",     "orv_load", "orv_reset", "orv_act"};
  std::vector<const bash_word *> paths;
  for (const bash_redirect &redirect : at.command.redirects) {
    if (redirect.op.find("<<") == std::string::npos) {
      paths.push_back(&redirect.target);
    }
  }
  const std::string &name = first_word(at.command);
  const bool stores = name == "orv_store"; // names follow its file
  const std::vector<bash_word> &words = at.command.words;
  for (size_t i = 1; i < words.size(); i++) {
    if (commands.count(name) != 0 ||
        (stores && (i == 1 || words[i - 1].plain == "--"))) {
      paths.push_back(&words[i]);
    }
  }
  for (const bash_word *path : paths) {
    const bash_expansion *input = input_of(at.c, at.command, *path);
    if (input != nullptr) {
      report_at(at, *input, "input-path",
                shown(*input) + " comes from the request and chooses a file;"
                                " compare it with a list first");
    }
  }
}

// What bash evaluates of an expression.  In arithmetic a bare word is a
// variable as well: ${a[row]} evaluates what $row holds.
static std::vector<bash_expansion> evaluated(const std::string &expression)
{
  std::vector<bash_expansion> expansions;
  if (expression.find_first_not_of("0123456789") == std::string::npos) {
    return expansions;
  }
  const bash_script code = read_bash("((" + expression + "))");
  for (const bash_command &command : code.commands) {
    for (const bash_word &word : command.words) {
      for (const bash_expansion &expansion : word.expansions) {
        if (expansion.arithmetic && command.substitution == 0) {
          expansions.push_back(expansion);
        }
      }
    }
  }
  return expansions;
}

// The subscript of an indexed array is arithmetic: names in it are evaluated
// even without a dollar.  That of an associative array is plain text.
// For x='a[$(reboot)]' ${list[$x]} runs the command; with `declare -A list` it
// is looked up as it stands.
static void check_subscript(const sink &at, const std::string &array,
                            const std::string &subscript, int line, int column)
{
  if (at.c.maps.count(array) != 0) {
    return;
  }
  for (bash_expansion &expansion : evaluated(subscript)) {
    expansion.line = line;
    expansion.column = column;
    check_octal(at, expansion);
    if (is_input(at.c, at.command, expansion)) {
      report_at(
          at, expansion, "input-number",
          shown(expansion) +
              " comes from the request and is evaluated here, as a subscript" +
              (array.empty() ? " can be"
                             : ", unless the array is declared"
                               " with -A") +
              ": bash runs commands in it");
      return;
    }
  }
}

// The library's arrays are associative, also where the script cannot be seen to
// declare them.
// ${array[subscript]} of an array that is not associative.
static void check_elements(const sink &at, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (!expansion.arithmetic && expansion.subscript != "@" &&
        expansion.subscript != "*" && !starts_with(expansion.name, "orv")) {
      check_subscript(at, expansion.name, expansion.subscript, expansion.line,
                      expansion.column);
    }
  }
}

// ${x:offset:length} evaluates both.  With one of "-=?+" after the colon it is
// another expansion: ${x:-default}.
static void check_offset(const sink &at, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    const std::string &rest = expansion.rest;
    if (rest.size() > 1 && rest[0] == ':' &&
        strchr("-=?+", rest[1]) == nullptr) {
      check_subscript(at, "", rest, expansion.line, expansion.column);
    }
  }
}

// It takes a bare name as arithmetic does.
// let evaluates its words after quotes are removed, so quoting does not help.
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

// What ${...} evaluates.
static void check_word(const sink &at, const bash_word &word)
{
  check_indirect(at, word);
  check_prompt(at, word);
  check_offset(at, word);
  check_elements(at, word);
}

static void check_words(const sink &at)
{
  const bash_command &command = at.command;
  static const word_set operators = {"-eq", "-ne", "-lt", "-le", "-gt", "-ge"};
  for (size_t i = 0; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    const bool test = command.kind == BASH_TEST;
    // On both sides of -gt in [[ ]] the text is evaluated; [ ] refuses what is
    // no integer: "integer expression expected".
    const bool operand =
        test && ((i > 0 && operators.count(command.words[i - 1].text) != 0) ||
                 (i + 1 < command.words.size() &&
                  operators.count(command.words[i + 1].text) != 0));
    check_number(at, word, operand);
    check_word(at, word);
    // In [[ ]] and behind `case` nothing is split.
    if (command.kind == BASH_SIMPLE || command.kind == BASH_FOR) {
      check_unquoted(at, word);
    }
  }
  for (const bash_assignment &assignment : command.assignments) {
    check_number(at, assignment.value, false);
    check_subscript(at, assignment.name, assignment.subscript,
                    assignment.value.line, assignment.value.column);
    check_word(at, assignment.value);
    for (const bash_word &element : assignment.elements) {
      check_number(at, element, false);
      check_word(at, element);
      // a=($x) is split, x=$y is not.
      check_unquoted(at, element);
    }
  }
  for (const bash_redirect &redirect : command.redirects) {
    if (redirect.op != "<<<") { // a here-string is not split
      check_unquoted(at, redirect.target);
    }
  }
}

void check_command_sinks(const sink &at)
{
  check_evaluated(at);
  check_programs(at);
  check_options(at);
  check_let(at);
  check_source(at);
  check_relative(at);
  check_path(at);
  check_words(at);
}

// A file that several scripts source is looked at with each of them, since what
// a value of it holds depends on the script; equal findings become one.
void check_input(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    const context c = follow_values(dev, entry.first);
    check_leaks(c, entry.second, found);
    check_shared_files(entry.second, found);
    for (const script *s : c.files) {
      for (const bash_command &command : s->code.commands) {
        check_command_sinks({c, *s, command, found});
      }
    }
  }
}
