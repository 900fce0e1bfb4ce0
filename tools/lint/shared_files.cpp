// Files of scripts that others can make first, or write.

#include <string.h>

#include <algorithm>

#include "flow.h"
#include "sinks.h"
#include "text.h"

// --- where everybody can make a file
// -------------------------------------------

static bool is_shared_folder(const std::string &path)
{
  return starts_with(path, "/tmp/") || starts_with(path, "/var/tmp/");
}

static void report_shared(const script &s, const bash_word &word,
                          findings *found)
{
  report(found, *s.file, word.line, word.column, "tmp-file",
         word.text + " has a predictable name in a folder where anyone can "
                     "create it first, as a link; use mktemp");
}

// A variable that is given a second value may be anything, and "" before a path
// changes nothing.
// Variables that are given one value that stands there; "" for another.
typedef std::map<std::string, std::string> constants;

static constants find_constants(const script &s)
{
  constants all;
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      const bool first = all.count(assignment.name) == 0;
      all[assignment.name] = first && assignment.value.expansions.empty()
                                 ? assignment.value.plain
                                 : "";
    }
  }
  return all;
}

// The value is put in front of the word, whose text is still the expansion:
// only the folder at the start is asked for.
// The word with what such a variable in front of it stands for.
static std::string whole_path(const constants &all, const bash_word &word)
{
  if (word.expansions.empty()) {
    return word.plain;
  }
  const std::string &name = word.expansions[0].name;
  const auto value = all.find(name);
  const bool first = starts_with(word.plain, "$" + name) ||
                     starts_with(word.plain, "${" + name);
  return first && value != all.end() ? value->second + word.plain : word.plain;
}

// Reading there is harmless by comparison.  Of cp and mv the last word is what
// is written.  A name that mktemp made is a variable of a substitution and no
// path that stands there.
static void check_shared(const script &s, const constants &all,
                         const bash_command &command, findings *found)
{
  static const word_set makers = {"touch", "tee", "mkdir", "cp", "mv"};
  for (const bash_redirect &redirect : command.redirects) {
    if (redirect.op.find('>') != std::string::npos &&
        is_shared_folder(whole_path(all, redirect.target))) {
      report_shared(s, redirect.target, found);
    }
  }
  if (makers.count(first_word(command)) != 0 && command.words.size() > 1 &&
      is_shared_folder(whole_path(all, command.words.back()))) {
    report_shared(s, command.words.back(), found);
  }
}

// --- what everybody can write
// --------------------------------------------------

// "g+w" gives the right to a group, and "+w" without a letter to everybody, as
// far as the umask lets it.
static bool is_open_clause(const std::string &clause)
{
  const size_t gives = clause.find_first_of("+=");
  return gives != std::string::npos &&
         clause.find('w', gives) != std::string::npos &&
         (gives == 0 || clause.find_first_of("oa") < gives);
}

// Of 0755 the last digit is that of others, and its bit 2 the right to write;
// 7 is 0007.
// Whether a mode gives everybody the right to write.
static bool is_open_mode(const std::string &mode)
{
  if (mode.find_first_not_of("01234567") == std::string::npos) {
    return !mode.empty() && strchr("2367", mode.back()) != nullptr;
  }
  size_t start = 0;
  while (start < mode.size()) {
    const size_t end = std::min(mode.find(',', start), mode.size());
    if (is_open_clause(mode.substr(start, end - start))) {
      return true;
    }
    start = end + 1;
  }
  return false;
}

// umask takes rights away: the digits that do not take this one leave it.  Its
// letters say what is left.
static bool is_open_umask(const std::string &mask)
{
  return mask.find_first_not_of("01234567") == std::string::npos
             ? !mask.empty() && strchr("2367", mask.back()) == nullptr
             : is_open_mode(mask);
}

// mkdir -m MODE, -mMODE and --mode=MODE.
static std::string mode_option(const bash_command &command, size_t i)
{
  const std::string &word = command.words[i].plain;
  return command.words[i - 1].plain == "-m" ? word
         : starts_with(word, "-m")          ? word.substr(2)
         : starts_with(word, "--mode=")     ? word.substr(7)
                                            : "";
}

static void check_modes(const script &s, const bash_command &command,
                        findings *found)
{
  static const word_set makers = {"mkdir", "install", "mkfifo"};
  const std::string &name = first_word(command);
  for (size_t i = 1; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    const bool option = word.plain[0] == '-';
    const bool open =
        makers.count(name) != 0 ? is_open_mode(mode_option(command, i))
        : name == "chmod"       ? !option && is_open_mode(word.plain)
                                : name == "umask" && is_open_umask(word.plain);
    if (open) {
      report(found, *s.file, word.line, word.column, "world-writable",
             "this makes files writable by everyone; only the web server needs "
             "to write them");
    }
    if (name == "chmod" && !option) {
      return; // files follow
    }
  }
}

void check_shared_files(const script &s, findings *found)
{
  const constants all = find_constants(s);
  for (const bash_command &command : s.code.commands) {
    check_shared(s, all, command, found);
    check_modes(s, command, found);
  }
}
