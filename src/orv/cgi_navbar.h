// The navigation bar: the links that a form's navigation-bar script prints.

#ifndef CGI_NAVBAR_H
#define CGI_NAVBAR_H

struct pt_header;
struct html_navbar_entry;

// Runs the navigation-bar script of `hdr` and stores the list of its entries,
// borrowed until the next call, through `navbar_ents`; leaves that as it is
// when the script cannot be started (reported by the runner).  Diagnostics are
// held back until cgi_navbar_comments.
void cgi_get_navbar(struct pt_header *hdr,
                    struct html_navbar_entry **navbar_ents);

// Marks the entries of `list` that lead to the form shown; `subitem` may be
// NULL.
void cgi_navbar_mark(struct html_navbar_entry *list, const char *form,
                     const char *subitem);

// Writes the diagnostics held back so far into the page; from then on they
// are written as they are met.
void cgi_navbar_comments(void);

#endif
