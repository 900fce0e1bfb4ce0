// Small operations on text.

#ifndef LINT_TEXT_H
#define LINT_TEXT_H

#include <set>
#include <string>
#include <string_view>
#include <vector>

// What some editors put in front of a file.
constexpr char BYTE_ORDER_MARK[] = "\xef\xbb\xbf";

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
