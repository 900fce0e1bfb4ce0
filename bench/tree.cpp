// Measures how much memory a program and its children need at the same time.
//
//   bench_tree FILE PROGRAM [ARGUMENT]...
//
// Stops each of the processes at every system call, asks the kernel how much
// private dirty memory it holds, and writes into FILE: the highest sum in KiB
// over the processes alive at that time, how many programs were started, and
// how many processes.  The program's own output is not touched.

#include <fcntl.h>
#include <map>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

struct tree {
  std::map<pid_t, long> held; // KiB of each living process, as last seen
  long peak = 0;
  int programs = 0;
  int processes = 0;
};

static long private_dirty_kb(pid_t pid)
{
  char text[4096];
  snprintf(text, sizeof text, "/proc/%d/smaps_rollup", static_cast<int>(pid));
  const int rollup = open(text, O_RDONLY | O_CLOEXEC);
  const ssize_t length = read(rollup, text, sizeof text - 1);
  close(rollup);
  text[length > 0 ? length : 0] = '\0';
  const char *line = strstr(text, "\nPrivate_Dirty:");
  return line != nullptr ? strtol(strchr(line, ':') + 1, nullptr, 10) : 0;
}

static void look(tree &all, pid_t pid)
{
  all.held[pid] = private_dirty_kb(pid);
  long sum = 0;
  for (const auto &process : all.held) {
    sum += process.second;
  }
  all.peak = sum > all.peak ? sum : all.peak;
}

// The signal to pass to the stopped process, or 0.
static long signal_of(int status, bool is_new)
{
  const int sig = WSTOPSIG(status);
  const bool ours = sig == (SIGTRAP | 0x80) || sig == SIGTRAP;
  return ours || (is_new && sig == SIGSTOP) ? 0 : sig;
}

static int follow(tree &all, pid_t first)
{
  int status, result = -1;
  pid_t pid;
  while ((pid = waitpid(-1, &status, __WALL)) > 0) {
    if (!WIFSTOPPED(status)) {
      all.held.erase(pid);
      result = pid == first ? status : result;
      continue;
    }
    const bool is_new = all.held.count(pid) == 0;
    all.processes += is_new;
    all.programs += status >> 8 == (SIGTRAP | PTRACE_EVENT_EXEC << 8);
    look(all, pid);
    ptrace(PTRACE_SYSCALL, pid, nullptr, signal_of(status, is_new));
  }
  return result;
}

int main(int argc, char **argv)
{
  if (argc < 3) {
    return EXIT_FAILURE;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    execv(argv[2], argv + 2);
    _exit(EXIT_FAILURE);
  }
  int status;
  waitpid(pid, &status, 0);
  ptrace(PTRACE_SETOPTIONS, pid, nullptr,
         PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC | PTRACE_O_TRACEFORK |
             PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
  ptrace(PTRACE_SYSCALL, pid, nullptr, 0L);
  tree all;
  status = follow(all, pid);
  FILE *report = fopen(argv[1], "we");
  if (report == nullptr || status != 0) {
    return EXIT_FAILURE;
  }
  fprintf(report, "%ld %d %d\n", all.peak, all.programs, all.processes);
  return fclose(report) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
