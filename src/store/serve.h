// A conversation with one script.

#ifndef STORE_SERVE_H
#define STORE_SERVE_H

#include <sys/types.h>

// Takes the page's values of `form` from standard input and locks, for the
// process `script`.  Then a process of its own answers that script until it ends:
// "PID FD LOCKED", which are its number, the descriptor of /proc/PID/fd that
// takes requests, and 0 in a transaction, whose lock is another's.  Requests are
//
//   read NAME...    the page's values of these names, "port#" for a column's
//   store LENGTH    an order of so many bytes, which follow
//   unlock, lock    let others save, and no longer
//
// Every answer, to standard output, is a line with the number of its bytes, and
// these.  `subitem` may be NULL.  False behind a fault, which has been answered.
bool serve(pid_t script, const char *form, const char *subitem);

#endif
