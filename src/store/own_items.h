// The items and the settings of a form whose script is this program.

#ifndef STORE_OWN_ITEMS_H
#define STORE_OWN_ITEMS_H

struct pt_body_item;
struct settings;

// Opens the form and reads its settings; `subitem` may be NULL.  False with a
// fault if this device has no such form, or if its form needs a script.
bool own_open(const char *form, const char *subitem);

// What own_open has read: the settings, borrowed until the process ends, and
// the name of their file.
const settings *own_settings(void);
const char *own_file(void);

// Whether users can change the item's value.
bool own_takes_input(const pt_body_item *item);

// The item of that name that takes input, NULL if there is none.
const pt_body_item *own_find_item(const char *name);

// The item of the value, found by its own name or as a table's cell.
const pt_body_item *own_item_of(const char *name);

// By its name, or because an earlier script of the form has declared it one.
bool own_is_secret(const pt_body_item *item);

// The secret that the box clears, NULL for any other box.
const pt_body_item *own_cleared_by(const pt_body_item *box);

// "True" or "False" for a value in any spelling.
const char *own_as_box(const char *value);

// Whether the table's row exists, by the values that `value_of` returns: the
// page's, or those that are about to be stored.
bool own_row_holds(const pt_body_item *table, int row,
                   const char *(*value_of)(const char *name));

// How many rows a loop over the variables has to look at.
int own_count_rows(void);

#endif
