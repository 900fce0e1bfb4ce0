/* Preloaded into the executable under test: makes the n-th call of one kind
 * fail, in that process only and not in the scripts that it starts.
 *
 * FAULT="KIND NUMBER ONWARD": what fails, see below; the number of the call;
 * whether all later ones fail, too (1 or 0).  The file "report" in the current
 * folder holds struct report, which counts what has happened.
 *
 * Memory and streams fail in functions that replace the C library's own, for
 * every caller, including the C library.  System calls fail through a second
 * process that traces the first, so that those of streams fail, too.  Not
 * covered: the loader, mmap, and stacks.  Under AddressSanitizer the traced
 * process is released at exit, before it writes a page that is still in the
 * buffer, since the search for leaks needs to trace it as well.
 *
 * The kind "kill" is not a fault: the process dies before the n-th system call
 * that others can notice.  Where exactly it dies between two such calls makes
 * no difference.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

struct report {
  int faults;    /* calls that failed */
  int on_stdout; /* of these, writes of the page itself */
  int traced;    /* the second process has begun */
  int leaving;   /* it must release the first one */
};

static struct report *report;
static char kind[16];
static int at;
static int onward;
static pid_t self;

static bool is_hit(void)
{
  static int calls;
  bool hit = ++calls == at || (onward && calls > at);
  report->faults += hit;
  return hit;
}

/* --- memory and streams --------------------------------------------------- */

static bool fails(const char *group)
{
  return strcmp(kind, group) == 0 && getpid() == self && is_hit();
}

#define FAILING(group, type, name, params, args)                               \
  type name params                                                             \
  {                                                                            \
    type(*next) params = (type(*) params)dlsym(RTLD_NEXT, #name);              \
    if (fails(group)) {                                                        \
      errno = ENOMEM;                                                          \
      return NULL;                                                             \
    }                                                                          \
    return next args;                                                          \
  }

/* clang-format off */
FAILING("memory", void *, malloc, (size_t size), (size))
FAILING("memory", void *, calloc, (size_t count, size_t size), (count, size))
FAILING("memory", void *, realloc, (void *old, size_t size), (old, size))
FAILING("stream", FILE *, fopen64, (const char *p, const char *mode), (p, mode))
FAILING("stream", FILE *, fdopen, (int fd, const char *mode), (fd, mode))
FAILING("stream", FILE *, open_memstream, (char **p, size_t *size), (p, size))
FAILING("stream", FILE *, fopencookie,
        (void *cookie, const char *mode, cookie_io_functions_t functions),
        (cookie, mode, functions))
/* clang-format on */

/* Keeps thousands of faults out of this machine's log. */
void syslog()
{
}

void __syslog_chk()
{
}

/* --- system calls --------------------------------------------------------- */

/* clang-format off */
static const struct calls {
  const char *kind;
  int error;
  unsigned long long numbers[2];
} calls[] = {
  {"fork",  EAGAIN, {SYS_clone,  SYS_clone3}},
  {"pipe",  EMFILE, {SYS_pipe2,  SYS_pipe}},
  {"open",  EMFILE, {SYS_openat, SYS_open}},
  {"read",  EIO,    {SYS_read,   SYS_readv}},
  {"write", EIO,    {SYS_write,  SYS_writev}},
  {"close", EIO,    {SYS_close,  SYS_close}},
  {"poll",  ENOMEM, {SYS_poll,   SYS_ppoll}},
  {"wait",  ECHILD, {SYS_wait4,  SYS_waitid}},
  {"kill",  0,      {0,          0}},
  {"look",  EIO,    {SYS_pread64,    SYS_newfstatat}},
  {"mark",  ENOSPC, {SYS_pwrite64,   SYS_ftruncate}},
  {"sync",  EIO,    {SYS_fsync,      SYS_fsync}},
  {"name",  ENOSPC, {SYS_renameat,   SYS_renameat2}},
  {"mkdir", ENOSPC, {SYS_mkdirat,    SYS_mkdir}},
  {"list",  EIO,    {SYS_getdents64, SYS_getdents64}},
  {"lock",  ENOLCK, {SYS_flock,      SYS_flock}},
  {"unlink", EIO,   {SYS_unlinkat,   SYS_unlink}},
  {"random", ENOSYS, {SYS_getrandom, SYS_getrandom}},
};
/* clang-format on */

static bool is_killer(const struct calls *row)
{
  return row->error == 0;
}

static bool is_noticed(const struct user_regs_struct *regs)
{
  switch (regs->orig_rax) {
  case SYS_openat:
    return (regs->rdx & O_CREAT) != 0;
  case SYS_write:
  case SYS_pwrite64:
  case SYS_ftruncate:
  case SYS_fsync:
  case SYS_renameat:
  case SYS_renameat2:
  case SYS_mkdir:
  case SYS_mkdirat:
  case SYS_unlink:
  case SYS_unlinkat:
  case SYS_flock:
  case SYS_clone:
  case SYS_clone3:
  case SYS_exit_group:
    return true;
  default:
    return false;
  }
}

/* Before a call: whether it is to fail.  If so, it is replaced by a call that
 * the kernel does not know; a close that fails closes all the same. */
static bool start_fault(const struct calls *row, struct user_regs_struct *regs)
{
  unsigned long long call = regs->orig_rax;
  if ((call != row->numbers[0] && call != row->numbers[1]) || !is_hit()) {
    return false;
  }
  report->on_stdout += call == SYS_write && regs->rdi == STDOUT_FILENO;
  regs->orig_rax = call == SYS_close ? call : -1ULL;
  return true;
}

/* The second process: runs until the first ends, or is released.  Each system
 * call stops the first one twice, before and after. */
static void trace(const struct calls *row, pid_t pid)
{
  struct user_regs_struct regs;
  bool before = true;
  bool failing = false;
  int status;
  int sig = 0;
  ptrace(PTRACE_ATTACH, pid, NULL, NULL);
  waitpid(pid, &status, 0);
  ptrace(PTRACE_SETOPTIONS, pid, NULL, PTRACE_O_TRACESYSGOOD);
  report->traced = 1;
  while (!report->leaving && ptrace(PTRACE_SYSCALL, pid, NULL, sig) == 0 &&
         waitpid(pid, &status, 0) == pid && WIFSTOPPED(status)) {
    sig = WSTOPSIG(status);
    if (sig != (SIGTRAP | 0x80)) {
      continue;
    }
    sig = 0;
    ptrace(PTRACE_GETREGS, pid, NULL, &regs);
    if (before && is_killer(row)) {
      sig = is_noticed(&regs) && is_hit() ? SIGKILL : 0;
    } else if (before) {
      failing = start_fault(row, &regs);
    } else if (failing) {
      regs.rax = -(unsigned long long)row->error;
    }
    if (failing) {
      ptrace(PTRACE_SETREGS, pid, NULL, &regs);
    }
    before = !before;
  }
  ptrace(PTRACE_DETACH, pid, NULL, NULL);
  _exit(EXIT_SUCCESS);
}

static void leave(void)
{
  report->leaving = 1;
  syscall(SYS_getppid);
}

static void be_traced(const struct calls *row)
{
  pid_t tracer = fork();
  if (tracer == 0) {
    trace(row, self);
  }
  prctl(PR_SET_PTRACER, tracer, 0, 0, 0);
  while (!*(volatile int *)&report->traced) {
    usleep(50);
  }
  if (dlsym(RTLD_DEFAULT, "__asan_init") != NULL) {
    atexit(leave);
  }
}

__attribute__((constructor)) static void begin(void)
{
  const char *fault = getenv("FAULT");
  unsetenv("LD_PRELOAD");
  if (fault == NULL || sscanf(fault, "%15s %d %d", kind, &at, &onward) != 3) {
    return;
  }
  int fd = open("report", O_RDWR | O_CLOEXEC);
  report =
      mmap(NULL, sizeof *report, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  self = getpid();
  for (size_t i = 0; i < sizeof calls / sizeof *calls; i++) {
    if (strcmp(calls[i].kind, kind) == 0) {
      be_traced(&calls[i]);
    }
  }
}
