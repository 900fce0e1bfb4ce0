// Migration of settings that belong to an older version of their form.
//
// Only the device's maker knows what the values mean: the maker's program gets
// the stored values as lines and prints those of the new version.  It runs with
// the rights of the settings' owner, under the lock, one file at a time, and
// its output is checked like a save.  Nothing is stored until all are done.
//
// Does not guess: without such a program, older values are used as they are,
// and missing ones come from the defaults.

#include "migrate.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "guard.h"
#include "history.h"
#include "orv.h"
#include "orv_guard.h"
#include "settings.h"
#include "store_text.h"

// Short, since the boot waits for it.
#ifndef MIGRATE_SECONDS
#define MIGRATE_SECONDS 60
#endif
constexpr size_t OUTPUT_MAX = 3UL * 1024 * 1024; // a file has 4 MiB at most
constexpr size_t FAULT_SIZE = 300;
constexpr int CANNOT_RUN = 127; // as in a shell

// The migration of one file.
struct migration {
  const char *name;
  const settings *old;
  const char *tables;  // of the new text, a blank before each: borrowed, like
  const char *secrets; // these
};

static store_stage stage; // begun for the first file that has changed
static bool begun;
static bool broken;                  // a file in it is incomplete
static char first_fault[FAULT_SIZE]; // "": none
static store_text done_lines;        // printed once it is stored
static FILE *done;

// --- the maker's program -----------------------------------------------------

static void put_words(FILE *out, const char *key, const char *words)
{
  if (words[0] != '\0') {
    fprintf(out, "%s%s\n", key, words);
  }
}

// The program's input; false with a fault, else owned by the caller.
static bool make_input(const settings *old, store_text *text)
{
  FILE *out = store_open_text(text);
  if (out == nullptr) {
    return false;
  }
  put_words(out, "#table", old->tables);
  put_words(out, "#secret", old->secrets);
  for (size_t i = 0; i < old->count; i++) {
    if (!old->list[i].shipped) {
      fprintf(out, "%s=%s\n", old->list[i].name, old->list[i].value);
    }
  }
  return store_close_text(out, text);
}

// The same in an unnamed file, which the program reads at its own pace; -1 with
// a fault.
static int open_input(const settings *old)
{
  store_text text = {};
  const bool made = make_input(old, &text);
  const owned_text owned(text.bytes);
  const int fd = made ? memfd_create("settings", MFD_CLOEXEC) : -1;
  size_t put = 0;
  ssize_t got = fd >= 0 ? 0 : -1;
  while (got >= 0 && put < text.length) {
    got = write(fd, text.bytes + put, text.length - put);
    put += got > 0 ? static_cast<size_t>(got) : 0;
  }
  if (got >= 0 && lseek(fd, 0, SEEK_SET) == 0) {
    return fd;
  }
  store_fault_errno("the old settings cannot be passed on");
  if (fd >= 0) {
    close(fd);
  }
  return -1;
}

// In a process group of its own, so that one signal ends what it has started,
// too.  What this program ignores would stay ignored across exec.
[[noreturn]] static void become_program(const char *path, const migration *one,
                                        int input, int output)
{
  char from[16];
  char to[16];
  setpgid(0, 0);
  snprintf(from, sizeof from, "%u", one->old->version);
  snprintf(to, sizeof to, "%u", one->old->shipped_version);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  signal(SIGPIPE, SIG_DFL);
  signal(SIGXFSZ, SIG_DFL);
  execl(path, path, one->name, from, to, nullptr);
  _exit(CANNOT_RUN);
}

// Not the clock, which is often set during a boot.
static int64_t now_milliseconds()
{
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

// Reads to the end into `text`, of OUTPUT_MAX bytes and one more; false when
// that takes too long or is too much.
static bool read_output(int fd, char *text)
{
  const int64_t end = now_milliseconds() + MIGRATE_SECONDS * INT64_C(1000);
  size_t length = 0;
  while (length < OUTPUT_MAX) {
    const int64_t left = end - now_milliseconds();
    struct pollfd more = {fd, POLLIN, 0};
    if (left <= 0 || poll(&more, 1, static_cast<int>(left)) == 0) {
      return store_fault("it took longer than %d seconds", MIGRATE_SECONDS);
    }
    const ssize_t got = read(fd, text + length, OUTPUT_MAX - length);
    if (got == 0) {
      text[length] = '\0';
      return strlen(text) == length || store_fault("it printed a NUL byte");
    }
    length += got > 0 ? static_cast<size_t>(got) : 0;
  }
  return store_fault("it printed too much");
}

static bool judge_status(int status)
{
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return true;
  }
  return WIFEXITED(status)
             ? store_fault("it exited with status %d", WEXITSTATUS(status))
             : store_fault("it was killed by signal %d", WTERMSIG(status));
}

// The program's output; owned by the caller, NULL with a fault.  Our writing
// end is closed at once, or the output would never end.
static char *run_program(const char *path, const migration *one, int input)
{
  int ends[2];
  owned_text text(static_cast<char *>(must_malloc(OUTPUT_MAX + 1)));
  if (text == nullptr || pipe2(ends, O_CLOEXEC) != 0) {
    store_fault_errno("it cannot be started");
    return nullptr;
  }
  const pid_t program = fork();
  if (program == 0) {
    become_program(path, one, input, ends[1]);
  }
  close(ends[1]);
  int status = 0;
  bool whole = program > 0 && read_output(ends[0], text.get());
  close(ends[0]);
  if (program > 0) {
    if (!whole) {
      kill(-program, SIGKILL);
    }
    while (waitpid(program, &status, 0) < 0 && errno == EINTR) {
    }
    whole = whole && judge_status(status);
  }
  return whole ? text.release() : nullptr;
}

// --- what it printed ---------------------------------------------------------

// The words of a line "#KEY WORD...", a blank before each; NULL for any other
// line.
static const char *words_of(const char *line, const char *key)
{
  const size_t length = strlen(key);
  return strncmp(line, key, length) == 0 &&
                 (line[length] == ' ' || line[length] == '\0')
             ? line + length
             : nullptr;
}

// Splits the lines, in place; missing header lines are taken from the old file.
static bool take_words(char *text, migration *one)
{
  char *rest = text;
  for (char *line = strtok_r(text, "\n", &rest); line != nullptr;
       line = strtok_r(nullptr, "\n", &rest)) {
    const char *tables = words_of(line, "#table");
    const char *secrets = words_of(line, "#secret");
    one->tables = tables != nullptr ? tables : one->tables;
    one->secrets = secrets != nullptr ? secrets : one->secrets;
    const char *equals = strchr(line, '=');
    const char *blank = strpbrk(line, " \t");
    if (tables == nullptr && secrets == nullptr &&
        (isalpha(static_cast<unsigned char>(line[0])) == 0 ||
         equals == nullptr || (blank != nullptr && blank < equals))) {
      return store_fault("it printed a line that is not NAME=VALUE");
    }
  }
  return true;
}

static bool judge_values(const migration *one, settings *values)
{
  if (values->count == 0) {
    return store_fault("it printed no values");
  }
  for (size_t i = 0; i < values->count; i++) {
    const setting *value = values->list + i;
    const bool is_secret = settings_is_secret(values, value->name) ||
                           settings_is_secret(one->old, value->name);
    if (!settings_is_sound(value, is_secret)) {
      store_forget_fault();
      return store_fault("it printed a value of %.50s that cannot be stored",
                         value->name);
    }
  }
  return true;
}

// The script library reads these lines by their places: tables, then the
// version.
static bool write_new(const migration *one, const settings *values)
{
  store_text content;
  FILE *out = store_open_text(&content);
  if (out == nullptr) {
    return false;
  }
  fprintf(out, "#orv %d %" PRIu64 " -\n#table%s\n#version %u\n", STORE_FORMAT,
          stage.number, one->tables, one->old->shipped_version);
  put_words(out, "#secret", one->secrets);
  for (size_t i = 0; i < values->count; i++) {
    fprintf(out, "%s=%s\n", values->list[i].name, values->list[i].value);
  }
  const bool made = store_close_text(out, &content);
  const owned_text owned(content.bytes);
  return made && stage_write(&stage, one->name, content.bytes, content.length);
}

// --- one file ----------------------------------------------------------------

static bool begin()
{
  begun = begun || (stage_begin(&stage) &&
                    history_begin(&stage, "-", nullptr, HISTORY_MIGRATED));
  return begun;
}

static void tell(const migration *one)
{
  char line[FAULT_SIZE];
  snprintf(line, sizeof line, "%s: version %u -> %u", one->name,
           one->old->version, one->old->shipped_version);
  history_tell(line);
  fprintf(done, "line %s\n", line);
}

// The text of the new version; false with a fault, worded to follow the
// program's name.
static bool convert(const char *path, migration *one, settings *values)
{
  // The values that a pending change has replaced are older still, and may
  // come back.
  if (guard_is_pending(nullptr)) {
    return store_fault("a change waits to be kept or to go back");
  }
  const int input = open_input(one->old);
  const owned_text text(input >= 0 ? run_program(path, one, input) : nullptr);
  if (input >= 0) {
    close(input);
  }
  char *copy = text != nullptr ? must_strdup(text.get()) : nullptr;
  if (copy == nullptr || !settings_parse(one->name, copy, values) ||
      !take_words(text.get(), one) || !judge_values(one, values)) {
    return false;
  }
  // An incomplete file is never stored.
  broken = !begin() || !write_new(one, values);
  return !broken;
}

// An older library did not record which tables it stored; "*" stands for all.
static const char *old_tables(const settings *old)
{
  return old->format < STORE_FORMAT ? " *" : old->tables;
}

static bool bring_up(const char *name, const settings *old)
{
  const unsigned known = old->shipped_version;
  if (old->version > known) {
    return store_fault("The settings %s are of a newer version (%u) than this "
                       "device knows (%u)",
                       name, old->version, known);
  }
  const owned_text path(old->version < known ? store_migration(name) : nullptr);
  migration one = {name, old, old_tables(old), old->secrets};
  if (path == nullptr) {
    return store_fault_text() == nullptr;
  }
  settings values = {};
  const bool made = convert(path.get(), &one, &values);
  settings_free(&values);
  if (made) {
    tell(&one);
    return true;
  }
  char why[FAULT_SIZE];
  snprintf(why, sizeof why, "%s",
           store_fault_text() != nullptr ? store_fault_text() : "no memory");
  store_forget_fault();
  return store_fault("The settings %s stay at version %u: %s should convert "
                     "them to %u, but %s",
                     name, old->version, path.get(), known, why);
}

// One failing file does not stop the others.  Its fault is kept aside: it would
// count as theirs.
static bool migrate_file(int, const char *name, void *)
{
  settings old;
  if (broken) {
    return true;
  }
  const bool fine = settings_read_any(name, &old) &&
                    (!settings_has_stored(&old) || bring_up(name, &old));
  settings_free(&old);
  if (!fine) {
    syslog(LOG_ERR, "%s", store_fault_text());
    if (first_fault[0] == '\0') {
      snprintf(first_fault, sizeof first_fault, "%s", store_fault_text());
    }
    store_forget_fault();
  }
  return true;
}

// --- all files ---------------------------------------------------------------

static bool commit_all()
{
  if (begun && (broken || !history_end(&stage) || !stage_commit(&stage))) {
    stage_drop(&stage);
    return false;
  }
  return !broken;
}

static void log_done(const char *lines)
{
  for (const char *line = lines; *line != '\0';) {
    const size_t length = strcspn(line, "\n");
    syslog(LOG_NOTICE, "Settings brought to a new version: %.*s",
           static_cast<int>(length - strlen("line ")), line + strlen("line "));
    line += length + 1;
  }
}

bool migrate_all(FILE *out)
{
  done = store_open_text(&done_lines);
  if (done == nullptr) {
    return false;
  }
  const bool listed = store_each_file(store.fd, ".", migrate_file, nullptr) ||
                      store_fault_errno("The settings cannot be listed");
  const bool told = store_close_text(done, &done_lines);
  const owned_text lines(done_lines.bytes);
  if (listed && told && commit_all()) {
    log_done(lines.get());
  }
  if (first_fault[0] != '\0') {
    return store_fault("%s", first_fault);
  }
  if (store_fault_text() != nullptr || !begun) {
    return false;
  }
  fprintf(out, "ok\n%s", lines.get());
  return true;
}
