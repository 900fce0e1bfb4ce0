// The form that settings belong to, and the names on its page.

#ifndef STORE_FORM_H
#define STORE_FORM_H

#include "orv_parser.h"

// Sets the sub-item of the form's page (NULL: none), borrowed; to be called
// before the form is opened.
void form_set_subitem(const char *subitem);

// Parses the template of `form` in the folder of templates.  False when there
// is none; also false, with a fault, when a part of it cannot be read: then it
// would be unknown which rows a save has deleted.  Kept until the process ends.
bool form_open(const char *form);

// The items of that template; NULL while none is open.
pt_body_item *form_items(void);

// Whether an item of it, or a list's entry, has that name, with or without the
// number of a row; letter case is ignored.
bool form_has(const char *name);

#endif
