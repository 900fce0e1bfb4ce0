// A script's lines for its page: NAME="VALUE" and messages.

#ifndef STORE_SCRIPT_LINES_H
#define STORE_SCRIPT_LINES_H

// Reports a value, cut to the length of a page's line, with control characters
// replaced by blanks.
void report_value(const char *name, const char *value);

// The same for a line of a list that a page shows, with its end added; dollars
// are escaped.
void report_shown_line(const char *name, const char *value);

// A message beside a field.
void report_error(const char *name, const char *text);

// The page's message, of which the first counts.
void report_message(const char *text);

// The store's fault; `fatal` when the form makes no sense without the failed
// step.
void report_fault(const char *text, bool fatal);

// Whether a message was reported.
bool report_has_errors(void);

#endif
