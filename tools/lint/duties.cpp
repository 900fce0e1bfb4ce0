// What a task must do, and what it must not.
//
// A step is certain if no other value than the task decides on it. Where it is
// not, the script may have its own reason, and nothing is said.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "text.h"

// The end of the last block in front of a step: there an exit is missing. Where
// the function or the script differs, it is another block that ends.
static const task_step &block_before(const task_run &run, size_t at)
{
  for (size_t i = at; i-- > 0;) {
    if (run.steps[i].command->kind == BASH_BLOCK &&
        run.steps[i].s == run.steps[at].s &&
        run.steps[i].command->function == run.steps[at].command->function) {
      return run.steps[i];
    }
  }
  return run.steps[at];
}

// Where a script without the library reads its own input although it has
// reported its values. Without a value reported before, the script may read its
// input in every task, and the read task gets none.
static size_t find_reading(const task_run &run)
{
  bool reported = false;
  for (size_t i = 0; i < run.steps.size(); i++) {
    const bash_command &command = *run.steps[i].command;
    reported |=
        (first_word(command) == "printf" || first_word(command) == "echo") &&
        run.steps[i].certain && !command.redirected_out &&
        command.substitution == 0;
    if (reported && first_word(command) == "read" && command.function.empty() &&
        !command.redirected_in && !command.piped_in &&
        command.substitution == 0) {
      return i;
    }
  }
  return NOWHERE;
}

// Whether another task takes the step as well.
static bool is_shared(const task_step &step, const task_run &other)
{
  return std::any_of(
      other.steps.begin(), other.steps.end(),
      [&](const task_step &one) { return one.command == step.command; });
}

// Where the task that shows the stored values asks for those of the page, in
// commands of its own. Then no exit is missing: these lines are the read
// task's, and do what another task is for. A form that cannot be saved has no
// other task to take the values.
static bool check_own_read(const form_runs &runs)
{
  const size_t at = find_call(runs.read, "orv_read");
  if (at == NOWHERE || !can_save(runs.f) ||
      is_shared(runs.read.steps[at], runs.check) ||
      is_shared(runs.read.steps[at], runs.write)) {
    return false;
  }
  report_step(runs.found, runs.read.steps[at], "script-task",
              "the task --read has no values of a page, so this finds none; it"
              " shows what \"orv_load\" has loaded");
  return true;
}

// The finding stands where the task should have ended, and for a check at the
// store that it must not reach.
static void check_falls_through(const task_run &run, findings *found)
{
  const bool read = run.task == TASK_READ;
  const size_t call = find_call(run, read ? "orv_read" : "orv_store");
  const size_t at = read && call == NOWHERE ? find_reading(run) : call;
  if (at == NOWHERE || !run.steps[at].certain) {
    return;
  }
  report_step(
      found, read ? block_before(run, at) : run.steps[at], "script-task",
      read ? "the task --read continues after this and reads the page's "
             "values, of which it has none; an exit is missing"
           : "the task --check gets here as well, and a check must not store");
}

// What does nothing but decide what to do. To set an option or a variable is no
// answer to a task either.
static bool only_decides(const bash_command &command)
{
  static const std::set<std::string> words = {
      ".", "source", "[", "test", "declare", "set", "shopt", "exit", "export"};
  return command.kind != BASH_SIMPLE || command.words.empty() ||
         words.count(first_word(command)) != 0;
}

// Reported at the test that lacks the task. A script without any test does the
// same for every task, and was meant so.
static void check_does_something(const task_run &run, findings *found)
{
  if (run.steps.empty() || std::any_of(run.steps.begin(), run.steps.end(),
                                       [](const task_step &step) {
                                         return !only_decides(*step.command);
                                       })) {
    return;
  }
  const task_step *test = nullptr;
  for (const task_step &step : run.steps) {
    const bash_command &command = *step.command;
    if (test == nullptr &&
        (command.kind == BASH_CASE || command.kind == BASH_TEST)) {
      test = &step;
    }
  }
  if (test != nullptr) {
    report_step(
        found, *test, "script-task",
        "nothing here handles the task --write, which a Submit of the form " +
            in_quotes(run.f->name) + " runs");
  }
}

// --- how a task ends ---------------------------------------------------------

// What succeeds or not by what it finds, and is no fault then.
static bool is_test(const bash_command &command)
{
  static const word_set words = {"[",   "test", "grep",     "pgrep",
                                 "cmp", "diff", "orv_load", "orv_one_of"};
  return command.kind == BASH_TEST || command.kind == BASH_ARITHMETIC ||
         words.count(first_word(command)) != 0;
}

// Whether the command prints a message, or calls what does.
static bool shows_message(const bash_command &command)
{
  static const std::set<std::string> words = {"orv_fatal", "orv_msg"};
  return words.count(first_word(command)) != 0 ||
         (first_word(command) != "orv_error" &&
          std::any_of(command.words.begin(), command.words.end(),
                      [](const bash_word &word) {
                        return starts_with(word.plain, "error_");
                      }));
}

static bool leaves_with_fault(const bash_command &command)
{
  const std::string &name = first_word(command);
  return (name == "exit" || (name == "return" && command.function.empty())) &&
         command.words.size() == 2 && command.words[1].plain != "0" &&
         command.words[1].plain.find_first_not_of("0123456789") ==
             std::string::npos;
}

// What the page says of a read script that fails takes the message's place.
// Only in the same branch: a message of another one was not printed when the
// script gets here.
static void check_fault_exit(const task_run &read, findings *found)
{
  for (size_t i = 0; i < read.steps.size(); i++) {
    const task_step &leaves = read.steps[i];
    const bool reported =
        leaves_with_fault(*leaves.command) &&
        std::any_of(read.steps.begin(),
                    read.steps.begin() + static_cast<long>(i),
                    [&](const task_step &step) {
                      return step.s == leaves.s &&
                             step.command->branch == leaves.command->branch &&
                             shows_message(*step.command);
                    });
    if (reported) {
      report_step(found, leaves, "script-status",
                  "a read script that fails shows neither the form nor its "
                  "message; exit with status 0");
    } else if (leaves.certain && leaves_with_fault(*leaves.command) &&
               leaves.command->words[0].plain == "exit" &&
               leaves.command->previous < 0) {
      report_step(found, leaves, "script-status",
                  "the read script always fails here, and an error page takes "
                  "the form's place; exit with status 0");
    }
  }
}

// A test that the command depends on by &&, and that may be false here; NULL
// without one. In `[[ $1 == --write ]] && orv_store port mtu`, what depends on
// the test is last where it holds, and the test itself where it does not.
static const bash_command *open_test(const task_step &last)
{
  const std::vector<bash_command> &all = last.s->code.commands;
  const bash_command *command = last.command;
  const size_t next = static_cast<size_t>(command - all.data()) + 1;
  if (command->negated) {
    return nullptr;
  }
  if (is_test(*command)) { // what depends on it did not run
    const bool follows = next < all.size() &&
                         all[next].previous == static_cast<int>(next) - 1 &&
                         all[next].join == "&&";
    return follows ? command : nullptr;
  }
  bool certain = last.certain;
  while (command->join == "&&" && command->previous >= 0 && !certain) {
    command = &all[static_cast<size_t>(command->previous)];
    if (is_test(*command)) {
      return command;
    }
  }
  return nullptr;
}

// Whether an if or a loop asks for the status of the list that begins there. An
// `if` looks at the status of the last command of its list, which depends on
// those in front by "previous".
static bool is_asked(const script &s, const bash_command &test)
{
  const std::vector<bash_command> &all = s.code.commands;
  return std::any_of(
      s.code.branches.begin(), s.code.branches.end(),
      [&](const bash_branch &branch) {
        int at = branch.kind == "&&" || branch.kind == "||" ? -1 : branch.test;
        while (at >= 0 && &all[static_cast<size_t>(at)] != &test) {
          at = all[static_cast<size_t>(at)].previous;
        }
        return at >= 0;
      });
}

// Whether the step hands on the status of what ran before it. An exit without a
// number has that status, and the end of an if or a loop has that of the last
// command in the arm that ran.
static bool keeps_status(const task_step &step)
{
  const std::string &name = first_word(*step.command);
  return ((name == "exit" || name == "return") &&
          step.command->words.size() == 1) ||
         step.command->kind == BASH_BLOCK;
}

// Whether nothing but what the task is decides on the branch.
static bool is_certain(const task_run &run, const bash_command &command,
                       const task_step &end)
{
  if (command.branch < 0 && command.function.empty()) {
    return true;
  }
  return std::any_of(run.steps.begin(), run.steps.end(),
                     [&](const task_step &step) {
                       return step.command == &command && step.certain;
                     }) &&
         end.certain;
}

// The status of a script is that of its last command, also of one in the
// function that was called last. Where the script ends in a file that it
// sources, that file's own end decides for several scripts, and is left alone.
static void check_status(const task_run &run, const script *own,
                         findings *found)
{
  size_t last = run.steps.size();
  while (last > 0 && keeps_status(run.steps[last - 1])) {
    last--;
  }
  if (last == 0 || run.steps.back().s != own ||
      (last < run.steps.size() && !run.steps[last].certain)) {
    return;
  }
  const task_step &end = run.steps[last - 1];
  const bash_command *test = open_test(end);
  if (test != nullptr && !is_asked(*end.s, *test) &&
      is_certain(run, *test, run.steps.back())) {
    report(found, *end.s->file, test->line, test->column, "script-status",
           "the script ends with this list, so it fails when the test is "
           "false; use if, or add exit 0");
  }
}

static void check_ends(const form_runs &runs)
{
  for (const task_run *run : {&runs.read, &runs.check, &runs.write}) {
    const auto s = runs.dev.scripts.find(runs.f.scripts[run->task].script);
    const size_t before = runs.found->size();
    if (s != runs.dev.scripts.end() &&
        (run->task == TASK_READ || can_save(runs.f))) {
      check_status(*run, &s->second, runs.found);
    }
    if (runs.found->size() != before) {
      return; // the same line for every task
    }
  }
}

// A Submit that cannot happen runs neither check nor write script.
void check_duties(const form_runs &runs)
{
  check_ends(runs);
  check_fault_exit(runs.read, runs.found);
  if (!check_own_read(runs)) {
    check_falls_through(runs.read, runs.found);
  }
  if (can_save(runs.f)) {
    check_falls_through(runs.check, runs.found);
    check_does_something(runs.write, runs.found);
  }
}
