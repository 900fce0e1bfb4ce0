// A guarded change: which old settings are kept, what ends it, and what is
// reported meanwhile.

#include "guard.h"

#include <map>

#include "confirm.h"
#include "store_fixture.h"

class Guard : public Store
{
protected:
  void SetUp() override
  {
    Store::SetUp();
    ASSERT_EQ(save("> a\nx=old\n> b\ny=old\n"), "done");
  }

  static string token()
  {
    return read_file("state/.pending/.token");
  }

  static bool put_back()
  {
    return guard_put_back(GUARD_BOOT, nullptr);
  }

  static string settle(const char *name)
  {
    return locked([&] { return guard_settle(name); });
  }

  // Checks that the change which `work` begins, or lets the device use, ends
  // that many seconds later: by both clocks, and however long `work` takes.
  template <typename Work> static void ends_after(int seconds, Work work)
  {
    const std::pair<clockid_t, const char *> rows[] = {
      {CLOCK_BOOTTIME, "\nuntil="}, {CLOCK_REALTIME_COARSE, "\nclock="}};
    timespec begun[2], done;
    for (size_t i = 0; i < 2; i++) {
      clock_gettime(rows[i].first, begun + i);
    }
    work();
    const string info = read_file("state/.pending/.info");
    for (size_t i = 0; i < 2; i++) {
      const auto &[clock, key] = rows[i];
      clock_gettime(clock, &done);
      ASSERT_NE(info.find(key), string::npos) << info;
      const long end = std::stol(info.substr(info.find(key) + strlen(key)));
      EXPECT_TRUE(end >= begun[i].tv_sec + seconds && end <= done.tv_sec + seconds) << info;
    }
  }
};

// clang-format off

TEST_F(Guard, RestoresTheSettingsBeforeTheFirstOfSeveralChanges)
{
  ASSERT_EQ(save("@guard 900\n> a\nx=new\n"), "done");
  const string first = token();
  ASSERT_EQ(save("@guard 900\n> a\nx=newer\n> c\nz=1\n"), "done");
  EXPECT_NE(token(), first);
  ASSERT_EQ(save("> b\ny=new\n"), "done") << "another save goes on";
  EXPECT_TRUE(is_there(".pending/a") && !is_there(".pending/b"));
  using std::filesystem::perms;
  for (const auto &entry : std::filesystem::recursive_directory_iterator("state")) {
    EXPECT_EQ(entry.status().permissions(), entry.is_directory() ? perms::owner_all :
              perms::owner_read | perms::owner_write) << entry.path();
  }
  EXPECT_EQ(locked(put_back), "done");
  EXPECT_EQ(stored("a") + stored("b") + stored("c"), "x=old y=new ");
  EXPECT_FALSE(is_there(".pending") || is_there(".commit"));
  EXPECT_EQ(locked(put_back), "no") << "nothing is pending any more";
}

TEST_F(Guard, AnOldFileComesBackAsTheLatestSave)
{
  const std::pair<const char *, const char *> rows[] = {
    // what was kept, what is stored then
    {"#orv 17.5 17.6\nx=old\n", "#orv 2 3 -\n#table *\nx=old\n"},
    {"x=old\n", "#orv 2 5 -\n#table *\nx=old\n"},
    {"#orv 2 0 -\n", "#orv 2 7 -\n"}, {"", "#orv 2 9 -\n#table *\n"},
    {"#orv 2 20", "#orv 2 21 -\n"}, // numbers only grow
    {"#orv 2 1 1.2\n#table port\n#version 3\n#secret x\nx=old\n",
      "#orv 2 23 -\n#table port\n#version 3\n#secret x\nx=old\n"},
  };
  for (const auto &[kept, back] : rows) {
    ASSERT_EQ(save("@guard 900\n> a\nx=new\n"), "done");
    write_file("state/.pending/a", kept);
    EXPECT_EQ(locked(put_back), "done");
    EXPECT_EQ(read_file("state/a"), back);
  }
}

TEST_F(Guard, OnlyAnActWithItsTokenKeepsAChangeThatIsInUse)
{
  EXPECT_EQ(settle(nullptr).substr(0, 26), "No change waits to be kept");
  ASSERT_EQ(save("@guard 900 command\n> a\nx=new\n"), "done");
  const string name = token();
  EXPECT_EQ(settle(name.c_str()).substr(0, 39), "The device does not use the change yet.");
  EXPECT_EQ(locked([] { return guard_arm("other"); }), "no");
  EXPECT_EQ(locked([&] { return guard_arm(name.c_str()); }), "done");
  EXPECT_EQ(settle("other").substr(0, 34), "Another change was made meanwhile.");
  const std::tuple<const char *, const char *, bool> requests[] = {
    // method, policy, keeps
    {"GET", "strict", false}, {"HEAD", "strict", false}, {"post", "strict", false},
    {"POST", "open", false},  {"", "strict", false},     {"POST", "strict", true},
  };
  for (const auto &[method, policy, keeps] : requests) {
    setenv("REQUEST_METHOD", method, 1);
    setenv("ORV_POLICY", policy, 1);
    EXPECT_EQ(settle(name.c_str()) == "done", keeps) << method << " " << policy;
    EXPECT_EQ(is_there(".pending"), !keeps);
  }
  EXPECT_EQ(stored("a"), "x=new ");
}

TEST_F(Guard, ItsTimeBeginsWhenTheDeviceUsesItAndEndsWithTheBoot)
{
  ends_after(160, [] { ASSERT_EQ(save("@guard 100 act restart\n> a\nx=new\n"), "done"); });
  EXPECT_EQ(locked([] {
    pending_change pending;
    guard_step step;
    return guard_read(&pending) && !pending.armed && pending.clock == 0 &&
           pending.left > 100 && pending.left <= 160 && pending.seconds == 100 &&
           guard_find_step(nullptr, &step) && strcmp(step_act(&step), "restart") == 0;
  }), "done") << "who should have made the device use it has a minute more";
  const string name = token();
  ends_after(100, [&] { ASSERT_EQ(locked([&] { return guard_arm(name.c_str()); }), "done"); });
  EXPECT_EQ(locked([] {
    pending_change pending;
    return guard_read(&pending) && pending.armed && pending.left <= 100 &&
           pending.left > 60 && pending.clock > 0 && !guard_is_over();
  }), "done");
  string info = read_file("state/.pending/.info");
  info.replace(info.find("\n", info.find("boot=")) - 1, 1, "?"); // from another boot
  write_file("state/.pending/.info", info);
  EXPECT_EQ(locked(guard_is_over), "done");
}

TEST_F(Guard, StepsOfSeveralChangesRemainEachOnceInTheirOrder)
{
  const std::tuple<const char *, const char *, const char *> saves[] = {
    // form, order, the steps' keys then: commands by their row here
    {"net", "@guard 9 run a", "0"},         {"lan", "@guard 9 run a", "0 1"},
    {"net", "@guard 9", "0 1 -"},           {"net", "@guard 9 run b", "0 1 3"},
    {"net", "@guard 9 act tell", "0 1 3 4"}, {"lan", "@guard 9 act tell", "0 1 3 4"},
    {"net", "@guard 9 run a", "1 3 4 0"},
  };
  std::map<string, string> names = {{"-", "-"}};
  string tokens[std::size(saves)];
  uint64_t last = 0;
  for (size_t i = 0; i < std::size(saves); i++) {
    const auto &[form, order, keys] = saves[i];
    ASSERT_EQ(save(string(order) + "\n> a\nx=" + std::to_string(i) + "\n", form), "done");
    tokens[i] = token();
    const string info = read_file("state/.pending/.info");
    const char *rest = info.c_str();
    string found;
    guard_step step;
    uint64_t place = 0;
    while (step_next(&rest, &step)) {
      names.insert({step.key, std::to_string(i)});
      found += (found.empty() ? "" : " ") + names[step.key];
      EXPECT_LT(place, step.place);
      place = step.place;
    }
    EXPECT_EQ(found, keys) << info;
    EXPECT_LT(last, place);
    last = place;
    EXPECT_FALSE(is_there(".pending/.armed")) << "a command has not run";
  }
  for (const int i : {6, 5, 3, 1}) {
    EXPECT_EQ(locked([&] { return guard_arm(tokens[i].c_str()); }), "done");
    EXPECT_EQ(is_there(".pending/.armed"), i == 1) << "all of them have run";
  }
  EXPECT_EQ(locked([&] { return guard_arm(tokens[0].c_str()); }), "no");
  EXPECT_EQ(locked([] { return guard_put_back(GUARD_PRIVILEGED, stdout); }), "done");
  EXPECT_NE(read_file("state/.history").find("\n& lan\n"), string::npos);
  for (size_t i = 0; i < std::size(saves); i++) {
    EXPECT_EQ(read_file("state/.history").find("\n* " + tokens[i] + "\n") != string::npos,
              i == 1 || i == 3 || i == 6) << i;
  }
}

TEST_F(Guard, ChangesOfOneStepWaitForTheCommandOfAnyAndGoBackTogether)
{
  const auto save_as = [](const char *form, const char *order) {
    return [=] { return save_order(strdup(order), form, nullptr); };
  };
  const auto plain = save_as("net", "@guard 900\n> a\nx=new\n");
  const auto late = save_as("lan", "@guard 900 run\n> b\ny=new\n");
  for (const bool is_first : {true, false}) {
    ASSERT_EQ(together({is_first ? plain : late, is_first ? late : plain}), "done");
    EXPECT_FALSE(is_there(".pending/.armed"));
    const string told = logged(LOG_NOTICE, [] { EXPECT_EQ(locked(put_back), "done"); });
    EXPECT_EQ(told, "log: Nobody kept the change: the old settings are back\n");
    EXPECT_EQ(stored("a") + stored("b"), "x=old y=old ");
    EXPECT_NE(read_file("state/.history").find(is_first ? "\n& net\n" : "\n& lan\n"), string::npos);
  }
  ASSERT_EQ(together({plain, save_as("lan", "@guard 900\n> b\ny=new\n")}), "done");
  EXPECT_TRUE(is_there(".pending/.armed")) << "none has a command";
}

TEST_F(Guard, NamesUserAndChangesWithoutSecretsOrForgedLines)
{
  setenv("REMOTE_USER", "eve\nchange=forged\ntoken=1", 1);
  setenv("REMOTE_ADDR", "::1", 1);
  ASSERT_EQ(save("@secret key\n@guard 900\n> a\nx=it's new\nkey=hidden\n"), "done");
  const string info = read_file("state/.pending/.info");
  EXPECT_EQ(info.find("hidden"), string::npos) << info;
  EXPECT_EQ(info.find("\nchange=forged"), string::npos) << info;
  EXPECT_NE(info.find("\nchange=x: old -> it's new\n"), string::npos) << info;
  EXPECT_EQ(locked([] {
    char text[CONFIRM_SENTENCE_SIZE];
    confirm_sentence(text, sizeof text);
    return strstr(text, "A change by eve_change_forged_token_1 at ::1 waits to be kept."
                        " If nobody kept it by ") == text;
  }), "done");
}

TEST_F(Guard, CraftedInformationIsNoMoreThanText)
{
  ASSERT_EQ(save("@guard 900\n> a\nx=new\n"), "done");
  for (const char *info : {"", "\n", "until=", "boot=\nuntil=99999999999999999999999\n",
                           "seconds=-1\nclock=-9223372036854775808\nuser=\n",
                           "=\n==\nact=\n", "until=1"}) {
    write_file("state/.pending/.info", info);
    EXPECT_EQ(locked([] {
      pending_change pending;
      char text[CONFIRM_SENTENCE_SIZE];
      confirm_sentence(text, sizeof text);
      const bool read = guard_read(&pending) && pending.left >= 0;
      free(pending.text);
      return read;
    }), "done") << info;
    EXPECT_EQ(save("@guard 900\n> a\nx=newer\n"), "done") << info;
  }
  const std::pair<const char *, const char *> rows[] = {
    {"user=eve\naddress=::1\nseconds=7\n", "A change by eve at ::1 waits to be kept."
      " If nobody kept it by 7 seconds from now, the old settings are back."},
    {"seconds=7\naddress=\nuser=", "A change by somebody waits to be kept."
      " If nobody kept it by 7 seconds from now, the old settings are back."},
    {"auser=x\nuser=eve\nuser=other", "A change by eve waits to be kept."
      " If nobody kept it by 0 seconds from now, the old settings are back."},
  };
  std::filesystem::remove("state/.pending/.armed");
  for (const auto &[info, sentence] : rows) {
    write_file("state/.pending/.info", info);
    EXPECT_EQ(locked([] {
      char text[CONFIRM_SENTENCE_SIZE];
      confirm_sentence(text, sizeof text);
      store_fault("%s", text);
      return false;
    }), sentence);
  }
  write_file("state/.pending/.token", "");
  EXPECT_EQ(locked(put_back), "done") << "what is there goes back all the same";
  EXPECT_EQ(stored("a"), "x=old ");
}
