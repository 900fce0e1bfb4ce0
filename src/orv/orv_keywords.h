// What a template may say: the parser's keywords, and what it refuses, for
// tools that look at templates without drawing them.

#ifndef ORV_KEYWORDS_H
#define ORV_KEYWORDS_H

#include <stddef.h>

#include "orv_parser.h"

enum pt_line_kind {
  PT_HEADER_LINE,    // before and with "body"
  PT_ITEM_LINE,      // makes an item
  PT_ATTRIBUTE_LINE, // adds to the item before it
};

constexpr int PT_ALL_WORDS = -1; // a text

struct pt_keyword {
  const char *keyword;
  pt_line_kind kind;
  pt_type type;       // of the item that it makes
  int words;          // how many of those behind it are used, or PT_ALL_WORDS
  bool text;          // goes on over lines that begin with a blank
  bool cell;          // may be a table's cell
  bool attributes;    // attributes may follow
  bool input;         // has something to submit
  const char *script; // a script line's default, else NULL
};

// Stores the keyword number `index`, counted from 0 through all kinds.  False
// when there are no more.
bool orv_keyword(size_t index, pt_keyword *keyword);

enum pt_fault_code {
  PT_NO_FAULT,
  PT_NO_FILE,
  PT_READ_FAILED,
  PT_NO_MEMORY,
  // the header
  PT_UNKNOWN_HEADER_KEYWORD,
  PT_SECOND_KEYWORD,
  PT_NO_BODY,
  PT_NO_TITLE,
  PT_NOT_QUOTABLE,
  // the body
  PT_UNKNOWN_BODY_KEYWORD,
  PT_TABLE_TOO_SHORT,
  PT_NOT_IN_TABLE,
  PT_NO_NAME,
  PT_BAD_WIDTH,
  PT_BAD_COLUMNS,
  PT_BAD_ROWS,
  PT_MISPLACED, // an attribute of something that takes none
  PT_SET_TWICE, // an attribute that the item has already
  PT_NO_CHOICE_TEXT,
};

// Why the last parse of a header or body ended early, and the line that was
// read then: 0 before the first.  Its message is orv_error_msg.
struct pt_fault {
  pt_fault_code code;
  int line;
};
extern pt_fault orv_parser_fault;

#endif
