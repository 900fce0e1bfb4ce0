// The script runner: starting scripts, their input and output, their end.

#include "orv_scripts.h"

#include <chrono>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <thread>

#include "form_fixture.h"

static string rest_of(FILE *all)
{
  string rest;
  for (int c = fgetc(all); c != EOF; c = fgetc(all)) {
    rest += static_cast<char>(c);
  }
  return rest;
}

class Scripts : public Forms
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

  static void await_end(pid_t pid)
  {
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
  }

  // The exit status, or the result of the start.  With `late` nothing is read
  // before the script's end.
  int run(const string &command, const string &input = "", bool late = false)
  {
    output.clear();
    pid_t pid;
    FILE *all = orv_script_exchange(command.c_str(), input.data(),
                                    input.size(), &pid);
    if (pid < 1) {
      EXPECT_EQ(all, nullptr);
      return pid;
    }
    if (late) {
      await_end(pid);
    }
    complete = false;
    if (all != nullptr) {
      output = rest_of(all);
      complete = ferror(all) == 0;
      fclose(all);
    }
    return orv_script_wait(pid);
  }

  // As a user with so many pipes that new ones hold little.
  static void become_busy()
  {
    rlimit limit = {8192, 8192};
    setrlimit(RLIMIT_NOFILE, &limit);
    // The kernel counts a user's pipes together, so this user has no other
    // process.
    const auto user = static_cast<uid_t>(20000 + getpid() % 40000);
    ASSERT_EQ(geteuid() == 0 ? setuid(user) : 0, 0);
    int fds[2] = {};
    for (int i = 0; i < 3000 && fcntl(fds[0], F_GETPIPE_SZ) != 4096 &&
                    fcntl(fds[0], F_GETPIPE_SZ) != 8192; i++) {
      ASSERT_EQ(pipe(fds), 0);
    }
  }
};

// clang-format off

TEST_F(Scripts, TheCommandLineIsBashsAndTheStatusIsTheScripts)
{
  write_file("data/scripts/plain.sh", "");
  ASSERT_EQ(dup2(open("/dev/null", O_RDONLY), 77), 77);
  const std::tuple<string, const char *, const char *, int, string, string>
    rows[] = {
    {"s.sh -r 'y  z'", "echo $0 $#:$1:\"$2\"", "", 0,
     "data/scripts/s.sh 2:-r:y  z\n", ""},
    {"s.sh $((6 * 7)) | cat", "echo $1; exit 3", "", 0, "42\n", ""},
    {"s.sh", "echo a; echo b >&2; cat; exit 255", "one\ntwo", 255,
     "a\nb\none\ntwo", ""},
    {"s.sh", "kill $$; exit 1", "", -15, "",
     "orv_script_wait: script terminated by signal 15"},
    {"s.sh", "kill -PIPE $$; exit 1", "", -13, "",
     "orv_script_wait: script terminated by signal 13"},
    {"s.sh", "[[ -e /proc/$$/fd/77 ]]", "", 1, "", ""},
    {"/no s.sh", "", "", -2, "", "Script \"/no\" does not exist"},
    {"plain.sh a", "", "", -2, "",
     "Cannot execute script \"data/scripts/plain.sh\""},
  };
  for (const auto &[command, script, input, status, expected, report] : rows) {
    write_script(script);
    EXPECT_EQ(run(command, input), status) << script;
    EXPECT_EQ(output, expected);
    EXPECT_EQ(message(), report);
  }
  write_script("readlink /proc/$$/fd/{0,1,2} >seen");
  EXPECT_EQ(orv_script_wait(orv_script_run("s.sh", nullptr, nullptr)), 0);
  EXPECT_EQ(read_file("seen"), "/dev/null\n/dev/null\n/dev/null\n");
  for (const char *list : {"/bin/ls /proc/self/fd", "/bin/ls '/proc/self/fd'"}) {
    EXPECT_EQ(run(list, "input"), 0);
    EXPECT_EQ(output, "0\n1\n2\n3\n") << "the last is the folder that is listed";
  }
}

TEST_F(Scripts, AScriptThatRunsAloneIsConnectedThroughStreams)
{
  write_script("echo begun; read -r word; echo \"$word\"; exit 4");
  FILE *inp;
  FILE *outp;
  const pid_t pid = orv_script_run("s.sh", &inp, &outp);
  ASSERT_GT(pid, 0);
  char line[20] = "";
  EXPECT_STREQ(fgets(line, sizeof line, inp), "begun\n") << "waits for input";
  fputs("word\n", outp);
  fclose(outp);
  EXPECT_EQ(rest_of(inp), "word\n");
  fclose(inp);
  EXPECT_EQ(orv_script_wait(pid), 4);
}

TEST_F(Scripts, NeitherSideBlocksTheOtherWhateverTheSizes)
{
  // script, input, whether all output is late, whether it is complete, output
  const std::tuple<const char *, size_t, bool, bool, size_t, int> rows[] = {
    {"head -c 300000 /dev/zero; cat",     300000, false, true,  600000,   0},
    {"exec >&-; [[ $(wc -c) = 300000 ]]", 300000, false, true,  0,        0},
    {"cat; exit 7",                       3000000, false, true, 3000000,  7},
    {"exec <&-; echo a",                  65535,  true,  true,  2,        0},
    {"echo a",                            65536,  true,  true,  2,        0},
    {"wc -c",                             65537,  true,  true,  6,        0},
    {"echo a",                            65537,  true,  true,  2,        0},
    {"echo a",                            1048576, true, true,  2,        0},
    {"echo a",                            1048577, true, false, 0,        0},
    {"exec <&-; sleep 0.2; echo a",       10,     false, true,  2,        0},
    {"head -c 16777215 /dev/zero",        0,      false, true,  16777215, 0},
    {"head -c 16777216 /dev/zero",        0,      false, true,  16777216, 0},
    {"head -c 16777217 /dev/zero",        0,      false, false, 16777216, 0},
  };
  for (const auto &[script, input, late, whole, length, status] : rows) {
    write_script(script);
    EXPECT_EQ(run("s.sh", string(input, 'x'), late), status);
    EXPECT_EQ(complete, whole) << script;
    EXPECT_EQ(output.size(), length) << script;
    EXPECT_EQ(message(), whole || input > 0 ? "" : "Script output too long");
  }
}

TEST_F(Scripts, ASmallPipeTakesAnyInput)
{
  orv_script_signals(); // so that the child below can be waited for
  ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
  write_script("[[ $1 ]] || exit 5; head -c \"$1\" | wc -c");
  EXPECT_EXIT({
    become_busy();
    EXPECT_EQ(run("s.sh", string(65536, 'x'), true), 5);
    EXPECT_TRUE(complete) << "a pipe's usual buffer counts as written";
    EXPECT_EQ(run("s.sh", string(65537, 'x'), true), 5);
    EXPECT_FALSE(complete);
    for (const char *size : {"4095", "4096", "4097", "300000"}) {
      EXPECT_EQ(run(string("s.sh ") + size, string(strtoul(size, 0, 10), 'x')), 0);
      EXPECT_EQ(output, string(size) + "\n");
    }
    _exit(HasFailure());
  }, testing::ExitedWithCode(0), "");
}

TEST_F(Scripts, WhatAScriptLeavesBehindDoesNotHoldThePage)
{
  // The reading lasts at least so many seconds.  On a busy machine a script may
  // be silent for long enough to end it early.
  const double busy = getenv("LARKSPUR_LONG") != nullptr ? 1.9 : 0.2;
  const std::tuple<const char *, string, double> rows[] = {
    {"echo a; sleep 300 & echo $! >pid", "a\n", 0.2},
    {"exec > >(sleep 0.1; cat); echo a", "a\n", 0.1},
    {"while printf .; do sleep 0.05; done &", ".", busy},
  };
  for (const auto &[script, expected, least] : rows) {
    write_script(script);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(run("s.sh"), 0);
    const std::chrono::duration<double> spent =
      std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(complete);
    EXPECT_EQ(output.substr(0, expected.size()), expected);
    EXPECT_TRUE(least <= spent.count() && spent.count() < 100) << script;
  }
  EXPECT_EQ(kill(std::stoi(read_file("pid")), SIGKILL), 0) << "went on";
}

TEST_F(Scripts, ADelayedReaderGetsAllOfTheScriptAndLittleElse)
{
  write_script("head -c 60000 /dev/zero; yes &");
  pid_t pid;
  FILE *all = orv_script_exchange("s.sh", nullptr, 0, &pid);
  await_end(pid);
  for (const int held_up : {100, 2100}) {
    std::this_thread::sleep_for(std::chrono::milliseconds(held_up));
    EXPECT_EQ(fgetc(all), '\0');
  }
  const size_t rest = rest_of(all).size();
  EXPECT_TRUE(rest >= 60000 - 2 && rest <= 100000) << rest;
  EXPECT_EQ(ferror(all), 0);
  fclose(all);
  EXPECT_EQ(orv_script_wait(pid), 0);
}

TEST_F(Scripts, LackOfProcessesOrDescriptorsIsReported)
{
  EXPECT_EQ(run("/bin/true"), 0);
  EXPECT_EXIT({
    deny(SYS_clone);
    deny(SYS_clone3);
    EXPECT_EQ(run("/bin/true"), -4);
    fputs(message().c_str(), stderr);
    _exit(0);
  }, testing::ExitedWithCode(0), "^orv_script_run: Cannot fork. Errno 38$");
  EXPECT_EXIT({ // a command that does nothing needs no process
    deny(SYS_clone);
    deny(SYS_clone3);
    load("x=1;error_x=stale");
    const int saved = orv_save_vars(&cfg_vars, "/bin/true");
    fprintf(stderr, "%d %s ", saved, stored().c_str());
    fprintf(stderr, "%d %s", orv_load_vars("/bin/true", 1), stored().c_str());
    fprintf(stderr, " %d", orv_load_vars("/bin/true", 0));
    _exit(stored().empty() ? 0 : 1);
  }, testing::ExitedWithCode(0), "^1 x.o=1. 0 x.o=1. 0$");
  string reports;
  int status = -3;
  for (rlimit limit = {3, 4096}; status == -3; limit.rlim_cur++) {
    setrlimit(RLIMIT_NOFILE, &limit);
    status = run("/bin/true");
    const string report = message();
    reports += reports.find(report) == string::npos ? report + "\n" : "";
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(reports, "Cannot create input pipe from script. Errno 24\n"
                     "Cannot create output pipe to script. Errno 24\n");

  // Without any descriptors the script cannot be waited for: the result is a
  // failure, not the end of the output.
  write_script("echo a");
  pid_t pid;
  FILE *all = orv_script_exchange("s.sh", nullptr, 0, &pid);
  rlimit limit = {0, 4096};
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(fgetc(all), EOF);
  EXPECT_NE(ferror(all), 0);
  limit.rlim_cur = limit.rlim_max; // the end of the test opens files
  setrlimit(RLIMIT_NOFILE, &limit);
  fclose(all);
  orv_script_wait(pid);
}

// A user who starts us from a terminal may have more rights than a script's
// user.
TEST_F(Scripts, AScriptHasNoTerminalOfOurs)
{
  write_script("read -r _ _ _ _ group session tty _ </proc/$$/stat\n"
               "[[ $group == $$ && $session == $$ && $tty == 0 ]] && echo alone");
  EXPECT_EQ(run("s.sh"), 0);
  EXPECT_EQ(output, "alone\n");
}
