// The watchers that wait until a guarded change is kept or goes back.
//
// Each change with a step of its own has a watcher, which knows its command;
// any of them puts back an overdue change, and then all carry out their steps
// in the order of their turns.  Watchers look without the lock, but decide
// under it, when no file is being moved.  They keep no state.

#include "watch.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "act.h"
#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "guard.h"
#include "history.h"
#include "steps.h"
#include "store_text.h"

// How often a watcher looks, and how long others leave the work to a live one.
constexpr long WATCH_SECONDS = 1;
constexpr int64_t GRACE_SECONDS = 3;
static const char WHAT[] = "a guarded change";

static void wait_a_moment()
{
  const struct timespec look = {WATCH_SECONDS, 0};
  nanosleep(&look, nullptr);
}

static bool lock()
{
  return stage_folder() != nullptr || (store_lock(WHAT, 0) && store_finish());
}

// Retries, since a save may hold the lock for long, and the change must go back
// all the same.  False when the folder itself is gone.
static bool lock_at_last()
{
  struct stat folder = {};
  while (fstat(store.fd, &folder) == 0 && folder.st_nlink > 0) {
    if (lock()) {
      return true;
    }
    store_unlock();
    store_forget_fault();
    wait_a_moment();
  }
  return false;
}

// --- a watcher ---------------------------------------------------------------

enum change_state { WAITS, WENT_BACK, IS_OVER };

// Requests the actions whose own watchers have died.
static void ask_actions(char *acts)
{
  static const char key[] = "act=";
  char *rest = acts;
  for (char *line = strtok_r(rest, "\n", &rest); line != nullptr;
       line = strtok_r(nullptr, "\n", &rest)) {
    act_ask(line + strlen(key));
    store_forget_fault(); // there is nobody to report it to
  }
}

// Puts the change back as `actor`; `acts`, owned by the caller, receives the
// remaining actions.
static bool put_back(guard_actor actor, owned_text *acts)
{
  store_text text;
  FILE *out = store_open_text(&text);
  if (out == nullptr) {
    return false;
  }
  const bool back = guard_put_back(actor, out);
  const bool made = store_close_text(out, &text);
  acts->reset(text.bytes);
  return back && made;
}

// Decides under the lock, when no file is still being moved.
static change_state judge(const char *token, owned_text *acts)
{
  if (!guard_waits(token)) {
    return history_has_sign(token) ? WENT_BACK : IS_OVER;
  }
  return guard_is_over() && put_back(GUARD_WATCHER, acts) ? WENT_BACK : WAITS;
}

// The end of the change; WAITS when the folder is gone.
static change_state await_end(const char *token, owned_text *acts)
{
  change_state state = WAITS;
  for (;;) {
    while (guard_waits(token) && !guard_is_over()) {
      wait_a_moment();
    }
    store_forget_fault();
    if (!lock_at_last()) {
      return state;
    }
    state = judge(token, acts);
    store_unlock();
    store_forget_fault();
    if (state != WAITS) {
      return state;
    }
    wait_a_moment();
  }
}

// The turn is taken before the wait: a later step waits for it as soon as the
// change has gone back.
bool watch_change(const char *token)
{
  guard_step step = {};
  owned_text acts;
  if (guard_find_step(token, &step)) {
    turn_take(&step);
  }
  if (await_end(token, &acts) != WENT_BACK) {
    return false;
  }
  turn_await(&step);
  if (acts != nullptr) {
    ask_actions(acts.get());
  }
  return true;
}

// --- beside the watchers -----------------------------------------------------

// Whether no watcher is left to do it: a live one looks every second.
static bool is_left_to_us()
{
  guard_step step;
  return guard_is_overdue(GRACE_SECONDS) || !guard_find_step(nullptr, &step) ||
         !turn_is_taken(&step);
}

// Judged twice, since somebody may have kept the change while this waited for
// the lock.
bool watch_expire(void)
{
  if (!guard_is_over() || !is_left_to_us() || !lock() || !guard_is_over()) {
    return false;
  }
  owned_text acts;
  const bool back = put_back(GUARD_PRIVILEGED, &acts);
  if (back) {
    printf("ok\n%s", acts.get()[0] != '\0' ? acts.get() : "act=\n");
  }
  return back;
}
