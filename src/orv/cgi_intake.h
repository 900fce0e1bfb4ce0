// Taking in a request's fields.

#ifndef CGI_INTAKE_H
#define CGI_INTAKE_H

// Takes in every field.  What the page was made of comes first, since a user's
// value counts only where it differs from that.  1 when the request carries a
// page's state.  Lack of memory is reported by orv_fatal.
int cgi_load_vars(void);

#endif
