// A command line with a value wherever it has an "@", and that value: either
// it is refused or the shell reads it as itself.

#include "fuzz.h"
#include "orv_quote.h"
#include "shell.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
  std::string_view rest = fuzz_input(data, size);
  const std::string line = fuzz_text(fuzz_part(&rest));
  const std::string value = fuzz_text(rest);
  std::string written(4 * value.size() + 8, '?'); // the longest there can be
  std::string before; // a value that is not empty stands in it as one letter
  shell_scan scan = {};
  for (const char &c : line) {
    size_t length = 0;
    if (c != '@') {
      shell_scan_text(&scan, &c, 1);
      before += c;
    } else if (shell_quote(&scan, value.c_str(), written.data(), &length)) {
      REQUIRE(length <= written.size());
      REQUIRE(shell_reads({written.data(), length}, value, before));
      before += value.empty() ? "" : "v";
    }
  }
  return 0;
}
