// The variable store and its exchange with scripts.

#include "orv_vars.h"

#include <string.h>

#include "fixture.h"

namespace
{

using Vars = Scratch;

// Hands a copy over, or lets the store make one.
int set(const char *name, v_origin origin, const string &value, int malloced)
{
  return orv_set_var(name, origin,
                     malloced != 0 ? strdup(value.c_str()) : text(value),
                     malloced);
}

// clang-format off

TEST_F(Vars, ANameTellsTheListTheSlotAndTheRecord)
{
  constexpr v_origin none = o_undefined;
  const struct {
    const char *name;
    v_origin origin;
    const char *expected;
  } rows[] = {
    {"x", none, "x{o=1}"}, {"x", o_default, "x{d=1}"}, {"x", o_user, "x{u=1}"},
    {"x", o_calc, "x{c=1}"}, {"x", o_orig, "x{o=1}"}, {"x", o_best, "x{u=1}"},
    {"d_x", none, "x{d=1}"}, {"D_x", o_default, "x{d=1}"},
    {"u_x", none, "x{u=1}"}, {"U_X", o_user, "X{u=1}"},
    {"c_x", o_calc, "x{c=1}"}, {"C_x", none, "x{c=1}"},
    {"o_x", none, "x{o=1}"}, {"O_x", o_orig, "x{o=1}"},
    {"v_x", none, "v_x{o=1}"}, {"d", none, "d{o=1}"}, {"d_", none, "{d=1}"},
    {"", none, "{o=1}"}, {"d_u_x", none, "x{d=1}"}, // both are skipped
    {"error_x", none, "err:x{o=1}"}, {"error_d_x", none, "err:x{d=1}"},
    {"d_error_x", none, "error_x{d=1}"}, {"Error_x", none, "Error_x{o=1}"},
    {"delete_x", none, "del:x{o=1}"},
    {"error_delete_x", o_best, "err:delete_x{u=1}"},
  };
  for (const auto &row : rows) {
    for (const int malloced : {0, 1}) {
      EXPECT_EQ(set(row.name, row.origin, "1", malloced), 1) << row.name;
      EXPECT_EQ(stored(), row.expected);
      EXPECT_EQ(message(), "");
      forget();
    }
  }
}

TEST_F(Vars, AContradictingOriginIsRefusedOnWritingAndCorrectedOnReading)
{
  const auto no_origin = static_cast<v_origin>('x');
  const struct {
    const char *name;
    v_origin origin;
    string report, named;
    const char *read;
  } rows[] = {
    {"u_rate", o_calc, "Variable origin mismatch (c vs u) ", " u_rate", "2"},
    {"o_rate", o_best, "Variable origin mismatch (v vs o) ", " o_rate", "4"},
    {"C_rate", o_user, "Variable origin mismatch (u vs c) ", " C_rate", "3"},
    {"rate", no_origin, "Logic bomb ", " rate origin 120", nullptr},
  };
  load("d_rate=1\nu_rate=2\nc_rate=3\nrate=4\n");
  for (const auto &row : rows) {
    for (const int malloced : {0, 1}) {
      EXPECT_EQ(set(row.name, row.origin, "9", malloced), 0);
      EXPECT_EQ(message(), row.report + "setting" + row.named);
      EXPECT_EQ(stored(), "rate{d=1 u=2 c=3 o=4}");
    }
    EXPECT_STREQ(orv_get_var(&cfg_vars, row.name, row.origin), row.read);
    EXPECT_EQ(message(), row.report + "getting" + row.named);
  }
  set("error_d_rate", o_calc, "9", 1);
  EXPECT_EQ(message(), "Variable origin mismatch (c vs d) setting d_rate");
}

TEST_F(Vars, TheBestValueIsReadAndOnlyADifferenceFromItBecomesTheUsers)
{
  const struct {
    const char *lines, *best, *typed, *after;
  } rows[] = {
    {"", nullptr, "5", "x{u=5}"},
    {"", nullptr, "", "x{u=}"},
    {"d_x=1\n", "1", "1", "x{d=1}"},
    {"d_x=1\n", "1", "", "x{d=1 u=}"},
    {"d_x=1\nx=5\n", "5", "5", "x{d=1 o=5}"},
    {"d_x=1\nx=5\n", "5", "1", "x{d=1 u=1 o=5}"},
    {"c_x=2\nx=5\n", "2", "2", "x{c=2 o=5}"},
    {"c_x=2\nx=5\n", "2", "5", "x{u=5 c=2 o=5}"},
    {"u_x=6\nc_x=2\nx=5\n", "6", "5", "x{u=5 c=2 o=5}"},
    {"u_x=\nx=5\n", "", "5", "x{u=5 o=5}"},
    {"x=a\n", "a", "A", "x{u=A o=a}"},
  };
  for (const auto &row : rows) {
    for (const int malloced : {0, 1}) {
      load(row.lines);
      EXPECT_STREQ(orv_get_var(&cfg_vars, "X", o_undefined), row.best);
      EXPECT_EQ(set("x", o_best, row.typed, malloced), 1);
      EXPECT_EQ(stored(), row.after) << row.lines;
      forget();
    }
  }
}

TEST_F(Vars, AChangeIsAUserValueThatDiffersFromWhatThePageWasMadeOf)
{
  const std::pair<const char *, const char *> rows[] = {
    {"o_x=5\nd_x=6\nc_x=7\n", ""}, {"u_x=5\no_x=5\n", ""},
    {"u_x=6\no_x=5\n", "x"}, {"u_x=\no_x=5\n", "x"}, {"u_x=\no_x=\n", ""},
    {"u_x=5\no_x=5\nd_x=6\n", ""}, {"u_x=5\no_x=6\nd_x=5\n", "x"},
    {"u_x=\nd_x=5\n", ""}, {"u_x=5\nd_x=5\n", ""}, {"u_x=5\nd_x=6\n", "x"},
    {"u_x=5\n", "x"}, {"u_x=5\nc_x=5\n", "x"},
    {"u_x=1\nu_y=1\ny=1\n", "x"}, {"u_x=1\nu_y=1\nz=1\n", "y"},
  };
  for (const auto &[lines, changed] : rows) {
    forget();
    load(lines);
    const orv_var *var = orv_vars_changed(&cfg_vars);
    EXPECT_STREQ(var != nullptr ? var->name : "", changed) << lines;
  }
}

TEST_F(Vars, ScriptOutputIsReadLineByLine)
{
  const string bad = "Bad format script output ";
  const string x247(247, 'x');
  const string y51(51, 'y');
  const struct {
    string lines;
    int result;
    string expected, report;
  } rows[] = {
    {"", 0, "", ""}, {"\n \t \n", 0, "", ""},
    {" \tlevel=5 \t\n", 1, "level{o=5}", ""},
    {"level = 5", 1, "level {o= 5}", ""},
    {"a=\n=5\n", 2, "{o=5} a{o=}", ""},
    {"a=b=c\nd_A=2\n", 2, "a{d=2 o=b=c}", ""},
    {"error_a=Not supported\ndelete_t_0=1\n", 2,
     "err:a{o=Not supported} del:t_0{o=1}", ""},
    {"a=\" x \" \nb='x'\n", 2, "b{o=x} a{o= x }", ""},
    {"a='x\"\nb= \"x\"\n", 2, "b{o= \"x\"} a{o='x\"}", ""},
    {"a=\"x\\\"y\"\n", 1, "a{o=x\\\"y}", ""},
    {"a=\"\"\nb=\"\nc='\n", 3, "c{o=} b{o=} a{o=}", ""},
    {"a=5\r\nb=\"5\"\r\n", 2, "b{o=\"5\"\r} a{o=5\r}", ""},
    {"\r\n", -1, "", bad + "\"\r\""},
    {" bash: no \n a=1\n", -1, "a{o=1}", bad + "\"bash: no\""},
    {"a=" + x247 + "\n", 1, "a{o=" + x247 + "}", ""},
    {"a=" + x247 + "b=2\n", 2, "b{o=2} a{o=" + x247 + "}", ""},
    {"a=" + x247 + y51 + "\n", -1, "a{o=" + x247 + "}", bad + '"' + y51 + '"'},
    {string("a=1\0b=2\nc=3\n\0d=4\n", 18), 2, "c{o=3} a{o=1}", ""},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(load(row.lines), row.result) << row.lines;
    EXPECT_EQ(stored(), row.expected);
    EXPECT_EQ(message(), row.report);
    forget();
  }
}

TEST_F(Vars, ScriptsReportValuesAndTakeThemOver)
{
  enum step { LOAD, MERGE, SAVE };
  const string cfg = "none{} third{u=\"$x' 2 o=1} second{d=3} first{o=2}";
  const string err = " err:old{o=stale}";
  const string missing = "Script \"data/scripts/none.sh\" does not exist";
  const string killed = "orv_script_wait: script terminated by signal 9";
  const string junk = "Bad format script output \"junk\"";
  const struct {
    step what;
    const char *command, *script;
    int result;
    string after, report;
  } rows[] = {
    {LOAD, "s.sh", "echo a=5; echo d_a=7", 2, "a{d=7 o=5}" + err, ""},
    {LOAD, "s.sh", "echo a=5; exit 1", -1, "a{o=5}" + err, ""},
    {LOAD, "s.sh", "echo a=5; kill -9 $$", -1, "a{o=5}" + err, killed},
    {LOAD, "s.sh", "echo junk >&2; echo a=5", -1, "a{o=5}" + err, junk},
    {LOAD, "none.sh", "", -1, err.substr(1), missing},
    {MERGE, "s.sh", "echo a=5", 1, "a{o=5} " + cfg + err, ""},
    {MERGE, "s.sh", ":", 0, cfg + err, ""},
    {MERGE, "none.sh a", "", -1, cfg + err, missing},
    {SAVE, "s.sh", "cat >seen", 1, cfg, ""},
    {SAVE, "s.sh", "exec <&-; echo c_a=5; echo junk", 1, "a{c=5} " + cfg, junk},
    {SAVE, "s.sh", "echo error_a=Too high", 0, cfg + " err:a{o=Too high}", ""},
    {SAVE, "s.sh", "printf -v x %240s a=5; yes \"$x\" | head -c 16777217", 0,
     "a{o=5} " + cfg, "Script output too long"},
    {SAVE, "s.sh", "exit 2", 0, cfg, ""},
    {SAVE, "s.sh", "kill -9 $$", 0, cfg, killed},
    {SAVE, "none.sh", "", 0, cfg + err, missing},
  };
  for (const auto &row : rows) {
    forget();
    load("first=2\nd_second=3\nthird=1\nu_third=\"\"$x' 2\"\n"
         "error_old=stale\n");
    orv_set_var_ischeckbox("c_none");
    EXPECT_EQ(cfg_vars->is_checkbox, 1u);
    write_script(row.script);
    EXPECT_EQ(row.what == SAVE ? orv_save_vars(&cfg_vars, row.command)
                               : orv_load_vars(row.command, row.what == MERGE),
              row.result) << row.script;
    EXPECT_EQ(stored(), row.after);
    EXPECT_EQ(message(), row.report);
  }
  EXPECT_EQ(read_file("seen"),
            "new_third=\"\"$x' 2\"\nnew_second=\"3\"\nnew_first=\"2\"\n");
}

// clang-format on

TEST_F(Vars, AWriteThatFailsFailsTheSave)
{
  FILE *full = fopen("/dev/full", "w");
  setvbuf(full, nullptr, _IONBF, 0);
  EXPECT_EQ(orv_save_vars_fp(&cfg_vars, full), 0) << "nothing to write";
  set("long", o_user, string(1000000, 'x'), 0);
  EXPECT_LT(orv_save_vars_fp(&cfg_vars, full), 0);
  fclose(full);
  write_script("exit 0");
  EXPECT_EQ(orv_save_vars(&cfg_vars, "s.sh"), 0);
  write_script("sleep 0.1; cat >/dev/null");
  EXPECT_EQ(orv_save_vars(&cfg_vars, "s.sh"), 1);
}

TEST_F(Vars, ACopyReusesTheBufferThatIsLongEnough)
{
  set("x", o_user, "hello", 0);
  char *const buffer = orv_get_var(&cfg_vars, "x", o_user);
  orv_set_var("x", o_user, buffer + 1, 0);
  EXPECT_EQ(stored(), "x{u=ello}");
  set("x", o_user, "ABCD", 0);
  EXPECT_STREQ(buffer, "ABCD");
  EXPECT_EQ(orv_set_var("x", o_user, nullptr, 0), 1);
  EXPECT_EQ(orv_get_var(&cfg_vars, "x", o_user), buffer);
  set("x", o_user, string(1000, 'x'), 0);
  EXPECT_EQ(orv_set_var("new", o_calc, nullptr, 0), 1);
  EXPECT_EQ(orv_set_var("new", o_user, nullptr, 1), 1);
  EXPECT_EQ(stored(), "new{u= c=} x{u=" + string(1000, 'x') + "}");
}

// Looks up what is there and what is not, half of it in another spelling.
void expect_as_walked(orv_var **list, const char *why)
{
  for (int i = 310; i >= 0; i--) {
    const string name = (i % 2 != 0 ? "Name" : "nAME") + std::to_string(i);
    orv_var *expected = *list;
    while (expected != nullptr && strcasecmp(expected->name, text(name)) != 0) {
      expected = expected->next;
    }
    EXPECT_EQ(orv_find_var(list, text("D_" + name), 0), expected)
        << why << ": " << name;
  }
}

TEST_F(Vars, ALongListGivesWhatAWalkGivesWhateverIsDoneToItsHead)
{
  orv_var *own = nullptr;
  for (orv_var **list : {&cfg_vars, &err_vars, &del_vars, &own}) {
    for (int i = 0; i < 300; i++) {
      orv_find_var(list, text("Name" + std::to_string(i)), 1);
    }
    expect_as_walked(list, "filled");
    auto *pushed = static_cast<orv_var *>(calloc(1, sizeof(orv_var)));
    pushed->name = strdup("NAME7");
    pushed->next = *list;
    *list = pushed;
    expect_as_walked(list, "pushed by hand");
    orv_find_var(list, "name305", 1);
    expect_as_walked(list, "grown");
    orv_var *rest = (*list)->next->next;
    (*list)->next->next = nullptr;
    orv_free_vars(list);
    expect_as_walked(list, "emptied");
    *list = rest;
    expect_as_walked(list, "put back");
    *list = nullptr;
    expect_as_walked(list, "emptied by hand");
    orv_find_var(list, "name3", 1);
    expect_as_walked(list, "begun again");
    orv_free_vars(&rest);
    orv_free_vars(list);
  }
}

} // namespace
