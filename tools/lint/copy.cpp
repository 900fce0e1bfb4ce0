// A folder of this program's own.
//
// A process of its own watches over it: when the pipe to this program ends, it
// removes the folder.  So nothing is left of one that was interrupted or
// killed.

#include "copy.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

[[noreturn]] static void watch(int pipe_end, const std::string &path)
{
  setsid(); // what interrupts a terminal's programs ends the others alone
  signal(SIGTERM, SIG_IGN);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    close(fd); // nobody waits for this process to close them
  }
  char byte;
  while (read(pipe_end, &byte, 1) > 0) {
  }
  std::error_code error;
  std::filesystem::remove_all(path, error);
  _exit(0);
}

// The pipe has no other writer: with O_CLOEXEC the programs that are started do
// not keep it open, and its end is that of this program. Without a watcher the
// folder is there all the same, and is removed at the end alone.
own_folder make_own_folder(void)
{
  namespace fs = std::filesystem;
  own_folder folder = {"", -1, -1};
  std::error_code error;
  std::string path =
      (fs::temp_directory_path(error) / "orv-lint.XXXXXX").string();
  int ends[2];
  if (error || pipe2(ends, O_CLOEXEC) != 0) {
    return folder;
  }
  if (mkdtemp(path.data()) != nullptr) {
    folder = {path, ends[1], fork()};
    if (folder.watcher == 0) {
      close(ends[1]);
      watch(ends[0], path);
    }
  } else {
    close(ends[1]);
  }
  close(ends[0]);
  return folder;
}

void drop_own_folder(own_folder *folder)
{
  if (folder->path.empty()) {
    return;
  }
  close(folder->alive);
  if (folder->watcher > 0) {
    waitpid(folder->watcher, nullptr, 0);
  }
  std::error_code error; // where no watcher could be made
  std::filesystem::remove_all(folder->path, error);
}
