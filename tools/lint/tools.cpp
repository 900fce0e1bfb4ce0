// What other tools say of the scripts: bash itself, and shellcheck where it is
// installed.  Both are started early and heard late, since they take longer
// than all rules together.

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "rules.h"
#include "text.h"

// Starts a program; `*output` receives a descriptor of what it says.  Its
// process, or -1.
// Standard error goes to the same pipe, as bash complains there. A program that
// is not installed ends with 127 and says nothing, which counts as no findings.
static pid_t start(const std::vector<std::string> &arguments, int *output)
{
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    return -1;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    std::vector<char *> argv;
    for (const std::string &argument : arguments) {
      argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(fds[1], STDOUT_FILENO);
    dup2(fds[1], STDERR_FILENO);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  close(fds[1]);
  if (pid < 0) {
    close(fds[0]);
    return -1;
  }
  *output = fds[0];
  return pid;
}

// All that comes, and then the process's end.
// Reading first: a program that still has something to say would wait for ever
// for somebody to take it.
static std::string finish(pid_t pid, int output)
{
  std::string text;
  char buf[4096];
  ssize_t got;
  while ((got = read(output, buf, sizeof buf)) > 0) {
    text.append(buf, static_cast<size_t>(got));
  }
  close(output);
  waitpid(pid, nullptr, 0);
  return text;
}

// --- bash --------------------------------------------------------------------

// One bash for all scripts: it reads each in a copy of itself that runs nothing
// (set -n), which takes a third of the time of a bash of its own.  That is
// started for a script with something to say, so that the lines are its own.
// mapfile takes all up to a NUL byte, and is faster at it than read.
// Messages in the C locale are in English, so that they can be taken apart.
// Under -n a shopt of the script is not run, so extglob, which changes what
// bash can read, is switched on for it.
static const char SYNTAX_CHECK[] =
    "export LC_ALL=C\n"
    "for file; do\n"
    "  mapfile -d '' -n 1 text <\"$file\"\n"
    "  more=-u\n"
    "  [[ $text != *'shopt -s'*extglob* ]] || more=-s\n"
    "  shopt \"$more\" extglob\n"
    "  if ! said=$(eval \"set -n\n$text\" 2>&1) || [[ -n $said ]]; then\n"
    "    [[ $more == -s ]] && more=-O || more=+O\n"
    "    bash \"$more\" extglob -n -- \"$file\" 2>&1\n"
    "  fi\n"
    "done 2>/dev/null";

// Where a block begins that nothing ends: bash names the end of the file.
// "unexpected end of file" says nothing of the place; the block that was opened
// last is where the author has to look.
static std::vector<note> open_block(const device &dev, const source_file &file)
{
  for (const auto &entry : dev.scripts) {
    const auto &open = entry.second.code.open;
    if (entry.second.file == &file && !open.empty()) {
      return {{{file.path, open.back().line, 1},
               in_quotes(open.back().word) + " is not closed"}};
    }
  }
  return {};
}

// "FILE: line N: TEXT" as bash writes it.
// Where the end of the file is the fault, bash counts one line more than there
// are.
static void take_syntax_line(const device &dev, const std::string &line,
                             findings *found)
{
  const size_t mark = line.find(": line ");
  if (mark == std::string::npos) {
    return;
  }
  const auto file = dev.files.find(line.substr(0, mark));
  const size_t text = line.find(": ", mark + 2);
  if (file != dev.files.end() && text != std::string::npos) {
    const int lines = static_cast<int>(file->second.lines.size());
    const int number = atoi(line.c_str() + mark + strlen(": line "));
    report(found, file->second, std::min(number, lines), 1, "script-syntax",
           "bash: " + line.substr(text + 2),
           number > lines ? open_block(dev, file->second)
                          : std::vector<note>());
  }
}

static void begin_syntax(const device &dev, other_tools *tools)
{
  std::vector<std::string> arguments = {"bash", "-c", SYNTAX_CHECK, "bash"};
  for (const auto &entry : dev.scripts) {
    arguments.push_back(entry.second.file->path);
  }
  for (const auto &entry : dev.programs) {
    arguments.push_back(entry.second.file->path);
  }
  tools->bash_pid = start(arguments, &tools->bash);
}

// The first line of each file is the cause; those behind it follow from it.
static void end_syntax(const device &dev, const other_tools &tools,
                       findings *found)
{
  std::set<std::string> reported;
  if (tools.bash_pid <= 0) {
    return;
  }
  for (const std::string &line :
       split_lines(finish(tools.bash_pid, tools.bash))) {
    if (reported.insert(line.substr(0, line.find(": line "))).second) {
      take_syntax_line(dev, line, found);
    }
  }
}

// --- shellcheck --------------------------------------------------------------

// What stands for the library: what it gives and takes, and nothing that takes
// long to read for each script anew.
// The lines with ":" use each variable, or shellcheck would say that nobody
// does.
static std::string stub(const device &dev)
{
  std::string text = "declare -A orv orv_was orv_label\n"
                     "declare -a rows cells\n"
                     ": \"${orv[@]}${orv_was[@]}${orv_label[@]}\"\n"
                     ": \"${rows[@]}${cells[@]}\"\n";
  for (const std::string &name : dev.library_variables) {
    if (name != "orv_was" && name != "orv_label") {
      text += name + "=\n: \"$" + name + "\"\n";
    }
  }
  return text;
}

// A folder with the stub wherever a script looks for the library, "" when
// there is no place for it.
// The path as the script names it, since shellcheck looks for it below this
// folder first, and beside the script (SCRIPTDIR) afterwards.
static own_folder make_stubs(const device &dev)
{
  namespace fs = std::filesystem;
  std::error_code error;
  own_folder folder = make_own_folder();
  for (const auto &entry : dev.scripts) {
    for (const std::string &source : entry.second.sources) {
      if (is_library(source) && !folder.path.empty()) {
        const fs::path path = fs::path(folder.path) / source;
        fs::create_directories(path.parent_path(), error);
        std::ofstream(path) << stub(dev);
      }
    }
  }
  return folder;
}

other_tools begin_tools(const device &dev, bool shellcheck)
{
  other_tools tools = {-1, -1, -1, -1, {"", -1, -1}};
  if (dev.scripts.empty() && dev.programs.empty()) {
    return tools;
  }
  begin_syntax(dev, &tools);
  if (!shellcheck) {
    return tools;
  }
  tools.stubs = make_stubs(dev);
  // -s bash: files that are only sourced have no first line to say so.
  // SC2016: what single quotes hold back is mostly meant for another program.
  std::vector<std::string> arguments = {
      "shellcheck", "-f",     "gcc", "-s", "bash",
      "-e",         "SC2016", "-x",  "-P", tools.stubs.path + ":SCRIPTDIR"};
  for (const auto &entry : dev.scripts) {
    arguments.push_back(entry.second.file->path);
  }
  tools.pid = start(arguments, &tools.shellcheck);
  return tools;
}

// The lines that have a finding.
typedef std::set<std::pair<std::string, int>> reported_lines;

// "FILE:LINE:COL: LEVEL: TEXT [SCnnnn]"
// A path may hold ":", so the line is compared with the paths that are known
// and not split.
static void take_shellcheck_line(const device &dev, const std::string &line,
                                 const reported_lines &reported,
                                 findings *found)
{
  for (const auto &entry : dev.scripts) {
    const source_file &file = *entry.second.file;
    int number;
    int column;
    int rest = 0;
    if (!starts_with(line, file.path + ":") ||
        sscanf(line.c_str() + file.path.size(), ":%d:%d: %n", &number, &column,
               &rest) != 2 ||
        rest == 0) {
      continue;
    }
    const std::string text =
        line.substr(file.path.size() + static_cast<size_t>(rest));
    const size_t level = text.find(": ");
    // What is sourced is used by others, and uses what they have set.
    const bool elsewhere = is_sourced_only(entry.second) &&
                           (text.find("[SC2034]") != std::string::npos ||
                            text.find("[SC2154]") != std::string::npos);
    // What a rule of ours or bash has reported is not reported twice.
    if (level != std::string::npos && !elsewhere &&
        reported.count({file.path, number}) == 0) {
      report(found, file, number, column, "shellcheck", text.substr(level + 2));
    }
  }
}

// bash first: its findings count as reported when those of shellcheck come. All
// checks have run by then, or shellcheck would repeat what they say.
void end_tools(const device &dev, other_tools *tools, findings *found)
{
  end_syntax(dev, *tools, found);
  if (tools->pid > 0) {
    reported_lines reported;
    for (const finding &f : *found) {
      reported.insert({f.at.path, f.at.line});
    }
    for (const std::string &line :
         split_lines(finish(tools->pid, tools->shellcheck))) {
      take_shellcheck_line(dev, line, reported, found);
    }
  }
  drop_own_folder(&tools->stubs);
}
