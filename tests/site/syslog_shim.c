/* Preloaded into the executable under test: its system log messages are appended
 * to the file named by SYSLOG_FILE, each as a line "PRIORITY TEXT". */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#ifdef OF_ANOTHER_PROCESSOR
/* Children such as bash must not load this library. */
__attribute__((constructor)) static void keep_to_myself(void)
{
  unsetenv("LD_PRELOAD");
}
#endif

void vsyslog(int priority, const char *format, va_list args)
{
  FILE *log = fopen(getenv("SYSLOG_FILE"), "a");
  fprintf(log, "%d ", priority);
  vfprintf(log, format, args);
  fputc('\n', log);
  fclose(log);
}

void syslog(int priority, const char *format, ...)
{
  va_list args;
  va_start(args, format);
  vsyslog(priority, format, args);
  va_end(args);
}

/* Called instead where the C library's own checks are compiled in. */
void __syslog_chk(int priority, int flag, const char *format, ...)
{
  va_list args;
  (void)flag;
  va_start(args, format);
  vsyslog(priority, format, args);
  va_end(args);
}
