// Settings files: a file's values, those that the defaults add, and valid names
// of files.

#include "settings.h"

#include <fcntl.h>

#include "fault.h"
#include "fixture.h"
#include "folder.h"

class Settings : public Scratch
{
protected:
  void SetUp() override
  {
    Scratch::SetUp();
    std::filesystem::create_directory("state");
    std::filesystem::create_directory("defaults");
    setenv("ORV_STATE", "state", 1);
    setenv("ORV_DEFAULTS", "defaults", 1);
    ASSERT_TRUE(store_open(false));
  }

  // The values in force as "NAME=VALUE ", with "+" after shipped ones, or the
  // fault, which is then cleared.
  static string in_force(const char *name = "f")
  {
    settings all;
    string told;
    if (settings_read(name, &all)) {
      for (size_t i = 0; i < all.count; i++) {
        told += string(all.list[i].name) + "=" + all.list[i].value +
                (all.list[i].shipped ? "+ " : " ");
      }
    } else {
      told = store_fault_text() != nullptr ? store_fault_text() : "no fault";
    }
    store_forget_fault();
    settings_free(&all);
    return told;
  }
};

// clang-format off

TEST_F(Settings, DefaultsFillMissingValuesAndNoRowComesBack)
{
  write_file("defaults/f", "host=gw\nnew=1\nport0=80\nport1=81\ndns1=9\n");
  const std::tuple<const char *, const char *, const char *> rows[] = {
    // stored, in force, why
    {"#orv 2 7 -\n#table port\nhost=a\n", "dns1=9+ host=a new=1+ ",
      "all rows were deleted"},
    {"#orv 2 7 -\n#table port\nhost=a\nport0=1\n", "dns1=9+ host=a new=1+ port0=1 ",
      "one row stays"},
    {"#orv 2 7 -\n#table\nhost=a\n", "dns1=9+ host=a new=1+ port0=80+ port1=81+ ",
      "the table was none of the form's then"},
    {"#orv 2 7 -\n#table *\nhost=a\n", "host=a new=1+ ", "nobody knows which tables"},
    {"#orv 17.5 17.5\nhost=a\n", "host=a new=1+ ", "an older library"},
    {"host=a\n", "host=a new=1+ ", "made by hand"},
    {"", "new=1+ host=gw+ ", "empty, by hand"},
    {"#orv 2 7 -\n", "dns1=9+ host=gw+ new=1+ port0=80+ port1=81+ ", "as shipped"},
    {"#orv 2 7 -\n#table port\n#secret key\nhost=a\nhost=b\nkey=x\nno line\n=\n1=2\n",
      "dns1=9+ host=b key=x new=1+ ", "the last of two lines counts, others do not"},
    {"#orv 3 7 -\nhost=a\n", "The settings f are of a newer version (format 3)", ""},
    {"#orv 99999999999999999999 7\n", "The settings f are of a newer version"
      " (format 99999999999999999999)", ""},
  };
  for (const auto &[stored, expected, why] : rows) {
    write_file("state/f", stored);
    string found = in_force();
    if (string(why) == "empty, by hand") {
      found = in_force().find("port") == string::npos ? expected : found;
    }
    EXPECT_EQ(found, expected) << why;
  }
  std::filesystem::remove("state/f");
  EXPECT_EQ(in_force(), "dns1=9+ host=gw+ new=1+ port0=80+ port1=81+ ");
  EXPECT_EQ(in_force("g"), "") << "neither stored nor shipped";
}

TEST_F(Settings, AFileThatExistsButCannotBeReadIsAFault)
{
  write_file("defaults/f", "a=shipped\n");
  write_file("elsewhere", "a=other\n");
  const std::pair<const char *, const char *> rows[] = {
    {"mkdir state/f", "The settings cannot be read: ./f is not a regular file"},
    {"mkfifo state/f", "The settings cannot be read: ./f is not a regular file"},
    {"ln -s ../elsewhere state/f", "The settings cannot be read: "},
    {"ln -s nowhere state/f", "The settings cannot be read: "},
    {"truncate -s 4194305 state/f", "The settings cannot be read: ./f is too large"},
    {"truncate -s 4194304 state/f", "a=shipped+ "}, // the largest file
  };
  for (const auto &[made, fault] : rows) {
    ASSERT_EQ(system((string("rm -rf state/f; ") + made).c_str()), 0);
    const string told = in_force();
    EXPECT_EQ(told.substr(0, strlen(fault)), fault) << made;
  }
}

TEST_F(Settings, ACommittedFileTakesPrecedenceOverTheOneInPlace)
{
  write_file("state/f", "#orv 2 1 -\n#table\na=old\n");
  std::filesystem::create_directory("state/.commit");
  write_file("state/.commit/f", "#orv 2 2 -\n#table\na=new\n");
  EXPECT_EQ(in_force(), "a=new ");
}

TEST_F(Settings, SecretsAreRecognisedByTheirNamesOrByTheFile)
{
  write_file("state/f", "#orv 2 1 -\n#table\n#secret key other\nkey=1\n");
  settings all;
  ASSERT_TRUE(settings_read("f", &all));
  const std::pair<const char *, bool> rows[] = {
    {"key", true}, {"other", true}, {"wl_passphrase", true}, {"a_pin3", true},
    {"ke", false}, {"keys", false}, {"host", false}, {"", false},
  };
  for (const auto &[name, is_secret] : rows) {
    EXPECT_EQ(settings_is_secret(&all, name), is_secret) << name;
  }
  settings_free(&all);
}

TEST_F(Settings, NamesOfFilesLeadNowhereElse)
{
  const std::pair<string, bool> rows[] = {
    {"network", true}, {"a", true}, {"9.b_c-d", true}, {string(99, 'x'), true},
    {"port@lan1", true}, {"a@b.c", true},
    {"", false}, {".", false}, {"..", false}, {".hidden", false}, {"-x", false},
    {"_x", false}, {"a/b", false}, {"a b", false}, {"a\n", false},
    {string(100, 'x'), false}, {"@b", false}, {"a@", false}, {"a@b@c", false},
    {"a@.b", false}, {"caf\xc3\xa9", false},
  };
  for (const auto &[name, is_name] : rows) {
    EXPECT_EQ(store_is_name(name.c_str()), is_name) << name;
  }
}

TEST_F(Settings, RowsAreCountedByTheNamesOfTheirCells)
{
  const std::pair<const char *, int> rows[] = {
    {"port0", 0}, {"port07", 7}, {"port99", 99}, {"port100", 100}, {"port50000", -1}, {"port", -1}, {"7", 7},
    {"port4294967297", -1}, {"", -1},
  };
  for (const auto &[name, row] : rows) {
    EXPECT_EQ(settings_row(name), row) << name;
  }
  write_file("state/f", "#orv 2 1 -\n#table\na=1\nport3=1\nport12=\nport100=1\n");
  settings all;
  ASSERT_TRUE(settings_read("f", &all));
  EXPECT_EQ(settings_count_rows(&all), 101);
  settings_free(&all);
}
