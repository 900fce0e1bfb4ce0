// A text with substitutions, and the value that its references find.

#include "fuzz.h"
#include "orv_output.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
  std::string_view rest = fuzz_input(data, size);
  std::string value = fuzz_text(fuzz_part(&rest));
  std::string text = fuzz_text(rest);
  fuzz_environment("e", value);
  for (const char *name : {"d_v", "u_v", "c_v", "o_v", "error_v"}) {
    orv_set_var(name, o_undefined, value.data(), 0);
  }
  const std::string before = text;
  const char *expansion = orv_out_expand(text.data());
  REQUIRE(expansion != nullptr && text == before);
  const size_t dollar = text.find('$');
  REQUIRE(dollar != std::string::npos || expansion == text.data());
  REQUIRE(strncmp(expansion, text.c_str(), dollar) == 0);

  // The buffer serves again, for a longer text too.
  const std::string first = expansion;
  REQUIRE(first == orv_out_expand(text.data()));
  text = "." + text;
  REQUIRE("." + first == orv_out_expand(text.data()));
  orv_output_cleanup();
  fuzz_forget();
  return 0;
}
