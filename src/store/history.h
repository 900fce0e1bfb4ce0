// The last saves: who, when, what, and how to get back behind them.
//
// The file .history holds an entry a save, the newest first:
//
//   @ NUMBER SECONDS USER ADDRESS FORM[/SUBITEM] KIND
//   = what changed, a line as logs have it
//   & FORM[/SUBITEM]     another form that is concerned
//   < FILE NAME=VALUE    the value before
//   + FILE NAME          there was none before
//   ! FILE               nobody had stored the file before
//   -                    the values before are too many to be kept
//
// Secrets stand in no entry, so who goes back keeps today's.

#ifndef STORE_HISTORY_H
#define STORE_HISTORY_H

#include <stdio.h>

#include "commit.h"
#include "settings.h"

// The kind of a save that brought settings to a new version of their forms.
#define HISTORY_MIGRATED "migrated"

// Begins the entry of a save that `stage` holds; `kind` is that, "saved",
// "back" (a change that nobody kept) or "reset".  Written to memory until
// history_end. False with a fault.
bool history_begin(const store_stage *stage, const char *form,
                   const char *subitem, const char *kind);

// A line of what changed, and a form that is concerned besides.
void history_tell(const char *line);
void history_also(const char *form);

// A sign for who waits to know what became of the change `token`, and whether
// one of the last saves has it.
void history_sign(const char *token);
bool history_has_sign(const char *token);

// How to get `before` back from `after`, without what is a secret of either.
void history_note(const char *file, const settings *before,
                  const settings *after);

// Writes the entry in front of the others, of which the oldest go, into the
// stage.  False with a fault.
bool history_end(const store_stage *stage);

// Writes the entries as they stand to `out`; false with a fault.
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

// Takes the next entry off `*text`, in place; false behind the last and at what
// is no entry, the latter with a fault.
bool history_next(char **text, history_entry *entry);

// Takes lines off `*lines`, in place, up to one of the kind ('=', '&'): what it
// says, NULL behind the last.
const char *history_line(char **lines, char kind);

// Writes into the stage all files that have changed since as they were before
// the save `number`, with today's secrets: to be looked at, as all values stand
// in them.  False with a fault: there is no such save, what was before is not
// known, or it cannot be written.
bool history_stage(const store_stage *stage, uint64_t number);

#endif
