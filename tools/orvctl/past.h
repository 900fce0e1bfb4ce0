// The last saves, and how to undo them or to reset forms.

#ifndef ORVCTL_PAST_H
#define ORVCTL_PAST_H

#include <stdint.h>

// Prints the last saves, the newest first.  The exit status.
int past_list(void);

// Calls `told` with the number of each save; with none after a fault.
void past_each_number(void (*told)(uint64_t number));

// Saves each form that was changed since as it was before the save `number`,
// all as one step; secrets stay as they are.  With `dry`, nothing is saved.
// Returns the exit status.
int past_restore(uint64_t number, bool dry);

// Saves the form FORM or FORM/SUBITEM as it is without stored settings; NULL:
// every page with input, as one step.  Returns the exit status.
int past_reset(char *name, bool dry);

#endif
