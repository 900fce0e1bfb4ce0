// The scan of a command line, the author's own shell text: where in it the next
// character stands.  No state but what the caller holds; no allocation.

#ifndef ORV_SHELL_SCAN_H
#define ORV_SHELL_SCAN_H

#include <string.h>

// Where a character stands.
enum shell_place {
  SHELL_BARE,
  SHELL_SINGLE,     // inside '...'
  SHELL_DOUBLE,     // inside "..."
  SHELL_UNSAFE,     // where quotes are not followed: a plain value alone
  SHELL_ARITHMETIC, // inside $((, ((, $[, [[ or a subscript: a number alone
  SHELL_PATTERN,    // where any value would change what is meant
};

// Whether the next word is one that bash looks at for more than a value.
enum shell_position {
  POSITION_FIRST,    // of the line: a path, since a directory comes before it
  POSITION_COMMAND,  // a reserved word or an assignment, if it looks like one
  POSITION_KEYWORD,  // perhaps, up to the next separator
  POSITION_ARGUMENT, // never
};

struct shell_scan {
  const char *end;   // of the line
  shell_scan *outer; // as it is behind the construct around
  const char *over;  // where the construct around is over, NULL for nowhere
  const char *word;  // where the word began, NULL between words
  shell_place place;
  shell_position position;
  char last; // the character before, when it changes what follows; "n" in $name
  bool brace; // the word may be multiplied by {x,y}
  bool value; // the word holds a value
};

inline bool shell_one_of(const char *set, char c)
{
  return c != '\0' && strchr(set, c) != nullptr;
}

inline bool shell_is_ascii(char c)
{
  return static_cast<unsigned char>(c) < 0x80;
}

// What means nothing to the shell in the middle of a word; the first character
// that does.
bool shell_is_plain(char c);
const char *shell_skip_plain(const char *p);

// What behind `p` comes next: a character or a whole value.
const char *shell_behind(const char *p);

// Where what began before `p` is over, NULL if that is not plain to see.  In
// commands "case" has parentheses that close nothing.
const char *shell_plain_end(const char *p, const char *end, const char *closer);

// At `p`, unless a word has begun.
void shell_begin_word(shell_scan *scan, const char *p);

// Reads on over the character at `p`.  False where braces would multiply a
// value.
bool shell_scan_text(shell_scan *scan, const char *p);

#endif
