// The template parser: a template as text, and the items or the message that it
// must give.

#include "orv_keywords.h"
#include "orv_parser.h"

#include "form_fixture.h"

// The fields set in an item, with visible line ends.
static string shown(const pt_body_item &itm)
{
  string out = std::to_string(itm.line_number);
  pt_keyword row;
  for (size_t i = 0; orv_keyword(i, &row); i++) {
    if (row.kind == PT_ITEM_LINE && row.type == itm.type) {
      out += string(" ") + row.keyword;
      break;
    }
  }
  const auto add = [&](const string &what, const char *value) {
    out += value != nullptr ? " " + what + "=" + value : "";
  };
  const auto count = [&](const string &what, int number, int unset = 0) {
    out += number != unset ? " " + what + "=" + std::to_string(number) : "";
  };
  add("name", itm.name);
  count("column", itm.column, -1);
  for (const auto &[what, value] :
       {std::pair("selector", itm.selector), std::pair("label", itm.label),
        std::pair("rlabel", itm.rlabel), std::pair("prompt", itm.prompt),
        std::pair("value", itm.value), std::pair("help", itm.help.txt)}) {
    add(what, value);
  }
  if (itm.type == PT_TEXT_FIELD || itm.type == PT_TEXT_FIXED) {
    count("width", itm.field.width);
    add("check", itm.field.check);
    add("err", itm.field.check_label);
    add("msg", itm.field.check_msg);
  } else if (itm.type == PT_TABLE || itm.type == PT_FTABLE) {
    count("columns", itm.table.columns);
    count("add", itm.table.add_rows);
    count("rows", itm.table.fixed_rows);
  } else if (itm.type >= PT_CHECKBOX && itm.type <= PT_FORMS_MENU) {
    for (auto *opt = itm.choices.choices; opt != nullptr; opt = opt->next) {
      out += string(" ") + opt->value + ":" + opt->label;
    }
  } else {
    add("text", itm.text.txt);
  }
  std::replace(out.begin(), out.end(), '\n', '|');
  return out;
}

// All items of the body, or the message in their place.
static string shown(const Items &items)
{
  string out;
  for (auto *itm = items.get(); itm != nullptr; itm = itm->next) {
    out += (out.empty() ? "" : ";") + shown(*itm);
  }
  return out + message();
}

using Parser = Forms;

// clang-format off

TEST_F(Parser, ReadsAHeaderOrReportsItsFault)
{
  const string full(ORV_LINE_MAX - 1 - strlen("title "), 'x');
  const std::pair<string, string> cases[] = { // title and line of body, or fault
    {"TITLE Network\nbody\n", "Network 2"},
    {"no_footer\ntitle\tPorts\nbody x\n", "Ports 3"},
    {"title Port setup # main\nbody#\n", "Port setup 2"},
    {"title Port $#$1 # $#$\nbody\n", "Port #1 2"},
    {"title $|$  Port  $|$\nbody\n", "  Port   2"},
    {"title a\tb\r\nbody\n", "a b\r 2"},
    {"title $Q$ $f$ $$$ $5 $T$.\nbody\n", "$Q$ $f$ $$$ $5 . 2"},
    {"# c\n\n \tx\ntitle t\n\n x\n#\nbody\n", "t 8"},
    {"title\ntitle x\nbody\n", "!Second title keyword found"},
    {"\n#\ntitle t\nfield x\n", "!unknown keyword line 4 \"field x\n\""},
    {"title t\nbody", "!unknown keyword line 2 \"body\""},
    {"title t\n", "!no body keyword found"},
    {"read_script $S$x '$\nbody\n", "!" + dir + "/form contains no title"},
    // the rest of a long line counts as a line of its own
    {"title " + full + "\nbody\n", full + " 2"},
    {"title " + full + "x\nbody\n", full + "x 3"},
    {"title " + full + "xy\nbody\n", "!unknown keyword line 2 \"y\n\""},
  };
  for (const auto &[content, expected] : cases) {
    const Header hdr = parse(content);
    string found = message();
    if (hdr != nullptr) {
      found = hdr->title + (" " + std::to_string(hdr->start_body.line_number));
    }
    EXPECT_EQ(found, expected[0] == '!'
                     ? "orv_parse_header: " + expected.substr(1) : expected);
  }
}

TEST_F(Parser, ReadsABody)
{
  const string x240(240, 'x');
  const std::pair<string, string> cases[] = { // from line 3 on; its items
    {"FIELD hostname 30;label Host name;check word",
     "3 field name=hostname label=Host name width=30 check=word"},
    {"field $F$;rlabel r$#$;prompt p;value v;part x;item_help h; i;",
     "3 field name=$F$ rlabel=r# prompt=p value=v help=h|i|"},
    {"field x;check_msg l  A $F$ b", "3 field name=x err=l msg=A $F$ b"},
    {"select x y;choice a First one;choice $#$b  $|$longer$|$ # c",
     "3 select name=x a:First one #b:longer"},
    {"iselect port;imenu port  my ports",
     "3 iselect name=port selector=port;4 imenu name=port selector=my ports"},
    {"table r 3 2;field a;label l;select b;choice c d;part;checkbox e;fixed f",
     "3 table name=r columns=3 add=2;4 field name=a column=0 label=l;"
     "6 select name=b column=1 c:d;9 checkbox name=e column=2;"
     "10 fixed name=f"},
    {"table r 1 0;fixed a;ftable s 1 9x;fixed b;ftable t 1;fixed c",
     "3 table name=r columns=1 add=1;4 fixed name=a column=0;"
     "5 ftable name=s columns=1 rows=9;6 fixed name=b column=0;"
     "7 ftable name=t columns=1;8 fixed name=c column=0"},
    {"text Hello; world;;help;#;;\ta $#$1 # c;  $|$ b;# c; c;error",
     "3 text text=Hello|world|;6 help text=a #1| b||c;13 error text="},
    {"text " + x240 + "; " + x240 + "; b",
     "3 text text=" + x240 + "|" + x240 + "|b"},
    {"table r 20x;field a;field b",
     "!Too few items for table.18 remain to be collected"},
    {"text a;title b", "!unknown keyword line 4 \"title b\n\""},
  };
  for (const auto &[lines, expected] : cases) {
    EXPECT_EQ(shown(items(lines)),
              expected[0] == '!' ? "orv_parse_body: " + expected.substr(1)
                                 : expected) << lines;
  }
}

// The parser's message about an item's keyword.
static pt_keyword keyword(const string &name)
{
  pt_keyword row;
  size_t i = 0;
  while (orv_keyword(i, &row) && (row.kind != PT_ITEM_LINE || row.keyword != name)) {
    i++;
  }
  return row;
}

TEST_F(Parser, TakesEachItemWhereItBelongs)
{
  // item, whether it is allowed in a table, may have a label, can be submitted
  const std::tuple<const char *, bool, bool, int> rows[] = {
    {"text a",     false, false, 0}, {"help a",     false, false, 0},
    {"error a",    false, false, 0}, {"center a",   false, false, 0},
    {"centre a",   false, false, 0}, {"heading a",  false, false, 0},
    {"heading2 a", false, false, 0}, {"if a",       false, false, 0},
    {"ifnot a",    false, false, 0}, {"else",       false, false, 0},
    {"endif",      false, false, 0}, {"fmenu",      false, true,  0},
    {"imenu a",    false, true,  0}, {"iselect a",  false, true,  1},
    {"field a",    true,  true,  1}, {"fixed a",    true,  true,  1},
    {"select a",   true,  true,  1}, {"checkbox a", true,  true,  1},
    {"table a 1",  false, false, 0}, {"ftable a 1", false, false, 0},
  };
  const string at = "orv_parse_body: line 4. ";
  for (const auto &[item, cell, labelled, input] : rows) {
    EXPECT_EQ(shown(items("table t 2;" + string(item))),
              cell ? "orv_parse_body: Too few items for table."
                     "1 remain to be collected"
                   : at + "Item not allowed in table") << item;
    const Header hdr = parse("title t\nbody\n" + string(item) + "\n");
    const Items one(orv_parse_body(hdr.get()));
    EXPECT_EQ(hdr->has_input_fields, input) << item;
    message();
    const pt_keyword told = keyword(string(item).substr(0, string(item).find(' ')));
    EXPECT_EQ(std::tie(told.cell, told.attributes), std::tie(cell, labelled)) << item;
    EXPECT_EQ(told.input, input == 1) << item;
    items(item + string(";label b"));
    EXPECT_EQ(message() != at + "Attribute label not allowed", labelled) << item;
  }
  // The body is also found from the start.
  const Header hdr = parse("title t\nread_script r\n# body\nbody\ntext a\n");
  rewind(hdr->fp);
  hdr->start_body.line_number = 0;
  const Items found(orv_parse_body(hdr.get()));
  ASSERT_NE(found, nullptr) << message();
  EXPECT_STREQ(found->text.txt, "a");
}

TEST_F(Parser, ReportsTheFaultOfABodysLastLine)
{
  const std::tuple<pt_fault_code, const char *, std::vector<string>> faults[] = {
    {PT_BAD_WIDTH, "Bad field width", {"field x\tnone", ";;fixed x 0"}},
    {PT_NO_NAME, "Item must have a name", {"field # x", "ftable"}},
    {PT_SET_TWICE, "Attribute label already set", {"field x;label;label b"}},
    {PT_MISPLACED, "Can only set check for text field entries",
     {"check word", "fixed x;check word"}},
    {PT_NO_CHOICE_TEXT, "Choice requires selector and description", {"select x;choice a"}},
    {PT_MISPLACED, "Choice not allowed here", {"choice a b", "checkbox x;choice a b"}},
    {PT_BAD_ROWS, "Bad number of rows", {"ftable r 3 -1"}},
    {PT_BAD_COLUMNS, "Bad column number", {"table r " + std::to_string(ORV_COLUMNS_MAX + 1),
                                              "table r 0 1", "table r"}},
    {PT_NOT_IN_TABLE, "Item not allowed in table", {"table r 2;field a;text b"}},
  };
  for (const auto &[code, fault, bodies] : faults) {
    for (const string &lines : bodies) {
      const auto line = 3 + std::count(lines.begin(), lines.end(), ';');
      EXPECT_EQ(shown(items(lines)), "orv_parse_body: line " +
                std::to_string(line) + ". " + fault);
      EXPECT_EQ(orv_parser_fault.code, code) << lines;
      EXPECT_EQ(orv_parser_fault.line, line) << lines;
    }
  }
}

TEST_F(Parser, QuotesWhatARequestChoosesInScriptLinesAlone)
{
  const string net = dir + "/net", quoted = "'" + dir + "/n$(x)'";
  // form, sub-item; read script, or message
  const std::tuple<string, const char *, const char *, string> cases[] = {
    {"net", nullptr, "title t\n", net + ".sh --read " + net + " "},
    {"n$(x)", "a b", "title t\n", quoted + ".sh --read " + quoted + " 'a b'"},
    {"f", ";", "title a; $|$\nread_script x $T$$#$$|$ $Q$\n", "x a; # $Q$"},
    // a title that shows a value is quoted like one
    {"f", "e", "title Port $S$\nread_script x $T$\n", "x 'Port e'"},
    {"f", ";", "title $S$\nread_script x \"$(y $S$)\" # c\n",
     "Cannot quote a value in script command \"x \"$(y $S$)\"\""},
  };
  for (const auto &[form, subitem, lines, expected] : cases) {
    const Header hdr = parse(lines + string("body\n"), form, subitem);
    EXPECT_EQ(hdr != nullptr ? hdr->read_script : message(), expected);
  }
}

TEST_F(Parser, ATemplateMayBeOfALaterCentury)
{
  write_file("form", "title T\nbody\n");
  date_late("form");
  EXPECT_NE(Header(orv_parse_header(text(dir + "/form"), nullptr)), nullptr)
      << message();
}
