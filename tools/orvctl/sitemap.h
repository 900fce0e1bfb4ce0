// The pages of the device: those that can be reached from its start page.

#ifndef ORVCTL_SITEMAP_H
#define ORVCTL_SITEMAP_H

// A page of the device; owns its texts.
struct site_page {
  char *form;
  char *subitem; // NULL: none
  char *name;    // FORM or FORM/SUBITEM, as a command line has it
  char *title;   // NULL: the page cannot be opened, `fault` says why
  char *fault;
  bool has_input;
  site_page *next;
};

// The pages in the order in which a reader meets them, found by following every
// menu, list of forms and navigation bar; owned by the caller (sitemap_free).
// NULL without memory.  Reads every page once.
site_page *sitemap_read(void);

void sitemap_free(site_page *pages);

// Splits FORM or FORM/SUBITEM into a page of its own, owned by the caller
// (sitemap_free), or NULL when memory ran out.
site_page *sitemap_name(const char *name);

#endif
