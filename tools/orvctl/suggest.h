// What there is instead of a name that does not exist, and which of it was
// meant.

#ifndef ORVCTL_SUGGEST_H
#define ORVCTL_SUGGEST_H

#include <stddef.h>
#include <stdio.h>

struct pt_body_item;

// As much of a name as is compared and proposed.
constexpr size_t SUGGEST_SIZE = 64;

struct suggestion {
  const char *wanted; // borrowed
  FILE *stream;       // of `list`
  char *list;
  size_t size;
  size_t names;
  char nearest[SUGGEST_SIZE]; // "" while nothing is near
  size_t distance;
};

void suggest_begin(suggestion *of, const char *wanted);

// Adds a name that exists.
void suggest_name(suggestion *of, const char *name);

// What to tell of them, to be put behind a message, the list of all behind
// `words`: owned by the caller (free), NULL without memory.
char *suggest_end(suggestion *of, const char *words);

// Each reports that `name` is unknown, as `text` says with it in place of %s,
// and what there is: fields that the open page shows, its tables, a table's
// columns.
void unknown_field(const char *form, const char *text, const char *name);
void unknown_table(const char *form, const char *name);
void unknown_column(const char *form, const pt_body_item *table,
                    const char *name);
// Reports why the page of that name could not be opened, and where there is no
// such form, the device's pages.
void unopened_form(const char *name);

#endif
