// A call of the library's functions, as the rules about its words see it.

#ifndef LINT_ARGUMENTS_H
#define LINT_ARGUMENTS_H

#include <string>

#include "device.h"

// All are borrowed for as long as the call is judged.
struct library_call {
  const device &dev;
  const script &s;
  const bash_command &command;
  findings *found;
};

// Adds a finding of the rule "library-call" at a word of the call.
// The word 0 is the function's name and stands for the whole call.
void report_word(const library_call &c, size_t word, const std::string &text);

// Each reports what is wrong with the names of the call: a "#" that only
// orv_read knows, an array given as its first element, a value behind what it
// may be, columns that are none, and columns that never become blank.
void check_marks(const library_call &c);
void check_arrays(const library_call &c);
void check_one_of(const library_call &c);
void check_columns(const library_call &c);
void check_rows(const library_call &c);

#endif
