// The lines of a navigation-bar script.  Their reader is static.

#include "cgi_navbar.cpp"

#include "page.h"

void fuzz(std::string_view input)
{
  FILE *output = fuzz_stream(input);
  ents[0] = {"Configuration", "/"};
  const int count = read_entries(output, input.size() % 2 != 0);
  fclose(output);
  assert(count >= 0 && count <= ORV_BAR_MAX);
  ents[count].label = nullptr;
  for (int i = 0; i < count; i++) {
    assert(ents[i].label != nullptr && ents[i].label[0] != '\0');
    assert(strpbrk(ents[i].label, "\n") == nullptr);
    assert(ents[i].url == nullptr || ents[i].url[0] != '\0');
  }
  cgi_navbar_mark(ents, "form", count % 2 == 0 ? "subitem" : nullptr);
  assert(page_is_whole(page_of([] {
    html_navbar_simple(nullptr, ents, nullptr);
    cgi_navbar_comments();
  })));
  page_begun = false;
}
