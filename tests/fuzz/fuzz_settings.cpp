// A stored file merged with its defaults.

#include "store.h"

void fuzz(std::string_view input)
{
  const std::string folder = fuzz_folder();
  const std::string stored = fuzz_text(fuzz_part(&input));
  const std::string defaults = fuzz_text(input);
  fuzz_write(folder + "/state/" + FUZZ_FILE, stored);
  fuzz_write(folder + "/defaults/" + FUZZ_FILE, defaults);
  settings all;
  const bool read = settings_read(FUZZ_FILE, &all);
  assert(read != fuzz_fault());
  for (size_t i = 0; read && i < all.count; i++) {
    const setting *one = all.list + i;
    assert(i == 0 || strcmp(one[-1].name, one->name) < 0);
    assert(settings_get(&all, one->name) == one->value);
    // Each is a line of one of the two; the stored one takes precedence.
    const std::string line = one->name + std::string("=") + one->value;
    assert(("\n" + (one->shipped ? defaults : stored) + "\n")
               .find("\n" + line + "\n") != std::string::npos);
    assert(!one->shipped || ("\n" + stored).find(std::string("\n") + one->name +
                                                 "=") == std::string::npos);
  }
  settings_free(&all);
}
