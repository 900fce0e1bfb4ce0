// Settings of an older version of their form, brought to that of today.

#ifndef STORE_MIGRATE_H
#define STORE_MIGRATE_H

#include <stdio.h>

// Runs the maker's program for every stored file that is older than its
// defaults, and stores what they print as one commit.  A file whose program
// fails stays as it was, and the others do not.  Writes "ok" and a line a file
// that was brought to its version.  False with the first fault; false without
// one when there was nothing to do.  Needs the lock.
bool migrate_all(FILE *out);

#endif
