// Small operations on text.

#ifndef LINT_TEXT_H
#define LINT_TEXT_H

#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// What some editors put in front of a file.
constexpr char BYTE_ORDER_MARK[] = "\xef\xbb\xbf";

// What the rules do most: to compare a text with a word of the program. Another
// length settles it here; the library's own compares the letters first, by a
// call that nothing is known of.
inline bool operator==(const std::string &text, const char *word)
{
  const size_t length = strlen(word);
  return text.size() == length && memcmp(text.data(), word, length) == 0;
}
inline bool operator!=(const std::string &text, const char *word)
{
  return !(text == word);
}

// Words that stand in the program, asked for each command of each script.  Most
// of what is asked for has another length or beginning than all of them, which
// is seen without comparing.
class word_set
{
public:
  word_set(std::initializer_list<std::string_view> words);
  size_t count(std::string_view word) const
  {
    return (lengths & bit(word.size())) != 0 &&
                   (starts & first_bit(word)) != 0 && holds(word)
               ? 1
               : 0;
  }

private:
  static uint64_t bit(size_t number)
  {
    return uint64_t{1} << (number & 63);
  }
  static uint64_t first_bit(std::string_view word)
  {
    return word.empty() ? 1 : bit(static_cast<unsigned char>(word[0]));
  }
  bool holds(std::string_view word) const;

  std::vector<std::string_view> sorted;
  uint64_t lengths = 0;
  uint64_t starts = 0;
};

std::vector<std::string> split_lines(const std::string &text);
// At blanks and tabs.
std::vector<std::string> split_words(const std::string &text);
std::string first_word(const std::string &text);
std::string lower(std::string text);
bool starts_with(std::string_view text, std::string_view start);
bool ends_with(std::string_view text, std::string_view end);
bool is_name_char(char c);
bool is_utf8(const std::string &text);
std::string in_quotes(const std::string &text);
// The one of `words` that `word` was most likely meant to be, or "".
std::string nearest(const std::string &word,
                    const std::set<std::string> &words);
// ` (did you mean "x"?)`, or "" when nothing is near.
std::string did_you_mean(const std::string &word,
                         const std::set<std::string> &words);
// Whether a name is that of a secret; a row's number, or the "%d" or "#" in
// its place, is left aside.
bool is_secret(const std::string &name);

#endif
