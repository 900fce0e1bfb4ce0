// Backup of the device as plain text, and restoring it.
//
// A dump consists of lines: "form FORM[/SUBITEM]" begins a page, "NAME=VALUE"
// is the value of a field as the page shows it, "table NAME ROWS" gives the
// number of rows of a table, whose cells follow as fields, "secret NAME=VALUE"
// is the stored form, a hash, of a secret that no field shows.  "# not saved
// here: NAME" names a secret that the dump lacks; other "#" lines and blank
// ones are comments.

#ifndef ORVCTL_DUMP_H
#define ORVCTL_DUMP_H

#include <stdio.h>

// Writes the pages named (none: every page with input) to standard output.
// Secrets are left out unless asked for.  The exit status.
int dump_pages(char **names, int count, bool secrets);

// Reads a dump, checks all of it and saves it as one step: when a page is
// refused, nothing is saved.  With `dry`, nothing is saved in any case. Returns
// the exit status.
int apply_dump(FILE *dump, const char *file, bool dry);

// The settings of the pages named (none: every page with input), without
// secrets but with their names, for apply_settings: owned by the caller (free).
// NULL, reported, when a page cannot be read.
char *dump_settings(char **names, int count);

// Saves such a text, which is taken, as apply_dump does; a failure is reported
// as that of `command`.  Results become members of the list that is open.
int apply_settings(char *text, const char *command, bool dry);

#endif
