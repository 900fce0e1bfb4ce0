// The changes of a save in words: for its page, the history and the log.

#ifndef STORE_TOLD_H
#define STORE_TOLD_H

#include <stddef.h>
#include <stdio.h>

struct orv_change;

// Words the changes.  False when memory ran out; told_free is due either way.
bool told_make(const orv_change *changes);
void told_free(void);

size_t told_count(void);

// The log's line of the change `place`, from 0; borrowed until told_free.
const char *told_log(size_t place);

// Writes each change twice, as a script gets it: for its page and for its log.
void told_write_lines(FILE *out);

// Writes the values of the confirmation page that hold the changes.
void told_write_places(FILE *out);

#endif
