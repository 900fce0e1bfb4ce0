// A displayed text with markup codes, and a value that it may insert, in every
// kind of item that shows text.

#include "orv_vars.h"
#include "page.h"

void fuzz(std::string_view rest)
{
  std::string value = fuzz_text(fuzz_part(&rest));
  std::string text = fuzz_text(rest);
  orv_set_var("v", o_user, value.data(), 0);
  for (pt_type type : {PT_TEXT, PT_HELP_TEXT, PT_ERROR_TEXT, PT_HEADING_CTR,
                       PT_HEADING_H1, PT_HEADING_H2}) {
    pt_body_item item = {};
    item.type = type;
    item.text.txt = text.data();
    const std::string page = form_page(&item, text.data(), value.c_str());
    assert(page_is_whole(page));
    assert(page.find("<input") == std::string::npos);
  }
}
