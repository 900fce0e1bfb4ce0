// What a script says to its page: lines NAME="VALUE" and messages.

#ifndef STORE_SCRIPT_LINES_H
#define STORE_SCRIPT_LINES_H

// Reports a value, cut to what a page's line can hold, with control characters
// as blanks.
void report_value(const char *name, const char *value);

// The same for a line of a list that a page shows, its end added; dollars are
// written as pages want them.
void report_shown_line(const char *name, const char *value);

// A message beside a field.
void report_error(const char *name, const char *text);

// The page's message, of which the first counts.
void report_message(const char *text);

// A fault of the store; with `fatal` the form makes no sense without it.
void report_fault(const char *text, bool fatal);

// Whether a message was reported.
bool report_has_errors(void);

#endif
