// A save: what a script wants stored, judged, committed and told.

#ifndef STORE_SAVE_H
#define STORE_SAVE_H

#include <stdio.h>

// Takes the order of a save from `in`, lines as orv-store(8) describes them,
// stores what it says as one step and writes what came of it to `out`.  False
// with a fault, and nothing is stored.  Needs the lock.
bool save_order(FILE *in, FILE *out, const char *form);

#endif
