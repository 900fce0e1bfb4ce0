// The page engine, seen through a recorder: a template and variables go in,
// the calls on the output procedures come out.

#include "orv_output.h"

#include <stdarg.h>

#include "form_fixture.h"
#include "orv.h"

static string calls; // each with "; " before it

static void say(const string &call)
{
  calls += "; " + call;
}

// With the meaning of the item's own tags: its value, and always its name.
static void say_value(const string &call, const char *name)
{
  EXPECT_STREQ(orv_out_expand(text("$N$")), name);
  say(call + orv_out_expand(text("=$V$")));
}

template <char Kind> static void words(char *told)
{
  say(string(1, Kind) + " " + told);
}

template <char Kind> static void item(pt_body_item *itm)
{
  say_value(string(1, Kind) + " " + itm->name, itm->name);
}

template <char Kind> static void cell(pt_body_item *, char *name, char *varname)
{
  say_value(string(1, Kind) + " " + name + "<" + varname, name);
}

// clang-format off

__attribute__((format(printf, 1, 2)))
static void comment(const char *format, ...)
{
  char line[1000];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (strncmp(line, "Line ", 5) != 0) { // the start of an item
    say(string("# ") + line);
  }
}

// The ends of a table's head and rows.
static void step(pt_body_item *, mcol_trans type)
{
  const char *const names[] = {"", "BODY", "BODY_DEL", "",
                               "END", "DEL", "BLANK"};
  if (type <= MCOL_ROW_END_BLANK && names[type][0] != '\0') {
    say(names[type]);
  }
}

static const pto_procs recorder = {
  words<'t'>, words<'h'>, words<'e'>, words<'c'>, words<'1'>, words<'2'>,
  comment,
  [](pt_body_item *) { say("fmenu"); },
  [](pt_body_item *itm, int fixed) {
    (fixed == 1 ? item<'F'> : item<'T'>)(itm);
  },
  item<'B'>, item<'S'>, item<'M'>,
  [](pt_body_item *, char *word, char *varname, char *told) {
    say(string("choice ") + word + "<" + varname + "," + told);
  },
  item<'m'>, step,
  [](pt_body_item *) {},
  [](pt_body_item *itm, char *name, char *varname, int fixed) {
    (fixed == 1 ? cell<'F'> : cell<'T'>)(itm, name, varname);
  },
  cell<'B'>, cell<'S'>,
};

class Output : public Forms
{
protected:
  int errors = 0;

  string draw(const string &body, int help = 0, const char *error = nullptr)
  {
    calls.clear();
    errors = orv_body_output(&recorder, items(body).get(), help, error);
    return calls.empty() ? "" : calls.substr(2);
  }
};

TEST_F(Output, TextIsExpandedOnce)
{
  EXPECT_STREQ(orv_out_expand(nullptr), "");
  load("mode=o;d_mode=d;u_mode=u;c_mode=c;other word=w;sly=$X$$V:mode$;"
       "error_mode=e");
  setenv("LARKSPUR_TEST", "n", 1);
  orv_expert_mode = 1;
  draw("", 0, "Oops $H$");
  const string unknown = "; # Bad format variable subs. Unknown type";
  const string missing = "; # Bad format variable name missing $";
  const string rows[][3] = { // both passes report the problem
    {"a$", "a$", ""}, {"$V", "$V", ""}, {"$V:mode", "$V:mode", missing},
    {"$v:mode$", "$v:mode$", unknown}, {"$::x$", "$::x$", unknown},
    {"$$$", "$$$", ""}, {"$Q$$e$", "$Q$$e$", ""}, {"$$V$", "$", ""},
    {"$E$,$H$,$X$,$V$,$N$", "Oops $H$,False,True,,", ""},
    {"$C:mode$$D:mode$$E:mode$$O:mode$$U:mode$$V:mode$", "cdeouu", ""},
    {"$N:LARKSPUR_TEST$$N:mode$", "n", ""}, {"$V:other word$", "w", ""},
    {"$V:d_MODE$$V:MODE$", "du", ""}, {"a$V:none$b$C:sly$", "ab", ""},
    {"$O:sly$", "$X$$V:mode$", ""}, {"$V:$V$", "V$", ""},
  };
  for (const auto &[before, expected, problem] : rows) {
    calls.clear();
    EXPECT_EQ(orv_out_expand(text(before)), expected);
    EXPECT_EQ(calls, problem + problem);
  }
}

static string times(int count, const string &line)
{
  string all;
  for (; count > 0; count--) {
    all += line;
  }
  return all;
}

TEST_F(Output, AnExpansionEndsAtAMebibyte)
{
  orv_set_var("kib", o_orig, text(string(1024, 'k')), 0);
  draw("");
  const std::pair<string, bool> rows[] = { // after 1023 KiB, is it complete
    {string(1023, 'x'), true}, {string(1024, 'x'), true},
    {string(1025, 'x'), false}, {"x$V:kib$", false},
    {times(9, "$V:kib$"), false},
  };
  for (const auto &[rest, whole] : rows) {
    calls.clear();
    const string all = orv_out_expand(text(times(1023, "$V:kib$") + rest));
    EXPECT_EQ(all.size(), 1024 * 1023 + (rest.size() == 1023 ? 1023 : 1024));
    EXPECT_EQ(calls, whole ? "" : "; # Expanded text too long");
  }
}

// A failed lookup is reported in both passes wherever it is, even after the
// cut.
TEST_F(Output, EveryReferenceIsLookedUpForTheSizeAndForTheBytes)
{
  orv_set_var("kib", o_orig, text(string(1024, 'k')), 0);
  draw("");
  const string fails = "$C:d_x$";
  const string once = "log: Variable origin mismatch (c vs d) getting d_x\n";
  for (const string &before : {string(), string("a"), string("$V:none$"),
                               times(1024, "$V:kib$"),
                               times(1025, "$V:kib$") + "b"}) {
    for (const char *behind : {"", "a", "$V:none$"}) {
      const string whole = before + fails + behind;
      EXPECT_EQ(logged(LOG_ERR, [&] { orv_out_expand(text(whole)); }),
                once + once) << whole.size() << behind;
    }
  }
}

TEST_F(Output, ConditionsDecideWhichItemsAreDrawnAndHow)
{
  load("yes=Yes;no=nO;name=box;error_name= \t Bad $V:x$;error_t=table;"
       "error_b=column");
  orv_set_var("error_level", o_undefined, text(" \t"), 0);
  const string found = "; # orv_body_output: ";
  const string under = "# Error: Condition stack underflow";
  const string ab = "text a;else;text b;endif;";
  const std::pair<string, string> rows[] = {
    {"if $V:yes$;" + ab + "text c", "t a; t c"},
    {"if $V:no$;" + ab + "text c", "t b; t c"},
    {"ifnot $V:none$;" + ab, "t a"},
    {"ifnot 1;text a;else;text b;else;text c;endif", "t b"},
    {"if 0;if 1;" + ab + "else;text c;endif", "t c"},
    {"if 1;if 0;text a;endif;text b;endif", "t b"},
    {"if 0;if 0;" + ab + "text c;endif", ""},
    {"if 0;table t 2;field a;field b;field c;imenu m;endif", ""},
    {"else;text a;endif", under + "; t a; " + under + found + "2 errors found"},
    {"if 1;ifnot 1",
     "# 2 conditions left on stack" + found + "1 errors found"},
    {times(20, "if 1;") + "text a;" + times(20, "endif;"), "t a"},
    {times(19, "if 1;") + "if 0;if 1;text a;endif;text b;" +
     times(20, "endif;"), "# Error: Condition stack overflow; t b; " + under +
     found + "2 errors found"},
    {"text a $V:name$;help h;error $V:none$ $N$;error $V:name$",
     "t a $V:name$; h h; e $V:name$"},
    {"centre $V:name$;heading $E$$H$;heading2 a", "c box; 1 OopsTrue; 2 a"},
    {"field name;fixed level;heading2 $V$$N$;checkbox level",
     "T name=box; e Bad $V:x$; F level=; 2 ; B level="},
    {"select name;choice a A;fmenu", "S name=box; e Bad $V:x$; fmenu"},
    {"ftable t 2 0;field a;field b", "BODY; e table; e column"},
  };
  for (const auto &[body, expected] : rows) {
    EXPECT_EQ(draw(body, 1, "Oops"), expected) << body;
    EXPECT_EQ(errors > 0, expected.find("errors found") != string::npos);
  }
}

TEST_F(Output, DeletedRowsAreClosedUpAndBlankOnesOffered)
{
  const string rows[][3] = { // variables, table, calls and stored values
    {"a0=A;a1=B;a2=C;delete_t_1=", "table t 1;field a",
     "BODY_DEL; T a0<a0=A; DEL; T a1<a2=C; DEL; T a2<a3=; BLANK; "
     "# DEBUG: in_row 4 out_row 3 | "
     "a3{u=} a2{u= o=C} a1{u=C o=B} a0{o=A} del:t_1{o=}"},
    {"a0=A;a2=C;a4=E", "table t 1 2;field a",
     "BODY_DEL; T a0<a0=A; DEL; T a1<a1=; BLANK; T a2<a2=C; DEL; "
     "T a3<a3=; BLANK; # DEBUG: in_row 4 out_row 4 | a4{o=E} a2{o=C} a0{o=A}"},
    {"a0=A", "table t 1;select a",
     "BODY_DEL; S a0<a0=A; BLANK; # DEBUG: in_row 1 out_row 1 | a0{o=A}"},
    {"a0=A;b1=B;a3=D;delete_t_0=1", "ftable t 2;field a;fixed b",
     "BODY; T a0<a0=A; F b0<b0=; END; T a1<a1=; F b1<b1=B; END | "
     "a3{o=D} b1{o=B} a0{o=A} del:t_0{o=1}"},
    {"", "ftable t 1 2;checkbox a", "BODY; B a0<a0=; END; B a1<a1=; END | "},
  };
  for (const auto &[lines, body, expected] : rows) {
    forget();
    load(lines);
    const string drawn = draw(body);
    EXPECT_EQ(drawn + " | " + stored(), expected);
    EXPECT_EQ(errors, 0);
  }
}

TEST_F(Output, DeletedRowsAreEmptiedUpToALimit)
{
  string wide = "table t 20";
  for (int column = 0; column < 20; column++) {
    wide += ";field a" + std::to_string(column) + "-";
  }
  for (const int deleted : {2499, 2500, 2501}) {
    forget();
    for (int row = 0; row < deleted; row++) {
      load("delete_t_" + std::to_string(row) + "=1");
    }
    draw(wide);
    EXPECT_EQ(errors, deleted > 2500 ? 1 : 0);
    int emptied = -20; // the blank row that moved up
    for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
      emptied++;
    }
    EXPECT_EQ(emptied, std::min(deleted * 20, 50000));
  }
}

TEST_F(Output, RowsAndEntriesEndAtTheirLimit)
{
  const string cut(ORV_NAME_MAX, 'n'); // of longer names, then all the same
  const int max = ORV_ROWS_MAX;
  const std::tuple<string, string, int, int, bool> rows[] = {
    {"ftable t 1 " + std::to_string(max + 1) + ";field a", "", 0, max, false},
    {"table t 1;field a", "a", max - 1, max, true},
    {"table t 1;field a", "a", max, max, false},
    {"imenu m x", "select_x", max, max, true},
    {"imenu m x", "select_x", max + 1, max, false},
    {"table t 1;field " + cut + "x", cut, 0, max, false},
    {"table " + cut + "x 1;field a", "delete_" + cut, 0, 0, false},
  };
  for (const auto &[body, stem, filled, drawn, complete] : rows) {
    forget();
    orv_set_var(text(stem), o_orig, text("x"), 0);
    for (int i = 0; i < filled; i++) {
      orv_set_var(text(stem + std::to_string(i)), o_orig, text("x"), 0);
    }
    const string all = draw(body);
    EXPECT_EQ(std::count(all.begin(), all.end(), '<'), drawn) << body << filled;
    EXPECT_EQ(errors, complete ? 0 : 1);
    EXPECT_EQ(all.find("# Too many ") == string::npos, complete);
  }
}
