// The values of a page, for a form whose script is this program.

#ifndef STORE_OWN_PAGE_H
#define STORE_OWN_PAGE_H

// Fills the variables: stored values count as reported, sent ones as entered.
// Needs own_open and the request's fields.  False with a fault.
bool own_take_page(void);

#endif
