// Changes to a form, made as a person makes them: fields that are on the page
// are set, and when others are needed, the page is drawn once more.

#ifndef ORVCTL_CHANGE_H
#define ORVCTL_CHANGE_H

#include <stddef.h>

#include "page.h"

// A value wanted in the open page; both texts borrowed.
struct wanted_value {
  const char *name;
  const char *value;
  bool set; // it is in the page
  int line; // of the file that it comes from, 0: of none
};

// Sets every value that the page has a field for, drawing it again as long as
// that shows more of them; the expert view is tried last.  Rows are filled as
// if one after the other.  False, reported, when one cannot be set or has no
// field.
bool change_values(const char *form, wanted_value *values, size_t count);

// Marks row `number` of a table, counted from 0, for deletion; false when the
// page has no such row.
bool change_delete_row(const pt_body_item *table, int row);

// Switches to the expert view when the simple one does not show the table;
// false, with the page's message, when it cannot be drawn.
bool change_show_table(const pt_body_item *table);

// The number of the table's rows up to the last one that holds something and
// can be deleted, and the number of the first one that holds nothing.
int change_count_rows(const pt_body_item *table);
int change_blank_row(const pt_body_item *table);

// Presses Submit, a second time where rows are deleted.
page_result change_submit(bool dry);

#endif
