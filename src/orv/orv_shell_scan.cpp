// The scan of a command line.
//
// It follows the author's text as bash lexes it, just far enough to know in
// which kind of quotes the next character stands.  A construct inside which
// quoting works differently (substitutions, patterns, arithmetic) is left again
// only where its end is plain to see; behind any other, the rest of the line
// counts as its inside.  Whether the text is a valid command is not checked
// here.

#include "orv_shell_scan.h"

#include <ctype.h>
#include <string.h>

// --- characters --------------------------------------------------------------

static bool is_name(char c)
{
  return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool shell_is_plain(char c)
{
  return !shell_is_ascii(c) || is_name(c) || shell_one_of("./:@%+,=-", c);
}

const char *shell_skip_plain(const char *p)
{
  while (shell_is_plain(*p)) {
    p++;
  }
  return p;
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
  while (word < p &&
         (*word == '\0' || (shell_is_plain(*word) && *word != '='))) {
    word++;
  }
  return word == p;
}

void shell_begin_word(shell_scan *scan, const char *p)
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

const char *shell_behind(const char *p)
{
  return *p != '\0' ? p + 1 : p + 1 + strlen(p + 1) + 1;
}

const char *shell_plain_end(const char *p, const char *end, const char *closer)
{
  const size_t length = strlen(closer);
  const bool commands = strcmp(closer, ")") == 0;
  while (p < end) {
    if (strncmp(p, closer, length) == 0) {
      return p + length;
    }
    if (shell_one_of("'\"\\`()[]{}", *p) ||
        (*closer == ']' && shell_one_of(";&|<>", *p)) ||
        (commands && (*p == '#' || strncmp(p, "<<", 2) == 0 ||
                      strncmp(p, "case", strlen("case")) == 0))) {
      return nullptr;
    }
    p = shell_behind(p);
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
  enter(scan, SHELL_UNSAFE, shell_plain_end(p, scan->end, closer));
  end_command(scan);
}

static void enter_arithmetic(shell_scan *scan, const char *p,
                             const char *closer)
{
  enter(scan, SHELL_ARITHMETIC, shell_plain_end(p, scan->end, closer));
}

// What a value at `p`, behind ${, would be part of: a word for "-", "=" and
// "+", an offset for ":", else a name, an operator or a pattern.
static void enter_parameter(shell_scan *scan, const char *p)
{
  // "${ command; }" ends like no other.
  const char *over =
      shell_one_of(" \t\n|", *p) ? nullptr : shell_plain_end(p, scan->end, "}");
  if (shell_one_of("!#@*?$-", *p)) {
    p++;
  }
  while (is_name(*p)) {
    p++;
  }
  shell_place place = SHELL_PATTERN;
  if (*p == ':' && !shell_one_of("-=?+", p[1])) {
    place = SHELL_ARITHMETIC;
  } else if (shell_one_of(":-=+}", *p)) {
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
  shell_begin_word(scan, p);
  if (first && p[1] == '[' && shell_one_of(" \t", p[2])) {
    const char *over = shell_plain_end(p + 2, scan->end, " ]]");
    const bool whole = over == scan->end ||
                       (over != nullptr && shell_one_of(" \t;&|)", *over));
    enter(scan, SHELL_ARITHMETIC, whole ? over : nullptr);
  } else if (!first || scan->place == SHELL_UNSAFE) {
    enter_arithmetic(scan, p + 1, "]");
  } else if (p + 1 != scan->end && !shell_one_of(" \t", p[1])) {
    enter(scan, SHELL_PATTERN, shell_plain_end(p + 1, scan->end, "]"));
  }
}

// ((, process substitutions, arrays, functions, patterns, subshells.
static void enter_parenthesis(shell_scan *scan, const char *p, char last)
{
  if (last == '<' || last == '>') {
    shell_begin_word(scan, p);
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
  const char *over = shell_skip_plain(p + 1 + strspn(p + 1, " \t"));
  if (over == scan->end || shell_one_of(" \t;|&)", *over)) {
    enter(scan, SHELL_PATTERN, over);
  } else {
    shell_begin_word(scan, p);
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
  return shell_one_of("\\$<>", c) ? c : '\0';
}

// A quotation mark; $"..." is no different from "...".
static void scan_quote(shell_scan *scan, const char *p, char last)
{
  shell_begin_word(scan, p);
  if (*p == '"') {
    scan->place = SHELL_DOUBLE;
  } else if (*p == '`') {
    enter_commands(scan, p + 1, "`");
  } else if (last == '$') {
    enter(scan, SHELL_UNSAFE, shell_plain_end(p + 1, scan->end, "'"));
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
    shell_begin_word(scan, p); // a here-document
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
    shell_begin_word(scan, p);
    scan->brace |= p + 1 != scan->end && !shell_one_of(" \t", p[1]);
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
    shell_begin_word(scan, p);
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
  } else if (shell_one_of(";|&\n(", c)) {
    end_command(scan);
  } else if (shell_one_of("<>", c)) {
    expect_argument(scan, false);
  } else if (shell_one_of(" \t", c)) {
    scan_blank(scan, p);
  } else if (c == ')') {
    end_word(scan);
  } else {
    shell_begin_word(scan, p);
  }
}

bool shell_scan_text(shell_scan *scan, const char *p)
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
