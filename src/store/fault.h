// Why a command fails: one text for the user, that of the first fault.

#ifndef STORE_FAULT_H
#define STORE_FAULT_H

// Keeps the text unless there is one already; false, for the caller to return.
bool store_fault(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The same for a system call that failed on the state folder: what could not be
// done, where, as which user, and the reason from errno.
bool store_fault_errno(const char *what);

// The text kept, one line without control characters; NULL when there is none.
const char *store_fault_text(void);

// Clears it, to try again.
void store_forget_fault(void);

#endif
