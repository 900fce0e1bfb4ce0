/* Preloaded into the executable under test: what it sends to the system log
 * is appended to the file named by SYSLOG_FILE, a line "PRIORITY TEXT" each.
 * With SHIM_NO_SEGV_HANDLER set, no handler for SIGSEGV can be installed. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

void vsyslog(int priority, const char *format, va_list args)
{
  const char *path = getenv("SYSLOG_FILE");
  FILE *log = path != NULL ? fopen(path, "a") : NULL;
  if (log != NULL) {
    fprintf(log, "%d ", priority);
    vfprintf(log, format, args);
    fputc('\n', log);
    fclose(log);
  }
}

void syslog(int priority, const char *format, ...)
{
  va_list args;
  va_start(args, format);
  vsyslog(priority, format, args);
  va_end(args);
}

void __syslog_chk(int priority, int flag, const char *format, ...)
{
  va_list args;
  (void)flag;
  va_start(args, format);
  vsyslog(priority, format, args);
  va_end(args);
}

int sigaction(int sig, const struct sigaction *act, struct sigaction *old)
{
  int (*next)(int, const struct sigaction *, struct sigaction *) =
      dlsym(RTLD_NEXT, "sigaction");
  if (sig == SIGSEGV && act != NULL && getenv("SHIM_NO_SEGV_HANDLER") != NULL) {
    errno = EINVAL;
    return -1;
  }
  return next(sig, act, old);
}
