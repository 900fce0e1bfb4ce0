// The HTML implementation of the page engine's output procedures, and the
// hidden fields through which a page hands its state to the next request.

#ifndef CGI_OUTPUT_H
#define CGI_OUTPUT_H

#include <stddef.h>

#include "cgi_state.h"
#include "orv_output.h"

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
// Closes the open table, if any.
void cgiout_close_table(void);
// Writes the hidden fields and closes the form, if it is open.
void cgiout_close_form(void);

#endif
