// The last saves: how many are kept, what is left out, and undoing them.

#include "history.h"

#include "guard.h"
#include "store_fixture.h"

class History : public Store
{
protected:
  void SetUp() override
  {
    Store::SetUp();
    setenv("REMOTE_USER", "ad min\n@", 1);
    setenv("REMOTE_ADDR", "192.168.1.7", 1);
  }

  static bool save(const string &order, const char *form = "net")
  {
    return locked([&] { return save_order(strdup(order.c_str()), form, "eth0"); }) ==
           "done";
  }

  // The file as it was before that save, or a fault.
  static string before(unsigned number)
  {
    const string outcome = locked([&] {
      store_stage stage;
      return stage_begin(&stage) && history_stage(&stage, number) && stage_commit(&stage);
    });
    return outcome == "done" ? stored("a") : outcome;
  }

  static size_t entries()
  {
    const string text = "\n" + read_file("state/.history");
    size_t count = 0;
    for (size_t at = text.find("\n@ "); at != string::npos; at = text.find("\n@ ", at + 1)) {
      count++;
    }
    return count;
  }
};

// clang-format off

TEST_F(History, EachSaveCanBeUndone)
{
  ASSERT_TRUE(save("> a\nx=1\n> b\ny=1\n"));
  ASSERT_TRUE(save("> a\nx=2\nz=new\n"));
  ASSERT_TRUE(save("> a\nz=newer\n> b\ny=2\n"));
  const string kept = read_file("state/a"), other = read_file("state/b");
  EXPECT_EQ(before(3), "z=new x=2 ");
  EXPECT_EQ(before(9), "There is no save 9 in the history");
  write_file("state/a", kept);
  write_file("state/b", other);
  EXPECT_EQ(before(2), "x=1 ");
  write_file("state/a", kept);
  write_file("state/b", other);
  EXPECT_EQ(before(1), "") << "nobody had stored it";
}

TEST_F(History, WhatUndoingBringsBackIsComplete)
{
  string many;
  for (int i = 100; i < 300; i++) { // more than are kept at first
    many += "n" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  }
  std::filesystem::create_directory("defaults");
  setenv("ORV_DEFAULTS", "defaults", 1);
  write_file("defaults/a", "#version 3\n#secret made\nrow0=shipped\n");
  const string head = "@secret key\n@table row\n> a\nkey=hidden\nmade=1\n";
  ASSERT_TRUE(save(head + many));
  const string first = stored("a");
  ASSERT_TRUE(save(head));
  ASSERT_TRUE(save("@guard 900\n" + head + "x=tried\n"));
  EXPECT_EQ(locked([] { return guard_put_back(GUARD_BOOT, nullptr); }), "done");
  EXPECT_EQ(before(4), "key=hidden made=1 x=tried ") << "a change that went back is one to undo";
  EXPECT_EQ(before(2), first);
  const string text = read_file("state/a");
  EXPECT_EQ(text.substr(0, text.find("key=")), "#orv 2 6 -\n#table *\n#version 3\n#secret key made\n");
}

TEST_F(History, ListsUserTimeAndChangesButNoSecret)
{
  ASSERT_TRUE(save("@secret key\n> a\nhost=gw\nkey=hidden1\nwl_passphrase=hidden2\n"));
  ASSERT_TRUE(save("> b\nkey=$hidden4\n> a\nhost=gw2\nkey=$hidden3\n")) << "the second file says what a hash is";
  write_file("state/c", "#orv 2 2 -\n#table\nkey2=hidden5\n");
  ASSERT_TRUE(save("@secret key2\n> c\nkey2=hidden6\n", "n")) << "what was no secret so far";
  const string text = read_file("state/.history");
  EXPECT_EQ(text.find("hidden"), string::npos) << text;
  EXPECT_NE(text.find(" ad_min_@ 192.168.1.7 net/eth0 saved\n"), string::npos) << text;
  EXPECT_NE(text.find(" ad_min_@ 192.168.1.7 n/eth0 saved\n"), string::npos) << text;
  EXPECT_NE(text.find("= host: gw -> gw2\n"), string::npos) << text;
  EXPECT_NE(text.find("= key: "), string::npos) << text;
  EXPECT_EQ(before(2), "host=gw key=$hidden3 ") << "today's secrets stay";
}

TEST_F(History, NamesWithoutAValueStayDeclaredSecret)
{
  std::filesystem::create_directory("defaults");
  setenv("ORV_DEFAULTS", "defaults", 1);
  const struct {
    const char *shipped;
    const char *declared;
    const char *kept;
  } rows[] = {
    {"", "", ""},
    {"", "#secret code\n", "#secret code\n"},
    {"", "#secret key0 key1 key2\n", "#secret key0 key1 key2\n"}, // a row that has no key yet
    {"#secret made key1\n", "#secret key1\n", "#secret key1 made\n"},
    {"#secret made\n", "", "#secret made\n"},
  };
  for (const auto &[shipped, declared, kept] : rows) {
    write_file("defaults/a", shipped);
    write_file("state/a", string("#orv 2 5 -\n#table key\n") + declared + "key0=x\nkey2=x\nx=2\n");
    write_file("state/.history", "@ 1 0 - - f saved\n< a x=1\n");
    EXPECT_EQ(before(1), "key0=x key2=x x=1 ");
    const string text = read_file("state/a"), head = "#table *\n";
    const size_t start = text.find(head) + head.size();
    EXPECT_EQ(text.substr(start, text.find("key0=") - start), kept);
  }
}

TEST_F(History, CountsTheChangesThatItCutsOff)
{
  const string value(60, 'x');
  bool is_cut = false;
  for (size_t count = 90; count < 130; count++) {
    string order = "> f" + std::to_string(count) + "\n";
    for (size_t i = 0; i < count; i++) {
      order += "v" + std::to_string(i) + "=" + value + "\n";
    }
    ASSERT_TRUE(save(order));
    const string text = read_file("state/.history");
    const string entry = text.substr(0, text.find("\n@ "));
    size_t lines = 0;
    for (size_t at = entry.find("\n= v"); at != string::npos; at = entry.find("\n= v", at + 1)) {
      lines++;
    }
    const size_t more = entry.find("\n= and ");
    EXPECT_EQ(lines + (more != string::npos ? std::stoul(entry.substr(more + 7)) : 0), count);
    is_cut |= more != string::npos;
  }
  EXPECT_TRUE(is_cut);
}

TEST_F(History, KeepsTenSavesAndNoMoreThanFit)
{
  for (size_t i = 0; i < 13; i++) {
    ASSERT_TRUE(save("> a\nx=" + std::to_string(i) + "\n"));
    EXPECT_EQ(entries(), std::min<size_t>(i + 1, 10));
  }
  string large = "> a\n";
  for (int i = 0; i < 400; i++) {
    large += "v" + std::to_string(i) + "=" + string(100, 'x') + "\n";
  }
  ASSERT_TRUE(save(large));
  ASSERT_TRUE(save("> a\nx=1\n"));
  EXPECT_LE(std::filesystem::file_size("state/.history"), 64U * 1024);
  EXPECT_GE(entries(), 2U);
  ASSERT_TRUE(save("> a\nx=2\n"));
}

TEST_F(History, KeepsNoDefaultsThatStayInUse)
{
  std::filesystem::create_directory("defaults");
  setenv("ORV_DEFAULTS", "defaults", 1);
  string shipped = "fixed=f\nx=0\nrow0=shipped\n";
  for (int i = 0; i < 400; i++) { // a list's choices
    shipped += "select_zones" + std::to_string(i) + "=" + string(80, 'z') + "\n";
  }
  write_file("defaults/a", shipped);
  for (int i = 1; i <= 10; i++) {
    ASSERT_TRUE(save("@table row\n> a\nx=" + std::to_string(i) + "\n"));
  }
  EXPECT_EQ(entries(), 10U);
  const string text = read_file("state/.history"), older = "\n@ 1 ";
  EXPECT_EQ(text.find("select_zones"), string::npos);
  EXPECT_NE(text.find("< a row0=shipped\n", text.find(older)), string::npos) << "it no longer comes back";
  const string old = before(1);
  EXPECT_EQ(old.find("fixed=f select_zones0=z"), 0U) << old;
  EXPECT_NE(old.find(" x=0 row0=shipped "), string::npos) << old;
}

TEST_F(History, CraftedEntriesAreRefusedOrMeanNothing)
{
  const std::pair<const char *, const char *> rows[] = {
    {"@ 1 0 - - f saved\n< ../x a=1\n", "The history cannot be read"},
    {"@ 1 0 - - f saved\n< .lock a=1\n", "The history cannot be read"},
    {"@ 1 0 - - f saved\n< a nothing\n", "The history cannot be read"},
    {"@ 1 0 - - f saved\n+ a\n", "The history cannot be read"},
    {"@ 1 0 - - f saved\n<\n", "The history cannot be read"},
    {"@ 1 0 - - f saved\n< \n", "The history cannot be read"},
    {"@ 1 0 - - f saved\n\n< a x=1\n", "x=1 "},
    {"garbage\n@ 1 0 - - f saved\n", "The history cannot be read"},
    {"\n@ 1 0 - - f saved\n", "The history cannot be read"},
    {"@ 2\n@ 1 0 - - f saved", "x=kept "},
    {"", "There is no save 1 in the history"},
  };
  for (const auto &[text, expected] : rows) {
    write_file("state/a", "#orv 2 5 -\n#table\nx=kept\n");
    write_file("state/.history", text);
    EXPECT_EQ(before(1), expected) << text;
  }
}
