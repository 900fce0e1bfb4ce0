// Changes that go back unless they are kept: whether the device has the form
// that keeps them, and whether its bars lead there while one is pending.

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "text.h"

static const char KEEPER[] = "confirm";         // the form that keeps a change
static const char BAR_PART[] = "orv_navbar.sh"; // prints the link to it

struct guard_call {
  const script *s; // NULL without one
  const bash_command *command;
};

static guard_call find_guard(const device &dev)
{
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      if (first_word(command) == "orv_guard") {
        return {&entry.second, &command};
      }
    }
  }
  return {nullptr, nullptr};
}

// Any word "confirm" in the script counts as such an entry: a missed finding
// does less harm than a wrong one.
bool leads_to_pending(const device &dev, const std::string &bar)
{
  const std::set<std::string> files = with_sources(dev, bar);
  return dev.keepers.count(bar) != 0 ||
         std::any_of(files.begin(), files.end(), [&](const std::string &name) {
           const script &s = dev.scripts.at(name);
           return s.words.count(KEEPER) != 0 ||
                  std::count(s.sources.begin(), s.sources.end(), BAR_PART) != 0;
         });
}

static void check_bar(const device &dev, const std::string &bar,
                      const guard_call &guard, findings *found)
{
  const auto s = dev.scripts.find(bar);
  if (s == dev.scripts.end() || leads_to_pending(dev, bar)) {
    return; // elsewhere, or a link to the store's program
  }
  report(found, *s->second.file, 1, 1, "guard-way",
         "while a change is pending, nothing in this bar leads to the form "
         "\"confirm\"; source orv_navbar.sh where that entry belongs",
         {{{guard.s->file->path, guard.command->line, guard.command->column},
           "this change waits to be kept"}});
}

void check_guards(const device &dev, findings *found)
{
  const guard_call guard = find_guard(dev);
  if (guard.s == nullptr) {
    return;
  }
  if (dev.forms.count(KEEPER) == 0) {
    report(
        found, *guard.s->file, guard.command->line, guard.command->column,
        "guard-way",
        "a guarded change is kept by a Submit of the form \"confirm\", and the"
        " device has no such form: every change goes back");
    return;
  }
  std::set<std::string> bars;
  for (const auto &entry : dev.forms) {
    bars.insert(entry.second.scripts[TASK_NAVBAR].script);
  }
  for (const std::string &bar : bars) {
    check_bar(dev, bar, guard, found);
  }
}
