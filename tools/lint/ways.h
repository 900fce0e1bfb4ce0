// What a script does where a value is not right, and how it finds out later.
//
// A message does not end a script: what follows it runs with the wrong value,
// unless it asks first whether there was a message.

#ifndef LINT_WAYS_H
#define LINT_WAYS_H

#include "flow.h"

// What is known of the functions and variables of a script.
struct script_ways {
  std::map<std::string, way> functions;
  // Variables that branches give a fixed value, and whether it is one like 1
  // (bad=1) or one like 0 (good=0).
  std::map<std::string, bool> flags;
  // What forms call the script with to check, and to write what it has checked
  // before; none where another one checks.
  std::set<std::string> checks;
  std::set<std::string> writes;
};

script_ways collect_ways(const context &c);
way way_of(const bash_command &command, const script_ways &ways);
// Whether the command asks if there was a message; then `*none` is whether it
// succeeds where there was none.
bool asks_for_message(const script_ways &ways, const bash_command &command,
                      bool *none);
// Whether the pattern of a case is that of the task that writes alone.
bool is_write_pattern(const script_ways &ways, const std::string &pattern);

#endif
