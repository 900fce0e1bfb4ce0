// Small operations on text.

#include "text.h"

#include <algorithm>
#include <ctype.h>

#include "orv_secret.h"

// A last line without its end is a line; behind the last end there is none.
word_set::word_set(std::initializer_list<std::string_view> words)
    : sorted(words)
{
  std::sort(sorted.begin(), sorted.end());
  for (const std::string_view word : words) {
    lengths |= bit(word.size());
    starts |= first_bit(word);
  }
}

bool word_set::holds(std::string_view word) const
{
  return std::binary_search(sorted.begin(), sorted.end(), word);
}

std::vector<std::string> split_lines(const std::string &text)
{
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> split_words(const std::string &text)
{
  std::vector<std::string> words;
  size_t at = 0;
  while ((at = text.find_first_not_of(" \t", at)) != std::string::npos) {
    const size_t end = std::min(text.find_first_of(" \t", at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

// tolower is not defined for a negative char, and bytes beyond ASCII are
// negative on most machines.
std::string lower(std::string text)
{
  for (char &c : text) {
    c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

bool starts_with(std::string_view text, std::string_view start)
{
  return text.compare(0, start.size(), start) == 0;
}

bool ends_with(std::string_view text, std::string_view end)
{
  return text.size() >= end.size() &&
         text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string first_word(const std::string &text)
{
  return text.substr(0, text.find_first_of(" \t"));
}

// Of variables in bash and of items alike. Nothing here sets a locale, so
// letters are those of ASCII.
bool is_name_char(char c)
{
  return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// The bytes that go on a character behind `first`, -1 when none begins so.
static int bytes_behind(unsigned char first)
{
  if (first < 0x80) {
    return 0;
  }
  // 0xc0 and 0xc1 could only begin a longer form of an ASCII character, and
  // what lies above 0xf4 is beyond U+10FFFF.
  if (first < 0xc2 || first > 0xf4) {
    return -1;
  }
  return first >= 0xf0 ? 3 : first >= 0xe0 ? 2 : 1;
}

// Whether the second byte makes a form that is too long, half of a pair, or
// beyond the last character.
static bool is_forbidden(unsigned char first, unsigned char second)
{
  return (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
         (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
}

bool is_utf8(const std::string &text)
{
  // Behind the end stands what goes on no character, so one that is cut is
  // refused.
  const auto byte = [&](size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at])
                            : static_cast<unsigned char>(0);
  };
  for (size_t at = 0; at < text.size();) {
    const unsigned char first = byte(at++);
    int more = bytes_behind(first);
    if (more < 0 || is_forbidden(first, byte(at))) {
      return false;
    }
    for (; more > 0; more--, at++) {
      if ((byte(at) & 0xc0) != 0x80) {
        return false;
      }
    }
  }
  return true;
}

std::string in_quotes(const std::string &text)
{
  return "\"" + text + "\"";
}

// Insertions, deletions, replacements and swaps that make `b` of `a`.
// Two letters that were swapped are one slip for who types, so they count once.
static size_t distance(const std::string &a, const std::string &b)
{
  std::vector<std::vector<size_t>> d(a.size() + 1,
                                     std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); i++) {
    for (size_t j = 0; j <= b.size(); j++) {
      if (i == 0 || j == 0) {
        d[i][j] = i + j;
        continue;
      }
      const size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min(
          {d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + change});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

// A longer word than this is no slip of the pen, and would take long.
static constexpr size_t WORD_MAX = 60;

// Among more words than these each has a neighbour.
static constexpr size_t WORDS_MAX = 2000;

// One slip in a short word, two in a longer one.
// Among those that are as near the first by the alphabet is taken, so that a
// message is the same in every run.
std::string nearest(const std::string &word, const std::set<std::string> &words)
{
  std::string best;
  size_t least = word.size() < 4 ? 2 : 3; // one slip more is another word
  if (word.size() < 2 || word.size() > WORD_MAX || // a letter is near to any
      words.size() > WORDS_MAX) {
    return best;
  }
  for (const std::string &candidate : words) {
    const size_t longer = std::max(candidate.size(), word.size());
    const size_t shorter = std::min(candidate.size(), word.size());
    // The lengths alone say that it is too far; this spares most of the work.
    if (longer - shorter >= least || shorter * 2 < longer) {
      continue;
    }
    // The word itself is no suggestion, but one that differs in capitals is.
    const size_t far = distance(lower(word), lower(candidate));
    if (far < least && candidate != word) {
      least = far;
      best = candidate;
    }
  }
  return best;
}

std::string did_you_mean(const std::string &word,
                         const std::set<std::string> &words)
{
  const std::string near = nearest(word, words);
  return near.empty() ? "" : " (did you mean " + in_quotes(near) + "?)";
}

// A row's number, or the "%d" or "#" in its place, is left aside.
// The executable's own list of endings decides, so both mean the same names.
bool is_secret(const std::string &name)
{
  std::string stem = name.substr(0, name.find_last_not_of('#') + 1);
  if (ends_with(stem, "%d")) {
    stem.erase(stem.size() - 2);
  }
  return orv_is_secret_name(stem.c_str());
}
