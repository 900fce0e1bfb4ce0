// Exchanging text with the script that runs.
//
// Input is written and output read without either side blocking the other.  The
// stream of the output ends with the pipe or, when a background process keeps
// that open, soon after the script.  Owns the exchange in progress.

#include "orv_script_talk.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "orv.h"
#include "orv_scripts.h"

// How often a script that says nothing is asked whether it still runs.  Times
// have 64 bits: a device is up for longer than 24 days.
constexpr int64_t END_CHECK_MS = 50;
// A pipe that is silent for so long after its script's end brings nothing more;
// a filter behind `exec > >(filter)` answers much sooner.
constexpr int64_t SILENCE_MS = 250;
// The latest end after the script's own, whatever still talks.
constexpr int64_t LINGER_MS = 2000;
// What a pipe holds, where the system gives it no less.  So much input may be
// left unread by the script.
constexpr size_t PIPE_BUFFER = 64UL * 1024;
// What a pipe may be enlarged to without privilege, where nobody changed that.
constexpr size_t PIPE_MAX = 1024UL * 1024;

struct script_talk {
  pid_t pid;
  int fd;     // on the script's output; owned
  char *kept; // output that came while the input was being written
  size_t kept_size;
  size_t kept_length;
  size_t kept_taken;
  size_t total;          // output bytes so far
  bool ended;            // the script has ended
  int due;               // bytes that it had left in the pipe by then
  int64_t ended_at;      // times in milliseconds
  int64_t last_activity; // last byte moved, or the end
  int64_t last_check;    // when it was last asked whether the script runs
};

static script_talk talk; // one at a time
bool talk_output_cut;

static int64_t now_ms()
{
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

static void check_end(script_talk *t, int64_t now)
{
  if (t->ended || now - t->last_check < END_CHECK_MS) {
    return;
  }
  t->last_check = now;
  siginfo_t info = {};
  const int options = WEXITED | WNOHANG | WNOWAIT;
  if (waitid(P_PID, static_cast<id_t>(t->pid), &info, options) != 0 ||
      info.si_pid != 0) {
    t->ended = true;
    t->ended_at = now;
    t->last_activity = now;
    ioctl(t->fd, FIONREAD, &t->due);
  }
}

// How long to wait for the pipes; 0 once nothing more is waited for.
static int64_t patience(const script_talk *t, int64_t now)
{
  if (!t->ended) {
    return END_CHECK_MS;
  }
  const int64_t silence = t->last_activity + SILENCE_MS - now;
  const int64_t linger = t->ended_at + LINGER_MS - now;
  const int64_t left = silence < linger ? silence : linger;
  return left > 0 ? left : 0;
}

// Whether what the pipe still holds comes from something the script left
// behind, and too late to matter.
static bool is_leftover(const script_talk *t, int64_t now)
{
  return t->ended && t->due == 0 && now - t->ended_at >= LINGER_MS;
}

enum talk_state { TALK_READY, TALK_OVER, TALK_FAILED };

// Waits until one of the pipes is ready.  However long this process was held
// up, a pipe counts as silent only when it has nothing to read.
static talk_state wait_ready(script_talk *t, struct pollfd *fds, nfds_t count)
{
  for (;;) {
    const int64_t now = now_ms();
    check_end(t, now);
    const int64_t left = patience(t, now);
    const int ready = poll(fds, count, static_cast<int>(left));
    if (ready > 0) {
      t->last_activity = now_ms();
      return is_leftover(t, now) ? TALK_OVER : TALK_READY;
    }
    if (ready == 0 && left == 0) {
      return TALK_OVER;
    }
    if (ready < 0 && errno != EINTR) {
      return TALK_FAILED;
    }
  }
}

static ssize_t read_some(int fd, char *buf, size_t size)
{
  ssize_t got;
  do {
    got = read(fd, buf, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

// Reads from the script; counts, and ends the talk past the limit.
static ssize_t read_output(script_talk *t, char *buf, size_t size)
{
  const size_t room = ORV_SCRIPT_OUTPUT_MAX - t->total;
  const size_t want = room == 0 ? 1 : (size < room ? size : room);
  const ssize_t got = read_some(t->fd, buf, want);
  if (got <= 0) {
    return got;
  }
  if (room == 0) {
    talk_output_cut = true;
    errno = EFBIG;
    return -1;
  }
  t->total += static_cast<size_t>(got);
  t->due = got < t->due ? t->due - static_cast<int>(got) : 0;
  return got;
}

// Puts what the script says aside; false when that cannot be done.  At the end
// of its output `*open` becomes false.
static bool keep_output(script_talk *t, bool *open)
{
  if (t->kept_size - t->kept_length < PIPE_BUFFER) {
    const size_t size = 2 * t->kept_size + PIPE_BUFFER;
    if (must_realloc(&t->kept, size) == 0) {
      return false;
    }
    t->kept_size = size;
  }
  const ssize_t got = read_output(t, t->kept + t->kept_length, PIPE_BUFFER);
  if (got > 0) {
    t->kept_length += static_cast<size_t>(got);
  }
  *open = got > 0;
  return got >= 0;
}

bool talk_has_ended(void)
{
  talk.last_check -= END_CHECK_MS;
  check_end(&talk, now_ms());
  return talk.ended;
}

// Writes what the pipe takes; false when it cannot be written to.
static bool write_some(int fd, const char *input, size_t length, size_t *done)
{
  while (*done < length) {
    const ssize_t put = write(fd, input + *done, length - *done);
    if (put > 0) {
      *done += static_cast<size_t>(put);
    } else if (errno != EINTR) {
      return errno == EAGAIN;
    }
  }
  return true;
}

// A pipe that cannot be enlarged has the rest written later; a busy user's
// holds little from the start.
bool talk_fill_pipe(int fd, const char *input, size_t length, size_t *done)
{
  fcntl(fd, F_SETFL, O_NONBLOCK);
  if (length > PIPE_BUFFER) {
    fcntl(fd, F_SETPIPE_SZ,
          static_cast<int>(length < PIPE_MAX ? length : PIPE_MAX));
  }
  return write_some(fd, input, length, done);
}

talk_input talk_write_rest(int fd, const char *input, size_t length,
                           size_t done)
{
  bool reading = true;
  while (done < length) {
    struct pollfd fds[] = {{fd, POLLOUT, 0},
                           {reading ? talk.fd : -1, POLLIN, 0}};
    if (wait_ready(&talk, fds, 2) != TALK_READY ||
        (fds[1].revents != 0 && !keep_output(&talk, &reading))) {
      return TALK_STUCK;
    }
    if (fds[0].revents != 0 && !write_some(fd, input, length, &done)) {
      if (errno != EPIPE) {
        return TALK_STUCK;
      }
      return length <= PIPE_BUFFER ? TALK_TAKEN : TALK_LEFT;
    }
  }
  return TALK_TAKEN;
}

static ssize_t talk_read(void *cookie, char *buf, size_t size)
{
  script_talk *t = static_cast<script_talk *>(cookie);
  const size_t kept = t->kept_length - t->kept_taken;
  if (kept > 0) {
    const size_t part = size < kept ? size : kept;
    memcpy(buf, t->kept + t->kept_taken, part);
    t->kept_taken += part;
    return static_cast<ssize_t>(part);
  }
  struct pollfd fds[] = {{t->fd, POLLIN, 0}};
  switch (wait_ready(t, fds, 1)) {
  case TALK_READY:
    return read_output(t, buf, size);
  case TALK_OVER:
    return 0;
  case TALK_FAILED:
  default:
    return -1;
  }
}

static int talk_close(void *cookie)
{
  script_talk *t = static_cast<script_talk *>(cookie);
  if (t->fd >= 0) {
    close(t->fd);
    t->fd = -1;
  }
  free(t->kept);
  return 0;
}

FILE *talk_open(void)
{
  talk = {};
  talk.fd = -1;
  return fopencookie(&talk, "r", {talk_read, nullptr, nullptr, talk_close});
}

void talk_start(pid_t pid, int fd)
{
  talk.pid = pid;
  talk.fd = fd;
  talk.last_check = now_ms();
}
