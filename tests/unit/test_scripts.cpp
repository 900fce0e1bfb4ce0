// The script runner: how scripts are started, talked to and waited for.

#include "orv_scripts.h"

#include <chrono>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "fixture.h"

static bool fork_fails; // no limit of processes binds a superuser

extern "C" pid_t fork() noexcept
{
  static const auto real =
      reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"));
  errno = EAGAIN;
  return fork_fails ? -1 : real();
}

namespace
{

class Scripts : public Scratch
{
protected:
  string output;
  bool complete = false; // all input was written and all output read

  // As some web servers start a program.
  static void SetUpTestSuite()
  {
    signal(SIGCHLD, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
  }

  // The exit status, or what the start gave.
  int run(const string &command, const string &input = "")
  {
    output.clear();
    FILE *inp;
    FILE *outp;
    const pid_t pid = orv_script_run(command.c_str(), &inp, &outp);
    if (pid < 1) {
      EXPECT_TRUE(inp == nullptr && outp == nullptr);
      return pid;
    }
    FILE *all = orv_script_talk(pid, inp, outp, input.data(), input.size());
    complete = all != nullptr;
    if (all != nullptr) {
      char buf[10000];
      size_t got;
      while ((got = fread(buf, 1, sizeof buf, all)) > 0) {
        output.append(buf, got);
      }
      complete = ferror(all) == 0;
      fclose(all);
    }
    return orv_script_wait(pid);
  }
};

// clang-format off

TEST_F(Scripts, TheCommandLineIsBashsAndTheStatusIsTheScripts)
{
  write_file("data/scripts/plain.sh", "");
  ASSERT_EQ(dup2(open("/dev/null", O_RDONLY), 77), 77);
  const string ended = "orv_script_wait: script terminated by signal ";
  const struct {
    string command;
    const char *script, *input;
    int status;
    string expected, report;
  } rows[] = {
    {"s.sh -r 'y  z'", "echo $0 $#:$1:\"$2\"", "", 0,
     "data/scripts/s.sh 2:-r:y  z\n", ""},
    {"s.sh $((6 * 7)) | cat", "echo $1; exit 3", "", 0, "42\n", ""},
    {dir + "/data/scripts/s.sh a", "echo $1", "", 0, "a\n", ""},
    {"s.sh", "echo a; echo b >&2; echo c", "", 0, "a\nb\nc\n", ""},
    {"s.sh", "cat; exit 3", "one\ntwo", 3, "one\ntwo", ""},
    {"s.sh", "exit 255", "", 255, "", ""},
    {"s.sh", "kill $$; exit 1", "", -15, "", ended + "15"},
    {"s.sh", "kill -PIPE $$; exit 1", "", -13, "", ended + "13"},
    {"s.sh", "[[ -e /proc/$$/fd/77 ]]", "", 1, "", ""},
    {"no.sh a", "", "", -2, "", "Script \"data/scripts/no.sh\" does not exist"},
    {"/no s.sh", "", "", -2, "", "Script \"/no\" does not exist"},
    {"s.sh\ta b", "", "", -2, "",
     "Script \"data/scripts/s.sh\ta\" does not exist"},
    {"'s.sh'", "", "", -2, "", "Script \"data/scripts/'s.sh'\" does not exist"},
    {"plain.sh a", "", "", -2, "",
     "Cannot execute script \"data/scripts/plain.sh\""},
  };
  for (const auto &row : rows) {
    write_script(row.script);
    EXPECT_EQ(run(row.command, row.input), row.status) << row.script;
    EXPECT_EQ(output, row.expected);
    EXPECT_EQ(message(), row.report);
  }
  EXPECT_EQ(orv_script_wait(getpid()), -1) << "no child";
  EXPECT_EQ(message(), ended + "1");

  write_script("readlink /proc/$$/fd/{0,1,2} >seen");
  EXPECT_EQ(orv_script_wait(orv_script_run("s.sh", nullptr, nullptr)), 0);
  EXPECT_EQ(read_file("seen"), "/dev/null\n/dev/null\n/dev/null\n");
}

TEST_F(Scripts, NeitherSideBlocksTheOtherWhateverTheSizes)
{
  const struct {
    const char *script;
    size_t input;
    bool complete;
    size_t output;
  } rows[] = {
    {"head -c 300000 /dev/zero; cat",       300000, true,  600000},
    {"exec >&-; [[ $(wc -c) = 300000 ]]",   300000, true,  0},
    {"exit 0",                              65536,  true,  0},
    {"exit 0",                              65537,  false, 0},
    {"exec <&-; sleep 0.2; echo a",         10,     true,  2},
    {"head -c 16777216 /dev/zero",          0,      true,  16777216},
    {"head -c 16777217 /dev/zero",          0,      false, 16777216},
  };
  for (const auto &row : rows) {
    write_script(row.script);
    EXPECT_EQ(run("s.sh", string(row.input, 'x')), 0) << row.script;
    EXPECT_EQ(complete, row.complete) << row.script;
    EXPECT_EQ(output.size(), row.output);
    EXPECT_EQ(message(), row.complete || row.input > 0 ? ""
                         : "Script output too long");
  }
}

TEST_F(Scripts, WhatAScriptLeavesBehindDoesNotHoldThePage)
{
  const struct {
    const char *script, *expected;
    double least, most; // seconds
  } rows[] = {
    {"echo a; sleep 30 & echo $! >pid", "a\n", 0.2, 2},
    {"exec > >(sleep 0.1; cat); echo a", "a\n", 0.1, 2},
    {"while printf .; do sleep 0.05; done & echo $! >pid", ".", 1.9, 6},
  };
  for (const auto &row : rows) {
    write_script(row.script);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(run("s.sh"), 0);
    const std::chrono::duration<double> spent =
      std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(complete);
    EXPECT_EQ(output.substr(0, strlen(row.expected)), row.expected);
    EXPECT_GE(spent.count(), row.least) << row.script;
    EXPECT_LE(spent.count(), row.most) << row.script;
    if (std::filesystem::exists("pid")) {
      kill(std::stoi(read_file("pid")), SIGKILL);
    }
  }
}

TEST_F(Scripts, LackOfDescriptorsOrProcessesIsReportedAndLeavesNothingOpen)
{
  const int lowest = dup(0);
  close(lowest);
  fork_fails = true;
  EXPECT_EQ(run("/bin/true"), -4);
  fork_fails = false;
  EXPECT_EQ(message(), "orv_script_run: Cannot fork. Errno 11");
  EXPECT_EQ(dup(0), lowest);
  close(lowest);
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = static_cast<rlim_t>(lowest);
  string reports;
  int result = -3;
  for (string report, last; result == -3; last = report) {
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur++;
    result = run("/bin/true");
    report = message();
    reports += report != last ? report + "\n" : "";
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(reports, "Cannot create input pipe from script. Errno 24\n"
                     "Cannot create output pipe to script. Errno 24\n\n");
  EXPECT_EQ(dup(0), lowest);
}

// clang-format on

} // namespace
