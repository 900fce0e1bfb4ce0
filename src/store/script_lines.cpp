// A script's lines for its page.
//
// Remembers whether there was a message.

#include "script_lines.h"

#include <stdio.h>
#include <string.h>

#include "orv_changes.h"
#include "orv_limits.h"

constexpr size_t REPORTED_MAX = ORV_REPORTED_MAX;
constexpr size_t ERROR_MAX = 230; // of a message and its name

static bool has_message;
static bool has_errors;

static void write_text(const char *text, size_t room, bool shown)
{
  const size_t length = orv_cut_length(text, room);
  for (size_t i = 0; i < length && room >= 3; i++) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (shown && c == '$') { // a single one would insert a value
      fputs("$$$", stdout);
      room -= 3;
    } else {
      putchar(c < ' ' || c == 0x7f ? ' ' : c);
      room--;
    }
  }
}

void report_value(const char *name, const char *value)
{
  const size_t length = strlen(name);
  if (length > REPORTED_MAX / 2) {
    return;
  }
  printf("%s=\"", name);
  write_text(value, REPORTED_MAX - length, false);
  puts("\"");
}

void report_shown_line(const char *name, const char *value)
{
  printf("%s=\"", name);
  write_text(value, ERROR_MAX - strlen(name), true);
  puts("$L$\"");
}

void report_error(const char *name, const char *text)
{
  has_errors = true;
  printf("error_%.50s=\"", name);
  write_text(text, ERROR_MAX - strnlen(name, 50), true);
  puts("\"");
}

void report_message(const char *text)
{
  if (!has_message) {
    report_error("msg", text);
  }
  has_message = true;
}

void report_fault(const char *text, bool fatal)
{
  report_message(text);
  if (fatal) {
    puts("error_fatal=yes");
  }
}

bool report_has_errors(void)
{
  return has_errors;
}
