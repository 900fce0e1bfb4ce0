// The last saves: who, when, what, and how to get back behind them.
//
// The file .history holds an entry a save, the newest first:
//
//   @ NUMBER SECONDS USER ADDRESS FORM[/SUBITEM] KIND
//   = what changed, a line as logs have it
//   < FILE NAME=VALUE    the value before
//   + FILE NAME          there was none before
//   ! FILE               nobody had stored the file before
//
// Secrets stand in no entry, so who goes back keeps today's.

#ifndef STORE_HISTORY_H
#define STORE_HISTORY_H

#include <stdio.h>

#include "commit.h"
#include "settings.h"

// Begins the entry of a save that `stage` holds; `kind` is "saved", "back" (a
// change that nobody kept) or "reset".  Written to memory until history_end.
// False with a fault.
bool history_begin(const store_stage *stage, const char *form,
                   const char *subitem, const char *kind);

// A line of what changed.
void history_tell(const char *line);

// How to get `before` back from `after`, without what is a secret of either.
void history_note(const char *file, const settings *before,
                  const settings *after);

// Writes the entry in front of the others, of which the oldest go, into the
// stage.  False with a fault.
bool history_end(const store_stage *stage);

// Writes the entries as they stand to `out`; false with a fault.
bool history_print(FILE *out);

// Writes into the stage all files as they were before the save `number`, with
// today's secrets.  False with a fault: there is no such save, or it cannot be
// written.
bool history_stage(const store_stage *stage, uint64_t number);

#endif
