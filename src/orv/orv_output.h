// The page engine: expands displayed text, decides which items are shown, and
// walks a parsed body into calls on a table of output procedures.  It knows
// nothing of HTML.

#ifndef ORV_OUTPUT_H
#define ORV_OUTPUT_H

#include "orv_limits.h"

struct pt_body_item;

// The structural steps of a multi-column table; the table item is passed,
// except for the two MCOL_COL steps, which get the column item.
enum mcol_trans {
  MCOL_START,         // the table begins; its heading row opens
  MCOL_BODY,          // the heading row ends (fixed table)
  MCOL_BODY_DEL,      // it ends with a heading for the deletion column
  MCOL_ROW_START,     // a body row begins
  MCOL_ROW_END,       // a row of a fixed table ends
  MCOL_ROW_END_DEL,   // a row with entries ends; it gets a deletion box
  MCOL_ROW_END_BLANK, // a row without entries ends
  MCOL_COL_START,     // a cell begins
  MCOL_COL_END,       // a cell ends
  MCOL_END,           // the table ends
};

// The output procedures, all of them filled.  Every argument is borrowed for
// the call.  In the cell procedures `name` is the name under which the page
// posts the cell and `varname` the variable whose value is shown.
struct pto_procs {
  void (*o_text)(char *text);  // unexpanded: the procedure expands it
  void (*o_help)(char *text);  // unexpanded
  void (*o_error)(char *text); // unexpanded
  void (*o_center)(char *text);
  void (*o_header)(char *text);
  void (*o_header2)(char *text);
  void (*o_comment)(const char *format, ...)
      __attribute__((format(printf, 1, 2)));
  void (*o_forms_menu)(pt_body_item *itm);
  void (*o_text_field)(pt_body_item *itm, int fixed);
  void (*o_checkbox)(pt_body_item *itm);
  void (*o_select)(pt_body_item *itm);
  void (*o_menu_start)(pt_body_item *itm);
  void (*o_menu_choice)(pt_body_item *itm, char *select, char *varname,
                        char *text);
  void (*o_menu_stop)(pt_body_item *itm);
  void (*o_mcol_trans)(pt_body_item *itm, mcol_trans type);
  void (*o_mcol_heading)(pt_body_item *itm);
  void (*o_mcol_text_field)(pt_body_item *itm, char *name, char *varname,
                            int fixed);
  void (*o_mcol_checkbox)(pt_body_item *itm, char *name, char *varname);
  void (*o_mcol_select)(pt_body_item *itm, char *name, char *varname);
};

// The expansion of `in`: "" for NULL, `in` itself when it holds no "$", else a
// buffer that the next expansion overwrites, cut where it grows too long.  `in`
// is written to during the call and restored.  NULL when memory ran out
// (reported as the walk's other problems are: to o_comment, and counted).
char *orv_out_expand(char *in);

// The same for a text that the page also shows elsewhere, where its problems
// are reported.
char *orv_out_expand_again(char *in);

// Draws the body `itm` (may be NULL) through `pp`.  `help` nonzero shows the
// help texts; `error_text` (may be NULL) is what $E$ stands for.  The number
// of problems met, each of which was sent to o_comment.
int orv_body_output(const pto_procs *pp, pt_body_item *itm, int help,
                    const char *error_text);

// Frees the expansion buffer and forgets what the last walk's codes stood for:
// what is expanded next, no page has been drawn for.
void orv_output_cleanup(void);

#endif
