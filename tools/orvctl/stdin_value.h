// Values from standard input: every user of the device can read command lines
// in the list of processes.

#ifndef ORVCTL_STDIN_VALUE_H
#define ORVCTL_STDIN_VALUE_H

#include <stddef.h>

#include "change.h"

// Replaces every value "-" of a text field of the open page by the next line of
// standard input, without its line end; a "-" itself is given that way, too.
// For a list or box "-" is an ordinary value.  The texts are valid until
// input_free. False, reported, when a line is missing.
bool input_values(const char *form, wanted_value *values, size_t count);

void input_free(void);

#endif
