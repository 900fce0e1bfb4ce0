// How a script's command line becomes a running program.

#ifndef ORV_EXEC_H
#define ORV_EXEC_H

#include "orv_guard.h"

using owned_list = std::unique_ptr<char *, orv_releaser<free>>;

// What a script is started from, made before its process is: that one may share
// this one's memory and allocates nothing.
struct orv_exec_plan {
  const char *line;   // borrowed: a full shell command line
  owned_text text;    // what the words point into
  owned_list words;   // NULL: the line needs a shell
  owned_list entries; // the environment of who needs none
  owned_text script;  // one of its entries
};

// Makes the plan of `line`, which must outlive it.  Lack of memory is no fault:
// the plan then needs a shell.
void orv_exec_prepare(orv_exec_plan *plan, const char *line);

// Replaces this process by the script.  A line of plain words is started
// without a shell, in the environment that bash would have given it; every
// other line, and one that the kernel does not start, is handed to `/bin/bash
// -c` as it stands, in the environment that came.  Returns, with errno, only
// when bash cannot be started either.
void orv_exec(const orv_exec_plan *plan);

#endif
