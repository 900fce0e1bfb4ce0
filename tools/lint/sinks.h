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

// What of the command bash evaluates: names, numbers, texts it keeps.
void check_evaluated(const sink &at);
// The same of ${!name} and of ${name@P}.
void check_indirect(const sink &at, const bash_word &word);
void check_prompt(const sink &at, const bash_word &word);
// Programs that the command runs and that are made of values.
void check_programs(const sink &at);
// Values that it would take for options.
void check_options(const sink &at);
// Whether the command has words or input that only the run knows.
bool takes_values(const bash_command &command);
// The name of what is run, also behind timeout, sudo and the like.
std::string run_command(const bash_command &command);
// All of these, and paths, subscripts, words without quotes.
void check_command_sinks(const sink &at);
// What the script lets others see.
void check_leaks(const context &c, const script &s, findings *found);
// Its files that others can make or change.
void check_shared_files(const script &s, findings *found);

#endif
