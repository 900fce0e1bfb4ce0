// The HTML implementation of the page engine's output procedures, and the
// hidden fields through which a page hands its state to the next request.

#ifndef CGI_OUTPUT_H
#define CGI_OUTPUT_H

#include <stddef.h>

#include "orv_output.h"

struct html_form_list_opt;
struct pt_body_item;

// Addresses of links and names of deletion boxes ("delete_", a table's name,
// "_" and a row number) are cut where they are longer.
constexpr size_t CGI_HREF_SIZE = ORV_ADDRESS_MAX + 1;
constexpr size_t CGI_DELETE_NAME_SIZE = 68;

// Makes `heading` (borrowed until the page is done, expanded when it is
// written) the page heading, printed above the first output that needs it.
void cgi_set_default_heading(char *heading);

// Draws the body with or without its help texts; `error` may be NULL.
void cgi_body_output(pt_body_item *body, int help, const char *error);

// Opens the page's one form, unless it is open.
void cgiout_start_form(void);
// Whether a page of that body will hold what a user has typed under a secret's
// name; it is known before the page begins.
bool cgiout_carries_secret(const pt_body_item *body);
// Closes the open table, if any.
void cgiout_close_table(void);
// Writes the hidden fields and closes the form, if it is open.
void cgiout_close_form(void);

// What a page posts beside what its user sees; for pages without a browser.

// Makes the name of the hidden field that carries a value of the variable
// `name`; `type` is the origin's letter.
void cgiout_state_name(char (&field)[ORV_NAME_SIZE], char type,
                       const char *name);

// Calls `put` for each hidden field that carries a value of a variable.
void cgiout_variables(void (*put)(const char *name, const char *value));

// Marks the variable shown by a check box, which the page posts as `name`;
// whether the box is ticked.
bool cgiout_mark_checkbox(const char *name, const char *varname);

// Marks the choice that the list shows as chosen for the variable `varname`,
// the first one where none is; NULL when it has no choices.
html_form_list_opt *cgiout_mark_choice(pt_body_item *itm, const char *varname);

#endif
