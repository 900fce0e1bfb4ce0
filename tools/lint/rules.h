// The rules: what they are called, what they say of themselves, and what looks
// for them.
//
// A check looks at what was read of a device and adds findings; none changes
// the device, and none depends on another having run.

#ifndef LINT_RULES_H
#define LINT_RULES_H

#include <string>

#include "copy.h"
#include "device.h"

// --- texts -------------------------------------------------------------------

struct rule_text {
  const char *name;
  const char *text; // the level, a summary, an explanation and examples
};

// All rules, by name; ended by a row without a name.
extern const rule_text rule_texts[];

// NULL when there is none of that name.
const rule_text *find_rule(const std::string &name);
std::set<std::string> rule_names(void);
bool is_error(const std::string &rule);
void explain(const rule_text &rule);
void list_rules(void);

// --- checks ------------------------------------------------------------------

typedef void device_check(const device &dev, findings *found);

// All checks of what was read: `texts` is the function check_texts.
// clang-format off
#define LINT_CHECKS(check)                                                     \
  check(texts)                                                                \
  check(conditions)                                                           \
  check(names)                                                                \
  check(items)                                                                \
  check(modes)                                                                \
  check(checks)                                                               \
  check(links)                                                                \
  check(bars)                                                                 \
  check(headers)                                                              \
  check(exchange)                                                             \
  check(reported_names)                                                       \
  check(script_keys)                                                          \
  check(scripts)                                                              \
  check(script_files)                                                         \
  check(calls)                                                                \
  check(input)                                                                \
  check(order)                                                                \
  check(compared)                                                             \
  check(defaults)                                                             \
  check(markup)                                                               \
  check(agreement)                                                            \
  check(keepers)                                                              \
  check(guards)                                                               \
  check(arguments)                                                            \
  check(variables)                                                            \
  check(versions)                                                             \
  check(secret_names)                                                         \
  check(array_syntax)                                                         \
  check(actions)                                                              \
  check(others)
// clang-format on

#define LINT_DECLARE(name) device_check check_##name;
LINT_CHECKS(LINT_DECLARE)
#undef LINT_DECLARE

// The same as a list, ended by NULL.
extern device_check *const all_checks[];

// Runs the read and navigation scripts in a copy of the folder.
device_check run_scripts;

// --- other programs ----------------------------------------------------------

// What bash and shellcheck say; begun early, since they take the longest.
struct other_tools {
  int bash; // the stream of what it says, or -1
  int bash_pid;
  int shellcheck; // the same
  int pid;
  own_folder stubs; // that it reads the library from
};
other_tools begin_tools(const device &dev, bool shellcheck);
void end_tools(const device &dev, other_tools *tools, findings *found);

#endif
