// The checks of what the device has: files, users, groups and commands.  They
// only look: what is named may have changed by the time a script uses it.

#include <grp.h>
#include <pwd.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "orv_check.h"
#include "orv_check_fault.h"

// --- files -------------------------------------------------------------------

constexpr size_t PATH_LENGTH_MIN = 2;    // "/" alone names nothing to create
constexpr size_t PATH_LENGTH_MAX = 4096; // the kernel's PATH_MAX

static const char UNKNOWN_OPTION[] = "Unknown option in file check";

// Tests that `path` names an object of the type `type` (of S_IFMT).
static const char *object_fault(const char *path, mode_t type,
                                const char *missing, const char *wrong)
{
  struct stat info;
  if (stat(path, &info) != 0) {
    return missing;
  }
  return (info.st_mode & S_IFMT) == type ? nullptr : wrong;
}

// Tests that the first `length` characters of `path` name a directory.  The
// rest is cut off in place meanwhile, so that a long value needs no memory.
static const char *parent_fault(char *path, size_t length, const char *missing,
                                const char *wrong)
{
  const char cut = path[length];
  path[length] = '\0';
  const char *fault = object_fault(path, S_IFDIR, missing, wrong);
  path[length] = cut;
  return fault;
}

// The place of the last "/" in the first `length` characters of an absolute
// path: the length of what holds the entry; 0 stands for the root directory.
static size_t parent_length(const char *path, size_t length)
{
  while (length > 0 && path[length - 1] != '/') {
    length--;
  }
  return length > 0 ? length - 1 : 0;
}

void chk_socket(char *value, const char *, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  check_record(object_fault(value, S_IFSOCK, "Socket does not exist",
                            "File is not a socket"),
               tpl_error, err_name, var_label);
}

void chk_directory(char *value, const char *, const char *tpl_error,
                   const char *err_name, const char *var_label)
{
  check_record(object_fault(value, S_IFDIR, "Directory does not exist",
                            "File is not a directory"),
               tpl_error, err_name, var_label);
}

void chk_script(char *value, const char *, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  if (access(value, X_OK) != 0) {
    check_failed(err_name, tpl_error, "Script is not executable", var_label);
  }
}

static const char *file_name_fault(const char *value)
{
  if (value[0] != '/') {
    return "File path must start with a /";
  }
  if (strstr(value, "/.") != nullptr) {
    return "/. not allowed in file name";
  }
  if (strstr(value, "//") != nullptr) {
    return "Please remove // from file name";
  }
  return nullptr;
}

// Whether an existing file is what the option asks for.
static const char *file_type_fault(mode_t mode, char option)
{
  // clang-format off
  static const struct {
    char option;
    mode_t type;
    mode_t bits; // permissions that must be set, too
    const char *fault;
  } types[] = {
    {'d', S_IFDIR,  0,       "Path is not a directory"},
    {'f', S_IFREG,  0,       "File is not a regular file"},
    {'x', S_IFREG,  S_IXUSR, "File is not an executable"},
    {'S', S_IFSOCK, 0,       "File is not a socket"},
  };
  // clang-format on

  if (option == '\0') {
    return nullptr;
  }
  for (const auto &row : types) {
    if (row.option == option) {
      const mode_t wanted = row.type | row.bits;
      return (mode & (S_IFMT | row.bits)) == wanted ? nullptr : row.fault;
    }
  }
  return UNKNOWN_OPTION;
}

// Whether a file that does not exist could be made where it is wanted.
static const char *new_file_fault(char *value, bool is_directory)
{
  const size_t length = strlen(value);
  size_t parent = parent_length(value, length);
  if (parent == 0) {
    return "Missing / in file name";
  }
  if (parent == length - 1) {
    if (!is_directory) {
      return "File cannot be a directory";
    }
    parent = parent_length(value, parent);
  }
  return parent_fault(value, parent, "Parent directory does not exist",
                      "Bad directory in file name");
}

void chk_file(char *value, const char *options, const char *tpl_error,
              const char *err_name, const char *var_label)
{
  const char option = options[0];
  const char *fault = file_name_fault(value);
  struct stat info;
  if (fault == nullptr) {
    fault = stat(value, &info) == 0 ? file_type_fault(info.st_mode, option)
                                    : new_file_fault(value, option == 'd');
  }
  check_record(fault, fault == UNKNOWN_OPTION ? nullptr : tpl_error, err_name,
               var_label);
}

static const char *path_name_fault(const char *value)
{
  if (value[0] != '/') {
    return "Path must start with a /";
  }
  const size_t length = strlen(value);
  if (length < PATH_LENGTH_MIN || length > PATH_LENGTH_MAX) {
    return "Path name too short/long";
  }
  if (strstr(value, "/.") != nullptr) {
    return "/. not allowed in path name";
  }
  if (strstr(value, "//") != nullptr) {
    return "// not allowed in path name";
  }
  return nullptr;
}

// Tests the directory `levels` above `value`; at the root there is no need.
static const char *ancestor_fault(char *value, int levels)
{
  size_t length = strlen(value);
  for (int level = 0; level < levels; level++) {
    length = parent_length(value, length);
    if (length == 0) {
      return nullptr;
    }
  }
  return parent_fault(
      value, length, "Parent directory does not exist",
      "An existing file stops parent directory from being created");
}

void chk_path(char *value, const char *options, const char *tpl_error,
              const char *err_name, const char *var_label)
{
  const char *fault = path_name_fault(value);
  if (fault == nullptr && options[0] != '\0') {
    if (strcmp(options, "parent_exists") == 0) {
      fault = ancestor_fault(value, 1);
    } else if (strcmp(options, "grandparent_exists") == 0) {
      fault = ancestor_fault(value, 2);
    } else {
      fault = UNKNOWN_OPTION;
      tpl_error = nullptr;
    }
  }
  check_record(fault, tpl_error, err_name, var_label);
}

// --- users and commands ------------------------------------------------------

// No name is longer; what a database's module does with one of a megabyte, on
// how large a stack, is not ours to find out.
constexpr size_t ACCOUNT_NAME_MAX = 256;

static bool is_account_name(const char *value)
{
  return strlen(value) <= ACCOUNT_NAME_MAX;
}

void chk_username(char *value, const char *, const char *tpl_error,
                  const char *err_name, const char *var_label)
{
  if (!is_account_name(value) || getpwnam(value) == nullptr) {
    check_failed(err_name, tpl_error, "Unknown username", var_label);
  }
}

void chk_groupname(char *value, const char *, const char *tpl_error,
                   const char *err_name, const char *var_label)
{
  if (!is_account_name(value) || getgrnam(value) == nullptr) {
    check_failed(err_name, tpl_error, "Unknown groupname", var_label);
  }
}

// Where commands without a path are looked for; PATH is the web server's and
// says nothing about the device.
static const char *const dirs[] = {"/bin", "/usr/bin", "/sbin", "/usr/sbin",
                                   nullptr};
// A directory and a command's name; longer ones are cut.
constexpr size_t CANDIDATE_SIZE = 100;

static const char *command_fault(const char *command)
{
  if (command[0] == '/') {
    return access(command, X_OK) == 0 ? nullptr : "Command is not executable";
  }
  if (strchr(command, '/') != nullptr) {
    return "Relative command paths not allowed";
  }
  for (const char *const *dir = dirs; *dir != nullptr; dir++) {
    char candidate[CANDIDATE_SIZE];
    snprintf(candidate, sizeof candidate, "%s/%s", *dir, command);
    if (access(candidate, X_OK) == 0) {
      return nullptr;
    }
  }
  return "Command not found";
}

// The arguments are cut off in place while the command is looked for.
void chk_command(char *value, const char *, const char *tpl_error,
                 const char *err_name, const char *var_label)
{
  char *end = value + strcspn(value, " ");
  const char cut = *end;
  *end = '\0';
  const char *fault = command_fault(value);
  *end = cut;
  check_record(fault, tpl_error, err_name, var_label);
}
