// Several files that change as one step: what a save leaves, cleaning up after
// an interrupted one, and steps of several processes.

#include "commit.h"

#include "settings.h"
#include "store_fixture.h"

using Commit = Store;

// clang-format off

TEST_F(Commit, ASaveLeavesItsFilesAndNothingElse)
{
  ASSERT_EQ(save("@owner 12.3\n> a\nx=1\n> port@lan1\ny=2\n"), "done");
  EXPECT_EQ(read_file("state/a"), "#orv 2 1 12.3\n#table\nx=1\n");
  ASSERT_EQ(save("@owner bad owner\n@table port\n> a\nx=2\nport0=1\n"), "done");
  EXPECT_EQ(read_file("state/a"), "#orv 2 2 -\n#table port\nport0=1\nx=2\n");
  string all;
  for (const auto &entry : std::filesystem::directory_iterator("state")) {
    all += entry.path().filename().string() + " ";
  }
  for (const char *name : {"a ", "port@lan1 ", ".lock ", ".generation ", ".history "}) {
    EXPECT_NE(all.find(name), string::npos) << all;
  }
  EXPECT_EQ(all.size(), strlen("a port@lan1 .lock .generation .history ")) << all;
}

TEST_F(Commit, AFileWithoutValuesIsStoredBesideOthers)
{
  for (const char *order : {"> a\n> b\nx=1\n", "> a\n\n> b\nx=2\n", "> b\nx=3\n> a\n"}) {
    EXPECT_EQ(save(order), "done") << order;
    EXPECT_TRUE(is_there("a") && stored("a").empty()) << order;
    EXPECT_EQ(stored("b"), string("x=") + order[strcspn(order, "123")] + " ");
  }
}

TEST_F(Commit, ALookChangesWithEachSaveAndWithNothingElse)
{
  store_look first, second;
  ASSERT_TRUE(store_open(false));
  store_take_look(&first);
  store_take_look(&second);
  EXPECT_TRUE(store_is_same_look(&first, &second));
  for (int i = 0; i < 3; i++) {
    ASSERT_EQ(save("> a\nx=" + std::to_string(i) + "\n"), "done");
    store_take_look(&second);
    EXPECT_FALSE(store_is_same_look(&first, &second));
    first = second;
  }
  std::filesystem::create_directory("state/.commit");
  store_take_look(&second);
  EXPECT_FALSE(store_is_same_look(&first, &second));
}

TEST_F(Commit, AnInterruptedSaveIsCompletedOrRemoved)
{
  ASSERT_EQ(save("> a\nx=old\n> b\ny=old\n"), "done");
  std::filesystem::create_directories("state/.commit/.pending");
  std::filesystem::create_directories("state/.new.1/.pending");
  std::filesystem::create_directory("state/.stage.1");
  write_file("state/.commit/a", "#orv 2 8 -\n#table\nx=new\n");
  write_file("state/.commit/.pending/a", "x=old\n");
  write_file("state/.commit/.unknown", "");
  write_file("state/.new.1/b", "y=half\n");
  EXPECT_EQ(locked([] { return true; }), "done");
  EXPECT_EQ(stored("a") + stored("b"), "x=new y=old ");
  EXPECT_TRUE(is_there(".pending/a"));
  EXPECT_FALSE(is_there(".commit") || is_there(".new.1") || is_there(".stage.1"));
  ASSERT_EQ(save("> b\ny=1\n"), "done");
  EXPECT_EQ(read_file("state/b").substr(0, 9), "#orv 2 9 ") << "numbers only grow";
}

TEST_F(Commit, AnInterruptedCommitEndsAsItWouldHave)
{
  const std::tuple<std::vector<string>, const char *, const char *> rows[] = {
    // files that were left, what the result is, the files that are there then
    {{".commit/.history", ".history"}, "done", ".history=.commit/.history"},
    {{".commit/.settled", ".pending/a", ".pending/.token"}, "done", ""},
    {{".commit/.pending/a", ".pending/a", ".pending/b"}, "done", ".pending/a=.commit/.pending/a"},
    {{".commit/.pending/a"}, "done", ".pending/a=.commit/.pending/a"},
    {{".commit/.old/a", ".commit/.settled"}, "done", ""},
    {{".commit/.old/a", ".pending/a"}, "done", ".pending/a=.pending/a"},
    {{".commit/a", ".commit/b"}, "done", "a=.commit/a b=.commit/b"},
    {{".new.1/1/2/3/4", ".stage.1"}, "done", ".new.1/1/2/3/4=.new.1/1/2/3/4"}, // none of ours is as deep
    // What cannot be moved stays for the next save.
    {{".commit/.history", ".history/x"}, "fault", ".commit/.history=.commit/.history .history/x=.history/x"},
    {{".commit/a", "a/x"}, "fault", ".commit/a=.commit/a a/x=a/x"},
    {{".commit/.pending/a", ".commit/.old/b", ".pending/c"}, "fault",
      ".commit/.old/b=.commit/.old/b .commit/.pending/a=.commit/.pending/a .pending/c=.pending/c"},
  };
  for (const auto &[left, outcome, expected] : rows) {
    store_look first, second;
    std::filesystem::remove_all("state");
    for (const string &name : left) {
      std::filesystem::create_directories(std::filesystem::path("state/" + name).parent_path());
      write_file("state/" + name, name);
    }
    ASSERT_TRUE(store_open(false));
    store_take_look(&first);
    const string told = locked([] { return true; });
    store_take_look(&second);
    EXPECT_EQ(told.substr(0, 31), string(outcome) == "done" ? "done" : "The settings could not be store") << left[0];
    EXPECT_NE(store_is_same_look(&first, &second), left[0].rfind(".commit", 0) == 0 && told == "done");
    std::vector<string> found;
    for (const auto &entry : std::filesystem::recursive_directory_iterator("state")) {
      const string name = entry.path().string().substr(strlen("state/"));
      if (entry.is_regular_file() && name != ".lock" && name != ".generation") {
        found.push_back(name + "=" + read_file("state/" + name));
      }
    }
    std::sort(found.begin(), found.end());
    string all;
    for (const string &one : found) {
      all += (all.empty() ? "" : " ") + one;
    }
    EXPECT_EQ(all, expected) << left[0];
  }
}

TEST_F(Commit, ATransactionCountsCompletelyOrNotAtAll)
{
  ASSERT_EQ(save("> a\nx=old\n> b\ny=old\n"), "done");
  for (const bool commits : {false, true}) {
    EXPECT_EQ(locked([&] {
      store_stage stage;
      char token[STORE_TOKEN_SIZE];
      if (!transaction_begin(&stage, token)) {
        return false;
      }
      setenv("ORV_TRANSACTION", token, 1);
      int ended = 0;
      for (const char *order : {"> a\nx=new\n", "> b\ny=new\n"}) {
        const pid_t pid = fork();
        if (pid == 0) { // a call by a script, which takes no lock
          stage_join();
          _exit(store_lock_for("f") && save_order(strdup(order), "f", nullptr) ? 0 : 1);
        }
        int status;
        waitpid(pid, &status, 0);
        ended += status == 0 && stored("a") + stored("b") == "x=old y=old " ? 1 : 0;
      }
      unsetenv("ORV_TRANSACTION");
      if (!commits) {
        transaction_drop(&stage);
      }
      return ended == 2 && (!commits || transaction_commit(&stage));
    }), "done");
    EXPECT_EQ(stored("a") + stored("b"), commits ? "x=new y=new " : "x=old y=old ");
  }
}

TEST_F(Commit, ATransactionWithoutASaveIsLoggedAndChangesNothing)
{
  ASSERT_EQ(save("> a\nx=old\n"), "done");
  const string before = read_file("state/.generation");
  const auto log = [](const char *line) {
    return [=] { store_log(line); return true; };
  };
  const auto all = [&](bool fails) {
    return together({log("one"), [&] { return !fails || save_order(strdup("bad"), "f", nullptr); }, log("two")});
  };
  EXPECT_EQ(logged(LOG_NOTICE, [&] { EXPECT_EQ(all(false), "done"); }), "log: one\nlog: two\n");
  // A refused save leaves nothing either, and the caller knows that it failed.
  EXPECT_EQ(logged(LOG_NOTICE, [&] { EXPECT_EQ(all(true), "no"); }), "log: one\nlog: two\n");
  EXPECT_EQ(read_file("state/.generation"), before);
  for (const auto &entry : std::filesystem::directory_iterator("state")) {
    EXPECT_FALSE(entry.is_directory()) << entry.path();
  }
}

TEST_F(Commit, AProcessWithoutInputTakesPartInATransaction)
{
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO); // the settings folder gets its number
  EXPECT_EQ(together({[] { return store.fd == STDIN_FILENO && save_order(strdup("> a\nx=1\n"), "f", nullptr); }}), "done");
  dup2(input, STDIN_FILENO);
  close(input);
  EXPECT_EQ(stored("a"), "x=1 ");
}

TEST_F(Commit, NoRequestTakesPartInATransaction)
{
  ASSERT_EQ(save("> a\nx=old\n"), "done");
  EXPECT_EQ(locked([] {
    store_stage stage;
    char token[STORE_TOKEN_SIZE];
    if (!transaction_begin(&stage, token)) {
      return false;
    }
    const std::pair<string, const char *> rows[] = {
      {token, "REQUEST_METHOD"}, {token, "GATEWAY_INTERFACE"},
      {"", ""}, {"../state", ""}, {string(token) + "0", ""},
      {string(STORE_TOKEN_SIZE - 1, '0'), ""},
    };
    bool joined = false;
    for (const auto &[name, variable] : rows) {
      setenv("ORV_TRANSACTION", name.c_str(), 1);
      if (variable[0] != '\0') {
        setenv(variable, "GET", 1);
      }
      stage_join();
      joined |= stage_folder() != nullptr;
      if (variable[0] != '\0') {
        unsetenv(variable);
      }
    }
    transaction_drop(&stage);
    return !joined;
  }), "done");
}

TEST_F(Commit, WhoWaitsForATransactionLearnsHowItEnded)
{
  ASSERT_EQ(save("> a\nx=old\n"), "done");
  const std::pair<string, bool> rows[] = {
    {"dropped", false}, {"committed", true}, {"died before", false}, {"died after", true},
  };
  for (const auto &[end, counts] : rows) {
    int begun[2], go[2];
    store_stage stage;
    ASSERT_TRUE(pipe(begun) == 0 && pipe(go) == 0);
    const pid_t pid = fork();
    if (pid == 0) {
      char token[STORE_TOKEN_SIZE];
      if (!store_open(false) || !store_lock_for("f") || !transaction_begin(&stage, token) ||
          write(begun[1], &stage, sizeof stage) < 0 || read(go[0], token, 1) != 1) {
        _exit(1);
      }
      if (end == "dropped") {
        transaction_drop(&stage);
      } else if (end == "committed") {
        transaction_commit(&stage);
      } else if (end == "died after") {
        renameat(store.fd, stage.name, store.fd, ".commit");
      }
      _exit(0);
    }
    ASSERT_EQ(read(begun[0], &stage, sizeof stage), static_cast<ssize_t>(sizeof stage));
    const int outcome = open((string("state/") + stage.name + "/.outcome").c_str(), O_RDONLY);
    ASSERT_EQ(write(go[1], "", 1), 1);
    EXPECT_EQ(transaction_wait(outcome), counts) << end;
    waitpid(pid, nullptr, 0);
    for (const int fd : {outcome, begun[0], begun[1], go[0], go[1]}) {
      close(fd);
    }
  }
}

TEST_F(Commit, TheEndOfAScriptIsSeenOnAnyKernel)
{
  for (const bool is_old : {false, true}) {
    EXPECT_EQ(locked([&] {
      if (is_old) {
        deny(SYS_pidfd_open);
      }
      signal(SIGCHLD, SIG_IGN); // nothing remains of what has ended
      int request[2], life[2];
      char byte;
      if (pipe(request) != 0 || pipe(life) != 0 || write(request[1], "r", 1) != 1) {
        return false;
      }
      const pid_t script = fork();
      if (script == 0) {
        close(life[1]);
        _exit(read(life[0], &byte, 1) == 0 ? 0 : 1);
      }
      const bool is_asked = store_await(script, request[0]) && read(request[0], &byte, 1) == 1;
      close(life[1]);
      return is_asked && !store_await(script, request[0]);
    }), "done");
  }
  const string fault = locked([] {
    deny(SYS_clone);
    deny(SYS_clone3);
    return store_hold_lock(getpid()) > 0;
  });
  EXPECT_EQ(fault.rfind("The settings cannot be locked: ", 0), 0U) << fault;
}

TEST_F(Commit, SignalsToTheScriptMissTheHolderOfItsLockFromTheStart)
{
  const pid_t script = fork();
  if (script == 0) {
    pause();
    _exit(1);
  }
  for (int i = 0; i < 10; i++) {
    EXPECT_EQ(locked([&] {
      const pid_t holder = store_hold_lock(script);
      const bool is_apart = getpgid(holder) == holder;
      kill(holder, SIGKILL);
      waitpid(holder, nullptr, 0);
      return is_apart;
    }), "done");
  }
  kill(script, SIGKILL);
  waitpid(script, nullptr, 0);
}
