// A change that goes back unless it is kept, at a terminal.

#ifndef ORVCTL_PENDING_H
#define ORVCTL_PENDING_H

// Notes which change is pending, so that a later one can be told from it.
void pending_note(void);

// Tells of a change that came since: that it goes back, when, and how to keep
// it; in JSON as a member `pending`.
void pending_tell(void);

// The same behind several forms that were stored together; in JSON an object of
// its own.
void pending_tell_all(void);

// Keeps the change that is pending; the exit status.
int pending_confirm(void);

#endif
