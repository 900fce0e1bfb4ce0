// orv-store: the one program that writes a device's settings.
//
// One command a call, one row of a table a command.  What a command comes to is
// said on standard output: "ok" and what was asked for, or "fault" and a text
// for the user; the exit status says the same.  Here stands which command needs
// the folder and the lock, and what it prints; what is done stands elsewhere.

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "guard.h"
#include "intake.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "save.h"
#include "settings.h"
#include "text.h"

constexpr int USAGE_STATUS = 2;
constexpr size_t HOLDER_SIZE = 100;
constexpr int READ_TRIES = 10; // of settings that change meanwhile

static const char USAGE[] =
    "Usage: orv-store COMMAND\n"
    "\n"
    "  load FILE...           print settings as lines NAME=VALUE\n"
    "  input PID|- FORM       take a page's values, then lock for PID\n"
    "  store HOLDER|- FORM    store what standard input orders\n"
    "  arm TOKEN              the device uses the guarded change by now\n"
    "  confirm                keep a guarded change that is in use\n"
    "  watch TOKEN SECONDS    put a guarded change back that nobody kept\n"
    "  boot                   put back what nobody kept, end a save cut short\n"
    "  reset [FILE...]        settings as shipped, of all files or of these\n"
    "  wait FD                wait for the end of a transaction\n"
    "  log                    lines of standard input to the system log\n"
    "\n"
    "Exit status: 0 done, 1 not (standard output says why), 2 usage error.\n"
    "orv-store(8) has the details.\n";

// --- the lock ----------------------------------------------------------------

// Who saves, for those who wait: the form and the user, as far as known.
static void describe_holder(char (&holder)[HOLDER_SIZE], const char *form)
{
  const char *user = getenv("REMOTE_USER");
  const char *address = getenv("REMOTE_ADDR");
  snprintf(holder, sizeof holder, "%.30s%s%.25s%s%.39s", form,
           user != nullptr && user[0] != '\0' ? " by " : "",
           user != nullptr ? user : "",
           address != nullptr && address[0] != '\0' ? " at " : "",
           address != nullptr ? address : "");
}

// Who takes part in a transaction is covered by its lock.
static bool lock(const char *what, pid_t holder)
{
  return stage_folder() != nullptr ||
         (store_lock(what, holder) && store_finish());
}

// The process that `word` names, 0 for none.
static pid_t take_pid(const char *word)
{
  char *end;
  const long pid = strtol(word, &end, 10);
  return *word != '\0' && *end == '\0' && pid > 1 && pid < 1 << 30
             ? static_cast<pid_t>(pid)
             : 0;
}

static bool open_and_join(bool create)
{
  if (!store_open(create)) {
    return false;
  }
  stage_join();
  return true;
}

// --- commands ----------------------------------------------------------------
// Each gives whether it was done; a fault says why not.

// Locks for the script that calls; the holder's id, 0 in a transaction, -1 with
// a fault.
static pid_t lock_for(pid_t script, const char *form)
{
  char holder[HOLDER_SIZE];
  describe_holder(holder, form);
  if (!open_and_join(true) || !lock(holder, 0)) {
    return -1;
  }
  return stage_folder() != nullptr ? 0 : store_hold_lock(script);
}

static bool take_input(char **words)
{
  const pid_t script = take_pid(words[0]);
  store_text lines;
  FILE *out = intake_read(words[1]) ? store_open_text(&lines) : nullptr;
  if (out == nullptr) {
    return false;
  }
  const bool written = intake_write(out);
  const bool whole = store_close_text(out, &lines);
  const owned_text owned(lines.bytes);
  if (!written || !whole) {
    return false;
  }
  const pid_t holder = script > 0 ? lock_for(script, words[1]) : 0;
  if (holder >= 0) {
    printf("ok\nholder %d\n%s", static_cast<int>(holder), lines.bytes);
  }
  return holder >= 0;
}

static bool store_values(char **words)
{
  char holder[HOLDER_SIZE];
  describe_holder(holder, words[1]);
  return open_and_join(true) && lock(holder, take_pid(words[0])) &&
         save_order(stdin, stdout, words[1]);
}

static void print_settings(const settings *all)
{
  for (size_t i = 0; i < all->count; i++) {
    printf("%s=%s\n", all->list[i].name, all->list[i].value);
  }
}

static bool read_all(char **names, settings *all)
{
  for (; *names != nullptr; names++, all++) {
    settings_free(all);
    if (!settings_read(*names, all)) {
      return false;
    }
  }
  return true;
}

// Files that belong together are read as one commit left them.
static bool read_at_once(char **names, settings *all)
{
  store_look before;
  store_look after;
  int tries = 0;
  do {
    store_take_look(&before);
    if (!read_all(names, all)) {
      return false;
    }
    store_take_look(&after);
    tries++;
  } while (!store_is_same_look(&before, &after) && tries < READ_TRIES);
  return store_is_same_look(&before, &after) ||
         store_fault("The settings change all the time. Please try again");
}

static bool load(char **names)
{
  size_t count = 0;
  while (names[count] != nullptr) {
    count++;
  }
  settings *all = static_cast<settings *>(calloc(count, sizeof *all));
  if (all == nullptr) {
    return store_fault("Out of memory");
  }
  const bool read = open_and_join(false) && read_at_once(names, all);
  if (read) {
    fputs("ok\n", stdout);
  }
  for (size_t i = 0; i < count; i++) {
    if (read) {
      print_settings(all + i);
    }
    settings_free(all + i);
  }
  free(all);
  return read;
}

static bool arm(char **words)
{
  if (!open_and_join(false) || !lock("a guarded change", 0)) {
    return false;
  }
  return guard_is_pending(words[0]) && guard_arm();
}

static bool confirm(char **)
{
  return open_and_join(false) && lock("a guarded change", 0) &&
         guard_is_pending(nullptr) && guard_is_armed() && guard_settle();
}

// A save may take long, but what was promised must not be given up for it.
static bool put_back(const char *token)
{
  while (!lock("a guarded change", 0)) {
    if (!guard_is_pending(token)) {
      return false;
    }
    store_forget_fault();
    sleep(1);
  }
  return guard_is_pending(token) && guard_put_back();
}

static bool watch(char **words)
{
  const unsigned long seconds = strtoul(words[1], nullptr, 10);
  return open_and_join(false) && store.fd >= 0 &&
         guard_watch(words[0], static_cast<unsigned>(seconds)) &&
         put_back(words[0]);
}

static bool boot(char **)
{
  if (!open_and_join(false) || store.fd < 0) {
    return false;
  }
  return lock("the boot", 0) && guard_is_pending(nullptr) && guard_put_back();
}

static bool blank_file(int, const char *name, void *stage)
{
  return stage_blank(static_cast<const store_stage *>(stage), name);
}

// With no file named, all of them; a change that is pending is over then.
static bool reset(char **names)
{
  store_stage stage = {-1, "", 0, false};
  if (!open_and_join(true) || !lock("a reset", 0) || !stage_begin(&stage)) {
    return false;
  }
  bool staged = true;
  for (char **name = names; *name != nullptr && staged; name++) {
    staged = store_is_name(*name) ? stage_blank(&stage, *name)
                                  : store_fault("%.50s is no name", *name);
  }
  if (names[0] == nullptr) {
    staged = ((store_each_file(stage.fd, ".", blank_file, &stage) &&
               store_each_file(store.fd, ".", blank_file, &stage)) ||
              store_fault_errno("The settings cannot be listed")) &&
             stage_write(&stage, SETTLED_FILE, "", 0);
  }
  if (!staged || !stage_commit(&stage)) {
    stage_drop(&stage);
    return false;
  }
  fputs("ok\n", stdout);
  return true;
}

static bool wait_transaction(char **words)
{
  return transaction_wait(static_cast<int>(strtol(words[0], nullptr, 10)));
}

static bool log_lines(char **)
{
  char *line = nullptr;
  size_t size = 0;
  char who[HOLDER_SIZE];
  const char *user = getenv("REMOTE_USER");
  const char *address = getenv("REMOTE_ADDR");
  snprintf(who, sizeof who, "%.50s at %.39s",
           user != nullptr && user[0] != '\0' ? user : "somebody",
           address != nullptr && address[0] != '\0' ? address : "home");
  for (ssize_t got = getline(&line, &size, stdin); got > 0;
       got = getline(&line, &size, stdin)) {
    line[got - (line[got - 1] == '\n' ? 1 : 0)] = '\0';
    syslog(LOG_NOTICE, "%s (%s)", line, who);
  }
  free(line);
  return true;
}

// --- the command line --------------------------------------------------------

struct command {
  const char *name;
  bool (*run)(char **words); // NULL behind the last
  int least;                 // words behind the name
  int most;
};

// clang-format off
static const command commands[] = {
  {"load",    load,             1, 64},
  {"input",   take_input,       2, 2},
  {"store",   store_values,     2, 2},
  {"arm",     arm,              1, 1},
  {"confirm", confirm,          0, 0},
  {"watch",   watch,            2, 2},
  {"boot",    boot,             0, 0},
  {"reset",   reset,            0, 64},
  {"wait",    wait_transaction, 1, 1},
  {"log",     log_lines,        0, 0},
};
// clang-format on

static int usage_error(const char *text, const char *what)
{
  fprintf(stderr, "orv-store: %s: %s (orv-store --help lists the commands)\n",
          text, what);
  return USAGE_STATUS;
}

static int run(const command *row, char **words)
{
  const bool done = row->run(words);
  if (!done && store_fault_text() != nullptr) {
    printf("fault %s\n", store_fault_text());
  }
  const bool told = fflush(stdout) == 0 && ferror(stdout) == 0;
  return told && done ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char **argv)
{
  if (argc < 2 || strcmp(argv[1], "--help") == 0) {
    fputs(USAGE, argc < 2 ? stderr : stdout);
    return argc < 2 ? USAGE_STATUS : EXIT_SUCCESS;
  }
  orv_fatal_no_exit = 1;
  // What cannot be written is a fault, and no end.
  signal(SIGXFSZ, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
  openlog("orv", 0, LOG_USER);
  for (const command &row : commands) {
    if (strcmp(row.name, argv[1]) == 0) {
      const int count = argc - 2;
      return count < row.least || count > row.most
                 ? usage_error("wrong number of words behind", argv[1])
                 : run(&row, argv + 2);
    }
  }
  return usage_error("unknown command", argv[1]);
}
