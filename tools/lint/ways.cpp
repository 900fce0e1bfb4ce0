// What a script does where a value is not right, and how it finds out later.

#include "ways.h"

#include <algorithm>

#include "text.h"

// --- what commands do --------------------------------------------------------

// What an older script prints by hand is a message like that of orv_error.
static bool prints_message(const bash_command &command)
{
  const std::string &name = first_word(command);
  return (name == "echo" || name == "printf") &&
         std::any_of(command.words.begin(), command.words.end(),
                     [](const bash_word &word) {
                       return starts_with(word.plain, "error_");
                     });
}

// exec with redirections alone goes on.
// continue and break leave the loop alone, but what stands behind them in it
// does not run with that value.
static bool leaves(const bash_command &command)
{
  static const word_set words = {"exit", "return", "continue", "break"};
  const std::string &name = first_word(command);
  return words.count(name) != 0 || (name == "exec" && command.words.size() > 1);
}

// Whether the assignment only notes something: bad=1, or faults+=('Row 1').
// What is taken from a value or a command says something else than that there
// was a fault.
static bool is_note(const bash_assignment &assignment)
{
  return assignment.subscript.empty() && assignment.value.expansions.empty() &&
         assignment.value.text.find_first_of("`(") == std::string::npos;
}

way way_of(const bash_command &command, const script_ways &ways)
{
  static const word_set reporting = {"orv_error", "orv_msg", "orv_fatal"};
  const std::string &name = first_word(command);
  if (leaves(command)) {
    // Outside of a function, return ends a file that is sourced.
    return name == "return" && !command.function.empty() ? RETURNS : LEAVES;
  }
  const auto function = ways.functions.find(name);
  if (function != ways.functions.end()) {
    return function->second;
  }
  return reporting.count(name) != 0 || prints_message(command) ||
                 std::any_of(command.assignments.begin(),
                             command.assignments.end(), is_note)
             ? REPORTS
             : STAYS;
}

// --- functions and variables -------------------------------------------------

// A function ends the script for certain, or may report something.
// A return, and continue or break, which have no effect on the caller's loop,
// end the function alone: the caller goes on as if nothing had been. An exit in
// a branch may not be reached, and one in $( ) ends no more than the subshell.
static way way_in_function(const bash_command &command, const script_ways &ways)
{
  const std::string &name = first_word(command);
  const way own = way_of(command, ways);
  if (own < RETURNS) {
    return own;
  }
  const bool own_end = own == RETURNS || name == "continue" || name == "break";
  const bool certain =
      command.branch < 0 && command.join.empty() && command.substitution == 0;
  return own_end ? STAYS : certain ? LEAVES : REPORTS;
}

// Functions call others that may stand behind them, so this goes on until
// nothing is new. It ends, since what is known of a function only grows.
static void collect_functions(const context &c, script_ways *ways)
{
  for (bool more = true; more;) {
    more = false;
    for (const script *s : c.files) {
      for (const bash_command &command : s->code.commands) {
        const way own =
            command.function.empty() ? STAYS : way_in_function(command, *ways);
        if (own > STAYS && own > ways->functions[command.function]) {
          ways->functions[command.function] = own;
          more = true;
        }
      }
    }
  }
}

// Whether a test finds the value to be something.
// [[ $good ]] takes "0" and "no" for true, but who writes good=0 asks for that
// value.
static bool is_set_value(const std::string &value)
{
  static const word_set unset = {"", "0", "no", "false", "False"};
  return unset.count(value) == 0;
}

// An assignment outside of all branches gives the variable its first value
// (bad=0), and one in a branch notes the fault (bad=1). The library sets
// orv_failed where it gives a message.
static void collect_flags(const context &c, script_ways *ways)
{
  ways->flags["orv_failed"] = true;
  for (const script *s : c.files) {
    for (const bash_command &command : s->code.commands) {
      if (command.branch < 0 && command.function.empty() &&
          command.join.empty()) {
        continue;
      }
      for (const bash_assignment &assignment : command.assignments) {
        if (is_note(assignment)) { // the last one: others begin with it
          ways->flags[assignment.name] = is_set_value(assignment.value.plain) ||
                                         !assignment.elements.empty();
        }
      }
    }
  }
}

// The word that the line gives its script first.
static std::string task_word(const script_line &line)
{
  const std::vector<std::string> words = split_words(line.text);
  return words.size() > 1 ? words[1] : "";
}

// The write task runs after the check task of the same script has found
// nothing, so a test for --write is one for that. With another check script it
// says nothing, and one such form is enough to make it useless.
static void collect_tasks(const context &c, script_ways *ways)
{
  for (const auto &entry : c.dev.forms) {
    const script_line &checks = entry.second.scripts[TASK_CHECK];
    const script_line &writes = entry.second.scripts[TASK_WRITE];
    const bool own =
        std::any_of(c.files.begin(), c.files.end(),
                    [&](const script *s) { return s->name == writes.script; });
    if (own && checks.script != writes.script) {
      ways->writes.clear();
      return;
    }
    if (own) {
      ways->checks.insert(task_word(checks));
      ways->writes.insert(task_word(writes));
    }
  }
}

script_ways collect_ways(const context &c)
{
  script_ways ways = {{}, {}, {}, {}};
  // A program of root has no tasks: nothing has checked before it runs.
  if (!c.stored) {
    collect_tasks(c, &ways);
  }
  collect_functions(c, &ways);
  collect_flags(c, &ways);
  return ways;
}

// --- what asks for them ------------------------------------------------------

static bool is_not(const std::string &word)
{
  return word == "!=" || word == "-ne" || word == "-gt" || word == "-ge";
}

// [[ $task == --write ]], whatever holds the task.
// A word that both tasks share tells them not apart. In front of the operator
// stands an expansion: a comparison of two fixed words asks for nothing.
static bool asks_for_task(const script_ways &ways, const bash_command &command,
                          bool *none)
{
  for (size_t i = 2; !ways.writes.empty() && i < command.words.size(); i++) {
    const std::string &task = command.words[i].plain;
    const bool writes = ways.writes.count(task) != 0;
    if (writes != (ways.checks.count(task) != 0) &&
        !command.words[i - 2].expansions.empty()) {
      *none = is_not(command.words[i - 1].text) != writes;
      return true;
    }
  }
  return false;
}

// What a test says of a variable, e.g. [[ $bad ]], [ "$bad" = 0 ]: whether it
// succeeds where that is set.
static bool asks_for_set(const bash_command &command, size_t at)
{
  const std::vector<bash_word> &words = command.words;
  const std::string before = at > 0 ? words[at - 1].text : "";
  bool set = before != "-z";
  // "== 0" asks for the opposite of "== 1", and "!= 0" for the same.
  if (at + 2 < words.size() && words[at + 1].text.find_first_of("=!-") == 0) {
    set = is_set_value(words[at + 2].plain) != is_not(words[at + 1].text);
  }
  return set != (before == "!");
}

// ((!bad)) and ((bad == 0)).
// A test of this kind is one word, so the operator is looked for in its text.
static bool asks_for_zero(const std::string &test, const std::string &name)
{
  const size_t at = test.find(name);
  const size_t behind = test.find_first_not_of(' ', at + name.size());
  return (at > 0 && test[at - 1] == '!') ||
         (behind != std::string::npos && test.compare(behind, 4, "== 0") == 0);
}

static bool asks_for_flag(const script_ways &ways, const bash_command &command,
                          bool *none)
{
  for (size_t i = 0; i < command.words.size(); i++) {
    for (const bash_expansion &e : command.words[i].expansions) {
      const auto flag = ways.flags.find(e.name);
      if (flag == ways.flags.end()) {
        continue;
      }
      const bool set = command.kind == BASH_ARITHMETIC
                           ? !asks_for_zero(command.words[i].text, e.name)
                           : asks_for_set(command, i);
      *none = set != flag->second;
      return true;
    }
  }
  return false;
}

// What orv_store stores was without fault.
// A test for a variable comes before one for a task: [[ $bad == --write ]] is
// no such test whatever $bad holds.
bool asks_for_message(const script_ways &ways, const bash_command &command,
                      bool *none)
{
  const std::string &name = first_word(command);
  const bool test = command.kind == BASH_TEST || name == "[" || name == "test";
  bool asks = name == "orv_store";
  *none = true;
  if (!asks && (test || command.kind == BASH_ARITHMETIC)) {
    asks = asks_for_flag(ways, command, none) ||
           (test && asks_for_task(ways, command, none));
  }
  *none ^= command.negated;
  return asks;
}

// The pattern is as written: blanks, quotes and the opening bracket that bash
// allows stand around its word.
bool is_write_pattern(const script_ways &ways, const std::string &pattern)
{
  const size_t begin = pattern.find_first_not_of(" \t\n('\"");
  const size_t end = pattern.find_last_not_of(" \t\n'\"");
  const std::string task =
      begin < end ? pattern.substr(begin, end - begin + 1) : "";
  return ways.writes.count(task) != 0 && ways.checks.count(task) == 0;
}
