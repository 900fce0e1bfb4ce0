// Values in shell command lines.
//
// A command line is the template author's own shell text with values of the
// request in between.  The scan follows the author's text as bash lexes it,
// just far enough to know in which kind of quotes the next character stands.
// A construct inside which quoting works differently (substitutions, patterns,
// arithmetic) is left again only where its end is plain to see; behind any
// other, the rest of the line counts as its inside.  A value that needs quoting
// there is refused, and the caller reports it.  Refusing too much makes an
// author write a simpler line; quoting where it does not work would run an
// attacker's commands.  Whether the text is a valid command is not checked
// here.

#include "orv_quote.h"

#include <ctype.h>
#include <stdio.h>
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

// --- characters --------------------------------------------------------------

static bool one_of(const char *set, char c)
{
  return c != '\0' && strchr(set, c) != nullptr;
}

static bool is_name(char c)
{
  return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

static bool is_ascii(char c)
{
  return static_cast<unsigned char>(c) < 0x80;
}

// What means nothing to the shell in the middle of a word.
static bool is_plain(char c)
{
  return !is_ascii(c) || is_name(c) || one_of("./:@%+,=-", c);
}

static const char *skip_plain(const char *p)
{
  while (is_plain(*p)) {
    p++;
  }
  return p;
}

// A number as bash reads it: with a leading zero it is octal.
static bool is_number(const char *value)
{
  return value[strspn(value, "0123456789")] == '\0' &&
         (value[0] != '0' || strpbrk(value, "89") == nullptr);
}

// --- words -------------------------------------------------------------------

// Each before any that it is a part of.
static const char RESERVED[] = " if fi in do for elif else then time case esac "
                               "done while until select coproc function ";

static bool is_reserved(const char *word, size_t length)
{
  const char *found = static_cast<const char *>(
      memmem(RESERVED, sizeof RESERVED - 1, word, length));
  return found != nullptr && found[-1] == ' ' && found[length] == ' ';
}

// Whether the word up to `p` is a command's name for certain.
static bool is_command(const char *word, const char *p)
{
  if (is_reserved(word, static_cast<size_t>(p - word))) {
    return false;
  }
  while (word < p && (*word == '\0' || (is_plain(*word) && *word != '='))) {
    word++;
  }
  return word == p;
}

static void begin_word(shell_scan *scan, const char *p)
{
  if (scan->word == nullptr) {
    scan->word = p;
  }
}

static void end_word(shell_scan *scan)
{
  scan->word = nullptr;
  scan->brace = false;
  scan->value = false;
}

static void end_command(shell_scan *scan)
{
  end_word(scan);
  scan->position = POSITION_COMMAND;
}

// What has ended is a command's name, if that is certain; else one may still
// be to come.
static void expect_argument(shell_scan *scan, bool certain)
{
  if (scan->position == POSITION_FIRST) {
    scan->position = POSITION_ARGUMENT;
  } else if (scan->position == POSITION_COMMAND) {
    scan->position = certain ? POSITION_ARGUMENT : POSITION_KEYWORD;
  }
  end_word(scan);
}

static void scan_blank(shell_scan *scan, const char *p)
{
  if (scan->word != nullptr) {
    expect_argument(scan, is_command(scan->word, p));
  }
}

// --- constructs --------------------------------------------------------------

// What behind `p` comes next: a character or a whole value.
static const char *behind(const char *p)
{
  return *p != '\0' ? p + 1 : p + 1 + strlen(p + 1) + 1;
}

// Where what began before `p` is over, NULL if that is not plain to see.  In
// commands "case" has parentheses that close nothing.
static const char *plain_end(const char *p, const char *end, const char *closer)
{
  const size_t length = strlen(closer);
  const bool commands = strcmp(closer, ")") == 0;
  while (p < end) {
    if (strncmp(p, closer, length) == 0) {
      return p + length;
    }
    if (one_of("'\"\\`()[]{}", *p) || (*closer == ']' && one_of(";&|<>", *p)) ||
        (commands && (*p == '#' || strncmp(p, "<<", 2) == 0 ||
                      strncmp(p, "case", strlen("case")) == 0))) {
      return nullptr;
    }
    p = behind(p);
  }
  return nullptr;
}

// Enters a construct.  One within another leaves the end of the outer one
// unknown, so one scan to return to is enough.
static void enter(shell_scan *scan, shell_place place, const char *over)
{
  *scan->outer = *scan;
  scan->outer->last = '\0';
  scan->over = over;
  scan->position = POSITION_ARGUMENT;
  // Where its end is unknown, only what touches it is part of a pattern.
  scan->place =
      over == nullptr && place == SHELL_PATTERN ? SHELL_UNSAFE : place;
  if (over != nullptr) {
    end_word(scan);
  }
}

static void enter_commands(shell_scan *scan, const char *p, const char *closer)
{
  enter(scan, SHELL_UNSAFE, plain_end(p, scan->end, closer));
  end_command(scan);
}

static void enter_arithmetic(shell_scan *scan, const char *p,
                             const char *closer)
{
  enter(scan, SHELL_ARITHMETIC, plain_end(p, scan->end, closer));
}

// What a value at `p`, behind ${, would be part of: a word for "-", "=" and
// "+", an offset for ":", else a name, an operator or a pattern.
static void enter_parameter(shell_scan *scan, const char *p)
{
  // "${ command; }" ends like no other.
  const char *over =
      one_of(" \t\n|", *p) ? nullptr : plain_end(p, scan->end, "}");
  if (one_of("!#@*?$-", *p)) {
    p++;
  }
  while (is_name(*p)) {
    p++;
  }
  shell_place place = SHELL_PATTERN;
  if (*p == ':' && !one_of("-=?+", p[1])) {
    place = SHELL_ARITHMETIC;
  } else if (one_of(":-=+}", *p)) {
    place = SHELL_UNSAFE;
  }
  enter(scan, place, over);
}

// Enters what `c` at `p` opens in and outside of double quotes alike.
static bool enter_expansion(shell_scan *scan, const char *p, char last)
{
  if (last != '$') {
    return false;
  }
  if (p[0] == '(' && p[1] == '(') {
    enter_arithmetic(scan, p + 2, "))");
  } else if (p[0] == '(') {
    enter_commands(scan, p + 1, ")");
  } else if (p[0] == '{') {
    enter_parameter(scan, p + 1);
  } else if (p[0] == '[') {
    enter_arithmetic(scan, p + 1, "]");
  } else {
    return false;
  }
  return true;
}

// "[[ .. ]]", a subscript or a pattern; not the command "[".
static void enter_bracket(shell_scan *scan, const char *p)
{
  const bool first = scan->word == nullptr;
  begin_word(scan, p);
  if (first && p[1] == '[' && one_of(" \t", p[2])) {
    const char *over = plain_end(p + 2, scan->end, " ]]");
    const bool whole =
        over == scan->end || (over != nullptr && one_of(" \t;&|)", *over));
    enter(scan, SHELL_ARITHMETIC, whole ? over : nullptr);
  } else if (!first || scan->place == SHELL_UNSAFE) {
    enter_arithmetic(scan, p + 1, "]");
  } else if (p + 1 != scan->end && !one_of(" \t", p[1])) {
    enter(scan, SHELL_PATTERN, plain_end(p + 1, scan->end, "]"));
  }
}

// ((, process substitutions, arrays, functions, patterns, subshells.
static void enter_parenthesis(shell_scan *scan, const char *p, char last)
{
  if (last == '<' || last == '>') {
    begin_word(scan, p);
    enter_commands(scan, p + 1, ")");
  } else if (scan->word != nullptr) {
    const bool array = p[-1] == '=';
    end_command(scan); // behind it, since a function may begin there
    enter_commands(scan, p + 1, ")");
    if (array) {
      scan->position = POSITION_ARGUMENT;
    }
  } else {
    end_command(scan);
    if (p[1] == '(') {
      enter_arithmetic(scan, p + 2, "))");
    }
  }
}

// The word behind >& at `p`, which bash expands a second time.
static void enter_duplication(shell_scan *scan, const char *p)
{
  const char *over = skip_plain(p + 1 + strspn(p + 1, " \t"));
  if (over == scan->end || one_of(" \t;|&)", *over)) {
    enter(scan, SHELL_PATTERN, over);
  } else {
    begin_word(scan, p);
    enter(scan, SHELL_PATTERN, *over == '\0' ? over + 1 : nullptr);
  }
}

// --- the scan ----------------------------------------------------------------

// What `last` becomes behind `c`.  "$$" is a variable's whole name.
static char remembered(char last, char c)
{
  if (last == '$' && c == '$') {
    return '\0';
  }
  if (is_name(c) && (last == '$' || last == 'n')) {
    return 'n';
  }
  return one_of("\\$<>", c) ? c : '\0';
}

// A quotation mark; $"..." is no different from "...".
static void scan_quote(shell_scan *scan, const char *p, char last)
{
  begin_word(scan, p);
  if (*p == '"') {
    scan->place = SHELL_DOUBLE;
  } else if (*p == '`') {
    enter_commands(scan, p + 1, "`");
  } else if (last == '$') {
    enter(scan, SHELL_UNSAFE, plain_end(p + 1, scan->end, "'"));
  } else {
    scan->place = SHELL_SINGLE;
  }
}

// One of "<", ">" and "&".
static void scan_redirection(shell_scan *scan, const char *p, char last)
{
  if (*p == '&') {
    if (last == '<' || last == '>') {
      enter_duplication(scan, p);
    } else if (p[1] != '>') {
      end_command(scan);
    }
  } else if (*p == '<' && last != '<' && p[1] == '<' && p[2] != '<') {
    begin_word(scan, p); // a here-document
    enter(scan, SHELL_UNSAFE, nullptr);
  } else {
    expect_argument(scan, false);
  }
}

// False where braces would multiply a value.
static bool scan_bare(shell_scan *scan, const char *p)
{
  const char c = *p, last = scan->last;
  scan->last = last == '\\' ? '\0' : remembered(last, c);
  if (last == '\\' || enter_expansion(scan, p, last)) {
    return true;
  }
  switch (c) {
  case '\'':
  case '"':
  case '`':
    scan_quote(scan, p, last);
    break;
  case '[':
    enter_bracket(scan, p);
    break;
  case '(':
    enter_parenthesis(scan, p, last);
    break;
  case '{':
    begin_word(scan, p);
    scan->brace |= p + 1 != scan->end && !one_of(" \t", p[1]);
    return !scan->brace || !scan->value;
  case '<':
  case '>':
  case '&':
    scan_redirection(scan, p, last);
    break;
  case ')':
  case ';':
  case '|':
  case '\n':
    end_command(scan);
    break;
  case ' ':
  case '\t':
    scan_blank(scan, p);
    break;
  case '#': // a comment, which a line end in the value would leave
    if (scan->word == nullptr) {
      enter(scan, SHELL_UNSAFE, nullptr);
    }
    [[fallthrough]];
  default:
    begin_word(scan, p);
    break;
  }
  return true;
}

static void scan_double(shell_scan *scan, const char *p)
{
  const char last = scan->last;
  scan->last = last == '\\' ? '\0' : remembered(last, *p);
  if (last == '\\' || enter_expansion(scan, p, last)) {
    return;
  }
  if (*p == '"') {
    scan->place = SHELL_BARE;
  } else if (*p == '`') {
    enter_commands(scan, p + 1, "`");
  }
}

// A closing parenthesis or backtick may end commands or patterns, and words
// before it may have been arguments.
static void scan_unsafe(shell_scan *scan, const char *p)
{
  const char c = *p, last = scan->last;
  scan->last = last == '\\' ? '\0' : remembered(last, c);
  if (enter_expansion(scan, p, last)) {
    return;
  }
  if (c == '[') {
    enter_bracket(scan, p);
  } else if (c == '(' && p[1] == '(') {
    enter_arithmetic(scan, p + 2, "))");
  } else if (one_of(";|&\n(", c)) {
    end_command(scan);
  } else if (one_of("<>", c)) {
    expect_argument(scan, false);
  } else if (one_of(" \t", c)) {
    scan_blank(scan, p);
  } else if (c == ')') {
    end_word(scan);
  } else {
    begin_word(scan, p);
  }
}

// Reads on over the character at `p`.
static bool scan_text(shell_scan *scan, const char *p)
{
  switch (scan->place) {
  case SHELL_BARE:
    return scan_bare(scan, p);
  case SHELL_SINGLE:
    if (*p == '\'') {
      scan->place = SHELL_BARE;
    }
    break;
  case SHELL_DOUBLE:
    scan_double(scan, p);
    break;
  case SHELL_UNSAFE:
    scan_unsafe(scan, p);
    break;
  case SHELL_ARITHMETIC:
  case SHELL_PATTERN:
    break;
  }
  return true;
}

// --- quoting -----------------------------------------------------------------

// Whether all of the word around the plain value means nothing to the shell;
// what its variables end with is for the scan to know.
static bool in_plain_word(const shell_scan *scan, const char *value)
{
  const bool unsafe = scan->place == SHELL_UNSAFE;
  const char *p = scan->word != nullptr ? scan->word : value;
  while (p < scan->end) {
    if (p > value && one_of(unsafe ? " \t\n;|&)}`" : " \t\n;|&)", *p)) {
      return true;
    }
    const char *next = p + 1;
    if (p[0] == '$' && p[1] == '{') {
      next = plain_end(p + 2, scan->end, "}");
    } else if (*p != '\0' && *p != '$' && !is_plain(*p) &&
               !(unsafe && one_of("'\"", *p))) {
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
  return is_number(value) && one_of(before + from, value[-2]) &&
         (next == scan->end || one_of(after + from, *next));
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
    return *skip_plain(value) == '\0';
  case SHELL_DOUBLE:
    return *skip_plain(value) == '\0' && last != '$' && last != 'n';
  case SHELL_UNSAFE:
    if (one_of("<>", last)) {
      return false;
    }
    break;
  case SHELL_BARE:
    break;
  }
  return *skip_plain(value) == '\0' && !one_of("\\$n", last) &&
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
// False where that cannot be.
static bool put_quoted(sink *to, const shell_scan *scan, const char *value)
{
  if (scan->place > SHELL_DOUBLE || one_of("\\$", scan->last)) {
    return false;
  }
  const char *around = "";
  if (scan->place != SHELL_BARE) {
    around = scan->place == SHELL_SINGLE ? "'" : "\"";
  }
  put(to, around);
  const char *p = value;
  while (*p != '\0' && is_ascii(*p)) {
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
  begin_word(scan, value);
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
  for (const char *p = line; p < scan.end; p = behind(p)) {
    if (p == scan.over) {
      scan = outer;
    }
    if (*p == '\0' ? !put_value(&to, &scan, p + 1) : !scan_text(&scan, p)) {
      return false;
    }
    put(&to, p, *p != '\0' ? 1 : 0);
  }
  *out_length = to.length;
  return true;
}
