// A whole form: sub-item, the read script's output, template.  It is parsed,
// checked and drawn.

#include "form.h"
#include "orv_check.h"

char *scroll_y;
char *anchor_target;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
  std::string_view rest = fuzz_input(data, size);
  std::string subitem = fuzz_text(fuzz_part(&rest));
  FILE *output = fuzz_stream(fuzz_part(&rest));
  orv_load_vars_fp(output);
  fclose(output);
  std::string path = "/proc/self/fd/" + std::to_string(fuzz_file(rest));
  pt_header *hdr = orv_parse_header(path.data(), subitem.data());
  if (hdr != nullptr) {
    REQUIRE(hdr->title != nullptr && hdr->write_script != nullptr);
    pt_body_item *body = orv_parse_body(hdr);
    form_tame(body);
    orv_check_vars(body);
    const char *error = "<error> $V:a$ --> \"";
    REQUIRE(page_is_whole(form_page(body, hdr->title, error)));
    orv_free_body(body);
    orv_free_header(hdr);
  }
  fuzz_forget();
  return 0;
}
