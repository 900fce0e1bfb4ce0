// Files that scripts write over, and processes that they leave behind.

#include <algorithm>
#include <ctype.h>

#include "flow.h"
#include "rules.h"
#include "text.h"

// Where nothing is kept.
// A file that the next start of the device empties can lose nothing by a power
// failure. "&1" is no path, and a digit is a descriptor; "-" closes one.
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

// What of a script is no setting yet.
struct files_aside {
  const script &s;
  std::set<std::string> renamed; // words that mv is given
  std::set<std::string> made;    // variables that mktemp has filled
};

// Of the whole script: the rename stands behind the redirection, and often in
// another function.
static files_aside collect_aside(const script &s)
{
  files_aside aside = {s, {}, {}};
  for (const bash_command &command : s.code.commands) {
    if (first_word(command) == "mv") {
      for (const bash_word &word : command.words) {
        aside.renamed.insert(word.plain);
      }
    }
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.value.text.find("mktemp") != std::string::npos) {
        aside.made.insert(assignment.name);
      }
    }
  }
  return aside;
}

// A file that is renamed afterwards, or was made aside, is no setting yet.
// The last expansion of the path, since "$dir/$new" is as new as its file.
static void report_store(const files_aside &aside, const bash_word &target,
                         findings *found)
{
  if (is_passing(target.plain) || aside.renamed.count(target.plain) != 0 ||
      (!target.expansions.empty() &&
       aside.made.count(target.expansions.back().name) != 0)) {
    return;
  }
  const bool settings =
      target.plain.find("ORV_STATE") != std::string::npos ||
      target.plain.find("/larkspur/state/") != std::string::npos;
  report(found, *aside.s.file, target.line, target.column, "store",
         settings ? target.text + " is a file of the settings, which only"
                                  " orv-store may write: call \"orv_store\""
                  : target.text +
                        " is written over in place: a reader, or a lost power"
                        " supply, finds a part; write beside it, then rename");
}

// Appending is let out: a log is no setting.
static void check_stores(const files_aside &aside, const bash_command &command,
                         findings *found)
{
  // Emptying a file leaves no part of anything.
  const bool empties = command.words.empty() || first_word(command) == ":";
  for (const bash_redirect &redirect : command.redirects) {
    if (empties && command.kind == BASH_SIMPLE) {
      break;
    }
    // All three cut the file to nothing before the command runs: `sort f >f`
    // leaves an empty one.
    if (redirect.op == ">" || redirect.op == ">|" || redirect.op == "&>") {
      report_store(aside, redirect.target, found);
    }
  }
  // tee opens its files for itself, and needs no redirection. -a appends.
  if (first_word(command) == "tee") {
    for (size_t i = 1; i < command.words.size(); i++) {
      const std::string &word = command.words[i].plain;
      if (word == "-a" || word == "--append") {
        break;
      }
      if (word[0] != '-') {
        report_store(aside, command.words[i], found);
      }
    }
  }
}

// --- background processes ----------------------------------------------------

// The page reads until nobody holds the pipe, which a process inherits with its
// standard output. Functions of the library see to that by themselves.
static void check_background(const script &s, const bash_command &command,
                             findings *found)
{
  if (command.background && !command.redirected_out &&
      !starts_with(first_word(command), "orv_")) {
    report(found, *s.file, command.line, command.column, "background",
           "this process keeps the script's output open, and the page waits for"
           " it; send its output elsewhere (>/dev/null 2>&1)");
  }
}

void check_script_files(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    const files_aside aside = collect_aside(entry.second);
    for (const bash_command &command : entry.second.code.commands) {
      check_stores(aside, command, found);
      check_background(entry.second, command, found);
    }
  }
}
