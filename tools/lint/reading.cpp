// What a task takes from the page and from the settings before it works on it.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "text.h"

// Whether the task reads the page's lines by itself, or sets values.
// Scripts of that kind are older than the library, or have a form of their own;
// what they miss of it cannot be told.
static bool has_other_values(const task_run &run)
{
  static const word_set readers = {"read", "mapfile", "readarray", "cat"};
  return std::any_of(
      run.steps.begin(), run.steps.end(), [](const task_step &step) {
        const bash_command &command = *step.command;
        return readers.count(first_word(command)) != 0 ||
               std::any_of(command.assignments.begin(),
                           command.assignments.end(),
                           [](const bash_assignment &assignment) {
                             return assignment.name == "orv" ||
                                    assignment.value.text.find("cat") !=
                                        std::string::npos;
                           });
      });
}

// What is judged and stored then is what was stored before.
// All of these calls work on the values of the page: without orv_read they see
// what orv_load has brought, or nothing.
static void check_page(const form_runs &runs)
{
  if (calls(runs.write, "orv_read") || calls(runs.check, "orv_read") ||
      has_other_values(runs.write)) {
    return;
  }
  for (const char *call :
       {"orv_tick", "orv_number", "orv_secret", "orv_take_hash"}) {
    const size_t at = find_call(runs.write, call);
    if (at != NOWHERE) {
      report_step(runs.found, runs.write.steps[at], "library-missing",
                  "nothing reads the page's values: call \"orv_read\" first");
      return;
    }
  }
}

// Without the stored values nothing tells what changed, or which page is old.
// Without orv_store nothing is compared with the settings: a form for a restart
// has none. The finding stands at orv_read, since the load has to come before
// it.
static void check_settings(const form_runs &runs)
{
  const size_t read = find_call(runs.write, "orv_read");
  if (read == NOWHERE || calls(runs.write, "orv_load") ||
      !calls(runs.write, "orv_store") || has_other_values(runs.write)) {
    return;
  }
  for (const char *call :
       {"orv_stamp", "orv_secret", "orv_changes", "orv_log_changes"}) {
    if (calls(runs.write, call)) {
      report_step(runs.found, runs.write.steps[read], "library-missing",
                  in_quotes(call) +
                      " needs the stored values, and nothing loads them; call"
                      " \"orv_load\" before this");
      return;
    }
  }
}

// Whether the command takes the script's own input.
// read -u 3 reads another descriptor, and so do redirections and pipes; a
// function may be called with any input. `cat` alone copies the input, and with
// a file it leaves that alone.
static bool takes_input(const bash_command &command)
{
  static const word_set readers = {"read", "mapfile", "readarray"};
  const bool reads = readers.count(first_word(command)) != 0;
  const bool other = std::any_of(
      command.words.begin(), command.words.end(), [](const bash_word &word) {
        return word.plain[0] == '-' &&
               word.plain.find('u') != std::string::npos;
      });
  return (reads ? !other
                : first_word(command) == "cat" && command.words.size() == 1) &&
         command.function.empty() && !command.redirected_in &&
         !command.piped_in && command.redirects.empty();
}

// The page's values can be read once.
// The values are a pipe, so what one command has taken is gone for the next.
static void check_input_taken(const task_run &run, findings *found)
{
  const size_t read = find_call(run, "orv_read");
  for (size_t i = 0; read != NOWHERE && i < run.steps.size(); i++) {
    if (takes_input(*run.steps[i].command)) {
      report_step(found, run.steps[i], "library-order",
                  i < read
                      ? "this takes the page's values from the script's input, "
                        "and \"orv_read\" finds none there: read from a file, "
                        "or after it"
                      : "\"orv_read\" has taken the page's values, so there is "
                        "nothing left to read here; use the array \"orv\"");
      return;
    }
  }
}

// The check task stands for both, since the two read the page in the same code.
void check_reading(const form_runs &runs)
{
  check_input_taken(runs.check, runs.found);
  check_page(runs);
  check_settings(runs);
}
