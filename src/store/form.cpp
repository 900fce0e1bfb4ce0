// The form that settings belong to.
//
// Owns the parsed template and an index of its names, for the life of the
// process.

#include "form.h"

#include <errno.h>
#include <search.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "fault.h"
#include "folder.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "settings.h"

static char *shown_subitem; // borrowed
static pt_header *header;
static pt_body_item *items;
static void *names; // of the items and of lists' entries; a search tree

// A name as the search needs it: without its row number.
struct stem {
  const char *name;
  size_t length;
};

// Without letter case, as names are compared on a page.
static int compare_stems(const void *a, const void *b)
{
  const stem *left = static_cast<const stem *>(a);
  const stem *right = static_cast<const stem *>(b);
  const int order =
      strncasecmp(left->name, right->name,
                  left->length < right->length ? left->length : right->length);
  return order != 0 || left->length == right->length
             ? order
             : (left->length < right->length ? -1 : 1);
}

static bool add_name(const char *name)
{
  if (name == nullptr) {
    return true;
  }
  stem *entry = static_cast<stem *>(must_malloc(sizeof *entry));
  if (entry == nullptr) {
    return false;
  }
  *entry = {name, settings_column(name)};
  const void *place = tsearch(entry, &names, compare_stems);
  if (place == nullptr || *static_cast<stem *const *>(place) != entry) {
    free(entry); // no memory, or the name is there already
  }
  return place != nullptr;
}

// The file of the template; owned by the caller, NULL with errno.  The parser
// looks for a name that does not begin with "/" in the folder that was set when
// it was built.
static char *template_path(const char *form)
{
  const owned_text folder(realpath(store.templates, nullptr));
  if (folder == nullptr) {
    return nullptr;
  }
  const size_t size = strlen(folder.get()) + STORE_PATH_SIZE;
  owned_text path(static_cast<char *>(must_malloc(size)));
  if (path != nullptr) {
    snprintf(path.get(), size, "%s/%s.tpl", folder.get(), form);
  }
  return path != nullptr && access(path.get(), F_OK) == 0 ? path.release()
                                                          : nullptr;
}

// An error that left items behind counts as well: a table that could not be
// read would look as if the form had none.
static bool parse(char *path)
{
  orv_error_msg = nullptr;
  header = orv_parse_header(path, shown_subitem);
  items = header != nullptr ? orv_parse_body(header) : nullptr;
  bool known = orv_error_msg == nullptr;
  for (const pt_body_item *item = items; item != nullptr; item = item->next) {
    known = known && add_name(item->name) && add_name(item->selector);
  }
  return known;
}

void form_set_subitem(const char *subitem)
{
  shown_subitem = const_cast<char *>(subitem);
}

bool form_open(const char *form)
{
  if (items != nullptr || !store_is_name(form)) {
    return items != nullptr;
  }
  const owned_text path(template_path(form));
  if (path == nullptr ? errno == ENOENT : parse(path.get())) {
    return items != nullptr;
  }
  return store_fault("The form %s cannot be read: %s", form,
                     orv_error_msg != nullptr ? orv_error_msg
                                              : strerror(errno));
}

pt_body_item *form_items(void)
{
  return items;
}

bool form_has(const char *name)
{
  const stem key = {name, settings_column(name)};
  return tfind(&key, &names, compare_stems) != nullptr;
}
