// Commands that nobody has, options that nobody gives, files that nobody
// stores.

#include <algorithm>
#include <unistd.h>

#include "flow.h"
#include "rules.h"
#include "text.h"

// Whether the name is that of a command of every machine, or of this one. In
// the folders that the library puts into PATH: that of whoever runs orv-lint is
// not the device's.
static bool is_command(const std::string &name)
{
  static const word_set builtins = {
      ".",        ":",        "[",       "alias",   "bg",      "bind",
      "break",    "builtin",  "caller",  "cd",      "command", "compgen",
      "complete", "continue", "declare", "dirs",    "disown",  "echo",
      "enable",   "eval",     "exec",    "exit",    "export",  "false",
      "fc",       "fg",       "getopts", "hash",    "help",    "history",
      "jobs",     "kill",     "let",     "local",   "logout",  "mapfile",
      "popd",     "printf",   "pushd",   "pwd",     "read",    "readarray",
      "readonly", "return",   "set",     "shift",   "shopt",   "source",
      "suspend",  "test",     "times",   "trap",    "true",    "type",
      "typeset",  "ulimit",   "umask",   "unalias", "unset",   "wait"};
  if (builtins.count(name) != 0) {
    return true;
  }
  for (const char *dir : {"/bin/", "/usr/bin/", "/sbin/", "/usr/sbin/"}) {
    if (access((dir + name).c_str(), X_OK) == 0) {
      return true;
    }
  }
  return false;
}

// What is judged, and what has been asked of the machine so far.
struct call_check {
  const device &dev;
  std::map<std::string, bool> known; // whether the name is that of a command
  findings *found;
};

// The same, each name looked up once. A look costs up to four system calls, and
// the same few names stand in every script.
static bool is_known_command(call_check *c, const std::string &name)
{
  const auto row = c->known.find(name);
  return row != c->known.end()
             ? row->second
             : c->known.insert({name, is_command(name)}).first->second;
}

// The file that has a function of that name, "" when none has. A file that can
// be executed is a script by itself, and to source it would run it.
static std::string file_of_function(const device &dev, const std::string &name)
{
  for (const auto &entry : dev.scripts) {
    if (entry.second.code.functions.count(name) != 0 &&
        !entry.second.executable) {
      return entry.first;
    }
  }
  return "";
}

// A command that nobody has: of the library, of another file, or misspelt. What
// only the device has is taken for right. True when it is the library that is
// not there. A path, or a name with a dash, can only be a program. In this
// order, since a name of the library says more than one that is merely near; a
// word of two letters is near to too many.
static bool check_called(call_check *c, const script &s, const bash_word &word,
                         const std::set<std::string> &functions)
{
  const device &dev = c->dev;
  const std::string &name = word.plain;
  if (name.empty() || !word.expansions.empty() ||
      name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                             "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") !=
          std::string::npos ||
      functions.count(name) != 0 || is_known_command(c, name)) {
    return false;
  }
  // Words that are written often, of bash and beside it.
  static const std::set<std::string> common = {
      "then",    "else",  "elif",     "done",  "esac",    "case",
      "while",   "until", "function", "exit",  "printf",  "export",
      "return",  "local", "echo",     "read",  "declare", "unset",
      "mapfile", "shift", "continue", "break", "source",  "true",
      "false",   "sleep", "logger",   "mkdir", "chmod",   "date",
      "grep",    "kill",  "systemctl"};
  const std::string other = file_of_function(dev, name);
  std::set<std::string> known = functions;
  known.insert(common.begin(), common.end());
  const std::string near = nearest(name, known);
  std::string text;
  if (dev.library.count(name) != 0) {
    text = in_quotes(name) + " is a function of orv.bash, which this script"
                             " does not source";
  } else if (starts_with(name, "orv_")) {
    text = "orv.bash has no function " + in_quotes(name) +
           did_you_mean(name, dev.library);
  } else if (!other.empty()) {
    text = in_quotes(name) + " is a function of " + in_quotes(other) +
           ", which this script does not source";
  } else if (!near.empty() && name.size() > 2) {
    text = "no command " + in_quotes(name) + " (did you mean " +
           in_quotes(near) + "?)";
  } else {
    return false;
  }
  report(c->found, *s.file, word.line, word.column, "script-call", text);
  return dev.library.count(name) != 0;
}

// What the library is told to run is a call as well; whether that one is
// missing says nothing of the library.
static bool check_call(call_check *c, const script &s,
                       const bash_command &command,
                       const std::set<std::string> &functions)
{
  // The library's functions that run a command, and where that stands.
  static const std::map<std::string, size_t> runners = {{"orv_background", 1},
                                                        {"orv_guard_boot", 1},
                                                        {"orv_after_page", 2},
                                                        {"orv_guard", 2}};
  const auto runner = runners.find(first_word(command));
  if (runner != runners.end() && runner->second < command.words.size()) {
    check_called(c, s, command.words[runner->second], functions);
  }
  return !first_word(command).empty() &&
         check_called(c, s, command.words[0], functions);
}

// --- tasks and files ---------------------------------------------------------

// The options that headers call the script with. Of all forms: several may
// share the script, each with tasks of its own.
static std::set<std::string> tasks_of(const device &dev, const script &s)
{
  std::set<std::string> tasks;
  for (const auto &entry : dev.forms) {
    for (const script_line &line : entry.second.scripts) {
      if (line.script != s.name) {
        continue;
      }
      for (const std::string &word : split_words(line.text)) {
        if (starts_with(word, "--")) {
          tasks.insert(word);
        }
      }
    }
  }
  return tasks;
}

// An option that the script looks for and no header gives, but nearly. In the
// lines and not in the commands: a branch has the pattern of its arm without a
// place for each word. Only an arm --task) or a comparison asks for a task;
// anywhere else it is an option of some program.
static void check_tasks(const device &dev, const script &s, findings *found)
{
  const std::set<std::string> tasks = tasks_of(dev, s);
  const std::vector<std::string> lines = split_lines(s.code.code);
  for (size_t i = 0; i < lines.size(); i++) {
    for (size_t at = lines[i].find("--"); at != std::string::npos;
         at = lines[i].find("--", at + 2)) {
      size_t end = at + 2;
      while (end < lines[i].size() && is_name_char(lines[i][end])) {
        end++;
      }
      const std::string word = lines[i].substr(at, end - at);
      const bool pattern = end < lines[i].size() && lines[i][end] == ')';
      const bool compared = lines[i].find("== " + word) != std::string::npos;
      const std::string near = nearest(word, tasks);
      if ((pattern || compared) && word.size() > 4 && !near.empty() &&
          tasks.count(word) == 0) {
        report(found, *s.file, static_cast<int>(i) + 1,
               static_cast<int>(at) + 1, "script-task",
               "no header calls this script with " + in_quotes(word) +
                   " (did you mean " + in_quotes(near) + "?)");
      }
    }
  }
}

// An option that a header gives and the script does not know, but nearly. A
// default line has the number 0 and no mistakes of the author. An option that
// stands anywhere in the script's file is one that it knows, whatever it does
// with it.
static void check_options(const device &dev, const form &f, findings *found)
{
  static const std::set<std::string> usual = {"--read", "--check", "--write",
                                              "--navbar"};
  for (const script_line &line : f.scripts) {
    const auto s = dev.scripts.find(line.script);
    if (line.line == 0 || s == dev.scripts.end()) {
      continue;
    }
    for (const std::string &word : split_words(line.text)) {
      const std::string near = nearest(word, usual);
      if (starts_with(word, "--") && !near.empty() && usual.count(word) == 0 &&
          s->second.file->text.find(word) == std::string::npos) {
        report(found, *f.file, line.line,
               line.column + static_cast<int>(line.text.find(word)),
               "script-task",
               "the script knows no " + in_quotes(word) + " (did you mean " +
                   in_quotes(near) + "?)");
      }
    }
  }
}

// The files that scripts store, and those that the device was shipped with.
// orv_store FILE NAME... -- FILE NAME...: a file's name stands first and behind
// each --.
static std::set<std::string> stored_files(const device &dev)
{
  std::set<std::string> files = dev.settings;
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      const std::vector<bash_word> &words = command.words;
      for (size_t i = 1; i < words.size(); i++) {
        if (first_word(command) == "orv_store" &&
            (i == 1 || words[i - 1].plain == "--")) {
          files.insert(words[i].plain);
        }
      }
    }
  }
  return files;
}

// A name that is made is known to the run alone.
static void check_files(const script &s, const std::set<std::string> &stored,
                        findings *found)
{
  for (const bash_command &command : s.code.commands) {
    if (first_word(command) != "orv_load") {
      continue;
    }
    for (size_t i = 1; i < command.words.size(); i++) {
      const bash_word &file = command.words[i];
      if (is_literal(file) && stored.count(file.plain) == 0) {
        report(found, *s.file, file.line, file.column, "script-file",
               "no script stores " + in_quotes(file.plain) +
                   ", and the device was not shipped with it" +
                   did_you_mean(file.plain, stored));
      }
    }
  }
}

// The library counts where any of the files sources it: they share all
// functions.
static std::set<std::string> functions_of(const device &dev, const script &s)
{
  std::set<std::string> functions;
  for (const std::string &name : with_sources(dev, s.name)) {
    const script &part = dev.scripts.at(name);
    functions.insert(part.code.functions.begin(), part.code.functions.end());
    if (std::any_of(part.sources.begin(), part.sources.end(), is_library)) {
      functions.insert(dev.library.begin(), dev.library.end());
    }
  }
  return functions;
}

void check_calls(const device &dev, findings *found)
{
  const std::set<std::string> stored = stored_files(dev);
  call_check calls = {dev, {}, found};
  for (const auto &entry : dev.forms) {
    check_options(dev, entry.second, found);
  }
  for (const auto &entry : dev.scripts) {
    const script &s = entry.second;
    const std::set<std::string> functions = functions_of(dev, s);
    check_tasks(dev, s, found);
    check_files(s, stored, found);
    for (const bash_command &command : s.code.commands) {
      // A file that others source may call what these have.
      if (!is_sourced_only(s) && check_call(&calls, s, command, functions)) {
        break; // the library is missing: so is all that it has
      }
    }
  }
}
