// The variable store and its exchange with scripts.

#include "orv_vars.h"

#include <limits.h>
#include <tuple>

#include "form_fixture.h"

using Vars = Forms;

// clang-format off

TEST_F(Vars, ANameSelectsTheListTheSlotAndTheRecord)
{
  constexpr v_origin none = o_undefined;
  const std::tuple<const char *, v_origin, const char *> rows[] = {
    {"x", none, "x{o=1}"}, {"x", o_default, "x{d=1}"}, {"x", o_calc, "x{c=1}"},
    {"x", o_best, "x{u=1}"}, {"D_x", o_default, "x{d=1}"},
    {"U_X", o_user, "X{u=1}"}, {"C_x", none, "x{c=1}"},
    {"O_x", o_orig, "x{o=1}"}, {"v_x", none, "v_x{o=1}"}, {"d", none, "d{o=1}"},
    {"d_", none, "{d=1}"}, {"", none, "{o=1}"}, {"d_u_x", none, "x{d=1}"},
    {"error_x", none, "err:x{o=1}"}, {"error_d_x", none, "err:x{d=1}"},
    {"d_error_x", none, "error_x{d=1}"}, {"Error_x", none, "Error_x{o=1}"},
    {"delete_x", none, "del:x{o=1}"},
  };
  for (const auto &[name, origin, expected] : rows) {
    EXPECT_EQ(orv_set_var(name, origin, text("1"), 0), 1) << name;
    EXPECT_EQ(stored() + message(), expected);
    forget();
  }
}

TEST_F(Vars, ACellIsNamedByItsColumnAndRowCutToTheBuffer)
{
  const string column(ORV_NAME_MAX - 2, 'x');
  const std::tuple<string, int, string> rows[] = {
    {"port", 0, "port0"}, {"port", 10, "port10"}, {"port", INT_MAX, "port2147483647"},
    {column, 21, column + "21"}, {column, 345, column + "34"}, {column + "yz+", 1, column + "yz"},
  };
  for (const auto &[start, row, name] : rows) {
    char cell[ORV_NAME_SIZE];
    orv_cell_name(cell, start.c_str(), row);
    EXPECT_EQ(cell, name);
  }
}

TEST_F(Vars, AContradictingOriginIsRefusedOnWritingAndCorrectedOnReading)
{
  const std::tuple<string, v_origin, string, const char *> rows[] = {
    {"u_rate", o_calc, "(c vs u) ", "2"}, {"o_rate", o_best, "(v vs o) ", "4"},
    {"C_rate", o_user, "(u vs c) ", "3"},
  };
  load("d_rate=1;u_rate=2;c_rate=3;rate=4");
  for (const auto &[name, origin, origins, read] : rows) {
    const string report = "Variable origin mismatch " + origins;
    EXPECT_EQ(orv_set_var(name.c_str(), origin, strdup("9"), 1), 0);
    EXPECT_EQ(stored() + message(),
              "rate{d=1 u=2 c=3 o=4}" + report + "setting " + name);
    EXPECT_STREQ(orv_get_var(&cfg_vars, name.c_str(), origin), read);
    EXPECT_EQ(message(), report + "getting " + name);
  }
}

TEST_F(Vars, TheBestValueIsReadAndOnlyADifferenceFromItBecomesTheUsers)
{
  const char *const rows[][4] = { // "*": counts as a change of the page's values
    {"", nullptr, "5", "*x{u=5}"}, {"", nullptr, "", "x{u=}"},
    {"d_x=1", "1", "1", "x{d=1}"}, {"d_x=1", "1", "", "x{d=1 u=}"},
    {"d_x=1", "1", "5", "*x{d=1 u=5}"}, {"u_x=1;d_x=1", "1", "1", "x{d=1 u=1}"},
    {"d_x=1;x=5", "5", "5", "x{d=1 o=5}"}, {"x=a", "a", "A", "*x{u=A o=a}"},
    {"d_x=1;x=5", "5", "1", "*x{d=1 u=1 o=5}"}, {"x=5", "5", "", "*x{u= o=5}"},
    {"c_x=2;x=5", "2", "2", "x{c=2 o=5}"}, {"c_x=2", "2", "5", "*x{u=5 c=2}"},
    {"c_x=2;x=5", "2", "5", "x{u=5 c=2 o=5}"},
    {"u_x=6;c_x=2;x=5", "6", "5", "x{u=5 c=2 o=5}"},
    {"u_x=;x=5", "", "5", "x{u=5 o=5}"}, {"u_x=;x=", "", "", "x{u= o=}"},
    {"u_x=5;x=5;d_x=6", "5", "5", "x{d=6 u=5 o=5}"},
    {"u_y=1;x=1", "1", "1", "*x{o=1} y{u=1}"},
  };
  for (const auto &[lines, best, typed, after] : rows) {
    load(lines);
    EXPECT_STREQ(orv_get_var(&cfg_vars, "X", o_undefined), best);
    EXPECT_EQ(orv_set_var("x", o_best, strdup(typed), 1), 1);
    const string mark = orv_vars_changed(&cfg_vars) != nullptr ? "*" : "";
    EXPECT_EQ(mark + stored(), after) << lines;
    forget();
  }
}

TEST_F(Vars, ScriptOutputIsReadLineByLine)
{
  const string bad = "Bad format script output ";
  const string full(ORV_LINE_MAX - 2, 'x'), y51(51, 'y');
  const std::tuple<string, int, string, string> rows[] = {
    {"\n \t \n", 0, "", ""}, {" \tlevel=5 \t\n", 1, "level{o=5}", ""},
    {"level = 5", 1, "level {o= 5}", ""}, {"a=\n=5\n", 2, "{o=5} a{o=}", ""},
    {"a=b=c\nd_A=2\n", 2, "a{d=2 o=b=c}", ""},
    {"a=\" x \" \nb='x'\n", 2, "b{o=x} a{o= x }", ""},
    {"a='x\"\nb= \"x\"\n", 2, "b{o= \"x\"} a{o='x\"}", ""},
    {"a=\"\"\nb=\"\nc='\n", 3, "c{o=} b{o=} a{o=}", ""},
    {"a=5\r\nb=\"5\"\r\n", 2, "b{o=\"5\"\r} a{o=5\r}", ""},
    {" bash: no \n a=1\n", -1, "a{o=1}", bad + "\"bash: no\""},
    {"a=" + full + "b=2\n", 2, "b{o=2} a{o=" + full + "}", ""},
    {"a=" + full + y51 + "\n", -1, "a{o=" + full + "}", bad + '"' + y51 + '"'},
    {string("a=1\0b=2\nc=3\n\0d=4\n", 18), 2, "c{o=3} a{o=1}", ""},
  };
  for (const auto &[lines, result, expected, report] : rows) {
    EXPECT_EQ(load(lines), result) << lines;
    EXPECT_EQ(stored() + message(), expected + report);
    forget();
  }
}

TEST_F(Vars, AScriptTakesEveryValueAndAnswersOrTheSaveFails)
{
  const string cfg = "none{} third{u=\"$x' 2 o=1} second{d=3} first{o=2}";
  const string junk = "Bad format script output \"junk\"";
  const std::tuple<const char *, int, string, string> rows[] = {
    {"cat >seen", 1, cfg, ""},
    {"exec <&-; echo c_a=5; echo junk", 1, "a{c=5} " + cfg, junk},
    {"echo error_a=Too high", 0, cfg + " err:a{o=Too high}", ""},
    {"printf -v x %240s a=5; yes \"$x\" | head -c 16777217", 0,
     "a{o=5} " + cfg, "Script output too long"},
  };
  for (const auto &[script, result, after, report] : rows) {
    forget();
    load("first=2;d_second=3;third=1;u_third=\"\"$x' 2\";error_old=stale");
    orv_set_var_ischeckbox("c_none");
    write_script(script);
    EXPECT_EQ(orv_save_vars(&cfg_vars, "s.sh"), result);
    EXPECT_EQ(stored() + message(), after + report) << script;
  }
  EXPECT_EQ(read_file("seen"),
            "new_third=\"\"$x' 2\"\nnew_second=\"3\"\nnew_first=\"2\"\n");
}

TEST_F(Vars, ALongListFindsWhatAWalkFinds)
{
  for (orv_var **list : {&cfg_vars, &err_vars, &del_vars}) {
    const auto found = [&](int number) {
      return orv_find_var(list, text("D_nAME" + std::to_string(number)), 0);
    };
    int number = 0;
    for (; number < 300; number++) {
      orv_find_var(list, text("Name" + std::to_string(number)), 1);
    }
    EXPECT_EQ(found(number), nullptr);
    for (orv_var *var = *list; var != nullptr; var = var->next) {
      EXPECT_EQ(found(--number), var);
    }
    EXPECT_EQ(number, 0);
    orv_free_vars(list);
    EXPECT_EQ(found(7), nullptr);
  }
}
