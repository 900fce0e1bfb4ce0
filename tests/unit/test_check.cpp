// The check driver and every named check: a template, a request's values, and
// the resulting messages in err_vars.

#include "orv_check.h"

#include <map>
#include <netdb.h>

#include "form_fixture.h"

// Faults of the template, whose messages the template cannot replace.
static const string bad_name = "Bad check name in template";
static const string bad_regex = "Bad regular expression in check options";
static const string extras = "Extras after template range options ?";
static const string no_type = "Check options don't allow any type of address";
static const string unknown = "Unknown option in file check";
static const auto own = {bad_name, bad_regex, extras, no_type, unknown};

class Checks : public Forms
{
protected:
  // The messages for these variables, the last record first.
  string errors(const string &body)
  {
    load("error_stale=of the request before");
    const int passes = orv_check_vars(items(body).get());
    string all;
    for (const orv_var *var = err_vars; var != nullptr; var = var->next) {
      all += (all.empty() ? "" : "; ") + string(var->name) + "=" + var->u_value;
    }
    EXPECT_EQ(passes, all.empty() ? 1 : 0);
    return all;
  }

  void expect(const string &item, string value, const string &message)
  {
    if (value.rfind("@/", 0) == 0) {
      value.replace(0, 1, dir);
    }
    forget();
    orv_set_var("f", o_orig, text(value), 0);
    EXPECT_EQ(errors(item),
              message.empty() ? "" : "msg=1 errors found; f=" + message)
        << item << "\nof \"" << value << '"';
    EXPECT_STREQ(orv_get_var(&cfg_vars, "f", o_best), value.c_str());
  }

  // Values that pass, and values that get the message.  "@/" at the start of a
  // value is the test's folder.
  using Row =
      std::tuple<string, std::vector<string>, std::vector<string>, string>;

  // A template's own message replaces every one about a text field's value.
  void run(const std::vector<Row> &rows, const string &field = "field f;check ")
  {
    for (const auto &[item, good, bad, message] : rows) {
      for (const string &value : good) {
        expect(field + item, value, "");
      }
      for (const string &value : bad) {
        expect(field + item, value, message);
        if (!field.empty()) {
          const bool kept = std::count(own.begin(), own.end(), message) > 0;
          expect(field + item + ";check_msg f Own", value,
                 kept ? message : "Own");
        }
      }
    }
  }
};

// clang-format off

TEST_F(Checks, TextFieldsFollowTheRulesThatHoldForEveryValue)
{
  const string empty = "Empty input where parameter is required";
  const string forbidden = "Characters \"$\\` not allowed in input";
  const string unprintable = "Only printable characters allowed in input";
  run({
    {"word", {"a"}, {"", " \t "}, empty},
    {"$|$  nullok   word", {"", "\t", "a"}, {}, ""},
    {"nullok word", {}, {"a.b"}, "Illegal character in word"},
    {"nullokay", {}, {""}, empty}, {"numbe", {}, {"1"}, bad_name},
    {"NumBer 1 10", {"7"}, {}, ""},
    {"text", {"!#%&'()*+,-./:;<=>?@[]^_{|} ~"}, {}, ""},
    {"text", {}, {"\"", "$", "\\", "a`", "$\x7f"}, forbidden},
    {"text", {}, {"\r$", "\x7f", "caf\xc3\xa9"}, unprintable},
  });

  orv_set_var("f", o_orig, text("\t x\ty \t"), 0);
  EXPECT_EQ(errors("field f;check text"), "");
  EXPECT_EQ(stored(), "f{o=x y}") << "normalised where it lies";
}

TEST_F(Checks, ValuesHaveTheRequestedForm)
{
  const string range = "Number out of range ";
  run({
    {"word", {"ab-c_9", "Z"}, {"ab cd", "a b.c"}, "Single word is required"},
    {"keyword on  off", {"ON", "Off"}, {"o", "offline", "on off"},
     "Unknown keyword entered"},
    {"regex ^a  b$", {"a  b"}, {"A  B"}, "Incorrect format"},
    {"regex (", {}, {"x"}, bad_regex},
    {"email", {"a.b+c-d_e@x", "@"}, {"a b@c@d"},
     "Illegal character in email address"},
    {"email", {}, {"a@b@c"}, "Too many @s in email address"},
    {"decimal 7 42", {"7", "42", "007"}, {"6", "43"}, range + "7..42"},
    {"decimal", {"5"}, {"0x2A", "1 2", "ten"}, "Badly formed number"},
    {"decimal 1 10 x", {}, {"5"}, extras},
    {"decimal 0x10 020", {"16"}, {"20"}, range + "16..16"},
    {"decimal 2147483647 4294967295", {"99999999999999999999"}, {}, ""},
    {"signed 10 -10", {"-10", "+10"}, {"-11"}, range + "-10..10"},
    {"signed -2147483648 -2147483647", {"-2147483648"}, {"0"},
     "Number out of range -2147483648..-21474"}, // cut to 39 characters
    {"real 10", {"-3", "1e1", "nan"}, {"10.5"}, range + "0.000000..10.000000"},
    {"real 5 1", {"5"}, {"0.5", "6"}, range + "1.000000..5.000000"},
    {"real", {"-inf", "0x1p3"}, {"1e999", "1e-999"}, "Invalid real number"},
  });
  load("f=1e301");
  EXPECT_EQ(errors("field f;check real 1e300").size(),
            strlen("msg=1 errors found; f=") + 99);
}

TEST_F(Checks, AddressesAndNamesAreRecognised)
{
  const string bad = "Invalid address", huge = "/99999999999999999999";
  const string bits = "Invalid CIDR label or number of bits after /";
  const string format =
    "Bad format number for CIDR label or netmask length after the /";
  const string service = "Not a valid port number or service name";
  const servent *known = getservent(); // a small system has none
  run({
    {"ipaddr no ipv4only", {"1.2.3.4"}, {"1.2.3.4/24", "::1", "a"}, bad},
    {"ipaddr dns cidr", {}, {"a", "1.2.3.4"}, no_type},
    {"ipaddr ipv4 cidr", {"1.2.3.4/32", "1.2.3.4/"},
     {"1.2.3.4/33", "1.2.3.4" + huge}, bits},
    {"ipaddr ipv4 cidr", {}, {"x/y", "x/-1", "1.2.3.4/8/9"}, format},
    {"ipaddr ipv6 cidr", {"fe80::/128"}, {"fe80::/129"}, bits},
    {"ipaddr hostname cidr", {"1.2.3.4/128"}, {"a/129"}, bits},
    {"ipaddr ipv4 hostname cidr", {}, {"1.2.3.4/33"}, bits},
    {"ipaddr ipv6 hostname", {"::1", string(67, 'a')},
     {string(68, 'a'), "-a", "a_b"}, bad},
    {"ipservice", {"0", "65535", known != nullptr ? known->s_name : "80"},
     {"65536", "-1", "4294967376", "80x"}, service},
  });
}

TEST_F(Checks, FilesAndCommandsAreLookedUp)
{
  umask(0);
  ASSERT_EQ(mknod("plain", S_IFREG | 0644, 0), 0);
  ASSERT_EQ(mknod("groups", S_IFREG | 0655, 0), 0); // its owner cannot run it
  ASSERT_EQ(mknod("run", S_IFREG | 0755, 0), 0);
  ASSERT_EQ(mknod("sock", S_IFSOCK | 0600, 0), 0);
  ASSERT_EQ(mkdir("sub", 0755), 0);
  ASSERT_EQ(symlink("sub", "link"), 0);
  ASSERT_EQ(mknod("late", S_IFREG | 0755, 0), 0);
  date_late("late");

  const string parent = "Parent directory does not exist";
  run({
    {"socket", {"@/sock"}, {"@/none"}, "Socket does not exist"},
    {"directory", {"@/link"}, {"@/run"}, "File is not a directory"},
    {"file", {}, {"/a/.x", "//."}, "/. not allowed in file name"},
    {"file", {}, {"/a//x"}, "Please remove // from file name"},
    {"file x", {"@/run", "@/late"}, {"@/groups", "@/sub"}, "File is not an executable"},
    {"file S", {"@/sock"}, {"@/run"}, "File is not a socket"},
    {"file s", {"@/new"}, {"@/sock", "@/run"}, unknown},
    {"file", {"/"}, {"/no-such"}, "Missing / in file name"},
    {"file", {}, {"@/none/new"}, parent},
    {"file", {}, {"@/plain/new"}, "Bad directory in file name"},
    {"file", {}, {"@/new/"}, "File cannot be a directory"},
    {"file d", {"@/new/"}, {"@/none/new/", "/new/"}, parent},
    {"path", {"/x", "/" + string(4095, 'a')}, {"/", "/" + string(4096, 'a')},
     "Path name too short/long"},
    {"path", {}, {"/a/.b", "/."}, "/. not allowed in path name"},
    {"path Parent_exists", {}, {"/x"}, unknown},
    {"path parent_exists", {"@/x", "/x"}, {"@/none/x"}, parent},
    {"path parent_exists", {}, {"@/plain/x"},
     "An existing file stops parent directory from being created"},
    {"path grandparent_exists", {"@/none/x", "/a/b", "/a"}, {"@/none/x/y"},
     parent},
    {"command", {"sh -c true", "sh ./x", "@/run -l"}, {"@/plain", "@/no x"},
     "Command is not executable"},
    {"command", {}, {"./x", "bin/sh"}, "Relative command paths not allowed"},
  });
}

TEST_F(Checks, BoxesAndSelectionsAcceptOnlyTheirValues)
{
  const string select = "select f;choice a A;choice b B";
  run({
    {"checkbox f", {"TRUE", "False", "0", "1", ""}, {"on", "yes", "01"},
     "Checkbox must be True or False"},
    {select, {"a", "b"}, {"c", "B"}, "Select value failed to match choices"},
    {select, {}, {""}, "Select returned a null value ?"},
    {"iselect f", {"any"}, {""}, "iSelect returned a null value ?"},
    {"fixed f", {"", "$"}, {}, ""},
  }, "");
}

TEST_F(Checks, MessagesGoToTheRecordOfTheirField)
{
  load("port=x");
  string body;
  const char *const steps[][2] = { // items added, all messages then
    {"field port;check number;check_msg portErr Use a number;field free;",
     "msg=1 errors found; portErr=Use a number"},
    // the last message stays
    {"field port;label for tables;check decimal;check_msg portErr;",
     "msg=2 errors found; portErr=Badly formed number"},
    {"field free;check word;check_msg msg No summary",
     "msg=No summary; portErr=Badly formed number"},
  };
  for (const auto &[added, messages] : steps) {
    body += added;
    EXPECT_EQ(errors(body), messages);
  }
  EXPECT_EQ(orv_check_vars(nullptr), 1);
  EXPECT_EQ(err_vars, nullptr);
}

TEST_F(Checks, OnlyDisplayedSectionsRequireInput)
{
  const std::map<char, string> kinds = {
    {'1', "if $V:mode$"}, {'0', "if No"}, {'n', "ifnot yes"}, {'e', "else"},
    {'.', "endif"}, {'f', "field f;check word"}, {'b', "field b;check word"},
    {'s', "select s"}, {'i', "iselect i"},
  };
  const string most(20, '1'), ends(20, '.');
  const char *const under = "Condition stack underflow";
  const char *const over = "Condition stack overflow";
  const std::tuple<string, std::vector<string>, const char *> rows[] = {
    {"", {"0fsi.", "1ei.", "nf.", "01f.f.", "01eef..", "0", most + ends},
     nullptr},
    {"msg=1", {"0b.", "0f.s", "0ef.", "nef.", "1f.", "10ef.."}, nullptr},
    {"msg=2", {"1f.f"}, nullptr}, {"msg=1", {"e"}, under},
    {"msg=2", {".f", most + "1" + ends + "."}, under},
    {"msg=2", {most + "0f" + ends}, over},
  };
  load("mode=on;b=`");
  for (const auto &[expected, bodies, fatal] : rows) {
    for (const string &letters : bodies) {
      string body;
      for (const char item : letters) {
        body += kinds.at(item) + ";";
      }
      EXPECT_EQ(errors(body).substr(0, 5), expected) << letters;
      EXPECT_STREQ(orv_get_var(&err_vars, "fatal", o_best), fatal);
    }
  }
}

TEST_F(Checks, TablesAreCheckedRowByRow)
{
  const string empty = "Empty input where parameter is required";
  const string label(97, 'L'), stem(50, 'n');
  const string port = "field port;label Port;check decimal;checkbox box;"
                      "select pick;choice a A;field behind;check nullok word";
  const string cases[][3] = { // variables, table, messages
    {"port0=1;port2=x", "0;" + port, ""},
    {"port0=1;port1=x", "1;" + port, ""},
    {"port0=1;port1=x;port2=-1", "0;" + port,
     "msg=2 errors found; port=Port: Number is not allowed to be signed"},
    // Any value makes a row, except a selection's.
    {"port0=1;box1=on;port2=x", "0;" + port, "msg=3 errors found; "
     "box=Checkbox must be True or False; port=Port: Badly formed number"},
    {"port1=1", "3;" + port, "msg=2 errors found; port=Port: " + empty},
    // A long label leaves no room for the message, a long name none for a row
    // number.
    {stem + "10=a.b", "11;field " + stem + ";label " + label +
     ";check nullok word;checkbox a;checkbox b;field behind;check word",
     "msg=2 errors found; behind=" + empty + "; " + stem + "=" + label + ": "},
  };
  for (const auto &[values, table, expected] : cases) {
    forget();
    load("pick0=a;pick1=a;pick2=a;" + values);
    EXPECT_EQ(errors("ftable t 3 " + table), expected) << values;
  }
  // The long name loses its row number, so every row has a value.
  const string name(52, 'n');
  load(name + "=a.b");
  const Items endless = items("table t 1;field " + name + ";check word");
  endless->table.columns = 2;
  orv_check_vars(endless.get());
  EXPECT_EQ(orv_get_var(&err_vars, "msg", o_best),
            std::to_string(ORV_ROWS_MAX) + " errors found");
}

// The cells that the page marks, in the order of their names.
static string marked()
{
  std::vector<string> names;
  for (const orv_var *var = failed_cells; var != nullptr; var = var->next) {
    names.push_back(var->name);
  }
  std::sort(names.begin(), names.end());
  string all;
  for (const string &name : names) {
    all += (all.empty() ? "" : " ") + name;
  }
  return all;
}

TEST_F(Checks, CellsThatFailAreKeptBesideTheVariables)
{
  const string columns = ";field a;check word;select c;choice 1 One";
  load("a0=x y;c1=1;a2=1");
  const string before = stored();
  errors("field f;check word;ftable t 2 3" + columns);
  EXPECT_EQ(marked(), "a0 a1 c0 c2");
  orv_free_vars(&err_vars);
  EXPECT_EQ(stored(), before);
  forget();
  load("a0=x;c0=1");
  orv_find_var(&failed_cells, "a0", 1); // from the walk before
  EXPECT_EQ(errors("table t 2" + columns), "");
  EXPECT_EQ(marked(), "");
}

TEST_F(Checks, AScriptMarksACellByAMessageUnderItsName)
{
  const string last = std::to_string(ORV_ROWS_MAX - 1);
  const string past = std::to_string(ORV_ROWS_MAX);
  // The script's output, the marked cells, the message of the column "port" and
  // whether it is only about those cells.
  const std::tuple<string, string, string, bool> rows[] = {
    {"error_port3=Taken", "port3", "Taken", true},
    {"error_port10=Ten;error_PORT9=Nine;error_port12=Dozen",
     "PORT9 port10 port12", "Nine", true},
    {"error_port=All;error_port2=Two", "port2", "All", true},
    {"error_port= ;error_port2=Two", "port2", "Two", true},
    {"error_port=All", "", "All", false},
    {"error_port2= ;error_other1=x;error_msg=x", "", "", false},
    {"error_port02=x;error_port+2=x;error_port-1=x;error_port2a=x;error_por2=x;"
     "error_port 2=x;error_port99999999999999999999=x;error_port" + past + "=x",
     "", "", false},
    {"error_port" + last + "=End", "port" + last, "End", true},
    {"error_field1=x", "", "", false},
  };
  const Items body = items("field field;table t 2;field port;field to");
  const pt_body_item *column = body->next->next;
  for (const auto &[said, cells, told, alone] : rows) {
    forget();
    load(said);
    orv_mark_cells(body.get());
    EXPECT_EQ(marked(), cells) << said;
    const char *text = orv_get_var(&err_vars, "port", o_best);
    EXPECT_EQ(text != nullptr ? text : "", told) << said;
    EXPECT_EQ(orv_column_is_marked(column), alone) << said;
  }
  // A check's record may have any name; then it does not belong to a cell.
  forget();
  errors("field f;check word;check_msg port1 No");
  orv_mark_cells(body.get());
  EXPECT_EQ(marked(), "");
}
