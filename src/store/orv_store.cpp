// orv-store: the only program that writes a device's settings.
//
// One command per call; each command is a row of a table.  The result goes to
// standard output: "ok" and the requested data, or "fault" and a text for the
// user; the exit status agrees.  This file decides which command needs the
// folder and the lock, and what it prints; the work is done elsewhere.

#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include "act.h"
#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "form.h"
#include "guard.h"
#include "history.h"
#include "intake.h"
#include "migrate.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "own_form.h"
#include "save.h"
#include "serve.h"
#include "settings.h"
#include "store_text.h"
#include "watch.h"
#include "who.h"

constexpr int USAGE_STATUS = 2;
constexpr unsigned long ACT_SECONDS_MAX = 600; // no page waits longer
constexpr int READ_TRIES = 10; // of settings that change meanwhile

static const char USAGE[] =
    "Usage: orv-store COMMAND | --help | --version\n"
    "\n"
    "  load FILE...           print settings as lines NAME=VALUE\n"
    "  input PID|- FORM       take a page's values, then lock for PID\n"
    "  store HOLDER|- FORM [SUBITEM]\n"
    "                         store the order on standard input\n"
    "  serve PID FORM [SUBITEM]\n"
    "                         the same for a script, as long as it runs\n"
    "  arm TOKEN              the device now uses the guarded change\n"
    "  confirm [TOKEN]        keep a guarded change that is in use\n"
    "  pending                print the change that waits to be kept\n"
    "  watch TOKEN [--hold]   revert a guarded change that nobody keeps\n"
    "  expire                 revert overdue changes\n"
    "  boot                   revert unkept changes, clean up after a save\n"
    "  migrate                convert settings to new versions of their forms\n"
    "  history                print the last saves, as stored\n"
    "  reset [FILE...]        settings as shipped, of all files or of these\n"
    "  wait FD                wait for the end of a transaction\n"
    "  act NAME [--wait SECONDS]\n"
    "                         request an action, wait for its output\n"
    "  log                    write lines of standard input to the system log\n"
    "\n"
    "Exit status: 0 success, 1 failure (reason on stdout), 2 usage error.\n"
    "orv-store(8) has the details.\n";

// --- the lock ----------------------------------------------------------------

// Members of a transaction are covered by its lock.
static bool lock(const char *what)
{
  return stage_folder() != nullptr || (store_lock(what, 0) && store_finish());
}

// The process id in `word`, 0 for none.  Process 1 never ends, and so would
// never unlock.
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
// Each returns whether it succeeded; otherwise a fault gives the reason.

// Locks for the calling script; the holder's id, 0 in a transaction, -1 with a
// fault.
static pid_t lock_for(pid_t script, const char *form)
{
  if (!open_and_join(true) || !store_lock_for(form)) {
    return -1;
  }
  return stage_folder() != nullptr ? 0 : store_hold_lock(script);
}

// The lock comes last, when nothing is left that could keep others waiting.
static bool take_input(char **words)
{
  const pid_t script = take_pid(words[0]);
  store_text lines;
  store_find(); // for the form; the folder is opened after the input is read
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

static bool serve_script(char **words)
{
  const pid_t script = take_pid(words[0]);
  return script > 0 ? serve(script, words[1], words[2])
                    : store_fault("serve needs the id of the script's process");
}

// The order on standard input, owned by the caller; NULL with a fault.  A NUL
// byte would hide what follows it from every check.
static char *read_order()
{
  owned_text text(static_cast<char *>(must_malloc(SAVE_ORDER_MAX + 2)));
  if (text == nullptr) {
    store_fault("Out of memory");
    return nullptr;
  }
  const size_t got = fread(text.get(), 1, SAVE_ORDER_MAX + 1, stdin);
  text.get()[got] = '\0';
  if (ferror(stdin) != 0 || got == 0) {
    store_fault("Nothing was saved: the script's order cannot be read");
    return nullptr;
  }
  if (got > SAVE_ORDER_MAX || strlen(text.get()) < got) {
    store_fault("Nothing was saved: the script's order is too long");
    return nullptr;
  }
  return text.release();
}

static bool store_order(char **words)
{
  char *order = read_order();
  if (order == nullptr || !save_order(order, words[1], words[2])) {
    return false;
  }
  save_answer(stdout);
  return true;
}

static bool store_values(char **words)
{
  return open_and_join(true) && store_lock_for(words[1], take_pid(words[0])) &&
         store_order(words);
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

// Reads files that belong together as one commit left them.
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
         store_fault("The settings keep changing. Please try again");
}

static bool load(char **names)
{
  size_t count = 0;
  while (names[count] != nullptr) {
    count++;
  }
  settings *all = static_cast<settings *>(calloc(count + 1, sizeof *all));
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
  return open_and_join(false) && store.fd >= 0 && lock("a guarded change") &&
         guard_arm(words[0]);
}

// Keeps the pending change, or only the one named.
static bool confirm(char **words)
{
  if (!open_and_join(false) || (store.fd >= 0 && !lock("a guarded change")) ||
      !guard_settle(words[0])) {
    return false;
  }
  fputs("ok\n", stdout);
  return true;
}

// Prints the pending change, for orvctl and other programs.
static bool print_pending(char **)
{
  pending_change pending;
  if (!open_and_join(false) || store.fd < 0 || !guard_read(&pending)) {
    return false;
  }
  printf("ok\ntoken=%s\narmed=%s\nleft=%" PRId64 "\n%s", pending.token,
         pending.armed ? "True" : "False", pending.left,
         store_clean(pending.text));
  free(pending.text);
  return true;
}

// Waits until nobody reads the output of this process, so that its turn lasts
// until the caller has done the step.  Without events to wait for, poll(2)
// reports only that the last reader is gone.
static void hold_turn()
{
  struct pollfd reader = {STDOUT_FILENO, 0, 0};
  while (poll(&reader, 1, -1) < 0 && errno == EINTR) {
  }
}

// Survives the process that started it: a terminal or a web server may end
// while the change still has to go back.
static bool watch(char **words)
{
  signal(SIGHUP, SIG_IGN);
  const bool holds = words[1] != nullptr;
  if (holds && strcmp(words[1], "--hold") != 0) {
    return store_fault("watch accepts only --hold after the token");
  }
  if (!open_and_join(false) || store.fd < 0 || !watch_change(words[0])) {
    return false;
  }
  if (holds && puts("ok") >= 0 && fflush(stdout) == 0) {
    hold_turn();
  }
  return true;
}

static bool expire(char **)
{
  return open_and_join(false) && store.fd >= 0 && watch_expire();
}

// The change was never kept, and the times of another boot mean nothing.
static bool boot(char **)
{
  if (!open_and_join(false) || store.fd < 0) {
    return false;
  }
  return lock("the boot") && guard_is_pending(nullptr) &&
         guard_put_back(GUARD_BOOT, nullptr);
}

// Migrates settings stored by older versions of the forms.
static bool migrate(char **)
{
  if (!store_open(false) || store.fd < 0) {
    return false;
  }
  return store_lock("the upgrade", 0) && store_finish() && migrate_all(stdout);
}

static bool note_reset(const char *name)
{
  settings now;
  settings shipped = {};
  settings_free(&shipped);
  const bool read = settings_read_any(name, &now) &&
                    settings_imagine(name, nullptr, &shipped);
  if (read) {
    history_note(name, &now, &shipped);
  }
  settings_free(&now);
  settings_free(&shipped);
  return read;
}

// An unreadable file, such as one in a newer format, is removed as well: a
// reset is the only cure for it.
static bool blank_file(int, const char *name, void *stage)
{
  if (!note_reset(name)) {
    if (!store_is_name(name) || !store_has_file(name)) {
      return false;
    }
    store_forget_fault();
  }
  return stage_blank(static_cast<const store_stage *>(stage), name);
}

// A mistyped name would leave a useless file for ever, so a name must have
// stored settings, defaults or a form.
static bool is_known(const char *name)
{
  char path[STORE_PATH_SIZE];
  const char *stage = stage_folder();
  snprintf(path, sizeof path, "%s/%.99s", stage != nullptr ? stage : ".", name);
  return !store_is_name(name) || // reported as another fault
         store_has_file(name) || store_has_file(path) ||
         store_has_defaults(name) || form_open(name) ||
         store_fault("There are no settings \"%.99s\"", name);
}

static bool are_known(char **names)
{
  while (*names != nullptr && is_known(*names)) {
    names++;
  }
  return *names == nullptr;
}

static void log_with_who(const char *line)
{
  const owned_text whole(store_line_with_who(line));
  if (whole != nullptr) {
    store_log(whole.get());
  }
}

// Without a name it resets all files, and so ends a pending change.  In a
// transaction the files that its saves have staged are reset as well.
static bool reset(char **names)
{
  store_stage stage = {-1, "", 0, false};
  if (!open_and_join(true) || !lock("a reset") || !are_known(names) ||
      !stage_begin(&stage) || !history_begin(&stage, "-", nullptr, "reset")) {
    return false;
  }
  history_tell("Settings as shipped");
  bool staged = true;
  for (char **name = names; *name != nullptr && staged; name++) {
    staged = blank_file(store.fd, *name, &stage);
  }
  if (names[0] == nullptr) {
    staged = ((store_each_file(stage.fd, ".", blank_file, &stage) &&
               store_each_file(store.fd, ".", blank_file, &stage)) ||
              store_fault_errno("The settings cannot be listed")) &&
             stage_write(&stage, SETTLED_FILE, "", 0);
  }
  if (!staged || !history_end(&stage) || !stage_commit(&stage)) {
    stage_drop(&stage);
    return false;
  }
  log_with_who(names[0] == nullptr ? "Settings as shipped"
                                   : "Settings as shipped, of some files");
  fputs("ok\n", stdout);
  return true;
}

static bool print_history(char **)
{
  return open_and_join(false) && history_print(stdout);
}

static bool wait_transaction(char **words)
{
  return transaction_wait(static_cast<int>(strtol(words[0], nullptr, 10)));
}

// Only a request within a transaction needs the folder.
static bool ask_action(char **words)
{
  if (getenv("ORV_TRANSACTION") != nullptr && !open_and_join(false)) {
    return false;
  }
  if (words[1] == nullptr) {
    return act_ask(words[0]) && fputs("ok\n", stdout) >= 0;
  }
  char *end;
  const unsigned long seconds =
      words[2] != nullptr ? strtoul(words[2], &end, 10) : 0;
  if (strcmp(words[1], "--wait") != 0 || seconds == 0 ||
      seconds > ACT_SECONDS_MAX || *end != '\0') {
    return store_fault("act accepts --wait and 1 to %lu seconds",
                       ACT_SECONDS_MAX);
  }
  return act_run(words[0], static_cast<unsigned>(seconds), stdout);
}

static bool log_lines(char **)
{
  char *line = nullptr;
  size_t size = 0;
  if (!open_and_join(false)) {
    store_forget_fault(); // the lines must be logged all the same
  }
  for (ssize_t got = getline(&line, &size, stdin); got > 0;
       got = getline(&line, &size, stdin)) {
    line[got - (line[got - 1] == '\n' ? 1 : 0)] = '\0';
    log_with_who(line);
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
  {"store",   store_values,     2, 3},
  {"serve",   serve_script,     2, 3},
  {"arm",     arm,              1, 1},
  {"confirm", confirm,          0, 1},
  {"pending", print_pending,    0, 0},
  {"watch",   watch,            1, 2},
  {"boot",    boot,             0, 0},
  {"expire",  expire,           0, 0},
  {"reset",   reset,            0, 64},
  {"migrate", migrate,          0, 0},
  {"history", print_history,    0, 0},
  {"wait",    wait_transaction, 1, 1},
  {"act",     ask_action,       1, 3},
  {"log",     log_lines,        0, 0},
};
// clang-format on

static int usage_error(const char *text, const char *what)
{
  fprintf(stderr, "orv-store: %s: %s (orv-store --help lists the commands)\n",
          text, what);
  return USAGE_STATUS;
}

// A closed pipe or a full disk may show only when the buffer is written: then
// the caller has not got its answer.
static int run(const command *row, char **words)
{
  const bool done = row->run(words);
  if (!done && store_fault_text() != nullptr) {
    printf("fault %s\n", store_fault_text());
  }
  const bool told = fflush(stdout) == 0 && ferror(stdout) == 0;
  return told && done ? EXIT_SUCCESS : EXIT_FAILURE;
}

// Under any other name, it is a form's script.
static bool is_own_name(const char *path)
{
  const char *slash = strrchr(path, '/');
  return strcmp(slash != nullptr ? slash + 1 : path, "orv-store") == 0;
}

int main(int argc, char **argv)
{
  orv_fatal_no_exit = 1;
  openlog("orv", 0, LOG_USER);
  // Output that cannot be written is a fault; it must not kill the process.
  signal(SIGXFSZ, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
  if (argc > 0 && !is_own_name(argv[0])) {
    return own_form_run(argv[0], argc - 1, argv + 1);
  }
  if (argc < 2 || strcmp(argv[1], "--help") == 0) {
    fputs(USAGE, argc < 2 ? stderr : stdout);
    return argc < 2 ? USAGE_STATUS : EXIT_SUCCESS;
  }
  if (strcmp(argv[1], "--version") == 0) {
    puts("orv-store " ORV_VERSION);
    return EXIT_SUCCESS;
  }
  for (const command &row : commands) {
    if (strcmp(row.name, argv[1]) == 0) {
      const int count = argc - 2;
      return count < row.least || count > row.most
                 ? usage_error("wrong number of arguments for", argv[1])
                 : run(&row, argv + 2);
    }
  }
  return usage_error("unknown command", argv[1]);
}
