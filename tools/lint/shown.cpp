// What a read script reports: every value that its form edits.

#include <algorithm>

#include "flow.h"
#include "order.h"
#include "script_names.h"
#include "text.h"

// The names that the task reports; "" for one that only the run knows, "#" for
// the cells of tables.
static std::set<std::string> names_reported(const task_run &read)
{
  std::set<std::string> all;
  for (const char *call : {"orv_show", "orv_put", "orv_show_hash"}) {
    for (size_t i = find_call(read, call); i != NOWHERE;
         i = find_call(read, call, i + 1)) {
      const task_step &step = read.steps[i];
      const size_t count = step.command->words.size();
      // orv_put takes one name and then a value, which may look like a name;
      // the others take nothing but names.
      const size_t end =
          std::string(call) == "orv_put" ? std::min<size_t>(count, 2) : count;
      for (size_t j = 1; j < end; j++) {
        const bash_word &word = step.command->words[j];
        std::vector<literal_name> names;
        const bool known =
            add_literals(*step.s, word, &names) && !names.empty();
        // Cells and the entries of a list are made by their numbers as a rule,
        // and say nothing of the other items.
        if (word.plain == "${cells[@]}") {
          all.insert("#");
        } else if (!known && !starts_with(word.plain, "select_")) {
          all.insert("");
        }
        for (const literal_name &name : names) {
          all.insert(lower(name.name));
        }
      }
    }
  }
  return all;
}

// Whether it prints lines by other means, or runs what might.
// The words below print nothing: whatever else runs may write the missing
// value, so the rule is silent then. What $( ) takes goes into a value and not
// to the page; functions of the script are walked through themselves.
static bool prints_more(const task_run &read)
{
  static const word_set quiet = {
      ":",     "[",    "test",    "exit",     "return", "local",  "declare",
      "shift", "set",  "shopt",   "readonly", "export", "unset",  ".",
      "read",  "true", "mapfile", "logger",   "source", "typeset"};
  return std::any_of(
      read.steps.begin(), read.steps.end(), [&](const task_step &step) {
        const std::string &name = first_word(*step.command);
        return !name.empty() && step.command->substitution == 0 &&
               !starts_with(name, "orv_") && quiet.count(name) == 0 &&
               step.s->code.functions.count(name) == 0;
      });
}

static bool is_value_set(const task_step &step)
{
  return std::any_of(step.command->assignments.begin(),
                     step.command->assignments.end(),
                     [](const bash_assignment &assignment) {
                       return is_value_array(assignment.name);
                     });
}

// What is shown before it is loaded is blank.
// A form without a load in its write script has its values from elsewhere, and
// so may its read script. One that fills `orv` itself before it shows it is
// right without a load.
static void check_loaded(const form_runs &runs)
{
  const size_t show = find_call(runs.read, "orv_show");
  if (show == NOWHERE || !calls(runs.write, "orv_load") ||
      find_call(runs.read, "orv_load") < show) {
    return;
  }
  const auto start = runs.read.steps.begin();
  if (std::none_of(start, start + static_cast<long>(show), is_value_set)) {
    report_step(runs.found, runs.read.steps[show], "library-order",
                "\"orv_show\" shows loaded values, and there are none before "
                "\"orv_load\"");
  }
}

// A value that is not reported cannot be emptied, and a box looks unticked.
// Judged only where the write script asks the page for the value by name, and
// where all that the read script reports is written out: else the value may be
// reported by other means. One finding is enough, as the others have the same
// cause. d_NAME is a report as well, and a secret is never shown.
void check_shown(const form_runs &runs)
{
  check_loaded(runs);
  const size_t show = find_call(runs.read, "orv_show");
  const size_t at = show != NOWHERE ? show : find_call(runs.read, "orv_put");
  const std::set<std::string> shown = names_reported(runs.read);
  const std::set<std::string> read = names_given(runs.write, "orv_read");
  if (at == NOWHERE || shown.count("") != 0 || prints_more(runs.read)) {
    return;
  }
  for (const form_item &item : runs.f.items) {
    const std::string name = lower(item.name) + (item.table < 0 ? "" : "0");
    const bool cell = item.table >= 0 && shown.count("#") != 0;
    if (is_editable(item) && !is_secret(item.name) && read.count(name) != 0 &&
        !cell && shown.count(name) + shown.count("d_" + name) == 0) {
      report_step(runs.found, runs.read.steps[at], "unreported",
                  "the read script does not report " +
                      in_quotes(item.table < 0 ? item.name : item.name + "0") +
                      ": what is stored of it is not shown");
      return;
    }
  }
}
