// Suggestions for a name that does not exist: the names that do, and the one
// that was probably meant.

#ifndef ORVCTL_SUGGEST_H
#define ORVCTL_SUGGEST_H

#include <stddef.h>
#include <stdio.h>

struct pt_body_item;

// How much of a name is compared and suggested.
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

// The suggestion to append to a message, with the list of all names after
// `words`: owned by the caller (free), NULL when memory ran out.
char *suggest_end(suggestion *of, const char *words);

// Each reports that `name` is unknown by `text`, with the name in place of %s,
// and which names exist: the fields that the open page shows, its tables, a
// table's columns.
void unknown_field(const char *form, const char *text, const char *name);
void unknown_table(const char *form, const char *name);
void unknown_column(const char *form, const pt_body_item *table,
                    const char *name);
// Reports why the page of that name could not be opened and, when there is no
// such form, the pages of the device.
void unopened_form(const char *name);

#endif
