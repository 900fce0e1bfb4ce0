// A command line with a value in place of each "@": the value stays as it is
// where a shell takes it literally; otherwise it is quoted or refused.

#include "fuzz.h"
#include "orv_quote.h"
#include <wordexp.h>

// The line with its values quoted, or "" when one is refused.  The values are
// marked at each "@", or only at `at`.
static std::string quoted(const std::string &line, const std::string &value,
                          size_t at)
{
  std::string marked;
  for (size_t i = 0; i < line.size(); i++) {
    const bool here = line[i] == '@' && (at == line.npos || at == i);
    marked += here ? '\0' + value + '\0' : std::string(1, line[i]);
  }
  std::string out(4 * marked.size() + 8, '?'); // the longest there can be
  size_t length = 0, again = 0;
  if (!shell_quote(marked.c_str(), marked.size(), nullptr, &length)) {
    return "";
  }
  assert(shell_quote(marked.c_str(), marked.size(), out.data(), &again));
  assert(length == again && length < out.size());
  return out.substr(0, length);
}

// The author's quotes around a text that begins by closing them.  Two of them
// also begin the form in which a value's own "'" is escaped.
static std::string quotes_around(const std::string &text, char first)
{
  if (text[0] == '"') {
    return "\"";
  }
  const bool leaves = text[1] == '\'' && (first != '\'' || text[2] == '\'');
  return leaves ? "'" : "";
}

// Whether the shell reads `text` as the value inside such quotes.
static bool means(const std::string &around, const std::string &text,
                  const std::string &value)
{
  wordexp_t words = {};
  // After a letter, since the C library counts '' before a word as another
  // word.
  const std::string whole = "x" + around + text + around;
  const int error = wordexp(whole.c_str(), &words, WRDE_NOCMD);
  const bool same =
      error == 0 && words.we_wordc == 1 && words.we_wordv[0] == "x" + value;
  wordfree(&words);
  return same;
}

void fuzz(std::string_view rest)
{
  const std::string line = fuzz_text(fuzz_part(&rest));
  const std::string value = fuzz_text(rest);
  if (value.empty()) {
    return;
  }
  const bool plain = std::all_of(value.begin(), value.end(), [](char c) {
    return c < 0 || isalnum(c) != 0 || strchr("_./:@%+,=-", c) != nullptr;
  });
  quoted(line, value, line.npos);
  size_t at = 0;
  for (int i = 0; i < 8 && (at = line.find('@', at)) != line.npos; i++, at++) {
    const std::string out = quoted(line, value, at);
    if (out.empty()) {
      continue;
    }
    const std::string behind = line.substr(at + 1);
    assert(out.size() > line.size() - 1);
    const size_t length = out.size() - at - behind.size();
    const std::string text = out.substr(at, length);
    assert(out == line.substr(0, at) + text + behind);
    if (text == value) {
      assert(plain);
      continue;
    }
    // If it is safe for an untrusted value, it is safe for any.
    assert(!quoted(line, "X", at).empty());
    assert(!std::all_of(value.begin(), value.end(), isascii) ||
           means(quotes_around(text, value[0]), text, value));
  }
}
