// The form that settings belong to: which names its page has.

#ifndef STORE_FORM_H
#define STORE_FORM_H

#include "orv_parser.h"

// The sub-item that a page of the form is for (NULL: none), borrowed; before
// the form is opened.
void form_set_subitem(const char *subitem);

// Parses the template of `form` in the folder of templates.  False when there
// is none, with a fault when there is one that cannot be taken in whole:
// without it nobody knows which rows a save has deleted.  Kept until the
// process ends.
bool form_open(const char *form);

// The items of that template; NULL as long as none is open.
pt_body_item *form_items(void);

// Whether an item of it, or a list's entry, has that name, with or without the
// number of a row; letter case is ignored.
bool form_has(const char *name);

#endif
