// Asking for what needs more rights than a script has: an action, which the
// device's privileged side runs by its name alone.
//
// The name goes as one line into the FIFO `ask` of the folder that ORV_ACTS
// names; what came of it stands in its folder `done`.  An action asked for
// within a transaction is asked for once that is committed, and not without.

#ifndef STORE_ACT_H
#define STORE_ACT_H

#include <stdio.h>

// Whether the device has an action of that name, in the folder that ORV_ACTIONS
// names.  That it can be run is judged by who runs it.
bool act_exists(const char *name);

// Asks for the action and waits for nothing.  False with a fault: there is none
// of that name, or nobody takes the order.
bool act_ask(const char *name);

// Asks for the action and waits until a run of it that began behind the call is
// over, `seconds` at most.  Writes "ok" and what the action printed to `out`,
// "line TEXT" a line.  False with a fault when it was not run in that time, or
// failed.  Within a transaction it waits for nothing.
bool act_run(const char *name, unsigned seconds, FILE *out);

#endif
