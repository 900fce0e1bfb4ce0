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

// All checks of what was read, ended by NULL.
extern device_check *const all_checks[];

device_check check_texts;
device_check check_conditions;
device_check check_names;
device_check check_items;
device_check check_modes;
device_check check_checks;
device_check check_links;
device_check check_bars;
device_check check_headers;
device_check check_exchange;
device_check check_reported_names;
device_check check_script_keys;
device_check check_scripts;
device_check check_script_files;
device_check check_calls;
device_check check_input;
device_check check_order;
device_check check_compared;
device_check check_defaults;
device_check check_markup;
device_check check_agreement;
device_check check_keepers;
device_check check_guards;
device_check check_arguments;
device_check check_variables;
device_check check_versions;
device_check check_secret_names;

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
