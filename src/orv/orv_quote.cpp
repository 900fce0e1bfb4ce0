// Values in shell command lines.
//
// A command line is the template author's own shell text with values of the
// request in between.  The scan follows the author's text as bash lexes it,
// just far enough to tell in which kind of quotes the next character stands.
// A construct whose end takes a real parser to find (substitutions, here-
// documents, subscripts, arithmetic, comments) makes the rest of the line
// unsafe: a value that needs quoting is then refused, and the caller reports
// it.  Refusing where quoting would have worked costs an author a clearer
// line; quoting where it does not work would run a stranger's commands.
// Whether the text is a valid command is not judged here.

#include "orv_quote.h"

#include <algorithm>
#include <ctype.h>
#include <stdio.h>
#include <string.h>

// --- the scan ----------------------------------------------------------------

static void enter(shell_scan *scan, shell_place place)
{
  scan->place = place;
  scan->in_word = true;
}

// Whether `c`, standing bare behind `last`, opens what is evaluated as a
// number.
static bool opens_arithmetic(char last, char c, bool in_word)
{
  switch (c) {
  case '[': // $[..], [[ and subscripts
    return in_word;
  case '(': // ((
    return last == '(';
  default:
    return false;
  }
}

// Whether `c`, standing bare behind `last`, opens what the scan cannot follow.
static bool opens_unsafe(char last, char c, bool in_word)
{
  switch (c) {
  case '`':
    return true;
  case '\'':
  case '{':
    return last == '$';
  case '#': // a comment, which a line end in the value would leave
    return !in_word;
  case '(': // $(, <(, >( and behind a word functions, patterns, arrays
    return in_word || last == '<' || last == '>';
  case '<': // a here-document
    return last == '<';
  case '&': // >&, whose word bash expands a second time
    return last == '<' || last == '>';
  default:
    return false;
  }
}

static void scan_bare(shell_scan *scan, char c)
{
  const char last = scan->last;
  scan->last = '\0';
  if (last == '\\') {
    scan->in_word = true;
    return;
  }
  if (opens_arithmetic(last, c, scan->in_word)) {
    scan->place = SHELL_ARITHMETIC;
    return;
  }
  if (opens_unsafe(last, c, scan->in_word)) {
    scan->place = SHELL_UNSAFE;
    // What may end it, or turn out to be arithmetic.
    scan->last = strchr("<&({", c) != nullptr ? c : '\0';
    return;
  }
  switch (c) {
  case '\'':
    enter(scan, SHELL_SINGLE);
    break;
  case '"': // $"..." is no different
    enter(scan, SHELL_DOUBLE);
    break;
  case '\\':
  case '$':
    scan->last = c;
    scan->in_word = true;
    break;
  case '(':
  case '<':
  case '>':
    scan->last = c;
    scan->in_word = false;
    break;
  case ')':
  case ';':
  case '&':
  case '|':
  case ' ':
  case '\t':
  case '\n':
    scan->in_word = false;
    break;
  default:
    scan->in_word = true;
    break;
  }
}

static void scan_double(shell_scan *scan, char c)
{
  const char last = scan->last;
  scan->last = '\0';
  if (last == '\\') {
    return;
  }
  if (c == '"') {
    enter(scan, SHELL_BARE);
  } else if (c == '\\' || c == '$') {
    scan->last = c;
  } else if (last == '$' && c == '[') {
    scan->place = SHELL_ARITHMETIC;
  } else if (c == '`' || (last == '$' && (c == '(' || c == '{'))) {
    scan->place = SHELL_UNSAFE;
    scan->last = c;
  }
}

// Whether `last` stands in the name or the operator behind ${: "{" before a
// name has begun, "n" within it.
static bool in_parameter(char last)
{
  return last == '{' || last == 'n';
}

// What `last` becomes with `c` in that name, '\0' behind it.
static char parameter_state(char last, char c)
{
  if (isalnum(static_cast<unsigned char>(c)) != 0 || c == '_') {
    return 'n';
  }
  // Of one character, or before a name, or the operators of ${name@P}.
  return strchr(last == '{' ? "!#@*?$-" : "@*", c) != nullptr ? '{' : '\0';
}

// Whether `c`, inside of what the scan cannot follow, opens what is evaluated
// as a number: ((, a subscript or [[, the offset in ${y:1}.
static bool opens_nested_arithmetic(char last, char c)
{
  return c == '[' || (c == '(' && last == '(') ||
         (c == ':' && in_parameter(last));
}

// Two beginnings have an end that is simple to tell: a third "<" makes a here-
// string, and "2>&1" is done with the first character behind the number.
static void scan_unsafe(shell_scan *scan, char c)
{
  const char last = scan->last;
  scan->last = '\0';
  if (opens_nested_arithmetic(last, c)) {
    scan->place = SHELL_ARITHMETIC;
    scan->last = c == ':' ? ':' : '\0';
  } else if (last == '<' && c == '<') {
    scan->place = SHELL_BARE;
    scan->in_word = false;
  } else if ((last == '&' || last == '1') &&
             ((c >= '0' && c <= '9') || c == '-')) {
    scan->last = '1';
  } else if (last == '1' && strchr(" \t;|&)", c) != nullptr) {
    scan->place = SHELL_BARE;
    scan_bare(scan, c);
  } else if (in_parameter(last) && parameter_state(last, c) != '\0') {
    scan->last = parameter_state(last, c);
  } else if (strchr("$(", c) != nullptr ||
             (c == '{' && (last == '$' || last == '{'))) {
    scan->last = c;
  }
}

// ${y:-word} and the like have no offset.
static void scan_arithmetic(shell_scan *scan, char c)
{
  if (scan->last == ':' && strchr("-=?+", c) != nullptr) {
    scan->place = SHELL_UNSAFE;
  }
  scan->last = '\0';
}

void shell_scan_text(shell_scan *scan, const char *text, size_t length)
{
  for (size_t i = 0; i < length; i++) {
    switch (scan->place) {
    case SHELL_BARE:
      scan_bare(scan, text[i]);
      break;
    case SHELL_SINGLE:
      if (text[i] == '\'') {
        enter(scan, SHELL_BARE);
      }
      break;
    case SHELL_DOUBLE:
      scan_double(scan, text[i]);
      break;
    case SHELL_UNSAFE:
      scan_unsafe(scan, text[i]);
      break;
    case SHELL_ARITHMETIC:
      scan_arithmetic(scan, text[i]);
      break;
    }
  }
}

// --- quoting -----------------------------------------------------------------

// What means nothing to the shell wherever it stands, besides bytes that are
// no ASCII.
constexpr char PLAIN[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                         "abcdefghijklmnopqrstuvwxyz"
                         "0123456789_./:@%+,=-";

static bool is_ascii(char c)
{
  return static_cast<unsigned char>(c) < 0x80;
}

static bool is_plain(char c)
{
  return !is_ascii(c) || strchr(PLAIN, c) != nullptr;
}

// In the name of ${!name} and ${name@P} a name is evaluated, too.
static bool needs_quoting(const char *value, const shell_scan *scan)
{
  if (scan->place == SHELL_ARITHMETIC || in_parameter(scan->last)) {
    return value[strspn(value, "0123456789")] != '\0';
  }
  return !std::all_of(value, value + strlen(value), is_plain);
}

// Counts what it is given and writes it where `out` is not NULL.
struct sink {
  char *out;
  size_t length;
};

static void put(sink *to, const char *text, size_t length)
{
  if (to->out != nullptr) {
    memcpy(to->out + to->length, text, length);
  }
  to->length += length;
}

static void put(sink *to, const char *text)
{
  put(to, text, strlen(text));
}

// A single quote leaves the quotes, stands escaped and, being the opening one
// now, enters them again.
static void put_single(sink *to, const char *value)
{
  put(to, "'");
  for (const char *p = value; *p != '\0'; p++) {
    put(to, *p == '\'' ? "'\\'" : "");
    put(to, p, 1);
  }
  put(to, "'");
}

// Bytes beyond ASCII are written as numbers: in some multi-byte charsets that a
// script may run under, such a byte swallows the quote or backslash behind it.
static void put_numbered(sink *to, const char *value)
{
  put(to, "$'");
  for (const char *p = value; *p != '\0'; p++) {
    if (is_ascii(*p)) {
      put(to, *p == '\'' || *p == '\\' ? "\\" : "");
      put(to, p, 1);
    } else {
      char number[sizeof "\\377"];
      snprintf(number, sizeof number, "\\%03o", static_cast<unsigned char>(*p));
      put(to, number);
    }
  }
  put(to, "'");
}

// In quotes of its own; the author's are left before and entered again behind.
static bool put_quoted(sink *to, shell_place place, const char *value)
{
  if (place == SHELL_UNSAFE || place == SHELL_ARITHMETIC) {
    return false;
  }
  const char *around = "";
  if (place != SHELL_BARE) {
    around = place == SHELL_SINGLE ? "'" : "\"";
  }
  put(to, around);
  if (std::all_of(value, value + strlen(value), is_ascii)) {
    put_single(to, value);
  } else {
    put_numbered(to, value);
  }
  put(to, around);
  return true;
}

bool shell_quote(shell_scan *scan, const char *value, char *out, size_t *length)
{
  sink to = {out, 0};
  if (!needs_quoting(value, scan)) {
    put(&to, value);
  } else if (scan->last == '\\' || scan->last == '$' ||
             !put_quoted(&to, scan->place, value)) {
    return false;
  }
  // An empty value leaves what stands before it next to what stands behind.
  if (value[0] != '\0') {
    scan->last = in_parameter(scan->last) ? scan->last : '\0';
    scan->in_word = true;
  }
  *length = to.length;
  return true;
}
