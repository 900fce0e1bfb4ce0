// The check driver and every named check, through orv_check_vars: a small body
// built by hand, values in cfg_vars, and the messages that err_vars then holds.

#include "orv_check.h"

#include <deque>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <netdb.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "orv_error.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_vars.h"

namespace
{

using std::string;

struct Body {
  std::deque<pt_body_item> items;

  pt_body_item &add(pt_type type, const char *name = nullptr)
  {
    pt_body_item &item = items.emplace_back();
    item.type = type;
    item.name = const_cast<char *>(name);
    if (items.size() > 1) {
      items[items.size() - 2].next = &item;
    }
    return item;
  }

  pt_body_item &add_field(const char *name, const char *check,
                          const char *label = nullptr,
                          const char *msg = nullptr)
  {
    pt_body_item &item = add(PT_TEXT_FIELD, name);
    item.field = {const_cast<char *>(check), const_cast<char *>(msg),
                  const_cast<char *>(label), 0};
    return item;
  }
};

string error_of(const string &name)
{
  const char *message = orv_get_var(&err_vars, name.c_str(), o_best);
  return message != nullptr ? message : "";
}

void set(const string &name, string value)
{
  orv_set_var(name.c_str(), o_best, value.data(), 0);
}

void expect_summary(Body &body, int errors)
{
  EXPECT_EQ(orv_check_vars(&body.items[0]), errors == 0 ? 1 : 0);
  const string msg = std::to_string(errors) + " errors found";
  EXPECT_EQ(error_of("msg"), errors == 0 ? "" : msg);
}

// Values that pass, and values that get the message.  A "@/" at a value's start
// is the test's folder.
struct Row {
  string check;
  std::vector<string> good;
  std::vector<string> bad;
  string message;
  string why;
};

class Checks : public ::testing::Test
{
protected:
  string dir = ::testing::TempDir() + "larkspur_check_XXXXXX";
  pt_type type = PT_TEXT_FIELD;

  void SetUp() override
  {
    orv_fatal_no_exit = 1;
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
  }

  void TearDown() override
  {
    std::filesystem::remove_all(dir);
  }

  // The message that the value gets, "" when it passes; `value` becomes what
  // the store then holds.
  string verdict(const string &check, string &value, const char *msg = nullptr)
  {
    char choices[][4] = {"a", "b c"};
    html_form_list_opt last = {nullptr, choices[1], 0, 0, nullptr};
    html_form_list_opt first = {nullptr, choices[0], 0, 0, &last};
    orv_free_vars(&cfg_vars);
    set("field", value);
    Body body;
    body.add_field("field", check.c_str(), nullptr, msg).type = type;
    if (type != PT_TEXT_FIELD) {
      body.items[0].choices = {&first, &last, 0};
    }
    const int passes = orv_check_vars(&body.items[0]);
    EXPECT_EQ(passes == 1, error_of("field").empty());
    value = orv_get_var(&cfg_vars, "field", o_best);
    return error_of("field");
  }

  void expect(const Row &row, string value, const string &message,
              const string &own_message)
  {
    SCOPED_TRACE(row.check + " of \"" + value + "\": " + row.why);
    if (value.substr(0, 2) == "@/") {
      value.replace(0, 1, dir);
    }
    const string before = value;
    EXPECT_EQ(verdict(row.check, value), message);
    EXPECT_EQ(value, before);
    EXPECT_EQ(verdict(row.check, value, "Own"), own_message);
  }

  // A template's own message replaces every message about a text field's
  // value, and no message about the template.
  void run(const std::vector<Row> &rows, const string &template_fault = "")
  {
    for (const Row &row : rows) {
      const bool kept = type != PT_TEXT_FIELD || row.message == template_fault;
      for (const string &value : row.good) {
        expect(row, value, "", "");
      }
      for (const string &value : row.bad) {
        expect(row, value, row.message, kept ? row.message : "Own");
      }
    }
  }
};

TEST_F(Checks, TextFieldsFollowTheRulesThatHoldForEveryValue)
{
  const string empty = "Empty input where parameter is required";
  const string forbidden = "Characters \"$\\` not allowed in input";
  const string unprintable = "Only printable characters allowed in input";
  const string bad_name = "Bad check name in template";
  // clang-format off
  run({
    {"word", {"a"}, {"", " \t "}, empty, "blank values"},
    {"  nullok   word", {"", "\t", "a"}, {}, "", "spaces around the words"},
    {"nullok word", {}, {"a.b"}, "Illegal character in word", "not blank"},
    {"NULLOK", {}, {""}, empty, "letter case counts"},
    {"nullokay", {}, {""}, empty, "the whole word counts"},
    {"nullok", {""}, {"a"}, bad_name, "looked up when not blank"},
    {"numbers", {}, {"1"}, bad_name, "longer than a check's name"},
    {"numbe", {}, {"1"}, bad_name, "shorter than a check's name"},
    {"number\t1", {}, {"1"}, bad_name, "only spaces end a name"},
    {"NumBer 1 10", {"7"}, {}, "", "letter case of a name"},
    {"text", {"!#%&'()*+,-./:;<=>?@[]^_{|} ~"},
             {"\"", "$", "\\", "a`", "$\n"}, forbidden, "each of the four"},
    {"text", {}, {"\n$", "\x7f", "caf\xc3\xa9"}, unprintable, "not ASCII's"},
  }, bad_name);
  // clang-format on
}

TEST_F(Checks, WordsKeywordsAndPatternsAreMatched)
{
  const string unknown = "Unknown keyword entered";
  const string format = "Incorrect format";
  const string bad_regex = "Bad regular expression in check options";
  const string bad_email = "Illegal character in email address";
  // clang-format off
  run({
    {"word", {"ab-c_9", "Z"}, {"ab cd", "a b.c"}, "Single word is required",
     "a space first"},
    {"word", {}, {"ab.cd e"}, "Illegal character in word", "a dot first"},
    {"keyword on  off auto", {"ON", "Auto"}, {"o", "offline", "on off"},
     unknown, "whole keywords in any letter case"},
    {"keyword", {}, {"on"}, unknown, "no keywords"},
    {"regex ^[0-9]+$", {"123"}, {"12a"}, format, "anchored"},
    {"regex [0-9]", {"12a"}, {"a"}, format, "matches anywhere"},
    {"regex ^a  b$", {"a  b"}, {"A  B"}, format, "the options as they stand"},
    {"iregex ^(yes|no)$", {"YES"}, {"YE"}, format, "letter case ignored"},
    {"regex (", {}, {"x"}, bad_regex, "no pattern"},
    {"email", {"a.b+c-d_e@x", "@"}, {"a b@c@d"}, bad_email, "judged first"},
    {"email", {}, {"ab"}, "Missing @ in email address", "none"},
    {"email", {}, {"a@b@c"}, "Too many @s in email address", "two"},
  }, bad_regex);
  // clang-format on
}

TEST_F(Checks, NumbersAreWellFormedAndInRange)
{
  const string sign = "Number is not allowed to be signed";
  const string form = "Badly formed number";
  const string real = "Invalid real number";
  const string extras = "Extras after template range options ?";
  const string range = "Number out of range ";
  // clang-format off
  run({
    {"decimal 7 42", {"42", "007"}, {"0x2A", "1 2", "ten"}, form, "digits"},
    {"decimal", {"5"}, {"+5", "-x"}, sign, "the sign comes first"},
    {"decimal 50", {"0", "50"}, {"51"}, range + "0..50", "the upper limit"},
    {"decimal -5", {}, {"0"}, range + "0..-5", "no limits swapped"},
    {"decimal 9 x", {"9"}, {"10"}, range + "0..9", "one number"},
    {"decimal x 9", {"10"}, {}, "", "no number, no range"},
    {"decimal 1 10 x", {}, {"5"}, extras, "something behind"},
    {"decimal 1 10 ", {}, {"5"}, extras, "a blank behind"},
    {"decimal 1 10x", {}, {"5x"}, form, "the value is judged first"},
    {"decimal 0x10 020", {"16"}, {"20"}, range + "16..16", "other bases"},
    {"decimal 2147483647 4294967295", {"99999999999999999999"}, {}, "",
     "values and limits end at 32 bits"},
    {"number 1 100", {"0x10", "0099"}, {"0X100"}, range + "1..100", "hex"},
    {"number", {}, {"0x", "ff"}, form, "0x and digits belong together"},
    {"signed 10 -10", {"-10", "+10"}, {"-11"}, range + "-10..10", "swapped"},
    {"signed -2147483648 -2147483647", {"-2147483648"}, {"0"},
     "Number out of range -2147483648..-21474", "cut to 39 characters"},
    {"real 10", {"-3", "1e1", "nan"}, {"10.5"},
     range + "0.000000..10.000000", "no lower limit"},
    {"real 5 1", {"5"}, {"0.5", "6"}, range + "1.000000..5.000000", "swapped"},
    {"real", {"-inf", "0x1p3"}, {"1e999", "1e-999", "1.5x"}, real, "too far"},
    {"real 1 2 ", {}, {"1"}, extras, "a blank behind"},
  }, extras);
  // clang-format on
  string value = "1e301";
  EXPECT_EQ(verdict("real 1e300", value).size(), 99u);
}

TEST_F(Checks, AddressesAndNamesAreRecognised)
{
  const string bad = "Invalid address";
  const string bits = "Invalid CIDR label or number of bits after /";
  const string format =
      "Bad format number for CIDR label or netmask length after the /";
  const string missing =
      "Missing CIDR label or netmask length.  Add trailing /number of bits ?";
  const string none = "Check options don't allow any type of address";
  const string service = "Not a valid port number or service name";
  const string huge = "/99999999999999999999";
  // clang-format off
  run({
    {"ipaddr ipv4", {"1.2.3.4"}, {"1.2.3.4/24", "::1", "a"}, bad, "alone"},
    {"ipaddr \tno ipv4only", {"1.2.3.4"}, {}, "", "known by its beginning"},
    {"ipaddr dns cidr", {}, {"a", "1.2.3.4"}, none, "no type of address"},
    {"ipaddr ipv4 cidr", {"1.2.3.4/32", "1.2.3.4/"},
     {"1.2.3.4/33", "1.2.3.4" + huge}, bits, "0 to 32"},
    {"ipaddr ipv4 cidr", {}, {"1.2.3.4"}, missing, "bits required"},
    {"ipaddr ipv4 cidr", {}, {"x/y", "x/-1", "1.2.3.4/8/9"}, format, "first"},
    {"ipaddr ipv4 cidr", {}, {"x" + huge}, bad, "address before bits"},
    {"ipaddr optcidr ipv4", {"1.2.3.4", "1.2.3.4/8"}, {"1.2.3.4/33"}, bits,
     "tested when present"},
    {"ipaddr ipv6 cidr", {"fe80::/128"}, {"fe80::/129"}, bits, "0 to 128"},
    {"ipaddr hostname cidr", {"1.2.3.4/128"}, {"a/129"}, bits, "0 to 128"},
    {"ipaddr ipv4 hostname cidr", {}, {"1.2.3.4/33"}, bits, "IPv4 first"},
    {"ipaddr ipv6 hostname", {"::1", string(67, 'a')},
     {string(68, 'a'), "-a", "a_b"}, bad, "names of letters, digits, . and -"},
    {"ipservice", {"0", "65535"}, {"65536", "-1", "4294967376", "80x"},
     service, "16 bits"},
    {"username", {"root"}, {"no-such"}, "Unknown username", "a user"},
    {"groupname", {"root"}, {"no-such"}, "Unknown groupname", "a group"},
  }, none);
  // clang-format on
  // Small systems have no service database.
  const servent *known = getservent();
  string name = known != nullptr ? known->s_name : "80";
  EXPECT_EQ(verdict("ipservice", name), "") << name;
  endservent();
}

TEST_F(Checks, FilesAndCommandsAreLookedUp)
{
  const std::pair<const char *, mode_t> nodes[] = {
      {"/plain", S_IFREG | 0644},
      {"/groups", S_IFREG | 0655}, // executable, but not for its owner
      {"/run", S_IFREG | 0755},
      {"/sock", S_IFSOCK | 0600},
  };
  umask(0);
  for (const auto &[name, mode] : nodes) {
    ASSERT_EQ(mknod((dir + name).c_str(), mode, 0), 0);
  }
  ASSERT_EQ(mkdir((dir + "/sub").c_str(), 0755), 0);
  ASSERT_EQ(symlink("sub", (dir + "/link").c_str()), 0);

  const string parent = "Parent directory does not exist";
  const string bad_parent = "Bad directory in file name";
  const string in_the_way =
      "An existing file stops parent directory from being created";
  const string length = "Path name too short/long";
  const string relative = "Relative command paths not allowed";
  const string unknown = "Unknown option in file check";
  // clang-format off
  run({
    {"socket", {"@/sock"}, {"@/plain"}, "File is not a socket", "a file"},
    {"socket", {}, {"@/none"}, "Socket does not exist", "nothing"},
    {"script", {"@/run"}, {"@/plain", "@/none"}, "Script is not executable",
     "no permission, nothing"},
    {"directory", {"@/link"}, {"@/run"}, "File is not a directory", "a file"},
    {"directory", {}, {"@/none"}, "Directory does not exist", "nothing"},

    {"file", {"@/plain"}, {"run"}, "File path must start with a /", "relative"},
    {"file", {}, {"/a/.x", "//."}, "/. not allowed in file name", "hidden"},
    {"file", {}, {"/a//x"}, "Please remove // from file name", "empty part"},
    {"file dir", {"@/link"}, {"@/run"}, "Path is not a directory", "d alone"},
    {"file f", {"@/run", "@/new"}, {"@/sub"}, "File is not a regular file",
     "a file, or none yet"},
    {"file x", {"@/run"}, {"@/groups", "@/sub"}, "File is not an executable",
     "the owner's permission, a file"},
    {"file S", {"@/sock"}, {"@/run"}, "File is not a socket", "a file"},
    {"file s", {"@/new"}, {"@/sock", "@/run"}, unknown, "if the file exists"},
    {"file", {"/"}, {"/no-such"}, "Missing / in file name", "in the root"},
    {"file", {}, {"@/none/new"}, parent, "nowhere to put it"},
    {"file", {}, {"@/plain/new"}, bad_parent, "below a file"},
    {"file", {}, {"@/new/"}, "File cannot be a directory", "ends in /"},
    {"file d", {"@/new/"}, {"@/none/new/", "/new/"}, parent, "ends in /"},
    {"file d", {}, {"@/plain/new/"}, bad_parent, "below a file"},

    {"path", {"@/none/none"}, {"x"}, "Path must start with a /", "relative"},
    {"path", {"/x", "/" + string(4095, 'a')}, {"/", "/" + string(4096, 'a')},
     length, "2 to 4096 characters"},
    {"path", {}, {"/a/.b", "/."}, "/. not allowed in path name", "hidden"},
    {"path", {}, {"/a//b"}, "// not allowed in path name", "empty part"},
    {"path Parent_exists", {}, {"/x"}, unknown, "letter case counts"},
    {"path parent_exists ", {}, {"/x"}, unknown, "the whole text counts"},
    {"path parent_exists", {"@/x", "/x"}, {"@/none/x"}, parent, "missing"},
    {"path parent_exists", {}, {"@/plain/x"}, in_the_way, "a file"},
    {"path grandparent_exists", {"@/none/x", "/a/b", "/a"}, {"@/none/x/y"},
     parent, "missing"},
    {"path grandparent_exists", {}, {"@/plain/x/y"}, in_the_way, "a file"},

    {"command", {"sh -c true", "sh ./x", "@/run -l"}, {"@/plain", "@/no x"},
     "Command is not executable", "the first word counts"},
    {"command", {}, {"./x", "bin/sh"}, relative, "no path of its own"},
    {"command", {}, {"no-such-cmd"}, "Command not found", "nowhere"},
  }, unknown);
  // clang-format on
}

TEST_F(Checks, ValuesAreNormalisedInTheStore)
{
  const string rows[][2] = {
      {"a\tb", "a b"}, {"  x  ", "x"}, {"\t x y\t", "x y"}, {" \t", " \t"}};
  for (const auto &[typed, stored] : rows) {
    string value = typed;
    EXPECT_EQ(verdict("nullok text", value), "");
    EXPECT_EQ(value, stored);
  }
}

TEST_F(Checks, MessagesGoToTheRecordOfTheirField)
{
  Body body;
  body.add_field("port", "number", "portErr", "Use a port number");
  body.add_field("free", nullptr);
  set("port", "x");
  set("error_stale", "of the request before");
  expect_summary(body, 1);
  EXPECT_EQ(error_of("portErr"), "Use a port number");
  EXPECT_EQ(error_of("port") + error_of("stale"), "");

  // The last message stays, be it longer or shorter than the one before.
  char label[] = "for tables alone";
  body.add_field("port", "bad", "portErr").label = label;
  expect_summary(body, 2);
  EXPECT_EQ(error_of("portErr"), "Bad check name in template");
  body.add_field("port", "decimal", "portErr");
  expect_summary(body, 3);
  EXPECT_EQ(error_of("portErr"), "Badly formed number");

  body.add_field("free", "word", "msg", "No summary");
  EXPECT_EQ(orv_check_vars(&body.items[0]), 0);
  EXPECT_EQ(error_of("msg"), "No summary");
  EXPECT_EQ(orv_check_vars(nullptr), 1);
  EXPECT_EQ(err_vars, nullptr);
}

TEST_F(Checks, BoxesAndSelectionsAreHeldToTheirValues)
{
  const string no_choice = "Select value failed to match choices";
  // clang-format off
  type = PT_CHECKBOX;
  run({{"", {"TRUE", "False", "0", "1", ""}, {"on", "yes", "01"},
        "Checkbox must be True or False", "check box"}});
  type = PT_SELECT;
  run({{"", {"a", "b c"}, {"b", "B C"}, no_choice, "compared as bytes"},
       {"", {}, {""}, "Select returned a null value ?", "select"}});
  type = PT_ISELECT;
  run({{"", {"any"}, {""}, "iSelect returned a null value ?", "iselect"}});
  type = PT_TEXT_FIXED;
  run({{"", {"", "$"}, {}, "", "nothing is entered there"}});
  // clang-format on
}

TEST_F(Checks, OnlyDisplayedSectionsRequireInput)
{
  const string most(20, '1'), ends(20, '.');
  char yes[] = "yes", no[] = "No", variable[] = "$V:mode$", bad[] = "bad";
  // clang-format off
  const std::map<char, std::pair<pt_type, char *>> kinds = {
    {'1', {PT_IF, yes}},         {'0', {PT_IF, no}},
    {'v', {PT_IF, variable}},    {'n', {PT_IFNOT, yes}},
    {'e', {PT_ELSE, nullptr}},   {'.', {PT_ENDIF, nullptr}},
    {'f', {PT_TEXT_FIELD, yes}}, {'b', {PT_TEXT_FIELD, bad}},
    {'s', {PT_SELECT, yes}},     {'i', {PT_ISELECT, yes}},
  };
  const struct {
    string items;
    int errors;
    string fatal;
  } rows[] = {
    {"1f.f", 2, ""},   {"0fsi.", 0, ""},   {"0b.", 1, ""},   {"0f.s", 1, ""},
    {"1ei.", 0, ""},   {"0ef.", 1, ""},    {"nf.", 0, ""},   {"nef.", 1, ""},
    {"01f.f.", 0, ""}, {"01eef..", 0, ""}, {"vf.", 1, ""},   {"10ef..", 1, ""},
    {"0", 0, ""},      {"e", 1, "under"},  {".f", 2, "under"},
    {most + ends, 0, ""},
    {most + "0f" + ends, 2, "over"},
    {most + "1" + ends + ".", 2, "under"},
  };
  // clang-format on
  set("mode", "on");
  set("bad", "`");
  for (const auto &row : rows) {
    SCOPED_TRACE(row.items);
    Body body;
    for (const char item : row.items) {
      const auto &[kind, text] = kinds.at(item);
      if (kind == PT_IF || kind == PT_IFNOT) {
        body.add(kind).text.txt = text;
      } else if (kind == PT_TEXT_FIELD) {
        body.add_field(text, "word");
      } else {
        body.add(kind, text);
      }
    }
    expect_summary(body, row.errors);
    EXPECT_EQ(error_of("fatal"),
              row.fatal.empty() ? "" : "Condition stack " + row.fatal + "flow");
  }
}

TEST_F(Checks, TablesAreCheckedRowByRow)
{
  // clang-format off
  const struct {
    int fixed_rows;
    std::vector<const char *> cells; // name, value, ...
    int errors;
    string port, why;
  } rows[] = {
    {0, {}, 0, "", "no rows"},
    {0, {"port0", "1", "port1", "x", "port2", "-1"}, 2,
     "Port: Number is not allowed to be signed", "the last message stays"},
    {0, {"port0", "1", "box1", "on", "port2", "x"}, 3,
     "Port: Badly formed number", "any value makes a row"},
    {0, {"port0", "1", "pick1", "a", "port2", "x"}, 0, "", "but a selection"},
    {3, {"port1", "1"}, 2, "Port: Empty input where parameter is required",
     "a fixed number of rows"},
    {1, {"port0", "1", "port1", "x"}, 0, "", "and no more"},
  };
  // clang-format on
  char value[] = "a", label[] = "Port";
  html_form_list_opt choice = {nullptr, value, 0, 0, nullptr};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.why);
    orv_free_vars(&cfg_vars);
    for (size_t at = 0; at < row.cells.size(); at += 2) {
      set(row.cells[at], row.cells[at + 1]);
    }
    Body body;
    body.add(PT_FTABLE, "table").table = {3, 0, row.fixed_rows};
    body.add_field("port", "decimal").label = label;
    body.add(PT_CHECKBOX, "box");
    body.add(PT_SELECT, "pick").choices = {&choice, &choice, 0};
    for (const char *name : {"pick0", "pick1", "pick2"}) {
      set(name, value);
    }
    expect_summary(body, row.errors);
    EXPECT_EQ(error_of("port"), row.port);
  }
}

TEST_F(Checks, LongNamesAndTablesCutShortEnd)
{
  string label(97, 'L');
  const string name(52, 'n'), stem(50, 'n');
  set(stem + "10", "a.b");
  Body body;
  body.add(PT_TABLE, "table").table = {1, 0, 11};
  body.add_field(stem.c_str(), "nullok word").label = label.data();
  body.add_field("behind", "word");
  expect_summary(body, 2); // row 10, and the field behind
  EXPECT_EQ(error_of(stem), label + ": ") << "cut to 99 characters";

  // The row's number is cut off the name, so that every row has a value.
  set(name, "a.b");
  Body endless;
  endless.add(PT_TABLE, "table").table = {2, 0, 0};
  endless.add_field(name.c_str(), "word");
  expect_summary(endless, ORV_ROWS_MAX);
}

} // namespace
