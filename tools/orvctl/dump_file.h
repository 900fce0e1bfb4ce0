// The text of a dump: a backup of the device's settings, in lines.
//
//   form PAGE                    what follows belongs to this page
//   table NAME ROWS              the rows that a table has
//   NAME=VALUE                   a field's value
//   secret NAME=VALUE            of a secret that no field shows
//   # not saved here: NAME       a secret that the dump could not hold
//   # ...                        a comment

#ifndef ORVCTL_DUMP_FILE_H
#define ORVCTL_DUMP_FILE_H

#include <stddef.h>
#include <stdio.h>

struct wanted_value;

// The beginnings of lines other than values, as they are written and read.
constexpr char DUMP_NOT_SAVED[] = "# not saved here: ";
constexpr char DUMP_SECRET[] = "secret ";

struct dump_table {
  const char *name;
  int rows;
  int line;
};

// The part of a dump that concerns one page; borrows the dump's text.
struct dump_part {
  const char *page;
  int line;
  wanted_value *values;
  size_t value_count;
  dump_table *tables;
  size_t table_count;
  wanted_value *secrets;
  size_t secret_count;
  const char **skipped; // names that the dump could not hold
  size_t skipped_count;
};

struct dump_file {
  char *text;
  dump_part *parts;
  size_t part_count;
};

// Reads all of `fp` into `text`, owned by the caller, NULL when it is empty.
// False also for binary data: a NUL byte would hide what follows it.
bool dump_read(FILE *fp, char **text);

// Splits the text into its parts.  NULL, or a static text that says what is
// wrong with the line `*number`.
const char *dump_parse(dump_file *dump, int *number);

// Frees the text and the parts.
void dump_free(dump_file *dump);

// Writes a value and a line end.  A dump is shown on terminals, and read back:
// control characters are written like \x1b, and so is a backslash that could be
// taken for the beginning of one.
void dump_put_value(FILE *out, const char *value);

#endif
