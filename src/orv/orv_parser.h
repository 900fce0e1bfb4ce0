// The template parser: a form's header and its body.
//
// A template is a text file of keyword lines; lines that begin with a blank,
// "#" or nothing are continuation, comment and blank lines.  One template is
// read at a time.  Every fault is reported by orv_fatal with its line.

#ifndef ORV_PARSER_H
#define ORV_PARSER_H

#include <stdio.h>

#include "html_records.h"

// A position in a template; line_number 0: no position is known.
struct pt_pos {
  int line_number;
  fpos_t offset; // of the line's first character
};

// A growable text, owned by the record that holds it; `txt` NULL while empty.
struct pt_text {
  char *txt;
  size_t len;     // without the terminator
  size_t buf_len; // bytes allocated
};

// A parsed header; owns its strings and the open template.
struct pt_header {
  FILE *fp;
  pt_pos start_body;
  unsigned expert_mode : 1;
  unsigned help_mode : 1;
  unsigned no_header : 1;
  unsigned no_footer : 1;
  unsigned has_input_fields : 1; // set by orv_parse_body
  char *name;
  char *title;
  char *read_script; // shell command lines, values of the request quoted
  char *check_script;
  char *write_script;
  char *navbar_script;
  int llabel_max; // longest label of the body, set by orv_parse_body
};

enum pt_type {
  PT_TEXT,
  PT_HELP_TEXT,
  PT_ERROR_TEXT,
  PT_HEADING_CTR,
  PT_HEADING_H1,
  PT_HEADING_H2,
  PT_TEXT_FIELD,
  PT_TEXT_FIXED,
  PT_CHECKBOX,
  PT_SELECT,
  PT_ISELECT,
  PT_IMENU,
  PT_FORMS_MENU,
  PT_TABLE,
  PT_FTABLE,
  PT_IF,
  PT_IFNOT,
  PT_ELSE,
  PT_ENDIF,
};

struct pt_field {
  char *check;       // named check with its options, or NULL
  char *check_msg;   // message that replaces the check's own, or NULL
  char *check_label; // name of the error record, or NULL
  int width;         // 0: none given
};

struct pt_choices {
  html_form_list_opt *choices;
  html_form_list_opt *last;
  int width; // longest description added, before substitution
};

struct pt_table {
  int columns;
  int add_rows;   // blank rows offered
  int fixed_rows; // rows of an ftable, 0: as many as have values
};

// One item of a body; owns every string and list.
struct pt_body_item {
  pt_type type;
  int line_number;
  pt_body_item *next;
  char *name;
  char *label;
  char *rlabel;
  char *prompt;
  int column; // of a table's cell, from 0; else -1
  pt_text help;
  char *value;
  char *selector; // stem of the entries' variables (iselect, imenu)
  union {
    pt_text text; // headings and conditions use only txt
    pt_field field;
    pt_choices choices;
    pt_table table;
  };
};

// Opens the template of form `name` (a path when it begins with "/") and
// parses its header; `subitem` may be NULL.  Both are copied.  Owned by the
// caller (orv_free_header); NULL with a report by orv_fatal.
pt_header *orv_parse_header(char *name, char *subitem);

// Closes the template and frees the header; NULL is allowed.
void orv_free_header(pt_header *hdr);

// Parses the body of an open template and sets has_input_fields and
// llabel_max of `hdr`.  The first item, owned by the caller (orv_free_body);
// NULL with a report by orv_fatal, or without one when the body has no items.
pt_body_item *orv_parse_body(pt_header *hdr);

// Frees a whole list; NULL is allowed.
void orv_free_body(pt_body_item *list);

// Empties the choice list of an iselect item before it is filled for display.
void iselect_setup(pt_body_item *itm);

// Appends the choice `var` with description `text`, both expanded with what
// the most recent orv_parse_header left; `varname` is not used.  Lack of
// memory is reported by orv_fatal.
void iselect_entry(pt_body_item *itm, char *var, char *varname, char *text);

#endif
