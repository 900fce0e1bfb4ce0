// The pages of the device.  Keeps no state between calls; a page that cannot be
// opened is listed with its fault, and pages that only it links to are not
// found.

#include "sitemap.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orv.h"
#include "orv_changes.h"
#include "page.h"

static const char MENU_FORM[] = "orvmenu";
// More pages than a device has; endless chains of links stop here.
constexpr int PAGES_MAX = 5000;

void sitemap_free(site_page *pages)
{
  while (pages != nullptr) {
    site_page *next = pages->next;
    free(pages->form);
    free(pages->subitem);
    free(pages->name);
    free(pages->title);
    free(pages->fault);
    free(pages);
    pages = next;
  }
}

static site_page *new_page(const char *form, const char *subitem)
{
  site_page *page = static_cast<site_page *>(must_malloc(sizeof *page));
  if (page == nullptr) {
    return nullptr;
  }
  *page = {};
  const char *rest = subitem != nullptr ? subitem : "";
  const size_t size = strlen(form) + strlen(rest) + 2;
  page->form = must_strdup(form);
  page->subitem = subitem != nullptr ? must_strdup(subitem) : nullptr;
  page->name = static_cast<char *>(must_malloc(size));
  if (page->form == nullptr || page->name == nullptr ||
      (subitem != nullptr && page->subitem == nullptr)) {
    sitemap_free(page);
    return nullptr;
  }
  snprintf(page->name, size, "%s%s%s", form, subitem != nullptr ? "/" : "",
           rest);
  return page;
}

site_page *sitemap_name(const char *name)
{
  const char *slash = strchr(name, '/');
  if (slash == nullptr) {
    return new_page(name, nullptr);
  }
  char *form = must_strdup(name);
  if (form == nullptr) {
    return nullptr;
  }
  form[slash - name] = '\0';
  site_page *page = new_page(form, slash + 1);
  free(form);
  return page;
}

// Adds the page behind the last one unless it is known; the last one then, NULL
// without memory.
static site_page *add_page(site_page *pages, site_page *last, const char *form,
                           const char *subitem)
{
  site_page *page = new_page(form, subitem);
  if (page == nullptr) {
    return nullptr;
  }
  for (const site_page *known = pages; known != nullptr; known = known->next) {
    if (strcmp(known->name, page->name) == 0) {
      sitemap_free(page);
      return last;
    }
  }
  last->next = page;
  return page;
}

// Opens the page and describes it.  With its links it opens even if its script
// reports an error, so that what its bar leads to is found.
static void visit(site_page *page)
{
  if (!page_open(page->form, page->subitem, true)) {
    page->fault = must_strdup(page_message());
    return;
  }
  page->title = orv_plain_text(page_header()->title);
  page->has_input = page_header()->has_input_fields;
}

// The list grows behind the page that is being visited, so each page is
// reached, and none twice.
site_page *sitemap_read(void)
{
  site_page *pages = new_page(MENU_FORM, nullptr);
  site_page *last = pages;
  int count = 0;
  for (site_page *page = pages; page != nullptr && count < PAGES_MAX;
       page = page->next) {
    count++;
    visit(page);
    for (const page_link *link = page_links();
         page->title != nullptr && link != nullptr; link = link->next) {
      last = link->form != nullptr
                 ? add_page(pages, last, link->form, link->subitem)
                 : last;
      if (last == nullptr) {
        sitemap_free(pages);
        return nullptr;
      }
    }
  }
  return pages;
}
