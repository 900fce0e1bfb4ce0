// What makes the device use the settings again when a guarded change goes back.
//
// Several changes may be pending as one, each with a command or an action of
// its own.  The pending information has a line for each, in the order of the
// saves.  If two saves have the same step, only the newer is left, so that it
// is done once:
//
//   step=TOKEN PLACE wait|used - | act NAME | DIGITS
//
// PLACE is its turn among all steps that the device ever had, "wait" means that
// the device does not use the change yet; "-" is no step, "act NAME" an action,
// and digits stand for a command, which only its script knows.

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

// The text of a step for the command of a script's form; `act` names an action
// instead of the command (NULL: none).
void step_make_key(const char *form, const char *subitem, const char *command,
                   const char *act, char (&key)[STEP_KEY_SIZE]);

// The step's action, NULL when it is not one.  Borrowed from the step.
const char *step_act(const guard_step *step);

// Takes the next step off the information; false after the last.
bool step_next(const char **info, guard_step *step);

// The step of the change `token`; false when the information has none.
bool step_find(const char *info, const char *token, guard_step *step);

// Writes the steps of the older information (NULL: none) that remain beside
// `own`, then `own` itself, which may get a later place than it has.  Returns
// whether the device uses all of them.
bool steps_write(FILE *out, const char *older, const guard_step *own);

// The same for the information `info`, once the device uses the step `token`.
bool steps_write_used(FILE *out, const char *info, const char *token);

// Takes the step's turn until this process ends: processes that wait for a
// later turn wait for this one.  If this fails, only the order suffers.
void turn_take(const guard_step *step);

// Whether some process waits for that turn.
bool turn_is_taken(const guard_step *step);

// Waits until no earlier turn is taken, or for as long as one may last.
void turn_await(const guard_step *step);

#endif
