// A whole form: sub-item, the read script's output, template.  It is parsed,
// checked and drawn.

#include "orv_check.h"
#include "page.h"
#include "orv_vars.h"

// A large table is not a fault, and the cost of a pattern is up to libc.
static void tame(pt_body_item *item)
{
  for (; item != nullptr; item = item->next) {
    if (item->type == PT_TABLE || item->type == PT_FTABLE) {
      item->table.add_rows = std::min(item->table.add_rows, 3);
      item->table.fixed_rows = std::min(item->table.fixed_rows, 3);
    } else if (item->type == PT_TEXT_FIELD && item->field.check != nullptr &&
               strcasestr(item->field.check, "regex") != nullptr) {
      item->field.check[0] = '\0';
    }
  }
}

void fuzz(std::string_view rest)
{
  std::string subitem = fuzz_text(fuzz_part(&rest));
  FILE *script = fuzz_stream(fuzz_part(&rest));
  orv_load_vars_fp(script);
  fclose(script);
  std::string path = "/proc/self/fd/" + std::to_string(fuzz_file(rest));
  pt_header *hdr = orv_parse_header(path.data(), subitem.data());
  if (hdr != nullptr) {
    assert(hdr->title != nullptr && hdr->write_script != nullptr);
    pt_body_item *body = orv_parse_body(hdr);
    tame(body);
    orv_check_vars(body);
    assert(page_is_whole(form_page(body, hdr->title, "<e> $V:a$ --> \"")));
    orv_free_body(body);
    orv_free_header(hdr);
  }
}
