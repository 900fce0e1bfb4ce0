// What the commands tell: for a person as lines, for a program as JSON
// (RFC 8259, one value a command).

#ifndef ORVCTL_REPORT_H
#define ORVCTL_REPORT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "page.h"

extern bool report_json;  // set by the option --json
extern bool report_quiet; // only refusals are told

// Where what is being carried out stands, to be told with its faults; `file`
// NULL: in a command line.  `line_of` gives the line that sets the field, by
// the name under which an error was reported.
struct report_place {
  const char *file; // borrowed
  int line;
  int (*line_of)(const char *name);
};

extern report_place report_at;

// Writes `text` as a JSON string; bytes that are no UTF-8 become U+FFFD.
void report_string(FILE *out, const char *text);

// Opens the object or list `bracket` and the member `name` (NULL: none) before
// it; commas are written as needed.
void report_open(const char *name, char bracket);
void report_close(char bracket);
// A member of an object; in a list `name` is NULL.
void report_member(const char *name, const char *value);
void report_truth(const char *name, bool value);
// The value of a field as the page shows it: of a box a truth value.
void report_field(const char *name, const page_field *field);

void report_number(const char *name, int64_t value);

// Names that a dump could not hold; borrowed.
struct report_skipped {
  const char *const *names;
  size_t count;
};
extern bool report_skipped_stay; // they are secrets that stay as they are

// Tells what a Submit of the open page came to, with what has changed or with
// every message beside its field's name, and what was skipped.  The exit status
// that follows: 0, or 1 when it was refused.
int report_result(const char *form, page_result result, bool dry,
                  report_skipped skipped);

// Tells why a command could not be carried out, as the program's own message.
void report_failure(const char *form, const char *text);
// The same of a text that is put together.
void report_fault(const char *form, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

// What is told of several forms that are stored together.  From report_hold on
// nothing is printed but messages; report_settle ends what is told of one form,
// which `lasts` when it is true whatever becomes of the others; report_release
// prints all of it, or, without `whole`, what lasts.
bool report_hold(void); // false without memory
void report_settle(bool lasts);
void report_release(bool whole);

#endif
