// How a script's command line becomes a running program.

#ifndef ORV_EXEC_H
#define ORV_EXEC_H

// Replaces this process by the script that `line`, a full shell command line,
// starts.  A line of plain words is started without a shell, in the environment
// that bash would have given it; every other line, and one that the kernel does
// not start, is handed to `/bin/bash -c` as it stands, in the environment that
// came.  Returns, with errno, only when bash cannot be started either.
void orv_exec_line(const char *line);

#endif
