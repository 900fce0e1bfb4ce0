// Tuple files as rows of (bytes, name, value), and the closing of descriptors
// with ever fewer system calls to do it by.

#include "kwtutil.h"

#include <fcntl.h>
#include <sys/wait.h>

#include "fixture.h"

using namespace std::string_literals;

// clang-format off

TEST(TupleFile, GivesTheFirstValueOfAName)
{
  const std::tuple<string, const char *, string> rows[] = {
    {"A=1\n", "A", "1"}, {"A 1", "A", "1"}, {" \tA \t=\t 1 2 \t\n", "A", "1 2"},
    {"A=x=y\n", "A", "x=y"}, {"A=1\nB=2\nA=3\n", "A", "1"},
    {"a=1\n", "A", "(none)"}, {"\n \t\nA=3", "A", "3"},
    {" #A=2\n", "#A", "(none)"}, {"A=\n", "A", ""}, {"A\n=1\n", "A", "(none)"},
    {"A='a \"b'\n", "A", "a \"b"}, {"A \" b \"\n", "A", " b "},
    {"A=\"b'\nB=\"\n", "A", "\"b'"}, {"A=\"\n", "A", "\""},
    {"A=1\0B=2\n"s, "A", "1"},
    {"A=" + string(100000, 'x') + "\nB=2", "B", "2"},
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

// clang-format on

// In a process of its own: how many descriptors the call leaves open.
static int open_after(int keep_standard, const std::vector<long> &denied)
{
  const pid_t pid = fork();
  if (pid == 0) {
    for (int fd = 200; fd < 400; fd++) {
      dup2(STDIN_FILENO, fd);
    }
    for (const long call : denied) {
      deny(call);
    }
    close_all_file_descriptors(keep_standard);
    int count = 0;
    for (int fd = 0; fd < 1000; fd++) {
      count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    _exit(count);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Descriptors, AreClosedWhateverTheKernelOffers)
{
  const std::vector<long> rows[] = {{},
                                    {SYS_close_range},
                                    {SYS_close_range, SYS_openat},
                                    {SYS_close_range, SYS_getdents64}};
  for (const auto &denied : rows) {
    EXPECT_EQ(3, open_after(1, denied)) << denied.size() << " calls denied";
    EXPECT_EQ(0, open_after(0, denied)) << denied.size() << " calls denied";
  }
}
