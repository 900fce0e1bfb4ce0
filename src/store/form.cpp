// The form that settings belong to.
//
// Owns the parsed template and an index of its names, for the life of the
// process.

#include "form.h"

#include <search.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "folder.h"
#include "orv.h"
#include "orv_guard.h"
#include "settings.h"

static pt_header *header;
static pt_body_item *items;
static void *names; // of the items and of lists' entries; a search tree

// A name as it is looked for: cut before its row's number.
struct stem {
  const char *name;
  size_t length;
};

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

static void add_name(const char *name)
{
  stem *entry = name != nullptr
                    ? static_cast<stem *>(must_malloc(sizeof *entry))
                    : nullptr;
  if (entry != nullptr) {
    *entry = {name, settings_column(name)};
    tsearch(entry, &names, compare_stems);
  }
}

bool form_open(const char *form)
{
  if (items != nullptr || !store_is_name(form)) {
    return items != nullptr;
  }
  const owned_text folder(realpath(store.templates, nullptr));
  const size_t size =
      (folder != nullptr ? strlen(folder.get()) : 0) + STORE_PATH_SIZE;
  const owned_text path(static_cast<char *>(must_malloc(size)));
  if (folder == nullptr || path == nullptr) {
    return false;
  }
  snprintf(path.get(), size, "%s/%s.tpl", folder.get(), form);
  header = orv_parse_header(path.get(), nullptr);
  items = header != nullptr ? orv_parse_body(header) : nullptr;
  for (const pt_body_item *item = items; item != nullptr; item = item->next) {
    add_name(item->name);
    add_name(item->selector);
  }
  return items != nullptr;
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
