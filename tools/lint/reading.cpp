// What a task takes from the page and from the settings before it works on it.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "text.h"

// Whether the task reads the page's lines by itself, or sets values.
static bool has_other_values(const task_run &run)
{
  static const std::set<std::string> readers = {"read", "mapfile", "readarray",
                                                "cat"};
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

void check_reading(const form_runs &runs)
{
  check_page(runs);
  check_settings(runs);
}
