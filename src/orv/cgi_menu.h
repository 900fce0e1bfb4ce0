// The entries of a page's menus.

#ifndef CGI_MENU_H
#define CGI_MENU_H

// Writes a menu entry that links to the form and sub-item which `target` joins
// by its first "/".  Without one, `target` is the sub-item of `form`, or the
// form itself when that is NULL.  `target` is written to during the call and
// restored.
void cgi_menu_entry(char *target, const char *form, const char *item_class,
                    const char *link_class, const char *text);

#endif
