// Text of any length, written through a stream.
//
// The C library's stream for this (open_memstream) does not report lack of
// memory: it silently loses what does not fit.

#include "store_text.h"

#include <stdlib.h>
#include <string.h>

#include "fault.h"
#include "orv.h"

constexpr size_t FIRST_SIZE = 4096; // most texts are smaller

// Doubled each time, so that a text of any length is copied only a few times.
static ssize_t append(void *cookie, const char *bytes, size_t length)
{
  store_text *text = static_cast<store_text *>(cookie);
  if (text->size - text->length <= length) {
    const size_t size = 2 * text->size + length;
    if (must_realloc(&text->bytes, size) == 0) {
      return -1;
    }
    text->size = size;
  }
  memcpy(text->bytes + text->length, bytes, length);
  text->length += length;
  text->bytes[text->length] = '\0';
  return static_cast<ssize_t>(length);
}

FILE *store_open_text(store_text *text)
{
  *text = {static_cast<char *>(must_malloc(FIRST_SIZE)), 0, FIRST_SIZE};
  FILE *out = text->bytes != nullptr
                  ? fopencookie(text, "w", {nullptr, append, nullptr, nullptr})
                  : nullptr;
  if (out == nullptr) {
    store_close_text(nullptr, text);
    return nullptr;
  }
  text->bytes[0] = '\0';
  return out;
}

bool store_close_text(FILE *out, store_text *text)
{
  const bool whole = out != nullptr && ferror(out) == 0;
  const bool closed = out != nullptr && fclose(out) == 0;
  if (whole && closed) {
    return true;
  }
  free(text->bytes);
  *text = {};
  return store_fault("Out of memory");
}

char *store_clean(char *text)
{
  for (char *c = text; *c != '\0'; c++) {
    const unsigned char byte = static_cast<unsigned char>(*c);
    const unsigned char next = static_cast<unsigned char>(c[1]);
    // Control characters beyond ASCII are two bytes of UTF-8.
    const bool is_wide = byte == 0xc2 && next >= 0x80 && next < 0xa0;
    if ((byte < ' ' && byte != '\n') || byte == 0x7f || is_wide) {
      *c = '?';
      c[1] = is_wide ? '?' : c[1];
    }
  }
  return text;
}
