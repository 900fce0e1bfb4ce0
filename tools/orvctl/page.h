// A page of the device without a browser.
//
// A page is drawn into a list of fields, the values of some are changed, and
// what a browser would then post goes the same way as in a request: into the
// variable store, through the checks, to the form's check and write scripts.
// One page is open at a time.

#ifndef ORVCTL_PAGE_H
#define ORVCTL_PAGE_H

#include "orv_parser.h"

struct orv_change;

enum field_kind {
  FIELD_TEXT,   // a line of text
  FIELD_BOX,    // a check box; posts "True" or nothing
  FIELD_LIST,   // one of its item's choices
  FIELD_FIXED,  // shown, never posted
  FIELD_DELETE, // the deletion box of a table's row; `item` is the table
  FIELD_STATE,  // carried along unseen; `item` is NULL
};

// One field of the page, in the order in which a browser posts them.
struct page_field {
  field_kind kind;
  char *name;
  char *value; // what would be posted; NULL: nothing
  const pt_body_item *item;
  const pt_body_item *table; // NULL outside tables
  int row;                   // of the table, from 0; -1 for other fields
  page_field *next;
};

// Another page that the page links to.
struct page_link {
  char *form;
  char *subitem; // NULL: none
  page_link *next;
};

// The result of a press of Submit.
enum page_result {
  PAGE_SAVED,     // every check passed, the write script has stored it
  PAGE_UNCHANGED, // nothing differs from what the device has: no script ran
  PAGE_AGAIN,     // rows were marked for deletion: press once more
  PAGE_REFUSED,   // nothing was stored; page_message and err_vars say why
};

// Reads the form's values from the device and draws the page; `subitem` may be
// NULL.  False with the reason in page_message, also where the read script
// reports an error of the whole page.  With `links`, which are of interest all
// the same then, its navigation bar is asked for as well.
bool page_open(const char *form, const char *subitem, bool links);

// Draws the page once more from the values set so far, as a button does that
// only shows it again.  False with the reason in page_message.
bool page_redraw(void);

// Presses Submit.  With `dry` all but the write script runs.  The fields stay
// those of the page that was pressed.
page_result page_submit(bool dry);

// What the last press has saved, or would have: whether anything differs from
// what the device has, and what, borrowed until the next press.
bool page_has_changed(void);
const orv_change *page_changes(void);

// Closes the page; nothing of it is valid afterwards.
void page_close(void);

// Borrowed until the page is drawn again.  A page_open that failed leaves the
// header where the form has a template, which tells a page that is refused from
// one that does not exist; else it is NULL.
const pt_header *page_header(void);
const pt_body_item *page_body(void);
page_field *page_fields(void);
const page_link *page_links(void);

// The field that a person can set under that name (letter case ignored), or
// NULL.
page_field *page_find(const char *name);

// The table of that name (letter case ignored), its columns behind it, or NULL.
const pt_body_item *page_find_table(const char *name);

// The table that a cell's item belongs to, itself for a table.
const pt_body_item *page_table_of(const pt_body_item *cell);

// The deletion box of a table's row, or NULL.
page_field *page_find_delete(const pt_body_item *table, int row);

// Makes the page offer that many blank rows of the table from the next drawing
// on.
void page_offer_rows(const pt_body_item *table, int blank_rows);

// The item that shows the variable, a cell's column included, or NULL.
const pt_body_item *page_find_item(const char *name);

// A secret that the page has no field for (a hash) becomes this value.  NULL,
// or why it cannot.
const char *page_put_secret(const char *name, const char *value);

// Sets what the field posts.  NULL, or why it cannot be set (a static text).
const char *page_choose(page_field *field, const char *value);

// What the user would see of the field: boxes as True or False, nothing as "".
const char *page_value(const page_field *field);

// Whether a variable of that name holds a secret, which is never shown.
bool page_is_secret(const char *name);

// The message of the page as a whole, plain text, "" when there is none.
// Borrowed until the page is drawn, submitted or closed.
const char *page_message(void);

#endif
