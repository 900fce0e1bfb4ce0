// The folder of the stored settings: where it is, who may use it, and the lock
// that lets one save at a time proceed.

#ifndef STORE_FOLDER_H
#define STORE_FOLDER_H

#include <dirent.h>
#include <stddef.h>
#include <sys/types.h>

#include "orv_guard.h"

// The name of a file made from a form's.
constexpr size_t STORE_NAME_MAX = 99;
// Such a name within one of our own folders.
constexpr size_t STORE_PATH_SIZE = STORE_NAME_MAX + 100;

struct store_folder {
  const char *path;      // of the settings; all four borrowed from the
  const char *defaults;  // environment: ORV_STATE, ORV_DEFAULTS,
  const char *templates; // ORV_TEMPLATES
  const char *migrate;   // and ORV_MIGRATE
  int fd;                // of `path`; -1: there is no such folder yet
};

extern store_folder store; // the one in use; made by store_open

// Takes the paths from the environment.  Without ORV_STATE there it is set, so
// that programs started from now on use the same folder.
void store_find(void);

// The same, and opens the folder.  Started as root, the process first becomes
// the folder's owner, and only root may be able to replace the folder.  With
// `create`, a missing folder is made.  False with a fault.
bool store_open(bool create);

// Whether `name` can be that of a settings file: a letter or digit, then
// letters, digits, `_`, `.` and `-`; of a sub-item's, two such words and `@`
// between them.
bool store_is_name(const char *name);

// Locks the settings until this process ends, unless the process `holder` (0:
// none) holds the lock for the calling script.  Waits as long as a person
// would; false with a fault that names the holder, or when that process has
// lost the lock.  `what` describes this holder to those who wait.
bool store_lock(const char *what, pid_t holder);

// Unlocks.
void store_unlock(void);

// Waits until the process `pid` has ended, or until `fd` (-1: none) has input
// or its end.  True for the latter.
bool store_await(pid_t pid, int fd);

// Passes the lock to a new process, which keeps it until the process `script`
// ends: no background process of the script holds it, and ending the holder
// unlocks.  The holder's id, -1 with a fault.
pid_t store_hold_lock(pid_t script);

// Reads all of the file `name` of the folder `dir`: owned by the caller (free),
// with a NUL byte behind it.  NULL without a fault when there is none, NULL
// with a fault when it cannot be read, is not a regular file or too large.
char *store_read_file(int dir, const char *name, size_t *length);

// The same of a file that may be a link.
char *store_read_linked(int dir, const char *name, size_t *length);

// One of our folders within `dir`, not a link: its descriptor, or a stream of
// its entries from the first.  -1 or NULL with errno; owned by the caller.
int store_open_folder(int dir, const char *name);
DIR *store_list_folder(int dir, const char *name);
// The next entry; NULL after the last with errno 0, or when the folder cannot
// be read.
dirent *store_next_entry(DIR *list);
using store_list = std::unique_ptr<DIR, orv_releaser<closedir>>;

// Calls `act` for every settings file of the folder `name` within `dir`; false
// with errno when a call returns false, or the folder cannot be read to its
// end.
using store_act = bool (*)(int folder, const char *file, void *data);
bool store_each_file(int dir, const char *name, store_act act, void *data);

// Whether the defaults have a file of that name.
bool store_has_defaults(const char *name);

// The maker's program that migrates settings of that name to a new version of
// their form: its path, owned by the caller (free); NULL without one, with a
// fault when that is unknown.
char *store_migration(const char *name);

// Whether the settings have a regular file of that name.
bool store_has_file(const char *name);

// Whether that path exists within the folder of the settings; false with a
// fault when that is unknown.
bool store_has(const char *path);

#endif
