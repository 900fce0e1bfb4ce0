// The reader of bash: lists of commands and the blocks that contain them.
//
// It accepts any text: authors lint scripts while they write them, and where
// bash would report a syntax error, the rest is read as well as possible.

#include "bash.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <map>

#include "bash_reader.h"

#include "text.h"

namespace bash_reading
{

// [[ ... ]], after the "[[". Line ends, && and || do not end it, unlike a
// command. So a comment may stand in it as well.
static void read_test(reader &r, list &l)
{
  l.current.kind = BASH_TEST;
  for (;;) {
    skip_space(r);
    if (done(r)) {
      return;
    }
    const bash_word word = read_word(r, true);
    if (word.text == "]]") {
      return;
    }
    if (word.text.empty()) {
      step(r); // no word begins here: without a step this would never end
    } else {
      l.current.words.push_back(word);
    }
  }
}

// Also the head of `for ((i = 0; i < n; i++))`, whose ";" ends nothing.
static void read_arithmetic_command(reader &r, list &l)
{
  bash_word word;
  word.line = r.line;
  word.column = column(r);
  step(r, 2);
  const size_t start = r.at;
  read_arithmetic(r, word, ')');
  word.text = r.in.substr(start, r.at - start);
  step(r, 2);
  l.current.kind = BASH_ARITHMETIC;
  l.current.words.push_back(word);
}

// The list of values is read like a command's words: both end at ";" or the
// line end. `for x` without "in" goes through the arguments.
static void read_for(reader &r, list &l)
{
  open_block(r, l, "for");
  skip_blanks(r);
  if (looking_at(r, "((")) {
    read_arithmetic_command(r, l);
    return;
  }
  l.current.kind = BASH_FOR;
  l.current.words.push_back(read_word(r, false));
  skip_blanks(r);
  if (looking_at(r, "in") && !is_word_char(peek(r, 2))) {
    step(r, 2);
  }
}

// The subject becomes a command of its own before the block opens, so it is the
// one directly in front of the block's first: the arms find it there.
static void read_case(reader &r, list &l)
{
  skip_blanks(r);
  l.current.kind = BASH_CASE;
  l.current.words.push_back(read_word(r, false));
  finish(r, l);
  skip_space(r);
  step(r, 2); // in
  open_block(r, l, "case");
}

// A case's pattern with its ")", or the esac. The "(" in front of it may be
// left out, and parentheses in it, as in @(a|b), are counted.
static void read_pattern(reader &r, list &l)
{
  skip_space(r);
  if (looking_at(r, "esac") && !is_word_char(peek(r, 4))) {
    step(r, 4);
    close_block(r, l);
    return;
  }
  if (peek(r) == '(') {
    step(r);
  }
  bash_word pattern;
  const int line = r.line;
  const int at_column = column(r);
  const size_t start = r.at;
  read_nested(r, pattern, '(', ')', false, false);
  block &open = l.blocks.back();
  if (open.begin > 0) {
    r.out.commands[open.begin - 1].patterns.push_back(
        r.in.substr(start, r.at - start));
  }
  const int subject = static_cast<int>(open.begin) - 1;
  open_arm(r, open,
           {outer_branch(r, open), open.group, "case", subject, false,
            r.in.substr(start, r.at - start), -1, line, at_column});
  step(r);
  open.patterns = false;
}

// Takes a word that opens, closes or joins blocks; another command may follow
// it without a separator, so it is not a command's first word. "!" is one of
// the conditions: what it turns round is a status that somebody asks for. A
// second one turns it back.
static bool read_reserved(reader &r, list &l, const std::string &word)
{
  static const word_set skipped = {"then", "else", "do", "time", "coproc"};
  static const word_set conditions = {"if", "elif", "while", "until", "!"};
  static const word_set openers = {"if", "while", "until", "{"};
  static const word_set closers = {"fi", "done", "}", "esac"};
  if (skipped.count(word) + conditions.count(word) + openers.count(word) +
          closers.count(word) ==
      0) {
    return false;
  }
  step(r, word.size());
  l.condition |= conditions.count(word) != 0;
  l.negated ^= word == "!";
  read_arm(r, l, word);
  if (openers.count(word) != 0) {
    open_block(r, l, word);
  } else if (closers.count(word) != 0) {
    close_block(r, l);
  }
  return true;
}

// Takes a word that is followed by syntax of its own. The word itself is none
// of the command's, but a finding about the command has to point at it.
static bool read_compound(reader &r, list &l, const std::string &word)
{
  static const std::map<std::string, void (*)(reader &, list &)> parts = {
      {"for", read_for},
      {"select", read_for},
      {"case", read_case},
      {"[[", read_test}};
  const auto part = parts.find(word);
  if (part == parts.end()) {
    return false;
  }
  l.current.line = r.line;
  l.current.column = column(r);
  step(r, word.size());
  part->second(r, l);
  return true;
}

// Takes the head of a function: "function NAME" or "NAME ()". The body may be
// any compound command, and is opened when it comes.
static bool read_function(reader &r, const std::string &word, size_t end)
{
  if (word == "function") {
    step(r, word.size());
    skip_blanks(r);
    r.next_function = read_word(r, false).plain;
    skip_blanks(r);
    step(r, looking_at(r, "()") ? 2 : 0);
  } else {
    // Blanks may stand in front of the "()"; with anything else there, the name
    // is the first word of a command.
    const size_t behind = r.in.find_first_not_of(' ', end);
    if (word.empty() || behind == std::string::npos ||
        r.in.compare(behind, 2, "()") != 0) {
      return false;
    }
    step(r, behind + 2 - r.at);
    r.next_function = word;
  }
  r.out.functions.insert(r.next_function);
  return true;
}

// Acts on a word that is a keyword at the start of a command; false when it is
// not. Elsewhere the same word is an argument: echo done. Names of functions
// may have a dash or a full stop, so these belong to the word: done.sh is no
// keyword, and neither is if=1.
static bool read_keyword(reader &r, list &l)
{
  size_t end = r.at;
  while (end < r.in.size() &&
         (is_word_char(r.in[end]) || strchr("{}![]-.", r.in[end]) != nullptr)) {
    end++;
  }
  if (end < r.in.size() && !ends_word(r.in[end])) {
    return false;
  }
  const std::string word = r.in.substr(r.at, end - r.at);
  return read_reserved(r, l, word) || read_compound(r, l, word) ||
         read_function(r, word, end);
}

// Behind an assignment or a redirection bash takes no keyword: x=1 if is a
// command called if.
static bool at_start(const list &l)
{
  return l.current.kind == BASH_SIMPLE && l.current.words.empty() &&
         l.current.assignments.empty() && l.current.redirects.empty();
}

// Acts on an operator that ends a command. False when there is none. A
// here-document is skipped at the line end, and its text never comes here.
static bool read_operator(reader &r, list &l)
{
  if (looking_at(r, ";;") || looking_at(r, ";&")) {
    step(r, looking_at(r, ";;&") ? 3 : 2);
    finish(r, l);
    if (!l.blocks.empty() && l.blocks.back().kind == "case") {
      l.blocks.back().patterns = true;
      r.branch = outer_branch(r, l.blocks.back());
    }
    return true;
  }
  const char c = peek(r);
  if (looking_at(r, "&&") || looking_at(r, "||")) {
    const std::string join = r.in.substr(r.at, 2);
    step(r, 2);
    l.current.condition = true; // its status decides on the next command
    finish(r, l);
    l.join = join;
    l.previous = last_command(r);
    return true;
  }
  if (c == '|') {
    step(r, looking_at(r, "|&") ? 2 : 1);
    l.current.piped = true;
    finish(r, l);
    // The next command is not there yet, so the list keeps it for that one.
    l.piped_in = true;
    return true;
  }
  if (c == '&' || c == ';' || c == '\n') {
    step(r);
    l.current.background = c == '&';
    finish(r, l);
    if (c == '\n') {
      skip_documents(r); // they begin on the next line, whatever followed "<<"
    }
    return true;
  }
  return false;
}

// Reads the next word of the current command, which may be its first.
static void read_command_word(reader &r, list &l)
{
  const size_t before = r.at;
  const bash_word word = read_word(r, false);
  // No word begins here, and without a step this would never end.
  if (r.at == before) {
    step(r);
    return;
  }
  if (l.current.words.empty() && l.current.assignments.empty()) {
    l.current.line = word.line;
    l.current.column = word.column;
  }
  l.current.words.push_back(word);
}

// Reads the next part of the list; false at its end. The order matters:
// patterns of a case look like anything else, "&>" begins as "&" does, and a
// keyword or NAME=VALUE is one only where no word of the command stands before
// it.
static bool read_part(reader &r, list &l)
{
  if (at_start(l) && !l.blocks.empty() && l.blocks.back().patterns) {
    // At the end of the text no pattern comes any more, and the list has to end
    // as well.
    if (!done(r)) {
      read_pattern(r, l);
      return true;
    }
  }
  skip_blanks(r);
  if (done(r)) {
    return false;
  }
  const char c = peek(r);
  if (c == '#') {
    skip_comment(r);
    return true;
  }
  if (c == ')') {
    step(r); // of a subshell, or of the substitution that this list is in
    if (l.blocks.empty() || l.blocks.back().kind != "(") {
      return l.closer != ')';
    }
    close_block(r, l);
    return true;
  }
  if (read_redirect(r, l) || read_operator(r, l)) {
    return true;
  }
  if (at_start(l)) {
    if (looking_at(r, "((")) {
      l.current.line = r.line;
      read_arithmetic_command(r, l);
      return true;
    }
    if (c == '(') {
      step(r);
      open_block(r, l, "(");
      return true;
    }
    if (read_keyword(r, l)) {
      return true;
    }
  }
  if (takes_assignments(l.current) && read_assignment(r, l)) {
    return true;
  }
  read_command_word(r, l);
  return true;
}

// A block that the closer ends as well is kept as open, to be reported.
void read_list(reader &r, char closer)
{
  list l;
  l.closer = closer;
  while (read_part(r, l)) {
  }
  finish(r, l);
  for (const block &open : l.blocks) {
    r.out.open.push_back({open.kind, open.line});
  }
}

} // namespace bash_reading

using namespace bash_reading;

// A ")" too many ends a list, and what follows is read as another one.
static void mark_deciding(bash_script *out, int command)
{
  if (command >= 0) {
    out->commands[static_cast<size_t>(command)].decides = true;
  }
}

bash_script read_bash(const std::string &text)
{
  bash_script out;
  out.code = text;
  reader r = {text, out};
  while (!done(r)) {
    read_list(r, '\0');
  }
  for (const bash_branch &branch : out.branches) {
    mark_deciding(&out, branch.test);
  }
  for (const bash_command &command : out.commands) {
    mark_deciding(&out, command.previous);
  }
  return out;
}
