// Where a request's values must not go.

#ifndef LINT_SINKS_H
#define LINT_SINKS_H

#include "flow.h"

// One command, and what is known of its script.
struct sink {
  const context &c;
  const script &s;
  const bash_command &command;
  findings *found;
};

void report_at(const sink &at, const bash_expansion &expansion,
               const char *rule, const std::string &text);
// A number of the page that may begin with 0, where bash computes with it.
void check_octal(const sink &at, const bash_expansion &expansion);
// The expansion as messages show it.
std::string shown(const bash_expansion &expansion);

// What of the command bash would run: programs, names, what eval is given.
void check_evaluated(const sink &at);
// The same of ${!name}.
void check_indirect(const sink &at, const bash_word &word);
// What the script lets others see or change.
void check_leaks(const context &c, const script &s, findings *found);

#endif
