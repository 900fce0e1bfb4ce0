// Reports, truth values, and lack of memory.

#include "orv.h"

#include "fixture.h"
#include "orv_output.h"

using Runtime = Scratch;

TEST_F(Runtime, EveryReportIsLoggedAndTheLastIsKept)
{
  static string alternative;
  orv_fatal_alt_report = [](const char *told) { alternative += told; };
  const string longest(249, 'x');
  const string log = logged(LOG_ERR, [&] {
    orv_fatal("first %d", 1);
    orv_error("%s", "100%n");
    EXPECT_EQ(message(), "100%n");
    orv_fatal("%sy", longest.c_str());
  });
  EXPECT_EQ(log, "log: first 1\nlog: 100%n\nlog: " + longest + "\n");
  EXPECT_EQ(message() + alternative, longest + "first 1" + longest);
  for (const size_t length : {248U, 249U, 250U}) {
    orv_error("%s", string(length, 'x').c_str());
    EXPECT_EQ(message(), longest.substr(0, length));
  }
  orv_fatal_no_exit = 0;
  EXPECT_EXIT(orv_fatal("end"), testing::ExitedWithCode(1), "");
}

TEST_F(Runtime, TheSystemLogGetsAHundredMessagesOfARequest)
{
  string expected;
  const string log = logged(LOG_INFO, [&] {
    for (int i = 0; i < 98; i++) {
      orv_log(LOG_INFO, "a");
      expected += "log: a\n";
    }
    orv_out_expand(text("$q:$$r:$")); // each is reported twice
  });
  EXPECT_EQ(log, expected + "log: Bad format variable subs. Unknown type\n"
                            "log: Further messages of this request are left "
                            "out\n");
  EXPECT_EQ(logged(LOG_ERR, [] { orv_error("b"); }), "");
  EXPECT_EQ(message(), "b");
}

TEST_F(Runtime, LackOfMemoryIsReported)
{
  EXPECT_EQ(must_malloc(SIZE_MAX - 99), nullptr);
  EXPECT_EQ(message(), "orv: out of memory");
  char *kept = must_strdup("kept");
  EXPECT_EQ(must_realloc(&kept, SIZE_MAX - 99), 0);
  EXPECT_EQ(message(), "orv: cannot realloc memory");
  EXPECT_STREQ(kept, "kept");
  free(kept);
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
}
