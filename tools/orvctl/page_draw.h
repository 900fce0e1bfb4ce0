// The fields and links of the page that is being drawn, for the files of page.h
// alone.

#ifndef ORVCTL_PAGE_DRAW_H
#define ORVCTL_PAGE_DRAW_H

#include "page.h"

// Draws the body with the variables at hand into page_fields and page_links.
// False when memory ran out: the list is then a part.
bool page_draw(pt_body_item *body);

// Frees the fields and links.
void page_free_fields(void);

// Adds copies of the name and the value (NULL: posts nothing).  NULL without
// memory.
page_field *page_add_field(field_kind kind, const char *name, const char *value,
                           const pt_body_item *item);

// Adds the page that `target` names: "FORM", "FORM/SUBITEM", or a sub-item of
// `form` where that is not NULL and `target` has no "/".
void page_add_link(const char *form, const char *target);

// What the strict policy has against a field, whatever the build's own policy
// is; NULL: nothing.
const char *page_field_fault(const char *name, const char *value);

// Frees what page_choose has said.
void page_free_refusal(void);

#endif
