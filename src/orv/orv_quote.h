// Values in shell command lines: where in a line a value would stand, and how
// it is written there so that the shell hands the script exactly that value.
// No state beyond the caller's shell_scan; no allocation.

#ifndef ORV_QUOTE_H
#define ORV_QUOTE_H

#include <stddef.h>

// Where the next character of a command line stands.
enum shell_place {
  SHELL_BARE,
  SHELL_SINGLE,     // inside '...'
  SHELL_DOUBLE,     // inside "..."
  SHELL_UNSAFE,     // inside a substitution, behind a here-document mark, ...
  SHELL_ARITHMETIC, // inside $((, ((, $[ or a subscript
};

// The scan of a command line from its start; all zero at the line's start.
struct shell_scan {
  shell_place place;
  char last;    // the character before, when it changes what follows
  bool in_word; // bare: a word has begun, so "#" begins no comment
};

// Reads on over `length` bytes of the author's own shell text.
void shell_scan_text(shell_scan *scan, const char *text, size_t length);

// Writes `value` as it must stand at this place, without a terminator, stores
// its length and reads on over it; writes nothing when `out` is NULL.  False,
// with all as it was, when no quoting is safe here and the value needs one.  In
// arithmetic and in the name behind ${ every value but a number does: a name
// there is evaluated, and so may be what it stands for.
bool shell_quote(shell_scan *scan, const char *value, char *out,
                 size_t *length);

#endif
