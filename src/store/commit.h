// Several files that change as one step.
//
// A stage is a folder of new files beside the old ones.  Renaming it is the
// commit: from then on the new files count, wherever they are found, and they
// are moved to their places.  Who dies meanwhile leaves the old settings or the
// new; the next who holds the lock clears up.  All of this needs the lock.

#ifndef STORE_COMMIT_H
#define STORE_COMMIT_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#define COMMIT_FOLDER ".commit"   // committed, not yet at its places
#define PENDING_FOLDER ".pending" // what a guarded change has replaced
#define HISTORY_FILE ".history"   // the last saves
// A number that changes before files do, and again behind them.
#define GENERATION_FILE ".generation"
#define SETTLED_FILE ".settled" // in a stage: no change is pending any more

constexpr size_t STORE_TOKEN_SIZE = 33; // 32 digits

struct store_stage {
  int fd;           // of its folder; -1: none is open
  char name[64];    // of its folder
  uint64_t number;  // what its files carry as that of the commit
  bool transaction; // somebody else commits it, with what others stage
};

// What no other process will think of, in hexadecimal digits; false with a
// fault.
bool store_make_token(char token[STORE_TOKEN_SIZE]);

// Joins the transaction that the environment names (ORV_TRANSACTION), unless a
// request is being served: no request takes part in one.
void stage_join(void);

// The folder of that transaction's files, which count for who takes part; NULL
// without one.  Borrowed.
const char *stage_folder(void);

// What a reader of several files sees before and behind them: between two equal
// looks no file has changed.
struct store_look {
  char generation[32];
  bool committed; // files are on their way to their places
};
void store_take_look(store_look *look);
bool store_is_same_look(const store_look *a, const store_look *b);

// Ends what a save that was cut short has left.  False with a fault.
bool store_finish(void);

// Locks for a save of `form`, unless a transaction's lock covers it, and ends
// what was left.  False with a fault.
// `holder` as for store_lock.
bool store_lock_for(const char *form, pid_t holder = 0);

// Begins a stage, or goes on with that of the transaction at hand.  False with
// a fault, also when that transaction is over.
bool stage_begin(store_stage *stage);

// Writes the file `name` (a path within the stage), whole and synced.  False
// with a fault.
bool stage_write(const store_stage *stage, const char *name, const char *text,
                 size_t length);

// Writes a file into the stage by which all values of `name` come from the
// defaults again.  False with a fault.
bool stage_blank(const store_stage *stage, const char *name);

// Makes a folder within the stage.  False with a fault.
bool stage_make_folder(const store_stage *stage, const char *name);

// Makes the stage count, and is through when its files are at their places: a
// pending folder takes the place of the old one, a settled file takes the old
// one away.  False with a fault: the old settings count, and nothing is left.
// A transaction's stage stays, for who commits it.
bool stage_commit(store_stage *stage);

// Gives the stage up; a transaction's stays, but can no longer be committed.
void stage_drop(store_stage *stage);

// Logs the line; of a transaction that was joined, once it is committed.
void store_log(const char *line);

// Begins a transaction: `token` is what the environment of all who take part
// names it by.  Then one of the next two ends it.  False with a fault.
bool transaction_begin(store_stage *stage, char token[STORE_TOKEN_SIZE]);
// Commits what was staged; false with a fault, too, when a save that took part
// has failed, whatever its script made of that.
bool transaction_commit(store_stage *stage);
void transaction_drop(store_stage *stage);

// The number of saves that have taken part so far; -1 when one has failed.
long transaction_saves(const store_stage *stage);

// Opens the outcome of the transaction at hand, for transaction_wait; -1 with
// errno.
int stage_open_outcome(void);

// Waits until the transaction is over, through `fd`, opened on its outcome
// while it lasted: whether it was committed.
bool transaction_wait(int fd);

#endif
