// The variable store and its exchange with scripts.

#include "orv_vars.h"

#include "fixture.h"

using Vars = Scratch;

// Hands a copy over, or lets the store make one.
static int set(const char *name, v_origin origin, const string &value,
               int malloced)
{
  return orv_set_var(name, origin,
                     malloced != 0 ? strdup(value.c_str()) : text(value),
                     malloced);
}

// clang-format off

TEST_F(Vars, ANameTellsTheListTheSlotAndTheRecord)
{
  constexpr v_origin none = o_undefined;
  const std::tuple<const char *, v_origin, const char *> rows[] = {
    {"x", none, "x{o=1}"}, {"x", o_default, "x{d=1}"}, {"x", o_calc, "x{c=1}"},
    {"x", o_orig, "x{o=1}"}, {"x", o_best, "x{u=1}"}, {"d_x", none, "x{d=1}"},
    {"D_x", o_default, "x{d=1}"}, {"u_x", none, "x{u=1}"},
    {"U_X", o_user, "X{u=1}"}, {"C_x", none, "x{c=1}"}, {"o_x", none, "x{o=1}"},
    {"O_x", o_orig, "x{o=1}"}, {"v_x", none, "v_x{o=1}"}, {"d", none, "d{o=1}"},
    {"d_", none, "{d=1}"}, {"", none, "{o=1}"}, {"d_u_x", none, "x{d=1}"},
    {"error_x", none, "err:x{o=1}"}, {"error_d_x", none, "err:x{d=1}"},
    {"d_error_x", none, "error_x{d=1}"}, {"Error_x", none, "Error_x{o=1}"},
    {"error_delete_x", o_best, "err:delete_x{u=1}"},
    {"delete_x", none, "del:x{o=1}"},
  };
  for (const auto &[name, origin, expected] : rows) {
    for (const int malloced : {0, 1}) {
      EXPECT_EQ(set(name, origin, "1", malloced), 1) << name;
      EXPECT_EQ(stored() + message(), expected);
      forget();
    }
  }
}

TEST_F(Vars, AContradictingOriginIsRefusedOnWritingAndCorrectedOnReading)
{
  const string mismatch = "Variable origin mismatch ";
  const std::tuple<const char *, v_origin, string, string, const char *>
    rows[] = {
    {"u_rate", o_calc, mismatch + "(c vs u) ", "u_rate", "2"},
    {"o_rate", o_best, mismatch + "(v vs o) ", "o_rate", "4"},
    {"C_rate", o_user, mismatch + "(u vs c) ", "C_rate", "3"},
    {"rate", v_origin('x'), "Logic bomb ", "rate origin 120", nullptr},
  };
  load("d_rate=1;u_rate=2;c_rate=3;rate=4");
  for (const auto &[name, origin, report, named, read] : rows) {
    for (const int malloced : {0, 1}) {
      EXPECT_EQ(set(name, origin, "9", malloced), 0);
      EXPECT_EQ(stored() + message(),
                "rate{d=1 u=2 c=3 o=4}" + report + "setting " + named);
    }
    EXPECT_STREQ(orv_get_var(&cfg_vars, name, origin), read);
    EXPECT_EQ(message(), report + "getting " + named);
  }
  set("error_d_rate", o_calc, "9", 1);
  EXPECT_EQ(message(), mismatch + "(c vs d) setting d_rate");
}

TEST_F(Vars, TheBestValueIsReadAndOnlyADifferenceFromItBecomesTheUsers)
{
  const char *const rows[][4] = { // "*": that is a change of the page's values
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
    for (const int malloced : {0, 1}) {
      load(lines);
      EXPECT_STREQ(orv_get_var(&cfg_vars, "X", o_undefined), best);
      EXPECT_EQ(set("x", o_best, typed, malloced), 1);
      const string mark = orv_vars_changed(&cfg_vars) != nullptr ? "*" : "";
      EXPECT_EQ(mark + stored(), after) << lines;
      forget();
    }
  }
}

TEST_F(Vars, ScriptOutputIsReadLineByLine)
{
  const string bad = "Bad format script output ";
  const string x247(247, 'x'), y51(51, 'y');
  const std::tuple<string, int, string, string> rows[] = {
    {"", 0, "", ""}, {"\n \t \n", 0, "", ""},
    {" \tlevel=5 \t\n", 1, "level{o=5}", ""},
    {"level = 5", 1, "level {o= 5}", ""}, {"a=\n=5\n", 2, "{o=5} a{o=}", ""},
    {"a=b=c\nd_A=2\n", 2, "a{d=2 o=b=c}", ""},
    {"a=\" x \" \nb='x'\n", 2, "b{o=x} a{o= x }", ""},
    {"a='x\"\nb= \"x\"\n", 2, "b{o= \"x\"} a{o='x\"}", ""},
    {"a=\"x\\\"y\"\n", 1, "a{o=x\\\"y}", ""},
    {"a=\"\"\nb=\"\nc='\n", 3, "c{o=} b{o=} a{o=}", ""},
    {"a=5\r\nb=\"5\"\r\n", 2, "b{o=\"5\"\r} a{o=5\r}", ""},
    {"\r\n", -1, "", bad + "\"\r\""},
    {" bash: no \n a=1\n", -1, "a{o=1}", bad + "\"bash: no\""},
    {"a=" + x247 + "b=2\n", 2, "b{o=2} a{o=" + x247 + "}", ""},
    {"a=" + x247 + y51 + "\n", -1, "a{o=" + x247 + "}", bad + '"' + y51 + '"'},
    {string("a=1\0b=2\nc=3\n\0d=4\n", 18), 2, "c{o=3} a{o=1}", ""},
  };
  for (const auto &[lines, result, expected, report] : rows) {
    EXPECT_EQ(load(lines), result) << lines;
    EXPECT_EQ(stored() + message(), expected + report);
    forget();
  }
}

TEST_F(Vars, ScriptsReportValuesAndTakeThemOver)
{
  enum step { LOAD, MERGE, SAVE };
  const string cfg = "none{} third{u=\"$x' 2 o=1} second{d=3} first{o=2}";
  const string err = " err:old{o=stale}";
  const string junk = "Bad format script output \"junk\"";
  const std::tuple<step, const char *, int, string, string> rows[] = {
    {LOAD, "echo a=5; echo d_a=7", 2, "a{d=7 o=5}" + err, ""},
    {LOAD, "echo a=5; exit 1", -1, "a{o=5}" + err, ""},
    {MERGE, "echo a=5", 1, "a{o=5} " + cfg + err, ""},
    {SAVE, "cat >seen", 1, cfg, ""},
    {SAVE, "exec <&-; echo c_a=5; echo junk", 1, "a{c=5} " + cfg, junk},
    {SAVE, "echo error_a=Too high", 0, cfg + " err:a{o=Too high}", ""},
    {SAVE, "printf -v x %240s a=5; yes \"$x\" | head -c 16777217", 0,
     "a{o=5} " + cfg, "Script output too long"},
    {SAVE, "exit 2", 0, cfg, ""},
  };
  for (const auto &[what, script, result, after, report] : rows) {
    forget();
    load("first=2;d_second=3;third=1;u_third=\"\"$x' 2\";error_old=stale");
    orv_set_var_ischeckbox("c_none");
    EXPECT_EQ(cfg_vars->is_checkbox, 1u);
    write_script(script);
    EXPECT_EQ(what == SAVE ? orv_save_vars(&cfg_vars, "s.sh")
                           : orv_load_vars("s.sh", what == MERGE), result);
    EXPECT_EQ(stored() + message(), after + report) << script;
  }
  EXPECT_EQ(read_file("seen"),
            "new_third=\"\"$x' 2\"\nnew_second=\"3\"\nnew_first=\"2\"\n");
}

TEST_F(Vars, ALongListFindsWhatAWalkFindsWhateverIsDoneToItsHead)
{
  orv_var *own = nullptr, *all = nullptr;
  for (orv_var **list : {&cfg_vars, &err_vars, &del_vars, &own}) {
    const auto found = [&](int number) {
      return orv_find_var(list, text("D_nAME" + std::to_string(number)), 0);
    };
    for (int i = 0; i < 300; i++) {
      orv_find_var(list, text("Name" + std::to_string(i)), 1);
    }
    int number = 300;
    EXPECT_EQ(found(number), nullptr);
    for (orv_var *var = *list; var != nullptr; var = var->next) {
      EXPECT_EQ(found(--number), var);
    }
    EXPECT_EQ(number, 0);
    std::swap(*list, all);
    EXPECT_EQ(found(7), nullptr) << "emptied by hand";
    orv_find_var(list, "NAME7", 1)->next = all;
    EXPECT_EQ(found(7), *list) << "put in front by hand";
    EXPECT_EQ(found(8), orv_find_var(&all, "Name8", 0));
    orv_free_vars(list);
    all = nullptr;
  }
}
