// Values that come from standard input: what is in a command line, every user
// of the device can read in its list of processes.

#ifndef ORVCTL_STDIN_VALUE_H
#define ORVCTL_STDIN_VALUE_H

#include <stddef.h>

#include "change.h"

// Gives every value "-" of a field of the open page that a person types into
// the next line of standard input, its line end left out; so a "-" itself is
// given that way, too.  A list or box takes "-" as it stands.  The texts are
// valid until input_free.  False, reported, when a line is missing.
bool input_values(const char *form, wanted_value *values, size_t count);

void input_free(void);

#endif
