// A change that goes back unless it is kept.
//
// The files that a guarded save replaces are kept beside the settings, in the
// pending folder, in the same step as the save.  They are put back when nobody
// keeps the change in time, or at the next boot.  All functions need the lock,
// except that a watcher may read without it.

#ifndef STORE_GUARD_H
#define STORE_GUARD_H

#include <stdint.h>
#include <stdio.h>

#include "commit.h"
#include "orv_changes.h"
#include "steps.h"

// A save that goes back unless it is kept; all texts borrowed.
struct guarded_change {
  const char *token;         // identifies it
  const char *form;          // that made it
  const char *subitem;       // NULL: none
  const orv_change *changes; // what it changes
  unsigned seconds;          // to keep it, once the device uses it
  const char *command;       // makes the device use it; "" for none
  const char *act;           // an action instead of a command, NULL for none
};

// What is known about the pending change.
struct pending_change {
  char token[STORE_TOKEN_SIZE];
  bool armed;    // the device uses it, so it can be kept
  int64_t left;  // seconds until it goes back, at least 0
  int64_t clock; // that time by the clock; 0 while it is not armed
  unsigned seconds;
  char *text; // owned (free): lines about its author and its content
};

// Saves the present content of `files` within the stage; files that a pending
// change has saved before stay as they are, since they are older.  False with a
// fault.
bool guard_keep(const store_stage *stage, const char *const *files,
                size_t count, const guarded_change *change);

// Reads the pending change.  False when there is none, with a fault when it
// cannot be read.
bool guard_read(pending_change *pending);

// Whether the change `token` is pending; NULL: any.
bool guard_is_pending(const char *token);

// Records that the device uses the change `token` now.  When it uses all that
// is pending, the time starts.  False when the change is not pending, or with a
// fault.
bool guard_arm(const char *token);

// Keeps the change `token` (NULL: whichever is pending) on a deliberate act: a
// command on the device or, where no link can post, a submitted page.  False
// with a fault: nothing or another change is pending, the device does not use
// it yet, or it was no such act.
bool guard_settle(const char *token);

// Who puts the change back, and so carries out the steps.
enum guard_actor {
  GUARD_BOOT,      // nobody: the device has not begun to use anything
  GUARD_WATCHER,   // each change's own watcher, in its turn
  GUARD_PRIVILEGED // actions: the caller; commands: their watchers
};

// Puts back the files that the change has replaced, as one step, and records
// that in the log and the history.  `acts` (NULL: none) receives a line
// act=NAME for each action that the caller must request: as GUARD_WATCHER,
// those whose watchers have died.  False with a fault.
bool guard_put_back(guard_actor actor, FILE *acts);

// Whether the time to keep the change is over, or so long has passed without
// the device using it that it never will.
bool guard_is_over(void);

// Whether that has been so for more than this many seconds.
bool guard_is_overdue(int64_t seconds);

// Whether the change `token` is pending, alone or with others.
bool guard_waits(const char *token);

// The step of the pending change `token` (NULL: the latest); false without one.
bool guard_find_step(const char *token, guard_step *step);

#endif
