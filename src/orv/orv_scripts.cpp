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
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kwtutil.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_exec.h"
#include "orv_guard.h"
#include "orv_script_talk.h"

#ifndef ORV_SCRIPT_DIR
#define ORV_SCRIPT_DIR "/usr/share/larkspur/scripts/"
#endif

static int trap_set; // the signal dispositions have been set
static bool stopped; // we have ended it ourselves; reset by the wait

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

char *orv_script_bar_link(const char *command)
{
  static const char option[] = " --navbar";
  static const char store[] = "orv-store";
  char target[sizeof store];
  const char *blank = strchr(command, ' ');
  if (blank == nullptr || strcmp(blank, option) != 0) {
    return nullptr;
  }
  owned_text path(full_command(command));
  if (path != nullptr) {
    path.get()[strlen(path.get()) - strlen(option)] = '\0';
  }
  const bool leads_there =
      path != nullptr &&
      readlink(path.get(), target, sizeof target) == sizeof store - 1 &&
      memcmp(target, store, sizeof store - 1) == 0;
  return leads_there ? path.release() : nullptr;
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

// Writes what the pipe has not held.  A script that cannot get the rest is
// ended, with the commands that it runs, before the closed pipe looks like the
// end: it might save that part.
static bool write_rest(const launch *start, pid_t pid, const char *input,
                       size_t length, size_t done)
{
  const talk_input end =
      talk_write_rest(start->to_script.ours, input, length, done);
  if (end == TALK_STUCK && !talk_has_ended()) {
    signal_script(pid, SIGKILL);
    stopped = true;
  }
  return end == TALK_TAKEN;
}

// Everything that can fail does so before the script starts, but for the rest
// of an input that the pipe does not hold.
FILE *orv_script_exchange(const char *command, const char *input, size_t length,
                          pid_t *pid)
{
  launch start;
  *pid = prepare(&start, command, true, input != nullptr);
  if (*pid != 0) {
    return nullptr;
  }
  owned_stream answer(talk_open());
  if (answer == nullptr) {
    *pid = no_input_pipe(&start);
    return nullptr;
  }
  size_t done = 0;
  if (input != nullptr &&
      !talk_fill_pipe(start.to_script.ours, input, length, &done)) {
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
  talk_start(*pid, start.from_script.ours);
  const bool taken =
      done == length || write_rest(&start, *pid, input, length, done);
  close_end(&start.to_script.ours);
  return taken ? answer.release() : nullptr;
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
  if (talk_output_cut) {
    talk_output_cut = false;
    orv_error("Script output too long");
  }
  if (told_to_end != 0) {
    end_by(told_to_end);
  }
  return status;
}
