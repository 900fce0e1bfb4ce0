// What a command does to the values that are known.

#ifndef LINT_EFFECTS_H
#define LINT_EFFECTS_H

#include "known.h"

// Whether it runs in a process of its own: neither its exit nor its variables
// count for the commands behind it.
bool is_apart(const bash_command &command);
// What a function knows that is called there: its arguments, and the caller's
// variables.
known_values arguments_of(const frame &at, const bash_command &call);
// What the caller knows when the call `inner` is over.
void take_back(frame *at, const frame &inner);
// What is known behind the command, which runs for certain only if `state` is
// YES.
void follow_effects(frame *at, const bash_command &command, truth state);

#endif
