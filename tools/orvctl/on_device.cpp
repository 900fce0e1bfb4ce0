// Access to the device's settings.
//
// Owns the transaction that has begun.  Scripts get its random name in their
// environment; a request never passes one on.

#include "on_device.h"

#include <errno.h>
#include <inttypes.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "history.h"
#include "terminal.h"

#ifndef ORV_DATA_DIR
#define ORV_DATA_DIR "/usr/share/larkspur"
#endif

static const char TRANSACTION[] = "ORV_TRANSACTION";

static store_stage stage;
static bool begun;
static char user[100]; // that root has become; "": none

// --- as which user -----------------------------------------------------------

static bool report_fault()
{
  terminal_print(stderr, "orvctl: %s\n", store_fault_text());
  return false;
}

// Scripts must not inherit what belongs to root alone.
static void name_home(const struct passwd *entry)
{
  if (entry != nullptr) {
    snprintf(user, sizeof user, "%s", entry->pw_name);
  } else {
    snprintf(user, sizeof user, "%u", static_cast<unsigned>(geteuid()));
  }
  setenv("HOME", entry != nullptr ? entry->pw_dir : "/", 1);
  setenv("USER", user, 1);
  setenv("LOGNAME", user, 1);
}

// What every page needs, and the new user may not be able to read.
static const char *const FOLDERS[] = {ORV_DATA_DIR "/templates",
                                      ORV_DATA_DIR "/scripts"};

static void report_unreadable(const char *folder, const char *file)
{
  terminal_print(stderr,
                 "orvctl: %s%s%s cannot be read by user %s, who owns the "
                 "settings\n",
                 folder, file[0] != '\0' ? "/" : "", file, user);
}

// Anything but a lack of rights is left to the page that meets it: it has the
// better message.
static bool can_use_forms()
{
  for (const char *folder : FOLDERS) {
    if (access(folder, R_OK | X_OK) != 0 && errno == EACCES) {
      report_unreadable(folder, "");
      return false;
    }
  }
  return true;
}

static void explain_files(const char *folder)
{
  const store_list list(opendir(folder));
  if (list == nullptr) {
    return;
  }
  for (const dirent *entry = readdir(list.get()); entry != nullptr;
       entry = readdir(list.get())) {
    if (faccessat(dirfd(list.get()), entry->d_name, R_OK, 0) != 0 &&
        errno == EACCES) {
      report_unreadable(folder, entry->d_name);
    }
  }
}

void device_explain(void)
{
  for (const char *folder : FOLDERS) {
    if (user[0] != '\0') {
      explain_files(folder);
    }
  }
}

// Whoever is still root now is the owner of the settings, or there are none
// yet, and has no rights to give up.
bool device_enter(void)
{
  store_find(); // for the scripts
  if (geteuid() != 0) {
    return true; // a script reports what cannot be used
  }
  if (!store_open(false)) {
    return report_fault();
  }
  if (geteuid() == 0) {
    return true;
  }
  name_home(getpwuid(geteuid()));
  return can_use_forms();
}

// --- one step ----------------------------------------------------------------

// A device whose scripts keep their settings elsewhere may have no place for
// ours.
static bool has_place()
{
  if (store.fd >= 0 || store_open(true)) {
    return true;
  }
  struct stat folder;
  if (stat(store.path, &folder) != 0 && errno == ENOENT) {
    store_forget_fault();
  }
  return false;
}

bool device_open(void)
{
  return store.fd >= 0 || (store_open(false) && store.fd >= 0);
}

// Within another's transaction the lock is held by the process that waits for
// this one.
bool device_lock(void)
{
  stage_join();
  return stage_folder() == nullptr
             ? store_lock_for("orvctl")
             : store_fault("Not possible while orvctl saves several forms");
}

// What is said to lock is what others are told who wait too long.
bool device_begin(void)
{
  char token[STORE_TOKEN_SIZE];
  if (!has_place()) {
    return store_fault_text() == nullptr;
  }
  stage_join();
  if (stage_folder() != nullptr) { // started by a script
    return true;
  }
  begun = store_lock_for("orvctl apply") && transaction_begin(&stage, token);
  if (begun) {
    setenv(TRANSACTION, token, 1);
  }
  return begun;
}

bool device_commit(void)
{
  if (!begun) {
    return true;
  }
  begun = false;
  unsetenv(TRANSACTION);
  return transaction_commit(&stage);
}

// Unlocks, since the same command may begin a step of its own after it has
// looked at older settings.
void device_drop(void)
{
  if (begun) {
    begun = false;
    unsetenv(TRANSACTION);
    transaction_drop(&stage);
    store_unlock();
  }
}

long device_saves(void)
{
  return begun ? transaction_saves(&stage) : 0;
}

// --- other settings than today's ---------------------------------------------

// A transaction that others commit would store what is only to be looked at.
static bool begin_look()
{
  if (!device_begin()) {
    return false;
  }
  return begun || stage_folder() == nullptr ||
         store_fault("Not possible while orvctl saves several forms");
}

bool device_look_back(uint64_t number)
{
  const bool looks =
      begin_look() &&
      (begun ? history_stage(&stage, number)
             : store_fault("There is no save %" PRIu64 " in the history",
                           number));
  if (!looks) {
    device_drop();
  }
  return looks;
}

// Scripts read the stage first, where each file now says that nothing is
// stored.
static bool blank_file(int, const char *name, void *)
{
  return stage_blank(&stage, name);
}

bool device_look_shipped(void)
{
  const bool looks =
      begin_look() &&
      (!begun || store_each_file(store.fd, ".", blank_file, nullptr) ||
       store_fault_errno("The settings cannot be listed"));
  if (!looks) {
    device_drop();
  }
  return looks;
}
