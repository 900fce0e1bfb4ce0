// What bash evaluates: names, numbers and texts that it keeps to run them
// later.  A subscript in a name is arithmetic, and arithmetic runs commands:
// with x='a[$(reboot)]', even [[ -v $x ]] reboots.
//
// Nothing here asks whether a value was tested before: is_input() knows, and is
// false for one that was.

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
// name before it. declare "shown=$x" stores any text as it is, and declare
// "$x=1" runs what stands in a[$(reboot)].
static const bash_expansion *input_name(const sink &at, const bash_word &word)
{
  static const word_set stores = {"declare", "local", "export", "typeset",
                                  "readonly"};
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
// evaluate it. readonly has no such options.
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

// Builtins that evaluate the names they are given. A subscript in the name runs
// commands with declare, local, read, printf -v, let and unset. The others
// refuse one, but a request that chooses the name may choose PATH. A word that
// begins with "-" is an option, whatever its end is.
static void check_names(const sink &at)
{
  static const word_set builtins = {"declare",  "local",    "export", "typeset",
                                    "readonly", "unset",    "read",   "mapfile",
                                    "let",      "readarray"};
  const std::string &name = first_word(at.command);
  static const word_set refusers = {"export", "readonly", "mapfile",
                                    "readarray"};
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
      report_at(at, *input, "eval",
                shown(*input) + " comes from the request and " + name +
                    (refusers.count(name) != 0
                         ? " sets what it names, even PATH"
                         : " evaluates it") +
                    "; check it first, or use an associative array");
    }
  }
}

// [[ -v name ]] and test -v evaluate a subscript in the name. The quotes of
// test -v "$x" do not help: it is -v that reads the name.
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

// What is given to a variable that is declared with -i or -n elsewhere. Where
// the declaration itself brings the value, that is looked at above.
static void check_declared(const sink &at)
{
  static const word_set declaring = {"declare", "local", "typeset", "readonly"};
  if (declaring.count(first_word(at.command)) != 0) {
    return;
  }
  for (const bash_assignment &assignment : at.command.assignments) {
    if (at.c.evaluating.count(
            scoped(at.c, at.command.function, assignment.name)) == 0) {
      continue;
    }
    for (const bash_expansion &expansion : assignment.value.expansions) {
      check_octal(at, expansion);
    }
    const bash_expansion *input = input_of(at.c, at.command, assignment.value);
    if (input != nullptr) {
      report_at(at, *input, "eval",
                shown(*input) + " comes from the request, and " +
                    in_quotes(assignment.name) +
                    " is declared with -i or -n: bash evaluates what it is "
                    "given; check it first");
    }
  }
}

// The same of what a loop or read gives it. There is no expansion to look at:
// the name of the variable is all that the command has, so both what it is and
// what it holds are known from elsewhere.
static void check_filled(const sink &at)
{
  const std::string &name = first_word(at.command);
  const std::vector<bash_word> &words = at.command.words;
  const bool loop = at.command.kind == BASH_FOR && !words.empty();
  const bool reads = name == "read" || name == "mapfile";
  for (size_t i = loop ? 0 : 1;
       (loop || reads) && i < (loop ? 1 : words.size()); i++) {
    const std::string filled =
        scoped(at.c, at.command.function, words[i].plain);
    if (at.c.evaluating.count(filled) != 0 && at.c.input.count(filled) != 0) {
      report(at.found, *at.s.file, words[i].line, words[i].column, "eval",
             in_quotes(words[i].plain) +
                 " is declared with -i or -n, and bash evaluates what comes "
                 "from the request");
      return;
    }
  }
}

// Texts that bash keeps and runs later. With trap "rm $x" EXIT the value is in
// the text before bash reads it as commands; trap 'rm -- "$x"' EXIT expands it
// when that runs. Of trap only the first word is such a text, the others are
// signals.
static void check_kept(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  const std::string &name = first_word(at.command);
  for (size_t i = 1; i < words.size(); i++) {
    const bool kept = (name == "trap" && i == 1) || name == "alias";
    const bash_expansion *input =
        kept ? input_of(at.c, at.command, words[i]) : nullptr;
    if (input != nullptr) {
      report_at(at, *input, "eval",
                shown(*input) + " comes from the request and " + name +
                    " runs this text; use single quotes, so that the value is"
                    " expanded when it runs");
      return;
    }
  }
}

// Variables whose value bash or the loader runs. bash expands PS4 for each
// command under set -x, and $(...) in it runs. PROMPT_COMMAND is a command
// itself, and the others name files or folders from which programs are taken.
static void check_variables(const sink &at)
{
  static const word_set run = {"PS4", "PROMPT_COMMAND", "BASH_ENV",
                               "ENV", "PATH",           "LD_PRELOAD"};
  for (const bash_assignment &assignment : at.command.assignments) {
    const bash_expansion *input =
        run.count(assignment.name) != 0
            ? input_of(at.c, at.command, assignment.value)
            : nullptr;
    if (input != nullptr) {
      report_at(at, *input, "eval",
                shown(*input) + " comes from the request and becomes part of " +
                    in_quotes(assignment.name) + ", which decides what is run");
    }
  }
}

// ${x@P} expands the value as a prompt, commands in it and all.
void check_prompt(const sink &at, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    bash_expansion plain = expansion;
    plain.rest.clear();
    if (expansion.rest == "@P" && is_input(at.c, at.command, plain)) {
      report_at(at, expansion, "eval",
                shown(plain) +
                    " comes from the request and @P runs commands in it");
    }
  }
}

// Most commands have none of all this, and a script is long. A loop or read
// gives values without having any, so attributes alone are reason enough to
// look.
void check_evaluated(const sink &at)
{
  if (at.command.assignments.empty() && !takes_values(at.command) &&
      at.c.evaluating.empty()) {
    return;
  }
  check_names(at);
  check_attributes(at);
  check_declared(at);
  check_filled(at);
  check_kept(at);
  check_variables(at);
  check_is_set(at);
}
