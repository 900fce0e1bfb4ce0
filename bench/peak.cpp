// Prints how much private memory a program needs.
//
//   bench_peak [FROM-TO] PROGRAM [ARGUMENT]...
//
// Stops the program at every system call, asks the kernel how much private
// dirty memory it holds, swapped out or not, and prints the maximum in KiB on
// standard error.  Processes that the program starts are not counted.  With
// FROM and TO, in hexadecimal, only the memory between them is counted: there
// an emulator keeps the memory of the emulated program.

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

struct window {
  unsigned long from;
  unsigned long to;
};

static long private_dirty_kb(FILE *maps, const window &counted)
{
  char line[512];
  long sum = 0;
  bool counts = false;
  rewind(maps);
  while (fgets(line, sizeof line, maps) != nullptr) {
    unsigned long start = 0;
    unsigned long end = 0;
    long kb = 0;
    if (sscanf(line, "%lx-%lx ", &start, &end) == 2) {
      counts = start >= counted.from && end <= counted.to;
    } else if (counts && (sscanf(line, "Private_Dirty: %ld", &kb) == 1 ||
                          sscanf(line, "Swap: %ld", &kb) == 1)) {
      sum += kb;
    }
  }
  return sum;
}

int main(int argc, char **argv)
{
  window counted = {0, ~0UL};
  if (argc > 2 && sscanf(argv[1], "%lx-%lx", &counted.from, &counted.to) == 2) {
    argv++;
    argc--;
  }
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
  snprintf(path, sizeof path, "/proc/%d/smaps", static_cast<int>(pid));
  FILE *maps = fopen(path, "re");
  if (maps == nullptr) {
    return EXIT_FAILURE;
  }
  ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD);
  long peak = 0;
  while (WIFSTOPPED(status)) {
    const long now = private_dirty_kb(maps, counted);
    peak = now > peak ? now : peak;
    // A stop that is neither a system call nor the exec is a signal to pass on.
    const int sig = WSTOPSIG(status);
    const bool ours = sig == (SIGTRAP | 0x80) || sig == SIGTRAP;
    ptrace(PTRACE_SYSCALL, pid, nullptr, ours ? 0L : long{sig});
    waitpid(pid, &status, 0);
  }
  fprintf(stderr, "%ld\n", peak);
  return status == 0 && peak > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
