// A change that goes back unless it is kept.
//
// Owns nothing in memory.  The pending folder holds the old files, the token of
// the latest change, and a file that exists once the device uses the change.

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

#include "cgi_policy.h"
#include "fault.h"
#include "folder.h"
#include "orv.h"
#include "history.h"
#include "orv_guard.h"
#include "settings.h"
#include "store_text.h"
#include "who.h"

#define INFO_FILE PENDING_FOLDER "/.info"   // who made it, and until when
#define TOKEN_FILE PENDING_FOLDER "/.token" // which change it is
#define ARMED_FILE PENDING_FOLDER "/.armed" // the device uses it by now
// How long a device may take to use a change: the process in charge of that may
// have died.
constexpr unsigned START_SECONDS = 60;
constexpr size_t BOOT_SIZE = 37;  // of a boot's name
constexpr size_t FORM_SIZE = 512; // FORM/SUBITEM
// Of steps, for the number of a commit, which the saves of a transaction share.
constexpr uint64_t PLACES = 256;

// --- time --------------------------------------------------------------------

static int64_t now_seconds()
{
  struct timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now); // goes on while the device sleeps
  return now.tv_sec;
}

// The id of this boot: times since another boot cannot be compared.
static void read_boot(char (&boot)[BOOT_SIZE])
{
  boot[0] = '\0';
  const int fd = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    const ssize_t got = read(fd, boot, sizeof boot - 1);
    boot[got > 0 ? got : 0] = '\0';
    close(fd);
  }
}

// --- keeping the old files ---------------------------------------------------

// Copies the file at `from` (an empty one where there is none) to the pending
// folder of the stage, unless an older one is there.
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
  // It was never saved: all its values came from the defaults.
  static const char none[] = "#orv 2 0 -\n";
  return text != nullptr ? stage_write(stage, kept, text.get(), length)
                         : stage_write(stage, kept, none, sizeof none - 1);
}

static bool keep_older(int, const char *name, void *stage)
{
  char from[STORE_PATH_SIZE];
  snprintf(from, sizeof from, "%s/%s", PENDING_FOLDER, name);
  return keep_file(static_cast<const store_stage *>(stage), from, name);
}

static bool begins_with(const char *line, const char *key)
{
  return strncmp(line, key, strlen(key)) == 0;
}

// The information left by an older change; owned, NULL when there is none.  An
// older change of the same transaction has already taken over that of those
// before it.
static char *read_older(const store_stage *stage)
{
  size_t length;
  char *text = store_read_file(stage->fd, INFO_FILE, &length);
  return text != nullptr || store_fault_text() != nullptr
             ? text
             : store_read_file(store.fd, INFO_FILE, &length);
}

// The lines of it that stay: several forms may go back together.
static void copy_changes(FILE *out, const char *line)
{
  for (; line[0] != '\0'; line += strcspn(line, "\n") + 1) {
    const size_t size = strcspn(line, "\n");
    if (begins_with(line, "change=") || begins_with(line, "also=")) {
      fprintf(out, "%.*s\n", static_cast<int>(size), line);
    } else if (begins_with(line, "form=")) {
      fprintf(out, "also=%.*s\n", static_cast<int>(size - strlen("form=")),
              line + strlen("form="));
    }
    if (line[size] == '\0') {
      break;
    }
  }
}

static void write_end(FILE *out, unsigned seconds)
{
  char boot[BOOT_SIZE];
  read_boot(boot);
  fprintf(out, "boot=%s\nuntil=%" PRId64 "\nclock=%" PRId64 "\n", boot,
          now_seconds() + seconds,
          static_cast<int64_t>(time(nullptr)) + seconds);
}

// Whether the device then uses everything that is pending.
static bool write_steps(FILE *out, const store_stage *stage,
                        const guarded_change *change, const char *older)
{
  guard_step step = {"", stage->number * PLACES, false, ""};
  snprintf(step.token, sizeof step.token, "%s", change->token);
  step_make_key(change->form, change->subitem, change->command, change->act,
                step.key);
  step.used = change->act == nullptr && change->command[0] == '\0';
  return steps_write(out, older, &step);
}

static void write_info(FILE *out, const guarded_change *change, bool armed,
                       const char *older)
{
  store_who who;
  store_ask_who(&who);
  fprintf(out, "form=%s%s%s\nuser=%s\naddress=%s\nseconds=%u\n", change->form,
          change->subitem != nullptr ? "/" : "",
          change->subitem != nullptr ? change->subitem : "", who.user,
          who.address, change->seconds);
  write_end(out, change->seconds + (armed ? 0 : START_SECONDS));
  for (const orv_change *one = change->changes; one != nullptr;
       one = one->next) {
    const owned_text line(orv_change_line(one, ORV_ARROW_PLAIN, 50, 60));
    fprintf(out, "change=%s\n", line != nullptr ? line.get() : "");
  }
  copy_changes(out, older != nullptr ? older : "");
}

static bool keep_info(const store_stage *stage, const guarded_change *change)
{
  store_text text;
  const owned_text older(read_older(stage));
  FILE *out = store_fault_text() == nullptr ? store_open_text(&text) : nullptr;
  if (out == nullptr) {
    return false;
  }
  const bool armed = write_steps(out, stage, change, older.get());
  write_info(out, change, armed, older.get());
  const bool made = store_close_text(out, &text);
  const owned_text owned(text.bytes);
  unlinkat(stage->fd, ARMED_FILE, 0); // of a change in the same transaction
  return made && stage_write(stage, INFO_FILE, text.bytes, text.length) &&
         (!armed || stage_write(stage, ARMED_FILE, "", 0));
}

bool guard_keep(const store_stage *stage, const char *const *files,
                size_t count, const guarded_change *change)
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
  return keep_info(stage, change) &&
         stage_write(stage, TOKEN_FILE, change->token, strlen(change->token));
}

// --- a pending change --------------------------------------------------------

// The value of the first line NAME=VALUE, up to its end; NULL without one.
static const char *info_value(const char *text, const char *name)
{
  const size_t length = strlen(name);
  while (strncmp(text, name, length) != 0 || text[length] != '=') {
    text = strchr(text, '\n');
    if (text == nullptr) {
      return nullptr;
    }
    text++;
  }
  return text + length + 1;
}

static int64_t info_number(const char *text, const char *name)
{
  const char *value = info_value(text, name);
  return value != nullptr ? strtoll(value, nullptr, 10) : 0;
}

// From another boot, or from an older library, where only the watcher knows the
// time.
static int64_t seconds_left(const char *info, int64_t more = 0)
{
  char boot[BOOT_SIZE];
  read_boot(boot);
  const char *of_boot = info_value(info, "boot");
  if (of_boot == nullptr || strncmp(of_boot, boot, strlen(boot)) != 0) {
    return 0;
  }
  // The number may be anything: only a positive difference is used.
  const int64_t until = info_number(info, "until");
  const int64_t now = now_seconds() - more;
  return until > now ? until - now : 0;
}

bool guard_read(pending_change *pending)
{
  *pending = {};
  size_t length = 0;
  const owned_text token(store_read_file(store.fd, TOKEN_FILE, &length));
  if (!store_has(PENDING_FOLDER) || store_fault_text() != nullptr) {
    return false;
  }
  snprintf(pending->token, sizeof pending->token, "%s",
           token != nullptr ? token.get() : "");
  pending->armed = store_has(ARMED_FILE);
  owned_text info(store_read_file(store.fd, INFO_FILE, &length));
  pending->text = info != nullptr ? info.release() : must_strdup("");
  if (pending->text == nullptr) {
    return store_fault("Out of memory");
  }
  pending->seconds =
      static_cast<unsigned>(info_number(pending->text, "seconds"));
  pending->left = seconds_left(pending->text);
  pending->clock = pending->armed ? info_number(pending->text, "clock") : 0;
  return true;
}

bool guard_is_pending(const char *token)
{
  if (token == nullptr) {
    return store_has(PENDING_FOLDER);
  }
  size_t length = 0;
  const owned_text text(store_read_file(store.fd, TOKEN_FILE, &length));
  return text != nullptr && strcmp(text.get(), token) == 0;
}

// Replaces a file of the pending folder.  Watchers read it without the lock, so
// it is never seen half written.
static bool replace_file(const char *name, const char *text, size_t length)
{
  const store_stage here = {store.fd, "", 0, true};
  static const char beside[] = PENDING_FOLDER "/.new";
  return stage_write(&here, beside, text, length) &&
         (renameat(store.fd, beside, store.fd, name) == 0 ||
          store_fault_errno("The change cannot be watched"));
}

static bool is_end(const char *line)
{
  return begins_with(line, "boot=") || begins_with(line, "until=") ||
         begins_with(line, "clock=");
}

// Copies the information without its steps, and without its end if that has
// changed.
static void copy_rest(FILE *out, const char *info, bool has_new_end)
{
  while (*info != '\0') {
    const size_t size = strcspn(info, "\n");
    if (!begins_with(info, "step=") && !(has_new_end && is_end(info))) {
      fprintf(out, "%.*s\n", static_cast<int>(size), info);
    }
    info += size + (info[size] == '\n' ? 1 : 0);
  }
}

// The new time is in place before the change counts as used: a watcher that
// looks in between must not find it used and its old time over.
bool guard_arm(const char *token)
{
  pending_change pending;
  if (!guard_waits(token) || !guard_read(&pending)) {
    return false;
  }
  const owned_text info(pending.text);
  store_text text;
  FILE *out = store_open_text(&text);
  if (out == nullptr) {
    return false;
  }
  const bool used = steps_write_used(out, info.get(), token);
  if (used) {
    write_end(out, pending.seconds);
  }
  copy_rest(out, info.get(), used);
  const bool made = store_close_text(out, &text);
  const owned_text owned(text.bytes);
  return made && replace_file(INFO_FILE, text.bytes, text.length) &&
         (!used || replace_file(ARMED_FILE, "", 0));
}

// Under the open policy a link or another site's page can submit.
static bool is_act()
{
  const char *method = getenv("REQUEST_METHOD");
  return !store_serves_request() ||
         (cgi_policy_is_strict() && method != nullptr &&
          strcmp(method, "POST") == 0);
}

// Whether the change can be kept; else there is a fault.
static bool can_be_kept(const char *token)
{
  if (!guard_is_pending(nullptr)) {
    return store_fault("No change waits to be kept: somebody kept it, or the "
                       "old settings are back.");
  }
  if (token != nullptr && !guard_is_pending(token)) {
    return store_fault(
        "Another change was made meanwhile. Please open this page "
        "again, and look at it first.");
  }
  if (!store_has(ARMED_FILE)) {
    return store_fault("The device does not use the change yet. Please try "
                       "again in some seconds.");
  }
  return is_act() ||
         store_fault("A page cannot keep a change here: use \"orvctl "
                     "confirm\" on the device.");
}

// The commit of a settled file removes the old settings; no other file changes.
bool guard_settle(const char *token)
{
  store_stage stage;
  if (!can_be_kept(token)) {
    return false;
  }
  const bool settled = stage_begin(&stage) &&
                       stage_write(&stage, SETTLED_FILE, "", 0) &&
                       stage_commit(&stage);
  if (!settled) {
    stage_drop(&stage);
  }
  return settled;
}

// --- putting back ------------------------------------------------------------

// Gives the text of an old file a new commit number, so that pages made from
// today's values count as older.  False with a fault.
static bool make_old(const store_stage *stage, const char *old,
                     store_text *whole)
{
  const bool has_format = strncmp(old, "#orv 2 ", strlen("#orv 2 ")) == 0;
  if (strncmp(old, "#orv ", strlen("#orv ")) == 0) {
    old += strcspn(old, "\n");
    old += *old == '\n' ? 1 : 0;
  }
  FILE *out = store_open_text(whole);
  if (out == nullptr) {
    return false;
  }
  // Which tables an older file held is unknown, so it counts for all.
  fprintf(out, "#orv 2 %" PRIu64 " -\n%s%s", stage->number,
          has_format ? "" : "#table *\n", old);
  return store_close_text(out, whole);
}

// Read whatever its version: the file also goes back on a device that would
// refuse to use it.
static bool stage_old(int dir, const char *name, void *data)
{
  const store_stage *stage = static_cast<const store_stage *>(data);
  size_t length = 0;
  const owned_text text(store_read_file(dir, name, &length));
  store_text made = {};
  const bool is_made = text != nullptr && make_old(stage, text.get(), &made);
  const owned_text whole(made.bytes);
  settings now = {};
  settings then = {};
  const bool is_read = is_made && settings_read_any(name, &now);
  char *copy = is_read ? must_strdup(whole.get()) : nullptr;
  const bool read = copy != nullptr && settings_imagine(name, copy, &then);
  if (read) {
    history_note(name, &now, &then);
  }
  settings_free(&now);
  settings_free(&then);
  return read && stage_write(stage, name, whole.get(), made.length);
}

// The forms whose changes go back.
static void tell_others(const char *info)
{
  char name[FORM_SIZE];
  for (const char *form = info_value(info, "also"); form != nullptr;
       form = info_value(form, "also")) {
    snprintf(name, sizeof name, "%.*s", static_cast<int>(strcspn(form, "\n")),
             form);
    history_also(name);
  }
}

// Notes in the history which watchers have to do their steps, and lists for the
// caller the actions that it must request.
static void tell_steps(const char *info, guard_actor actor, FILE *acts)
{
  guard_step step;
  while (actor != GUARD_BOOT && step_next(&info, &step)) {
    const bool is_left = step_act(&step) != nullptr &&
                         (actor == GUARD_PRIVILEGED || !turn_is_taken(&step));
    if (!is_left) {
      history_sign(step.token);
    } else if (acts != nullptr) {
      fprintf(acts, "act=%s\n", step_act(&step));
    }
  }
}

static bool stage_all(const store_stage *stage, const pending_change *pending,
                      guard_actor actor, FILE *acts)
{
  const char *form = info_value(pending->text, "form");
  char name[FORM_SIZE];
  snprintf(name, sizeof name, "%.*s",
           form != nullptr ? static_cast<int>(strcspn(form, "\n")) : 1,
           form != nullptr ? form : "-");
  if (!history_begin(stage, name, nullptr, "back")) {
    return false;
  }
  history_tell("Nobody kept the change: the old settings are back");
  tell_others(pending->text);
  tell_steps(pending->text, actor, acts);
  const bool staged = store_each_file(store.fd, PENDING_FOLDER, stage_old,
                                      const_cast<store_stage *>(stage));
  return history_end(stage) && staged;
}

bool guard_put_back(guard_actor actor, FILE *acts)
{
  pending_change pending;
  store_stage stage = {-1, "", 0, false};
  if (!guard_read(&pending)) {
    return false;
  }
  const owned_text info(pending.text);
  const bool back =
      stage_begin(&stage) && stage_all(&stage, &pending, actor, acts) &&
      stage_write(&stage, SETTLED_FILE, "", 0) && stage_commit(&stage);
  if (!back) {
    stage_drop(&stage);
    return store_fault_errno("The old settings cannot be put back");
  }
  syslog(LOG_NOTICE, "Nobody kept the change: the old settings are back");
  return true;
}

// --- watching ----------------------------------------------------------------

bool guard_is_over(void)
{
  pending_change pending;
  if (!guard_read(&pending)) {
    return false;
  }
  free(pending.text);
  return pending.left == 0;
}

bool guard_is_overdue(int64_t seconds)
{
  pending_change pending;
  if (!guard_read(&pending)) {
    return false;
  }
  const owned_text info(pending.text);
  return seconds_left(info.get(), seconds) == 0;
}

bool guard_waits(const char *token)
{
  guard_step step;
  return guard_is_pending(token) || guard_find_step(token, &step);
}

bool guard_find_step(const char *token, guard_step *step)
{
  pending_change pending;
  if (!guard_read(&pending)) {
    return false;
  }
  const owned_text info(pending.text);
  return step_find(info.get(), token != nullptr ? token : pending.token, step);
}
