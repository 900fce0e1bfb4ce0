// The template parser: a text literal as template, and the items that it gives
// or the message that it must give.

#include "orv_parser.h"

#include <algorithm>
#include <string.h>

#include "fixture.h"

namespace
{

// The choices in order, and the width of the longest.
string shown(const pt_choices &choices)
{
  string out;
  for (auto *opt = choices.choices; opt != nullptr; opt = opt->next) {
    out += string(" ") + opt->value + ":" + opt->label;
    EXPECT_EQ(opt->next == nullptr, choices.last == opt);
  }
  return out.empty() ? "" : out + " w=" + std::to_string(choices.width);
}

// What is set of an item, with line ends made visible.
string shown(const pt_body_item &itm)
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
  add("selector", itm.selector);
  add("label", itm.label);
  add("rlabel", itm.rlabel);
  add("prompt", itm.prompt);
  add("value", itm.value);
  add("help", itm.help.txt);
  switch (itm.type) {
  case PT_TEXT_FIELD:
  case PT_TEXT_FIXED:
    count("width", itm.field.width);
    add("check", itm.field.check);
    add("err", itm.field.check_label);
    add("msg", itm.field.check_msg);
    break;
  case PT_CHECKBOX:
  case PT_SELECT:
  case PT_ISELECT:
  case PT_FORMS_MENU:
    out += shown(itm.choices);
    break;
  case PT_TABLE:
  case PT_FTABLE:
    count("columns", itm.table.columns);
    count("add", itm.table.add_rows);
    count("rows", itm.table.fixed_rows);
    break;
  default:
    add("text", itm.text.txt);
  }
  std::replace(out.begin(), out.end(), '\n', '|');
  return out;
}

// The whole body, an item a line, or the message that took its place.
string body_of(const Header &hdr)
{
  const Items items(hdr != nullptr ? orv_parse_body(hdr.get()) : nullptr);
  string out;
  for (auto *itm = items.get(); itm != nullptr; itm = itm->next) {
    out += shown(*itm) + "\n";
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
  const string x248(248 - strlen("title "), 'x');
  const string mega(1000000, 'b');
  const std::pair<string, string> cases[] = { // title and body's line, or fault
    {"TITLE Network\nbody\n", "Network 2"},
    {"title\tPorts\nbody x\n", "Ports 2"},
    {"title Port setup # main\nbody#\n", "Port setup 2"},
    {"title Port $#$1 # $#$\nbody\n", "Port #1 2"},
    {"title a #$ b\nbody\n", "a 2"},
    {"title $|$  Port  $|$\nbody\n", "  Port   2"},
    {"title a\tb\r\nbody\n", "a b\r 2"},
    {"title $Q$ $f$ $$$ $5 $T$.\nbody\n", "$Q$ $f$ $$$ $5 . 2"},
    {"title $S$$#\nbody\n", "$ 2"},
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
    {string("title a\0b\nbody\n", 15), "a 2"},
    {string("title a\n\0body\nbody\n", 19), "!unknown keyword line 2 \"\""},
    {string("title a\nbody\0\n", 14), "!unknown keyword line 2 \"body\""},
    {string("title\0 a\nbody\n", 14), "!unknown keyword line 1 \"title\""},
  };
  for (const auto &[content, expected] : cases) {
    const Header hdr = parse(content);
    const string line =
      hdr != nullptr ? " " + std::to_string(hdr->start_body.line_number) : "";
    EXPECT_EQ(hdr != nullptr ? hdr->title + line : shorten(message()),
              expected[0] == '!' ? "orv_parse_header: " + expected.substr(1)
                                 : expected);
  }
}

TEST_F(Parser, ReadsABodyOrTellsWhatIsWrongWithIt)
{
  const string x240(240, 'x');
  const std::pair<string, string> cases[] = { // from line 3 on; items or fault
    {"FIELD hostname 30\nlabel Host name\ncheck word\n",
     "3 field name=hostname label=Host name width=30 check=word\n"},
    {"field x\tnone\n", "!line 3. Bad field width"},
    {"\n\nfixed x 0\n", "!line 5. Bad field width"},
    {"field x 99999999999999999999 9\n", "3 field name=x width=2147483647\n"},
    {"field # x\n", "!line 3. Item must have a name"},
    {"ftable\n", "!line 3. Item must have a name"},
    {"field $F$\nrlabel r$#$\nprompt p\nvalue v\npart x\nitem_help h\n i\n\n",
     "3 field name=$F$ rlabel=r# prompt=p value=v help=h|i|\n"},
    {"field x\nlabel\nlabel b\n", "!line 5. Attribute label already set"},
    {"field x\nitem_help\nitem_help b\n",
     "!line 5. Attribute item_help already set"},
    {"text a\nlabel b\n", "!line 4. Attribute label not allowed"},
    {"value b\n", "!line 3. Attribute value not allowed"},
    {"field x\nif y\nitem_help b\n",
     "!line 5. Attribute item_help not allowed"},
    {"fixed x\ncheck word\n",
     "!line 4. Can only set check for text field entries"},
    {"check word\n", "!line 3. Can only set check for text field entries"},
    {"field x\ncheck a\ncheck b\n", "!line 5. Attribute check already set"},
    {"field x\ncheck_msg l  A $F$ b\n", "3 field name=x err=l msg=A $F$ b\n"},
    {"field x\ncheck_msg l\n", "3 field name=x err=l\n"},
    {"field x\ncheck_msg\ncheck_msg l m\n",
     "!line 5. Attribute check_label already set"},
    {"checkbox x\ncheck_msg l m\n",
     "!line 4. Can only set check_msg for text field entries"},
    {"select x y\nchoice a First one\nchoice $#$b  $|$longer$|$ # c\n",
     "3 select name=x a:First one #b:longer w=12\n"},
    {"fmenu x\nchoice a b\nprompt p\n", "3 fmenu prompt=p a:b w=1\n"},
    {"select x\nchoice a\n",
     "!line 4. Choice requires selector and description"},
    {"checkbox x\nchoice a b\n", "!line 4. Choice not allowed here"},
    {"choice a b\n", "!line 3. Choice not allowed here"},
    {"iselect port\nimenu port  my ports\n",
     "3 iselect name=port selector=port\n"
     "4 imenu name=port selector=my ports\n"},
    {"table r 3 2\nfield a\nlabel l\nselect b\nchoice c d\npart\ncheckbox e\n"
     "fixed f\n",
     "3 table name=r columns=3 add=2\n4 field name=a column=0 label=l\n"
     "6 select name=b column=1 c:d w=1\n9 checkbox name=e column=2\n"
     "10 fixed name=f\n"},
    {"table r 1 0\nfixed a\nftable s 1 9x\nfixed b\nftable t 1\nfixed c\n",
     "3 table name=r columns=1 add=1\n4 fixed name=a column=0\n"
     "5 ftable name=s columns=1 rows=9\n6 fixed name=b column=0\n"
     "7 ftable name=t columns=1\n8 fixed name=c column=0\n"},
    {"ftable r 3 -1\n", "!line 3. Bad number of rows"},
    {"table r 21\n", "!line 3. Bad column number"},
    {"table r 0 1\n", "!line 3. Bad column number"},
    {"table r\n", "!line 3. Bad column number"},
    {"table r 20x\nfield a\nfield b\n",
     "!Too few items for table.18 remain to be collected"},
    {"table r 2\nfield a\ntext b\n", "!line 5. Item not allowed in table"},
    {"table r 2\niselect a\n", "!line 4. Item not allowed in table"},
    {"ftable r 2\ntable b 1\n", "!line 4. Item not allowed in table"},
    {"text Hello\n world\n\nhelp\n#\n\n\ta $#$1 # c\n  $|$ b\n# c\n c\nerror\n",
     "3 text text=Hello|world|\n6 help text=a #1| b||c\n13 error text=\n"},
    {"center a\ncentre b\nheading c\nheading2 d\nif e\nelse f\nendif g\n"
     "ifnot h\n",
     "3 center text=a\n4 center text=b\n5 heading text=c\n6 heading2 text=d\n"
     "7 if text=e\n8 else\n9 endif\n10 ifnot text=h\n"},
    {"ifx y\n", "!unknown keyword line 3 \"ifx y\n\""},
    {"text a\ntitle b\n", "!unknown keyword line 4 \"title b\n\""},
    {"part\n\n", ""},
    {"text " + x240 + "\n " + x240 + "\n b\n",
     "3 text text=" + x240 + "|" + x240 + "|b\n"},
  };
  for (const auto &[lines, expected] : cases) {
    EXPECT_EQ(body_of(parse("title T\nbody\n" + lines)),
              expected[0] == '!' ? "orv_parse_body: " + expected.substr(1)
                                 : expected) << lines;
  }
}

TEST_F(Parser, QuotesWhatARequestChoosesInScriptLinesAlone)
{
  const char *const cases[][4] = { // form, sub-item; read script, or message
    {"net", nullptr, "title t\n", "%/net.sh --read %/net "},
    {"n$(x)", "a b", "title t\n", "'%/n$(x)'.sh --read '%/n$(x)' 'a b'"},
    {"f", "\"", "read_script x  \"$S$\" '$S$'\ntitle t\n",
     "x  \"\"'\"'\"\" '''\"'''"},
    {"f", ";", "title a; $|$\nread_script x $T$$#$$|$ $Q$\n", "x a; # $Q$"},
    // a title that shows a value is a value
    {"f", "e", "title Port $S$\nread_script x $T$\n", "x 'Port e'"},
    {"f", "e", "title $T$a b\nread_script x $T$\n", "x a b"},
    {"f", ";", "read_script x $T$ y\ntitle $S$\n", "x  y"},
    {"a b", "e", "read_script x \\$S$$F$\ntitle t\n", "x \\e'%/a b'"},
    {"f", ";", "title $S$\nread_script x \"$(y $S$)\" # c\n",
     "Cannot quote a value in script command \"x \"$(y $S$)\"\""},
    {"f", "e-1", "title t\nread_script x $(y $S$)\n", "x $(y e-1)"},
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
  body_of(hdr);
  EXPECT_EQ(hdr->llabel_max, 3);
}

// clang-format on

} // namespace
