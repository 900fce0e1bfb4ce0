// Draws a body as a page of its own, again and again in one process.

#ifndef FORM_H
#define FORM_H

#include "cgi_output.h"
#include "orv_parser.h"
#include "page.h"

inline std::string form_page(pt_body_item *body, char *title, const char *error)
{
  const std::string page = page_of([&] {
    cgi_set_default_heading(title);
    cgi_body_output(body, 1, error);
    cgiout_close_table();
    cgiout_close_form();
    cgi_set_default_heading(nullptr);
  });
  // A real process draws one page: the next must not see this one's items.
  static char name[] = "none";
  static pt_body_item last = {};
  last.type = PT_CHECKBOX;
  last.name = name;
  page_of([] {
    cgi_body_output(&last, 0, nullptr);
    cgiout_close_form();
  });
  return page;
}

// The size of a table is no fault, and the author's patterns are libc's matter.
inline void form_tame(pt_body_item *item)
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

#endif
