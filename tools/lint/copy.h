// A folder of this program's own, which goes with it, however that ends.

#ifndef LINT_COPY_H
#define LINT_COPY_H

#include <sys/types.h>

#include <string>

struct own_folder {
  std::string path; // "" when there was no place for it
  int alive;        // the watcher's end of a pipe; closed, the folder goes
  pid_t watcher;
};

own_folder make_own_folder(void);
// Removes it with all that is in it.
void drop_own_folder(own_folder *folder);

#endif
