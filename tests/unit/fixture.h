// Shared by the unit tests: a scratch folder to run in and the system log as
// text.  It includes little, since every change here recompiles all of them.

#ifndef FIXTURE_H
#define FIXTURE_H

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <string.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "orv_error.h"

using std::string;

inline char *text(const string &words)
{
  return const_cast<char *>(words.c_str());
}

// The last message reported, which is then cleared.
inline string message()
{
  const string last = orv_error_msg != nullptr ? orv_error_msg : "";
  orv_error_msg = nullptr;
  return last;
}

// The messages that `work` sends to the system log at `priority`, each as a
// line "log: TEXT".
template <typename Work> string logged(int priority, Work work)
{
  openlog("log", LOG_PERROR, LOG_USER);
  setlogmask(LOG_MASK(priority));
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

// Makes a system call fail, as in an old kernel or without /proc.
inline void deny(long call)
{
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {4, filter};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    _exit(99);
  }
}

class Scratch : public ::testing::Test
{
protected:
  string dir = "/tmp/larkspur_unit_XXXXXX";

  void SetUp() override
  {
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    std::filesystem::current_path(dir);
    std::filesystem::create_directories("data/scripts");
    orv_fatal_no_exit = 1;
    orv_error_msg = nullptr;
  }

  void TearDown() override
  {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(dir);
  }

  static void write_file(const string &path, const string &content,
                         mode_t mode = 0644)
  {
    std::ofstream(path) << content;
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }

  static void write_script(const string &lines)
  {
    write_file("data/scripts/s.sh", "#!/bin/bash\n" + lines + "\n", 0755);
  }

  // In 2040: later than 32 bits can express.
  static void date_late(const string &path)
  {
    const timespec late = {2208988800, 0};
    const timespec times[] = {late, late};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }

  static string read_file(const string &path)
  {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

#endif
