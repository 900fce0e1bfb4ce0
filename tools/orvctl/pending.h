// A pending change, which goes back unless it is kept, at a terminal.

#ifndef ORVCTL_PENDING_H
#define ORVCTL_PENDING_H

// Notes which change is pending, to recognise a later one.
void pending_note(void);

// Reports a change made since: that it goes back, when, and how to keep it; in
// JSON as a member `pending`.
void pending_tell(void);

// The same after several forms that were stored together; in JSON an object of
// its own.
void pending_tell_all(void);

// Keeps the change that is pending; the exit status.
int pending_confirm(void);

#endif
