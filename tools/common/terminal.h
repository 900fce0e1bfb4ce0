// Untrusted text on a terminal, which obeys control characters: names, values
// and messages from a device's files and scripts are written through this.

#ifndef COMMON_TERMINAL_H
#define COMMON_TERMINAL_H

#include <stddef.h>
#include <stdio.h>

// The length of the UTF-8 sequence that `text` begins with (RFC 3629), 0 if it
// does not begin with one.
size_t terminal_utf8_length(const char *text);

// Whether `text` begins with a character that a terminal may obey: below a
// blank, DEL, U+0080 to U+009F, or a byte that is not UTF-8.
bool terminal_is_control(const char *text);

// Writes the character that `text` (not empty) begins with, each byte of a
// control character as \x1b; returns the number of bytes used.
size_t terminal_char(FILE *out, const char *text);

// Writes like fprintf, control characters as above except line ends and tabs.
// Without memory nothing is written.
void terminal_print(FILE *out, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

#endif
