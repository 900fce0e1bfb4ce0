// The script runner.
//
// A script is started with fork and exec, connected by pipes and waited for,
// strictly one at a time, and only the state below is kept between calls.  What
// goes through the pipes is up to the caller, when it goes is decided here. The
// input is in the pipe before the script exists, and only what the pipe has no
// room for is written while output is read; reading ends with the script even
// if a background process that it left keeps its output open.  So this process
// may die at any time: it has then started nothing, or a script that has its
// whole input.  Only an input larger than the pipe can arrive in part; a script
// that cannot be given the rest is ended before it could take the part for the
// whole.
//
// A server that has waited too long ends this process, and nobody is left who
// wants the script's output.  SIGTERM is passed on to the script's process
// group and obeyed when the script has ended, so that it can clean up; when
// this process dies in any other way, the kernel ends the script's own process.
// Only a script that writes the device's configuration runs to its end in both
// cases.

#include "orv_scripts.h"

#include <errno.h>
#include <fcntl.h>
#include <initializer_list>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "kwtutil.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_exec.h"
#include "orv_guard.h"

#ifndef ORV_SCRIPT_DIR
#define ORV_SCRIPT_DIR "/usr/share/larkspur/scripts/"
#endif

static int trap_set;    // the signal dispositions have been set
static bool output_cut; // the script printed too much; reset by the wait
static bool stopped;    // we have ended it ourselves; reset by the wait

// What the handler of SIGTERM, and of what a program gives the same one, knows
// of the script in hand.
static volatile sig_atomic_t group;       // 0: none runs; reset by the wait
static volatile sig_atomic_t let_finish;  // not to be ended; set by the caller
static volatile sig_atomic_t told_to_end; // the signal that came meanwhile

// --- starting ----------------------------------------------------------------

constexpr int NO_MEMORY = -1;
constexpr int NO_SCRIPT = -2;
constexpr int NO_PIPE = -3;
constexpr int NO_CHILD = -4;

// A pipe between us and a script; -1: there is none, or no longer that end.  A
// script without one has /dev/null there.
struct channel {
  int ours;
  int theirs;
};

// What a script is started from.
struct launch {
  const char *command; // borrowed: as the caller has it
  owned_text line;     // the full command line
  channel from_script;
  channel to_script;
};

static void set_disposition(int sig, void (*handler)(int))
{
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(sig, &action, nullptr);
}

// Ends the process, in a handler as soon as that returns.
static void end_by(int sig)
{
  signal(sig, SIG_DFL);
  raise(sig);
}

// Signals the script with its process group, which its process makes itself.
static void signal_script(pid_t pid, int sig)
{
  if (kill(-pid, sig) != 0) {
    kill(pid, sig); // it has not come to that yet
  }
}

static void hand_on(int sig)
{
  const int error = errno;
  if (group == 0) {
    end_by(sig);
  } else {
    told_to_end = sig;
    if (let_finish == 0) {
      signal_script(group, sig);
      signal_script(group, SIGCONT); // a stopped one would never hear of it
    }
  }
  errno = error;
}

void orv_script_signals(void)
{
  if (trap_set != 0) {
    return;
  }
  set_disposition(SIGCHLD, SIG_DFL);
  set_disposition(SIGPIPE, SIG_IGN);
  set_disposition(SIGTERM, hand_on);
  sigset_t sigterm;
  sigemptyset(&sigterm);
  sigaddset(&sigterm, SIGTERM);
  sigprocmask(SIG_UNBLOCK, &sigterm, nullptr);
  trap_set = 1;
}

void orv_script_let_finish(int finish)
{
  let_finish = finish;
}

// The full command line, owned by the caller; NULL when memory ran out.
static char *full_command(const char *command)
{
  if (command[0] == '/') {
    return must_strdup(command);
  }
  const size_t size = strlen(ORV_SCRIPT_DIR) + strlen(command) + 1;
  char *line = static_cast<char *>(must_malloc(size));
  if (line != nullptr) {
    snprintf(line, size, "%s%s", ORV_SCRIPT_DIR, command);
  }
  return line;
}

// Whether the first word of the line is a script that can be run; reports it
// when not.  The line is cut for the test and restored.
static bool script_is_executable(char *line)
{
  char *blank = strchr(line, ' ');
  if (blank != nullptr) {
    *blank = '\0';
  }
  const bool executable = access(line, X_OK) == 0;
  if (!executable) {
    if (access(line, F_OK) != 0) {
      orv_fatal("Script \"%s\" does not exist", line);
    } else {
      orv_fatal("Cannot execute script \"%s\"", line);
    }
  }
  if (blank != nullptr) {
    *blank = ' ';
  }
  return executable;
}

bool orv_script_does_nothing(const char *command)
{
  static const char line[] = "/bin/true";
  return strcmp(command, line) == 0 && access(line, X_OK) == 0;
}

static bool open_channel(channel *pipe, bool reads)
{
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    return false;
  }
  *pipe = reads ? channel{fds[0], fds[1]} : channel{fds[1], fds[0]};
  return true;
}

static void close_end(int *fd)
{
  if (*fd >= 0) {
    close(*fd);
    *fd = -1;
  }
}

// Closes what is left of both pipes.
static void close_channels(launch *start)
{
  for (channel *pipe : {&start->from_script, &start->to_script}) {
    close_end(&pipe->ours);
    close_end(&pipe->theirs);
  }
}

static pid_t no_input_pipe(launch *start)
{
  orv_fatal("Cannot create input pipe from script. Errno %d", errno);
  close_channels(start);
  return NO_PIPE;
}

static pid_t no_output_pipe(launch *start)
{
  orv_fatal("Cannot create output pipe to script. Errno %d", errno);
  close_channels(start);
  return NO_PIPE;
}

// Judges the command and makes the pipes.  0, or the code of what is wrong,
// which has been reported; nothing is left open then.
static pid_t prepare(launch *start, const char *command, bool reads,
                     bool writes)
{
  orv_script_signals();
  *start = {command, owned_text(full_command(command)), {-1, -1}, {-1, -1}};
  if (start->line == nullptr) {
    return NO_MEMORY;
  }
  if (!script_is_executable(start->line.get())) {
    return NO_SCRIPT;
  }
  if (reads && !open_channel(&start->from_script, true)) {
    return no_input_pipe(start);
  }
  if (writes && !open_channel(&start->to_script, false)) {
    return no_output_pipe(start);
  }
  return 0;
}

// Puts descriptor `fd`, or /dev/null when it is none, at `place`.  What was
// there is the web server's, and never the script's.
static void redirect(int fd, int flags, int place)
{
  if (fd < 0) {
    close(place);
    fd = open("/dev/null", flags);
  }
  if (fd >= 0) {
    dup2(fd, place);
  }
}

// The child's part: never returns.  Nothing of the parent's signals or
// descriptors reaches the script, and _exit leaves the parent's unwritten
// output alone.
[[noreturn]] static void run_child(const launch *start, pid_t parent)
{
  // A session, and so a group, of its own, without our terminal: who starts us
  // may be trusted with more than a script's user.
  setsid();
  if (let_finish == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
      _exit(EXIT_FAILURE); // it died before it could be watched
    }
  }
  redirect(start->to_script.theirs, O_RDONLY, STDIN_FILENO);
  redirect(start->from_script.theirs, O_WRONLY, STDOUT_FILENO);
  dup2(STDOUT_FILENO, STDERR_FILENO);
  close_all_file_descriptors(1);

  signal(SIGPIPE, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);

  orv_exec_line(start->line.get());
  orv_fatal("Exec call for \"%s\" failed (%d)", start->command, errno);
  _exit(EXIT_FAILURE);
}

// Makes the script's process.  Its id, or NO_CHILD, reported, with both pipes
// closed.
static pid_t start_child(launch *start)
{
  const pid_t parent = getpid();
  sigset_t endings; // not all signals: a crash is handled here as well
  sigset_t before;
  sigemptyset(&endings);
  for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    sigaddset(&endings, sig);
  }
  sigprocmask(SIG_BLOCK, &endings, &before);
  const pid_t pid = fork();
  if (pid == 0) {
    run_child(start, parent);
  }
  if (pid > 0) {
    group = pid;
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  if (pid < 0) {
    orv_fatal("orv_script_run: Cannot fork. Errno %d", errno);
    close_channels(start);
    return NO_CHILD;
  }
  close_end(&start->from_script.theirs);
  close_end(&start->to_script.theirs);
  return pid;
}

// Makes a stream of our end, which it then owns; false with errno.
static bool open_stream(owned_stream *stream, int *fd, const char *mode)
{
  if (*fd >= 0) {
    stream->reset(fdopen(*fd, mode));
    if (*stream == nullptr) {
      return false;
    }
    *fd = -1;
  }
  return true;
}

// Our ends are streams before the script starts, so that it never runs without
// its input or output.
pid_t orv_script_run(const char *command, FILE **inp, FILE **outp)
{
  if (inp != nullptr) {
    *inp = nullptr;
  }
  if (outp != nullptr) {
    *outp = nullptr;
  }
  launch start;
  const pid_t fault = prepare(&start, command, inp != nullptr, outp != nullptr);
  if (fault != 0) {
    return fault;
  }
  owned_stream from_script;
  owned_stream to_script;
  if (!open_stream(&from_script, &start.from_script.ours, "r")) {
    return no_input_pipe(&start);
  }
  if (!open_stream(&to_script, &start.to_script.ours, "w")) {
    return no_output_pipe(&start);
  }
  const pid_t pid = start_child(&start);
  if (pid > 0 && inp != nullptr) {
    *inp = from_script.release();
  }
  if (pid > 0 && outp != nullptr) {
    *outp = to_script.release();
  }
  return pid;
}

// --- talking -----------------------------------------------------------------

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

struct talk {
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

static int64_t now_ms()
{
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

static void check_end(talk *t, int64_t now)
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
static int64_t patience(const talk *t, int64_t now)
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
static bool is_leftover(const talk *t, int64_t now)
{
  return t->ended && t->due == 0 && now - t->ended_at >= LINGER_MS;
}

enum talk_state { TALK_READY, TALK_OVER, TALK_FAILED };

// Waits until one of the pipes is ready.  However long this process was held
// up, a pipe counts as silent only when it has nothing to read.
static talk_state wait_ready(talk *t, struct pollfd *fds, nfds_t count)
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
static ssize_t read_output(talk *t, char *buf, size_t size)
{
  const size_t room = ORV_SCRIPT_OUTPUT_MAX - t->total;
  const size_t want = room == 0 ? 1 : (size < room ? size : room);
  const ssize_t got = read_some(t->fd, buf, want);
  if (got <= 0) {
    return got;
  }
  if (room == 0) {
    output_cut = true;
    errno = EFBIG;
    return -1;
  }
  t->total += static_cast<size_t>(got);
  t->due = got < t->due ? t->due - static_cast<int>(got) : 0;
  return got;
}

// Puts what the script says aside; false when that cannot be done.  At the end
// of its output `*open` becomes false.
static bool keep_output(talk *t, bool *open)
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

// Ends a script that was given a part of its input, with the commands that it
// runs, before the closed pipe looks like the end: it might save that part.
static void stop_script(talk *t)
{
  t->last_check -= END_CHECK_MS;
  check_end(t, now_ms());
  if (!t->ended) {
    signal_script(t->pid, SIGKILL);
    stopped = true;
  }
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

// Puts as much of the input into the pipe as it holds, before there is a
// script.  A pipe that cannot be enlarged has the rest written later; a busy
// user's holds little from the start.
static bool fill_pipe(int fd, const char *input, size_t length, size_t *done)
{
  fcntl(fd, F_SETFL, O_NONBLOCK);
  if (length > PIPE_BUFFER) {
    fcntl(fd, F_SETPIPE_SZ,
          static_cast<int>(length < PIPE_MAX ? length : PIPE_MAX));
  }
  return write_some(fd, input, length, done);
}

// Writes the rest of the input while taking in what the script says meanwhile.
// A script that has closed its input took what it wanted and is left to itself.
static bool write_rest(talk *t, int fd, const char *input, size_t length,
                       size_t done)
{
  bool reading = true;
  while (done < length) {
    struct pollfd fds[] = {{fd, POLLOUT, 0}, {reading ? t->fd : -1, POLLIN, 0}};
    if (wait_ready(t, fds, 2) != TALK_READY ||
        (fds[1].revents != 0 && !keep_output(t, &reading))) {
      stop_script(t);
      return false;
    }
    if (fds[0].revents != 0 && !write_some(fd, input, length, &done)) {
      if (errno == EPIPE) {
        return length <= PIPE_BUFFER;
      }
      stop_script(t);
      return false;
    }
  }
  return true;
}

static ssize_t talk_read(void *cookie, char *buf, size_t size)
{
  talk *t = static_cast<talk *>(cookie);
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
  talk *t = static_cast<talk *>(cookie);
  close_end(&t->fd);
  free(t->kept);
  return 0;
}

// Everything that can fail does so before the script starts, but for the rest
// of an input that the pipe does not hold.
FILE *orv_script_exchange(const char *command, const char *input, size_t length,
                          pid_t *pid)
{
  static talk t; // one script at a time
  launch start;
  *pid = prepare(&start, command, true, input != nullptr);
  if (*pid != 0) {
    return nullptr;
  }
  t = {};
  t.fd = -1;
  owned_stream answer(
      fopencookie(&t, "r", {talk_read, nullptr, nullptr, talk_close}));
  if (answer == nullptr) {
    *pid = no_input_pipe(&start);
    return nullptr;
  }
  size_t done = 0;
  if (input != nullptr &&
      !fill_pipe(start.to_script.ours, input, length, &done)) {
    close_channels(&start);
    return nullptr;
  }
  if (done == length) {
    close_end(&start.to_script.ours); // so the script reads to the end of it
  }
  *pid = start_child(&start);
  if (*pid < 0) {
    return nullptr;
  }
  t.pid = *pid;
  t.fd = start.from_script.ours;
  t.last_check = now_ms();
  const bool told = done == length ||
                    write_rest(&t, start.to_script.ours, input, length, done);
  close_end(&start.to_script.ours);
  return told ? answer.release() : nullptr;
}

// --- waiting -----------------------------------------------------------------

static int exit_status(pid_t pid)
{
  int status = 1; // reads as an end by signal 1 when the wait itself fails
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  group = 0;
  if (WIFEXITED(status)) {
    return WEXITSTATUS(status);
  }
  if (WIFSIGNALED(status)) {
    if (!stopped) {
      orv_error("orv_script_wait: script terminated by signal %d",
                WTERMSIG(status));
    }
    return -WTERMSIG(status);
  }
  orv_fatal("orv_script_wait: script not terminated! Status 0x%x",
            static_cast<unsigned>(status));
  return -1;
}

// A script whose output was cut dies of the closed pipe: the cause is reported
// last.
int orv_script_wait(pid_t pid)
{
  const int status = exit_status(pid);
  stopped = false;
  if (output_cut) {
    output_cut = false;
    orv_error("Script output too long");
  }
  if (told_to_end != 0) {
    end_by(told_to_end);
  }
  return status;
}
