// The last saves: who, when, what, and how to undo them.
//
// The file .history holds one entry for each save, the newest first:
//
//   @ NUMBER SECONDS USER ADDRESS FORM[/SUBITEM] KIND
//   = what changed, a line as logs have it
//   & FORM[/SUBITEM]     another form that was changed
//   < FILE NAME=VALUE    the value before
//   + FILE NAME          there was no value before
//   ! FILE               the file had never been stored before
//   -                    there were too many values before to keep them
//
// No entry holds a secret, so restoring keeps today's.

#ifndef STORE_HISTORY_H
#define STORE_HISTORY_H

#include <stdio.h>

#include "commit.h"
#include "settings.h"

// The kind of a save that migrated settings to a new version of their forms.
#define HISTORY_MIGRATED "migrated"

// Begins the entry of a save that `stage` holds; `kind` is HISTORY_MIGRATED,
// "saved", "back" (a change that nobody kept) or "reset".  Written to memory
// until history_end.  False with a fault.
bool history_begin(const store_stage *stage, const char *form,
                   const char *subitem, const char *kind);

// Adds a line of what changed, or another form that was changed.
void history_tell(const char *line);
void history_also(const char *form);

// Marks the entry for processes that wait for the outcome of the change
// `token`; whether one of the last saves has that mark.
void history_sign(const char *token);
bool history_has_sign(const char *token);

// Adds how to get `before` back from `after`, without the secrets of either.
void history_note(const char *file, const settings *before,
                  const settings *after);

// Writes the history into the stage with the entry in front and without the
// oldest ones.  False with a fault.
bool history_end(const store_stage *stage);

// Writes the entries to `out` as they are stored; false with a fault.
bool history_print(FILE *out);

// An entry taken apart; all texts borrowed from the history's.
struct history_entry {
  uint64_t number; // a transaction's saves share one
  int64_t seconds; // of the clock, in UTC
  const char *user;
  const char *address;
  const char *form; // FORM[/SUBITEM], "-" for a reset of the device
  const char *kind;
  char *lines; // the rest, for history_line
};

// The entries' text, owned by the caller (free); NULL when there are none or
// with a fault.
char *history_read(void);

// Takes the next entry off `*text`, in place; false at the end, and with a
// fault where there is no valid entry.
bool history_next(char **text, history_entry *entry);

// Takes lines off `*lines`, in place, up to one of the kind ('=', '&'): its
// text, NULL at the end.
const char *history_line(char **lines, char kind);

// Writes all files that have changed since the save `number` into the stage, as
// they were before it, with today's secrets and with all values.  False with a
// fault: there is no such save, the values before it are unknown, or the files
// cannot be written.
bool history_stage(const store_stage *stage, uint64_t number);

#endif
