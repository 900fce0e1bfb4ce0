// How the shell reads a command line, told once more and in another way than
// the program does: from its start, for one place at a time.

#ifndef SHELL_H
#define SHELL_H

#include <algorithm>
#include <string>
#include <string_view>

// What is open behind a text: a quote, nothing ('\0'), or one of these, where
// only words that mean nothing to the shell may stand.
constexpr char PLACE_COMPLEX = 'c'; // a construct that needs a real parser
constexpr char PLACE_NUMBER = 'n';  // the same, and a name may be evaluated

constexpr std::string_view DIGITS = "0123456789";
constexpr std::string_view PLAIN = "0123456789abcdefghijklmnopqrstuvwxyz"
                                   "ABCDEFGHIJKLMNOPQRSTUVWXYZ_./:@%+,=-";
constexpr std::string_view NAME = "0123456789abcdefghijklmnopqrstuvwxyz"
                                  "ABCDEFGHIJKLMNOPQRSTUVWXYZ_";

inline bool shell_has(std::string_view set, char c)
{
  return c != '\0' && set.find(c) != std::string_view::npos;
}

// The place behind a complex construct: whether ((, a subscript, a parameter's
// name or its offset as in ${name:1} may be open in it.
inline char complex_place(std::string_view text)
{
  bool number = text.find("((") != text.npos || text.find('[') != text.npos;
  for (size_t at = text.find("${"); at < text.size();
       at = text.find("${", at + 1)) {
    size_t end = text.find_first_not_of("!#@*?$-", at + 2);
    end = text.find_first_not_of(NAME, end);
    end += end < text.size() && shell_has("@*", text[end]) ? 1 : 0;
    number |= end >= text.size() ||
              (text[end] == ':' &&
               (end + 1 == text.size() || !shell_has("-=?+", text[end + 1])));
  }
  return number ? PLACE_NUMBER : PLACE_COMPLEX;
}

// The length of what begins `rest` and is done with at once: a here-string's
// mark, or the "2>&1" that a separator follows.
inline size_t known_operator(std::string_view rest)
{
  if (rest.substr(0, 3) == "<<<") {
    return 3;
  }
  const size_t end = rest.find_first_not_of("0123456789-", 2);
  return rest.substr(1, 1) == "&" && shell_has("<>", rest[0]) && end > 2 &&
                 end < rest.size() && shell_has(" \t;|&)", rest[end])
             ? end
             : 0;
}

// Whether `rest`, outside of quotes, begins what the scan may not follow.
inline bool begins_complex(std::string_view rest, bool in_word)
{
  const char next = rest.size() > 1 ? rest[1] : '\0';
  return (rest[0] == '$' && next == '\'') || (rest[0] == '#' && !in_word) ||
         (rest[0] == '[' && in_word) ||
         (rest[0] == '(' && (in_word || next == '(')) ||
         (shell_has("<>", rest[0]) && shell_has("(&", next)) ||
         (rest[0] == '<' && next == '<');
}

inline char shell_place_behind(std::string_view before)
{
  char quote = '\0';
  bool in_word = false;
  for (size_t i = 0; i < before.size(); i++) {
    const std::string_view rest = before.substr(i);
    const char next = rest.size() > 1 ? rest[1] : '\0';
    const char c = rest[0];
    if (quote == '\'') {
      quote = c == '\'' ? '\0' : quote;
    } else if (shell_has("\\$", c) && next == '\0') {
      return PLACE_COMPLEX;
    } else if (c == '`' || (c == '$' && shell_has("({[", next))) {
      return complex_place(rest);
    } else if (c == '\\' || quote == '"') {
      quote = c == '"' ? '\0' : quote;
      i += c == '\\' ? 1 : 0;
    } else if (known_operator(rest) > 0) {
      i += known_operator(rest) - 1;
    } else if (begins_complex(rest, in_word)) {
      return complex_place(rest);
    } else if (shell_has("'\"", c)) {
      quote = c;
    }
    in_word = quote != '\0' || !shell_has(" \t\n;&|()<>", c);
  }
  return quote;
}

// What `text`, standing where `outer` is open, is after quote removal.  False
// when the shell would act on a part of it or it leaves another quote open.
inline bool shell_value(std::string_view text, char outer, std::string *value)
{
  char quote = outer;
  for (size_t i = 0; i < text.size(); i++) {
    const std::string_view rest = text.substr(i);
    if (quote == '\0' && rest.substr(0, 2) == "$'") {
      quote = '$';
      i++;
    } else if (quote != '\0' && rest[0] == (quote == '$' ? '\'' : quote)) {
      quote = '\0';
    } else if (quote == '\0' && shell_has("'\"", rest[0])) {
      quote = rest[0];
    } else if (quote == '$' && rest[0] == '\\' && rest.size() > 3 &&
               shell_has("0123", rest[1])) {
      const std::string number(rest.substr(1, 3));
      *value += static_cast<char>(std::stoi(number, nullptr, 8));
      i += 3;
    } else if (shell_has(quote == '"'    ? "$`\\"
                         : quote == '\0' ? " \t\n\r|&;()<>$`*?[]{}~!#^"
                                         : "",
                         rest[0])) {
      return false;
    } else {
      i += quote != '\'' && rest[0] == '\\' ? 1 : 0;
      *value += i < text.size() ? text[i] : '\0';
    }
  }
  return quote == outer;
}

// Whether `written`, standing behind `before`, hands the script `value`.
inline bool shell_reads(std::string_view written, std::string_view value,
                        std::string_view before)
{
  const char place = shell_place_behind(before);
  std::string read;
  if (place != PLACE_COMPLEX && place != PLACE_NUMBER) {
    return shell_value(written, place, &read) && read == value;
  }
  const bool harmless = std::all_of(value.begin(), value.end(), [&](char c) {
    return place == PLACE_NUMBER ? shell_has(DIGITS, c)
                                 : c < 0 || shell_has(PLAIN, c);
  });
  return harmless && written == value;
}

#endif
