// Changes that go back unless they are kept: whether the device has the form
// that keeps them, and whether its bars lead there while one is pending.

#include <algorithm>

#include "flow.h"
#include "references.h"
#include "rules.h"
#include "text.h"

static const char KEEPER[] = "confirm";         // the form that keeps a change
static const char BAR_PART[] = "orv_navbar.sh"; // prints the link to it

struct guard_call {
  const script *s; // NULL without one
  const bash_command *command;
};

// The first is enough: what is asked of a device with one guarded change is the
// same for several.
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

// A bar is on every page, so whoever comes back finds the entry, whichever way
// he came.
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

// An item that no condition ever shows is enough for a page to have one.
// A page without anything to enter has no Submit, which is what keeps it.
static void check_keeper(const form &f, findings *found)
{
  if (std::none_of(f.items.begin(), f.items.end(), is_editable)) {
    report(found, *f.file, 1, 1, "guard-way",
           "this form has no Submit, so no change can be kept: give it an input"
           " item that is never drawn, such as the box \"confirm_box\"");
  }
}

// A condition on it shows nothing by itself.
// The page that confirms a save must say that the change goes back.
static void check_saved(const device &dev, const guard_call &guard,
                        findings *found)
{
  const auto saved = dev.forms.find("changes_saved");
  if (saved == dev.forms.end()) {
    return;
  }
  for (const form_line &line : saved->second.lines) {
    if (refers_to(line.text, "VUOC", "saved_pending") && line.keyword != "if" &&
        line.keyword != "ifnot") {
      return;
    }
  }
  report(found, *saved->second.file, 1, 1, "guard-way",
         "nothing here says that a guarded change goes back unless it is kept:"
         " show $V:saved_pending$",
         {{{guard.s->file->path, guard.command->line, guard.command->column},
           "this change waits to be kept"}});
}

// --- seconds -----------------------------------------------------------------

// A word that is a number, or a variable that is given one and nothing else;
// "" for any other.
// LIMIT=120, once in the script and used in both calls, is the way to keep
// them equal; a variable that is set twice may be either.
static std::string number_of(const script &s, const bash_word &word)
{
  std::string value = word.expansions.empty() ? word.plain : "";
  if (word.expansions.size() == 1 && word.expansions[0].rest.empty()) {
    size_t count = 0;
    for (const bash_command &command : s.code.commands) {
      for (const bash_assignment &assignment : command.assignments) {
        if (assignment.name == word.expansions[0].name) {
          value = assignment.value.plain;
          count++;
        }
      }
    }
    value = count == 1 ? value : "";
  }
  return value.find_first_not_of("0123456789") == std::string::npos ? value
                                                                    : "";
}

// One call whose seconds are not known may be the one that belongs to the
// number, so the whole script is left alone then.
// What the page counts down is what orv_guard waits.
static void check_seconds(const script &s, findings *found)
{
  std::set<std::string> guarded;
  for (const bash_command &command : s.code.commands) {
    if (first_word(command) == "orv_guard" && command.words.size() > 1) {
      guarded.insert(number_of(s, command.words[1]));
    }
  }
  for (const bash_command &command : s.code.commands) {
    const bool counts = first_word(command) == "orv_put" &&
                        command.words.size() == 3 &&
                        command.words[1].plain == "wait_confirm";
    const std::string seconds =
        counts ? number_of(s, command.words[2]) : std::string();
    if (!seconds.empty() && !guarded.empty() && guarded.count("") == 0 &&
        guarded.count(seconds) == 0) {
      report(found, *s.file, command.words[2].line, command.words[2].column,
             "guard-way",
             "the page counts down " + seconds +
                 " seconds, and the change goes"
                 " back after " +
                 *guarded.begin());
    }
  }
}

// --- values ------------------------------------------------------------------

static const bash_expansion *value_in(const bash_word &word)
{
  const auto value = std::find_if(
      word.expansions.begin(), word.expansions.end(),
      [](const bash_expansion &e) { return e.name == "orv" && !e.length; });
  return value != word.expansions.end() ? &*value : nullptr;
}

static const bash_expansion *value_in(const bash_command &command)
{
  const bash_expansion *value = nullptr;
  for (const bash_word &word : command.words) {
    value = value == nullptr ? value_in(word) : value;
  }
  for (const bash_assignment &assignment : command.assignments) {
    value = value == nullptr ? value_in(assignment.value) : value;
  }
  for (const bash_redirect &redirect : command.redirects) {
    value = value == nullptr ? value_in(redirect.target) : value;
  }
  return value;
}

// The first value that the function, or one that it calls, uses before it has
// loaded any.
struct unloaded {
  const script &s;
  std::set<std::string> seen;
  bool loaded;
};

static const bash_expansion *find_unloaded(unloaded *u, const std::string &name)
{
  const auto commands = u->s.functions.find(name);
  if (name.empty() || commands == u->s.functions.end() ||
      !u->seen.insert(name).second) {
    return nullptr;
  }
  for (const bash_command *command : commands->second) {
    u->loaded |= first_word(*command) == "orv_load";
    const bash_expansion *value = u->loaded ? nullptr : value_in(*command);
    value = value == nullptr ? find_unloaded(u, first_word(*command)) : value;
    if (value != nullptr) {
      return value;
    }
  }
  return nullptr;
}

// When the settings go back, the command of orv_guard runs in the same process,
// whose values are those of the page that went wrong.
static void check_values(const script &s, findings *found)
{
  for (const bash_command &command : s.code.commands) {
    const bash_expansion *value = nullptr;
    for (size_t i = 2;
         first_word(command) == "orv_guard" && i < command.words.size(); i++) {
      unloaded u = {s, {}, false};
      value = value == nullptr ? value_in(command.words[i]) : value;
      value = value == nullptr && i == 2
                  ? find_unloaded(&u, command.words[i].plain)
                  : value;
    }
    if (value != nullptr) {
      report(found, *s.file, value->line, value->column, "guard-way",
             "this is the new value also when the settings go back; give"
             " \"orv_guard\" a function that calls \"orv_load\" first");
    }
  }
}

void check_guards(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    check_seconds(entry.second, found);
    check_values(entry.second, found);
  }
  const auto keeper = dev.forms.find(KEEPER);
  // This form can be wrong on a device that guards nothing yet, so it is looked
  // at first.
  if (keeper != dev.forms.end() && keeps_itself(dev, keeper->second)) {
    check_keeper(keeper->second, found);
  }
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
  check_saved(dev, guard, found);
  // Most forms share one bar, which is reported once.
  std::set<std::string> bars;
  for (const auto &entry : dev.forms) {
    bars.insert(entry.second.scripts[TASK_NAVBAR].script);
  }
  for (const std::string &bar : bars) {
    check_bar(dev, bar, guard, found);
  }
}
