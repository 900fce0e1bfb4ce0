// The template parser: a text literal as template, and the items that it gives
// or the message that it must give.

#include "orv_parser.h"

#include "fixture.h"

using namespace std::string_literals;

// The choices in order, and the width of the longest.
static string shown(const pt_choices &choices)
{
  string out;
  for (auto *opt = choices.choices; opt != nullptr; opt = opt->next) {
    out += string(" ") + opt->value + ":" + opt->label;
    EXPECT_EQ(opt->next == nullptr, choices.last == opt);
  }
  return out.empty() ? "" : out + " w=" + std::to_string(choices.width);
}

// What is set of an item, with line ends made visible.
static string shown(const pt_body_item &itm)
{
  static const char *const names[] = {
      "text",   "help",     "error",  "center",  "heading", "heading2", "field",
      "fixed",  "checkbox", "select", "iselect", "imenu",   "fmenu",    "table",
      "ftable", "if",       "ifnot",  "else",    "endif"};
  string out = std::to_string(itm.line_number) + " " + names[itm.type];
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
    out += shown(itm.choices);
  } else {
    add("text", itm.text.txt);
  }
  std::replace(out.begin(), out.end(), '\n', '|');
  return out;
}

// The whole body, or the message that took its place.
static string shown(const Items &items)
{
  string out;
  for (auto *itm = items.get(); itm != nullptr; itm = itm->next) {
    out += (out.empty() ? "" : ";") + shown(*itm);
  }
  return out + message();
}

class Parser : public Scratch
{
protected:
  // With "%" for the folder.
  string shorten(string got)
  {
    for (size_t at; (at = got.find(dir)) != string::npos;) {
      got.replace(at, dir.size(), "%");
    }
    return got;
  }
};

// clang-format off

TEST_F(Parser, ReadsAHeaderOrTellsWhatIsWrongWithIt)
{
  const string x248(248 - strlen("title "), 'x'), mega(1000000, 'b');
  const std::pair<string, string> cases[] = { // title and body's line, or fault
    {"TITLE Network\nbody\n", "Network 2"},
    {"title\tPorts\nbody x\n", "Ports 2"},
    {"title Port setup # main\nbody#\n", "Port setup 2"},
    {"title Port $#$1 # $#$\nbody\n", "Port #1 2"},
    {"title a #$ b\nbody\n", "a 2"}, {"title $S$$#\nbody\n", "$ 2"},
    {"title $|$  Port  $|$\nbody\n", "  Port   2"},
    {"title a\tb\r\nbody\n", "a b\r 2"},
    {"title $Q$ $f$ $$$ $5 $T$.\nbody\n", "$Q$ $f$ $$$ $5 . 2"},
    {"# c\n\n \tx\ntitle t\n\n x\n#\nbody\n", "t 8"},
    {"help_mode\nhelp_mode x\ntitle # c\nbody\n", " 4"},
    {"title\ntitle x\nbody\n", "!Second title keyword found"},
    {"title t\nREAD_script a\nread_script\n",
     "!Second read_script keyword found"},
    {"title:N\nbody\n", "!unknown keyword line 1 \"title:N\n\""},
    {"\n#\ntitle t\nfield x\n", "!unknown keyword line 4 \"field x\n\""},
    {"title t\nbody", "!unknown keyword line 2 \"body\""},
    {"title t\nbody\r\n", "!unknown keyword line 2 \"body\r\n\""},
    {"title t\n", "!no body keyword found"},
    {"read_script $S$x '$\nbody\n", "!%/form contains no title"},
    // a long line goes on as one of its own
    {"title " + x248 + "\nbody\n", x248 + " 2"},
    {"title " + x248 + "x\nbody\n", x248 + "x 3"},
    {"title " + x248 + "xy\nbody\n", "!unknown keyword line 2 \"y\n\""},
    {"title a" + string(1000000, ' ') + "\nbody\n", "a 4018"},
    {"title a" + mega, ("!unknown keyword line 2 \"" + mega).substr(0, 232)},
    // a NUL byte ends it
    {"title a\0b\nbody\n"s, "a 2"},
    {"title a\n\0body\nbody\n"s, "!unknown keyword line 2 \"\""},
    {"title a\nbody\0\n"s, "!unknown keyword line 2 \"body\""},
    {"title\0 a\nbody\n"s, "!unknown keyword line 1 \"title\""},
  };
  for (const auto &[content, expected] : cases) {
    const Header hdr = parse(content);
    const string fault = message(), found = hdr == nullptr ? shorten(fault)
      : hdr->title + (" " + std::to_string(hdr->start_body.line_number));
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
    {"field x 99999999999999999999 9", "3 field name=x width=2147483647"},
    {"field $F$;rlabel r$#$;prompt p;value v;part x;item_help h; i;",
     "3 field name=$F$ rlabel=r# prompt=p value=v help=h|i|"},
    {"field x;check_msg l  A $F$ b", "3 field name=x err=l msg=A $F$ b"},
    {"field x;check_msg l", "3 field name=x err=l"},
    {"select x y;choice a First one;choice $#$b  $|$longer$|$ # c",
     "3 select name=x a:First one #b:longer w=12"},
    {"fmenu x;choice a b;prompt p", "3 fmenu prompt=p a:b w=1"},
    {"iselect port;imenu port  my ports",
     "3 iselect name=port selector=port;4 imenu name=port selector=my ports"},
    {"table r 3 2;field a;label l;select b;choice c d;part;checkbox e;fixed f",
     "3 table name=r columns=3 add=2;4 field name=a column=0 label=l;"
     "6 select name=b column=1 c:d w=1;9 checkbox name=e column=2;"
     "10 fixed name=f"},
    {"table r 1 0;fixed a;ftable s 1 9x;fixed b;ftable t 1;fixed c",
     "3 table name=r columns=1 add=1;4 fixed name=a column=0;"
     "5 ftable name=s columns=1 rows=9;6 fixed name=b column=0;"
     "7 ftable name=t columns=1;8 fixed name=c column=0"},
    {"text Hello; world;;help;#;;\ta $#$1 # c;  $|$ b;# c; c;error",
     "3 text text=Hello|world|;6 help text=a #1| b||c;13 error text="},
    {"center a;centre b;heading c;heading2 d;if e;else f;endif g;ifnot h",
     "3 center text=a;4 center text=b;5 heading text=c;6 heading2 text=d;"
     "7 if text=e;8 else;9 endif;10 ifnot text=h"},
    {"part;", ""}, {"text " + x240 + "; " + x240 + "; b",
                    "3 text text=" + x240 + "|" + x240 + "|b"},
    {"table r 20x;field a;field b",
     "!Too few items for table.18 remain to be collected"},
    {"ifx y", "!unknown keyword line 3 \"ifx y\n\""},
    {"text a;title b", "!unknown keyword line 4 \"title b\n\""},
  };
  for (const auto &[lines, expected] : cases) {
    EXPECT_EQ(shown(items(lines)),
              expected[0] == '!' ? "orv_parse_body: " + expected.substr(1)
                                 : expected) << lines;
  }
}

TEST_F(Parser, TellsWhatIsWrongWithABodysLastLine)
{
  const std::pair<const char *, std::vector<string>> faults[] = {
    {"Bad field width", {"field x\tnone", ";;fixed x 0"}},
    {"Item must have a name", {"field # x", "ftable"}},
    {"Attribute label already set", {"field x;label;label b"}},
    {"Attribute item_help already set", {"field x;item_help;item_help b"}},
    {"Attribute label not allowed", {"text a;label b"}},
    {"Attribute value not allowed", {"value b"}},
    {"Attribute item_help not allowed", {"field x;if y;item_help b"}},
    {"Can only set check for text field entries",
     {"check word", "fixed x;check word"}},
    {"Attribute check already set", {"field x;check a;check b"}},
    {"Attribute check_label already set", {"field x;check_msg;check_msg l m"}},
    {"Can only set check_msg for text field entries",
     {"checkbox x;check_msg l m"}},
    {"Choice requires selector and description", {"select x;choice a"}},
    {"Choice not allowed here", {"choice a b", "checkbox x;choice a b"}},
    {"Bad number of rows", {"ftable r 3 -1"}},
    {"Bad column number", {"table r 21", "table r 0 1", "table r"}},
    {"Item not allowed in table",
     {"table r 2;field a;text b", "table r 2;iselect a", "ftable r 2;table b"}},
  };
  for (const auto &[fault, bodies] : faults) {
    for (const string &lines : bodies) {
      const auto line = 3 + std::count(lines.begin(), lines.end(), ';');
      EXPECT_EQ(shown(items(lines)), "orv_parse_body: line " +
                std::to_string(line) + ". " + fault);
    }
  }
}

TEST_F(Parser, QuotesWhatARequestChoosesInScriptLinesAlone)
{
  const char *const cases[][4] = { // form, sub-item; read script, or message
    {"net", nullptr, "title t\n", "%/net.sh --read %/net "},
    {"n$(x)", "a b", "title t\n", "'%/n$(x)'.sh --read '%/n$(x)' 'a b'"},
    {"f", ";", "title a; $|$\nread_script x $T$$#$$|$ $Q$\n", "x a; # $Q$"},
    // a title that shows a value is a value
    {"f", "e", "title Port $S$\nread_script x $T$\n", "x 'Port e'"},
    {"f", "e", "title $T$a b\nread_script x $T$\n", "x a b"},
    {"f", ";", "read_script x $T$ y\ntitle $S$\n", "x  y"},
    {"f", ";", "title $S$\nread_script x \"$(y $S$)\" # c\n",
     "Cannot quote a value in script command \"x \"$(y $S$)\"\""},
  };
  for (const auto &[form, subitem, lines, expected] : cases) {
    const Header hdr = parse(lines + string("body\n"), form, subitem);
    EXPECT_EQ(shorten(hdr != nullptr ? hdr->read_script : message()), expected);
  }
}

TEST_F(Parser, KeepsFlagsAndTheWidthOfTheLongestLabel)
{
  const Header hdr = parse("title t\nexpert_mode\nno_footer\nbody\nimenu x\n"
                           "label abc\nfmenu\nlabel a\nprompt abcd\n");
  EXPECT_EQ(hdr->expert_mode * 1000 + hdr->help_mode * 100 +
            hdr->no_header * 10 + hdr->no_footer, 1001u);
  hdr->llabel_max = 99;
  Items(orv_parse_body(hdr.get()));
  EXPECT_EQ(hdr->llabel_max, 3);
}
