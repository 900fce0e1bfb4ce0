// How a script's command line becomes a running program.
//
// Starting bash to start a script costs as much as many a script.  A line of
// plain words means nothing to a shell but its words, so the words are the
// arguments and the script is started directly.  It must not see a difference:
// what bash would have changed in its environment is changed here, and as soon
// as there is any doubt (a variable that bash obeys, a program that the kernel
// does not take, no memory), the line goes to bash.
//
// All is prepared before there is a process for the script: until it has become
// the script, it shares this one's memory.

#include "orv_exec.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Takes the text apart into words, NULL behind the last; false if it has none.
static bool split_words(char *text, char **words)
{
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
  return count > 0;
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

constexpr size_t OWN_ENTRIES = 3;

// Lists the environment that bash would give the script; false when that is not
// known for certain.
static bool list_environment(char *script, char **end)
{
  char *const own[OWN_ENTRIES] = {folder_entry(), level_entry(), script};
  for (char **entry = environ; *entry != nullptr; entry++) {
    if (value_of(*entry, "PWD") == nullptr &&
        value_of(*entry, "SHLVL") == nullptr &&
        value_of(*entry, "_") == nullptr) {
      *end = *entry;
      end++;
    }
  }
  bool known = true;
  for (char *entry : own) {
    known = known && entry != nullptr;
    *end = entry;
    end++;
  }
  *end = nullptr;
  return known;
}

// --- starting ----------------------------------------------------------------

// Room for the words, the environment and their texts, in this order; false
// without memory.  That is no fault here: bash takes over.
static bool make_plan(orv_exec_plan *plan)
{
  const size_t length = strlen(plan->line);
  const size_t words = length / 2 + 2;
  size_t entries = OWN_ENTRIES + 1;
  while (environ[entries - OWN_ENTRIES - 1] != nullptr) {
    entries++;
  }
  const size_t pointers = (words + entries) * sizeof(char *);
  plan->words.reset(static_cast<char **>(
      malloc(pointers + length + 1 + length + sizeof "_=")));
  if (plan->words == nullptr) {
    return false;
  }
  plan->entries = plan->words.get() + words;
  char *text = reinterpret_cast<char *>(plan->entries + entries);
  char *script = text + length + 1;
  memcpy(text, plan->line, length + 1);
  if (!split_words(text, plan->words.get())) {
    return false;
  }
  snprintf(script, length + sizeof "_=", "_=%s", *plan->words);
  return list_environment(script, plan->entries);
}

void orv_exec_prepare(const char *line, orv_exec_plan *plan)
{
  plan->line = line;
  if (!is_plain_line(line) || is_changed_environment() || !make_plan(plan)) {
    plan->words.reset();
  }
}

void orv_exec(const orv_exec_plan *plan)
{
  if (plan->words != nullptr) {
    execve(*plan->words, plan->words.get(), plan->entries);
  }
  const char *const argv[] = {"bash", "-c", plan->line, nullptr};
  execv("/bin/bash", const_cast<char *const *>(argv));
}
