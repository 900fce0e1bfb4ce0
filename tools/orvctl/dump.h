// A backup of the device as plain text, and the way back.
//
// A dump is lines: "form FORM[/SUBITEM]" begins a page, "NAME=VALUE" is the
// value of a field as the page shows it, "table NAME ROWS" tells how many rows
// a table has, whose cells stand as fields, "secret NAME=VALUE" is what the
// device stores of a secret that no field shows, a hash.  "# not saved here:
// NAME" names a secret that the dump lacks; other "#" lines and blank ones say
// nothing.

#ifndef ORVCTL_DUMP_H
#define ORVCTL_DUMP_H

#include <stdio.h>

// Writes the pages named (none: every page with input) to standard output.
// Secrets are left out unless asked for.  The exit status.
int dump_pages(char **names, int count, bool secrets);

// Reads a dump and saves what it holds as one step, after all of it has been
// judged: when a page is refused, nothing is saved.  With `dry`, nothing is
// saved in any case.  The exit status.
int apply_dump(FILE *dump, const char *file, bool dry);

// The settings of the pages named (none: every page with input), without
// secrets but with their names, for apply_settings: owned by the caller (free).
// NULL, reported, when a page cannot be read.
char *dump_settings(char **names, int count);

// Saves such a text, which is taken, as apply_dump does; `command` is told to
// have failed then.  Results become members of the list that is open.
int apply_settings(char *text, const char *command, bool dry);

#endif
