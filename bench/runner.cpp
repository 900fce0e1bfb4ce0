// Times programs against each other.
//
//   bench_runner ROUNDS [-- LABEL INPUT [NAME=VALUE]... PROGRAM [ARG]...]...
//
// Runs every program once per round, one process at a time, alternating
// forwards and backwards, so that other load on the machine affects all of them
// equally.  A run is timed from the start of the process until its output has
// been read to the end and it has been waited for; its standard input is the
// file INPUT, its environment only the given one.  Prints a line for each:
// label, median and minimum, and the median CPU time of it and its children
// (which a busy machine hardly changes), all in microseconds.  A failing run
// ends the measurement.

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

constexpr int WARM_UP = 3; // rounds that do not count

struct subject {
  const char *label;
  const char *input;
  std::vector<char *> environment;
  std::vector<char *> arguments;
  std::vector<long> times; // microseconds
  std::vector<long> cpu;   // the same
};

[[noreturn]] static void fail(const char *label, const char *what)
{
  fprintf(stderr, "bench_runner: %s: %s\n", label, what);
  exit(EXIT_FAILURE);
}

static std::vector<subject> read_subjects(int argc, char **argv)
{
  std::vector<subject> subjects;
  for (int i = 2; i < argc; i++) {
    if (strcmp(argv[i], "--") == 0 && i + 3 < argc) {
      subjects.push_back({argv[i + 1], argv[i + 2], {}, {}, {}, {}});
      i += 2;
    } else if (subjects.empty()) {
      fail(argv[i], "not expected");
    } else if (subjects.back().arguments.empty() && strchr(argv[i], '=')) {
      subjects.back().environment.push_back(argv[i]);
    } else {
      subjects.back().arguments.push_back(argv[i]);
    }
  }
  for (subject &s : subjects) {
    s.environment.push_back(nullptr);
    s.arguments.push_back(nullptr);
  }
  return subjects;
}

static long now_us()
{
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000L + now.tv_nsec / 1000;
}

static long micros(const struct timeval &time)
{
  return time.tv_sec * 1000000L + time.tv_usec;
}

static void run(subject &s, bool counts)
{
  static char buf[64 * 1024];
  int output[2];
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (pipe2(output, O_CLOEXEC) != 0) {
    fail(s.label, strerror(errno));
  }
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, s.input, O_RDONLY,
                                   0);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);

  pid_t pid;
  int status = -1;
  struct rusage usage = {};
  const long start = now_us();
  const int error = posix_spawn(&pid, s.arguments[0], &actions, nullptr,
                                s.arguments.data(), s.environment.data());
  close(output[1]);
  while (read(output[0], buf, sizeof buf) > 0) {
  }
  if (error == 0) {
    wait4(pid, &status, 0, &usage);
  }
  const long end = now_us();

  close(output[0]);
  posix_spawn_file_actions_destroy(&actions);
  if (status != 0) {
    fail(s.label, error != 0 ? strerror(error) : "the program failed");
  }
  if (counts) {
    s.times.push_back(end - start);
    s.cpu.push_back(micros(usage.ru_utime) + micros(usage.ru_stime));
  }
}

static long median(std::vector<long> &values)
{
  std::sort(values.begin(), values.end());
  return values.at(values.size() / 2);
}

int main(int argc, char **argv)
{
  const int rounds = argc > 1 ? atoi(argv[1]) : 0;
  std::vector<subject> subjects = read_subjects(argc, argv);
  for (int round = -WARM_UP; round < rounds; round++) {
    for (subject &s : subjects) {
      run(s, round >= 0);
    }
    std::reverse(subjects.begin(), subjects.end());
  }
  for (subject &s : subjects) {
    const long middle = median(s.times);
    printf("%s %ld %ld %ld\n", s.label, middle, s.times.front(), median(s.cpu));
  }
}
