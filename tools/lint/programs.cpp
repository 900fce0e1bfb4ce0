// Programs that a script puts together: what shells and other languages run,
// here, behind commands that run others, and on other machines.

#include "sinks.h"

#include <algorithm>

#include "text.h"

static std::string base_name(const std::string &path)
{
  return path.substr(path.rfind('/') + 1);
}

// --- commands that run others ------------------------------------------------

// How many words each takes in front of the command, beside its options.
// timeout 5 sh -c ... runs sh, so what is run has to be looked for behind these
// words; flock takes a file, taskset a mask, chrt a priority.
static const std::map<std::string, size_t> runner_words = {
    {"builtin", 0},        {"chroot", 1},    {"chrt", 1},
    {"command", 0},        {"coproc", 0},    {"env", 0},
    {"exec", 0},           {"flock", 1},     {"ionice", 0},
    {"nice", 0},           {"nohup", 0},     {"orv_after_page", 1},
    {"orv_background", 0}, {"orv_guard", 1}, {"runuser", 0},
    {"setsid", 0},         {"stdbuf", 0},    {"sudo", 0},
    {"taskset", 1},        {"time", 0},      {"timeout", 1},
    {"xargs", 0},          {"busybox", 0},   {"orv_guard_boot", 0}};

// Options of theirs whose values are words of their own.
// Of two characters alone: with -n5 the value is in the same word.
static bool takes_value(const std::string &runner, const std::string &option)
{
  static const std::map<std::string, std::string> letters = {
      {"env", "uC"},    {"nice", "n"},      {"ionice", "cnp"},
      {"sudo", "ugCh"}, {"timeout", "ks"},  {"xargs", "nIPLsdE"},
      {"flock", "wE"},  {"runuser", "ugG"}, {"stdbuf", "ioe"},
      {"exec", "a"}};
  const auto row = letters.find(runner);
  return row != letters.end() && option.size() == 2 &&
         row->second.find(option[1]) != std::string::npos;
}

// find ... -exec COMMAND
static size_t behind_exec(const std::vector<bash_word> &words)
{
  for (size_t i = 1; i + 1 < words.size(); i++) {
    const std::string &word = words[i].plain;
    if (word == "-exec" || word == "-execdir" || word == "-ok") {
      return i + 1;
    }
  }
  return 0;
}

// The word that is run in the end.
// Runners run each other (nice timeout 5 sh), so this goes on until a word is
// none. A runner without a command behind it is itself what runs.
static size_t command_word(const std::vector<bash_word> &words)
{
  size_t at = 0;
  while (at < words.size()) {
    const std::string name = base_name(words[at].plain);
    const size_t found = name == "find" ? behind_exec(words) : 0;
    const auto row = runner_words.find(name);
    if (found > at) {
      at = found;
      continue;
    }
    if (row == runner_words.end()) {
      break;
    }
    size_t left = row->second;
    size_t next = at + 1;
    for (; next < words.size(); next++) {
      const std::string &word = words[next].plain;
      if (word[0] == '-') {
        next += takes_value(name, word) ? 1 : 0;
      } else if (name == "env" && word.find('=') != std::string::npos) {
        // An assignment for the command, as in env LC_ALL=C sort.
        continue;
      } else if (left-- == 0) {
        break;
      }
    }
    if (next >= words.size()) {
      break;
    }
    at = next;
  }
  return at;
}

std::string run_command(const bash_command &command)
{
  return command.kind == BASH_SIMPLE && !command.words.empty()
             ? base_name(command.words[command_word(command.words)].plain)
             : "";
}

// --- shells ------------------------------------------------------------------

static bool is_shell(const std::string &name)
{
  static const word_set shells = {"bash", "sh", "dash", "ash", "ksh", "su"};
  return shells.count(name) != 0;
}

// bash -c, also after xargs, timeout and the like.
// All words are searched, as a shell may stand behind words that no table here
// knows. The options of a shell can be joined, -ec. Values that are passed
// behind the program are its $0, $1 and so on, and no part of it.
static bool check_shell(const sink &at)
{
  static const word_set takers = {"flock", "script", "runuser",
                                  "watch", "sg",     "expect"};
  const std::vector<bash_word> &words = at.command.words;
  std::string shell;
  for (size_t i = 0; i + 1 < words.size(); i++) {
    const std::string name = base_name(words[i].plain);
    shell = is_shell(name) || takers.count(name) != 0 ? name : shell;
    const std::string &word = words[i].plain;
    // --exec and other long options end with "c", too.
    const bool option = word == "-c" || (word.size() > 2 && word[0] == '-' &&
                                         word[1] != '-' && word.back() == 'c');
    if (!shell.empty() && option && !words[i + 1].expansions.empty()) {
      report_at(
          at, words[i + 1].expansions[0], "eval",
          shell +
              " -c runs whatever the values contain; pass them as arguments: " +
              shell + " -c '... \"$1\"' -- \"$value\"");
      return true;
    }
  }
  return false;
}

// xargs -I{} sh -c '... {}' makes each line of its input a part of the program,
// find -exec sh -c '... {}' each name.
// A line "x; reboot" runs two commands there. What xargs adds behind the
// program is an argument, and harmless.
static void check_marks(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  std::string mark = first_word(at.command) == "find" ? "{}" : "";
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

// The word 0 is the command, which has a rule of its own.
static const bash_expansion *input_of_words(const sink &at,
                                            const bash_command &command)
{
  for (size_t i = 1; i < command.words.size(); i++) {
    const bash_expansion *input = input_of(at.c, command, command.words[i]);
    if (input != nullptr) {
      return input;
    }
  }
  return nullptr;
}

// What a shell without a file reads from its input: of a pipe or of <<<.
// With a file's name behind it a shell reads that, and its input is what the
// commands there read.
static void check_shell_input(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  if (words.empty() || !is_shell(run_command(at.command))) {
    return;
  }
  for (size_t i = command_word(words) + 1; i < words.size(); i++) {
    if (words[i].plain != "-s" && words[i].plain != "-") {
      return;
    }
  }
  const bash_expansion *input = nullptr;
  for (const bash_redirect &redirect : at.command.redirects) {
    input = redirect.op == "<<<" ? input_of(at.c, at.command, redirect.target)
                                 : input;
  }
  size_t index = 0;
  const script *s = owner_of(at.c, at.command, &index);
  // In front of a pipe stands the command before this one; a block there is not
  // looked into.
  if (at.command.piped_in && s != nullptr && index > 0) {
    input = input_of_words(at, s->code.commands[index - 1]);
  }
  if (input != nullptr) {
    report_at(at, *input, "eval",
              shown(*input) + " comes from the request and a shell reads it as"
                              " commands");
  }
}

// The words behind the machine's name are one line for its shell.
// ssh joins its words with blanks and sends them as one line, so quotes here do
// not help: ssh host rm "$file" runs what the name says there. For watch and
// parallel it is a shell of this machine.
static void check_remote(const sink &at)
{
  static const word_set programs = {"ssh", "rsh", "dbclient", "watch",
                                    "parallel"};
  const std::string name = run_command(at.command);
  if (programs.count(name) == 0) {
    return;
  }
  size_t operands = 0;
  const size_t first =
      name == "ssh" || name == "rsh" || name == "dbclient" ? 2 : 1;
  for (size_t i = command_word(at.command.words) + 1;
       i < at.command.words.size(); i++) {
    const bash_word &word = at.command.words[i];
    // Values of options count as words, so the machine's name is found too
    // early rather than too late.
    operands += word.plain[0] != '-' ? 1 : 0;
    const bash_expansion *input = input_of(at.c, at.command, word);
    if (operands >= first && input != nullptr) {
      report_at(at, *input, "eval",
                shown(*input) +
                    " comes from the request and becomes part of a"
                    " line that a shell runs for " +
                    in_quotes(name) + "; pass it on standard input");
      return;
    }
  }
}

// Commands that run their arguments as code.
// eval with fixed words is harmless; with any value it is reported, as it
// hardly ever needs to be there.
static void check_eval(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  if (first_word(at.command) == "eval") {
    for (size_t i = 1; i < words.size(); i++) {
      if (words[i].text.find_first_of("$`") != std::string::npos) {
        report(at.found, *at.s.file, at.command.line, at.command.column, "eval",
               "eval runs whatever the values contain; use arrays, printf -v "
               "or a case instead");
        return;
      }
    }
  }
  if (!check_shell(at)) {
    check_marks(at);
    check_shell_input(at);
    check_remote(at);
  }
}

// --- other languages ---------------------------------------------------------

// Programs in other languages that contain values.
// jq, awk and the databases take values beside the program; what is put into
// its text ends a string there and goes on as code.
static void check_program(const sink &at)
{
  static const word_set languages = {
      "awk",  "gawk", "mawk", "sed", "perl", "python",  "python3", "lua",
      "node", "php",  "ruby", "jq",  "bc",   "sqlite3", "psql",    "mysql"};
  // Options whose values are not programs.
  // -v NAME=VALUE is the right way, so these are let out.
  static const word_set with_value = {"-v", "-F", "-f", "--arg"};
  const std::string name = run_command(at.command);
  if (languages.count(name) == 0) {
    return;
  }
  const bool named = name == "sqlite3" || name == "psql" || name == "mysql";
  for (size_t i = command_word(at.command.words) + 1;
       i < at.command.words.size(); i++) {
    const bash_word &word = at.command.words[i];
    if (word.plain[0] == '-' && word.plain != "-e") {
      i += with_value.count(word.plain) != 0 ? 1 : 0;
      i += word.plain == "--arg" ? 1 : 0; // a name, then the value
      continue;
    }
    const bash_expansion *input = input_of(at.c, at.command, word);
    // A word that is the value alone is a file's name or an argument as a rule:
    // "${name}" has five characters beside the name.
    if (input != nullptr && word.text.size() > input->name.size() + 5) {
      report_at(at, *input, "eval",
                shown(*input) + " comes from the request and becomes part of a "
                                "program here; pass it as a value");
      return;
    }
    if (word.plain != "-e" && !named) {
      return; // the first argument is the program, the others are files
    }
  }
}

// The word that is run, behind others as well.
// The first word, and what a runner runs: timeout 5 "$tool".
static void check_command(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  if (at.command.kind != BASH_SIMPLE || words.empty()) {
    return;
  }
  for (const size_t i : {size_t(0), command_word(words)}) {
    const bash_expansion *input = input_of(at.c, at.command, words[i]);
    if (input != nullptr) {
      report_at(at, *input, "eval",
                shown(*input) +
                    " comes from the request and is run as a command here");
      return;
    }
  }
}

// --- formats -----------------------------------------------------------------

// printf takes "%" and "\" of its first word for more than themselves.
// With printf -v the format stands behind the variable's name.
static void check_format(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  if (first_word(at.command) != "printf") {
    return;
  }
  size_t i = 1;
  while (i < words.size() &&
         (words[i].plain == "--" || words[i].plain == "-v")) {
    i += words[i].plain == "-v" ? 2 : 1;
  }
  const bash_expansion *input =
      i < words.size() ? input_of(at.c, at.command, words[i]) : nullptr;
  if (input != nullptr) {
    report_at(at, *input, "input-format",
              shown(*input) + " comes from the request and is a format here; "
                              "write printf '%s\\n' \"$value\"");
  }
}

// Whether anything but what stands there can come in; most commands are done
// with that.
// Input of a pipe can bring in a program for a shell, and `{` and `@` stand for
// marks such as those of xargs.
bool takes_values(const bash_command &command)
{
  return command.piped_in || !command.redirects.empty() ||
         std::any_of(command.words.begin(), command.words.end(),
                     [](const bash_word &word) {
                       return !word.expansions.empty() ||
                              word.text.find_first_of("`{$@") !=
                                  std::string::npos;
                     });
}

void check_programs(const sink &at)
{
  if (!takes_values(at.command)) {
    return;
  }
  check_eval(at);
  check_program(at);
  check_command(at);
  check_format(at);
}
