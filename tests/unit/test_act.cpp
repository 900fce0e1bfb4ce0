// A script's request within a transaction waits for the commit.

#include "form_fixture.h"

#include <fcntl.h>
#include <poll.h>

#include "act.h"
#include "commit.h"
#include "fault.h"
#include "folder.h"

namespace
{

constexpr int PATIENCE = 60'000; // milliseconds, for a slow machine

// The actions requested within `milliseconds`.
string asked(int fifo, int milliseconds)
{
  char line[64] = "";
  pollfd ready = {fifo, POLLIN, 0};
  if (poll(&ready, 1, milliseconds) > 0) {
    static_cast<void>(read(fifo, line, sizeof line - 1) > 0);
  }
  return line;
}

// A script that requests the action in the transaction: one that waits for its
// output, with that standard stream, leads a process group.
pid_t start_script(const char *token, int stream = -1)
{
  const pid_t script = fork();
  if (script == 0) {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO && stream >= 0; fd++) {
      setpgid(0, 0);
      dup2(stream, fd);
    }
    // A separate process would not share the lock of the one that began it.
    for (int fd = 3; fd < 64; fd++) {
      if (fd != store.fd) {
        close(fd);
      }
    }
    setenv("ORV_TRANSACTION", token, 1);
    stage_join();
    FILE *out = fdopen(STDOUT_FILENO, "w");
    const bool asked =
        stream >= 0 ? act_run("restart", 600, out) : act_ask("restart");
    _exit(stage_folder() != nullptr && asked && fflush(out) == 0 ? 0 : 1);
  }
  return script;
}

int status_of(pid_t script)
{
  int status = -1;
  waitpid(script, &status, 0);
  return status;
}

// The script's output, once nobody can write more of it.  Then what is left of
// its process group is killed, as when a page is ended.
string told_by_script(const char *token)
{
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t script = start_script(token, ends[1]);
  EXPECT_EQ(status_of(script), 0);
  close(ends[1]);
  string told;
  char bytes[64];
  pollfd more = {ends[0], POLLIN, 0};
  ssize_t got = 1;
  while (got > 0) {
    got =
        poll(&more, 1, PATIENCE) > 0 ? read(ends[0], bytes, sizeof bytes) : -1;
    told += got < 0 ? "still open" : string(bytes, static_cast<size_t>(got));
  }
  close(ends[0]);
  kill(-script, SIGKILL);
  return told;
}

} // namespace

TEST(Act, is_requested_only_after_the_commit)
{
  std::filesystem::remove_all("act");
  std::filesystem::create_directories("act/actions");
  std::ofstream("act/actions/restart") << "#!/bin/sh\n";
  for (const char *name : {"STATE", "ACTS", "ACTIONS"}) {
    string folder = name;
    std::transform(folder.begin(), folder.end(), folder.begin(), tolower);
    setenv(("ORV_" + string(name)).c_str(), ("act/" + folder).c_str(), 1);
  }
  ASSERT_TRUE(store_open(true));
  std::filesystem::create_directories("act/acts");
  ASSERT_EQ(mkfifo("act/acts/ask", 0600), 0);
  const int fifo = open("act/acts/ask", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  store_stage stage;
  char token[STORE_TOKEN_SIZE];

  ASSERT_TRUE(transaction_begin(&stage, token));
  EXPECT_EQ(status_of(start_script(token)), 0);
  EXPECT_EQ(asked(fifo, 200), "");
  transaction_drop(&stage);

  // The dropped one must not request anything any more.
  ASSERT_TRUE(transaction_begin(&stage, token));
  EXPECT_EQ(told_by_script(token), "ok\n");
  EXPECT_EQ(asked(fifo, 0), "");
  ASSERT_TRUE(transaction_commit(&stage));
  EXPECT_EQ(asked(fifo, PATIENCE), "\nrestart\n");
  EXPECT_EQ(asked(fifo, 200), "");

  EXPECT_TRUE(act_ask("restart"));
  EXPECT_EQ(asked(fifo, 0), "\nrestart\n");
  close(fifo);
}

TEST(Act, has_a_name_and_exists)
{
  std::filesystem::create_directories("known");
  std::ofstream("known/restart-2_x") << "";
  std::ofstream("known/UP") << "";
  const string longest(40, 'a');
  std::ofstream("known/" + longest) << "";
  std::ofstream("known/" + longest + "a") << "";
  std::filesystem::remove_all("missing");
  setenv("ORV_ACTS", "missing", 1);
  setenv("ORV_ACTIONS", "known", 1);
  const char *is_there =
      "Saved, but not in use: the service larkspur-acts does not run";
  const std::vector<std::pair<string, const char *>> rows = {
      {"restart-2_x", is_there},
      {longest, is_there},
      {"none", "Saved, but not in use: this device has no action none"},
      {"", " is not a valid name of an action"},
      {"UP", "UP is not a valid name of an action"},
      {"..", ".. is not a valid name of an action"},
      {"a/b", "a/b is not a valid name of an action"},
      {"a\nb", "a?b is not a valid name of an action"},
      {longest + "a", nullptr},
  };
  for (const auto &row : rows) {
    store_forget_fault();
    EXPECT_FALSE(act_ask(row.first.c_str()));
    const string fault = row.second != nullptr
                             ? row.second
                             : row.first + " is not a valid name of an action";
    EXPECT_EQ(store_fault_text(), fault);
    EXPECT_EQ(act_exists(row.first.c_str()), row.second == is_there);
  }
}
