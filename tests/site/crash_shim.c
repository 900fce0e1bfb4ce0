/* Preloaded into the executable under test: crashes it where it starts its
 * first script, in the way that SHIM_CRASH names.  From then on any request for
 * memory aborts (except by AddressSanitizer, which makes some at exit).
 *
 * overflow  the stack overflows
 * locked    as if in the C library, while the page's stream is locked
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static bool guarded;
static volatile bool locked;

static int overflow(volatile const char *above)
{
  volatile char here[4096];
  here[0] = *above;
  return here[0] == '!' ? 0 : overflow(here) + here[0];
}

static void *hold_page(void *unused)
{
  (void)unused;
  flockfile(stdout);
  locked = true;
  while (pause() != 0) {
  }
  return NULL;
}

static bool is_way(const char *way)
{
  return strcmp(getenv("SHIM_CRASH"), way) == 0;
}

pid_t fork(void)
{
  pthread_t holder;
  if (is_way("locked") && pthread_create(&holder, NULL, hold_page, NULL) == 0) {
    while (!locked) {
      usleep(50);
    }
  }
  guarded = dlsym(RTLD_DEFAULT, "__asan_init") == NULL;
  if (is_way("overflow")) {
    overflow("");
  }
  *(volatile int *)NULL = 0;
  return -1;
}

void *malloc(size_t size)
{
  void *(*next)(size_t) = dlsym(RTLD_NEXT, "malloc");
  if (guarded) {
    abort();
  }
  return next(size);
}
