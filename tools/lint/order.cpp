// The order in which scripts call the library, task by task.

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "tasks.h"
#include "text.h"

static constexpr size_t NOWHERE = static_cast<size_t>(-1);

// The first step that calls `name`, from `start` on.
static size_t find_call(const task_run &run, const char *name, size_t start = 0)
{
  for (size_t i = start; i < run.steps.size(); i++) {
    if (first_word(*run.steps[i].command) == name) {
      return i;
    }
  }
  return NOWHERE;
}

static bool calls(const task_run &run, const char *name)
{
  return find_call(run, name) != NOWHERE;
}

static void tell_step(findings *found, const task_step &step, const char *rule,
                      const std::string &text)
{
  tell(found, *step.s->file, step.command->line, step.command->column, rule,
       text);
}

// The names that all calls of a function are given, "" for one that is not
// written out.
static std::set<std::string> names_given(const task_run &run, const char *name)
{
  std::set<std::string> names;
  for (size_t i = find_call(run, name); i != NOWHERE;
       i = find_call(run, name, i + 1)) {
    const task_step &step = run.steps[i];
    for (size_t j = 1; j < step.command->words.size(); j++) {
      std::vector<literal_name> literals;
      add_literals(*step.s, step.command->words[j], &literals);
      if (literals.empty()) {
        names.insert("");
      }
      for (const literal_name &literal : literals) {
        names.insert(lower(literal.name));
      }
    }
  }
  return names;
}

// --- what comes before what --------------------------------------------------

static const struct {
  const char *first;
  const char *second;
  const char *why;
} orders[] = {
    {"orv_load", "orv_read", "takes back what the user entered"},
    {"orv_guard", "orv_store",
     "keeps nothing to go back to: what was stored before is gone"},
    {"orv_read", "orv_secret",
     "finds nothing entered yet, so every secret counts as unchanged"},
    {"orv_load", "orv_stamp", "knows no state yet that it could compare"},
};

// Where both are called, the first call of one stands before that of the other.
static void check_orders(const task_run &run, findings *found)
{
  for (const auto &row : orders) {
    const size_t first = find_call(run, row.first);
    const size_t second = find_call(run, row.second);
    if (first == NOWHERE || second == NOWHERE || first < second) {
      continue;
    }
    const bool late = std::string(row.first) == "orv_load" ||
                      std::string(row.first) == "orv_guard";
    const bool stamp = std::string(row.second) == "orv_stamp";
    const char *name = late && !stamp ? row.first : row.second;
    tell_step(
        found, run.steps[late && !stamp ? first : second], "library-order",
        in_quotes(name) +
            (late && !stamp ? " behind " + in_quotes(row.second) + " "
                            : " in front of " + in_quotes(row.first) + " ") +
            row.why);
  }
}

// Between a load without the lock and the store another save may come.
static void check_lock(const task_run &run, findings *found)
{
  const size_t load = find_call(run, "orv_load");
  const size_t lock = find_call(run, "orv_lock");
  if (load == NOWHERE || !calls(run, "orv_store") || lock < load) {
    return;
  }
  if (lock == NOWHERE) {
    tell_step(found, run.steps[load], "library-missing",
              "another save may come between this and \"orv_store\"; the write"
              " script calls \"orv_lock\" first");
  } else {
    tell_step(found, run.steps[lock], "library-order",
              "\"orv_lock\" behind \"orv_load\" comes too late: another save"
              " may have come between");
  }
}

// --- what goes with what -----------------------------------------------------

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
    tell_step(found, lacks.steps[at], "library-missing",
              reported ? "the read script reports a stamp that nothing"
                         " compares; call \"orv_stamp\" behind this as well"
                       : "\"orv_stamp\" compares what the read script does not"
                         " report; call it behind this as well");
  }
}

// A fault that is marked and not said at the top is easily overlooked.
static void check_end(const task_run &check, findings *found)
{
  const size_t error = find_call(check, "orv_error");
  if (error != NOWHERE && !calls(check, "orv_end") &&
      !calls(check, "orv_msg")) {
    tell_step(found, check.steps[error], "library-missing",
              "a check that marks a field ends with \"orv_end\", or nothing is"
              " said at the top of the page");
  }
}

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

// orv_fatal says so and goes on.
static void check_fatal(const task_run &run, findings *found)
{
  static const std::set<std::string> ends = {"exit", "return", "orv_end"};
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
      tell_step(found, fatal, "library-missing",
                "\"orv_fatal\" does not end the script; what stands behind it"
                " runs for a form that makes no sense");
    }
  }
}

// --- what a task must not do -------------------------------------------------

// The end of the last block in front of a step: there an exit is missing.
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

static void check_falls_through(const task_run &run, findings *found)
{
  const bool read = run.task == TASK_READ;
  const size_t at = find_call(run, read ? "orv_read" : "orv_store");
  if (at == NOWHERE || !run.steps[at].certain) {
    return;
  }
  tell_step(found, read ? block_before(run, at) : run.steps[at], "script-task",
            read ? "the task --read goes on behind this, where the page's"
                   " values are read; it has none: an exit is missing"
                 : "the task --check comes here as well, and a check must not"
                   " store");
}

// What does nothing but decide what to do.
static bool only_decides(const bash_command &command)
{
  static const std::set<std::string> words = {
      ".", "source", "[", "test", "declare", "set", "shopt", "exit", "export"};
  return command.kind != BASH_SIMPLE || command.words.empty() ||
         words.count(first_word(command)) != 0;
}

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
    tell_step(
        found, *test, "script-task",
        "nothing here does the task --write, which a Submit of the form " +
            in_quotes(run.f->name) + " runs");
  }
}

// --- files and secrets -------------------------------------------------------

// The file's name comes first.
static void check_file(const task_run &run, const std::set<std::string> &loaded,
                       findings *found)
{
  for (size_t i = find_call(run, "orv_store"); i != NOWHERE;
       i = find_call(run, "orv_store", i + 1)) {
    const task_step &step = run.steps[i];
    if (step.command->words.size() < 2 ||
        !step.command->words[1].expansions.empty()) {
      continue;
    }
    const bash_word &file = step.command->words[1];
    const bool item = std::any_of(
        run.f->items.begin(), run.f->items.end(),
        [&](const form_item &it) { return it.input && it.name == file.plain; });
    if (loaded.count(file.plain) == 0 && (item || !loaded.empty())) {
      tell(found, *step.s->file, file.line, file.column, "store-file",
           item ? in_quotes(file.plain) +
                      " is a name of the form; the file's name comes first"
                : "no script loads the file " + in_quotes(file.plain) +
                      did_you_mean(file.plain, loaded));
    }
  }
}

// A secret that is read and stored like any other text goes back to the page.
static void check_secrets(const task_run &run, findings *found)
{
  const size_t read = find_call(run, "orv_read");
  const std::set<std::string> names = names_given(run, "orv_read");
  const std::set<std::string> secrets = names_given(run, "orv_secret");
  if (read == NOWHERE || !calls(run, "orv_store") || secrets.count("") != 0) {
    return;
  }
  for (const form_item &item : run.f->items) {
    const std::string name = lower(item.name);
    const bool secret =
        item.type == PT_TEXT_FIELD && item.table < 0 && is_secret(item.name);
    if (secret && names.count(name) != 0 && secrets.count(name) == 0) {
      tell_step(found, run.steps[read], "library-missing",
                "a blank " + in_quotes(item.name) +
                    " would be stored; call \"orv_secret\" for it, so that"
                    " blank means unchanged");
    }
    const form_line *check = attribute(item, "check");
    if (secret && secrets.count(name) != 0 && check != nullptr &&
        !starts_with(check->text, "nullok")) {
      tell(found, *run.f, *check, 0, "secret-blank",
           "a blank " + in_quotes(item.name) +
               " means unchanged to the script, and this check refuses it; say"
               " nullok");
    }
  }
}

// A backup is a dump of what the read scripts show to orvctl alone.
static void check_dump(const task_run &read, const task_run &write,
                       findings *found)
{
  const std::set<std::string> kept = names_given(write, "orv_secret");
  const std::set<std::string> shown = names_given(read, "orv_show_secrets");
  if (calls(read, "orv_show_hash") || shown.count("") != 0 ||
      !calls(write, "orv_store")) {
    return;
  }
  for (const form_item &item : read.f->items) {
    const std::string name = lower(item.name);
    if (item.type == PT_TEXT_FIELD && kept.count(name) != 0 &&
        shown.count(name) == 0) {
      tell(found, *read.f, *item.lines.front(), 0, "secret-dump",
           "no backup has " + in_quotes(item.name) +
               ": the read script shows it by neither \"orv_show_secrets\" nor"
               " \"orv_show_hash\"");
    }
  }
}

// --- the whole ---------------------------------------------------------------

static std::set<std::string> loaded_files(const device &dev)
{
  std::set<std::string> files;
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      if (first_word(command) == "orv_load" && command.words.size() > 1) {
        files.insert(command.words[1].plain);
      }
    }
  }
  return files;
}

static void check_form_order(const device &dev, const form &f,
                             const std::set<std::string> &loaded,
                             findings *found)
{
  const task_run read = follow_task(dev, f, TASK_READ);
  const task_run check = follow_task(dev, f, TASK_CHECK);
  const task_run write = follow_task(dev, f, TASK_WRITE);
  if (read.opaque || check.opaque || write.opaque) {
    return;
  }
  check_falls_through(read, found);
  check_fatal(read, found);
  if (!can_save(f)) {
    return;
  }
  for (const task_run *run : {&check, &write}) {
    check_orders(*run, found);
    check_fatal(*run, found);
  }
  check_lock(write, found);
  check_stamps(read, write, found);
  check_end(check, found);
  check_falls_through(check, found);
  check_does_something(write, found);
  check_file(write, loaded, found);
  check_secrets(write, found);
  check_dump(read, write, found);
}

void check_order(const device &dev, findings *found)
{
  const std::set<std::string> loaded = loaded_files(dev);
  for (const auto &entry : dev.forms) {
    check_form_order(dev, entry.second, loaded, found);
  }
}
