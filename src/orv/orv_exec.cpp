// How a script's command line becomes a running program.
//
// Starting bash to start a script costs as much as many a script.  A line of
// plain words means nothing to a shell but its words, so the words are the
// arguments and the script is started directly.  It must not see a difference:
// what bash would have changed in its environment is changed here, and as soon
// as there is any doubt (a variable that bash obeys, a program that the kernel
// does not take, no memory), the line goes to bash.
//
// Runs in the child alone, just before it becomes the script: what is allocated
// here ends with it.

#include "orv_exec.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

// Not must_malloc: lack of memory is no fault here, bash takes over.
template <typename T> static T *new_list(size_t count)
{
  return static_cast<T *>(malloc(count * sizeof(T)));
}

// NOLINTBEGIN(clang-analyzer-unix.Malloc): all of it ends with this process
// --- words -------------------------------------------------------------------

static bool is_plain(char c)
{
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0x80 ||
         (c != '\0' && strchr("_./:@%+,=-", c) != nullptr);
}

static bool is_plain_line(const char *line)
{
  while (is_plain(*line) || *line == ' ') {
    line++;
  }
  return *line == '\0';
}

// The words of the line, NULL behind the last; NULL without memory.
static char **split_words(const char *line)
{
  char *text = strdup(line);
  char **words = new_list<char *>(strlen(line) / 2 + 2);
  if (text == nullptr || words == nullptr) {
    return nullptr;
  }
  size_t count = 0;
  for (char *word = text + strspn(text, " "); *word != '\0';
       word += strspn(word, " ")) {
    words[count] = word;
    count++;
    word += strcspn(word, " ");
    if (*word != '\0') {
      *word = '\0';
      word++;
    }
  }
  words[count] = nullptr;
  return words;
}

// --- environment -------------------------------------------------------------

// The value when `entry` is of the variable `name`, else NULL.
static const char *value_of(const char *entry, const char *name)
{
  const size_t length = strlen(name);
  return strncmp(entry, name, length) == 0 && entry[length] == '='
             ? entry + length + 1
             : nullptr;
}

// Whether bash would run, read its own rules from, or put its own value in the
// place of what the entry holds.  It runs ~/.bashrc where it takes itself for
// started by a remote login.  Names that begin with "BASH" are its own.
static bool is_obeyed(const char *entry)
{
  // Fixed room for each name: pointers would be relocated at every start.
  static const char names[][16] = {"SHELLOPTS",     "POSIXLY_CORRECT",
                                   "IFS",           "SSH_CLIENT",
                                   "SSH2_CLIENT",   "PS1",
                                   "PS2",           "PS4",
                                   "PPID",          "RANDOM",
                                   "SRANDOM",       "LINENO",
                                   "OPTIND",        "OPTERR",
                                   "HISTCMD",       "EPOCHSECONDS",
                                   "EPOCHREALTIME", "COMP_WORDBREAKS"};
  for (const char *name : names) {
    if (value_of(entry, name) != nullptr) {
      return true;
    }
  }
  return strncmp(entry, "BASH", strlen("BASH")) == 0 ||
         strstr(entry, "=() {") == strchr(entry, '=');
}

// Whether bash would drop the entry: it has no name, or a later entry has the
// same one.
static bool is_dropped(char *const *entry)
{
  const size_t length = strcspn(*entry, "=");
  if (length == 0 || (*entry)[length] == '\0') {
    return true;
  }
  for (char *const *later = entry + 1; *later != nullptr; later++) {
    if (strncmp(*entry, *later, length + 1) == 0) {
      return true;
    }
  }
  return false;
}

static bool is_changed_environment()
{
  for (char **entry = environ; *entry != nullptr; entry++) {
    if (is_obeyed(*entry) || is_dropped(entry)) {
      return true;
    }
  }
  return false;
}

static bool is_same_folder(const char *path)
{
  struct stat here;
  struct stat there;
  return path[0] == '/' && stat(".", &here) == 0 && stat(path, &there) == 0 &&
         here.st_dev == there.st_dev && here.st_ino == there.st_ino;
}

// A name of this folder that came is kept, as it may lead through links.
static char *folder_entry()
{
  static char entry[sizeof "PWD=" + PATH_MAX];
  char *folder = entry + snprintf(entry, sizeof entry, "PWD=");
  const char *came = getenv("PWD");
  if (came != nullptr && strlen(came) < PATH_MAX && is_same_folder(came)) {
    snprintf(folder, PATH_MAX, "%s", came);
    return entry;
  }
  return getcwd(folder, PATH_MAX) != nullptr ? entry : nullptr;
}

// How deep shells are nested: bash counts itself, and takes that back before it
// becomes the script.  It warns from 999 on, and mends what is no number.
static char *level_entry()
{
  static char entry[] = "SHLVL=998";
  const char *came = getenv("SHLVL");
  if (came == nullptr) {
    came = "0";
  }
  const size_t digits = strspn(came, "0123456789");
  if (digits == 0 || digits > 3 || came[digits] != '\0' ||
      (came[0] == '0' && digits > 1) || strcmp(came, "999") == 0) {
    return nullptr;
  }
  snprintf(entry, sizeof entry, "SHLVL=%s", came);
  return entry;
}

static char *script_entry(const char *path)
{
  const size_t size = strlen("_=") + strlen(path) + 1;
  char *entry = new_list<char>(size);
  if (entry != nullptr) {
    snprintf(entry, size, "_=%s", path);
  }
  return entry;
}

// The environment that bash would give the script at `path`; NULL when that is
// not known for certain.
static char **script_environment(const char *path)
{
  char *const own[] = {folder_entry(), level_entry(), script_entry(path)};
  size_t count = 0;
  while (environ[count] != nullptr) {
    count++;
  }
  char **entries = new_list<char *>(count + sizeof own / sizeof *own + 1);
  if (entries == nullptr || own[0] == nullptr || own[1] == nullptr ||
      own[2] == nullptr) {
    return nullptr;
  }
  char **end = entries;
  for (char **entry = environ; *entry != nullptr; entry++) {
    if (value_of(*entry, "PWD") == nullptr &&
        value_of(*entry, "SHLVL") == nullptr &&
        value_of(*entry, "_") == nullptr) {
      *end = *entry;
      end++;
    }
  }
  for (char *entry : own) {
    *end = entry;
    end++;
  }
  *end = nullptr;
  return entries;
}

// --- starting ----------------------------------------------------------------

// Returns when the line needs bash.
static void exec_plain_line(const char *line)
{
  if (!is_plain_line(line) || is_changed_environment()) {
    return;
  }
  char **words = split_words(line);
  if (words == nullptr || words[0] == nullptr) {
    return;
  }
  char **entries = script_environment(words[0]);
  if (entries != nullptr) {
    execve(words[0], words, entries);
  }
}

// NOLINTEND(clang-analyzer-unix.Malloc)

void orv_exec_line(const char *line)
{
  exec_plain_line(line);
  const char *const argv[] = {"bash", "-c", line, nullptr};
  execv("/bin/bash", const_cast<char *const *>(argv));
}
