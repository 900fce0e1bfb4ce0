// Which names are those of secrets, for pages, the store and all tools.

#ifndef ORV_SECRET_H
#define ORV_SECRET_H

struct pt_body_item;

// Whether a text of that name is a secret: the name, without a row's number
// and whatever its letters' case, has an ending that orv_secret.cpp lists.
bool orv_is_secret_name(const char *name);

// Whether the item is a text with such a name.  What a box or a list says is
// on the page for everybody.
bool orv_is_secret(const pt_body_item *itm);

#endif
