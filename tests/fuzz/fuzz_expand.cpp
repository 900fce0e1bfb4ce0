// A text with references, and the value that they refer to.

#include "fuzz.h"
#include "orv_output.h"
#include "orv_vars.h"

void fuzz(std::string_view rest)
{
  std::string value = fuzz_text(fuzz_part(&rest));
  std::string text = fuzz_text(rest);
  fuzz_environment("e", value);
  for (const char *name : {"d_v", "u_v", "c_v", "o_v", "error_v"}) {
    orv_set_var(name, o_undefined, value.data(), 0);
  }
  const std::string before = text;
  const char *expansion = orv_out_expand(text.data());
  assert(expansion != nullptr && text == before);
  const size_t dollar = text.find('$');
  assert(dollar != std::string::npos || expansion == text.data());
  assert(strncmp(expansion, text.c_str(), dollar) == 0);

  // The buffer is used again, for a longer text.
  const std::string first = expansion;
  text = "." + text;
  assert("." + first == orv_out_expand(text.data()));
  orv_output_cleanup();
}
