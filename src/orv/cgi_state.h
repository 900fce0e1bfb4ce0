// The hidden state that a page posts, for pages with and without a browser: the
// protocol between one page and the next request.

#ifndef CGI_STATE_H
#define CGI_STATE_H

#include "orv_limits.h"

struct html_form_list_opt;
struct pt_body_item;

// Makes the name of the hidden field that carries a value of the variable
// `name`; `type` is the origin's letter.
void cgiout_state_name(char (&field)[ORV_NAME_SIZE], char type,
                       const char *name);

// Calls `put` for each hidden field that carries a value of a variable.
void cgiout_variables(void (*put)(const char *name, const char *value));

// Whether a page of that body will hold what a user has typed under a secret's
// name; it is known before the page begins.
bool cgiout_carries_secret(const pt_body_item *body);

// Marks the variable shown by a check box, which the page posts as `name`;
// whether the box is ticked.
bool cgiout_mark_checkbox(const char *name, const char *varname);

// Marks the choice that the list shows as chosen for the variable `varname`,
// the first one where none is; NULL when it has no choices.
html_form_list_opt *cgiout_mark_choice(pt_body_item *itm, const char *varname);

// The names of the variables that the body's conditions read, a blank behind
// each, for scripts of the browser, which have the page drawn again when one of
// them changes; conditions are decided here alone.  NULL when there are none;
// valid until the next call.
const char *cgiout_conditions(const pt_body_item *itm);

#endif
