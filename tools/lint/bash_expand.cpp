// Expansions of bash: quotes, parameters, substitutions and arithmetic.

#include "bash_reader.h"

#include <ctype.h>
#include <string.h>

#include <cstddef>

bool has_base(const std::string &number)
{
  return isdigit(static_cast<unsigned char>(number[0])) != 0 &&
         (number.find('#') != std::string::npos || number[1] == 'x' ||
          number[1] == 'X');
}

namespace bash_reading
{

bool done(const reader &r)
{
  return r.at >= r.in.size();
}

// With a NUL behind the end, nobody has to ask for it before each look.
char peek(const reader &r, size_t ahead)
{
  return r.at + ahead < r.in.size() ? r.in[r.at + ahead] : '\0';
}

bool looking_at(const reader &r, const char *text)
{
  return r.in.compare(r.at, strlen(text), text) == 0;
}

// All reading goes through here, so that lines are counted once.
void step(reader &r, size_t count)
{
  for (; count > 0 && !done(r); count--) {
    if (r.in[r.at++] == '\n') {
      r.line++;
      r.line_start = r.at;
    }
  }
}

int column(const reader &r)
{
  return static_cast<int>(r.at - r.line_start) + 1;
}

bool is_word_char(char c)
{
  return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool is_name(const std::string &text)
{
  if (text.empty() || isdigit(static_cast<unsigned char>(text[0])) != 0) {
    return false;
  }
  for (const char c : text) {
    if (!is_word_char(c)) {
      return false;
    }
  }
  return true;
}

// A process or command substitution whose "(" comes next. Its commands come to
// the list in front of the one that the word belongs to, and `substitution`
// tells them from those whose output the script prints.
void read_substitution(reader &r)
{
  step(r);
  if (r.depth == DEPTH_MAX) {
    return; // a script of "$($($(..." must not exhaust the stack
  }
  r.depth++;
  r.substitution++;
  read_list(r, ')');
  r.substitution--;
  r.depth--;
}

// Moves a word that was read by itself to its place in the script. Only its
// first line begins behind something: columns of the others are right as they
// are.
static void move_word(bash_word &word, int lines, int columns)
{
  word.column += word.line == 1 ? columns : 0;
  word.line += lines;
  for (bash_expansion &expansion : word.expansions) {
    expansion.column += expansion.line == 1 ? columns : 0;
    expansion.line += lines;
  }
}

// Read as a separate script: a backslash escapes fewer characters in it, and
// the first unescaped backtick ends it, even inside quotes. Its commands are
// numbered from 0 in a script that nobody keeps, so they get the branch and the
// function of the place where the text stands, and nothing in front of them.
void read_backticks(reader &r)
{
  step(r);
  const size_t start = r.at;
  const int lines = r.line - 1;
  const int columns = column(r) - 1;
  while (!done(r) && peek(r) != '`') {
    step(r, peek(r) == '\\' ? 2 : 1);
  }
  const std::string inner = r.in.substr(start, r.at - start);
  step(r);
  bash_script nested = read_bash(inner);
  for (bash_command &command : nested.commands) {
    for (bash_word &word : command.words) {
      move_word(word, lines, columns);
    }
    for (bash_assignment &assignment : command.assignments) {
      move_word(assignment.value, lines, columns);
    }
    for (bash_redirect &redirect : command.redirects) {
      move_word(redirect.target, lines, columns);
    }
    command.column += command.line == 1 ? columns : 0;
    command.line += lines;
    command.substitution += r.substitution + 1;
    command.function = r.function;
    command.branch = r.branch;
    command.previous = -1;
    command.join.clear();
    r.out.commands.push_back(command);
  }
}

void read_single(reader &r, bash_word &word)
{
  step(r);
  while (!done(r) && peek(r) != '\'') {
    word.plain += peek(r);
    step(r);
  }
  step(r);
}

// $'...': unlike in '...', a backslash escapes the quote. What the codes stand
// for is not worked out: who looks for "\n" in a format looks for it as it is
// written.
static void read_ansi(reader &r, bash_word &word)
{
  step(r, 2);
  while (!done(r) && peek(r) != '\'') {
    if (peek(r) == '\\') {
      word.plain += peek(r);
      step(r);
    }
    word.plain += peek(r);
    step(r);
  }
  step(r);
}

// All expansions in it are quoted. A backslash that escapes nothing here stays:
// "%s\n" is the same format as '%s\n'.
void read_double(reader &r, bash_word &word)
{
  step(r);
  while (!done(r) && peek(r) != '"') {
    if (peek(r) == '\\') {
      step(r);
      if (strchr("$`\"\\\n", peek(r)) == nullptr) {
        word.plain += '\\';
      }
      word.plain += peek(r);
      step(r);
    } else if (peek(r) == '$') {
      read_dollar(r, word, true, false);
    } else if (peek(r) == '`') {
      read_backticks(r);
    } else {
      word.plain += peek(r);
      step(r);
    }
  }
  step(r);
}

// Any text up to the `end` that matches an `open` already taken. Within double
// quotes (`quoted`) a single quote is an ordinary character. In "${x:-'a'}"
// they are a part of the value, and in ${x:-'a'} they are not.
void read_nested(reader &r, bash_word &word, char open, char end, bool quoted,
                 bool arithmetic)
{
  int depth = 1;
  while (!done(r)) {
    const char c = peek(r);
    if (c == end && --depth == 0) {
      return;
    }
    if (c == open) {
      depth++;
    }
    if (c == '\\') {
      step(r, 2);
    } else if (c == '\'' && !quoted) {
      read_single(r, word);
    } else if (c == '"') {
      read_double(r, word);
    } else if (c == '$') {
      read_dollar(r, word, quoted, arithmetic);
    } else if (c == '`') {
      read_backticks(r);
    } else {
      step(r);
    }
  }
}

// ${...}, after the "${". "!" and "#" are operators here unless the "}"
// follows: ${!} and ${#} are parameters. A name of one other character is a
// parameter: ${@:2}, ${?}.
static void read_braces(reader &r, bash_word &word, bash_expansion &expansion)
{
  if (peek(r) == '!' && peek(r, 1) != '}') {
    expansion.indirect = true;
    step(r);
  } else if (peek(r) == '#' && peek(r, 1) != '}') {
    expansion.length = true;
    step(r);
  }
  if (is_word_char(peek(r))) {
    while (is_word_char(peek(r))) {
      expansion.name += peek(r);
      step(r);
    }
  } else if (!done(r) && peek(r) != '}') {
    expansion.name = peek(r);
    step(r);
  }
  if (peek(r) == '[') {
    step(r);
    const size_t start = r.at;
    read_nested(r, word, '[', ']', expansion.quoted, false);
    expansion.subscript = r.in.substr(start, r.at - start);
    step(r);
  }
  // Operator and word stay a text, which every rule reads for itself; what is
  // expanded in them comes to the word as well.
  const size_t start = r.at;
  read_nested(r, word, '{', '}', expansion.quoted, false);
  expansion.rest = r.in.substr(start, r.at - start);
  step(r);
  // ${!name[@]} and ${!name*} list names, and do not evaluate any.
  if (expansion.subscript == "@" || expansion.subscript == "*" ||
      expansion.rest == "*" || expansion.rest == "@") {
    expansion.indirect = false;
  }
}

// Whether what comes next continues a number such as 10# or 0x. bash puts the
// value there before it computes, so 10#$x reads 09 as 9. The number was taken
// as it came, so it is looked for backwards.
static bool is_based(const reader &r)
{
  size_t start = r.at;
  start -= start > 0 && r.in[start - 1] == '"' ? 1 : 0; // 10#"$x"
  const size_t end = start;
  while (start > 0 &&
         (is_word_char(r.in[start - 1]) || r.in[start - 1] == '#')) {
    start--;
  }
  return has_base(r.in.substr(start, end - start));
}

// Arithmetic up to the matching `end` (")" or "]"), which is not taken. A name
// needs no dollar here: bash evaluates its value as an expression. Parentheses
// and brackets are counted together, since either may end it and both may stand
// in a subscript.
void read_arithmetic(reader &r, bash_word &word, char end)
{
  int depth = 0;
  while (!done(r)) {
    const char c = peek(r);
    if (c == end && depth == 0) {
      return;
    }
    depth += c == '(' || c == '[' ? 1 : 0;
    depth -= c == ')' || c == ']' ? 1 : 0;
    if (isdigit(static_cast<unsigned char>(c)) != 0) {
      while (is_word_char(peek(r)) || peek(r) == '#') { // 10#, 0xff
        step(r);
      }
    } else if (c == '$') {
      read_dollar(r, word, true, true);
    } else if (is_word_char(c)) {
      bash_expansion expansion;
      expansion.arithmetic = true;
      // A number is not split into words.
      expansion.quoted = true;
      expansion.line = r.line;
      expansion.column = column(r);
      while (is_word_char(peek(r))) {
        expansion.name += peek(r);
        step(r);
      }
      // It is noted only. What stands in it is read on, as its names are
      // evaluated as well.
      if (peek(r) == '[') {
        const size_t close = r.in.find(']', r.at);
        if (close != std::string::npos) {
          expansion.subscript = r.in.substr(r.at + 1, close - r.at - 1);
        }
      }
      word.expansions.push_back(expansion);
    } else {
      step(r);
    }
  }
}

// "${a:-${a:-..." and "$((" without end come from a damaged file, and each
// level is a call.
// ${...}; false where it is too deep.
static bool read_braced(reader &r, bash_word &word, bash_expansion &expansion)
{
  step(r, 2);
  if (r.depth == DEPTH_MAX) {
    return false;
  }
  // In front of those in its subscript or default: the first of a word is what
  // the word is.
  const size_t place = word.expansions.size();
  r.depth++;
  read_braces(r, word, expansion);
  r.depth--;
  for (size_t i = place; i < word.expansions.size(); i++) {
    word.expansions[i].based |= expansion.based; // 10#${x:-$y}
  }
  word.expansions.insert(
      word.expansions.begin() + static_cast<std::ptrdiff_t>(place), expansion);
  return true;
}

// Anything that begins with "$". The text of the expansion goes to `plain` as
// it is written, so that "port$i" can be told from "port"; what was read inside
// of it for other reasons is taken away again.
void read_dollar(reader &r, bash_word &word, bool quoted, bool arithmetic)
{
  const size_t start = r.at;
  const size_t plain = word.plain.size();
  bash_expansion expansion;
  expansion.quoted = quoted;
  expansion.arithmetic = arithmetic;
  expansion.based = is_based(r);
  expansion.line = r.line;
  expansion.column = column(r);
  const char next = peek(r, 1);
  const bool is_old = next == '['; // $[x], which bash still evaluates
  if (is_old || (next == '(' && peek(r, 2) == '(')) {
    step(r, is_old ? 2 : 3);
    if (r.depth == DEPTH_MAX) {
      return;
    }
    r.depth++;
    read_arithmetic(r, word, is_old ? ']' : ')');
    r.depth--;
    step(r, is_old ? 1 : 2);
  } else if (next == '(') {
    step(r);
    read_substitution(r);
  } else if (next == '{') {
    if (!read_braced(r, word, expansion)) {
      return;
    }
  } else if (next == '\'' && !quoted) {
    read_ansi(r, word);
    return;
  } else if (next == '"' && !quoted) {
    step(r); // $"..." is only translated: it is read as "..."
    return;
  } else if (is_word_char(next)) {
    step(r);
    do {
      expansion.name += peek(r);
      step(r);
    } while (isdigit(static_cast<unsigned char>(next)) == 0 && // $10 is ${1}0
             is_word_char(peek(r)));
    word.expansions.push_back(expansion);
  } else if (next != '\0' && strchr("@*#?$!-", next) != nullptr) {
    expansion.name = next;
    step(r, 2);
    word.expansions.push_back(expansion);
  } else {
    step(r);
  }
  word.plain.resize(plain); // text within the expansion was added as well
  word.plain += r.in.substr(start, r.at - start);
}

} // namespace bash_reading
