// Regular expressions of the plain kind that forms are checked with.
//
// The C library compiles an expression into an automaton before it looks at the
// first character: "^.{1,60}$" into one of sixty states, which costs more than
// all the rest of a page.  Most expressions of forms are a row of characters
// and sets with their numbers, from "^" to "$", with a group now and then that
// may be missing.  Such a one is walked through here as it stands, and nothing
// is allocated.
//
// Deliberately left to the library: alternatives, groups that repeat, classes
// by name, expressions with a mistake, and texts that take too many attempts.

#include "orv_pattern.h"

#include <limits.h>
#include <string.h>

// A walk through a text of a page takes some hundreds.
constexpr int STEPS_MAX = 20000;
constexpr int TIMES_MAX = 255; // as every system has it; more is left

// How often an atom comes.
struct times {
  int least;
  int most;
};

static int steps; // left of the match at hand

// --- parts of a pattern ------------------------------------------------------
// Each of these gives the place behind the part, NULL when it is of another
// kind.

// Whether `p` begins a range of a set, "a-z".  Its ends are judged in skip_set.
static bool is_range(const char *p)
{
  return p[1] == '-' && p[2] != ']';
}

static unsigned char byte(char c)
{
  return static_cast<unsigned char>(c);
}

// Where bytes beyond ASCII stand is the library's business.
static bool is_plain_range(const char *p)
{
  const bool leads_on = p[2] != '\0' && p[3] == '-' && p[4] != ']';
  return byte(p[2]) >= byte(p[0]) && byte(p[2]) < 0x80 && p[0] != '-' &&
         p[2] != '-' && p[2] != '[' && !leads_on;
}

static const char *skip_set(const char *p)
{
  p += p[1] == '^' ? 2 : 1;
  bool first = true;
  for (; *p != ']' || first; first = false) {
    const bool is_class =
        *p == '[' && p[1] != '\0' && strchr(".:=", p[1]) != nullptr;
    if (*p == '\0' || is_class || (is_range(p) && !is_plain_range(p))) {
      return nullptr;
    }
    p += is_range(p) ? 3 : 1;
  }
  return p + 1;
}

static const char *skip_atom(const char *p)
{
  if (*p == '[') {
    return skip_set(p);
  }
  if (*p == '\\') {
    return p[1] != '\0' && strchr("^.[]$()|*+?{}\\/-", p[1]) != nullptr
               ? p + 2
               : nullptr;
  }
  return *p != '\0' && strchr("^$*+?{}|()", *p) == nullptr ? p + 1 : nullptr;
}

static const char *read_number(const char *p, int *number)
{
  const char *start = p;
  *number = 0;
  for (; *p >= '0' && *p <= '9' && *number <= TIMES_MAX; p++) {
    *number = 10 * *number + (*p - '0');
  }
  return p > start && *number <= TIMES_MAX ? p : nullptr;
}

static const char *read_braces(const char *p, times *number)
{
  p = read_number(p + 1, &number->least);
  number->most = number->least;
  if (p != nullptr && *p == ',') {
    p++;
    number->most = INT_MAX;
    p = *p == '}' ? p : read_number(p, &number->most);
  }
  return p != nullptr && *p == '}' && number->most >= number->least ? p + 1
                                                                    : nullptr;
}

// Reads what stands behind an atom.
static const char *read_times(const char *p, times *number)
{
  switch (*p) {
  case '?':
    *number = {0, 1};
    return p + 1;
  case '*':
    *number = {0, INT_MAX};
    return p + 1;
  case '+':
    *number = {1, INT_MAX};
    return p + 1;
  case '{':
    return read_braces(p, number);
  default:
    *number = {1, 1};
    return p;
  }
}

// Behind the end of a group, which may be missing but does not repeat.
static const char *skip_group_end(const char *p)
{
  p++;
  return *p == '?' ? p + 1 : p;
}

// Skips an atom and its number, or one end of a group.
static const char *skip_piece(const char *p)
{
  if (*p == '(') {
    return p + 1;
  }
  if (*p == ')') {
    return skip_group_end(p);
  }
  times number;
  p = skip_atom(p);
  return p != nullptr ? read_times(p, &number) : nullptr;
}

// --- judging the pattern -----------------------------------------------------

static bool is_plain(const char *p)
{
  int depth = 0;
  if (*p != '^') {
    return false;
  }
  for (p++; !(p[0] == '$' && p[1] == '\0');) {
    depth += *p == '(' ? 1 : (*p == ')' ? -1 : 0);
    const bool is_empty = *p == '(' && p[1] == ')';
    const bool closes = *p == ')';
    p = depth >= 0 && !is_empty ? skip_piece(p) : nullptr;
    if (p == nullptr ||
        (closes && *p != '\0' && strchr("?*+{", *p) != nullptr)) {
      return false;
    }
  }
  return depth == 0;
}

// --- matching ----------------------------------------------------------------
// The pattern has been judged.

static bool is_in_set(const char *p, char c)
{
  const bool negated = p[1] == '^';
  const char *first = p + (negated ? 2 : 1);
  const char *end = skip_set(p) - 1;
  bool found = false;
  for (p = first; p < end && !found;) {
    const char *last = is_range(p) ? p + 2 : p;
    found = byte(c) >= byte(*p) && byte(c) <= byte(*last);
    p = last + 1;
  }
  return found != negated;
}

static bool fits_atom(const char *p, char c)
{
  switch (*p) {
  case '.':
    return true;
  case '[':
    return is_in_set(p, c);
  case '\\':
    return p[1] == c;
  default:
    return *p == c;
  }
}

// The place behind the group that begins at `p`; "?" stands before it when the
// group may be missing.
static const char *skip_group(const char *p)
{
  int depth = 0;
  do {
    depth += *p == '(' ? 1 : (*p == ')' ? -1 : 0);
    p = skip_piece(p);
  } while (depth > 0);
  return p;
}

static int count_fitting(const char *atom, const char *text, int most)
{
  int count = 0;
  while (count < most && text[count] != '\0' && steps > 0 &&
         fits_atom(atom, text[count])) {
    count++;
    steps--;
  }
  return count;
}

static bool match(const char *p, const char *text);

// The same where `p` is an atom that comes between `least` and `most` times: as
// often as it can, then one time less.
static bool match_atom(const char *p, const char *text)
{
  times number;
  const char *next = read_times(skip_atom(p), &number);
  int count = count_fitting(p, text, number.most);
  for (; count >= number.least && steps > 0; count--) {
    if (match(next, text + count)) {
      return true;
    }
  }
  return false;
}

// Whether the rest of the text fits the rest of the pattern.
static bool match(const char *p, const char *text)
{
  while (*p == '(' || *p == ')') {
    const char *behind = *p == '(' ? skip_group(p) : p;
    const bool may_be_missing = *p == '(' && behind[-1] == '?';
    if (may_be_missing && match(behind, text)) {
      return true;
    }
    p = skip_piece(p);
  }
  if (*p == '$') {
    return *text == '\0';
  }
  steps--;
  return steps > 0 && match_atom(p, text);
}

pattern_answer orv_pattern_match(const char *pattern, const char *text)
{
  if (!is_plain(pattern)) {
    return PATTERN_OTHER;
  }
  steps = STEPS_MAX;
  const bool fits = match(pattern + 1, text);
  return steps <= 0 ? PATTERN_OTHER : (fits ? PATTERN_FITS : PATTERN_FITS_NOT);
}
