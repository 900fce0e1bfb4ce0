// The cost of a page's scripts without the page.
//
//   bench_bare LINE INPUT [LINE INPUT]...
//
// Starts each shell line as the executable starts a script, with the same
// runner, one after the other: writes its input, reads its output to the end,
// and waits for it.  INPUT is a file, "" for no input.  It does nothing else:
// it decodes, parses, stores and prints nothing, so any additional cost of the
// executable is its own.  Exit status 1 when a script failed.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "orv_scripts.h"

static char buf[64 * 1024]; // a pipe's worth

static size_t read_input(const char *path)
{
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  const ssize_t got = read(file, buf, sizeof buf);
  close(file);
  return got > 0 ? static_cast<size_t>(got) : 0;
}

static bool run_script(const char *line, const char *input)
{
  const bool has_input = input[0] != '\0';
  const size_t length = has_input ? read_input(input) : 0;
  pid_t pid;
  FILE *answer =
      orv_script_exchange(line, has_input ? buf : nullptr, length, &pid);
  if (answer == nullptr) {
    return false;
  }
  while (fgets(buf, sizeof buf, answer) != nullptr) {
  }
  fclose(answer);
  return orv_script_wait(pid) == 0;
}

int main(int argc, char **argv)
{
  // The variables that the executable sets for its scripts, as the device's
// system_type has them.
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
