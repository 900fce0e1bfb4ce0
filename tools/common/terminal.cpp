// Untrusted text on a terminal.  Keeps no state.

#include "terminal.h"

#include <stdarg.h>
#include <stdlib.h>

// The well-formed sequences of RFC 3629, section 4.  Only the byte behind the
// lead byte has bounds of its own, which exclude longer forms of a shorter
// sequence, surrogates and what is beyond U+10FFFF: a decoder that takes one of
// these may find a control character in it.
size_t terminal_utf8_length(const char *text)
{
  // clang-format off
  static const struct {
    unsigned char first, last; // of the lead byte
    unsigned char low, high;   // of the next byte
    size_t length;
  } forms[] = {
    {0x00, 0x7f, 0x00, 0x00, 1},
    {0xc2, 0xdf, 0x80, 0xbf, 2},
    {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3},
    {0xed, 0xed, 0x80, 0x9f, 3},
    {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4},
    {0xf1, 0xf3, 0x80, 0xbf, 4},
    {0xf4, 0xf4, 0x80, 0x8f, 4},
  };
  // clang-format on
  const unsigned char *byte = reinterpret_cast<const unsigned char *>(text);
  for (const auto &form : forms) {
    if (byte[0] < form.first || byte[0] > form.last) {
      continue;
    }
    size_t got = 1;
    while (got < form.length && byte[got] >= (got == 1 ? form.low : 0x80) &&
           byte[got] <= (got == 1 ? form.high : 0xbf)) {
      got++;
    }
    return got == form.length ? got : 0;
  }
  return 0;
}

// U+0080 to U+009F have the meaning of ESC and a letter on many terminals:
// U+009B begins a command like ESC [.
bool terminal_is_control(const char *text)
{
  const unsigned char *byte = reinterpret_cast<const unsigned char *>(text);
  return byte[0] < ' ' || byte[0] == 0x7f ||
         (byte[0] == 0xc2 && byte[1] >= 0x80 && byte[1] < 0xa0) ||
         terminal_utf8_length(text) == 0;
}

size_t terminal_char(FILE *out, const char *text)
{
  const size_t length = terminal_utf8_length(text);
  const size_t taken = length > 0 ? length : 1;
  if (!terminal_is_control(text)) {
    fwrite(text, 1, taken, out);
    return taken;
  }
  for (size_t i = 0; i < taken; i++) {
    fprintf(out, "\\x%02x", static_cast<unsigned char>(text[i]));
  }
  return taken;
}

// Formatted as a whole first, since an argument's control characters can be
// found only in the result.
void terminal_print(FILE *out, const char *format, ...)
{
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(nullptr, 0, format, args);
  va_end(args);
  const size_t size = static_cast<size_t>(length) + 1;
  char *text = length >= 0 ? static_cast<char *>(malloc(size)) : nullptr;
  if (text == nullptr) {
    return;
  }
  va_start(args, format);
  vsnprintf(text, size, format, args);
  va_end(args);
  for (const char *at = text; *at != '\0';) {
    if (*at == '\n' || *at == '\t') {
      putc(*at, out);
      at++;
    } else {
      at += terminal_char(out, at);
    }
  }
  free(text);
}
