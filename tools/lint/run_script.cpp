// --run: runs one script as the executable does, with the same runner.
//
// The runner is in a process of its own, which this one ends when it takes too
// long: the runner passes SIGTERM on to the script's processes.  Standard error
// goes to a separate file, since it is reported as a fault of its own, not as
// part of the output.

#include "run.h"

#include <ctype.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "orv_error.h"
#include "orv_quote.h"
#include "orv_scripts.h"

static constexpr long LIMIT_MS = 10000; // a script that takes longer is ended
static constexpr long GRACE_MS = 2000;  // the time that it has to end then

// What a script may use, in KiB: far more than any form needs.
static constexpr unsigned long MEMORY_MAX = 1UL << 20;
static constexpr unsigned long FILE_MAX = ORV_SCRIPT_OUTPUT_MAX >> 10;

static constexpr char APART[] = "/.apart";
static constexpr char STDERR[] = "/.stderr";

// The report of the process that runs the script.
// Written and read by the same program, so it travels as it is.
struct script_report {
  int status;
  bool held;
  bool too_long;
  size_t length; // of the output, which follows
};

static long now_ms()
{
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

// --- the process that runs the script ----------------------------------------

// The script must use the settings of the copy, not those of the caller's
// device.
// What a web server or the system would give is only set where the caller has
// not set it.
static void set_environment(void)
{
  unsetenv("ORV_STATE");
  unsetenv("ORV_DEFAULTS");
  setenv("SYSTEM_TYPE", "device", 0);
  setenv("HW_VERSION", "1", 0);
  setenv("SW_VERSION", "1", 0);
}

// The process group of the process, -1 when it has ended.  The name in
// /proc/N/stat may contain blanks and ")", so the fields follow the last one.
static pid_t group_of(const char *number)
{
  std::ifstream stream("/proc/" + std::string(number) + "/stat");
  std::string text;
  std::getline(stream, text);
  const size_t name_end = text.rfind(')');
  int parent;
  int group;
  char state;
  return name_end != std::string::npos &&
                 sscanf(text.c_str() + name_end + 1, " %c %d %d", &state,
                        &parent, &group) == 3
             ? group
             : -1;
}

// The pipes that a process has open, its standard input left out: two that have
// the same one see the same name.
static std::set<std::string> pipes_of(const std::string &process)
{
  const std::string folder = "/proc/" + process + "/fd/";
  std::set<std::string> pipes;
  DIR *files = opendir(folder.c_str());
  while (files != nullptr) {
    const dirent *entry = readdir(files);
    if (entry == nullptr) {
      closedir(files);
      break;
    }
    char target[64] = "";
    const std::string name = entry->d_name;
    const ssize_t length =
        readlink((folder + name).c_str(), target, sizeof target - 1);
    if (length > 0 && name != "0" &&
        strncmp(target, "pipe:", strlen("pipe:")) == 0) {
      pipes.insert(target);
    }
  }
  return pipes;
}

// A pipe to another program, as in `tail -f x | logger &`, holds no page.
static bool holds_pipe(const char *number, const std::set<std::string> &ours)
{
  const std::set<std::string> pipes = pipes_of(number);
  return std::any_of(pipes.begin(), pipes.end(), [&](const std::string &pipe) {
    return ours.count(pipe) != 0;
  });
}

// Whether a process that the script has left keeps its output open: on a device
// the page would wait for it.
// The runner makes the script the leader of a group, which processes in the
// background stay in. The group goes on when its leader has ended.
static bool is_held(pid_t group)
{
  const std::set<std::string> ours = pipes_of("self");
  DIR *processes = opendir("/proc");
  bool held = false;
  while (processes != nullptr && !held) {
    const dirent *entry = readdir(processes);
    if (entry == nullptr) {
      break;
    }
    held = isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0 &&
           group_of(entry->d_name) == group && holds_pipe(entry->d_name, ours);
  }
  if (processes != nullptr) {
    closedir(processes);
  }
  return held;
}

// Ends where the page would end: the runner sees to silence and time.
static std::string read_all(FILE *stream)
{
  std::string text;
  char buf[4096];
  size_t got;
  while ((got = fread(buf, 1, sizeof buf, stream)) > 0) {
    text.append(buf, got);
  }
  return text;
}

[[noreturn]] static void run_child(const std::string &command,
                                   const std::string &dir, int result)
{
  // Without it a linter that is killed would leave the script to itself.
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  set_environment();
  orv_fatal_no_exit = 1;
  orv_script_signals();
  script_report said = {127, false, false, 0};
  std::string output;
  pid_t pid = 0;
  if (chdir(dir.c_str()) == 0) {
    FILE *stream = orv_script_exchange(command.c_str(), nullptr, 0, &pid);
    if (stream != nullptr) {
      output = read_all(stream);
      said.too_long = ferror(stream) != 0;
      // Before the stream is closed: a process that goes on to write would end
      // at once then, and not be seen.
      said.held = is_held(pid);
      fclose(stream);
      kill(-pid, SIGTERM); // processes that it has left
      const int status = orv_script_wait(pid);
      said.status = status < 0 ? 128 - status : status;
    }
  }
  said.length = output.size();
  // _exit and not exit: what stands in the buffers of the linter is its own,
  // and would be printed twice.
  const bool whole = write(result, &said, sizeof said) == sizeof said &&
                     write(result, output.data(), output.size()) ==
                         static_cast<ssize_t>(output.size());
  _exit(whole ? 0 : 1);
}

// --- this process ------------------------------------------------------------

// Waits until `deadline`; whether the process has ended.
// A look every two milliseconds costs little, needs no handler for SIGCHLD, and
// most scripts end within a few of them.
static bool wait_until(pid_t pid, long deadline)
{
  while (waitpid(pid, nullptr, WNOHANG) == 0) {
    if (now_ms() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// SIGTERM first: SIGKILL would end the runner alone and leave what the script
// has started.
static void end_process(pid_t pid)
{
  kill(pid, SIGTERM);
  if (!wait_until(pid, now_ms() + GRACE_MS)) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
}

// pread, since the file has one position and the other process has moved it.
static void take_report(int file, outcome *result)
{
  script_report said;
  if (pread(file, &said, sizeof said, 0) != sizeof said) {
    return; // it was killed before it could report
  }
  result->status = said.status;
  result->held = said.held;
  result->too_long = said.too_long;
  if (said.too_long) {
    return; // an incomplete output is not checked
  }
  result->output.resize(said.length);
  if (pread(file, result->output.data(), said.length, sizeof said) !=
      static_cast<ssize_t>(said.length)) {
    result->output.clear();
  }
}

// Removed, so that the next script's are its own.
static std::string take_errors(const std::string &dir)
{
  std::ifstream stream(dir + STDERR, std::ios::binary);
  std::stringstream text;
  text << stream.rdbuf();
  unlink((dir + STDERR).c_str());
  return text.str();
}

// A quote cannot stand between single quotes in any way, so it is left for a
// moment: '\''.
static std::string in_single_quotes(const std::string &text)
{
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return quoted + "'";
}

// Makes the script that sets limits and separates standard error from the
// output.
// Made once for all runs. The limits are set by a shell in between, so that
// they hold for the script and all that it starts, and not for the runner.
static void make_apart(const std::string &dir)
{
  const std::string path = dir + APART;
  if (access(path.c_str(), X_OK) != 0) {
    std::ofstream(path) << "#!/bin/bash\nulimit -v " << MEMORY_MAX << " -f "
                        << FILE_MAX << "\nexec /bin/bash -c \"$1\" 2>'" << dir
                        << STDERR << "'\n";
    chmod(path.c_str(), 0700);
  }
}

outcome run(const std::string &line, const std::string &dir)
{
  outcome result;
  make_apart(dir);
  // A file and not a pipe: the child can write all of it and end, although
  // nobody reads before that.
  const int file = memfd_create("output", MFD_CLOEXEC);
  const long begin = now_ms();
  const pid_t pid = file >= 0 ? fork() : -1;
  if (pid == 0) {
    run_child(dir + APART + " " + in_single_quotes(line), dir, file);
  }
  if (pid > 0) {
    result.stopped = !wait_until(pid, begin + LIMIT_MS);
    if (result.stopped) {
      end_process(pid);
    }
    take_report(file, &result);
    result.ms = now_ms() - begin;
    result.errors = take_errors(dir);
  }
  if (file >= 0) {
    close(file);
  }
  return result;
}

// The runner's own quoting is used, so a value is quoted here as on the device.
// It takes values between two NUL bytes, which no template can hold by then; an
// empty one leaves nothing, as there.
std::string command_of(const script_line &line, const form &f,
                       const std::string &subitem, const std::string &dir)
{
  const std::string &text = line.text;
  std::string marked;
  for (size_t at = 0; at < text.size(); at++) {
    const bool tag =
        text[at] == '$' && at + 2 < text.size() && text[at + 2] == '$';
    if (!tag || (text[at + 1] != 'F' && text[at + 1] != 'S')) {
      marked += text[at];
      continue;
    }
    const std::string &value = text[at + 1] == 'F' ? f.name : subitem;
    if (!value.empty()) {
      marked += '\0' + value + '\0';
    }
    at += 2;
  }
  size_t length = 0;
  if (!shell_quote(marked.c_str(), marked.size(), nullptr, &length)) {
    return "";
  }
  std::string command(length, ' ');
  shell_quote(marked.c_str(), marked.size(), command.data(), &length);
  return text[0] == '/' ? command : "'" + dir + "/scripts/'" + command;
}
