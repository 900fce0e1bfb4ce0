// Values in shell command lines: how each is written where it stands, so that
// the shell hands the script exactly that value.  No state; no allocation.

#ifndef ORV_QUOTE_H
#define ORV_QUOTE_H

#include <stddef.h>

// Writes the command line `line` to `out`, without a terminator, and stores its
// length; only measures when `out` is NULL.  `line` holds the author's own
// shell text and, each between two NULs, values that are not empty; it has
// `length` bytes and one NUL more behind them.  False when no quoting is safe
// where a value stands and the value needs one.
bool shell_quote(const char *line, size_t length, char *out,
                 size_t *out_length);

#endif
