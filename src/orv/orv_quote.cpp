// Values in shell command lines.
//
// A command line is the template author's own shell text with values of the
// request in between.  A value that needs quoting where quotes are not followed
// is refused, and the caller reports it.  Refusing too much makes an author
// write a simpler line; quoting where it does not work would run an attacker's
// commands.

#include "orv_quote.h"

#include <stdio.h>
#include <string.h>

#include "orv_shell_scan.h"

// A number as bash reads it: with a leading zero it is octal.
static bool is_number(const char *value)
{
  return value[strspn(value, "0123456789")] == '\0' &&
         (value[0] != '0' || strpbrk(value, "89") == nullptr);
}

// Whether all of the word around the plain value means nothing to the shell;
// what its variables end with is for the scan to know.
static bool in_plain_word(const shell_scan *scan, const char *value)
{
  const bool unsafe = scan->place == SHELL_UNSAFE;
  const char *p = scan->word != nullptr ? scan->word : value;
  while (p < scan->end) {
    if (p > value && shell_one_of(unsafe ? " \t\n;|&)}`" : " \t\n;|&)", *p)) {
      return true;
    }
    const char *next = p + 1;
    if (p[0] == '$' && p[1] == '{') {
      next = shell_plain_end(p + 2, scan->end, "}");
    } else if (*p != '\0' && *p != '$' && !shell_is_plain(*p) &&
               !(unsafe && shell_one_of("'\"", *p))) {
      next = nullptr;
    }
    if (next == nullptr) {
      return false;
    }
    p = next;
  }
  return true;
}

// Digits next to others, to a name, or in front of a redirection would be part
// of those.
static bool is_safe_number(const shell_scan *scan, const char *value)
{
  static const char before[] = "<>& \t([+-*/%=!,:;?|^\"'";
  static const char after[] = "<>& \t)]}+-*/%=!,:;?|^\"'";
  const size_t from = scan->over != nullptr ? 0 : strlen("<>&");
  const char *next = value + strlen(value) + 1;
  return is_number(value) && shell_one_of(before + from, value[-2]) &&
         (next == scan->end || shell_one_of(after + from, *next));
}

// Whether the value means nothing to the shell as it stands.
static bool is_safe(const shell_scan *scan, const char *value)
{
  const char last = scan->last;
  switch (scan->place) {
  case SHELL_ARITHMETIC:
    return is_safe_number(scan, value);
  case SHELL_PATTERN:
    return false;
  case SHELL_SINGLE:
    return *shell_skip_plain(value) == '\0';
  case SHELL_DOUBLE:
    return *shell_skip_plain(value) == '\0' && last != '$' && last != 'n';
  case SHELL_UNSAFE:
    if (shell_one_of("<>", last)) {
      return false;
    }
    break;
  case SHELL_BARE:
    break;
  }
  return *shell_skip_plain(value) == '\0' && !shell_one_of("\\$n", last) &&
         (scan->position == POSITION_ARGUMENT ||
          (scan->position == POSITION_FIRST &&
           strchr(value, '=') == nullptr)) &&
         in_plain_word(scan, value);
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
    if (shell_is_ascii(*p)) {
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
// False where that cannot be.
static bool put_quoted(sink *to, const shell_scan *scan, const char *value)
{
  if (scan->place > SHELL_DOUBLE || shell_one_of("\\$", scan->last)) {
    return false;
  }
  const char *around = "";
  if (scan->place != SHELL_BARE) {
    around = scan->place == SHELL_SINGLE ? "'" : "\"";
  }
  put(to, around);
  const char *p = value;
  while (*p != '\0' && shell_is_ascii(*p)) {
    p++;
  }
  if (*p == '\0') {
    put_single(to, value);
  } else {
    put_numbered(to, value);
  }
  put(to, around);
  return true;
}

static bool put_value(sink *to, shell_scan *scan, const char *value)
{
  if (scan->brace) {
    return false;
  }
  if (is_safe(scan, value)) {
    put(to, value);
  } else if (!put_quoted(to, scan, value)) {
    return false;
  }
  shell_begin_word(scan, value);
  scan->value = true;
  scan->last = '\0';
  return true;
}

bool shell_quote(const char *line, size_t length, char *out, size_t *out_length)
{
  sink to = {out, 0};
  shell_scan scan = {}, outer = {};
  scan.end = line + length;
  scan.outer = &outer;
  for (const char *p = line; p < scan.end; p = shell_behind(p)) {
    if (p == scan.over) {
      scan = outer;
    }
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): a line is never NULL
    if (*p == '\0' ? !put_value(&to, &scan, p + 1)
                   : !shell_scan_text(&scan, p)) {
      return false;
    }
    put(&to, p, *p != '\0' ? 1 : 0);
  }
  *out_length = to.length;
  return true;
}
