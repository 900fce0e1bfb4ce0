// Words of bash, the text between them, and words with a syntax of their own:
// assignments, arrays and redirections.

#include "bash_reader.h"
#include "text.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>

namespace bash_reading
{

// The end of the text ends a word, too: strchr finds its NUL.
bool ends_word(char c)
{
  return strchr(" \t\n;&|()<>", c) != nullptr;
}

// One word, empty when there is none. Inside [[ ]] fewer characters end it:
// "(", "|" and "<" are operators or part of a regular expression there. In
// [[ $x =~ (a|b) ]] they belong to the word. The "]]" itself ends at ";" or ")"
// like any other.
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
      // With the option extglob, @( and the like begin a pattern.
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
      if (peek(r) != '\n') { // a line end after "\" disappears
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

// Blanks it out in the copy of the code, so that rules which search that find
// nothing in comments. Blanks take its place, so that lines and columns of the
// rest stay.
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
      skip_documents(r);
    }
    skip_blanks(r);
  }
}

// Here-documents are data, even if they look like commands. Their text is kept
// apart: it may hold lines for the page. Several of one line follow each other
// in the order of their marks.
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
      // The mark counts without its quotes. They decide on expansions alone,
      // and the text is not looked at for these.
      if (text == document.end) {
        break;
      }
      r.out.documents.back().push_back({text, text, number, 1, {}});
    }
  }
  r.documents.clear();
}

// Line ends and comments separate elements like blanks. [key]=value is a word
// as well.
static void read_array(reader &r, bash_assignment &assignment)
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

// Takes NAME=..., NAME+=... or NAME[...]=... if there is one. Brackets in the
// subscript are counted, since it may contain another: a[b[0]]=1. Until the "="
// is found nothing is taken: port[0] without one is a pattern, and mtu a
// command.
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
    assignment.appends = true;
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
  // An array has no value of its own, and findings need a place.
  if (assignment.value.line == 0) {
    assignment.value.line = start_line;
    assignment.value.column = start_column;
  }
  l.current.assignments.push_back(assignment);
  return true;
}

// After any other command NAME=VALUE is an argument. These builtins are read by
// bash itself in the same way: local x=$1 is not split into words.
bool takes_assignments(const bash_command &command)
{
  static const word_set words = {"declare", "local", "export", "readonly",
                                 "typeset"};
  return command.words.empty() || words.count(command.words[0].plain) != 0;
}

// Reads a redirection if there is one. Digits are its descriptor only directly
// before it: "echo 2 >f" prints the 2. Also of an operator that only follows
// digits or "&": &>file is one, and 2& is not.
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
      break; // the target of <&- or >&-; only "<<-" is an operator
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

} // namespace bash_reading
