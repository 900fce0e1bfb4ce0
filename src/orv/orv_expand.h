// Texts with codes in them, "$X$", taken apart piece by piece.  The template's
// parameters and the page's texts know different codes: each has a table.

#ifndef ORV_EXPAND_H
#define ORV_EXPAND_H

#include <stddef.h>

struct orv_tag {
  char tag;                // the letter between the signs; '\0' ends a table
  bool of_request;         // a request can choose what it stands for
  const char *replacement; // borrowed; NULL inserts nothing
};

// What a kind of text knows.
struct orv_codes {
  orv_tag *tags;
  // The value of the reference "$T:name$" that `in` begins with, borrowed, and
  // the text behind it in `*rest`; NULL, after a report, when it is malformed
  // and stays as it is.  NULL where there are no references.
  const char *(*reference)(const char *in, const char **rest);
};

// A stretch of an expansion: the text's own or one replacement.
struct orv_piece {
  const char *text; // borrowed until the next piece
  size_t length;
  bool of_request;
};

// The record of a letter, or the table's last one.
orv_tag *orv_find_tag(const orv_codes *codes, char tag);

// The piece that the text `*in`, which is not empty, begins with; `*in` becomes
// what follows it.  A letter that is not in the table stands as it is.
orv_piece orv_next_piece(const orv_codes *codes, const char **in);

#endif
