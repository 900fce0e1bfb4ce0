// Tuple files as rows of (bytes, name, value), and closing descriptors with
// fewer and fewer system calls available.

#include "kwtutil.h"

#include <fcntl.h>

#include "fixture.h"

using namespace std::string_literals;

// clang-format off

TEST(TupleFile, GivesTheFirstValueOfAName)
{
  string sixteen; // as many as the first allocation holds
  for (char name = 'a'; name <= 'p'; name++) {
    sixteen += name + "=1\n"s;
  }
  const std::tuple<string, const char *, string> rows[] = {
    {"A=1\n", "A", "1"}, {"A 1", "A", "1"}, {" \tA \t=\t 1 2 \t\n", "A", "1 2"},
    {"A=x=y\n", "A", "x=y"}, {"A=1\nB=2\nA=3\n", "A", "1"},
    {"a=1\n", "A", "(none)"}, {"\n \t\nA=3", "A", "3"},
    {" #A=2\n", "#A", "(none)"}, {"A=\n", "A", ""}, {"A\n=1\n", "A", "(none)"},
    {"A='a \"b'\n", "A", "a \"b"}, {"A \" b \"\n", "A", " b "},
    {"A=\"b'\nB=\"\n", "A", "\"b'"}, {"A=\"\n", "A", "\""},
    {"A=1\0B=2\n"s, "A", "1"}, {"A=" + string(100000, 'x') + "\nB=2", "B", "2"},
    {sixteen, "p", "1"}, {sixteen + "q=2\n", "q", "2"},
  };
  for (const auto &[bytes, name, value] : rows) {
    std::ofstream("tuples", std::ios::binary) << bytes;
    kwtutil_cffile_t *file = kwtutil_cffile_load("tuples");
    kwtutil_cffile_tuple *tuple = kwtutil_cffile_find_tuple(file, name);
    EXPECT_EQ(value, tuple != nullptr ? tuple->value : "(none)");
    kwtutil_cffile_free(file);
  }
  EXPECT_EQ(nullptr, kwtutil_cffile_load("no such file"));
  EXPECT_EQ(nullptr, kwtutil_cffile_load(".")) << "opens, but cannot be read";
}

TEST(Descriptors, AreClosedWhateverTheKernelOffers)
{
  const std::vector<long> rows[] = {
    {}, {SYS_close_range}, {SYS_close_range, SYS_openat},
    {SYS_close_range, SYS_getdents64}};
  for (const auto &denied : rows) {
    for (const int keep_standard : {0, 1}) {
      EXPECT_EXIT({
        for (int fd = 200; fd < 400; fd++) {
          dup2(STDIN_FILENO, fd);
        }
        std::for_each(denied.begin(), denied.end(), deny);
        close_all_file_descriptors(keep_standard);
        int count = 0;
        for (int fd = 0; fd < 1000; fd++) {
          count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
        }
        _exit(count);
      }, testing::ExitedWithCode(keep_standard * 3), "");
    }
  }
}
