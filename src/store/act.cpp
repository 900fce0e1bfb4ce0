// Requests for actions.
//
// Keeps no state between calls.  The reader of the FIFO does not trust its
// writers, so only a name goes through it, and nothing is created or replaced
// in a folder of the privileged side.  The files there are checked all the
// same: on a device that was never set up, anybody may have put anything there.

#include "act.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "commit.h"
#include "fault.h"
#include "orv_guard.h"

#ifndef ORV_DATA_DIR
#define ORV_DATA_DIR "/usr/share/larkspur"
#endif

// Begins each fault of a request: the values are stored by then, and a message
// that sounds like a failed save would have them entered again.
#define UNUSED "Saved, but not in use: "

static const char ACTS_FOLDER[] =
    "/run/larkspur/acts"; // unless ORV_ACTS is set
static const char ACTIONS_FOLDER[] = ORV_DATA_DIR "/actions"; // ORV_ACTIONS
static const char ASK_FIFO[] = "ask";
static const char RUNNING[] = "running";
constexpr size_t NAME_MAX_LENGTH = 40; // of an action; the reader takes no more
constexpr size_t OUTPUT_MAX = 4096;    // of an action, as the reader keeps it
constexpr size_t WORD_SIZE = 48;       // of the line before the output
constexpr size_t FIRST_LINE_MAX = 120; // of an output, in a message
constexpr int FULL_MILLISECONDS =
    5000; // the reader empties the FIFO once a second
constexpr long LOOK_NANOSECONDS = 50'000'000; // between two looks at a result

// A result: "RUN STATE", a line end, and the output.  Each run has its own
// word; its state is "running", an exit status, "late" or "refused".
struct act_result {
  char run[WORD_SIZE]; // "": none yet
  char state[WORD_SIZE];
  char output[OUTPUT_MAX + 1];
  size_t length;
};

static const char *place(const char *variable, const char *otherwise)
{
  const char *path = getenv(variable);
  return path != nullptr && path[0] != '\0' ? path : otherwise;
}

static bool is_name(const char *name)
{
  const size_t length = strlen(name);
  return length > 0 && length <= NAME_MAX_LENGTH &&
         strspn(name, "abcdefghijklmnopqrstuvwxyz0123456789_-") == length;
}

// Where the folder may not be looked into, the reader has to decide.
bool act_exists(const char *name)
{
  struct stat file;
  const char *path = place("ORV_ACTIONS", ACTIONS_FOLDER);
  const int dir = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (dir < 0) {
    return errno == EACCES && is_name(name);
  }
  const bool exists =
      is_name(name) &&
      (fstatat(dir, name, &file, AT_SYMLINK_NOFOLLOW) == 0 || errno == EACCES);
  close(dir);
  return exists;
}

// --- asking ------------------------------------------------------------------

// ENOENT: the service has removed its FIFO; ENXIO: nobody has it open (POSIX,
// of an open that does not block); EPIPE: its reader has just ended.
static bool cannot_ask(int error)
{
  if (error == ENOENT || error == ENXIO || error == EPIPE) {
    return store_fault(UNUSED "the service larkspur-acts does not run");
  }
  if (error == EAGAIN) {
    return store_fault(UNUSED "too many actions are waiting");
  }
  errno = error;
  return store_fault(UNUSED "nothing can be requested in %.80s: %s",
                     place("ORV_ACTS", ACTS_FOLDER), strerror(error));
}

// The folder of the FIFO and the results, -1 with errno.
static int open_acts()
{
  return open(place("ORV_ACTS", ACTS_FOLDER), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

static bool is_fifo(const struct stat *file)
{
  return S_ISFIFO(file->st_mode);
}

// The FIFO to write into, -1 with errno.  Opening anything else could have an
// effect, so its type is checked first.
static int open_fifo(int acts)
{
  struct stat file;
  if (fstatat(acts, ASK_FIFO, &file, AT_SYMLINK_NOFOLLOW) != 0) {
    return -1;
  }
  const int fd =
      is_fifo(&file)
          ? openat(acts, ASK_FIFO,
                   O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC)
          : -1;
  if (fd < 0 && is_fifo(&file)) {
    return -1;
  }
  if (fd >= 0 && fstat(fd, &file) == 0 && is_fifo(&file)) {
    return fd;
  }
  if (fd >= 0) {
    close(fd);
  }
  errno = ENOTSUP;
  return -1;
}

// One write of less than PIPE_BUF, so lines never mix.  A line end goes first,
// in case another writer has left half a line.
static bool write_name(int acts, const char *name)
{
  char line[NAME_MAX_LENGTH + 3];
  const int length = snprintf(line, sizeof line, "\n%s\n", name);
  const int fd = open_fifo(acts);
  if (fd < 0) {
    return cannot_ask(errno);
  }
  ssize_t put = write(fd, line, static_cast<size_t>(length));
  pollfd room = {fd, POLLOUT, 0};
  if (put < 0 && errno == EAGAIN && poll(&room, 1, FULL_MILLISECONDS) > 0) {
    put = write(fd, line, static_cast<size_t>(length));
  }
  const int error = errno;
  close(fd);
  return put == length || cannot_ask(put < 0 ? error : EIO);
}

static bool ask_now(const char *name)
{
  const int acts = open_acts();
  if (acts < 0) {
    return cannot_ask(errno);
  }
  const bool asked = write_name(acts, name);
  close(acts);
  return asked;
}

// The script that makes the request must be able to end before the transaction,
// so a process of its own waits for that.  It leaves the script's process
// group, which gets the signals that end a page, and its pipes, for whose end
// the page waits.
static bool ask_later(const char *name)
{
  const int outcome = stage_open_outcome();
  const pid_t waiter = outcome >= 0 ? fork() : -1;
  if (outcome < 0 || waiter < 0) {
    return store_fault_errno("The action cannot wait for the transaction");
  }
  if (waiter > 0) {
    close(outcome);
    return true;
  }
  setsid();
  const int nothing = open("/dev/null", O_RDWR);
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
    dup2(nothing, fd);
  }
  if (transaction_wait(outcome) && !ask_now(name)) {
    syslog(LOG_ERR, "%s", store_fault_text());
  }
  _exit(0);
}

static bool can_ask(const char *name)
{
  if (!is_name(name)) {
    return store_fault("%.50s is not a valid name of an action", name);
  }
  return act_exists(name) ||
         store_fault(UNUSED "this device has no action %s", name);
}

bool act_ask(const char *name)
{
  if (!can_ask(name)) {
    return false;
  }
  return stage_folder() != nullptr ? ask_later(name) : ask_now(name);
}

// --- the result --------------------------------------------------------------

// Reads the action's latest result; an empty one when there is none.
static void read_result(int acts, const char *name, act_result *result)
{
  char path[NAME_MAX_LENGTH + 8];
  char text[sizeof *result];
  *result = {};
  snprintf(path, sizeof path, "done/%s", name);
  const int fd =
      openat(acts, path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    return;
  }
  const ssize_t got = read(fd, text, sizeof text - 1);
  close(fd);
  text[got > 0 ? got : 0] = '\0';
  const char *end = strchr(text, '\n');
  if (end == nullptr ||
      sscanf(text, "%47s %47s", result->run, result->state) != 2) {
    *result = {};
    return;
  }
  const size_t rest = static_cast<size_t>(text + got - (end + 1));
  result->length = rest < OUTPUT_MAX ? rest : OUTPUT_MAX;
  memcpy(result->output, end + 1, result->length);
  // The reader treats it as text of one or more lines.
  for (char *c = result->output; c < result->output + result->length; c++) {
    const unsigned char byte = static_cast<unsigned char>(*c);
    *c =
        (byte < ' ' && byte != '\n' && byte != '\t') || byte == 0x7f ? '?' : *c;
  }
}

// Not the clock, which the action itself may set.
static int64_t now_milliseconds()
{
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

// Waits until a run other than `before` has ended.  A run from before the call
// may not have seen what was stored for it; any other began after the call.
static bool await_result(int acts, const char *name, unsigned seconds,
                         const char *before, act_result *result)
{
  const int64_t end = now_milliseconds() + static_cast<int64_t>(seconds) * 1000;
  do {
    const struct timespec look = {0, LOOK_NANOSECONDS};
    nanosleep(&look, nullptr);
    read_result(acts, name, result);
    if (result->run[0] != '\0' && strcmp(result->run, before) != 0 &&
        strcmp(result->state, RUNNING) != 0) {
      return true;
    }
  } while (now_milliseconds() < end);
  return store_fault("Saved, but not in use yet: %s was not done within %u "
                     "seconds",
                     name, seconds);
}

// The states are those that larkspur-acts writes.
static bool judge_result(const char *name, const act_result *result)
{
  if (strcmp(result->state, "0") == 0) {
    return true;
  }
  if (strcmp(result->state, "late") == 0) {
    return store_fault(UNUSED "%s took too long and was killed", name);
  }
  if (strcmp(result->state, "refused") == 0) {
    return store_fault(
        UNUSED "%s is not run: users other than root can change it", name);
  }
  const size_t line = strcspn(result->output, "\n");
  return store_fault(
      UNUSED "%s failed (status %s)%s%.*s", name, result->state,
      line > 0 ? ": " : "",
      static_cast<int>(line < FIRST_LINE_MAX ? line : FIRST_LINE_MAX),
      result->output);
}

// The word in front keeps an output that reads "fault ..." from being one.
static void write_lines(const char *text, size_t length, FILE *out)
{
  const char *end = text + length;
  while (text < end) {
    const void *found = memchr(text, '\n', static_cast<size_t>(end - text));
    const char *stop =
        found != nullptr ? static_cast<const char *>(found) : end;
    fprintf(out, "line %.*s\n", static_cast<int>(stop - text), text);
    text = stop + 1;
  }
}

// Within a transaction the request is sent when the script has ended, so the
// script cannot wait for it.  The latest result is read before the request: a
// run that ended in between would else count as an older one.
bool act_run(const char *name, unsigned seconds, FILE *out)
{
  if (stage_folder() != nullptr) {
    return act_ask(name) && fputs("ok\n", out) >= 0;
  }
  if (!can_ask(name)) {
    return false;
  }
  const int acts = open_acts();
  if (acts < 0) {
    return cannot_ask(errno);
  }
  act_result before;
  act_result result;
  read_result(acts, name, &before);
  const bool done = write_name(acts, name) &&
                    await_result(acts, name, seconds, before.run, &result) &&
                    judge_result(name, &result);
  close(acts);
  if (done) {
    fputs("ok\n", out);
    write_lines(result.output, result.length, out);
  }
  return done;
}
