// Who waits until a guarded change is kept or goes back.

#ifndef STORE_WATCH_H
#define STORE_WATCH_H

// Waits for the end of the change `token`, and puts it back when nobody has
// kept it in time.  True when it went back, whoever did that, and it is this
// change's turn to make the device use the old settings.
bool watch_change(const char *token);

// Puts back what is overdue, for who watches with more rights than a script
// that a restarted web server takes with it; whoever watches beside comes
// first.  Prints what the caller has to do.  False when nothing is overdue, or
// with a fault.
bool watch_expire(void);

#endif
