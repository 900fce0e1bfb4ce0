// What other tools say of the scripts: bash itself, and shellcheck where it is
// installed.  Both are started early and heard late, since they take longer
// than all rules together.

#include <algorithm>
#include <fcntl.h>
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

// One bash for all scripts: each is read in a process of its own, which costs
// less than starting bash anew.
static const char SYNTAX_CHECK[] =
    "for file; do\n"
    "  text=$(LC_ALL=C bash -n -- \"$file\" 2>&1) ||\n"
    "    printf '%s\\n' \"${text%%$'\\n'*}\"\n"
    "done";

// Where a block begins that nothing ends: bash names the end of the file.
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
    tell(found, file->second, std::min(number, lines), 1, "script-syntax",
         "bash: " + line.substr(text + 2),
         number > lines ? open_block(dev, file->second) : std::vector<note>());
  }
}

// bash -n reads one file a process.
static void check_syntax(const device &dev, findings *found)
{
  std::vector<std::string> arguments = {"bash", "-c", SYNTAX_CHECK, "bash"};
  for (const auto &entry : dev.scripts) {
    arguments.push_back(entry.second.file->path);
  }
  int output;
  const pid_t pid = dev.scripts.empty() ? -1 : start(arguments, &output);
  if (pid > 0) {
    for (const std::string &line : split_lines(finish(pid, output))) {
      take_syntax_line(dev, line, found);
    }
  }
}

// --- shellcheck --------------------------------------------------------------

other_tools begin_tools(const device &dev, bool shellcheck)
{
  other_tools tools = {-1, -1};
  if (!shellcheck || dev.scripts.empty()) {
    return tools;
  }
  std::vector<std::string> arguments = {"shellcheck", "-f", "gcc", "-s",
                                        "bash",       "-x", "-P",  "SCRIPTDIR"};
  for (const auto &entry : dev.scripts) {
    arguments.push_back(entry.second.file->path);
  }
  tools.pid = start(arguments, &tools.shellcheck);
  return tools;
}

static bool is_told(const findings &found, const std::string &path, int line)
{
  for (const finding &f : found) {
    if (f.at.path == path && f.at.line == line) {
      return true;
    }
  }
  return false;
}

// "FILE:LINE:COL: LEVEL: TEXT [SCnnnn]"
static void take_shellcheck_line(const device &dev, const std::string &line,
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
    // What a rule of ours or bash has told of the line is not told twice.
    if (level != std::string::npos && !is_told(*found, file.path, number)) {
      tell(found, file, number, column, "shellcheck", text.substr(level + 2));
    }
  }
}

void end_tools(const device &dev, other_tools *tools, findings *found)
{
  check_syntax(dev, found);
  if (tools->pid > 0) {
    for (const std::string &line :
         split_lines(finish(tools->pid, tools->shellcheck))) {
      take_shellcheck_line(dev, line, found);
    }
  }
}
