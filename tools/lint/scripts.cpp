// What scripts do to files, to their output and to the page that waits.

#include "lint.h"

#include <algorithm>
#include <ctype.h>
#include <unistd.h>

static const std::string &command_name(const bash_command &command)
{
  static const std::string none;
  return command.kind == BASH_SIMPLE && !command.words.empty()
             ? command.words[0].plain
             : none;
}

// --- files that are written over ---------------------------------------------

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
        return command_name(c) == "mv" &&
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
  const bool empties = command.words.empty() || command_name(command) == ":";
  for (const bash_redirect &redirect : command.redirects) {
    if (empties && command.kind == BASH_SIMPLE) {
      break;
    }
    if (redirect.op == ">" || redirect.op == ">|" || redirect.op == "&>") {
      tell_store(s, redirect.target, found);
    }
  }
  if (command_name(command) == "tee") {
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
      !starts_with(command_name(command), "orv_")) {
    tell(found, *s.file, command.line, command.column, "background",
         "this process keeps the script's output open, and the page waits for"
         " it; send its output elsewhere (>/dev/null 2>&1)");
  }
}

// --- lines that no page can read ---------------------------------------------

// Functions whose output is taken by $( ).
static std::set<std::string> captured_functions(const bash_script &code)
{
  std::set<std::string> names;
  for (const bash_command &command : code.commands) {
    if (command.substitution > 0 || command.piped || command.redirected_out) {
      names.insert(command_name(command));
    }
  }
  return names;
}

// The text of a printed line, as far as it stands there.
static std::string literal_line(const bash_command &command)
{
  std::string text;
  for (size_t i = 1; i < command.words.size(); i++) {
    if (!command.words[i].expansions.empty() ||
        command.words[i].text.find("$(") != std::string::npos ||
        command.words[i].text.find('`') != std::string::npos) {
      return "";
    }
    text += command.words[i].plain + " ";
  }
  return text;
}

// Only whole lines that stand in the script are judged.
static void check_output(const script &s, const bash_command &command,
                         const std::set<std::string> &captured, findings *found)
{
  const std::string &name = command_name(command);
  bool elsewhere = command.piped || command.substitution > 0 ||
                   captured.count(command.function) != 0;
  for (const bash_redirect &redirect : command.redirects) {
    elsewhere |= redirect.op.find('>') != std::string::npos &&
                 redirect.target.plain != "2" && redirect.target.plain != "1";
  }
  if (command.redirects.empty()) {
    elsewhere |= command.redirected_out;
  }
  if (elsewhere || name != "echo" || command.words.size() < 2) {
    return;
  }
  const std::string text = literal_line(command);
  if (!text.empty() && text.find('=') == std::string::npos &&
      text.find_first_not_of(" -ne") != std::string::npos) {
    tell(found, *s.file, command.line, command.column, "output-format",
         "Bad format script output: a page reads lines NAME=VALUE, from"
         " standard error, too");
  }
}

// Whether the script runs as a read, check or write script, and for no bar.
static bool prints_values(const device &dev, const script &s)
{
  const bool bar =
      std::any_of(dev.forms.begin(), dev.forms.end(), [&](const auto &entry) {
        return entry.second.scripts[TASK_NAVBAR].script == s.name;
      });
  return !bar && !forms_of(dev, s.name).empty();
}

// --- the library -------------------------------------------------------------

// Whether the name is that of a command of every machine, or of this one.
static bool is_command(const std::string &name)
{
  static const std::set<std::string> builtins = {
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

// The file that has a function of that name, "" when none has.
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

// A command that nobody has: of the library, of another file, or misspelt.
// What only the device has is taken for right.
static void check_call(const device &dev, const script &s,
                       const bash_command &command,
                       const std::set<std::string> &functions, findings *found)
{
  const std::string &name = command_name(command);
  if (name.empty() || !command.words[0].expansions.empty() ||
      name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                             "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") !=
          std::string::npos ||
      functions.count(name) != 0 || is_command(name)) {
    return;
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
  if (library_functions.count(name) != 0) {
    text = in_quotes(name) + " is a function of orv.bash, which this script"
                             " does not source";
  } else if (starts_with(name, "orv_")) {
    text = "orv.bash has no function " + in_quotes(name) +
           did_you_mean(name, library_functions);
  } else if (!other.empty()) {
    text = in_quotes(name) + " is a function of " + in_quotes(other) +
           ", which this script does not source";
  } else if (!near.empty() && name.size() > 2) {
    text = "no command " + in_quotes(name) + " (did you mean " +
           in_quotes(near) + "?)";
  } else {
    return;
  }
  tell(found, *s.file, command.line, command.column, "script-call", text);
}

// --- tasks and files ---------------------------------------------------------

// The options that headers call the script with.
static std::set<std::string> tasks_of(const device &dev, const script &s)
{
  std::set<std::string> tasks;
  for (const auto &entry : dev.forms) {
    for (const script_line &line : entry.second.scripts) {
      for (const std::string &word : split_words(line.text)) {
        if (line.script == s.name && starts_with(word, "--")) {
          tasks.insert(word);
        }
      }
    }
  }
  return tasks;
}

// An option that the script looks for and no header gives, but nearly.
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
        tell(found, *s.file, static_cast<int>(i) + 1, static_cast<int>(at) + 1,
             "script-task",
             "no header calls this script with " + in_quotes(word) +
                 " (did you mean " + in_quotes(near) + "?)");
      }
    }
  }
}

// The files that scripts store, and those that the device was shipped with.
static std::set<std::string> stored_files(const device &dev)
{
  std::set<std::string> files = dev.settings;
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      const std::vector<bash_word> &words = command.words;
      for (size_t i = 1; i < words.size(); i++) {
        if (command_name(command) == "orv_store" &&
            (i == 1 || words[i - 1].plain == "--")) {
          files.insert(words[i].plain);
        }
      }
    }
  }
  return files;
}

static void check_files(const script &s, const std::set<std::string> &stored,
                        findings *found)
{
  for (const bash_command &command : s.code.commands) {
    if (command_name(command) != "orv_load" || command.words.size() < 2 ||
        !command.words[1].expansions.empty()) {
      continue;
    }
    const bash_word &file = command.words[1];
    if (stored.count(file.plain) == 0) {
      tell(found, *s.file, file.line, file.column, "script-file",
           "no script stores " + in_quotes(file.plain) +
               ", and the device was not shipped with it" +
               did_you_mean(file.plain, stored));
    }
  }
}

// A file without an interpreter and without the right to be executed is one
// that others source.
static bool is_sourced_only(const script &s)
{
  return !s.executable && !starts_with(s.file->text, "#!");
}

static std::set<std::string> functions_of(const device &dev, const script &s)
{
  std::set<std::string> functions;
  for (const std::string &name : with_sources(dev, s.name)) {
    const script &part = dev.scripts.at(name);
    functions.insert(part.code.functions.begin(), part.code.functions.end());
    if (std::any_of(part.sources.begin(), part.sources.end(), is_library)) {
      functions.insert(library_functions.begin(), library_functions.end());
    }
  }
  return functions;
}

// --- the first line ---------------------------------------------------------

static bool needs_bash(const script &s)
{
  return std::any_of(s.code.commands.begin(), s.code.commands.end(),
                     [](const bash_command &command) {
                       const bool arrays =
                           std::any_of(command.assignments.begin(),
                                       command.assignments.end(),
                                       [](const bash_assignment &assignment) {
                                         return !assignment.elements.empty() ||
                                                !assignment.subscript.empty();
                                       });
                       return arrays || command.kind == BASH_TEST ||
                              command.kind == BASH_ARITHMETIC;
                     });
}

// A script without such a line is run by bash.
static void check_interpreter(const script &s, findings *found)
{
  static const std::set<std::string> known = {
      "bash", "sh", "dash", "ash", "busybox", "python3", "perl", "lua", "awk"};
  const std::string first = s.file->lines.empty() ? "" : s.file->lines[0];
  if (!starts_with(first, "#!")) {
    return; // bash runs it all the same
  }
  std::vector<std::string> words = split_words(first.substr(2));
  if (words.size() > 1 && ends_with(words[0], "/env")) {
    words.erase(words.begin());
  }
  std::string program = words.empty() ? "" : words[0];
  program.erase(0, program.rfind('/') + 1);
  if (!program.empty() && program.back() == '\r') {
    return; // told already
  }
  if (known.count(program) == 0) {
    tell(found, *s.file, 1, 3, "interpreter",
         "no program " + in_quotes(program) + " runs scripts" +
             did_you_mean(program, known));
  } else if (program != "bash" && known.count(program) != 0 &&
             ends_with(program, "sh") && needs_bash(s)) {
    tell(found, *s.file, 1, 3, "interpreter",
         in_quotes(program) + " does not know what this script uses ([[ ]],"
                              " (( )), arrays); write #!/bin/bash");
  }
}

// --- line ends ---------------------------------------------------------------

static void check_line_ends(const script &s, findings *found)
{
  int number = 0;
  if (starts_with(s.file->text, BYTE_ORDER_MARK)) {
    tell(found, *s.file, 1, 1, "byte-order-mark",
         "the file begins with a byte order mark, so its first line names no"
         " interpreter");
  }
  for (const std::string &line : s.file->lines) {
    number++;
    if (!line.empty() && line.back() == '\r') {
      tell(found, *s.file, number, static_cast<int>(line.size()), "crlf",
           "lines end in CR LF; bash takes the CR for a part of the last word");
      return;
    }
  }
}

void check_scripts(const device &dev, findings *found)
{
  const std::set<std::string> stored = stored_files(dev);
  for (const auto &entry : dev.scripts) {
    const script &s = entry.second;
    const bool values = prints_values(dev, s);
    const std::set<std::string> captured = captured_functions(s.code);
    const std::set<std::string> functions = functions_of(dev, s);
    check_line_ends(s, found);
    check_interpreter(s, found);
    check_tasks(dev, s, found);
    check_files(s, stored, found);
    for (const bash_command &command : s.code.commands) {
      check_stores(s, command, found);
      check_background(s, command, found);
      if (!is_sourced_only(s)) {
        check_call(dev, s, command, functions, found);
      }
      if (values) {
        check_output(s, command, captured, found);
      }
    }
  }
}
