// The reader of bash: lists of commands and the blocks that they stand in.

#include "bash.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <map>

#include "bash_reader.h"

namespace bash_reading
{

// The end of the current command.
static void finish(reader &r, list &l)
{
  bash_command &command = l.current;
  if (!command.words.empty() || !command.assignments.empty() ||
      !command.redirects.empty() || command.kind != BASH_SIMPLE) {
    command.function = r.function;
    command.substitution = r.substitution;
    command.condition |= l.condition;
    command.piped_in |= l.piped_in;
    for (const bash_redirect &redirect : command.redirects) {
      command.redirected_in |= redirect.op[0] == '<';
      command.redirected_out |= redirect.op.find('>') != std::string::npos;
    }
    r.out.commands.push_back(command);
    l.condition = false;
    l.piped_in = false;
  }
  l.current = bash_command();
}

// The redirections behind a compound command are those of all in it.
static void finish_block(reader &r, list &l, const block &closed)
{
  bash_command &tail = l.current;
  tail.kind = BASH_BLOCK;
  tail.line = r.line;
  tail.column = column(r);
  for (;;) {
    skip_blanks(r);
    const size_t before = r.at;
    while (isdigit(static_cast<unsigned char>(peek(r))) != 0) {
      step(r);
    }
    if (peek(r) != '<' && peek(r) != '>' &&
        !(peek(r) == '&' && peek(r, 1) == '>')) {
      r.at = before;
      break;
    }
    bash_redirect redirect;
    while (peek(r) != '\0' && strchr("<>&|", peek(r)) != nullptr) {
      redirect.op += peek(r);
      step(r);
    }
    skip_blanks(r);
    redirect.target = read_word(r, false);
    tail.redirects.push_back(redirect);
    if (redirect.op == "<<" || redirect.op == "<<-") {
      r.documents.push_back({redirect.target.plain, redirect.op == "<<-"});
    }
  }
  const bool piped = peek(r) == '|' && peek(r, 1) != '|';
  bool in = closed.piped_in;
  bool out = false;
  for (const bash_redirect &redirect : tail.redirects) {
    in |= redirect.op[0] == '<';
    out |= redirect.op.find('>') != std::string::npos;
  }
  for (size_t i = closed.begin; i < r.out.commands.size(); i++) {
    r.out.commands[i].redirected_in |= in;
    r.out.commands[i].redirected_out |= out;
    r.out.commands[i].piped |= piped;
  }
}

// A function's name holds for the block that follows it.
static void open_block(reader &r, list &l, const std::string &kind)
{
  l.blocks.push_back({kind, r.out.commands.size(), r.function, l.piped_in,
                      kind == "case", r.line});
  l.piped_in = false;
  if ((kind == "{" || kind == "(") && !r.next_function.empty()) {
    r.function = r.next_function;
    r.next_function.clear();
  }
}

static void close_block(reader &r, list &l)
{
  finish(r, l);
  if (l.blocks.empty()) {
    return;
  }
  const block closed = l.blocks.back();
  l.blocks.pop_back();
  r.function = closed.function_before;
  finish_block(r, l, closed);
}

// [[ ... ]], the "[[" taken.
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
      step(r);
    } else {
      l.current.words.push_back(word);
    }
  }
}

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

// The words are read as those of a command, up to its line's end.
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

// A case's pattern with its ")", or its esac.
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
  const size_t start = r.at;
  read_nested(r, pattern, '(', ')', false, false);
  block &open = l.blocks.back();
  if (open.begin > 0) {
    r.out.commands[open.begin - 1].patterns.push_back(
        r.in.substr(start, r.at - start));
  }
  step(r);
  open.patterns = false;
}

// Takes a word that opens, closes or joins blocks and has nothing behind it.
static bool read_reserved(reader &r, list &l, const std::string &word)
{
  static const std::set<std::string> skipped = {"then", "else", "do", "time",
                                                "coproc"};
  static const std::set<std::string> conditions = {"if", "elif", "while",
                                                   "until", "!"};
  static const std::set<std::string> openers = {"if", "while", "until", "{"};
  static const std::set<std::string> closers = {"fi", "done", "}", "esac"};
  if (skipped.count(word) + conditions.count(word) + openers.count(word) +
          closers.count(word) ==
      0) {
    return false;
  }
  step(r, word.size());
  l.condition |= conditions.count(word) != 0;
  if (openers.count(word) != 0) {
    open_block(r, l, word);
  } else if (closers.count(word) != 0) {
    close_block(r, l);
  }
  return true;
}

// Takes a word that has a part of its own behind it.
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

// Takes the head of a function: "function NAME" or "NAME ()".
static bool read_function(reader &r, const std::string &word, size_t end)
{
  if (word == "function") {
    step(r, word.size());
    skip_blanks(r);
    r.next_function = read_word(r, false).plain;
    skip_blanks(r);
    step(r, looking_at(r, "()") ? 2 : 0);
  } else {
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

// Acts on a word that means something at the start of a command; false when
// it does not.
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

static bool at_start(const list &l)
{
  return l.current.kind == BASH_SIMPLE && l.current.words.empty() &&
         l.current.assignments.empty() && l.current.redirects.empty();
}

// Acts on an operator that ends a command.  False when none comes.
static bool read_operator(reader &r, list &l)
{
  if (looking_at(r, ";;") || looking_at(r, ";&")) {
    step(r, looking_at(r, ";;&") ? 3 : 2);
    finish(r, l);
    if (!l.blocks.empty() && l.blocks.back().kind == "case") {
      l.blocks.back().patterns = true;
    }
    return true;
  }
  const char c = peek(r);
  if (looking_at(r, "&&") || looking_at(r, "||")) {
    step(r, 2);
    l.current.condition = true;
    finish(r, l);
    return true;
  }
  if (c == '|') {
    step(r, looking_at(r, "|&") ? 2 : 1);
    l.current.piped = true;
    finish(r, l);
    l.piped_in = true;
    return true;
  }
  if (c == '&' || c == ';' || c == '\n') {
    step(r);
    l.current.background = c == '&';
    finish(r, l);
    if (c == '\n') {
      skip_documents(r);
    }
    return true;
  }
  return false;
}

// Reads the next part of the list; false at its end.
static bool read_part(reader &r, list &l)
{
  if (at_start(l) && !l.blocks.empty() && l.blocks.back().patterns) {
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
    step(r);
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
  const size_t before = r.at;
  const bash_word word = read_word(r, false);
  if (r.at == before) {
    step(r);
    return true;
  }
  if (l.current.words.empty() && l.current.assignments.empty()) {
    l.current.line = word.line;
    l.current.column = word.column;
  }
  l.current.words.push_back(word);
  return true;
}

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

bash_script read_bash(const std::string &text)
{
  bash_script out;
  out.code = text;
  reader r = {text, out, 0, 1, 0, "", "", 0, 0, {}};
  while (!done(r)) {
    read_list(r, '\0');
  }
  return out;
}
