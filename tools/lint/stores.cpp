// Files that scripts write over, and processes that they leave behind.

#include <algorithm>
#include <ctype.h>

#include "flow.h"
#include "rules.h"
#include "text.h"

// Where nothing is kept.
static bool is_passing(const std::string &path)
{
  for (const char *start :
       {"/dev/", "/proc/", "/sys/", "/run/", "/tmp/", "&"}) {
    if (starts_with(path, start)) {
      return true;
    }
  }
  return path.empty() || path == "-" ||
         (isdigit(static_cast<unsigned char>(path[0])) != 0 &&
          path.size() == 1);
}

// Whether the script renames the file that the word names.
static bool is_renamed(const bash_script &code, const std::string &word)
{
  return std::any_of(
      code.commands.begin(), code.commands.end(), [&](const bash_command &c) {
        return first_word(c) == "mv" &&
               std::any_of(c.words.begin() + 1, c.words.end(),
                           [&](const bash_word &w) { return w.plain == word; });
      });
}

// Whether the word is a variable that mktemp has filled.
static bool is_made_aside(const bash_script &code, const bash_word &word)
{
  if (word.expansions.empty()) {
    return false;
  }
  const std::string &name = word.expansions.back().name;
  for (const bash_command &command : code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.name == name &&
          assignment.value.text.find("mktemp") != std::string::npos) {
        return true;
      }
    }
  }
  return false;
}

// A file that is renamed afterwards, or was made aside, is no setting yet.
static void tell_store(const script &s, const bash_word &target,
                       findings *found)
{
  if (is_passing(target.plain) || is_renamed(s.code, target.plain) ||
      is_made_aside(s.code, target)) {
    return;
  }
  tell(found, *s.file, target.line, target.column, "store",
       target.text + " is written over in place: a reader, or a lost power"
                     " supply, finds a part; write beside it, then rename");
}

// Appending is let out: a log is no setting.
static void check_stores(const script &s, const bash_command &command,
                         findings *found)
{
  // Emptying a file leaves no part of anything.
  const bool empties = command.words.empty() || first_word(command) == ":";
  for (const bash_redirect &redirect : command.redirects) {
    if (empties && command.kind == BASH_SIMPLE) {
      break;
    }
    if (redirect.op == ">" || redirect.op == ">|" || redirect.op == "&>") {
      tell_store(s, redirect.target, found);
    }
  }
  if (first_word(command) == "tee") {
    for (size_t i = 1; i < command.words.size(); i++) {
      const std::string &word = command.words[i].plain;
      if (word == "-a" || word == "--append") {
        break;
      }
      if (word[0] != '-') {
        tell_store(s, command.words[i], found);
      }
    }
  }
}

// --- background processes ----------------------------------------------------

static void check_background(const script &s, const bash_command &command,
                             findings *found)
{
  if (command.background && !command.redirected_out &&
      !starts_with(first_word(command), "orv_")) {
    tell(found, *s.file, command.line, command.column, "background",
         "this process keeps the script's output open, and the page waits for"
         " it; send its output elsewhere (>/dev/null 2>&1)");
  }
}

void check_script_files(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      check_stores(entry.second, command, found);
      check_background(entry.second, command, found);
    }
  }
}
