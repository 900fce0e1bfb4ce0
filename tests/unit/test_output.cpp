// The page engine, seen through a recorder: a template and variables go in,
// the calls on the output procedures come out, one line each.

#include "orv_output.h"

#include <algorithm>
#include <stdarg.h>
#include <string.h>

#include "fixture.h"
#include "orv.h"

namespace
{

std::vector<string> calls;
bool everything; // also template lines and the steps around a table's cells

// clang-format off

void say(const string &call, bool frame = false)
{
  if (everything || !frame) {
    calls.push_back(call);
  }
}

// With what the item's own tags stand for: the value, and always its name.
void say_value(const string &call, const char *name)
{
  EXPECT_STREQ(orv_out_expand(text("$N$")), name);
  say(call + orv_out_expand(text("=$V$")));
}

template <char Kind> void words(char *told)
{
  say(string(1, Kind) + " " + told);
}

__attribute__((format(printf, 1, 2))) void comment(const char *format, ...)
{
  char line[1000];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  say(string("# ") + line, strncmp(line, "Line", 4) == 0);
}

template <char Kind> void item(pt_body_item *itm)
{
  say_value(string(1, Kind) + " " + itm->name, itm->name);
}

void select(pt_body_item *itm)
{
  string line = string("S ") + itm->name;
  for (auto *c = itm->choices.choices; c != nullptr; c = c->next) {
    line += string(" ") + c->value + ":" + c->label;
  }
  say_value(line + " ", itm->name);
}

void step(pt_body_item *itm, mcol_trans type)
{
  const char *const names[] = {"START", "BODY", "BODY_DEL", "ROW", "_END",
                               "_END_DEL", "_END_BLANK", "COL", "COL_END",
                               "END"};
  say(string(names[type]) + " " + itm->name, names[type][0] != '_');
}

template <char Kind> void cell(pt_body_item *, char *name, char *varname)
{
  say_value(string(1, Kind) + " " + name + "<" + varname, name);
}

const pto_procs recorder = {
  words<'t'>, words<'h'>, words<'e'>, words<'c'>, words<'1'>, words<'2'>,
  comment,
  [](pt_body_item *) { say("fmenu"); },
  [](pt_body_item *itm, int fixed) {
    (fixed == 1 ? item<'F'> : item<'T'>)(itm);
  },
  item<'B'>, select, item<'M'>,
  [](pt_body_item *, char *word, char *varname, char *told) {
    say(string("choice ") + word + "," + varname + "," + told);
  },
  [](pt_body_item *itm) { say(string("menu end ") + itm->name); },
  step,
  [](pt_body_item *itm) { say(string("HEADING ") + itm->name, true); },
  [](pt_body_item *itm, char *name, char *varname, int fixed) {
    (fixed == 1 ? cell<'F'> : cell<'T'>)(itm, name, varname);
  },
  cell<'B'>, cell<'S'>,
};

class Output : public Scratch
{
protected:
  int errors = 0;

  void SetUp() override
  {
    Scratch::SetUp();
    everything = false;
    orv_expert_mode = 0;
  }

  // The calls that a body makes, joined by "; ".
  string draw(const string &body, int help = 0, const char *error = nullptr)
  {
    calls.clear();
    errors = orv_body_output(&recorder, items(body).get(), help, error);
    string all;
    for (const string &call : calls) {
      all += (all.empty() ? "" : "; ") + call;
    }
    return all;
  }
};

TEST_F(Output, TextIsExpandedOnce)
{
  load("mode=o\nd_mode=d\nu_mode=u\nc_mode=c\nother word=w\n"
       "sly=$X$$V:mode$\nerror_mode=e\n");
  setenv("LARKSPUR_TEST", "n", 1);
  orv_expert_mode = 1;
  draw("", 0, "Oops $H$");
  const string unknown = "# Bad format variable subs. Unknown type";
  const string missing = "# Bad format variable name missing $";
  const string rows[][3] = { // the problem is told in both passes
    {"$", "$", ""}, {"a$", "a$", ""}, {"$V", "$V", ""}, {"$$", "$$", ""},
    {"$V:", "$V:", missing}, {"$V:mode", "$V:mode", missing},
    {"$V:mode$$V:x", "u$V:x", missing}, {"$v:mode$", "$v:mode$", unknown},
    {"$$$", "$$$", ""}, {"$Q$$e$", "$Q$$e$", ""}, {"$$V$", "$", ""},
    {"$:x$", "$:x$", ""}, {"$::x$", "$::x$", unknown},
    {"$E$,$H$,$X$,$V$,$N$", "Oops $H$,False,True,,", ""},
    {"$C:mode$$D:mode$$E:mode$$O:mode$$U:mode$$V:mode$", "cdeouu", ""},
    {"$N:LARKSPUR_TEST$$N:mode$", "n", ""}, {"$V:other word$", "w", ""},
    {"$V:d_MODE$$V:MODE$", "du", ""}, {"a$V:none$b$C:sly$", "ab", ""},
    {"$O:sly$", "$X$$V:mode$", ""}, {"$V:$V$", "V$", ""},
  };
  for (const auto &[before, expected, problem] : rows) {
    char *in = strdup(text(before)); // so that reading past its end shows
    calls.clear();
    EXPECT_EQ(orv_out_expand(in), expected);
    EXPECT_EQ(in, before) << "restored";
    EXPECT_EQ(calls, std::vector<string>(problem.empty() ? 0 : 2, problem));
    free(in);
  }
  const string plain = "plain";
  EXPECT_EQ(orv_out_expand(text(plain)), plain.c_str());
  EXPECT_STREQ(orv_out_expand(nullptr), "");
}

string found(int count)
{
  return "; # orv_body_output: " + std::to_string(count) + " errors found";
}

string times(int count, const string &line)
{
  return count > 0 ? line + times(count - 1, line) : "";
}

TEST_F(Output, ConditionsDecideWhatIsDrawn)
{
  load("yes=Yes\nno=nO\nerror_b=of a hidden column\n");
  const string under = "# Error: Condition stack underflow";
  const string missing = "# Bad format variable name missing $";
  const string ab = "text a\nelse\ntext b\nendif\n";
  const std::pair<string, string> rows[] = {
    {"if $V:yes$\n" + ab + "text c\n", "t a; t c"},
    {"if $V:no$\n" + ab + "text c\n", "t b; t c"},
    {"if $V:none$\n" + ab, "t b"}, {"ifnot $V:none$\n" + ab, "t a"},
    {"ifnot 1\ntext a\nelse\ntext b\nelse\ntext c\nendif\n", "t b"},
    {"if 0\nif 1\n" + ab + "else\ntext c\nendif\n", "t c"},
    {"if 1\nif 0\ntext a\nendif\ntext b\nendif\n", "t b"},
    {"if 0\nif 0\n" + ab + "text c\nendif\n", ""},
    {"if 0\ntable t 2\nfield a\nfield b\nfield c\nimenu m\nendif\n", ""},
    {"else\ntext a\nendif\n", under + "; t a; " + under + found(2)},
    {"if 1\nifnot 1\n", "# 2 conditions left on stack" + found(1)},
    {"if 0\nif $V:x\nendif\nendif\n", missing + "; " + missing + found(2)},
    {times(20, "if 1\n") + "text a\n" + times(20, "endif\n"), "t a"},
    {times(19, "if 1\n") + "if 0\nif 1\ntext a\nendif\ntext b\n" +
     times(20, "endif\n"),
     "# Error: Condition stack overflow; t b; " + under + found(2)},
  };
  for (const auto &[body, expected] : rows) {
    EXPECT_EQ(draw(body), expected) << body;
    EXPECT_EQ(errors > 0, expected.find("errors found") != string::npos);
  }
  everything = true;
  EXPECT_EQ(draw("text a\n\n more\nif 0\ntext b\nendif\ntext c\n"),
            "# Line 3; t a\n\nmore; # Line 6; # Line 9; t c");
}

TEST_F(Output, EveryKindOfItemIsDrawnByItsOwnProcedure)
{
  load("name=box\nselect_net0=eth/lan \t LAN port\nselect_net1=wifi\n"
       "select_net3=late\nselect_p0=a\nselect_p1=b\n"
       "error_name= \t Bad $V:x$\nerror_t=table\nerror_b=column\n");
  orv_set_var("error_level", o_undefined, text(" \t"), 0);
  orv_set_var("select_p0", o_user, text(" \ta  A $V:x"), 0);
  const std::pair<string, string> rows[] = {
    {"text a $V:name$\nhelp h\nerror $V:none$ $N$\nerror $V:name$\n",
     "t a $V:name$; h h; e $V:name$"},
    {"center $V:name$\nheading $E$$H$\nheading2 a\n",
     "c box; 1 OopsTrue; 2 a"},
    {"field name\nfixed level\nheading2 $V$$N$\ncheckbox level\n",
     "T name=box; e Bad $V:x$; F level=; 2 ; B level="},
    {"select name\nchoice a A\nchoice box B $V$\nfmenu\n",
     "S name a:A box:B $V$ =box; e Bad $V:x$; fmenu"},
    {"iselect none p\niselect none\n", "S none a:A $V:x b: =; S none ="},
    {"imenu name net\n", "M name=box; choice eth/lan,neteth/lan,LAN port; "
     "choice wifi,netwifi,; menu end name"},
    {"ftable t 2 0\nfield a\nfield b\n", "e table; e column"},
    {"table t 1\nselect b\n", "S b0<b0=; _END_BLANK t; "
     "# DEBUG: in_row 1 out_row 1; e table; e column"},
  };
  for (const auto &[body, expected] : rows) {
    EXPECT_EQ(draw(body, 1, "Oops"), expected);
    EXPECT_EQ(errors, 0);
  }
  EXPECT_EQ(draw("help a\n", 0) + draw("", 1), "");
  EXPECT_STREQ(orv_get_var(&cfg_vars, "select_p0", o_best), " \ta  A $V:x");
}

TEST_F(Output, TheStepsOfATableComeInTheirOrder)
{
  everything = true;
  load("a0=x\n");
  const string cells = "ROW t; COL a; T a0<a0=x; COL_END a; "
                       "COL b; S b0<b0=; COL_END b; _END";
  const string body = "table t 2 1\nfield a\nselect b\n";
  const string start = "# Line 3; START t; HEADING a; HEADING b; BODY";
  EXPECT_EQ(draw("f" + body), start + " t; " + cells + " t; END t");
  EXPECT_EQ(draw(body), start + "_DEL t; " + cells + "_DEL t; ROW t; COL a; "
            "T a1<a1=; COL_END a; COL b; S b1<b1=; COL_END b; _END_BLANK t; "
            "# DEBUG: in_row 2 out_row 2; END t");
}

TEST_F(Output, DeletedRowsAreClosedUpAndBlankOnesOffered)
{
  const string del = "; _END_DEL t; ";
  const string blank = "; _END_BLANK t; ";
  const string end = "; _END t";
  const string rows[][4] = {
    {"a0=A\na1=B\n", "table t 1 3\nfield a\n",
     "T a0<a0=A" + del + "T a1<a1=B" + del + "T a2<a2=" + blank + "T a3<a3=" +
     blank + "T a4<a4=" + blank + "# DEBUG: in_row 5 out_row 5",
     "a1{o=B} a0{o=A}"},
    {"a0=A\na1=B\na2=C\ndelete_t_1=\n", "table t 1\nfield a\n",
     "T a0<a0=A" + del + "T a1<a2=C" + del + "T a2<a3=" + blank +
     "# DEBUG: in_row 4 out_row 3",
     "a3{u=} a2{u= o=C} a1{u=C o=B} a0{o=A} del:t_1{o=}"},
    {"a0=A\na1=B\nb1=0\na2=C\ndelete_T_0=1\ndelete_t_2=1\n",
     "table t 2\nfixed a\ncheckbox b\n",
     "F a0<a1=B; B b0<b1=0" + del + "F a1<a3=; B b1<b3=" + blank +
     "# DEBUG: in_row 4 out_row 2",
     "b3{u=} a3{u=} b2{u=} b0{u=0} a2{u= o=C} b1{u= o=0} a1{u= o=B} "
     "a0{u=B o=A} del:t_2{o=1} del:T_0{o=1}"},
    {"a0=A\na2=C\na4=E\n", "table t 1 2\nfield a\n",
     "T a0<a0=A" + del + "T a1<a1=" + blank + "T a2<a2=C" + del + "T a3<a3=" +
     blank + "# DEBUG: in_row 4 out_row 4", "a4{o=E} a2{o=C} a0{o=A}"},
    {"a0=A\na1=B\ndelete_t_01=1\ndelete_t_2=1\ndelete_x_0=1\n",
     "table t 1\nfield a\n", "T a0<a0=A" + del + "T a1<a1=B" + del +
     "T a2<a3=" + blank + "# DEBUG: in_row 4 out_row 3",
     "a3{u=} a2{u=} a1{o=B} a0{o=A} del:x_0{o=1} del:t_2{o=1} del:t_01{o=1}"},
    {"a0=A\n", "table t 1\nselect a\n",
     "S a0<a0=A" + blank + "# DEBUG: in_row 1 out_row 1", "a0{o=A}"},
    {"a0=A\nb1=B\na3=D\ndelete_t_0=1\n", "ftable t 2\nfield a\nfixed b\n",
     "T a0<a0=A; F b0<b0=" + end + "; T a1<a1=; F b1<b1=B" + end,
     "a3{o=D} b1{o=B} a0{o=A} del:t_0{o=1}"},
    {"a0=A\n", "ftable t 1\nselect a\n", "", "a0{o=A}"},
    {"", "ftable t 1 2\ncheckbox a\n", "B a0<a0=" + end + "; B a1<a1=" + end,
     ""},
  };
  for (const auto &[lines, body, expected, after] : rows) {
    forget();
    load(lines);
    EXPECT_EQ(draw(body), expected);
    EXPECT_EQ(stored(), after);
    EXPECT_EQ(errors, 0);
  }
}

TEST_F(Output, RowsAndEntriesEndAtTheirLimit)
{
  const string cut(52, 'n'); // of longer names that are then all the same
  const std::tuple<string, string, int, int, bool> rows[] = {
    {"ftable t 1 50001\nfield a\n", "", 0, 50000, false},
    {"table t 1\nfield a\n", "a", 49999, 50000, true},
    {"table t 1\nfield a\n", "a", 50000, 50000, false},
    {"imenu m x\n", "select_x", 50000, 50000, true},
    {"imenu m x\n", "select_x", 50001, 50000, false},
    {"table t 1\nfield " + cut + "x\n", cut, 0, 50000, false},
    {"ftable t 1\nfield " + cut + "x\n", cut, 0, 50000, false},
    {"table " + cut + "x 1\nfield a\n", "delete_" + cut, 0, 0, false},
    {"imenu m " + cut + "\n", "select_" + cut.substr(7), 0, 50000, false},
  };
  for (const auto &[body, stem, filled, drawn, complete] : rows) {
    forget();
    orv_set_var(text(stem), o_orig, text("x"), 0);
    for (int i = 0; i < filled; i++) {
      orv_set_var(text(stem + std::to_string(i)), o_orig, text("x"), 0);
    }
    const string all = draw(body);
    EXPECT_EQ(std::count_if(calls.begin(), calls.end(), [](const string &call) {
      return call[0] == 'T' || call[0] == 'c';
    }), drawn) << body << filled;
    EXPECT_EQ(errors, complete ? 0 : 1);
    EXPECT_EQ(all.find("# Too many ") == string::npos, complete);
  }
}

// clang-format on

} // namespace
