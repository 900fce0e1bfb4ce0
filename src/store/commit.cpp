// Several files that change as one step.
//
// Readers hold no lock.  They find a file in the committed folder or in its
// final place, and read a group of files again when the generation has changed
// meanwhile: it changes before the commit, and again once all files are in
// place, while the committed folder still exists.  So if the generation and the
// folder are the same before and after, no file has changed in between.
//
// Owns the joined transaction, for the life of the process.

#include "commit.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "fault.h"
#include "folder.h"
#include "orv_guard.h"
#include "who.h"

static const char OUTCOME_FILE[] = ".outcome"; // of a transaction
// A byte for each save that takes part in a transaction; gone when one of them
// failed half-way.
static const char SAVES_FILE[] = ".saves";
static const char LOG_FILE[] = ".log"; // lines to log when it is committed
static const char NEW_PREFIX[] = ".new.";
static const char STAGE_PREFIX[] = ".stage.";
constexpr mode_t FOLDER_MODE = 0700;
constexpr mode_t FILE_MODE = 0600;
// Without blocking, in case somebody has put a FIFO in a file's place.
constexpr int OPEN_FLAGS = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr size_t HEAD_SIZE = 64; // of a settings file, to its number
constexpr size_t GENERATION_SIZE = sizeof store_look::generation;
constexpr int DEPTH_MAX = 3;       // of our own folders
constexpr size_t PLACE_DIGITS = 8; // of a token, which identify the folder

static char joined[sizeof STAGE_PREFIX + STORE_TOKEN_SIZE]; // "": none
static bool is_over;     // the named transaction has ended: it cannot be joined
static int outcome = -1; // of the transaction that this process began

static bool cannot_store()
{
  return store_fault_errno("The settings could not be stored");
}

// --- folders -----------------------------------------------------------------

static bool is_dots(const char *name)
{
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// Removes a file or folder with everything in it, as far as possible.
static void remove_tree(int dir, const char *name, int depth)
{
  // What a commit leaves is an empty folder.
  if (unlinkat(dir, name, AT_REMOVEDIR) == 0 || errno == ENOENT) {
    return;
  }
  if (unlinkat(dir, name, 0) == 0 || depth == 0) {
    return;
  }
  const store_list list(store_list_folder(dir, name));
  if (list == nullptr) {
    return;
  }
  for (const dirent *entry = store_next_entry(list.get()); entry != nullptr;
       entry = store_next_entry(list.get())) {
    if (!is_dots(entry->d_name)) {
      remove_tree(dirfd(list.get()), entry->d_name, depth - 1);
    }
  }
  unlinkat(dir, name, AT_REMOVEDIR);
}

// fsync(2) of a file does not write the folder's entry that names it.
static void sync_folder(int dir, const char *name)
{
  const int fd = store_open_folder(dir, name);
  if (fd >= 0) {
    fsync(fd);
    close(fd);
  }
}

// --- numbers -----------------------------------------------------------------

// Overwritten in place and at the same length, so that a reader without a lock
// never sees a part of the number, and not replaced: the turns of guarded
// changes are locks of this very file.  Not synced, since no reader outlives a
// power cut.
static bool change_generation()
{
  const int fd = openat(store.fd, GENERATION_FILE,
                        O_RDWR | O_CREAT | OPEN_FLAGS, FILE_MODE);
  if (fd < 0) {
    return false;
  }
  char text[GENERATION_SIZE] = "";
  const ssize_t got = pread(fd, text, sizeof text - 1, 0);
  const uint64_t number = got > 0 ? strtoull(text, nullptr, 10) : 0;
  const int length =
      snprintf(text, sizeof text, "%020" PRIu64 "\n", number + 1);
  const bool changed =
      pwrite(fd, text, static_cast<size_t>(length), 0) == length;
  close(fd);
  return changed;
}

void store_take_look(store_look *look)
{
  *look = {"", store_has(COMMIT_FOLDER)};
  const int fd = openat(store.fd, GENERATION_FILE, O_RDONLY | OPEN_FLAGS);
  if (fd >= 0) {
    static_cast<void>(
        pread(fd, look->generation, sizeof look->generation - 1, 0) > 0);
    close(fd);
  }
}

bool store_is_same_look(const store_look *a, const store_look *b)
{
  return a->committed == b->committed &&
         strcmp(a->generation, b->generation) == 0;
}

static uint64_t highest; // commit number found in a file

// Only the first bytes are read: a save looks at every file, however large.
static bool note_number(int dir, const char *name, void *)
{
  const int fd = openat(dir, name, O_RDONLY | OPEN_FLAGS);
  if (fd < 0) {
    return true; // whoever reads it next reports that
  }
  static const char mark[] = "#orv 2 ";
  char head[HEAD_SIZE] = "";
  if (read(fd, head, sizeof head - 1) > 0 &&
      strncmp(head, mark, strlen(mark)) == 0) {
    const uint64_t number = strtoull(head + strlen(mark), nullptr, 10);
    highest = number > highest ? number : highest;
  }
  close(fd);
  return true;
}

// The number of the next commit.  It does not come from the clock, which could
// be set back.
static uint64_t next_number()
{
  highest = 0;
  store_each_file(store.fd, ".", note_number, nullptr);
  store_each_file(store.fd, PENDING_FOLDER, note_number, nullptr);
  return highest + 1;
}

bool store_make_token(char token[STORE_TOKEN_SIZE])
{
  unsigned char bytes[STORE_TOKEN_SIZE / 2];
  if (getrandom(bytes, sizeof bytes, 0) != sizeof bytes) {
    return cannot_store();
  }
  for (size_t i = 0; i < sizeof bytes; i++) {
    snprintf(token + 2 * i, 3, "%02x", bytes[i]);
  }
  return true;
}

// --- ending a save that was cut short ----------------------------------------

static int moved; // files, in this pass over the folder

static bool move_file(int dir, const char *name, void *)
{
  moved++;
  return renameat(dir, name, store.fd, name) == 0;
}

// A folder that loses files while it is listed may not show all of them.  So it
// is listed until nothing is left to move.
static bool move_files()
{
  do {
    moved = 0;
    if (!store_each_file(store.fd, COMMIT_FOLDER, move_file, nullptr)) {
      return false;
    }
  } while (moved > 0);
  return true;
}

// Moves the committed files to their places.  Can be repeated at any time: any
// of the steps may have been done already.
static bool move_committed()
{
  static const char pending[] = COMMIT_FOLDER "/" PENDING_FOLDER;
  static const char settled[] = COMMIT_FOLDER "/" SETTLED_FILE;
  static const char history[] = COMMIT_FOLDER "/" HISTORY_FILE;
  static const char old[] = COMMIT_FOLDER "/.old";
  if (!move_files()) {
    return false;
  }
  if (store_has(history) &&
      renameat(store.fd, history, store.fd, HISTORY_FILE) != 0) {
    return false;
  }
  const bool replaced = store_has(pending);
  if (replaced || store_has(settled)) {
    // All of it or nothing: a part must never be put back.  rename(2) replaces
    // no folder that has files, so the old one goes first, and is removed with
    // the committed folder.
    if (renameat(store.fd, PENDING_FOLDER, store.fd, old) != 0 &&
        errno != ENOENT) {
      return false;
    }
  }
  if (replaced && renameat(store.fd, pending, store.fd, PENDING_FOLDER) != 0) {
    return false;
  }
  if (store_fault_text() != nullptr || !change_generation()) {
    return false;
  }
  fsync(store.fd);
  remove_tree(store.fd, COMMIT_FOLDER, DEPTH_MAX);
  return true;
}

static bool begins_with(const char *text, const char *start)
{
  return strncmp(text, start, strlen(start)) == 0;
}

// The lock is held, so whoever has begun these is dead.
static void remove_stages()
{
  const store_list list(store_list_folder(store.fd, "."));
  if (list == nullptr) {
    return;
  }
  for (const dirent *entry = store_next_entry(list.get()); entry != nullptr;
       entry = store_next_entry(list.get())) {
    if (begins_with(entry->d_name, NEW_PREFIX) ||
        begins_with(entry->d_name, STAGE_PREFIX)) {
      remove_tree(store.fd, entry->d_name, DEPTH_MAX);
    }
  }
}

bool store_finish(void)
{
  remove_stages();
  if (store_has(COMMIT_FOLDER) && !move_committed()) {
    return cannot_store();
  }
  return store_fault_text() == nullptr;
}

bool store_lock_for(const char *form, pid_t holder)
{
  store_who who;
  char text[WHO_TEXT_SIZE];
  char what[sizeof text + STORE_NAME_MAX];
  if (joined[0] != '\0') {
    return true;
  }
  store_ask_who(&who);
  store_write_who(&who, text, sizeof text);
  snprintf(what, sizeof what, "%.30s by %s", form, text);
  return store_lock(what, holder) && store_finish();
}

// --- a stage -----------------------------------------------------------------

// The folder of the settings as the last digits of a transaction's token, so
// that a script which keeps its settings elsewhere takes no part in it.
static void write_place(char *digits)
{
  struct stat folder = {};
  fstat(store.fd, &folder);
  const uint64_t place = folder.st_ino ^ (folder.st_dev << 16);
  snprintf(digits, PLACE_DIGITS + 1, "%08" PRIx32,
           static_cast<uint32_t>(place ^ (place >> 32)));
}

static bool is_of_this_place(const char *token)
{
  char digits[PLACE_DIGITS + 1];
  write_place(digits);
  return strcmp(token + STORE_TOKEN_SIZE - 1 - PLACE_DIGITS, digits) == 0;
}

// A transaction that is over is remembered: its late members must not store on
// their own what belongs to a step that may have been dropped.
void stage_join(void)
{
  const char *token = getenv("ORV_TRANSACTION");
  if (token == nullptr || strlen(token) != STORE_TOKEN_SIZE - 1 ||
      strspn(token, "0123456789abcdef") != STORE_TOKEN_SIZE - 1 ||
      store_serves_request() || store.fd < 0 || !is_of_this_place(token)) {
    return;
  }
  snprintf(joined, sizeof joined, "%s%s", STAGE_PREFIX, token);
  struct stat folder;
  if (fstatat(store.fd, joined, &folder, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISDIR(folder.st_mode)) {
    joined[0] = '\0';
    is_over = true;
  }
}

const char *stage_folder(void)
{
  return joined[0] != '\0' ? joined : nullptr;
}

static bool make_stage(store_stage *stage, const char *prefix,
                       const char *token)
{
  snprintf(stage->name, sizeof stage->name, "%s%s", prefix, token);
  if (mkdirat(store.fd, stage->name, FOLDER_MODE) != 0) {
    return cannot_store();
  }
  stage->fd = store_open_folder(store.fd, stage->name);
  return stage->fd >= 0 || cannot_store();
}

// All saves of a transaction get the same number: the highest stays what it was
// until they are committed.
bool stage_begin(store_stage *stage)
{
  char token[STORE_TOKEN_SIZE];
  *stage = {-1, "", next_number(), joined[0] != '\0'};
  if (is_over) {
    return store_fault("Nothing was saved: its transaction has ended");
  }
  if (stage->transaction) {
    snprintf(stage->name, sizeof stage->name, "%s", joined);
    stage->fd = store_open_folder(store.fd, joined);
    return stage->fd >= 0 || cannot_store();
  }
  return store_make_token(token) && make_stage(stage, NEW_PREFIX, token);
}

// Synced before the stage is renamed, or a power cut could leave the new name
// with an empty file.
static bool write_all(int fd, const char *text, size_t length)
{
  while (length > 0) {
    const ssize_t put = write(fd, text, length);
    if (put < 0 && errno != EINTR) {
      return false;
    }
    text += put > 0 ? put : 0;
    length -= put > 0 ? static_cast<size_t>(put) : 0;
  }
  return fsync(fd) == 0;
}

bool stage_write(const store_stage *stage, const char *name, const char *text,
                 size_t length)
{
  const int fd = openat(stage->fd, name,
                        O_WRONLY | O_CREAT | O_TRUNC | OPEN_FLAGS, FILE_MODE);
  if (fd < 0) {
    return cannot_store();
  }
  const bool written = write_all(fd, text, length);
  const int error = errno;
  // A disk may report only here that a write failed.
  const bool closed = close(fd) == 0;
  if (!written) {
    errno = error;
  }
  return (written && closed) || cannot_store();
}

// A commit can replace a file, but not remove it, so a file without values
// stands for none.
bool stage_blank(const store_stage *stage, const char *name)
{
  char head[HEAD_SIZE];
  const int length =
      snprintf(head, sizeof head, "#orv 2 %" PRIu64 " -\n", stage->number);
  return stage_write(stage, name, head, static_cast<size_t>(length));
}

bool stage_make_folder(const store_stage *stage, const char *name)
{
  return mkdirat(stage->fd, name, FOLDER_MODE) == 0 || errno == EEXIST ||
         cannot_store();
}

// The atomic step: before it the old settings count, after it the new.
static bool commit_folder(const store_stage *stage)
{
  sync_folder(stage->fd, PENDING_FOLDER);
  return fsync(stage->fd) == 0 && change_generation() &&
         renameat(store.fd, stage->name, store.fd, COMMIT_FOLDER) == 0;
}

static void close_stage(store_stage *stage)
{
  if (stage->fd >= 0) {
    close(stage->fd);
    stage->fd = -1;
  }
}

static bool commit(store_stage *stage)
{
  if (!commit_folder(stage)) {
    cannot_store();
    remove_tree(store.fd, stage->name, DEPTH_MAX);
    close_stage(stage);
    return false;
  }
  fsync(store.fd); // "saved" holds even if the power fails now
  close_stage(stage);
  move_committed(); // the next save repeats what fails here
  return true;
}

// Appends a text to one of the transaction's own files in the stage.
static bool append(int stage, const char *name, const char *text)
{
  const int fd = openat(stage, name, O_WRONLY | O_CREAT | O_APPEND | OPEN_FLAGS,
                        FILE_MODE);
  if (fd < 0) {
    return false;
  }
  const size_t length = strlen(text);
  const bool added = write(fd, text, length) == static_cast<ssize_t>(length);
  return close(fd) == 0 && added;
}

// Makes sure that the joined transaction can no longer be committed.
static void spoil()
{
  char path[STORE_PATH_SIZE];
  snprintf(path, sizeof path, "%s/%s", joined, SAVES_FILE);
  unlinkat(store.fd, path, 0);
}

static bool note_save(const store_stage *stage)
{
  // Where another save has failed, the file is gone for good.
  return transaction_saves(stage) >= 0 && append(stage->fd, SAVES_FILE, ".");
}

void store_log(const char *line)
{
  if (joined[0] == '\0') {
    syslog(LOG_NOTICE, "%s", line);
    return;
  }
  const int fd = store_open_folder(store.fd, joined);
  if (fd < 0 || !append(fd, LOG_FILE, line) || !append(fd, LOG_FILE, "\n")) {
    spoil(); // nothing is stored without a line in the log
  }
  if (fd >= 0) {
    close(fd);
  }
}

bool stage_commit(store_stage *stage)
{
  if (!stage->transaction) {
    return commit(stage);
  }
  if (!note_save(stage)) {
    return cannot_store();
  }
  close_stage(stage);
  return true;
}

void stage_drop(store_stage *stage)
{
  if (stage->transaction && stage->fd >= 0) {
    spoil(); // it may hold half a save
  }
  close_stage(stage);
  if (!stage->transaction && stage->name[0] != '\0') {
    remove_tree(store.fd, stage->name, DEPTH_MAX);
  }
}

// --- a transaction -----------------------------------------------------------
// A process with work to do after the transaction waits for the lock of the
// outcome file, whose content is the result.

// Closing the file gives up its lock, and with it those who wait for the word.
static void tell_outcome(const char *word)
{
  static_cast<void>(pwrite(outcome, word, strlen(word), 0) > 0);
  close(outcome);
  outcome = -1;
}

static bool make_outcome(const store_stage *stage)
{
  outcome = openat(stage->fd, OUTCOME_FILE,
                   O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, FILE_MODE);
  return (outcome >= 0 && flock(outcome, LOCK_EX) == 0) || cannot_store();
}

// The token ends with the place of the folder; the 24 random digits before it
// are still too many to guess.
bool transaction_begin(store_stage *stage, char token[STORE_TOKEN_SIZE])
{
  *stage = {-1, "", next_number(), false};
  if (!store_make_token(token)) {
    return false;
  }
  write_place(token + STORE_TOKEN_SIZE - 1 - PLACE_DIGITS);
  if (!make_stage(stage, STAGE_PREFIX, token) || !make_outcome(stage) ||
      !stage_write(stage, SAVES_FILE, "", 0)) {
    stage_drop(stage);
    return false;
  }
  return true;
}

long transaction_saves(const store_stage *stage)
{
  struct stat file;
  return fstatat(stage->fd, SAVES_FILE, &file, AT_SYMLINK_NOFOLLOW) == 0
             ? static_cast<long>(file.st_size)
             : -1;
}

static void log_all(char *lines)
{
  for (char *end = strchr(lines, '\n'); end != nullptr;
       end = strchr(lines, '\n')) {
    *end = '\0';
    syslog(LOG_NOTICE, "%s", lines);
    lines = end + 1;
  }
}

// The lines of the log are read first, since the commit removes the folder that
// holds them.  A transaction without a save changes nothing, which is no
// failure.
bool transaction_commit(store_stage *stage)
{
  size_t length;
  const long saves = transaction_saves(stage);
  const owned_text lines(store_read_file(stage->fd, LOG_FILE, &length));
  bool committed =
      store_fault_text() == nullptr &&
      (saves >= 0 || store_fault("The settings of a form could not be stored"));
  if (!committed || saves == 0) {
    stage_drop(stage);
  } else {
    committed = commit(stage);
  }
  if (committed && lines != nullptr) {
    log_all(lines.get());
  }
  tell_outcome(committed ? "committed" : "dropped");
  return committed;
}

void transaction_drop(store_stage *stage)
{
  tell_outcome("dropped");
  stage_drop(stage);
}

// By the joined name, which becomes invalid with the commit; the open file
// stays.
int stage_open_outcome(void)
{
  char path[sizeof joined + sizeof OUTCOME_FILE];
  snprintf(path, sizeof path, "%s/%s", joined, OUTCOME_FILE);
  return openat(store.fd, path, O_RDONLY | OPEN_FLAGS);
}

bool transaction_wait(int fd)
{
  char word[16] = "";
  if (flock(fd, LOCK_SH) != 0) {
    return false;
  }
  if (pread(fd, word, sizeof word - 1, 0) > 0) {
    return strcmp(word, "committed") == 0;
  }
  // The process that began it has died: before the commit, or after it, when
  // the folder had its other name.
  char link[32];
  char path[PATH_MAX] = "";
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  return readlink(link, path, sizeof path - 1) > 0 &&
         strstr(path, STAGE_PREFIX) == nullptr;
}
