// A command line with a value wherever it has an "@", and that value: it stands
// as it is where it means nothing to a shell, else in quotes or is refused.

#include "fuzz.h"
#include "orv_quote.h"
#include <wordexp.h>

static void fuzz(std::string_view rest)
{
  const std::string line = fuzz_text(fuzz_part(&rest));
  const std::string value = fuzz_text(rest);
  const bool number = value.find_first_not_of("0123456789") == value.npos;
  const bool plain = std::all_of(value.begin(), value.end(), [](char c) {
    return c < 0 || isalnum(c) != 0 || strchr("_./:@%+,=-", c) != nullptr;
  });
  shell_scan scan = {};
  for (const char &c : line) {
    const shell_place place = scan.place;
    std::string out(4 * value.size() + 8, '?'); // the longest there can be
    size_t length = 0;
    if (c != '@') {
      shell_scan_text(&scan, &c, 1);
    } else if (!shell_quote(&scan, value.c_str(), out.data(), &length)) {
      assert(!number && (!plain || place > SHELL_DOUBLE));
    } else if (out.compare(0, length, value) == 0) {
      assert(number || (plain && place != SHELL_ARITHMETIC));
    } else if (std::all_of(value.begin(), value.end(), isascii)) {
      assert(!plain && place <= SHELL_DOUBLE && length <= out.size());
      static const std::string around[] = {"", "'", "\""};
      // Behind a letter: the C library takes '' before a word for one more.
      out = "x" + around[place] + out.substr(0, length) + around[place];
      wordexp_t words = {};
      const int error = wordexp(out.c_str(), &words, WRDE_NOCMD);
      assert(error == 0 && words.we_wordc == 1);
      assert(words.we_wordv[0] == "x" + value);
      wordfree(&words);
    }
  }
}
