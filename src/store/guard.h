// A change that goes back unless it is kept.
//
// What a guarded save replaces is kept beside the settings, in the pending
// folder, as one step with the save.  It is put back when nobody keeps the
// change in time, or by the next boot.  All of it needs the lock, but that a
// watcher may look without.

#ifndef STORE_GUARD_H
#define STORE_GUARD_H

#include <stdint.h>
#include <stdio.h>

#include "commit.h"
#include "orv_changes.h"
#include "steps.h"

// A save that goes back unless it is kept; all texts borrowed.
struct guarded_change {
  const char *token;         // its name
  const char *form;          // that made it
  const char *subitem;       // NULL: none
  const orv_change *changes; // what it is
  unsigned seconds;          // from when the device uses it
  const char *command;       // that makes it do so, in words; "" for none
  const char *act;           // an action in place of a command, NULL for none
};

// What is known of the change that is pending.
struct pending_change {
  char token[STORE_TOKEN_SIZE];
  bool armed;    // the device uses it, so it can be kept
  int64_t left;  // seconds until it goes back, not below 0
  int64_t clock; // when that is, by the clock; 0 as long as it is not armed
  unsigned seconds;
  char *text; // owned (free): lines of who made it and what it is
};

// Keeps within the stage what `files` hold, and what a change that is still
// pending has kept: that is older.  False with a fault.
bool guard_keep(const store_stage *stage, const char *const *files,
                size_t count, const guarded_change *change);

// Reads what is pending.  False when nothing is, with a fault when that cannot
// be read.
bool guard_read(pending_change *pending);

// Whether the change `token` is pending; NULL: any.
bool guard_is_pending(const char *token);

// The device uses the change `token` by now.  When it uses all that is pending,
// the time begins.  False when the change is not pending, or with a fault.
bool guard_arm(const char *token);

// Keeps the change `token` (NULL: whichever it is), for an act: a command of
// the device's own or, where no link can post, a page that was submitted. False
// with a fault: nothing, or another change, is pending, the device does not use
// it yet, or it was no act.
bool guard_settle(const char *token);

// Who puts back, and so who does the steps.
enum guard_actor {
  GUARD_BOOT,      // nobody: the device has not begun to use anything
  GUARD_WATCHER,   // each change's own watcher, in its turn
  GUARD_PRIVILEGED // actions: who calls; commands: their watchers
};

// Puts back what the change has replaced, as one step, told to the log and the
// history.  Into `acts` (NULL: nowhere) go lines act=NAME, the actions that
// the caller shall see to: as GUARD_WATCHER those whose watchers have died.
// False with a fault.
bool guard_put_back(guard_actor actor, FILE *acts);

// Whether nobody kept the change in time, or nobody has made the device use it
// for so long that nobody will.
bool guard_is_over(void);

// Whether that is so for longer than these seconds.
bool guard_is_overdue(int64_t seconds);

// Whether the change `token`, pending or one of several that are, waits.
bool guard_waits(const char *token);

// The step of the pending change `token` (NULL: the latest); false without one.
bool guard_find_step(const char *token, guard_step *step);

#endif
