// What stops a store: one text for the user, the first that was met.

#ifndef STORE_FAULT_H
#define STORE_FAULT_H

// Keeps the text unless one is kept already; false, for the caller to return.
bool store_fault(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The same for a call that failed on the state folder: what could not be done,
// where, as which user, and why by errno.
bool store_fault_errno(const char *what);

// The text kept, one line without control characters; NULL when there is none.
const char *store_fault_text(void);

// Forgets it, to try once more.
void store_forget_fault(void);

#endif
