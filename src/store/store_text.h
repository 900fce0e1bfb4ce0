// Text of any length, written through a stream.

#ifndef STORE_STORE_TEXT_H
#define STORE_STORE_TEXT_H

#include <stddef.h>
#include <stdio.h>

struct store_text {
  char *bytes; // owned (free), with a NUL byte behind them
  size_t length;
  size_t size; // of the memory
};

// A stream into an empty text, which must outlive it; NULL with a fault.
FILE *store_open_text(store_text *text);

// Closes the stream (NULL: none).  False with a fault when a byte was lost; the
// text is then empty.
bool store_close_text(FILE *out, store_text *text);

// Replaces control characters in lines for a terminal by "?", in place; returns
// `text`.
char *store_clean(char *text);

#endif
