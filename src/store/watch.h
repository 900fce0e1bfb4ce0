// The watchers that wait until a guarded change is kept or goes back.

#ifndef STORE_WATCH_H
#define STORE_WATCH_H

// Waits for the end of the change `token`, and puts it back when nobody has
// kept it in time.  True when it has gone back, by whatever process, and it is
// this change's turn to make the device use the old settings.
bool watch_change(const char *token);

// Puts back an overdue change, for a privileged caller, which survives a
// restart of the web server.  A live watcher takes precedence.  Prints the
// steps left to the caller.  False when nothing is overdue, or with a fault.
bool watch_expire(void);

#endif
