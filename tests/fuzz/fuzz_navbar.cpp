// The lines of a navigation-bar script.  Their reader is static.

#include "cgi_navbar.cpp"

#include "page.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
  FILE *output = fuzz_stream(fuzz_input(data, size));
  ents[0] = {"Configuration", "/"};
  const int count = read_entries(output);
  fclose(output);
  REQUIRE(count >= 0 && count <= ENTRIES);
  ents[count].label = nullptr;
  for (int i = 0; i < count; i++) {
    REQUIRE(ents[i].label != nullptr && ents[i].label[0] != '\0');
    REQUIRE(strpbrk(ents[i].label, "\n") == nullptr);
    REQUIRE(ents[i].url == nullptr || ents[i].url[0] != '\0');
  }
  cgi_navbar_mark(ents, "form", count % 2 == 0 ? "subitem" : nullptr);
  REQUIRE(page_is_whole(page_of([] {
    html_navbar_simple(nullptr, ents, nullptr);
    cgi_navbar_comments();
  })));
  page_begun = false;
  return 0;
}
