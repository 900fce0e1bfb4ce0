// The records that callers of the HTML layer fill: attribute chains, the
// options of a selection list and the entries of a navigation bar.  They stand
// apart from html.h so that a template parser can build lists without seeing
// a function that writes.

#ifndef HTML_RECORDS_H
#define HTML_RECORDS_H

// One attribute of an element, in a chain ended by a NULL `next`.
struct html_attribute {
  const char *name;
  const char *value; // written escaped; NULL leaves the attribute out
  html_attribute *next;
};

// One option of a selection list.
struct html_form_list_opt {
  char *label;           // what is shown
  char *value;           // what is posted
  unsigned optgroup : 1; // the entry is the heading of a group of options
  unsigned selected : 1; // preselected
  html_form_list_opt *next;
};

// One entry of a navigation bar; a list ends with an entry without a label.
struct html_navbar_entry {
  const char *label;
  const char *url;      // NULL: the label is shown without a link
  bool current = false; // the entry leads to the page that shows it
};

#endif
