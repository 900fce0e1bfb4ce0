// What a task takes from a list or a table, and whether it was looked at.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "text.h"

// --- lists that scripts report -----------------------------------------------

// Whether the task's code looks at the value, or at one whose name it makes.
// Any use counts, not a comparison alone: the value may be handed to a function
// that compares it. ${orv[zone$i]} and ${orv[$name]} can be the value as well.
static bool looks_at(const task_run &run, const std::string &name)
{
  const auto in_word = [&](const bash_word &word) {
    return std::any_of(
        word.expansions.begin(), word.expansions.end(),
        [&](const bash_expansion &e) {
          const size_t made = e.subscript.find('$');
          return e.name == "orv" &&
                 (lower(e.subscript) == name ||
                  (made != std::string::npos &&
                   starts_with(name, lower(e.subscript.substr(0, made)))));
        });
  };
  return std::any_of(
      run.steps.begin(), run.steps.end(), [&](const task_step &step) {
        return std::any_of(step.command->words.begin(),
                           step.command->words.end(), in_word) ||
               std::any_of(step.command->assignments.begin(),
                           step.command->assignments.end(),
                           [&](const bash_assignment &assignment) {
                             return in_word(assignment.value);
                           });
      });
}

// Nothing but the script compares the value of an iselect with its entries.
// A request need not come from the page, so it can hold any text for a list
// whose entries only the read script knows, and for what the page shows and
// does not let anybody enter. A select is compared with its choices by the
// page.
static void check_lists(const form_runs &runs)
{
  const std::set<std::string> read = names_given(runs.write, "orv_read");
  const std::set<std::string> stored = names_given(runs.write, "orv_store");
  const size_t store = find_call(runs.write, "orv_store");
  const size_t at = find_call(runs.write, "orv_read");
  for (const form_item &item : runs.f.items) {
    const std::string name = lower(item.name);
    const bool taken = read.count(name) + read.count(name + "#") != 0;
    if (item.type == PT_ISELECT && taken && store != NOWHERE &&
        !looks_at(runs.write, name)) {
      report_step(runs.found, runs.write.steps[at], "list-unchecked",
                  in_quotes(item.name) +
                      " is stored unchecked: only the script can compare it "
                      "with the list's entries");
    }
    if (item.type == PT_TEXT_FIXED && item.table < 0 && taken &&
        stored.count(name) != 0 && !looks_at(runs.write, name)) {
      report_step(runs.found, runs.write.steps[at], "list-unchecked",
                  in_quotes(item.name) +
                      " is only shown, but a request can send anything for it,"
                      " and it is stored; do not read it from the page");
    }
  }
}

// A field of the expert view is blank where it was not drawn, whatever its
// check says: only the script can require it.
// $X$ is unset while values are checked, so the page takes the section for one
// that is not drawn and lets a blank value pass. `ifnot $X$` is the opposite
// case, and has its own finding.
static void check_required(const form_runs &runs)
{
  const std::set<std::string> read = names_given(runs.write, "orv_read");
  const std::set<std::string> stored = names_given(runs.write, "orv_store");
  for (const form_item &item : runs.f.items) {
    const form_line *check = attribute(item, "check");
    const std::string name = lower(item.name);
    const bool expert = std::any_of(
        item.conditions.begin(), item.conditions.end(),
        [](const condition &c) { return c.text == "$X$" && c.holds; });
    if (expert && item.type == PT_TEXT_FIELD && item.table < 0 &&
        check != nullptr && first_word(check->text) != "nullok" &&
        read.count(name) != 0 && stored.count(name) != 0 &&
        !looks_at(runs.write, name)) {
      report(runs.found, runs.f, *check, 0, "required-hidden",
             "a blank " + in_quotes(item.name) +
                 " passes where it was not drawn, and the script stores it: let"
                 " the script ask for it");
    }
  }
}

// --- variables of the library ------------------------------------------------

// Variables, and the call that fills each.
// The array is empty until the call, and an empty array in a list of words is
// no word at all: orv_show "${cells[@]}" then shows nothing and says nothing.
static const struct {
  const char *variable;
  const char *call;
} filled[] = {
    {"rows", "orv_rows"}, {"cells", "orv_pack"}, {"orv_acted", "orv_act"}};

// Whether the script, or what it sources, sets the variable by itself.
// A word of that name counts, since read, mapfile and declare name what they
// set without a dollar.
static bool sets(const device &dev, const std::string &script_name,
                 const std::string &variable)
{
  for (const std::string &file : with_sources(dev, script_name)) {
    for (const bash_command &command : dev.scripts.at(file).code.commands) {
      const bool assigned =
          std::any_of(command.assignments.begin(), command.assignments.end(),
                      [&](const bash_assignment &assignment) {
                        return assignment.name == variable;
                      });
      const bool named = std::any_of(
          command.words.begin(), command.words.end(),
          [&](const bash_word &word) { return word.plain == variable; });
      if (assigned || named) {
        return true;
      }
    }
  }
  return false;
}

// The whole array only. An author's own $rows, a number as a rule, is not the
// library's.
static bool uses(const bash_command &command, const std::string &variable)
{
  return std::any_of(
      command.words.begin(), command.words.end(), [&](const bash_word &word) {
        return std::any_of(word.expansions.begin(), word.expansions.end(),
                           [&](const bash_expansion &e) {
                             return e.name == variable &&
                                    e.subscript.find_first_of("@*") !=
                                        std::string::npos;
                           });
      });
}

// What nothing has filled before is empty.
// NOWHERE is the largest number, so without the call all steps come before it.
static void check_filled(const form_runs &runs, const task_run &run)
{
  for (const auto &row : filled) {
    const size_t filler = find_call(run, row.call);
    for (size_t i = 0; i < run.steps.size() && i < filler; i++) {
      const task_step &step = run.steps[i];
      if (uses(*step.command, row.variable) &&
          !sets(runs.dev, runs.f.scripts[run.task].script, row.variable)) {
        report_step(runs.found, step, "library-missing",
                    in_quotes(row.variable) +
                        " is empty here: " + in_quotes(row.call) + " fills it");
        break;
      }
    }
  }
}

// The store takes the names of cells, and no numbers of rows.
// Numbers are no names, so nothing of the table would be stored.
static void check_stored_rows(const form_runs &runs)
{
  for (const task_step &step : runs.write.steps) {
    for (const bash_word &word : step.command->words) {
      const std::string &name = first_word(*step.command);
      if ((name == "orv_store" || name == "orv_show") &&
          word.plain == "${rows[@]}") {
        report(runs.found, *step.s->file, word.line, word.column,
               "library-call",
               "\"rows\" holds numbers; the names of the values are in"
               " \"${cells[@]}\"");
        return;
      }
    }
  }
}

// --- files named by the wrong argument ---------------------------------------

// The arguments of the script that a path is made of.
// In a function $1 is another argument. ${1##*/} and the like name a part of
// it, which may be made of both.
static std::set<std::string> path_arguments(const bash_command &command,
                                            const bash_word &word)
{
  std::set<std::string> numbers;
  for (const bash_expansion &e : word.expansions) {
    if (command.function.empty() && word.plain.find('/') != std::string::npos &&
        e.name.find_first_not_of("0123456789") == std::string::npos &&
        e.rest.empty() && e.name != "0") {
      numbers.insert(e.name);
    }
  }
  return numbers;
}

// Commands that take paths as plain words; of others it is not known which of
// their words name a file.
static void add_paths(const bash_command &command,
                      std::vector<const bash_word *> *paths)
{
  static const word_set commands = {"cat", "cp", "mv", "rm"};
  for (const bash_redirect &redirect : command.redirects) {
    paths->push_back(&redirect.target);
  }
  for (const bash_word &word : command.words) {
    if (commands.count(first_word(command)) != 0) {
      paths->push_back(&word);
    }
  }
}

// Where files go by the sub-item, one that goes by the form alone is the same
// for all.
// A single file for all sub-items can be meant. It is a mistake where another
// file of the same task has the sub-item in its name.
static void check_paths(const form_runs &runs)
{
  const std::string subitem =
      std::to_string(subitem_argument(runs.f.scripts[TASK_WRITE]));
  const bash_word *other = nullptr;
  const script *s = nullptr;
  bool by_subitem = false;
  for (const task_step &step : runs.write.steps) {
    std::vector<const bash_word *> paths;
    add_paths(*step.command, &paths);
    for (const bash_word *path : paths) {
      const std::set<std::string> numbers =
          path_arguments(*step.command, *path);
      by_subitem |= numbers.count(subitem) != 0;
      if (!numbers.empty() && numbers.count(subitem) == 0) {
        other = path;
        s = step.s;
      }
    }
  }
  if (by_subitem && other != nullptr) {
    report(runs.found, *s->file, other->line, other->column, "store-file",
           other->text + " is the same file for all sub-items; $" + subitem +
               " is the sub-item");
  }
}

void check_sources(const form_runs &runs)
{
  check_paths(runs);
  check_lists(runs);
  check_required(runs);
  check_stored_rows(runs);
  for (const task_run *run : {&runs.read, &runs.write}) {
    check_filled(runs, *run);
  }
}
