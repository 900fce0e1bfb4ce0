// Error reporting.
//
// One report at a time: both functions format into the same buffer, send it to
// the system log and leave orv_error_msg pointing at it.  The entry point reads
// that pointer at fixed places and turns a message into an error page; nothing
// here writes to the page or decides whether the request goes on, except that
// orv_fatal ends the process before the entry point has taken over.

#include "orv_error.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

int orv_fatal_no_exit;
void (*orv_fatal_alt_report)(const char *message);
const char *orv_error_msg;

// The message shown to a user is one short paragraph; longer ones are cut.
constexpr size_t MESSAGE_SIZE = 250;
static char err_buf[MESSAGE_SIZE];
// One request must not flood a device's small log.
constexpr int LOG_LINES_MAX = 100;

void orv_log(int priority, const char *message)
{
  static int lines;
  if (lines < LOG_LINES_MAX) {
    lines++;
    syslog(priority, "%s",
           lines < LOG_LINES_MAX
               ? message
               : "Further messages of this request are left out");
  }
}

__attribute__((format(printf, 1, 0))) static void report(const char *fmt,
                                                         va_list args)
{
  // A report may quote the message before it, so the text is made aside.
  char message[MESSAGE_SIZE];
  vsnprintf(message, sizeof message, fmt, args);
  snprintf(err_buf, sizeof err_buf, "%s", message);
  orv_log(LOG_ERR, err_buf);
  orv_error_msg = err_buf;
}

void orv_fatal(const char *fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  report(fmt, args);
  va_end(args);
  if (orv_fatal_alt_report != nullptr) {
    orv_fatal_alt_report(err_buf);
  }
  if (orv_fatal_no_exit == 0) {
    exit(EXIT_FAILURE);
  }
}

void orv_error(const char *fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  report(fmt, args);
  va_end(args);
}
