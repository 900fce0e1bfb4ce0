// What has changed in a form's values, in the words of its page.
//
// The values before and after are asked for by name, so that it does not matter
// where they stand: in the variables of a request or in a file of settings.
// Tables are compared row by row: a deleted row is reported as one, and the
// rows that moved up behind it are not reported at all.

#ifndef ORV_CHANGES_H
#define ORV_CHANGES_H

#include <stddef.h>

struct pt_body_item;

// Where the values come from.  The callbacks get `data`; what they return is
// borrowed and must not change while the comparison runs.
struct orv_change_source {
  // The value of the variable, NULL when there is none, which counts as "".
  const char *(*old_value)(const char *name, void *data);
  const char *(*new_value)(const char *name, void *data);
  // A text for the user in place of the template's label, NULL when there is
  // none; may be NULL.  It is shown as it is.
  const char *(*label)(const char *name, void *data);
  // Whether the variable is a secret though its name does not say so; may be
  // NULL.
  bool (*is_secret)(const char *name, void *data);
  void *data;
  // One more than the number of the last row that can have a value on either
  // side, so that none is looked for behind it; may be NULL: not known.
  int (*count_rows)(void *data);
};

enum orv_change_kind {
  CHANGE_VALUE,       // of a field
  CHANGE_CELL,        // of a row that stays
  CHANGE_ROW_DELETED, // `old_text` is the row
  CHANGE_ROW_ADDED,   // `new_text` is the row
};

// One change.  Owns its texts, which are expanded and without markup: a list's
// value is the text of the choice, a box's "on" or "off", a row its texts, then
// its choices, then the labels of its ticked boxes, with commas, cut where that
// grows long.  Texts of fields are as long as the values.
struct orv_change {
  orv_change_kind kind;
  bool secret;    // both texts are NULL
  bool box;       // a check box
  int row;        // counted from 1: a deleted row's old one; 0 outside tables
  char *name;     // of the variable, of a row the table's
  char *label;    // of the field or column, of a row NULL
  char *old_text; // "" for a blank value, NULL for an added row
  char *new_text; // "" for a blank value, NULL for a deleted row
  orv_change *next;
};

// Finds the changes of every input item of `body` (may be NULL), drawn or not,
// in its order; of several items of one name the first counts.  The time is
// n log n in the number of cells, times the length of a list's choices.  True
// with the list in `*changes`, owned by the caller (orv_free_changes); false
// with NULL there when memory ran out (reported by orv_fatal).
bool orv_find_changes(pt_body_item *body, const orv_change_source *source,
                      orv_change **changes);

// Appends the change of a variable for which the page has no field, if it has
// changed: by its label of the source, else by its name.  False as above, with
// the list as it was.
bool orv_find_change(const char *name, const orv_change_source *source,
                     orv_change **changes);

// Frees a list; NULL is allowed.
void orv_free_changes(orv_change *changes);

// What stands between two values on pages and terminals, and elsewhere, such as
// in the log.
constexpr char ORV_ARROW_SHOWN[] = "\xe2\x86\x92";
constexpr char ORV_ARROW_PLAIN[] = "->";

// The change as a line without its end, owned by the caller (free), NULL when
// memory ran out (reported): "Port, row 3: 80 -> 81" with `arrow` between the
// values, "Passphrase: changed" for a secret, "Row deleted: 80, 10.0.0.1".  A
// blank value is "blank".  A label is cut behind `label_max` bytes, a value
// behind `value_max`, 0 leaves them whole; a row is one value.
char *orv_change_line(const orv_change *change, const char *arrow,
                      size_t label_max, size_t value_max);

// The length of `text` where it is cut to at most `max` bytes, which is never
// inside a character.
size_t orv_cut_length(const char *text, size_t max);

// A text that pages show, expanded and without markup: owned by the caller
// (free), NULL when memory ran out (reported).
char *orv_plain_text(const char *text);

// The text beside an item, plain: its label, else the one behind it, else its
// prompt, else its name.  Owned as above.
char *orv_item_label(const pt_body_item *itm);

#endif
