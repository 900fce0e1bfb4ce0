// Several files that change as one step.
//
// A stage is a folder of new files beside the old ones.  Renaming it is the
// commit: from then on the new files count, wherever they are, and they are
// moved to their places.  A process that dies at any point leaves the old
// settings or the new; the next holder of the lock cleans up.  All of this
// needs the lock.

#ifndef STORE_COMMIT_H
#define STORE_COMMIT_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#define COMMIT_FOLDER ".commit"   // committed, not yet in place
#define PENDING_FOLDER ".pending" // what a guarded change has replaced
#define HISTORY_FILE ".history"   // the last saves
// A number that changes before files do, and again after them.
#define GENERATION_FILE ".generation"
#define SETTLED_FILE ".settled" // in a stage: no change is pending any more

constexpr size_t STORE_TOKEN_SIZE = 33; // 32 digits

// A folder of new files, from stage_begin to stage_commit or stage_drop, one of
// which every caller must reach.
struct store_stage {
  int fd;           // of its folder; -1: none is open
  char name[64];    // of its folder
  uint64_t number;  // of the commit, which its files carry
  bool transaction; // another process commits it, with what others stage
};

// Random hexadecimal digits that no other process can guess; false with a
// fault.
bool store_make_token(char token[STORE_TOKEN_SIZE]);

// Joins the transaction that the environment names (ORV_TRANSACTION), except in
// a request, which never takes part in one.
void stage_join(void);

// The folder of that transaction's files, which its members read first; NULL
// without one.  Borrowed.
const char *stage_folder(void);

// What a reader of several files compares before and after reading: if it is
// the same, no file has changed.
struct store_look {
  char generation[32];
  bool committed; // files are on their way to their places
};
void store_take_look(store_look *look);
bool store_is_same_look(const store_look *a, const store_look *b);

// Completes an interrupted save or removes its remains.  False with a fault.
bool store_finish(void);

// Locks for a save of `form`, unless a transaction's lock covers it, and calls
// store_finish.  `holder` as for store_lock.  False with a fault.
bool store_lock_for(const char *form, pid_t holder = 0);

// Begins a stage, or continues that of the joined transaction.  False with a
// fault, also when that transaction is over.
bool stage_begin(store_stage *stage);

// Writes the complete file `name` (a path within the stage) and syncs it.
// False with a fault.
bool stage_write(const store_stage *stage, const char *name, const char *text,
                 size_t length);

// Writes a file into the stage that makes all values of `name` come from the
// defaults again.  False with a fault.
bool stage_blank(const store_stage *stage, const char *name);

// Makes a folder within the stage.  False with a fault.
bool stage_make_folder(const store_stage *stage, const char *name);

// Commits the stage and returns when its files are in place: a pending folder
// replaces the old one, a settled file removes it.  False with a fault: the old
// settings count, and nothing is left behind.  A transaction's stage stays, for
// the process that commits it.
bool stage_commit(store_stage *stage);

// Drops the stage; a transaction's stays, but can no longer be committed.
void stage_drop(store_stage *stage);

// Logs the line; within a joined transaction, when that is committed.
void store_log(const char *line);

// Begins a transaction: `token` identifies it in the environment of its
// members.  One of the next two functions ends it.  False with a fault.
bool transaction_begin(store_stage *stage, char token[STORE_TOKEN_SIZE]);
// Commits the staged files; false with a fault also when one of its saves has
// failed, even if the script ignored that.
bool transaction_commit(store_stage *stage);
void transaction_drop(store_stage *stage);

// The number of its saves so far; -1 when one has failed.
long transaction_saves(const store_stage *stage);

// Opens the outcome of the joined transaction, for transaction_wait; -1 with
// errno.
int stage_open_outcome(void);

// Waits until the transaction is over and returns whether it was committed;
// `fd` was opened on its outcome while it lasted.
bool transaction_wait(int fd);

#endif
