// The output of the commands: lines for a person, JSON for a program (RFC 8259,
// one value for each command).

#ifndef ORVCTL_REPORT_H
#define ORVCTL_REPORT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "page.h"

extern bool report_json;  // set by the option --json
extern bool report_quiet; // report only refusals

// The place that faults are reported with: a line of a file, `file` NULL: the
// command line.  `line_of` gives the line that sets a field, by the name under
// which an error was reported.
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

// Reports the result of a Submit of the open page, with the changes or with
// every message beside its field's name, and what was skipped.  Returns the
// exit status: 0, or 1 when it was refused.
int report_result(const char *form, page_result result, bool dry,
                  report_skipped skipped);

// Reports why a command failed, as the program's own message.
void report_failure(const char *form, const char *text);
// The same with a format as for printf.
void report_fault(const char *form, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

// The output about several forms that are stored together.  From report_hold on
// only messages are printed; report_settle ends the output about one form,
// which `lasts` when it is true whatever happens to the others; report_release
// prints all of it or, without `whole`, what lasts.
bool report_hold(void); // false without memory
void report_settle(bool lasts);
void report_release(bool whole);

#endif
