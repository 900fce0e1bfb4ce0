// The lines of the template being read, for the two parsers: keywords, what
// stands behind them, and the codes in it.

#ifndef ORV_TEMPLATE_H
#define ORV_TEMPLATE_H

#include <stdio.h>

#include "orv_keywords.h"
#include "orv_parser.h"

// Opens the template called `name`, a path when it begins with "/", and only if
// it is a regular file.  Owned by the caller (fclose); NULL with a report.
FILE *tpl_open(const char *name);

// Points the reader at a new template, and the codes $F$ and $S$ at its form
// and sub-item (may be NULL), of which it keeps copies.  False without memory,
// with a report.
bool tpl_begin(const char *name, const char *subitem);

// What "$X$" stands for from now on, NULL: nothing; copied.  With `of_request`
// a request can choose it, and script lines have it quoted.  False without
// memory, with a report; then nothing is inserted.
bool tpl_set_code(char tag, const char *value, bool of_request);

// Keeps why the parse ends; false, so that it can be returned.
bool tpl_refuse(pt_fault_code code);

// --- the pending line --------------------------------------------------------

// Makes the next line with a keyword the pending one; 0 when there is none.
int tpl_next_keyword(pt_header *hdr);

// Whether `key`, in small letters, is the pending line's keyword.
int tpl_match_keyword(const char *key);

// The pending line and where it stands; borrowed, until the next one.
const char *tpl_line(void);
const pt_pos *tpl_location(void);

// The pending line has been dealt with.
void tpl_line_used(void);

// Goes to the line of the keyword `key`: where `cache` says, or to the next
// one, whose place `cache` then holds.  0 when there is none.
int tpl_fast_forward(pt_header *hdr, const char *key, pt_pos *cache);

// The row of the pending line's keyword, NULL when the table has none.
template <typename Row, size_t Rows>
const Row *tpl_find_keyword(const Row (&table)[Rows])
{
  for (const Row &row : table) {
    if (tpl_match_keyword(row.keyword) != 0) {
      return &row;
    }
  }
  return nullptr;
}

// --- what stands behind the keyword ------------------------------------------

// As it stands, without comment and blanks around it, "" when there is nothing;
// its words, NULL where there are no more.  All borrowed from the pending line.
char *tpl_parameter(void);
void tpl_two_words(char **one, char **two);
void tpl_three_words(char **one, char **two, char **three);

// The number that `text` begins with, 0 without one, cut to what an int holds.
int tpl_leading_number(const char *text);

// With its codes replaced; the line is then used.  Owned by the caller; NULL
// without memory, with a report.
char *tpl_take_line(void);

// The same of this line and those that continue it, appended to `save`; 0
// without memory, with a report.
int tpl_take_text(pt_header *hdr, pt_text *save);

// --- codes -------------------------------------------------------------------

// The expansion of `in` (NULL: NULL), owned by the caller; NULL with a report.
char *tpl_expand(const char *in);

// The expansion of the script command line `in`, with its values quoted, owned
// by the caller; NULL with a report.
char *tpl_expand_command(const char *in);

// Whether the expansion of `in` would hold what a request can choose.
bool tpl_inserts_request_value(const char *in);

// --- the header's keywords, for who lists them all ---------------------------

bool pt_header_keyword(size_t index, pt_keyword *keyword);
size_t pt_count_header_keywords(void);

#endif
