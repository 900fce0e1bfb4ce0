// The values that a form's page passes to its script: lines new_NAME="VALUE".

#ifndef STORE_INTAKE_H
#define STORE_INTAKE_H

#include <stdio.h>

// Reads standard input to its end, so that nobody holds the lock while waiting
// for it, and checks its size against the fields of the page of `form` (NULL:
// the form is unknown).  False with a fault.  Kept until the process ends.
bool intake_read(const char *form);

// The page's value of that name, ignoring letter case: borrowed, NULL when
// there is none.  When a name occurs twice, either of its values.
const char *intake_get(const char *name);

// One more than the number of the last row that has a field, at most those that
// are stored.
int intake_count_rows(void);

// Writes the input as lines NAME=VALUE: names in lower case, blank values
// empty, long ones cut, lines of other formats left out.  False with a fault
// when a name occurs twice.
bool intake_write(FILE *out);

// Whether no name occurs twice; else a fault.
bool intake_is_clear(void);

// Writes lines NAME=VALUE for the words of `names`, which is split in place, in
// their order: names, or "port#" for a column's cells, up to the last row that
// can be stored.  Two lines come first: the columns with a value beyond that
// row, and the names left out because their values hold a quotation mark.
// False with a fault.
bool intake_write_wanted(FILE *out, char *names);

// Clears the input, to read another one.
void intake_forget(void);

#endif
