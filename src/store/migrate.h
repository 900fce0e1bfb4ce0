// Migration of settings that belong to an older version of their form.

#ifndef STORE_MIGRATE_H
#define STORE_MIGRATE_H

#include <stdio.h>

// Runs the maker's program for every stored file whose version is older than
// that of its defaults, and stores the results as one commit.  A file whose
// program fails stays as it was; the others are migrated.  Writes "ok" and a
// line for each migrated file.  False with the first fault; false without a
// fault when there was nothing to do.  Needs the lock.
bool migrate_all(FILE *out);

#endif
