// Requests for actions: programs that need more rights than a script has.  The
// device's privileged side runs them; a request can only name one.
//
// The name is written as one line into the FIFO `ask` of the folder given by
// ORV_ACTS; the result appears in its folder `done`.  A request made within a
// transaction is sent when the transaction is committed, and only then.

#ifndef STORE_ACT_H
#define STORE_ACT_H

#include <stdio.h>

// Whether the device has an action of that name, in the folder given by
// ORV_ACTIONS.  Whether it may be run is decided by the reader that runs it.
bool act_exists(const char *name);

// Requests the action without waiting for it.  False with a fault: there is no
// action of that name, or nobody reads the request.
bool act_ask(const char *name);

// Requests the action and waits, for at most `seconds`, until a run of it that
// began after the call has ended.  Writes "ok" and the action's output to
// `out`, each line as "line TEXT".  False with a fault when it has not run in
// that time, or failed.  Within a transaction it does not wait.
bool act_run(const char *name, unsigned seconds, FILE *out);

#endif
