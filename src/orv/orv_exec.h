// How a script's command line becomes a running program.

#ifndef ORV_EXEC_H
#define ORV_EXEC_H

#include "orv_guard.h"

using owned_list = std::unique_ptr<char *, orv_releaser<free>>;

// What a script is started with.
struct orv_exec_plan {
  const char *line; // borrowed
  owned_list words; // the arguments; NULL: the line goes to bash
  char **entries;   // the environment; owned with the words
};

// Prepares the start of the script that `line`, a full shell command line,
// names.  A line of plain words is started without a shell, in the environment
// that bash would have given it; every other line is handed to `/bin/bash -c`
// as it stands, in the environment that came.
void orv_exec_prepare(const char *line, orv_exec_plan *plan);

// Replaces this process by the script; by bash, if the kernel does not start
// the script.  Changes no memory, so it may be shared with another process.
// Returns, with errno, only when bash cannot be started either.
void orv_exec(const orv_exec_plan *plan);

#endif
