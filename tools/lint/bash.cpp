// The reader of bash.  One recursive pass over the text: lists of commands, of
// words, of what is expanded in them.

#include "bash.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <cstddef>
#include <map>

namespace
{

struct block {
  std::string kind; // the word that opened it
  size_t begin;     // of its commands
  std::string function_before;
  bool piped_in;
  bool patterns; // of a case: a pattern comes next
  int line;
};

struct here_document {
  std::string end;
  bool strip_tabs;
};

struct reader {
  const std::string &in;
  bash_script &out;
  size_t at = 0;
  int line = 1;
  size_t line_start = 0;
  std::string function;
  std::string next_function; // whose block comes next
  int substitution = 0;
  int depth = 0; // of what is opened by "$", "<(" and ">("
  std::vector<here_document> documents;
};

// Nobody writes deeper than this; a file that does must not use up the stack.
constexpr int DEPTH_MAX = 200;

// The list of commands being read.
struct list {
  std::vector<block> blocks;
  bash_command current;
  bool condition = false; // the next command decides on something
  bool piped_in = false;
  char closer; // ends the list, '\0': the end of the text does
};

bool done(const reader &r)
{
  return r.at >= r.in.size();
}

char peek(const reader &r, size_t ahead = 0)
{
  return r.at + ahead < r.in.size() ? r.in[r.at + ahead] : '\0';
}

bool looking_at(const reader &r, const char *text)
{
  return r.in.compare(r.at, strlen(text), text) == 0;
}

// All reading goes through here, so that lines are counted once.
void step(reader &r, size_t count = 1)
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

void read_list(reader &r, char closer);
void read_dollar(reader &r, bash_word &word, bool quoted, bool arithmetic);

// A process or command substitution whose "(" comes next.
void read_substitution(reader &r)
{
  step(r);
  if (r.depth == DEPTH_MAX) {
    return;
  }
  r.depth++;
  r.substitution++;
  read_list(r, ')');
  r.substitution--;
  r.depth--;
}

// Moves a word that was read by itself to its place in the script.
void move_word(bash_word &word, int lines, int columns)
{
  word.column += word.line == 1 ? columns : 0;
  word.line += lines;
  for (bash_expansion &expansion : word.expansions) {
    expansion.column += expansion.line == 1 ? columns : 0;
    expansion.line += lines;
  }
}

// Read as a script of its own: a backslash means less in there.
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
    command.substitution++;
    command.function = r.function;
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

// $'...'
void read_ansi(reader &r, bash_word &word)
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

// Expansions in it are quoted, whatever stands in them.
void read_double(reader &r, bash_word &word)
{
  step(r);
  while (!done(r) && peek(r) != '"') {
    if (peek(r) == '\\') {
      step(r);
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

// Text of any kind up to an unquoted `end`; what is opened in it is closed.
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

// ${...}, the "${" taken.
void read_braces(reader &r, bash_word &word, bash_expansion &expansion)
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
  const size_t start = r.at;
  read_nested(r, word, '{', '}', expansion.quoted, false);
  expansion.rest = r.in.substr(start, r.at - start);
  step(r);
  // ${!name[@]} and ${!name*} list names, and evaluate none.
  if (expansion.subscript == "@" || expansion.subscript == "*" ||
      expansion.rest == "*" || expansion.rest == "@") {
    expansion.indirect = false;
  }
}

// A number such as 10#, 0x or 42.  Whether what follows belongs to it.
bool read_number(reader &r)
{
  const size_t start = r.at;
  while (is_word_char(peek(r)) || peek(r) == '#') {
    step(r);
  }
  const std::string number = r.in.substr(start, r.at - start);
  return number.back() == '#' || number == "0x" || number == "0X";
}

// Arithmetic up to the unquoted `end` (")" or "]"), which is left.
void read_arithmetic(reader &r, bash_word &word, char end)
{
  int depth = 0;
  bool based = false;
  while (!done(r)) {
    const char c = peek(r);
    if (c == end && depth == 0) {
      return;
    }
    depth += c == '(' || c == '[' ? 1 : 0;
    depth -= c == ')' || c == ']' ? 1 : 0;
    if (isdigit(static_cast<unsigned char>(c)) != 0) {
      based = read_number(r);
      continue;
    }
    if (c == '$') {
      const size_t first = word.expansions.size();
      read_dollar(r, word, true, true);
      for (size_t i = first; i < word.expansions.size(); i++) {
        word.expansions[i].based = based;
      }
    } else if (is_word_char(c)) {
      bash_expansion expansion;
      expansion.arithmetic = true;
      expansion.quoted = true;
      expansion.line = r.line;
      expansion.column = column(r);
      while (is_word_char(peek(r))) {
        expansion.name += peek(r);
        step(r);
      }
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
    based = false;
  }
}

// What begins with "$".
void read_dollar(reader &r, bash_word &word, bool quoted, bool arithmetic)
{
  const size_t start = r.at;
  bash_expansion expansion;
  expansion.quoted = quoted;
  expansion.arithmetic = arithmetic;
  expansion.line = r.line;
  expansion.column = column(r);
  const char next = peek(r, 1);
  if (next == '(' && peek(r, 2) == '(') {
    step(r, 3);
    if (r.depth == DEPTH_MAX) {
      return;
    }
    r.depth++;
    read_arithmetic(r, word, ')');
    r.depth--;
    step(r, 2);
  } else if (next == '(') {
    step(r);
    read_substitution(r);
  } else if (next == '{') {
    step(r, 2);
    if (r.depth == DEPTH_MAX) {
      return;
    }
    const size_t place = word.expansions.size();
    r.depth++;
    read_braces(r, word, expansion);
    r.depth--;
    word.expansions.insert(word.expansions.begin() +
                               static_cast<std::ptrdiff_t>(place),
                           expansion);
  } else if (next == '\'' && !quoted) {
    read_ansi(r, word);
    return;
  } else if (next == '"' && !quoted) {
    step(r);
    return;
  } else if (is_word_char(next)) {
    step(r);
    do {
      expansion.name += peek(r);
      step(r);
    } while (isdigit(static_cast<unsigned char>(next)) == 0 &&
             is_word_char(peek(r)));
    word.expansions.push_back(expansion);
  } else if (next != '\0' && strchr("@*#?$!-", next) != nullptr) {
    expansion.name = next;
    step(r, 2);
    word.expansions.push_back(expansion);
  } else {
    step(r);
  }
  word.plain += r.in.substr(start, r.at - start);
}

// The end of the text ends a word, too: strchr finds its NUL.
bool ends_word(char c)
{
  return strchr(" \t\n;&|()<>", c) != nullptr; // the end of the text, too
}

// One word, empty when none comes.  Inside of [[ ]] fewer characters end it.
bash_word read_word(reader &r, bool in_test)
{
  bash_word word;
  word.line = r.line;
  word.column = column(r);
  const size_t start = r.at;
  while (!done(r)) {
    const char c = peek(r);
    const bool is_process = (c == '<' || c == '>') && peek(r, 1) == '(';
    if (is_process && !in_test) {
      step(r);
      read_substitution(r);
      continue;
    }
    const bool closed = r.in.compare(start, r.at - start, "]]") == 0;
    if (in_test && !closed ? strchr(" \t\n", c) != nullptr : ends_word(c)) {
      // @( and the like are patterns.
      if (c == '(' && r.at > start && !in_test &&
          strchr("@?*+!", r.in[r.at - 1]) != nullptr) {
        step(r);
        read_nested(r, word, '(', ')', false, false);
        step(r);
        continue;
      }
      break;
    }
    if (c == '\\') {
      step(r);
      if (peek(r) != '\n') {
        word.plain += peek(r);
      }
      step(r);
    } else if (c == '\'') {
      read_single(r, word);
    } else if (c == '"') {
      read_double(r, word);
    } else if (c == '$') {
      read_dollar(r, word, false, false);
    } else if (c == '`') {
      read_backticks(r);
    } else {
      word.plain += c;
      step(r);
    }
  }
  word.text = r.in.substr(start, r.at - start);
  return word;
}

void skip_comment(reader &r)
{
  while (!done(r) && peek(r) != '\n') {
    r.out.code[r.at] = ' ';
    step(r);
  }
}

void skip_blanks(reader &r)
{
  while (peek(r) == ' ' || peek(r) == '\t' ||
         (peek(r) == '\\' && peek(r, 1) == '\n')) {
    step(r, peek(r) == '\\' ? 2 : 1);
  }
}

// Blanks, line ends and comments.
void skip_space(reader &r)
{
  skip_blanks(r);
  while (!done(r) && (peek(r) == '\n' || peek(r) == '#')) {
    if (peek(r) == '#') {
      skip_comment(r);
    } else {
      step(r);
    }
    skip_blanks(r);
  }
}

// The text of here-documents is data, whatever it looks like.
void skip_documents(reader &r)
{
  for (const here_document &document : r.documents) {
    r.out.documents.emplace_back();
    while (!done(r)) {
      const size_t end = std::min(r.in.find('\n', r.at), r.in.size());
      std::string text = r.in.substr(r.at, end - r.at);
      const int number = r.line;
      step(r, text.size() + 1);
      if (document.strip_tabs) {
        text.erase(0, text.find_first_not_of('\t'));
      }
      if (text == document.end) {
        break;
      }
      r.out.documents.back().push_back({text, text, number, 1, {}});
    }
  }
  r.documents.clear();
}

// The end of the current command.
void finish(reader &r, list &l)
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
void finish_block(reader &r, list &l, const block &closed)
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
void open_block(reader &r, list &l, const std::string &kind)
{
  l.blocks.push_back({kind, r.out.commands.size(), r.function, l.piped_in,
                      kind == "case", r.line});
  l.piped_in = false;
  if ((kind == "{" || kind == "(") && !r.next_function.empty()) {
    r.function = r.next_function;
    r.next_function.clear();
  }
}

void close_block(reader &r, list &l)
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

void read_array(reader &r, bash_assignment &assignment)
{
  step(r);
  for (;;) {
    skip_space(r);
    if (done(r) || peek(r) == ')') {
      break;
    }
    const size_t before = r.at;
    assignment.elements.push_back(read_word(r, false));
    if (r.at == before) {
      step(r);
    }
  }
  step(r);
}

// Takes NAME=..., NAME+=... or NAME[...]=... where one comes.
bool read_assignment(reader &r, list &l)
{
  size_t end = r.at;
  while (end < r.in.size() && is_word_char(r.in[end])) {
    end++;
  }
  const std::string name = r.in.substr(r.at, end - r.at);
  if (!is_name(name)) {
    return false;
  }
  bash_assignment assignment;
  assignment.name = name;
  if (end < r.in.size() && r.in[end] == '[') {
    int depth = 0;
    const size_t start = end + 1;
    while (end < r.in.size() && r.in[end] != '\n') {
      depth += r.in[end] == '[' ? 1 : 0;
      depth -= r.in[end] == ']' ? 1 : 0;
      end++;
      if (depth == 0) {
        break;
      }
    }
    assignment.subscript = r.in.substr(start, end - start - 1);
  }
  if (r.in.compare(end, 2, "+=") == 0) {
    end++;
  }
  if (end >= r.in.size() || r.in[end] != '=') {
    return false;
  }
  if (l.current.words.empty() && l.current.assignments.empty()) {
    l.current.line = r.line;
    l.current.column = column(r);
  }
  const int start_line = r.line;
  const int start_column = column(r);
  step(r, end - r.at + 1);
  if (peek(r) == '(') {
    read_array(r, assignment);
  } else {
    assignment.value = read_word(r, false);
  }
  if (assignment.value.line == 0) {
    assignment.value.line = start_line;
    assignment.value.column = start_column;
  }
  l.current.assignments.push_back(assignment);
  return true;
}

// Behind another word NAME=VALUE is an argument.
bool takes_assignments(const bash_command &command)
{
  static const std::set<std::string> words = {"declare", "local", "export",
                                              "readonly", "typeset"};
  return command.words.empty() || words.count(command.words[0].plain) != 0;
}

// Reads a redirection where one comes.
bool read_redirect(reader &r, list &l)
{
  size_t ahead = 0;
  while (isdigit(static_cast<unsigned char>(peek(r, ahead))) != 0) {
    ahead++;
  }
  const char c = peek(r, ahead);
  if (c == '&' ? ahead != 0 || peek(r, 1) != '>' : c != '<' && c != '>') {
    return false;
  }
  if (peek(r, ahead + 1) == '(' && c != '&') {
    return false; // a process substitution
  }
  step(r, ahead);
  bash_redirect redirect;
  while (!done(r) && redirect.op.size() < 3 &&
         strchr("<>&|-", peek(r)) != nullptr) {
    if (peek(r) == '-' && redirect.op != "<<") {
      break;
    }
    redirect.op += peek(r);
    step(r);
  }
  skip_blanks(r);
  redirect.target = read_word(r, false);
  if (redirect.op == "<<" || redirect.op == "<<-") {
    r.documents.push_back({redirect.target.plain, redirect.op == "<<-"});
  }
  l.current.redirects.push_back(redirect);
  return true;
}

// [[ ... ]], the "[[" taken.
void read_test(reader &r, list &l)
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

void read_arithmetic_command(reader &r, list &l)
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
void read_for(reader &r, list &l)
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

void read_case(reader &r, list &l)
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
void read_pattern(reader &r, list &l)
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
bool read_reserved(reader &r, list &l, const std::string &word)
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
bool read_compound(reader &r, list &l, const std::string &word)
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
bool read_function(reader &r, const std::string &word, size_t end)
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
bool read_keyword(reader &r, list &l)
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

bool at_start(const list &l)
{
  return l.current.kind == BASH_SIMPLE && l.current.words.empty() &&
         l.current.assignments.empty() && l.current.redirects.empty();
}

// Acts on an operator that ends a command.  False when none comes.
bool read_operator(reader &r, list &l)
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
bool read_part(reader &r, list &l)
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

} // namespace

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
