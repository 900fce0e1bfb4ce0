// A change that goes back unless it is kept.
//
// Owns nothing in memory.  The pending folder holds the old files, the token of
// the latest change, and a file that says that the device uses it by now.

#include "guard.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "fault.h"
#include "folder.h"
#include "orv.h"
#include "orv_guard.h"
#include "settings.h"
#include "text.h"

static const char TOKEN_FILE[] = PENDING_FOLDER "/.token";
static const char ARMED_FILE[] = PENDING_FOLDER "/.armed";
constexpr unsigned WATCH_SECONDS = 1; // how often a watcher looks

// --- keeping the old files ---------------------------------------------------

// Copies the file at `from`, or writes an empty one where there is none, to
// the pending folder of the stage, unless an older one is there.
static bool keep_file(const store_stage *stage, const char *from,
                      const char *name)
{
  char kept[STORE_PATH_SIZE];
  struct stat file;
  snprintf(kept, sizeof kept, "%s/%s", PENDING_FOLDER, name);
  if (fstatat(stage->fd, kept, &file, AT_SYMLINK_NOFOLLOW) == 0) {
    return true;
  }
  if (errno != ENOENT) {
    return store_fault_errno("The old settings cannot be kept");
  }
  size_t length = 0;
  const owned_text text(store_read_file(store.fd, from, &length));
  if (text == nullptr && store_fault_text() != nullptr) {
    return false;
  }
  // Nobody had saved it: all of it came from the defaults.
  static const char none[] = "#orv 2 0 -\n";
  return text != nullptr
             ? stage_write(stage, kept, text.get(), length)
             : stage_write(stage, kept, none, sizeof none - 1);
}

static bool keep_older(int, const char *name, void *stage)
{
  char from[STORE_PATH_SIZE];
  snprintf(from, sizeof from, "%s/%s", PENDING_FOLDER, name);
  return keep_file(static_cast<const store_stage *>(stage), from, name);
}

bool guard_keep(const store_stage *stage, const char *const *files,
                size_t count, const char *token, bool armed)
{
  if (!stage_make_folder(stage, PENDING_FOLDER)) {
    return false;
  }
  if (!store_each_file(store.fd, PENDING_FOLDER, keep_older,
                       const_cast<store_stage *>(stage)) &&
      (errno != ENOENT || store_fault_text() != nullptr)) {
    return store_fault_errno("The old settings cannot be kept");
  }
  for (size_t i = 0; i < count; i++) {
    if (!keep_file(stage, files[i], files[i])) {
      return false;
    }
  }
  unlinkat(stage->fd, ARMED_FILE, 0); // of a change in the same transaction
  return stage_write(stage, TOKEN_FILE, token, strlen(token)) &&
         (!armed || stage_write(stage, ARMED_FILE, "", 0));
}

// --- a pending change --------------------------------------------------------

bool guard_is_pending(const char *token)
{
  if (token == nullptr) {
    return store_has(PENDING_FOLDER);
  }
  size_t length = 0;
  const owned_text text(store_read_file(store.fd, TOKEN_FILE, &length));
  return text != nullptr && strcmp(text.get(), token) == 0;
}

bool guard_is_armed(void)
{
  return store_has(ARMED_FILE);
}

bool guard_arm(void)
{
  const int fd = openat(store.fd, ARMED_FILE,
                        O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) {
    return store_fault_errno("The change cannot be watched");
  }
  close(fd);
  return true;
}

bool guard_settle(void)
{
  store_stage stage;
  const bool settled = stage_begin(&stage) &&
                       stage_write(&stage, SETTLED_FILE, "", 0) &&
                       stage_commit(&stage);
  if (!settled) {
    stage_drop(&stage);
  }
  return settled;
}

// --- putting back ------------------------------------------------------------

// Stages what the pending folder holds of one file, as a commit of its own, so
// that pages that were made of what is there now are older.
static bool stage_old(int dir, const char *name, void *data)
{
  const store_stage *stage = static_cast<const store_stage *>(data);
  size_t length = 0;
  const owned_text text(store_read_file(dir, name, &length));
  if (text == nullptr) {
    return false;
  }
  const char *rest = text.get();
  const bool has_format = strncmp(rest, "#orv 2 ", strlen("#orv 2 ")) == 0;
  if (strncmp(rest, "#orv ", strlen("#orv ")) == 0) {
    rest += strcspn(rest, "\n");
    rest += *rest == '\n' ? 1 : 0;
  }
  store_text whole;
  FILE *out = store_open_text(&whole);
  if (out == nullptr) {
    return false;
  }
  // Which tables an older file held is not known: it counts for all.
  fprintf(out, "#orv 2 %" PRIu64 " -\n%s%s", stage->number,
          has_format ? "" : "#table *\n", rest);
  const bool made = store_close_text(out, &whole);
  const owned_text owned(whole.bytes);
  return made && stage_write(stage, name, whole.bytes, whole.length);
}

bool guard_put_back(void)
{
  store_stage stage;
  const bool back =
      stage_begin(&stage) &&
      store_each_file(store.fd, PENDING_FOLDER, stage_old, &stage) &&
      stage_write(&stage, SETTLED_FILE, "", 0) && stage_commit(&stage);
  if (!back) {
    stage_drop(&stage);
    return store_fault_errno("The old settings cannot be put back");
  }
  syslog(LOG_NOTICE, "Nobody confirmed the change: the old settings are back");
  return true;
}

// --- watching ----------------------------------------------------------------

static int64_t now_seconds()
{
  struct timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now); // a device that sleeps gets no more time
  return now.tv_sec;
}

bool guard_watch(const char *token, unsigned seconds)
{
  const int64_t end = now_seconds() + seconds;
  while (guard_is_pending(token)) {
    if (now_seconds() >= end) {
      return true;
    }
    const struct timespec look = {WATCH_SECONDS, 0};
    nanosleep(&look, nullptr);
  }
  return false;
}
