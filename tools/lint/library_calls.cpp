// The calls of the library that a task makes.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "script_names.h"
#include "text.h"

// The steps stand in their order, so those of one name are sorted.  All rules
// of the order ask here, a third of their time went into walking through all
// steps before the calls were kept by name.
size_t find_call(const task_run &run, const char *name, size_t start)
{
  const auto row = run.library.find(name);
  if (row == run.library.end()) {
    return NOWHERE;
  }
  const auto at =
      std::lower_bound(row->second.begin(), row->second.end(), start);
  return at != row->second.end() ? *at : NOWHERE;
}

bool calls(const task_run &run, const char *name)
{
  return find_call(run, name) != NOWHERE;
}

void report_step(findings *found, const task_step &step, const char *rule,
                 const std::string &text)
{
  report(found, *step.s->file, step.command->line, step.command->column, rule,
         text);
}

// Small letters, since the page takes "MTU" and "mtu" for one name; a rule of
// its own reports two spellings in a script.  An "" among the names tells the
// caller that the list may be longer than what is seen, so that nothing of it
// may be called missing.
std::set<std::string> names_given(const task_run &run, const char *name)
{
  std::set<std::string> names;
  for (size_t i = find_call(run, name); i != NOWHERE;
       i = find_call(run, name, i + 1)) {
    const task_step &step = run.steps[i];
    for (size_t j = 1; j < step.command->words.size(); j++) {
      std::vector<literal_name> literals;
      if (!add_literals(*step.s, step.command->words[j], &literals) ||
          literals.empty()) {
        names.insert("");
      }
      for (const literal_name &literal : literals) {
        names.insert(lower(literal.name));
      }
    }
  }
  return names;
}

// A row is made by its first step, so none is empty.
size_t find_last(const task_run &run, const char *name)
{
  const auto row = run.library.find(name);
  return row != run.library.end() ? row->second.back() : NOWHERE;
}
