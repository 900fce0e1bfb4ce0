// The form that keeps a guarded change, and the link to it.

#ifndef STORE_CONFIRM_H
#define STORE_CONFIRM_H

#include <stddef.h>

#define CONFIRM_FORM "confirm"

constexpr size_t CONFIRM_SENTENCE_SIZE = 200;

// The tasks of that form: show the pending change, keep it.  False with a
// fault.
bool confirm_read(void);
bool confirm_write(void);

// Writes a sentence about the pending change, for confirmation pages and
// terminals: who made it and until when it can be kept.  "" when none is
// pending.
void confirm_sentence(char *text, size_t size);

// Prints the navigation bar: a link to the pending change, then the lines of
// the file `navbar` of the templates or, where they have none, of the folder of
// `path`.  A line for the form `confirm` gives that link's label.  Always true.
bool navbar_print(const char *path);

#endif
