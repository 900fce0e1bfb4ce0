// What a form's page gives its script: lines new_NAME="VALUE".

#ifndef STORE_INTAKE_H
#define STORE_INTAKE_H

#include <stdio.h>

// Reads the whole of standard input, so that the lock never waits for it, and
// checks its size against what the page of `form` can have (NULL: the form is
// unknown).  False with a fault.  Kept until the process ends.
bool intake_read(const char *form);

// The page's value of that name, letter case ignored: borrowed, NULL when there
// is none.  Any of them when a name occurs twice.
const char *intake_get(const char *name);

// Writes the input as lines NAME=VALUE: names in lower case, blank values
// empty, long ones cut, lines of other shapes left out.  False with a fault
// when a name occurs twice.
bool intake_write(FILE *out);

// Whether no name occurs twice; else a fault.
bool intake_is_clear(void);

// Writes lines NAME=VALUE for the words of `names`, which is split in place, in
// their order: names, or "port#" for the cells of a column, rows 0 to 99.
// Before these, a line of the columns with a value beyond these rows, and one
// of the names whose values hold a quotation mark, which are left out.  False
// with a fault.
bool intake_write_wanted(FILE *out, char *names);

// Clears the input, to read another one.
void intake_forget(void);

#endif
