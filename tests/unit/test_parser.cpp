// The template parser: a text literal as template, and the items that it gives
// or the message that it must give.

#include "orv_parser.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string.h>
#include <string>
#include <sys/stat.h>

#include "orv_error.h"
#include "orv_guard.h"

namespace
{
using std::string;
namespace fs = std::filesystem;

using Header = std::unique_ptr<pt_header, orv_releaser<orv_free_header>>;
using Body = std::unique_ptr<pt_body_item, orv_releaser<orv_free_body>>;

// A template called /.../form, or as the test wants, in a folder of its own.
class Parser : public ::testing::Test
{
protected:
  fs::path folder;

  void SetUp() override
  {
    string name = fs::temp_directory_path() / "parser.XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(name.data()));
    folder = name;
    orv_fatal_no_exit = 1;
  }
  void TearDown() override
  {
    fs::remove_all(folder);
  }

  Header header(const string &text, const string &form = "form",
                const char *subitem = nullptr)
  {
    string path = folder / form;
    std::ofstream(path, std::ios::binary) << text;
    orv_error_msg = nullptr;
    string copy = subitem != nullptr ? subitem : "";
    return Header(orv_parse_header(path.data(),
                                   subitem != nullptr ? copy.data() : nullptr));
  }
};

string message()
{
  return orv_error_msg != nullptr ? orv_error_msg : "(no message)";
}

// `text` with line ends made visible; nothing when it is absent.
string shown(const string &what, const char *text)
{
  if (text == nullptr) {
    return "";
  }
  string out = " " + what + "=";
  for (const char *p = text; *p != '\0'; p++) {
    out += *p == '\n' ? '|' : *p;
  }
  return out;
}

string shown(const string &what, int number, int unset)
{
  return number == unset ? "" : " " + what + "=" + std::to_string(number);
}

string shown(const pt_choices &choices)
{
  string out;
  for (html_form_list_opt *opt = choices.choices; opt; opt = opt->next) {
    out += string(" ") + opt->value + ":" + opt->label;
    EXPECT_EQ(0, opt->optgroup + opt->selected);
    EXPECT_EQ(opt->next == nullptr, choices.last == opt);
  }
  return out + shown("widest", choices.width, 0);
}

string shown(const pt_body_item &itm)
{
  static const char *const names[] = {
      "text",   "help",     "error",  "center",  "heading", "heading2", "field",
      "fixed",  "checkbox", "select", "iselect", "imenu",   "fmenu",    "table",
      "ftable", "if",       "ifnot",  "else",    "endif"};
  string out = std::to_string(itm.line_number) + " " + names[itm.type] +
               shown("name", itm.name) + shown("column", itm.column, -1) +
               shown("selector", itm.selector) + shown("label", itm.label) +
               shown("rlabel", itm.rlabel) + shown("prompt", itm.prompt) +
               shown("value", itm.value) + shown("help", itm.help.txt);
  switch (itm.type) {
  case PT_TEXT_FIELD:
  case PT_TEXT_FIXED:
    return out + shown("width", itm.field.width, 0) +
           shown("check", itm.field.check) +
           shown("check_label", itm.field.check_label) +
           shown("check_msg", itm.field.check_msg);
  case PT_CHECKBOX:
  case PT_SELECT:
  case PT_ISELECT:
  case PT_FORMS_MENU:
    return out + shown(itm.choices);
  case PT_TABLE:
  case PT_FTABLE:
    return out + shown("columns", itm.table.columns, 0) +
           shown("add", itm.table.add_rows, 0) +
           shown("rows", itm.table.fixed_rows, 0);
  default:
    return out + shown("text", itm.text.txt);
  }
}

// The whole body, an item a line, or the message that took its place.
string body_of(const Header &hdr)
{
  if (hdr == nullptr) {
    return message();
  }
  orv_error_msg = nullptr;
  const Body body(orv_parse_body(hdr.get()));
  string out;
  for (pt_body_item *itm = body.get(); itm != nullptr; itm = itm->next) {
    out += shown(*itm) + "\n";
  }
  return body == nullptr ? message() : out;
}
} // namespace

// clang-format off
TEST_F(Parser, ReadsAHeaderOrTellsWhatIsWrongWithIt)
{
  static const struct {
    const char *text;
    const char *expected; // the title, or the message
    const char *why;
  } cases[] = {
    {"TITLE Network\nbody\n", "Network", "letter case of keywords is ignored"},
    {"title\tPorts\nbody x\n", "Ports", "a tab separates"},
    {"title Port setup # main\nbody#\n", "Port setup", "a comment is cut"},
    {"title Port $#$1 # $#$\nbody\n", "Port #1", "a written # is none"},
    {"title a #$ b\nbody\n", "a", "it takes a $ on either side"},
    {"title $|$  Port  $|$\nbody\n", "  Port  ", "guarded blanks stay"},
    {"title a\tb\r\nbody\n", "a b\r", "a carriage return is ordinary"},
    {"title $Q$ $f$ $$$ $5 $T$.\nbody\n", "$Q$ $f$ $$$ $5 .", "not tags"},
    {"title $S$$#\nbody\n", "$", "a lone # after a tag is a comment"},
    {"# c\n\n \tx\ntitle t\n\n x\n#\nbody\n", "t", "lines between keywords"},
    {"title # c\nbody\n", "", "an empty title is one"},
    {"title\ntitle x\nbody\n",
     "orv_parse_header: Second title keyword found", "and is not given twice"},
    {"title t\nREAD_script a\nread_script\nbody\n",
     "orv_parse_header: Second read_script keyword found", "a script neither"},
    {"help_mode\nhelp_mode x\ntitle t\nbody\n", "t", "a flag may be repeated"},
    {"title:N\nbody\n",
     "orv_parse_header: unknown keyword line 1 \"title:N\n\"", "not delimited"},
    {"\n#\ntitle t\nfield x\nbody\n",
     "orv_parse_header: unknown keyword line 4 \"field x\n\"", "a body's"},
    {"title t\nbody",
     "orv_parse_header: unknown keyword line 2 \"body\"", "no line end"},
    {"title t\nbody\r\n",
     "orv_parse_header: unknown keyword line 2 \"body\r\n\"", "CR is no end"},
    {"title t\n", "orv_parse_header: no body keyword found", "end of file"},
    {"", "orv_parse_header: no body keyword found", "an empty file"},
    {"read_script $S$x '$\nbody\n",
     "(path) contains no title", "a title is required"},
  };
  for (const auto &row : cases) {
    const Header hdr = header(row.text);
    string got = hdr != nullptr ? hdr->title : message();
    const size_t path = got.find(folder.string());
    if (path != string::npos) {
      EXPECT_EQ(0u, got.find("orv_parse_header: "));
      got = "(path)" + got.substr(path + (folder / "form").string().size());
    }
    EXPECT_EQ(row.expected, got) << row.why;
  }
}

TEST_F(Parser, ReadsABodyOrTellsWhatIsWrongWithIt)
{
  static const struct {
    const char *text; // from line 3 on
    const char *expected; // the items; a message without its common beginning
    const char *why;
  } cases[] = {
    {"FIELD hostname 30\nlabel Host name\ncheck word\n",
     "3 field name=hostname label=Host name width=30 check=word\n", "a field"},
    {"field x\tnone\n", "line 3. Bad field width", "no number"},
    {"\n\nfixed x 0\n", "line 5. Bad field width", "too small"},
    {"field x 99999999999999999999 9\n",
     "3 field name=x width=2147483647\n", "a number beyond all bounds"},
    {"field # x\n", "line 3. Item must have a name", "a field's name"},
    {"ftable\n", "line 3. Item must have a name", "a table's name"},
    {"field $F$\nrlabel r$#$\nprompt p\nvalue v\npart x\nitem_help h\n i\n\n",
     "3 field name=$F$ rlabel=r# prompt=p value=v help=h|i|\n", "attributes"},
    {"field x\nlabel\nlabel b\n", "line 5. Attribute label already set", ""},
    {"field x\nitem_help\nitem_help b\n",
     "line 5. Attribute item_help already set", "even if it was empty"},
    {"text a\nlabel b\n", "line 4. Attribute label not allowed", "no input"},
    {"value b\n", "line 3. Attribute value not allowed", "no item at all"},
    {"field x\nif y\nitem_help b\n",
     "line 5. Attribute item_help not allowed", "the condition ended them"},
    {"fixed x\ncheck word\n",
     "line 4. Can only set check for text field entries", ""},
    {"check word\n", "line 3. Can only set check for text field entries", ""},
    {"field x\ncheck a\ncheck b\n", "line 5. Attribute check already set", ""},
    {"field x\ncheck_msg l  A $F$ b\n",
     "3 field name=x check_label=l check_msg=A $F$ b\n", "not substituted"},
    {"field x\ncheck_msg l\n", "3 field name=x check_label=l\n", "no message"},
    {"field x\ncheck_msg\ncheck_msg l m\n",
     "line 5. Attribute check_label already set", "even if it was empty"},
    {"checkbox x\ncheck_msg l m\n",
     "line 4. Can only set check_msg for text field entries", ""},
    {"select x y\nchoice a First one\nchoice $#$b  $|$longer$|$ # c\n",
     "3 select name=x a:First one #b:longer widest=12\n", "choices in order"},
    {"fmenu x\nchoice a b\nprompt p\n", "3 fmenu prompt=p a:b widest=1\n", ""},
    {"select x\nchoice a\n",
     "line 4. Choice requires selector and description", ""},
    {"checkbox x\nchoice a b\n", "line 4. Choice not allowed here", ""},
    {"choice a b\n", "line 3. Choice not allowed here", "no item at all"},
    {"iselect port\nimenu port  my ports\n",
     "3 iselect name=port selector=port\n"
     "4 imenu name=port selector=my ports\n", "selectors"},
    {"table r 3 2\nfield a\nlabel l\nselect b\nchoice c d\npart\ncheckbox e\n"
     "fixed f\n",
     "3 table name=r columns=3 add=2\n4 field name=a column=0 label=l\n"
     "6 select name=b column=1 c:d widest=1\n9 checkbox name=e column=2\n"
     "10 fixed name=f\n", "the cells of a table and what follows it"},
    {"table r 1 0\nfixed a\nftable s 1 9x\nfixed b\nftable t 20x\n",
     "Too few items for table.20 remain to be collected", "leading numbers"},
    {"table r 1 0\nfixed a\nftable s 1 9x\nfixed b\nftable t 1\nfixed c\n",
     "3 table name=r columns=1 add=1\n4 fixed name=a column=0\n"
     "5 ftable name=s columns=1 rows=9\n6 fixed name=b column=0\n"
     "7 ftable name=t columns=1\n8 fixed name=c column=0\n", "row counts"},
    {"ftable r 3 -1\n", "line 3. Bad number of rows", ""},
    {"table r 21\n", "line 3. Bad column number", "too many"},
    {"table r 0 1\n", "line 3. Bad column number", "too few"},
    {"table r\n", "line 3. Bad column number", "none"},
    {"table r 3\nfield a\nfield b\n",
     "Too few items for table.1 remain to be collected", "end of file"},
    {"table r 2\nfield a\ntext b\n", "line 5. Item not allowed in table", ""},
    {"table r 2\niselect a\n", "line 4. Item not allowed in table", ""},
    {"ftable r 2\ntable b 1\n", "line 4. Item not allowed in table", ""},
    {"text Hello\n world\n\nhelp\n#\n\n\ta $#$1 # c\n  $|$ b\n# c\n c\nerror\n",
     "3 text text=Hello|world|\n6 help text=a #1| b||c\n13 error text=\n",
     "multi-line texts"},
    {"center a\ncentre b\nheading c\nheading2 d\nif e\nelse f\nendif g\n"
     "ifnot h\n",
     "3 center text=a\n4 center text=b\n5 heading text=c\n6 heading2 text=d\n"
     "7 if text=e\n8 else\n9 endif\n10 ifnot text=h\n", "one-line items"},
    {"ifx y\n", "unknown keyword line 3 \"ifx y\n\"", "no such item"},
    {"text a\ntitle b\n", "unknown keyword line 4 \"title b\n\"", "a header's"},
    {"part\n\n", "(no message)", "a body without items"},
  };
  for (const auto &row : cases) {
    string got = body_of(header(string("title T\nbody\n") + row.text));
    if (got.rfind("orv_parse_body: ", 0) == 0) {
      got.erase(0, strlen("orv_parse_body: "));
    }
    EXPECT_EQ(row.expected, got) << row.text << row.why;
  }
}

TEST_F(Parser, QuotesWhatARequestChoosesInScriptLinesAlone)
{
  static const struct {
    const char *form;
    const char *subitem;
    const char *lines;
    const char *expected; // the read script with "%" for the folder, or message
    const char *why;
  } cases[] = {
    {"net", nullptr, "title t\n", "%/net.sh --read %/net ", "the default"},
    {"net", "a b", "title t\n", "%/net.sh --read %/net 'a b'", "quoted"},
    {"n$(x)", "'", "title t\n", "'%/n$(x)'.sh --read '%/n$(x)' ''\\'''",
     "every value of a default"},
    {"f", "\"", "read_script x  \"$S$\" '$S$'\ntitle t\n", "x  \"\"'\"'\"\" '''\"'''",
     "each for its place"},
    {"f", ";", "title a; $|$\nread_script x $T$$#$$|$ $Q$\n", "x a; # $Q$",
     "the author's own title is text"},
    {"f", "e", "title Port $S$\nread_script x $T$\n", "x 'Port e'",
     "a title that shows a value is a value"},
    {"f", "e", "title $T$a b\nread_script x $T$\n", "x a b", "no longer"},
    {"a b", nullptr, "read_script x \\$S$$F$\ntitle t\n",
     "Cannot quote a value in script command \"x \\$S$$F$\"", "nothing"},
    {"a b", "e", "read_script x \\$S$$F$\ntitle t\n", "x \\e'%/a b'",
     "a plain value"},
    {"f", ";", "read_script x $T$ y\ntitle $S$\n", "x  y", "no title yet"},
    {"f", ";", "title $S$\nread_script x \"$(y $S$)\" # c\n",
     "Cannot quote a value in script command \"x \"$(y $S$)\"\"", "refused"},
    {"f", "e-1", "title t\nread_script x $(y $S$)\n", "x $(y e-1)", "plain"},
  };
  for (const auto &row : cases) {
    const string text = string(row.lines) + "body\n";
    const Header hdr = header(text, row.form, row.subitem);
    string got = hdr != nullptr ? hdr->read_script : message();
    for (size_t at; (at = got.find(folder.string())) != string::npos;) {
      got.replace(at, folder.string().size(), "%");
    }
    EXPECT_EQ(row.expected, got) << row.why;
  }
}
// clang-format on

TEST_F(Parser, FillsEveryFieldOfAHeader)
{
  Header hdr = header("title t\nexpert_mode\nno_header\nwrite_script w $S$\n"
                      "body\nimenu x\nlabel abc\nfmenu\nlabel a\nprompt abcd\n",
                      "form", "s;");
  ASSERT_NE(nullptr, hdr) << message();
  const string path = folder / "form";
  EXPECT_EQ(path, hdr->name);
  EXPECT_EQ(path + ".sh --check " + path + " 's;'", hdr->check_script);
  EXPECT_STREQ("w 's;'", hdr->write_script);
  EXPECT_EQ(path + ".sh --navbar " + path + " 's;'", hdr->navbar_script);
  EXPECT_EQ(5, hdr->start_body.line_number);
  EXPECT_EQ(1010, hdr->expert_mode * 1000 + hdr->help_mode * 100 +
                      hdr->no_header * 10 + hdr->no_footer);
  hdr->has_input_fields = 1;
  hdr->llabel_max = 99;
  EXPECT_NE("(no message)", body_of(hdr));
  EXPECT_EQ(3, hdr->llabel_max);
  EXPECT_EQ(0, hdr->has_input_fields);
  for (const char *input :
       {"field", "fixed", "select", "checkbox", "iselect"}) {
    hdr = header("title t\nhelp_mode\nno_footer\nnavbar_script\n"
                 "check_script c\nbody\nfmenu\n" +
                 string(input) + " x\ntext\n");
    ASSERT_NE(nullptr, hdr) << message();
    EXPECT_EQ("7 fmenu\n", body_of(hdr).substr(0, 8));
    EXPECT_EQ(1, hdr->has_input_fields) << input;
    EXPECT_EQ(101, hdr->expert_mode * 1000 + hdr->help_mode * 100 +
                       hdr->no_header * 10 + hdr->no_footer);
    EXPECT_EQ(path + ".sh --write " + path + " ", hdr->write_script);
    EXPECT_STREQ("", hdr->navbar_script);
    EXPECT_STREQ("c", hdr->check_script);
  }
}

TEST_F(Parser, TakesOnlyRegularFilesForTemplates)
{
  mkfifo((folder / "pipe").c_str(), 0600);
  for (string path : {folder / "none", folder / "pipe", folder,
                      fs::path("/dev/zero"), fs::path("nosuch")}) {
    orv_error_msg = nullptr;
    EXPECT_EQ(nullptr, orv_parse_header(path.data(), nullptr));
    if (path == "nosuch") {
      EXPECT_EQ(0u, message().find("Cannot find/read file "));
      EXPECT_NE(string::npos, message().find("/templates/nosuch.tpl"));
    } else {
      EXPECT_EQ("Cannot find/read file " + path, message());
    }
  }
}

TEST_F(Parser, ExpandsChoicesWithWhatTheLatestHeaderLeft)
{
  Header first = header("title A\nbody\niselect x\n", "a", "one");
  Header second = header("\ntitle B\nbody\ntext\n", "b", "two");
  const Body body(orv_parse_body(first.get()));
  ASSERT_NE(nullptr, body) << message();
  EXPECT_EQ(3, body->line_number);
  const auto choice = [&] {
    string value = "$F$,$S$";
    string text = "$T$!";
    iselect_setup(body.get());
    EXPECT_EQ(nullptr, body->choices.choices);
    iselect_entry(body.get(), value.data(), nullptr, text.data());
    return shown(body->choices);
  };
  const string expected = " " + (folder / "b").string() + ",two:B! widest=4";
  EXPECT_EQ(expected, choice());
  second.reset();
  first.reset();
  EXPECT_EQ(expected, choice()) << "neither header is needed any more";
  EXPECT_EQ(nullptr, header("title C\n", "c"));
  EXPECT_EQ(" " + (folder / "c").string() + ",:C! widest=4", choice());
}

TEST_F(Parser, ReturnsToTheBodyLineOrTellsThatItIsGone)
{
  const Header hdr = header("title t\nbody\ntext a\nbody #\n");
  ASSERT_NE(nullptr, hdr) << message();
  const string unknown = "orv_parse_body: unknown keyword line 4 \"body #\n\"";
  EXPECT_EQ(unknown, body_of(hdr));
  EXPECT_EQ(unknown, body_of(hdr)) << "the same when read again";
  hdr->start_body.line_number = 0;
  EXPECT_EQ("(no message)", body_of(hdr)) << "the other body line has no items";
  EXPECT_EQ(4, hdr->start_body.line_number);
  hdr->start_body.line_number = 0;
  EXPECT_EQ("orv_parse_body: failed to locate body keyword", body_of(hdr));
  rewind(hdr->fp);
  EXPECT_EQ(0, fgetpos(hdr->fp, &hdr->start_body.offset));
  hdr->start_body.line_number = 2;
  EXPECT_EQ("orv_parse_body: unexpected keyword for body", body_of(hdr));
}

TEST_F(Parser, ReadsALongLineInPiecesAndANulByteAsItsEnd)
{
  const string fits(248 - strlen("title "), 'x');
  const string unknown = "orv_parse_header: unknown keyword line ";
  const struct {
    string text;
    string expected; // title and line of the body, or the message
  } cases[] = {
      {"title " + fits + "\nbody\n", fits + " 2"},
      {"title " + fits + "x\nbody\n", fits + "x 3"},
      {"title " + fits + "xy\nbody\n", unknown + "2 \"y\n\""},
      {"title " + fits + "x y\nbody\n", fits + "x 3"},
      {"title a" + string(1000000, ' ') + "\nbody\n", "a 4018"},
      {"title a" + string(1000000, 'b') + "\nbody\n",
       (unknown + "2 \"" + string(249, 'b')).substr(0, 249)},
      {string("title a\0b\nbody\n", 15), "a 2"},
      {string("title a\n\0body\nbody\n", 19), unknown + "2 \"\""},
      {string("title a\nbody\0\n", 14), unknown + "2 \"body\""},
      {string("title\0 a\nbody\n", 14), unknown + "1 \"title\""},
      {string("\0", 1), unknown + "1 \"\""},
  };
  for (const auto &row : cases) {
    const Header hdr = header(row.text);
    EXPECT_EQ(row.expected,
              hdr == nullptr
                  ? message()
                  : hdr->title +
                        (" " + std::to_string(hdr->start_body.line_number)));
  }
}

TEST_F(Parser, KeepsATextOfAnyLengthAndItsMeasures)
{
  string lines;
  string expected;
  for (int i = 0; i < 2000; i++) {
    const string line(static_cast<size_t>(i % 247), 'x');
    lines += " " + line + "\n";
    expected += expected.empty() && line.empty() ? "" : "\n" + line;
  }
  const Header hdr = header("title t\nbody\ntext a $S$\n" + lines, "form",
                            string(5000, 's').c_str());
  ASSERT_NE(nullptr, hdr) << message();
  const Body body(orv_parse_body(hdr.get()));
  ASSERT_NE(nullptr, body) << message();
  expected = "a " + string(5000, 's') + "\n" + expected;
  EXPECT_EQ(expected, body->text.txt);
  EXPECT_EQ(expected.size(), body->text.len);
  EXPECT_LT(body->text.len, body->text.buf_len);
}
