// The order in which scripts call the library, task by task.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "text.h"

// --- what comes before what --------------------------------------------------

// Two calls of the library of which the first must come before the second, and
// what happens otherwise: none of it fails at run time, so that the author sees
// only that a value is lost now and then.
struct call_order {
  const char *first;
  const char *second;
  bool late; // it is the first that is misplaced
  const char *why;
};

// Here the first calls of both are compared: a second one later mends nothing,
// since the values are overwritten or the file is stored by then.  Only the
// first row that is broken is reported, since one misplaced call breaks
// several.
static const call_order orders[] = {
    {"orv_load", "orv_read", true, "overwrites what the user entered"},
    // The old settings are kept aside by the store itself, if it knows by then
    // that the change is guarded.
    {"orv_guard", "orv_store", true,
     "has nothing to go back to: the old settings are already gone"},
    {"orv_read", "orv_secret", false,
     "finds no input yet, so every secret counts as unchanged"},
    {"orv_load", "orv_stamp", false, "has no state to compare yet"},
    {"orv_secret", "orv_store", true,
     "is too late: a blank field has already emptied the secret"},
    {"orv_take_hash", "orv_store", true,
     "is too late: the values are already stored"},
    {"orv_tick", "orv_store", true,
     "is too late: the values are already stored"},
    {"orv_number", "orv_store", true,
     "is too late: the values are already stored"},
    {"orv_stamp", "orv_store", true,
     "is too late: what somebody else saved is already overwritten"},
    {"orv_lock", "orv_store", true, "is too late: it protects nothing"},
    // orv_secret puts the loaded value in the place of a blank one.
    {"orv_load", "orv_secret", true,
     "is too late: the stored secret that a blank field keeps is unknown"},
    {"orv_error", "orv_store", true,
     "is too late: the values are already stored"},
};

// These may stand in both places: a script that ticks its boxes again after it
// has read them, or stores once more after a change, is right.
// Here every call of the second stands before the first of the first.
static const call_order late_orders[] = {
    {"orv_read", "orv_tick", false, "has no values from the page yet"},
    {"orv_read", "orv_take_hash", false, "has no values from the page yet"},
    {"orv_read", "orv_number", false, "has no values from the page yet"},
    {"orv_read", "orv_rows", false, "has no values from the page yet"},
    {"orv_rows", "orv_pack", false, "has no rows yet"},
    {"orv_store", "orv_act", false, "runs the action with the old settings"},
    {"orv_store", "orv_changes", false, "has no changes yet"},
    {"orv_store", "orv_log_changes", false, "has no changes yet"},
    {"orv_store", "orv_unlock", false,
     "lets another save happen between the load and the store"},
};

// The same of the tasks that get the page's values, and of the one that shows
// the stored ones.
static const call_order page_orders[] = {
    {"orv_read", "orv_stamp", false,
     "has no stamp from the page yet, so it refuses no outdated page"},
    {"orv_read", "orv_error", false, "judges the stored values"},
    {"orv_read", "orv_end", false, "has nothing to end yet"},
};
static const call_order read_orders[] = {
    {"orv_load", "orv_rows", false, "has no values yet"},
    {"orv_load", "orv_pack", false, "has no values yet"},
};

static void report_order(const task_run &run, const call_order &row,
                         size_t first, size_t second, findings *found)
{
  report_step(found, run.steps[row.late ? first : second], "library-order",
              row.late ? in_quotes(row.first) + " after " +
                             in_quotes(row.second) + " " + row.why
                       : in_quotes(row.second) + " before " +
                             in_quotes(row.first) + " " + row.why);
}

// True if it was reported.
// Every call of the second stands before the first of the first.
static bool check_late(const task_run &run, const call_order &row,
                       findings *found)
{
  const size_t first = find_call(run, row.first);
  const size_t second = find_last(run, row.second);
  const bool late = first != NOWHERE && second != NOWHERE && second < first;
  if (late) {
    report_order(run, row, first, second, found);
  }
  return late;
}

static void check_orders(const task_run &run, findings *found)
{
  for (const call_order &row : orders) {
    const size_t first = find_call(run, row.first);
    const size_t second = find_call(run, row.second);
    if (first != NOWHERE && second != NOWHERE && first > second) {
      report_order(run, row, first, second, found);
      break; // one mistake is one finding
    }
  }
  const auto late = [&](const call_order &row) {
    return check_late(run, row, found);
  };
  if (!std::any_of(std::begin(late_orders), std::end(late_orders), late)) {
    // Here, too, one finding is enough: any_of ends at the first row that
    // reports.
    run.task == TASK_READ
        ? std::any_of(std::begin(read_orders), std::end(read_orders), late)
        : std::any_of(std::begin(page_orders), std::end(page_orders), late);
  }
}

// orv_store FILE ... || orv_changes: what is due after a save runs where it
// failed.
// The library keeps what was changed in variables that a store fills, so behind
// a refused one orv_changes tells of nothing, or of another file.
static void check_success(const task_run &run, findings *found)
{
  static const word_set due = {"orv_changes", "orv_log_changes", "orv_act",
                               "orv_background"};
  for (const task_step &step : run.steps) {
    const bash_command &command = *step.command;
    if (command.join == "||" && command.previous >= 0 &&
        due.count(first_word(command)) != 0 &&
        first_word(
            step.s->code.commands[static_cast<size_t>(command.previous)]) ==
            "orv_store") {
      report_step(found, step, "library-order",
                  in_quotes(first_word(command)) +
                      " runs here only when nothing was stored; use &&");
      return;
    }
  }
}

// The store writes the file whole: what the other save changed in between is
// then written back as it was loaded.
// Between a load without the lock and the store another save may come.
static void check_lock(const task_run &run, findings *found)
{
  const size_t load = find_call(run, "orv_load");
  const size_t lock = find_call(run, "orv_lock");
  // NOWHERE is the largest number, so a lock that is missing is not before the
  // load.
  if (load == NOWHERE || !calls(run, "orv_store") || lock < load) {
    return;
  }
  if (lock == NOWHERE) {
    report_step(found, run.steps[load], "library-missing",
                "another save may happen between this and \"orv_store\"; call "
                "\"orv_lock\" first in the write script");
  } else {
    report_step(found, run.steps[lock], "library-order",
                "\"orv_lock\" after \"orv_load\" is too late: another save may "
                "have happened in between");
  }
}

// Only what runs for certain: `[[ $1 != --write ]] || orv_lock` is in every
// task's text and runs in one.
// A page that is only shown waits for saves and holds them up.
static void check_read_lock(const task_run &read, findings *found)
{
  const size_t lock = find_call(read, "orv_lock");
  if (lock != NOWHERE && read.steps[lock].certain) {
    report_step(found, read.steps[lock], "library-order",
                "\"orv_lock\" is called by the task --read as well: each page"
                " that is shown waits for saves and holds them up");
  }
}

// --- what goes with what -----------------------------------------------------

// One half alone does nothing; a script without both may not want it.  The
// finding stands where the missing call belongs, behind the last step that must
// come before it.
// The stamp that one task reports the other compares.
static void check_stamps(const task_run &read, const task_run &write,
                         findings *found)
{
  const bool reported = calls(read, "orv_stamp");
  const bool compared = calls(write, "orv_stamp");
  if (reported == compared || !calls(write, "orv_store")) {
    return;
  }
  const task_run &lacks = reported ? write : read;
  const size_t read_call = find_call(lacks, "orv_read");
  const size_t at =
      read_call != NOWHERE ? read_call : find_call(lacks, "orv_load");
  if (at != NOWHERE) {
    report_step(found, lacks.steps[at], "library-missing",
                reported
                    ? "the read script reports a stamp that nothing compares; "
                      "call \"orv_stamp\" after this as well"
                    : "\"orv_stamp\" compares a stamp that the read script "
                      "does not report; call it after this as well");
  }
}

// A check script that stands beside orv-store judges what will be stored, which
// is the stored value where the request has none.
// What a request leaves out is blank, unless it was loaded: orv-store keeps it.
static void check_rules_load(const form_runs &runs)
{
  const size_t read = find_call(runs.check, "orv_read");
  const bool kept =
      runs.dev.keepers.count(runs.f.scripts[TASK_WRITE].script) != 0;
  if (kept && read != NOWHERE && !calls(runs.check, "orv_load")) {
    report_step(runs.found, runs.check.steps[read], "library-missing",
                "a value whose field is not drawn is blank here, although the"
                " stored one stays; call \"orv_load " +
                    runs.f.name + "\" first");
  }
}

// On a long page, or on a phone, the field may be far below.  The check task
// alone is asked: the write task mostly runs the same lines.
// A fault that is marked and not said at the top is easily overlooked.
static void check_end(const task_run &check, findings *found)
{
  const size_t error = find_call(check, "orv_error");
  if (error != NOWHERE && !calls(check, "orv_end") &&
      !calls(check, "orv_msg")) {
    report_step(found, check.steps[error], "library-missing",
                "a check that marks a field must end with \"orv_end\", or "
                "there is no message at the top of the page");
  }
  const size_t end = find_last(check, "orv_end");
  const size_t last = find_last(check, "orv_error");
  if (end != NOWHERE && last != NOWHERE && end < last &&
      check.steps[end].certain) {
    report_step(found, check.steps[last], "library-order",
                "\"orv_error\" after \"orv_end\" gives no message at the top "
                "of the page");
  }
}

// All pairs of branches around the two are compared, as the arms may be of a
// command far outside.
// Whether the two branches are arms of one command, or stand in such.
static bool excludes(const script &s, int a, int b)
{
  for (int x = a; x >= 0; x = s.code.branches[static_cast<size_t>(x)].parent) {
    for (int y = b; y >= 0;
         y = s.code.branches[static_cast<size_t>(y)].parent) {
      const bash_branch &p = s.code.branches[static_cast<size_t>(x)];
      const bash_branch &q = s.code.branches[static_cast<size_t>(y)];
      if (x != y && p.group == q.group) {
        return true;
      }
    }
  }
  return false;
}

// What follows in the text may be in another arm: the next command that can
// really run behind it decides.  The ends of compound commands do nothing.
// orv_fatal says so and goes on.
static void check_fatal(const task_run &run, findings *found)
{
  static const word_set ends = {"exit", "return", "orv_end"};
  for (size_t i = find_call(run, "orv_fatal"); i != NOWHERE;
       i = find_call(run, "orv_fatal", i + 1)) {
    const task_step &fatal = run.steps[i];
    size_t next = i + 1;
    while (next < run.steps.size() &&
           (run.steps[next].command->kind == BASH_BLOCK ||
            (run.steps[next].s == fatal.s &&
             excludes(*fatal.s, fatal.command->branch,
                      run.steps[next].command->branch)))) {
      next++;
    }
    if (next < run.steps.size() &&
        ends.count(first_word(*run.steps[next].command)) == 0) {
      report_step(found, fatal, "library-missing",
                  "\"orv_fatal\" does not end the script; what follows runs "
                  "for a form that makes no sense");
    }
  }
}

// --- arguments ---------------------------------------------------------------

// A function library of a device is sourced by scripts with different lines: an
// argument counts as missing when no line gives it.
// What scripts ask for of their arguments, in all runs of all forms.
struct asked_arguments {
  std::map<const bash_expansion *, const script *> present;
  std::map<const bash_expansion *, const script *> absent;
};

static void add_asked(const task_run &run, asked_arguments *all)
{
  all->present.insert(run.present.begin(), run.present.end());
  all->absent.insert(run.absent.begin(), run.absent.end());
}

// The slash keeps "port.sh" from being found in "export.sh", and the characters
// behind it from "port.sh.old".
// Whether the code has the script's name as the end of a path or a word.
static bool names_script(const std::string &code, const std::string &name)
{
  for (size_t at = code.find(name); at != std::string::npos;
       at = code.find(name, at + 1)) {
    const char before = at > 0 ? code[at - 1] : ' ';
    const size_t end = at + name.size();
    const char behind = end < code.size() ? code[end] : ' ';
    if (before == '/' && !is_name_char(behind) && behind != '.') {
      return true;
    }
  }
  return false;
}

// Then its arguments may be any.  "$0" with arguments is a script that starts
// itself anew.
// Whether something else than a header's line may run the script.
static bool is_run_by_others(const device &dev, const script &of)
{
  return std::any_of(dev.scripts.begin(), dev.scripts.end(),
                     [&](const auto &entry) {
                       const std::string &code = entry.second.code.code;
                       return names_script(code, of.name) ||
                              (&entry.second == &of &&
                               code.find("\"$0\" ") != std::string::npos);
                     });
}

// One finding for each argument of a script: a parameter that is missing is
// missing wherever it stands.
static void check_asked(const device &dev, const asked_arguments &all,
                        findings *found)
{
  std::set<std::pair<const script *, std::string>> reported;
  for (const auto &entry : all.absent) {
    const bash_expansion &e = *entry.first;
    const script &s = *entry.second;
    if (all.present.count(&e) == 0 && !is_run_by_others(dev, s) &&
        reported.insert({&s, e.name}).second) {
      report(found, *s.file, e.line, e.column, "script-argument",
             in_quotes("$" + e.name) +
                 " is empty: no header gives this script so many arguments");
    }
  }
}

// --- the whole ---------------------------------------------------------------

// What a check script does twice, because it is the write script as well, is
// found twice at the same place, and equal findings are one.
static void check_runs(const form_runs &runs)
{
  for (const task_run *run : {&runs.read, &runs.check, &runs.write}) {
    check_orders(*run, runs.found);
  }
  for (const task_run *run : {&runs.check, &runs.write}) {
    check_fatal(*run, runs.found);
    check_success(*run, runs.found);
  }
  check_lock(runs.write, runs.found);
  check_read_lock(runs.read, runs.found);
  check_saves(runs);
  check_reading(runs);
  check_stamps(runs.read, runs.write, runs.found);
  check_end(runs.check, runs.found);
  check_rules_load(runs);
  check_stored(runs);
  check_shown(runs);
  check_sources(runs);
}

void check_order(const device &dev, findings *found)
{
  asked_arguments asked;
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    const form_runs runs = {dev,
                            f,
                            follow_task(dev, f, TASK_READ),
                            follow_task(dev, f, TASK_CHECK),
                            follow_task(dev, f, TASK_WRITE),
                            found};
    add_asked(follow_task(dev, f, TASK_NAVBAR), &asked);
    for (const task_run *run : {&runs.read, &runs.check, &runs.write}) {
      add_asked(*run, &asked);
    }
    // Where a task calls what cannot be followed, that may make any of the
    // calls that seem to be missing.
    if (!runs.read.opaque && !runs.check.opaque && !runs.write.opaque) {
      check_fatal(runs.read, found);
      check_duties(runs);
      if (can_save(f)) {
        check_runs(runs);
      }
    }
  }
  check_asked(dev, asked, found);
}
