// What makes the device use the settings again when a guarded change goes back.
//
// Several changes may be pending as one, each with a command or an action of
// its own.  The pending information has a line for each, in the order of the
// saves.  The same one of an older save gives way, so it is done once:
//
//   step=TOKEN PLACE wait|used - | act NAME | DIGITS
//
// PLACE is its turn among all steps that the device ever had, "wait" says that
// the device does not use the change yet; "-" is no step, "act NAME" an action,
// and digits stand for a command, which its script alone knows.

#ifndef STORE_STEPS_H
#define STORE_STEPS_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "commit.h"

constexpr size_t STEP_KEY_SIZE = 48;

struct guard_step {
  char token[STORE_TOKEN_SIZE]; // of the change that it belongs to
  uint64_t place;
  bool used;
  char key[STEP_KEY_SIZE];
};

// What stands for the command of a script's form in steps; `act` names its
// action in place of a command (NULL: none).
void step_make_key(const char *form, const char *subitem, const char *command,
                   const char *act, char (&key)[STEP_KEY_SIZE]);

// The action that is the step, NULL when it is none.  Borrowed from the step.
const char *step_act(const guard_step *step);

// Takes the next step off the information; false behind the last.
bool step_next(const char **info, guard_step *step);

// The step of the change `token`; false when the information has none.
bool step_find(const char *info, const char *token, guard_step *step);

// Writes the steps of the older information (NULL: none) that remain beside
// `own`, and that behind them; its place is at least the one that it has.
// Whether the device uses all of them.
bool steps_write(FILE *out, const char *older, const guard_step *own);

// The same for the information `info`, once the device uses the step `token`.
bool steps_write_used(FILE *out, const char *info, const char *token);

// Takes the step's turn until this process ends: whoever waits for a later one
// is behind it.  That it fails harms no more than the order.
void turn_take(const guard_step *step);

// Whether some process waits for that turn.
bool turn_is_taken(const guard_step *step);

// Waits until no earlier turn is taken, or has been for too long.
void turn_await(const guard_step *step);

#endif
