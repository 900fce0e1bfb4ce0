// What the lines of a script are: their ends, the first one, what they print.

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "text.h"

// Functions whose output is taken by $( ).
// $(label "$1") puts the words of the function in a value, so an echo in it is
// right without "=". One such call is enough: such functions are made for that.
static std::set<std::string> captured_functions(const bash_script &code)
{
  std::set<std::string> names;
  for (const bash_command &command : code.commands) {
    // A pipe and a file take the output as well.
    if (!first_word(command).empty() &&
        (command.substitution > 0 || command.piped || command.redirected_out)) {
      names.insert(first_word(command));
    }
  }
  return names;
}

// The text of a printed line, as far as it stands there.
// "" where a value stands in it, since that may bring the "=". Options of echo
// are in it, too.
static std::string literal_line(const bash_command &command)
{
  std::string text;
  for (size_t i = 1; i < command.words.size(); i++) {
    if (!command.words[i].expansions.empty() ||
        has_substitution(command.words[i])) {
      return "";
    }
    text += command.words[i].plain + " ";
  }
  return text;
}

// echo -n and the like print a part of a line.
// A format of printf has its own line end, which may be written as \n or stand
// there. printf -v prints nothing, and goes on no line.
static bool has_no_end(const bash_command &command)
{
  const std::vector<bash_word> &words = command.words;
  if (first_word(command) == "printf") {
    return words.size() > 1 && words[1].plain[0] != '-' &&
           !ends_with(words[1].plain, "\\n") &&
           !ends_with(words[1].plain, "\n");
  }
  return first_word(command) == "echo" && words.size() > 1 &&
         words[1].plain[0] == '-' &&
         words[1].plain.find('n') != std::string::npos;
}

// Whether what the command prints goes elsewhere than to the page.
// >&2 and >&1 are no other place: the page reads standard error, too. A
// redirection around the whole block is known by its flag alone.
static bool is_elsewhere(const bash_command &command,
                         const std::set<std::string> &captured)
{
  bool elsewhere = command.piped || command.substitution > 0 ||
                   captured.count(command.function) != 0;
  for (const bash_redirect &redirect : command.redirects) {
    elsewhere |= redirect.op.find('>') != std::string::npos &&
                 redirect.target.plain != "2" && redirect.target.plain != "1";
  }
  return elsewhere || (command.redirects.empty() && command.redirected_out);
}

// The text in front of the first value: a blank in it is in no name.
// echo "No port $1" is no value whatever $1 holds, but echo "$line" and echo
// "use$i=..." may be one. A blank at the start is taken off by the page.
static bool begins_with_words(const bash_command &command)
{
  const std::vector<bash_word> &words = command.words;
  if (words.size() < 2 || words[1].expansions.empty() ||
      words[1].text.find('`') != std::string::npos) {
    return false;
  }
  const std::string start = words[1].plain.substr(0, words[1].plain.find('$'));
  return start.find(' ') != std::string::npos && start[0] != ' ' &&
         start.find('=') == std::string::npos;
}

// Only whole lines that stand in the script are judged.
// Of echo alone: the format of printf is often put together, and its text
// stands in other words. A line of blanks, or options alone, prints nothing
// that the page would refuse.
static void check_output(const script &s, const bash_command &command,
                         findings *found)
{
  const std::string text = literal_line(command);
  const bool no_line = !text.empty() && text.find('=') == std::string::npos &&
                       text.find_first_not_of(" -ne") != std::string::npos;
  if (first_word(command) == "echo" &&
      (no_line || begins_with_words(command))) {
    report(found, *s.file, command.line, command.column, "output-format",
           "Bad format script output: a page reads lines NAME=VALUE, from"
           " standard error, too");
  }
}

// Commands that print for people, whatever they are given.
// `date +name=%F` prints a value; of hostname only the call without a name
// prints one.
static bool prints_words(const bash_command &command)
{
  static const word_set printers = {
      "arch", "date",  "df",     "du",    "free",  "hostname", "id",
      "ls",   "ping",  "ps",     "pwd",   "uname", "uptime",   "wc",
      "who",  "lspci", "whoami", "lsusb", "lsblk", "nproc"};
  const std::string &name = first_word(command);
  return printers.count(name) != 0 &&
         (name != "hostname" || command.words.size() == 1) &&
         std::none_of(command.words.begin(), command.words.end(),
                      [](const bash_word &word) {
                        return word.plain.find('=') != std::string::npos ||
                               !word.expansions.empty();
                      });
}

// In a function it depends on the caller where the output goes.
static void check_printed(const script &s, const bash_command &command,
                          findings *found)
{
  if (prints_words(command) && command.function.empty() &&
      !is_elsewhere(command, {})) {
    report(
        found, *s.file, command.line, command.column, "output-format",
        "what " + in_quotes(first_word(command)) +
            " prints is no line NAME=VALUE; report it as a value, or send it "
            "elsewhere");
  }
}

// A part of a line is no line, nor is what goes on behind it.
static void check_lines(const script &s, findings *found)
{
  const std::set<std::string> captured = captured_functions(s.code);
  bool goes_on = false;
  for (const bash_command &command : s.code.commands) {
    const std::string &name = first_word(command);
    check_printed(s, command, found);
    if ((name != "echo" && name != "printf") ||
        is_elsewhere(command, captured)) {
      continue;
    }
    if (!goes_on && !has_no_end(command)) {
      check_output(s, command, found);
    }
    goes_on = has_no_end(command);
  }
}

// Whether the word is the program that stores settings.
// Also by a variable that was given its path, store=${ORV_STORE:-orv-store}.
static bool is_store(const script &s, const bash_word &word)
{
  const auto names = [](const std::string &text) {
    return text.find("orv-store") != std::string::npos ||
           text.find("ORV_STORE") != std::string::npos;
  };
  return names(word.text) ||
         (word.expansions.size() == 1 &&
          std::any_of(s.code.commands.begin(), s.code.commands.end(),
                      [&](const bash_command &command) {
                        return std::any_of(
                            command.assignments.begin(),
                            command.assignments.end(),
                            [&](const bash_assignment &assignment) {
                              return assignment.name ==
                                         word.expansions[0].name &&
                                     names(assignment.value.text);
                            });
                      }));
}

// The answer of `orv-store load` begins with a line that is no value.
// A script in sh has no library, so it calls the program itself; passing its
// whole answer on to the page is the natural mistake.
static void check_answer(const script &s, findings *found)
{
  const std::set<std::string> captured = captured_functions(s.code);
  for (const bash_command &command : s.code.commands) {
    if (command.kind == BASH_SIMPLE && command.words.size() > 1 &&
        command.words[1].plain == "load" && is_store(s, command.words[0]) &&
        !is_elsewhere(command, captured) && !command.redirected_out) {
      report(found, *s.file, command.line, command.column, "output-format",
             "the first line of this answer is \"ok\", which is no line"
             " NAME=VALUE; leave it out, as by sed 1d");
      return;
    }
  }
}

// Whether the script runs as a read, check or write script, and for no bar.
// The lines of a bar are links, FORM LABEL, which have no "=".
static bool prints_values(const device &dev, const script &s)
{
  const auto tasks = dev.tasks_of.find(s.name);
  const bool bar =
      tasks != dev.tasks_of.end() &&
      std::any_of(tasks->second.begin(), tasks->second.end(),
                  [](const form_task &of) { return of.task == TASK_NAVBAR; });
  return !bar && !forms_of(dev, s.name).empty();
}

static bool needs_bash(const script &s)
{
  return std::any_of(s.code.commands.begin(), s.code.commands.end(),
                     [](const bash_command &command) {
                       const bool arrays =
                           std::any_of(command.assignments.begin(),
                                       command.assignments.end(),
                                       [](const bash_assignment &assignment) {
                                         return !assignment.elements.empty() ||
                                                !assignment.subscript.empty();
                                       });
                       return arrays || command.kind == BASH_TEST ||
                              command.kind == BASH_ARITHMETIC;
                     });
}

// A script without such a line is run by bash.
// A device has few interpreters, and a name beside these is most likely
// misspelt. "/usr/bin/env bash" names the second word; a CR behind the name
// makes another program of it.
static void check_interpreter(const script &s, findings *found)
{
  static const std::set<std::string> known = {
      "bash", "sh", "dash", "ash", "busybox", "python3", "perl", "lua", "awk"};
  const std::string first = s.file->lines.empty() ? "" : s.file->lines[0];
  if (!starts_with(first, "#!")) {
    return; // bash runs it all the same
  }
  std::vector<std::string> words = split_words(first.substr(2));
  if (words.size() > 1 && ends_with(words[0], "/env")) {
    words.erase(words.begin(),
                words.begin() + (words.size() > 2 && words[1] == "-S" ? 2 : 1));
  }
  std::string program = words.empty() ? "" : words[0];
  program.erase(0, program.rfind('/') + 1);
  if (!program.empty() && program.back() == '\r') {
    return; // reported already
  }
  if (known.count(program) == 0) {
    report(found, *s.file, 1, 3, "interpreter",
           "no program " + in_quotes(program) + " runs scripts" +
               did_you_mean(program, known));
  } else if (program != "bash" && known.count(program) != 0 &&
             ends_with(program, "sh") && needs_bash(s)) {
    // dash stops at an array and looks for a program "[[", so the script fails
    // where it is reached, which may be long after it was tried.
    report(found, *s.file, 1, 3, "interpreter",
           in_quotes(program) + " does not know what this script uses ([[ ]],"
                                " (( )), arrays); write #!/bin/bash");
  }
}

// What set -x writes is output like all of standard error.
static void check_trace(const script &s, findings *found)
{
  const auto report_trace = [&](int line, int column) {
    report(found, *s.file, line, column, "output-format",
           "this writes every command to standard error, which is output: it"
           " fails the page");
  };
  if (first_line_turns_on(s, 'x', "xtrace") ||
      first_line_turns_on(s, 'v', "verbose")) {
    report_trace(1, 1);
    return;
  }
  for (const bash_command &command : s.code.commands) {
    if (turns_on(command, 'x', "xtrace") || turns_on(command, 'v', "verbose")) {
      report_trace(command.line, command.column);
      return;
    }
  }
}

// --- line ends ---------------------------------------------------------------

// Once for each file: lines end alike in all of it. The kernel would look for
// an interpreter "bash\r"; bash itself takes "exit 0\r" for a number with a CR.
static void check_line_ends(const script &s, findings *found)
{
  int number = 0;
  if (starts_with(s.file->text, BYTE_ORDER_MARK)) {
    report(found, *s.file, 1, 1, "byte-order-mark",
           "the file begins with a byte order mark, so its first line names no"
           " interpreter");
  }
  for (const std::string &line : s.file->lines) {
    number++;
    if (!line.empty() && line.back() == '\r') {
      report(
          found, *s.file, number, static_cast<int>(line.size()), "crlf",
          "lines end in CR LF; bash takes the CR for a part of the last word");
      return;
    }
  }
}

void check_scripts(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    const script &s = entry.second;
    check_line_ends(s, found);
    check_interpreter(s, found);
    if (prints_values(dev, s)) {
      check_lines(s, found);
      check_answer(s, found);
      check_trace(s, found);
    }
  }
  // Scripts in other languages and programs of root print by other means, but
  // the kernel reads their first lines as well.
  for (const auto *all : {&dev.others, &dev.programs}) {
    for (const auto &entry : *all) {
      check_line_ends(entry.second, found);
      check_interpreter(entry.second, found);
    }
  }
}
