// --run: running one script as the executable would.

#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "orv_quote.h"
#include "run.h"

static constexpr long LIMIT_MS = 10000; // a script that goes on is ended
// Silence of a pipe that its script has left behind.
static constexpr long LEFT_MS = 250;

static long now_ms()
{
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

[[noreturn]] static void run_child(const std::string &line,
                                   const std::string &dir, const int *out,
                                   const int *err)
{
  setpgid(0, 0);
  signal(SIGPIPE, SIG_DFL);
  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
  dup2(out[1], STDOUT_FILENO);
  dup2(err[1], STDERR_FILENO);
  setenv("SYSTEM_TYPE", "device", 0);
  setenv("HW_VERSION", "1", 0);
  setenv("SW_VERSION", "1", 0);
  if (chdir(dir.c_str()) == 0) {
    execl("/bin/bash", "bash", "-c", line.c_str(),
          static_cast<char *>(nullptr));
  }
  _exit(127);
}

// Reads what is there; false at the end of the pipe.
static bool read_some(int fd, std::string *text)
{
  char buf[4096];
  const ssize_t got = read(fd, buf, sizeof buf);
  if (got > 0) {
    text->append(buf, static_cast<size_t>(got));
  }
  return got > 0;
}

// Takes in both pipes until they end, or the script has and they are silent.
static void listen(pid_t pid, int out, int err, outcome *result)
{
  const long begin = now_ms();
  struct pollfd fds[] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
  std::string *const texts[] = {&result->output, &result->errors};
  long ended = 0;
  long active = begin;
  int status = 0;
  while (fds[0].fd >= 0 || fds[1].fd >= 0 || ended == 0) {
    poll(fds, 2, 10);
    for (int i = 0; i < 2; i++) {
      if (fds[i].fd >= 0 && fds[i].revents != 0) {
        active = now_ms();
        if (!read_some(fds[i].fd, texts[i])) {
          fds[i].fd = -1;
        }
      }
    }
    const long now = now_ms();
    if (ended == 0 && waitpid(pid, &status, WNOHANG) == pid) {
      ended = now;
      active = now;
    }
    if (ended == 0 && now - begin > LIMIT_MS) {
      result->stopped = true;
      kill(-pid, SIGKILL);
    }
    if (ended != 0 && now - active > LEFT_MS) {
      result->held = fds[0].fd >= 0 || fds[1].fd >= 0;
      break;
    }
  }
  result->ms = ended - begin;
  result->status =
      WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

outcome run(const std::string &line, const std::string &dir)
{
  outcome result;
  int out[2];
  int err[2];
  if (pipe2(out, O_CLOEXEC) != 0) {
    return result;
  }
  if (pipe2(err, O_CLOEXEC) != 0) {
    close(out[0]);
    close(out[1]);
    return result;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    run_child(line, dir, out, err);
  }
  close(out[1]);
  close(err[1]);
  if (pid > 0) {
    setpgid(pid, pid);
    listen(pid, out[0], err[0], &result);
    kill(-pid, SIGKILL); // what it has left behind
  }
  close(out[0]);
  close(err[0]);
  return result;
}

// The script line as the executable runs it, "" when a value in it cannot be
// quoted; that is told by a rule of its own.
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
