// A state folder for each test, and work on it in separate processes, like
// calls of the store.

#ifndef STORE_FIXTURE_H
#define STORE_FIXTURE_H

#include <functional>
#include <sys/wait.h>

#include "commit.h"
#include "fault.h"
#include "fixture.h"
#include "folder.h"
#include "save.h"

class Store : public Scratch
{
protected:
  void SetUp() override
  {
    Scratch::SetUp();
    std::filesystem::create_directory("state");
    setenv("ORV_STATE", "state", 1);
    setenv("ORV_DEFAULTS", "nowhere", 1);
    setenv("ORV_TEMPLATES", "nowhere", 1);
  }

  // The result of `work` under the lock: "done", its fault, or "no" without
  // one.
  template <typename Work> static string locked(Work work)
  {
    fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
      const bool done = store_open(false) && store_lock_for("test") && work();
      const char *fault = store_fault_text();
      write_file("outcome", done ? "done" : fault != nullptr ? fault : "no");
      _exit(0);
    }
    int status;
    waitpid(pid, &status, 0);
    return status == 0 ? read_file("outcome") : "ended badly";
  }

  static string save(const string &order, const char *form = "net")
  {
    return locked([&] { return save_order(strdup(order.c_str()), form, nullptr); });
  }

  // The same for several works as one step: each is done by a process that has
  // joined the transaction, like a script's calls.
  static string together(const std::vector<std::function<bool()>> &works)
  {
    return locked([&] {
      store_stage stage;
      char token[STORE_TOKEN_SIZE];
      if (!transaction_begin(&stage, token)) {
        return false;
      }
      setenv("ORV_TRANSACTION", token, 1);
      bool all = true;
      for (const auto &work : works) {
        const pid_t pid = fork();
        if (pid == 0) {
          stage_join();
          _exit(store_lock_for("test") && work() ? 0 : 1);
        }
        int status;
        waitpid(pid, &status, 0);
        all = all && status == 0;
      }
      unsetenv("ORV_TRANSACTION");
      return transaction_commit(&stage) && all;
    });
  }

  // The values of a stored file, "NAME=VALUE " each.
  static string stored(const string &file)
  {
    const string text = read_file("state/" + file);
    string values;
    for (size_t at = 0, end; at < text.size(); at = end + 1) {
      end = std::min(text.find('\n', at), text.size());
      values += text[at] == '#' ? "" : text.substr(at, end - at) + " ";
    }
    return values;
  }

  static bool is_there(const string &path)
  {
    return std::filesystem::exists("state/" + path);
  }
};

#endif
