// The folder of the stored settings.
//
// Owns the descriptor of the folder, for the life of the process.  Only regular
// files, no links, are opened below it: the folder belongs to the web server's
// user, whom root must not trust.

#include "folder.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "fault.h"
#include "orv.h"
#include "orv_guard.h"

#ifndef ORV_DATA_DIR
#define ORV_DATA_DIR "/usr/share/larkspur"
#endif
#ifndef ORV_STATE_DIR
#define ORV_STATE_DIR ORV_DATA_DIR "/state"
#endif

// A settings file is never larger: the largest table has a
// tenth of this.
constexpr off_t FILE_MAX = off_t{4} * 1024 * 1024;
// How long a save waits for others, in seconds: no longer than its user would.
#ifndef STORE_LOCK_SECONDS
#define STORE_LOCK_SECONDS 30
#endif
constexpr unsigned LOCK_SECONDS = STORE_LOCK_SECONDS;
constexpr size_t HOLDER_SIZE = 100; // the description of the lock's holder
constexpr mode_t FOLDER_MODE = 0700;
constexpr mode_t FILE_MODE = 0600;

store_folder store = {nullptr, nullptr, nullptr, nullptr, -1};

static const char *place(const char *variable, const char *otherwise)
{
  const char *path = getenv(variable);
  return path != nullptr && path[0] != '\0' ? path : otherwise;
}

// --- root --------------------------------------------------------------------

// Whether only root can replace `path`, or a folder or link that leads there.
// `path` is absolute; it is shortened in place.
static bool is_roots(char *path)
{
  for (char *slash = strrchr(path, '/'); slash != nullptr;
       slash = strrchr(path, '/')) {
    struct stat above;
    *slash = '\0';
    if (lstat(path[0] != '\0' ? path : "/", &above) != 0 || above.st_uid != 0) {
      return false;
    }
    // With the sticky bit only its owner can rename an entry, as in /tmp.  A
    // link's own mode says nothing: it is always open to all.
    const bool open_to_all = (above.st_mode & (S_IWGRP | S_IWOTH)) != 0 &&
                             (above.st_mode & S_ISVTX) == 0;
    if (open_to_all && !S_ISLNK(above.st_mode)) {
      return false;
    }
  }
  return true;
}

// The path made absolute, links not resolved; owned by the caller.
static char *absolute_path(const char *path)
{
  const owned_text here(path[0] != '/' ? getcwd(nullptr, 0) : must_strdup(""));
  if (here == nullptr) {
    return nullptr;
  }
  const size_t size = strlen(here.get()) + strlen(path) + 2;
  char *whole = static_cast<char *>(must_malloc(size));
  if (whole != nullptr) {
    snprintf(whole, size, "%s%s%s", here.get(), path[0] != '/' ? "/" : "",
             path);
  }
  return whole;
}

// Becomes the user with that id.  The groups go first: without root's rights
// they could not be changed any more.
static bool become(const struct stat *file)
{
  if (file->st_uid == 0) {
    return true;
  }
  if (setgroups(1, &file->st_gid) != 0 || setgid(file->st_gid) != 0 ||
      setuid(file->st_uid) != 0) {
    return store_fault_errno("Root cannot switch to the owner of the settings");
  }
  return true;
}

// Switches from root to the folder's owner, so that root creates nothing that
// the web server cannot change, and trusts none of its files.  Both the path as
// given and the one that its links lead to are judged: either could be turned
// to another folder.
static bool become_owner()
{
  struct stat folder;
  if (geteuid() != 0) {
    return true;
  }
  const owned_text named(absolute_path(store.path));
  const owned_text real(realpath(store.path, nullptr));
  if (named == nullptr || real == nullptr || lstat(store.path, &folder) != 0) {
    return store_fault_errno("The settings cannot be reached");
  }
  if (!S_ISDIR(folder.st_mode) || !is_roots(named.get()) ||
      !is_roots(real.get())) {
    return store_fault("Root does not use the folder %s: others could replace "
                       "it",
                       store.path);
  }
  return become(&folder);
}

// The owner of the nearest existing folder above `path`, which is changed
// meanwhile and restored.
static bool become_owner_above(char *path)
{
  struct stat above = {};
  char *slash = strrchr(path, '/');
  while (slash != nullptr && slash != path) {
    *slash = '\0';
    const bool exists = stat(path, &above) == 0;
    char *next = exists ? nullptr : strrchr(path, '/');
    *slash = '/';
    slash = next;
  }
  return become(&above);
}

// --- the folder --------------------------------------------------------------

// Makes the folder and those above it.  Root does so as the owner of the
// nearest existing one, who may be the web server's user.
static bool make_folder()
{
  const owned_text path(must_strdup(store.path));
  if (path == nullptr) {
    return store_fault("Out of memory");
  }
  if (geteuid() == 0 && !become_owner_above(path.get())) {
    return false;
  }
  for (char *slash = strchr(path.get() + 1, '/'); slash != nullptr;
       slash = strchr(slash + 1, '/')) {
    *slash = '\0';
    mkdir(path.get(), FOLDER_MODE); // what fails here fails again below
    *slash = '/';
  }
  if (mkdir(path.get(), FOLDER_MODE) != 0 && errno != EEXIST) {
    return store_fault_errno("The settings cannot be stored");
  }
  return true;
}

void store_find(void)
{
  if (*place("ORV_STATE", "") == '\0') {
    setenv("ORV_STATE", ORV_STATE_DIR, 1); // for scripts, too
  }
  store.path = place("ORV_STATE", ORV_STATE_DIR);
  store.defaults = place("ORV_DEFAULTS", ORV_DATA_DIR "/defaults");
  store.templates = place("ORV_TEMPLATES", ORV_DATA_DIR "/templates");
  store.migrate = place("ORV_MIGRATE", ORV_DATA_DIR "/migrate");
}

bool store_open(bool create)
{
  struct stat folder;
  store_find();
  if (stat(store.path, &folder) != 0) {
    if (errno != ENOENT) {
      return store_fault_errno("The settings cannot be reached");
    }
    if (!create) {
      return true;
    }
    if (!make_folder()) {
      return false;
    }
  }
  if (!become_owner()) {
    return false;
  }
  store.fd = open(store.path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (store.fd < 0) {
    return store_fault_errno("The settings cannot be read");
  }
  return true;
}

// The first character keeps settings apart from our own files and folders here,
// which begin with a dot.
static bool is_word(const char *name, size_t length)
{
  static const char rest[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                             "abcdefghijklmnopqrstuvwxyz0123456789_.-";
  return length > 0 && strspn(name, rest) >= length &&
         strchr("_.-", name[0]) == nullptr;
}

bool store_is_name(const char *name)
{
  const size_t length = strcspn(name, "@");
  return strlen(name) <= STORE_NAME_MAX && is_word(name, length) &&
         (name[length] == '\0' ||
          is_word(name + length + 1, strlen(name + length + 1)));
}

// --- files -------------------------------------------------------------------

// Reads up to the size that the file had: our files never grow.
static char *read_open_file(int fd, size_t size, size_t *length)
{
  owned_text text(static_cast<char *>(must_malloc(size + 1)));
  if (text == nullptr) {
    store_fault("Out of memory");
    return nullptr;
  }
  *length = 0;
  while (*length < size) {
    const ssize_t got = read(fd, text.get() + *length, size - *length);
    if (got < 0 && errno != EINTR) {
      store_fault_errno("The settings cannot be read");
      return nullptr;
    }
    if (got == 0) {
      break;
    }
    *length += got > 0 ? static_cast<size_t>(got) : 0;
  }
  text.get()[*length] = '\0';
  return text.release();
}

static char *read_file(int dir, const char *name, size_t *length, int links)
{
  const int fd = openat(dir, name, O_RDONLY | links | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    if (errno != ENOENT) {
      store_fault_errno("The settings cannot be read");
    }
    return nullptr;
  }
  struct stat file;
  char *text = nullptr;
  if (fstat(fd, &file) != 0 || !S_ISREG(file.st_mode)) {
    store_fault("The settings cannot be read: %s is not a regular file", name);
  } else if (file.st_size > FILE_MAX) {
    store_fault("The settings cannot be read: %s is too large", name);
  } else {
    text = read_open_file(fd, static_cast<size_t>(file.st_size), length);
  }
  close(fd);
  return text;
}

char *store_read_file(int dir, const char *name, size_t *length)
{
  return read_file(dir, name, length, O_NOFOLLOW);
}

char *store_read_linked(int dir, const char *name, size_t *length)
{
  return read_file(dir, name, length, 0);
}

// --- folders -----------------------------------------------------------------

int store_open_folder(int dir, const char *name)
{
  return openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

DIR *store_list_folder(int dir, const char *name)
{
  const int fd = store_open_folder(dir, name);
  DIR *list = fd >= 0 ? fdopendir(fd) : nullptr;
  if (list == nullptr && fd >= 0) {
    close(fd);
  }
  return list;
}

// readdir(3) returns NULL for the end and for a failure alike.
dirent *store_next_entry(DIR *list)
{
  errno = 0;
  return readdir(list);
}

bool store_each_file(int dir, const char *name, store_act act, void *data)
{
  const store_list list(store_list_folder(dir, name));
  if (list == nullptr) {
    return false;
  }
  for (const dirent *entry = store_next_entry(list.get()); entry != nullptr;
       entry = store_next_entry(list.get())) {
    if (store_is_name(entry->d_name) &&
        !act(dirfd(list.get()), entry->d_name, data)) {
      return false;
    }
  }
  return errno == 0;
}

// A link counts here, too.
bool store_has_defaults(const char *name)
{
  struct stat file;
  const int dir = open(store.defaults, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool has = dir >= 0 && store_is_name(name) &&
                   fstatat(dir, name, &file, 0) == 0 && S_ISREG(file.st_mode);
  if (dir >= 0) {
    close(dir);
  }
  return has;
}

// A sub-item has the program of its form.
char *store_migration(const char *name)
{
  char *path = nullptr;
  if (asprintf(&path, "%s/%.*s", store.migrate,
               static_cast<int>(strcspn(name, "@")), name) < 0) {
    store_fault("Out of memory");
    return nullptr;
  }
  if (access(path, F_OK) == 0) {
    return path;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    store_fault_errno("The settings cannot be converted to their version");
  }
  free(path);
  return nullptr;
}

bool store_has_file(const char *name)
{
  struct stat file;
  return fstatat(store.fd, name, &file, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(file.st_mode);
}

bool store_has(const char *path)
{
  struct stat file;
  if (store.fd < 0) {
    return false;
  }
  return fstatat(store.fd, path, &file, AT_SYMLINK_NOFOLLOW) == 0 ||
         (errno != ENOENT && store_fault_errno("The settings cannot be read"));
}

// --- the lock ----------------------------------------------------------------

static const char LOCK_FILE[] = ".lock";
static int lock_file = -1; // open for the life of the process

// A signal interrupts a wait that takes too long: the handler does nothing, but
// without SA_RESTART flock fails with EINTR.
static void be_late(int)
{
}

static bool wait_for_lock(int fd)
{
  if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
    return true;
  }
  struct sigaction late = {};
  late.sa_handler = be_late;
  sigaction(SIGALRM, &late, nullptr);
  // It repeats, since a signal before the wait begins interrupts nothing.
  const struct itimerval time = {{1, 0}, {LOCK_SECONDS, 0}};
  const struct itimerval never = {};
  setitimer(ITIMER_REAL, &time, nullptr);
  const bool locked = flock(fd, LOCK_EX) == 0;
  const int error = errno;
  setitimer(ITIMER_REAL, &never, nullptr);
  errno = error;
  return locked;
}

// Names the holder to those who wait; a failure does no harm.  The file keeps
// its length, since truncating it costs more.
static void write_holder(const char *what)
{
  char holder[HOLDER_SIZE] = "";
  snprintf(holder, sizeof holder, "%s", what);
  static_cast<void>(pwrite(lock_file, holder, sizeof holder, 0) > 0);
}

static bool report_holder()
{
  char holder[HOLDER_SIZE] = "";
  static_cast<void>(pread(lock_file, holder, sizeof holder - 1, 0) > 0);
  return store_fault("The settings have been in use by %s for more than %u "
                     "seconds. Please try again",
                     holder[0] != '\0' ? holder : "another save", LOCK_SECONDS);
}

bool store_lock(const char *what, pid_t holder)
{
  lock_file = openat(store.fd, LOCK_FILE,
                     O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, FILE_MODE);
  if (lock_file < 0) {
    return store_fault_errno("The settings could not be stored");
  }
  if (holder > 0) {
    // Without the lock, others may have changed what the script has checked.
    const bool held = flock(lock_file, LOCK_EX | LOCK_NB) != 0 &&
                      errno == EWOULDBLOCK && kill(holder, 0) == 0;
    return held || store_fault("Nothing was saved: the lock was lost. "
                               "Please try again");
  }
  if (!wait_for_lock(lock_file)) {
    return errno == EINTR ? report_holder()
                          : store_fault_errno("The settings cannot be locked");
  }
  write_holder(what);
  return true;
}

void store_unlock(void)
{
  if (lock_file >= 0) {
    close(lock_file);
    lock_file = -1;
  }
}

// --- holding it for a script -------------------------------------------------

// An old kernel cannot report the end of a process: then we poll.
bool store_await(pid_t pid, int fd)
{
  const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  const int pause = process >= 0 ? -1 : 20;
  pollfd ends[] = {{fd, POLLIN, 0}, {process, POLLIN, 0}};
  bool lives = true;
  while (lives && ends[0].revents == 0) {
    const int events = poll(ends, 2, pause);
    ends[0].revents = events > 0 ? ends[0].revents : 0;
    lives = process >= 0 ? events < 1 || ends[1].revents == 0
                         : kill(pid, 0) == 0 || errno != ESRCH;
  }
  if (process >= 0) {
    close(process);
  }
  return ends[0].revents != 0;
}

// A lock of flock(2) belongs to the open file, so the new process has it, too,
// and it lasts until the last of both has ended.  A process group of its own
// keeps signals to the script's from unlocking.  It has that as soon as this
// returns, since a signal may come before it runs.
pid_t store_hold_lock(pid_t script)
{
  const pid_t holder = fork();
  if (holder == 0) {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
      close(fd); // the page waits for every process that holds its pipe
    }
    store_await(script, -1);
    _exit(EXIT_SUCCESS);
  }
  if (holder < 0) {
    store_fault_errno("The settings cannot be locked");
    return -1;
  }
  setpgid(holder, holder);
  return holder;
}
