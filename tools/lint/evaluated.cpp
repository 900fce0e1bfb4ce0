// Text that bash runs: commands and programs made from a request's values, and
// names that it evaluates.  A subscript in a name is arithmetic, and arithmetic
// runs commands: with x='a[$(reboot)]', even [[ -v $x ]] reboots.

#include "sinks.h"

#include <string.h>

#include <algorithm>

#include "text.h"

void report_at(const sink &at, const bash_expansion &expansion,
               const char *rule, const std::string &text)
{
  report(at.found, *at.s.file, expansion.line, expansion.column, rule, text);
}

std::string shown(const bash_expansion &expansion)
{
  return expansion.subscript.empty() ? "\"$" + expansion.name + "\""
                                     : "\"${" + full_name(expansion) + "}\"";
}

// bash -c, also after xargs, timeout and the like.
static void check_shell(const sink &at)
{
  static const std::set<std::string> shells = {"bash", "sh", "dash", "ash",
                                               "su"};
  const std::vector<bash_word> &words = at.command.words;
  std::string shell;
  for (size_t i = 0; i + 1 < words.size(); i++) {
    const std::string &word = words[i].plain;
    const std::string name = word.substr(word.rfind('/') + 1);
    shell = shells.count(name) != 0 ? name : shell;
    if (!shell.empty() && word == "-c" && !words[i + 1].expansions.empty()) {
      report_at(
          at, words[i + 1].expansions[0], "eval",
          shell +
              " -c runs whatever the values contain; pass them as arguments: " +
              shell + " -c '... \"$1\"' -- \"$value\"");
      return;
    }
  }
}

// xargs -I{} sh -c '... {}' makes each line of its input a part of the program.
static void check_xargs(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  std::string mark;
  for (size_t i = 1; i + 1 < words.size(); i++) {
    const std::string &word = words[i].plain;
    if (mark.empty() && starts_with(word, "-I")) {
      mark = word.size() > 2 ? word.substr(2) : words[i + 1].plain;
    } else if (word == "-c" && !mark.empty() &&
               words[i + 1].plain.find(mark) != std::string::npos) {
      report(
          at.found, *at.s.file, words[i + 1].line, words[i + 1].column, "eval",
          "each input line becomes part of the program " + words[i + 1].text +
              "; pass it as an argument: sh -c '... \"$1\"' -- " + mark);
      return;
    }
  }
}

// Commands that run their arguments as code.
static void check_eval(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  const std::string &name = first_word(at.command);
  if (name == "eval") {
    for (size_t i = 1; i < words.size(); i++) {
      if (words[i].text.find_first_of("$`") != std::string::npos) {
        report(at.found, *at.s.file, at.command.line, at.command.column, "eval",
               "eval runs whatever the values contain; use arrays, printf -v "
               "or a case instead");
        return;
      }
    }
  }
  check_shell(at);
  if (name == "xargs") {
    check_xargs(at);
  }
}

// Programs in other languages that contain values.
static void check_program(const sink &at)
{
  static const std::set<std::string> languages = {
      "awk", "gawk", "mawk", "sed", "perl", "python3", "lua"};
  // Options whose values are not programs.
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
      report_at(at, *input, "eval",
                shown(*input) + " comes from the request and becomes part of a "
                                "program here; pass it as a value");
    }
    if (word.plain != "-e") {
      return; // the first argument is the program, the others are files
    }
  }
}

// The length of the name in NAME=VALUE, npos if there is no value.  A "=" in a
// subscript or an expansion is not the end of the name.
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

// The input in a builtin's word; where a value is stored unchanged, only in the
// name before it.
static const bash_expansion *input_name(const sink &at, const bash_word &word)
{
  static const std::set<std::string> stores = {"declare", "local", "export",
                                               "typeset", "readonly"};
  size_t end = stores.count(first_word(at.command)) != 0
                   ? name_length(word.text)
                   : std::string::npos;
  for (const bash_word &other : at.command.words) {
    if (other.plain[0] == '-' &&
        other.plain.find_first_of("in") != std::string::npos) {
      end = std::string::npos; // a number or a name: its value is evaluated
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

// declare -n NAME=VALUE takes the value for a name, and -i for a number: both
// evaluate it.
static void check_attributes(const sink &at)
{
  const std::string &name = first_word(at.command);
  const bool evaluates =
      (name == "declare" || name == "local" || name == "typeset") &&
      std::any_of(at.command.words.begin(), at.command.words.end(),
                  [](const bash_word &word) {
                    return word.plain[0] == '-' &&
                           word.plain.find_first_of("in") != std::string::npos;
                  });
  if (!evaluates) {
    return;
  }
  for (const bash_assignment &assignment : at.command.assignments) {
    for (const bash_expansion &expansion : assignment.value.expansions) {
      check_octal(at, expansion);
    }
    const bash_expansion *input = input_of(at.c, at.command, assignment.value);
    if (input != nullptr) {
      report_at(at, *input, "eval",
                shown(*input) + " comes from the request and " + name +
                    " evaluates it here; check it first");
    }
  }
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
      report_at(
          at, *input, "eval",
          shown(*input) + " comes from the request and " + name +
              " evaluates it; check it first, or use an associative array");
    }
  }
}

// [[ -v name ]] and test -v evaluate a subscript in the name.
static void check_is_set(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  const std::string &name = first_word(at.command);
  if (at.command.kind != BASH_TEST && name != "[" && name != "test") {
    return;
  }
  for (size_t i = 0; i + 1 < words.size(); i++) {
    const bash_expansion *input = input_of(at.c, at.command, words[i + 1]);
    if (words[i].text == "-v" && input != nullptr) {
      report_at(
          at, *input, "eval",
          shown(*input) +
              " comes from the request and -v evaluates it; check it first");
    }
  }
}

// The name in ${!name} is evaluated, including its subscript.
void check_indirect(const sink &at, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (expansion.indirect && is_input(at.c, at.command, expansion)) {
      report_at(at, expansion, "eval",
                shown(expansion) + " comes from the request and ${!...}"
                                   " evaluates it; use an associative array");
    }
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
    report_at(at, *input, "eval",
              shown(*input) + " comes from the request and is run as a command"
                              " here");
  }
}

void check_evaluated(const sink &at)
{
  check_eval(at);
  check_program(at);
  check_command(at);
  check_names(at);
  check_attributes(at);
  check_is_set(at);
}
