// Accessibility of a control: its name, its errors, hints for input, texts for
// narrow screens.

#ifndef CGI_CONTROL_H
#define CGI_CONTROL_H

#include <stddef.h>

struct html_attribute;
struct pt_body_item;

constexpr size_t CONTROL_ID_SIZE = 16; // a letter and a line number

// Where a control stands.
struct control_place {
  unsigned row;  // of a table's cell, from 0
  bool labelled; // a field's row shows its label
};

// The attributes of the control that shows the variable `varname`, in front of
// `tail`; valid until the next control.
html_attribute *cgi_control_help(const pt_body_item *itm, const char *varname,
                                 const control_place &place,
                                 html_attribute *tail);

// The id of a field's control, for its label; valid until the next call.
const char *cgi_control_id(const pt_body_item *itm);

// What is recorded for the item, NULL when that is nothing or blank; borrowed.
const char *cgi_recorded_error(const pt_body_item *itm);

// The id of the text that shows the item's error.
void cgi_error_id(char (&id)[CONTROL_ID_SIZE], const pt_body_item *itm);

// Repeats the column's message in the cell whose control was drawn last, if it
// concerns that.
void cgi_cell_message(const pt_body_item *column);

// Writes an empty element whose attribute the style sheet draws where the real
// text is too far away or cut, so nothing is shown or read out twice.
void cgi_narrow_text(const char *css_class, const char *text);

// Whether a text of the page begins with a code such as "$B$".
bool cgi_is_markup(const char *text);

#endif
