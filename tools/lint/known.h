// What is known of a script's values while it is followed, and what its tests
// say then.

#ifndef LINT_KNOWN_H
#define LINT_KNOWN_H

#include "device.h"

// Three answers to whether something is so.
enum truth { NO, MAYBE, YES };

truth opposite(truth t);
truth truth_of(bool b);

typedef std::map<std::string, std::string> known_values;

// One call of a function, or the script itself.
struct frame {
  std::string function;
  known_values known;             // arguments and variables
  std::set<std::string> own = {}; // variables that are the function's alone
  truth taken = YES;              // whether it runs at all
  std::map<const bash_command *, truth> results = {};
  std::map<const bash_branch *, truth> states = {};
  // How many arguments there are, where they are the script's own; -1: unknown.
  int given = -1;
};

// The value of a word; false when it is not known.
bool value_of(const frame &at, const bash_word &word, std::string *value);
// Whether the command succeeds.
truth result_of(const frame &at, const bash_command &command);

#endif
