// A script's command line as a program: a script started without a shell sees
// the same as one started by bash.

#include <signal.h>

#include "form_fixture.h"
#include "orv_scripts.h"

class Exec : public Forms
{
protected:
  // A developer's own shell may export these, which decide whether bash
  // believes that a remote login has started it.
  void SetUp() override
  {
    Forms::SetUp();
    for (const char *name : {"PS1", "SSH_CLIENT", "SHLVL"}) {
      unsetenv(name);
    }
  }

  // Output, status and report of a script line.
  static string run(const string &line)
  {
    pid_t pid;
    FILE *all = orv_script_exchange(line.c_str(), nullptr, 0, &pid);
    string seen;
    for (int c = all != nullptr ? fgetc(all) : EOF; c != EOF; c = fgetc(all)) {
      seen += static_cast<char>(c);
    }
    if (all != nullptr) {
      fclose(all);
      seen += "status " + std::to_string(orv_script_wait(pid));
    }
    return seen + " " + message();
  }

  // A tab is not a plain character, so this line goes to bash.
  static string run_by_bash(const string &line)
  {
    return run(line + " \t");
  }

  // Bash drops the name of a folder that does not exist, so only a script
  // started without bash would see it.
  static bool is_direct(const string &line)
  {
    setenv("OLDPWD", "/nowhere", 1);
    const bool direct = run(line).find("OLDPWD=/nowhere") != string::npos;
    unsetenv("OLDPWD");
    return direct;
  }
};

// clang-format off

static const char SEEN_BY_PYTHON[] =
  "import os, sys\n"
  "print(sys.argv, sorted(os.environ.items()), os.getcwd(), os.umask(0))\n"
  "print(sorted(os.listdir('/proc/self/fd')))\n"
  "print([line for line in open('/proc/self/status') if line[:3] == 'Sig' and line[3] != 'Q'])\n"
  "sys.stdout.flush(); print('late', file=sys.stderr); sys.exit(9)\n";

TEST_F(Exec, AScriptSeesNoDifference)
{
  const std::pair<const char *, string> scripts[] = {
    {"bash", "#!/bin/bash\necho \"$0|$#|$*|$_|$PWD|$SHLVL|$-|${BASH_SOURCE[*]}\"; "
             "trap -p; export -p; echo b >&2; echo c; exit 3\n"},
    {"sh", "#!/bin/sh\necho \"$0|$#|$*|$_|$PWD|$SHLVL|$-\"; export -p; exit 255\n"},
    {"another language", string("#!/usr/bin/python3\n") + SEEN_BY_PYTHON},
    {"an argument behind #!", string("#!/usr/bin/env -S python3 -u\n") + SEEN_BY_PYTHON},
    {"without #!", "echo \"$0|$*|$_|$SHLVL|${BASH_VERSION+bash}\"; env | sort; exit 4\n"},
    {"no interpreter", "#!/no/such/interpreter\necho never\n"},
    {"ended by a signal", "#!/bin/bash\necho a; kill -TERM $$; sleep 9\n"},
    {"killed", "#!/bin/sh\nkill -9 $$\n"},
    {"empty", ""},
  };
  std::filesystem::create_directory_symlink(dir, dir + "/link");
  const std::pair<const char *, const char *> environments[] = {
    // PWD, SHLVL
    {nullptr, nullptr}, {"link", "3"}, {"/nowhere", "0"}, {"data", "abc"},
    {"//", "998"}, {"", "999"}, {nullptr, "007"}, {nullptr, "-1"}, {nullptr, ""},
  };
  for (const auto &[folder, level] : environments) {
    folder == nullptr ? unsetenv("PWD") : setenv("PWD",
      (strcmp(folder, "link") == 0 ? dir + "/link" : folder).c_str(), 1);
    level == nullptr ? unsetenv("SHLVL") : setenv("SHLVL", level, 1);
    for (const auto &[kind, script] : scripts) {
      write_file("data/scripts/s.sh", script, 0755);
      const char line[] = "s.sh  --read caf\xc3\xa9 a=b  1:2/3@%+,-. ";
      EXPECT_EQ(run(line), run_by_bash(line)) << kind << ", SHLVL "
        << (level != nullptr ? level : "absent");
    }
  }
}

TEST_F(Exec, OddFoldersAndNamesAreFound)
{
  for (const string name : {"a=b.sh", "o,d@:%+/\xc3\xa9.sh", "-x", "A_0/..s"}) {
    const string path = "data/scripts/" + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    write_file(path, "#!/bin/sh\necho \"$0 $1\"; env\n", 0755);
    EXPECT_EQ(run(name + " x").substr(0, path.size() + 3), path + " x\n");
    EXPECT_TRUE(is_direct(name)) << name;
    EXPECT_TRUE(is_direct(dir + "/" + path)) << name;
  }
}

TEST_F(Exec, OnlyPlainWordsAreStartedWithoutAShell)
{
  write_file("data/scripts/s.sh", "#!/bin/sh\nenv\n", 0755);
  EXPECT_TRUE(is_direct("s.sh AZaz09_./:@%+,=-\x80\xff  x "));
  for (char c = 1; c < 127; c++) {
    if (isalnum(c) == 0 && strchr(" _./:@%+,=-", c) == nullptr) {
      EXPECT_FALSE(is_direct(string("s.sh x") + c)) << c;
    }
  }
}

TEST_F(Exec, WhatBashObeysSendsTheLineToBash)
{
  write_file("data/scripts/s.sh", "#!/bin/sh\nenv\n", 0755);
  write_file("rc", "echo obeyed\n");
  write_file(".bashrc", "export HOSTS=obeyed\n");
  setenv("HOME", dir.c_str(), 1);
  const std::pair<const char *, const char *> variables[] = {
    {"BASH_ENV", "rc"}, {"SHELLOPTS", "xtrace"}, {"BASHOPTS", "extglob"},
    {"POSIXLY_CORRECT", ""}, {"IFS", "x"}, {"BASH_FUNC_f%%", "() { :; }"},
    {"BASH_FUNC_data/scripts/s.sh%%", "() { echo instead; }"}, {"old", "() { :; }"},
    {"SSH_CLIENT", "x"}, {"SSH2_CLIENT", ""}, {"BASH", "/bin/other"}, {"BASHPID", "1"},
    {"PS1", "$ "}, {"PS4", "x"}, {"RANDOM", "4"}, {"LINENO", "x"}, {"OPTIND", "x"},
    {"COMP_WORDBREAKS", "x"},
  };
  for (const auto &[name, value] : variables) {
    setenv(name, value, 1);
    EXPECT_FALSE(is_direct("s.sh")) << name;
    EXPECT_EQ(run("s.sh"), run_by_bash("s.sh"));
    unsetenv(name);
  }
  setenv("IFSX", "rc", 1);
  EXPECT_TRUE(is_direct("s.sh"));
}

TEST_F(Exec, WhatBashDropsSendsTheLineToBash)
{
  write_file("data/scripts/s.sh", "#!/usr/bin/python3\nimport os\nprint(*sorted(map('='.join, os.environ.items())))\n", 0755);
  const std::tuple<const char *, const char *, bool> rows[] = {
    {"A=1", "AB=2", true}, {"A=", "A.B==", true}, {"A=1", "A=2", false},
    {"PWD=/", "PWD=", false}, {"=x", "A=1", false}, {"A=1", "B", false},
    {"A=1", "", false},
  };
  for (const auto &[first, second, direct] : rows) {
    char *entries[] = {const_cast<char *>(first), const_cast<char *>(second), nullptr};
    environ = entries;
    EXPECT_EQ(run("s.sh"), run_by_bash("s.sh")) << first;
    EXPECT_EQ(is_direct("s.sh"), direct) << first << ", " << second;
  }
}
