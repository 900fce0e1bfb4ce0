// A change that goes back unless it is kept.
//
// What a guarded save replaces is kept beside the settings, in the pending
// folder, as one step with the save.  It is put back when nobody keeps the
// change in time, or by the next boot.  All but guard_watch need the lock.

#ifndef STORE_GUARD_H
#define STORE_GUARD_H

#include "commit.h"

// Keeps within the stage what `files` hold, and what a change that is still
// pending has kept: that is older.  `token` names the change.  It can be kept
// at once when `armed`, else from guard_arm on.  False with a fault.
bool guard_keep(const store_stage *stage, const char *const *files,
                size_t count, const char *token, bool armed);

// Whether the change `token` is pending; NULL: any.
bool guard_is_pending(const char *token);

// Whether it can be kept by now.
bool guard_is_armed(void);

// The device uses the change by now: it can be kept.  False with a fault.
bool guard_arm(void);

// Keeps the change.  False with a fault.
bool guard_settle(void);

// Puts back what the change has replaced, as one step.  False with a fault.
bool guard_put_back(void);

// Waits until `seconds` have passed; false as soon as the change `token` is no
// longer pending.
bool guard_watch(const char *token, unsigned seconds);

#endif
