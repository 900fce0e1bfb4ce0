// Tells how much memory a program needs for itself alone.
//
//   bench_peak PROGRAM [ARGUMENT]...
//
// Stops the program at every system call, asks the kernel how much private
// dirty memory it holds, swapped out or not, and prints the highest answer in
// KiB on standard error.  Processes that the program starts are not counted.

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

static long private_dirty_kb(int rollup)
{
  char text[4096];
  const ssize_t length = pread(rollup, text, sizeof text - 1, 0);
  text[length > 0 ? length : 0] = '\0';
  long sum = 0;
  static const char *const lines[] = {"\nPrivate_Dirty:", "\nSwap:"};
  for (const char *name : lines) {
    const char *line = strstr(text, name);
    sum += line != nullptr ? strtol(line + strlen(name), nullptr, 10) : 0;
  }
  return sum;
}

int main(int argc, char **argv)
{
  if (argc < 2) {
    return EXIT_FAILURE;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execv(argv[1], argv + 1);
    _exit(EXIT_FAILURE);
  }
  int status;
  waitpid(pid, &status, 0); // stopped by its exec
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/smaps_rollup", static_cast<int>(pid));
  const int rollup = open(path, O_RDONLY | O_CLOEXEC);
  ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD);
  long peak = 0;
  while (WIFSTOPPED(status)) {
    const long now = private_dirty_kb(rollup);
    peak = now > peak ? now : peak;
    // A stop that is neither a system call nor the exec is a signal to hand on.
    const int sig = WSTOPSIG(status);
    const bool ours = sig == (SIGTRAP | 0x80) || sig == SIGTRAP;
    ptrace(PTRACE_SYSCALL, pid, nullptr, ours ? 0L : long{sig});
    waitpid(pid, &status, 0);
  }
  fprintf(stderr, "%ld\n", peak);
  return rollup >= 0 && status == 0 && peak > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
