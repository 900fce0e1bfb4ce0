// Memory that reports its failure, reports, truth values and the variables
// that describe the device.

#include "orv.h"

#include <stdint.h>

#include "fixture.h"

// An impossible allocation is to fail as it does without the sanitizer.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options()
{
  return "allocator_may_return_null=1";
}

namespace
{

using Runtime = Scratch;

// clang-format off

TEST_F(Runtime, AFailedAllocationIsReportedAndLeavesTheBlockValid)
{
  EXPECT_EQ(must_malloc(SIZE_MAX / 2), nullptr);
  EXPECT_EQ(message(), "orv: out of memory");
  char *block = must_strdup("kept");
  char *const before = block;
  EXPECT_EQ(must_realloc(&block, SIZE_MAX / 2), 0);
  EXPECT_EQ(message(), "orv: cannot realloc memory");
  EXPECT_EQ(block, before);
  EXPECT_EQ(must_realloc(&block, 100000), 1);
  EXPECT_STREQ(block, "kept");
  free(block);
  char *empty = must_strdup(nullptr);
  EXPECT_STREQ(empty, "");
  free(empty);
  EXPECT_EQ(message(), "");
}

string alternative;

TEST_F(Runtime, EveryReportIsLoggedAndTheLastIsKept)
{
  const string longest(249, 'x');
  orv_fatal_alt_report = [](const char *told) { alternative += told; };
  EXPECT_EQ(logged(LOG_ERR, [&] {
    orv_fatal("first %d", 1);
    orv_error("%s", "100%n");
    EXPECT_EQ(message(), "100%n");
    orv_fatal("%sy", longest.c_str());
  }), "log: first 1\nlog: 100%n\nlog: " + longest + "\n");
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
  EXPECT_EQ(orv_always_submit_set(), 0);
  const std::pair<const char *, int> rows[] = {
    {"", 0}, {"0", 0}, {"no", 0}, {"NO", 0}, {"False", 0}, {"oFf", 0},
    {"00", 1}, {" 0", 1}, {"0 ", 1}, {" no", 1}, {"n", 1}, {"offer", 1},
    {"yes", 1}, {"2", 1},
  };
  for (const auto &[words, truth] : rows) {
    EXPECT_EQ(orv_string_is_true(words), truth) << words;
    orv_set_var("Always_Submit", o_default, text(words), 0);
    EXPECT_EQ(orv_always_submit_set(), truth) << words;
  }
  orv_set_var("always_submit", o_user, text("off"), 0);
  EXPECT_EQ(orv_always_submit_set(), 0) << "the best value counts";
}

// Environment strings are never freed: each row has a process of its own.
TEST_F(Runtime, TheDeviceIsDescribedByItsFileOrByDefaults)
{
  const struct {
    const char *preset, *file, *expected;
  } rows[] = {
    {nullptr, nullptr,                              "KMX,0,0,"},
    {nullptr, "HW_VERSION=7\n",                     "KMX,7,0,"},
    {nullptr, "SW_VERSION 2.1\nSYSTEM_TYPE=\"A\"\n", "A,0,2.1,"},
    {"mine",  "SYSTEM_TYPE=A\nHW_VERSION=7\n",      "mine,none,none,"},
    {"",      "SYSTEM_TYPE=A\n",                    ",none,none,"},
  };
  for (const auto &row : rows) {
    std::filesystem::remove("data/system_type");
    if (row.file != nullptr) {
      write_file("data/system_type", row.file);
    }
    EXPECT_EXIT({
      clearenv();
      if (row.preset != nullptr) {
        setenv("SYSTEM_TYPE", row.preset, 1);
      }
      orv_init_env();
      for (const char *name : {"SYSTEM_TYPE", "HW_VERSION", "SW_VERSION"}) {
        const char *value = getenv(name);
        fprintf(stderr, "%s,", value != nullptr ? value : "none");
      }
      exit(orv_error_msg == nullptr ? 0 : 1);
    }, testing::ExitedWithCode(0), "^" + string(row.expected) + "$");
  }
}

// clang-format on

} // namespace
