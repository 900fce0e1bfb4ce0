// Regular expressions of checks.
//
// They are scanned, not compiled: what is valid and means something else in
// other languages is looked for here. What regcomp refuses is left to whoever
// can say so; an end that is missing here is that of the text.

#include "expressions.h"

#include <string.h>

// One character of an expression that is not in brackets. In brackets "$", "|"
// and "\" are characters like others: [\d] is a backslash or a d. So nothing of
// what stands there can be one of these faults.
struct expression_part {
  size_t at;
  char c;
  bool escaped;
  int depth; // of the groups that it stands in
};

// A "]" directly behind "[" or "[^" is one of the characters, and [:digit:],
// [.x.] and [=x=] have a "]" of their own.
static size_t bracket_end(const std::string &text, size_t at)
{
  size_t end = at + 1;
  end += end < text.size() && text[end] == '^' ? 1 : 0;
  end += end < text.size() && text[end] == ']' ? 1 : 0;
  while (end < text.size() && text[end] != ']') {
    const size_t close = text[end] == '[' && end + 1 < text.size() &&
                                 strchr(":.=", text[end + 1]) != nullptr
                             ? text.find(']', end)
                             : end;
    end = close == std::string::npos ? text.size() : close + 1;
  }
  return end;
}

static std::vector<expression_part> parts_of(const std::string &text)
{
  std::vector<expression_part> parts;
  int depth = 0;
  for (size_t at = 0; at < text.size(); at++) {
    if (text[at] == '[') {
      at = bracket_end(text, at);
      continue;
    }
    const bool escaped = text[at] == '\\' && at + 1 < text.size();
    at += escaped ? 1 : 0;
    depth -= !escaped && text[at] == ')' ? 1 : 0;
    parts.push_back({at, text[at], escaped, depth});
    depth += !escaped && text[at] == '(' ? 1 : 0;
  }
  return parts;
}

// What other programs know and POSIX does not. glibc takes "\d" for a plain d:
// ^\d+$ lets "ddd" pass and refuses every number. It knows \w and \s, which
// POSIX does not, so that depends on the library of the device.
static expression_fault perl_class(const std::vector<expression_part> &parts)
{
  static const std::map<char, const char *> classes = {{'d', "[0-9]"},
                                                       {'D', "[^0-9]"}};
  for (const expression_part &part : parts) {
    const auto row = classes.find(part.c);
    if (part.escaped && row != classes.end()) {
      return {part.at - 1, std::string("\"\\") + part.c +
                               "\" is no class here; write " + row->second};
    }
    if (part.escaped && strchr("wWsSb", part.c) != nullptr) {
      return {part.at - 1, std::string("\"\\") + part.c +
                               "\" does not work on every device; list the "
                               "characters, as in [A-Za-z0-9_]"};
    }
  }
  return {0, ""};
}

// ^a|b$ is ^a, or b$. It lets "ax" and "xb" pass. ^a$|^b$ is meant as it
// stands; in a group, "|" ends at the group's own parentheses.
static expression_fault loose_choice(const std::string &text,
                                     const std::vector<expression_part> &parts)
{
  for (const expression_part &part : parts) {
    if (!part.escaped && part.c == '|' && part.depth == 0 &&
        (text.front() == '^' || text.back() == '$')) {
      const bool both = part.at > 0 && text[part.at - 1] == '$' &&
                        part.at + 1 < text.size() && text[part.at + 1] == '^';
      if (!both) {
        return {
            part.at,
            "^ and $ each apply to one side of \"|\" only; write ^(...|...)$"};
      }
    }
  }
  return {0, ""};
}

// Behind a "$" nothing can stand, and a tag would be replaced. In front of ")"
// or "|" it may still end the value: ^(a$|b).
static expression_fault dollar_inside(const std::string &text,
                                      const std::vector<expression_part> &parts)
{
  for (const expression_part &part : parts) {
    const char next = part.at + 1 < text.size() ? text[part.at + 1] : '\0';
    if (part.c == '$' && !part.escaped && next != '\0' &&
        strchr(")|", next) == nullptr) {
      return {part.at, "\"$\" means the end of the value, so nothing can "
                       "follow it; no value contains a \"$\""};
    }
  }
  return {0, ""};
}

expression_fault expression_fault_of(const std::string &text)
{
  const std::vector<expression_part> parts = parts_of(text);
  // One fault is enough, and the first in this order is the gravest: with \d,
  // no value that was meant passes at all.
  for (const expression_fault &fault :
       {perl_class(parts), loose_choice(text, parts),
        dollar_inside(text, parts)}) {
    if (!fault.text.empty()) {
      return fault;
    }
  }
  return {0, ""};
}
