// Reports and truth values.

#include "orv.h"

#include "fixture.h"

namespace
{

using Runtime = Scratch;

string alternative;

TEST_F(Runtime, EveryReportIsLoggedAndTheLastIsKept)
{
  const string longest(249, 'x');
  orv_fatal_alt_report = [](const char *told) { alternative += told; };
  const string log = logged(LOG_ERR, [&] {
    orv_fatal("first %d", 1);
    orv_error("%s", "100%n");
    EXPECT_EQ(message(), "100%n");
    orv_fatal("%sy", longest.c_str());
  });
  EXPECT_EQ(log, "log: first 1\nlog: 100%n\nlog: " + longest + "\n");
  EXPECT_EQ(message(), longest);
  EXPECT_EQ(alternative, "first 1" + longest);
  orv_fatal_alt_report = nullptr;
  orv_fatal_no_exit = 0;
  EXPECT_EXIT(orv_fatal("end"), testing::ExitedWithCode(1), "");
  orv_error("go on");
  EXPECT_EQ(message(), "go on");
}

TEST_F(Runtime, TruthIsReadFromText)
{
  EXPECT_EQ(orv_string_is_true(nullptr), 0);
  for (const char *no : {"", "0", "no", "NO", "False", "oFf"}) {
    EXPECT_EQ(orv_string_is_true(no), 0) << no;
  }
  for (const char *yes : {"00", " 0", "0 ", " no", "n", "offer", "yes", "2"}) {
    EXPECT_EQ(orv_string_is_true(yes), 1) << yes;
  }
  EXPECT_EQ(orv_always_submit_set(), 0);
  load("d_always_submit=1\n");
  EXPECT_EQ(orv_always_submit_set(), 1);
  load("u_ALWAYS_submit=off\n");
  EXPECT_EQ(orv_always_submit_set(), 0) << "the best value counts";
}

} // namespace
