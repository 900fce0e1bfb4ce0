// Statuses that nobody looks at: what follows a save although it was refused,
// and what is stored although the command that makes it failed.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "judged.h"
#include "text.h"

// --- lists -------------------------------------------------------------------

// A message counts as well: who gives one there has thought of the failure.
static bool leaves(const bash_command &command)
{
  static const word_set words = {"exit", "return", "orv_msg", "orv_fatal",
                                 "orv_error"};
  return words.count(first_word(command)) != 0;
}

// Whether the command stands behind `first` in its list.
// In "orv_store port mtu && orv_changes && orv_act port" each command leads
// back to the one before it, whose status decides.
static bool is_behind(const script &s, int command, int first)
{
  for (; command >= 0;
       command = s.code.commands[static_cast<size_t>(command)].previous) {
    if (command == first) {
      return true;
    }
  }
  return false;
}

// Whether the branch, or one around it, is taken by that command's status.
static bool is_decided_by(const script &s, int branch, int first)
{
  for (; branch >= 0;
       branch = s.code.branches[static_cast<size_t>(branch)].parent) {
    if (is_behind(s, s.code.branches[static_cast<size_t>(branch)].test,
                  first)) {
      return true;
    }
  }
  return false;
}

// Whether something decides by that command's status, to leave or to go on.
// `orv_store ... || exit` and `if ! orv_store ...; then exit; fi` make sure of
// everything that follows.
static bool is_looked_at(const script &s, int first)
{
  const std::vector<bash_command> &all = s.code.commands;
  return std::any_of(all.begin(), all.end(), [&](const bash_command &command) {
    const int at = index_of(s, command);
    return at > first && leaves(command) &&
           (is_behind(s, at, first) || is_decided_by(s, command.branch, first));
  });
}

static bool has_expansion(const bash_command &command, const char *name)
{
  const auto named = [&](const bash_word &word) {
    return std::any_of(word.expansions.begin(), word.expansions.end(),
                       [&](const bash_expansion &e) { return e.name == name; });
  };
  return std::any_of(command.words.begin(), command.words.end(), named) ||
         std::any_of(command.assignments.begin(), command.assignments.end(),
                     [&](const bash_assignment &assignment) {
                       return named(assignment.value);
                     });
}

// set -e ends the script at a command that fails.
// Also from further down: what stands in front of it is seldom a save.
static bool ends_at_faults(const script &s)
{
  return first_line_turns_on(s, 'e', "errexit") ||
         std::any_of(s.code.commands.begin(), s.code.commands.end(),
                     [](const bash_command &command) {
                       return turns_on(command, 'e', "errexit");
                     });
}

// --- after a save ------------------------------------------------------------

// Both on one way through the script.
// A command in another function or in the other arm of an if need not follow
// the save.
static bool on_one_way(const script &s, const bash_command &a,
                       const bash_command &b)
{
  return a.function == b.function &&
         (is_inside(s, a.branch, b.branch) || is_inside(s, b.branch, a.branch));
}

// The device is made to use what was not stored.
// orv_store returns 1 where it refuses a value, where there was a message or
// the lock is not held; the script goes on. A test of orv_failed or $? behind
// it is the author's own way to look at that.
static void check_after_save(const form_runs &runs)
{
  static const word_set uses = {"orv_act", "orv_background", "orv_after_page"};
  const task_run &write = runs.write;
  const size_t store = find_call(write, "orv_store");
  if (store == NOWHERE) {
    return;
  }
  // Lists and branches are numbered within a file, so only what stands in the
  // same one as the save can be compared with it.
  const script &s = *write.steps[store].s;
  const bash_command &save = *write.steps[store].command;
  const int first = index_of(s, save);
  if (ends_at_faults(s) || is_looked_at(s, first)) {
    return;
  }
  for (size_t i = store + 1; i < write.steps.size(); i++) {
    const task_step &step = write.steps[i];
    const bash_command &command = *step.command;
    if (has_expansion(command, "orv_failed") || has_expansion(command, "?")) {
      return;
    }
    if (step.s == &s && uses.count(first_word(command)) != 0 &&
        on_one_way(s, save, command) &&
        !is_behind(s, index_of(s, command), first) &&
        !is_decided_by(s, command.branch, first)) {
      report_step(runs.found, step, "script-unchecked",
                  in_quotes(first_word(command)) +
                      " runs although nothing was stored where \"orv_store\""
                      " fails; join them by &&");
      return;
    }
  }
}

// --- what other commands make ------------------------------------------------

// The command that the value is taken from alone, "" for another value.
// Of a value with text around $( ) something is left when the command fails,
// and $(( )) is no command.
static std::string taken_from(const bash_word &value)
{
  const bool dollar =
      starts_with(value.text, "$(") || starts_with(value.text, "\"$(");
  const bool ends = ends_with(value.text, ")") || ends_with(value.text, ")\"");
  if (!dollar || !ends || value.text.find("$((") != std::string::npos) {
    return "";
  }
  const size_t start = value.text.find('(') + 1;
  return first_word(value.text.substr(start, value.text.rfind(')') - start));
}

// Whether the status of such a command says whether there is a value: bash's
// own and those that always have one are let out.
// The filters say with an empty output what others say with their status, and a
// pipe has the status of its last command. A function of the device may end
// with any status without meaning anything by it.
static bool can_fail(const form_runs &runs, const std::string &name)
{
  static const word_set safe = {
      "",         "printf",  "echo",   "date", "cat",   "tr",
      "cut",      "sed",     "awk",    "head", "tail",  "sort",
      "wc",       "grep",    "<",      "id",   "uname", "hostname",
      "basename", "dirname", "whoami", "pwd",  "expr"};
  if (name.find_first_of("$\"'<") != std::string::npos) {
    return false;
  }
  for (const auto &entry : runs.dev.scripts) {
    if (entry.second.code.functions.count(name) != 0) {
      return false;
    }
  }
  return safe.count(name) + runs.dev.library.count(name) == 0;
}

// Whether a later command looks at the variable, or at the element.
// A look at the value is as good as one at the status, as a failed command
// mostly leaves it blank.
static bool is_tested(const task_run &run, size_t from, const std::string &full)
{
  return std::any_of(
      run.steps.begin() + static_cast<long>(from) + 1, run.steps.end(),
      [&](const task_step &step) {
        const bash_command &command = *step.command;
        const std::string &name = first_word(command);
        const bool test =
            command.kind == BASH_TEST || command.kind == BASH_CASE ||
            name == "[" || name == "test" || name == "grep" ||
            command.kind == BASH_ARITHMETIC ||
            (!name.empty() && command.condition && name != "orv_store");
        return test &&
               std::any_of(command.words.begin(), command.words.end(),
                           [&](const bash_word &word) {
                             return std::any_of(word.expansions.begin(),
                                                word.expansions.end(),
                                                [&](const bash_expansion &e) {
                                                  return full_name(e) == full;
                                                });
                           });
      });
}

// The element of `orv` that gets the variable's value, "" for none.
// Only what is stored is judged: a value for a message or a log may be blank.
static bool reaches_values(const task_run &run, size_t from,
                           const bash_assignment &made)
{
  if (made.name == "orv") {
    return true;
  }
  return std::any_of(
      run.steps.begin() + static_cast<long>(from), run.steps.end(),
      [&](const task_step &step) {
        return std::any_of(
            step.command->assignments.begin(), step.command->assignments.end(),
            [&](const bash_assignment &assignment) {
              return assignment.name == "orv" &&
                     (assignment.value.plain == "$" + made.name ||
                      assignment.value.plain == "${" + made.name + "}");
            });
      });
}

static std::string made_name(const bash_assignment &made)
{
  return made.subscript.empty() ? made.name
                                : made.name + "[" + made.subscript + "]";
}

// A hash that could not be made would be stored as nothing.
// NAME=$(COMMAND) has the status of the command. `local NAME=$(COMMAND)` has
// that of local, which is 0, and is another mistake; a list or a test that the
// assignment stands in has looked at the status.
static void check_made(const form_runs &runs)
{
  const task_run &write = runs.write;
  const size_t store = find_last(write, "orv_store");
  for (size_t i = 0; store != NOWHERE && i < write.steps.size(); i++) {
    const task_step &step = write.steps[i];
    const bash_command &command = *step.command;
    if (!command.words.empty() || command.assignments.size() != 1 ||
        command.substitution != 0 || command.condition) {
      continue;
    }
    const bash_assignment &made = command.assignments[0];
    const std::string name = taken_from(made.value);
    // A file is written at once, whether it is stored or not: with a blank name
    // bash says ": No such file or directory" on the page's output.
    const bool file = name == "mktemp";
    if (!name.empty() && can_fail(runs, name) && !ends_at_faults(*step.s) &&
        (file || (i < store && reaches_values(write, i, made))) &&
        !is_tested(write, i, made_name(made))) {
      report_step(runs.found, step, "script-unchecked",
                  in_quotes(name) + " can fail, and " +
                      (file ? "there is no file then"
                            : "what is stored then is nothing") +
                      "; add || orv_msg '...'");
      return;
    }
  }
}

void check_saves(const form_runs &runs)
{
  check_after_save(runs);
  check_made(runs);
}
