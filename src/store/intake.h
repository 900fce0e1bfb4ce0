// What a form's page gives its script: lines new_NAME="VALUE".

#ifndef STORE_INTAKE_H
#define STORE_INTAKE_H

#include <stdio.h>

// Takes the whole of standard input, so that nobody who waits for us waits for
// it, and judges its size by what the page of `form` can have (NULL: no form is
// known).  False with a fault.  Kept until the process ends.
bool intake_read(const char *form);

// The value that the page gave under that name, letter case ignored: borrowed,
// NULL when there is none.  Of a name that comes twice any one.
const char *intake_get(const char *name);

// Writes what was taken as lines NAME=VALUE: the name in small letters, a blank
// value empty, a long one cut, of lines of other shapes nothing.  False with a
// fault when a name comes twice.
bool intake_write(FILE *out);

// Whether no name comes twice; else a fault.
bool intake_is_clear(void);

// Writes lines NAME=VALUE of the names in `names`, which is taken apart, as they
// stand there: words, "port#" for the cells of a column, rows 0 to 99.  In front
// of them, a line of the columns that have a value beyond these rows, and one of
// the names whose values hold a quotation mark, which are left out.  False with
// a fault.
bool intake_write_wanted(FILE *out, char *names);

// Forgets it, to take another one.
void intake_forget(void);

#endif
