// What a page's scripts cost without the page.
//
//   bench_bare LINE INPUT [LINE INPUT]...
//
// Starts each shell line the way the executable starts a script, one after the
// other: pipes, fork, bash, its input written, its output read to the end, its
// end waited for.  INPUT is a file, "" for no input.  It does nothing else: no
// test whether the script exists, nothing parsed or kept, nothing printed, so
// that what the executable costs more is all its own.  Exit status 1 when a
// script failed.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

static char buf[64 * 1024]; // a pipe's worth

[[noreturn]] static void run_child(const char *line, int input, int output)
{
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  const char *const argv[] = {"bash", "-c", line, nullptr};
  execv("/bin/bash", const_cast<char *const *>(argv));
  _exit(EXIT_FAILURE);
}

// Copies the file to the script; the scripts measured here read all of it
// before they say anything.
static void write_input(const char *path, int to)
{
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  ssize_t got = read(file, buf, sizeof buf);
  while (got > 0 && write(to, buf, static_cast<size_t>(got)) == got) {
    got = read(file, buf, sizeof buf);
  }
  close(file);
}

static bool run_script(const char *line, const char *input)
{
  int from[2];
  int to[2];
  const bool has_input = input[0] != '\0';
  if (pipe2(from, O_CLOEXEC) != 0 || (has_input && pipe2(to, O_CLOEXEC) != 0)) {
    return false;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    run_child(line, has_input ? to[0] : open("/dev/null", O_RDONLY), from[1]);
  }
  close(from[1]);
  if (has_input) {
    close(to[0]);
    write_input(input, to[1]);
    close(to[1]);
  }
  while (read(from[0], buf, sizeof buf) > 0) {
  }
  close(from[0]);
  int status;
  return pid > 0 && waitpid(pid, &status, 0) == pid && status == 0;
}

int main(int argc, char **argv)
{
  // What the executable tells its scripts; the device's system_type says it.
  static char device[][16] = {"SYSTEM_TYPE=LKS", "HW_VERSION=2",
                              "SW_VERSION=1.1"};
  for (char *variable : device) {
    putenv(variable);
  }
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!run_script(argv[i], argv[i + 1])) {
      return EXIT_FAILURE;
    }
  }
  return EXIT_SUCCESS;
}
