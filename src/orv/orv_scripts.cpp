// The script runner.
//
// A script is started with fork and exec under bash, talked to through pipes
// and waited for, strictly one at a time, and nothing but the state below is
// kept between calls.  What flows through the pipes is the caller's business,
// when it flows is decided here: input is written and output is read at the
// same time, and reading ends with the script even if something that it left
// behind keeps its output open.  A script that cannot be told all of its input
// is ended before it could take a part for the whole.
//
// A server that has waited long enough ends this process, and then nobody wants
// to know what a script had to say.  SIGTERM is handed on to the script's
// process group and obeyed when the script has ended, so that it can clean up;
// when this process dies in any other way, the kernel kills the group.  Only a
// script that writes the device's configuration is let finish in both cases,
// once it has been told all of it.  What a script has put into a group of its
// own is left alone.

#include "orv_scripts.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
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
#include "orv_guard.h"

#ifndef ORV_SCRIPT_DIR
#define ORV_SCRIPT_DIR "/usr/share/larkspur/scripts/"
#endif

static int trap_set;    // the signal dispositions have been set
static bool output_cut; // the script in hand said too much; reset by the wait
static bool stopped;    // we have ended it ourselves; reset by the wait

// What the handler of SIGTERM knows of the script in hand.
static volatile sig_atomic_t group;       // 0: none runs; reset by the wait
static volatile sig_atomic_t let_finish;  // not to be ended; set by the caller
static volatile sig_atomic_t told_to_end; // SIGTERM came while one ran
static sigset_t sigterm;                  // holds that alone; set once

// A pipe of which this process alone holds the writing end: it hangs up when
// the process dies.  -1: there was no descriptor for it.
static int lifeline[] = {-1, -1};
// Far from the descriptors that scripts, and bash for them, choose.
constexpr int LIFELINE_FD = 230;
constexpr int LIFELINE_FD_LOW = 10; // where a process may not have so many

// --- starting ----------------------------------------------------------------

constexpr int NO_MEMORY = -1;
constexpr int NO_SCRIPT = -2;
constexpr int NO_PIPE = -3;
constexpr int NO_CHILD = -4;

// A pipe between us and a script.  Our end is a stream from the start, so that
// a script never runs without what it is to be told or heard through.
struct channel {
  FILE *ours; // NULL: there is no pipe
  int theirs; // -1: the script has /dev/null there
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

static void hand_on(int sig)
{
  const int error = errno;
  if (group == 0) {
    end_by(sig);
  } else {
    told_to_end = 1;
    if (let_finish == 0) {
      kill(-group, sig);
      kill(-group, SIGCONT); // one that is stopped would never hear of it
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
  sigaddset(&sigterm, SIGTERM);
  sigprocmask(SIG_UNBLOCK, &sigterm, nullptr);
  if (pipe2(lifeline, O_CLOEXEC | O_NONBLOCK) != 0) {
    lifeline[0] = -1;
  }
  // The kernel closes a dead process' descriptors from the last one down: this
  // one before the pipe whose end would tell a script that it was told all.
  const int last = fcntl(lifeline[1], F_DUPFD_CLOEXEC, LIFELINE_FD);
  if (last >= 0) {
    close(lifeline[1]);
    lifeline[1] = last;
  }
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

// Makes a pipe that we read ("r") or write ("w"); false with errno.
static bool open_channel(channel *end, const char *mode)
{
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    return false;
  }
  const int ours = mode[0] == 'r' ? 0 : 1;
  end->ours = fdopen(fds[ours], mode);
  if (end->ours == nullptr) {
    close(fds[0]);
    close(fds[1]);
    return false;
  }
  end->theirs = fds[1 - ours];
  return true;
}

static void close_channel(const channel *end)
{
  if (end->ours != nullptr) {
    fclose(end->ours);
    close(end->theirs);
  }
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

// Input is written at once.  A caller that wants to hear the script first is
// not kept waiting for ever.
constexpr int INPUT_WAIT_MS = 1000;

// Lets the script begin when its input is there, so that one whose input cannot
// be written is ended before it has emptied a file that it meant to fill.
static void await_input()
{
  struct pollfd input = {STDIN_FILENO, POLLIN, 0};
  poll(&input, 1, INPUT_WAIT_MS);
}

// Has the kernel kill the script's process group when the lifeline at `line`
// hangs up, for as long as one of the group holds it.  The script's process
// does it before bash runs; of a save it is the parent, before it writes the
// input, so that calling it off cannot come first.
static void watch_lifeline(int line, pid_t pid)
{
  fcntl(line, F_SETOWN, -pid);
  fcntl(line, F_SETSIG, SIGKILL);
  fcntl(line, F_SETFL, O_ASYNC | O_NONBLOCK);
}

static bool is_cut(int line)
{
  char none;
  return read(line, &none, sizeof none) == 0;
}

// What runs now may outlive us.
static void leave_lifeline()
{
  fcntl(lifeline[0], F_SETFL, O_NONBLOCK);
}

// The child's part: never returns.  Nothing of the parent's signals or
// descriptors but the lifeline reaches the script, and _exit leaves the
// parent's unwritten output alone.
[[noreturn]] static void run_child(const char *command, const char *line,
                                   int input, int output)
{
  setpgid(0, 0);
  redirect(input, O_RDONLY, STDIN_FILENO);
  redirect(output, O_WRONLY, STDOUT_FILENO);
  // Where standard error will be, the lifeline outlives the others.
  int line_end = dup2(lifeline[0], STDERR_FILENO);
  close_all_file_descriptors(1);
  const int moved = fcntl(line_end, F_DUPFD, LIFELINE_FD);
  line_end = moved >= 0 ? moved : fcntl(line_end, F_DUPFD, LIFELINE_FD_LOW);
  dup2(STDOUT_FILENO, STDERR_FILENO);
  if (let_finish == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    watch_lifeline(line_end, getpid());
  }
  await_input();
  if (is_cut(line_end)) {
    _exit(EXIT_FAILURE); // the parent has died, perhaps before it could watch
  }

  signal(SIGPIPE, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);

  const char *const argv[] = {"bash", "-c", line, nullptr};
  execv("/bin/bash", const_cast<char *const *>(argv));
  orv_fatal("Exec call for \"%s\" failed (%d)", command, errno);
  _exit(EXIT_FAILURE);
}

pid_t orv_script_run(const char *command, FILE **inp, FILE **outp)
{
  orv_script_signals();
  if (inp != nullptr) {
    *inp = nullptr;
  }
  if (outp != nullptr) {
    *outp = nullptr;
  }
  const owned_text line(full_command(command));
  if (line == nullptr) {
    return NO_MEMORY;
  }
  if (!script_is_executable(line.get())) {
    return NO_SCRIPT;
  }
  channel from_script = {nullptr, -1};
  channel to_script = {nullptr, -1};
  if (inp != nullptr && !open_channel(&from_script, "r")) {
    orv_fatal("Cannot create input pipe from script. Errno %d", errno);
    return NO_PIPE;
  }
  if (outp != nullptr && !open_channel(&to_script, "w")) {
    orv_fatal("Cannot create output pipe to script. Errno %d", errno);
    close_channel(&from_script);
    return NO_PIPE;
  }
  sigprocmask(SIG_BLOCK, &sigterm, nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    run_child(command, line.get(), to_script.theirs, from_script.theirs);
  }
  if (pid > 0) {
    setpgid(pid, pid); // whichever of the two processes comes first
    group = pid;
    if (let_finish != 0) {
      watch_lifeline(lifeline[0], pid);
    }
  }
  sigprocmask(SIG_UNBLOCK, &sigterm, nullptr);
  if (pid < 0) {
    orv_fatal("orv_script_run: Cannot fork. Errno %d", errno);
    close_channel(&from_script);
    close_channel(&to_script);
    return NO_CHILD;
  }
  if (inp != nullptr) {
    close(from_script.theirs);
    *inp = from_script.ours;
  }
  if (outp != nullptr) {
    close(to_script.theirs);
    *outp = to_script.ours;
  }
  return pid;
}

// --- talking -----------------------------------------------------------------

// How often a script that says nothing is asked whether it still runs.  Times
// have 64 bits: a device is up for longer than 24 days.
constexpr int64_t END_CHECK_MS = 50;
// A pipe that is silent for so long after its script's end has nothing more to
// say; a filter behind `exec > >(filter)` answers much sooner.
constexpr int64_t SILENCE_MS = 250;
// The latest end after the script's own, whatever still talks.
constexpr int64_t LINGER_MS = 2000;
// Input up to a pipe's buffer may be left unread by the script.
constexpr size_t PIPE_BUFFER = 64UL * 1024;

struct talk {
  pid_t pid;
  FILE *inp;
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
    ioctl(fileno(t->inp), FIONREAD, &t->due);
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
  const ssize_t got = read_some(fileno(t->inp), buf, want);
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

// Ends a script that was told a part of its input, with the commands that it
// runs, before the closed pipe says that this was all: it might save that part.
static void stop_script(talk *t)
{
  t->last_check -= END_CHECK_MS;
  check_end(t, now_ms());
  if (!t->ended) {
    stopped = kill(-t->pid, SIGKILL) == 0;
  }
}

// Writes the whole input while taking in what the script says meanwhile.  A
// script that has closed its input took what it wanted and is left to itself.
static bool write_input(talk *t, int fd, const char *input, size_t length)
{
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  bool reading = true;
  size_t done = 0;
  while (done < length) {
    struct pollfd fds[] = {{fd, POLLOUT, 0},
                           {reading ? fileno(t->inp) : -1, POLLIN, 0}};
    if (wait_ready(t, fds, 2) != TALK_READY ||
        (fds[1].revents != 0 && !keep_output(t, &reading))) {
      stop_script(t);
      return false;
    }
    if (fds[0].revents == 0) {
      continue;
    }
    const ssize_t put = write(fd, input + done, length - done);
    if (put > 0) {
      done += static_cast<size_t>(put);
    } else if (errno == EPIPE) {
      return length <= PIPE_BUFFER;
    } else if (errno != EAGAIN && errno != EINTR) {
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
  struct pollfd fds[] = {{fileno(t->inp), POLLIN, 0}};
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
  fclose(t->inp);
  free(t->kept);
  return 0;
}

FILE *orv_script_talk(pid_t pid, FILE *inp, FILE *outp, const char *input,
                      size_t length)
{
  static talk t; // one script at a time
  owned_stream from_script(inp);
  const owned_stream to_script(outp);
  t = {};
  t.pid = pid;
  t.inp = inp;
  t.last_check = now_ms();
  // Made first: the script might not survive the loss of its reader.
  owned_stream answer(
      fopencookie(&t, "r", {talk_read, nullptr, nullptr, talk_close}));
  if (answer == nullptr) {
    if (outp != nullptr) {
      stop_script(&t);
    }
    return nullptr;
  }
  static_cast<void>(from_script.release()); // closed by the answer's
  if (outp != nullptr && !write_input(&t, fileno(outp), input, length)) {
    return nullptr;
  }
  if (let_finish != 0) {
    leave_lifeline();
  }
  return answer.release();
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

// A script whose output was cut dies of the closed pipe: the cause is told
// last.
int orv_script_wait(pid_t pid)
{
  const int status = exit_status(pid);
  leave_lifeline();
  stopped = false;
  if (output_cut) {
    output_cut = false;
    orv_error("Script output too long");
  }
  if (told_to_end != 0) {
    end_by(SIGTERM);
  }
  return status;
}
