// A conversation with one script.

#ifndef STORE_SERVE_H
#define STORE_SERVE_H

#include <sys/types.h>

// Reads the page's values of `form` from standard input and locks, for the
// process `script`.  Then a new process serves that script until it ends.
// Prints "PID FD LOCKED": its number, the descriptor in /proc/PID/fd that takes
// requests, and 0 in a transaction, whose lock belongs to another.  Requests
// are
//
//   read NAME...    the page's values of these names, "port#" for a column's
//   store LENGTH    an order of that many bytes, which follow
//   unlock, lock    let other saves proceed; stop them again
//
// Every answer goes to standard output: a line with its length in bytes, then
// these bytes.  `subitem` may be NULL.  False after a fault, which was the
// answer.
bool serve(pid_t script, const char *form, const char *subitem);

#endif
