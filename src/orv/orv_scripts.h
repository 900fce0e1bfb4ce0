// The script runner: starts a device script with pipes, exchanges text with it,
// and collects its exit status.  One script at a time.

#ifndef ORV_SCRIPTS_H
#define ORV_SCRIPTS_H

#include <stdio.h>
#include <sys/types.h>

// What one script may print: more is a runaway script, not a configuration.
constexpr size_t ORV_SCRIPT_OUTPUT_MAX = 16UL * 1024 * 1024;

// Makes SIGCHLD wait for us again, whatever the web server left, lets a write
// to a closed pipe fail instead of ending the process, and hands SIGTERM on to
// the script that runs before it ends the process.  Done once.
void orv_script_signals(void);

// With `finish` nonzero, scripts started from now on run to their end, whatever
// happens to this process.  Any other script is ended with its process group on
// SIGTERM; when this process dies in another way, the script's own process is
// killed.
void orv_script_let_finish(int finish);

// Starts `command`, a shell command line whose first word is the script's
// path, relative to the script directory unless it begins with "/".  Where
// given, `*inp` receives a stream on the script's standard output and error,
// `*outp` one to its standard input, both owned by the caller (fclose);
// without them the script has /dev/null there.  It has no other descriptor.
//
// The process id, or below 1 with a report by orv_fatal and no stream: -1 no
// memory, -2 no such script or not executable, -3 no pipe, -4 no child.
pid_t orv_script_run(const char *command, FILE **inp, FILE **outp);

// Starts `command` likewise, with the whole of `input` on its standard input
// (NULL: /dev/null), and returns a stream of all that it says: owned by the
// caller, to be closed before orv_script_wait.  What the pipe holds of the
// input, usually all, stands in it before the script starts; the rest is
// written while the script's output is taken in, so that neither side can block
// the other.
//
// The stream ends with the pipe.  It also ends when the script has ended and
// something it left behind holds the pipe but keeps silent, and has a read
// error past ORV_SCRIPT_OUTPUT_MAX (reported by orv_script_wait).
//
// `*pid` receives the process id.  NULL when it is below 1: nothing was started
// (as for orv_script_run; 0, not reported, when the input could not be
// written).  NULL, too, when the script has not taken the rest of its input; if
// it still waited for that, it was ended, which orv_script_wait does not
// report.  Input that stood in the pipe whole, or up to 64 KiB of it, counts as
// taken even if the script has already gone.
FILE *orv_script_exchange(const char *command, const char *input, size_t length,
                          pid_t *pid);

// Whether `command` is just /bin/true, the line of a form that needs no such
// script: it reads and prints nothing, so it need not be started.
bool orv_script_does_nothing(const char *command);

// The path of the script when `command` is a link to orv-store with the task
// --navbar; owned by the caller (free).  NULL for any other command.
char *orv_script_bar_link(const char *command);

// Waits for `pid`: its exit status, or minus the number of the signal that
// ended it (reported by orv_error), or -1 (reported by orv_fatal).  That its
// output was cut is reported by orv_error, last.
int orv_script_wait(pid_t pid);

#endif
