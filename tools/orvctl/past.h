// The last saves, and ways back: behind them, or to what was shipped.

#ifndef ORVCTL_PAST_H
#define ORVCTL_PAST_H

#include <stdint.h>

// Prints the last saves, the newest first.  The exit status.
int past_list(void);

// Calls `told` for each save's number; a fault offers none.
void past_each_number(void (*told)(uint64_t number));

// Saves each form that was concerned since as it was before the save `number`,
// all as one step; secrets stay as they are.  With `dry`, nothing is saved. The
// exit status.
int past_restore(uint64_t number, bool dry);

// Saves the form named, FORM or FORM/SUBITEM, as it is over an empty state;
// NULL: every page with input, as one step.  The exit status.
int past_reset(char *name, bool dry);

#endif
