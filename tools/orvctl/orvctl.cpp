// orvctl: the forms of the device from a terminal.
//
// One command a call, one row of a table for each command.  What a page shows,
// checks and stores is done by the same code as behind the web server (page.h);
// this file has the command line and the output.

#include <pwd.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <syslog.h>
#include <unistd.h>

#include "cgi.h"
#include "command.h"
#include "complete.h"
#include "dump.h"
#include "form_commands.h"
#include "on_device.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_scripts.h"
#include "page.h"
#include "past.h"
#include "pending.h"
#include "report.h"
#include "stdin_value.h"
#include "terminal.h"
#include "who.h"

bool dry_run;
bool with_secrets;
static bool is_sure;         // nobody needs to be asked
static owned_stream applied; // the file named to apply, once it is open

int misuse(const char *text, const char *what)
{
  terminal_print(stderr, "orvctl: %s%s%s (see orvctl --help)\n", text,
                 what[0] != '\0' ? ": " : "", what);
  return USAGE_STATUS;
}

// --- dump and apply ----------------------------------------------------------

// The system log shows who has read all settings, and who has replaced them.
static int log_use(int status, const char *done, const char *failed)
{
  const char *what = status == EXIT_SUCCESS ? done : failed;
  const owned_text line(store_line_with_who(what));
  // Without memory for the name, that it happened is still logged.
  syslog(LOG_NOTICE, "%s", line != nullptr ? line.get() : what);
  return status;
}

// A dump is a format of its own, which `apply` reads; JSON has `get`.
static int dump(int count, char **words)
{
  if (report_json) {
    return misuse("dump does not support", "--json");
  }
  return log_use(dump_pages(words, count, with_secrets),
                 with_secrets ? "Settings dumped, with secrets"
                              : "Settings dumped, without secrets",
                 "Settings dumped, not all of them");
}

// Opens the file, which may be one that only the user who calls can read.  So
// it is opened while a root that called still has its rights: device_enter
// gives them up.
static bool open_applied(char **words)
{
  if (strcmp(words[0], "-") == 0) {
    return true;
  }
  applied.reset(fopen(words[0], "re"));
  return applied != nullptr;
}

static int apply(int, char **words)
{
  // What the device keeps from pages must be known, or it would seem to differ.
  setenv("ORV_SECRETS", "1", 1);
  const int status = applied == nullptr
                         ? apply_dump(stdin, "standard input", dry_run)
                         : apply_dump(applied.get(), words[0], dry_run);
  return dry_run ? status
                 : log_use(status, "Settings of a dump applied",
                           "Settings of a dump refused");
}

// --- keeping and going back --------------------------------------------------

static int confirm(int, char **)
{
  return dry_run ? misuse("confirm does not support", "--dry-run")
                 : pending_confirm();
}

static int history(int, char **)
{
  return past_list();
}

// strtoull alone would take blanks and a sign: -1 would be the largest number.
static int restore(int, char **words)
{
  char *end;
  const unsigned long long number = strtoull(words[0], &end, 10);
  if (words[0][0] < '0' || words[0][0] > '9' || *end != '\0') {
    return misuse("not the number of a save", words[0]);
  }
  return past_restore(number, dry_run);
}

// Asks the person at the terminal for confirmation.  Not on standard output,
// which somebody may be reading as the result.
static bool ask(const char *form)
{
  char answer[8] = "";
  terminal_print(stderr, "Reset %s to the settings as shipped? [y/N] ",
                 form != nullptr ? form : "every page of the device");
  return fgets(answer, sizeof answer, stdin) != nullptr &&
         strcasecmp(answer, "y\n") == 0;
}

// Without a terminal nobody answers, and a line of input that happens to be
// there must not count as consent.
static int reset(int count, char **words)
{
  char *form = count > 0 ? words[0] : nullptr;
  if (is_sure || dry_run) {
    return past_reset(form, dry_run);
  }
  if (isatty(STDIN_FILENO) == 0) {
    return misuse("reset asks at a terminal; elsewhere it requires", "--yes");
  }
  if (ask(form)) {
    return past_reset(form, false);
  }
  fputs("orvctl: nothing was saved\n", stderr);
  return EXIT_FAILURE;
}

// --- the command line --------------------------------------------------------

// Scripts log who changed what, as they do for users of the web server.  Under
// sudo(8) that is who called it, not root.  sshd(8) begins SSH_CONNECTION with
// the client's address.
static void name_user()
{
  const char *user = getenv("SUDO_USER");
  const struct passwd *entry = user == nullptr ? getpwuid(getuid()) : nullptr;
  if (entry != nullptr) {
    user = entry->pw_name;
  }
  setenv("REMOTE_USER", user != nullptr ? user : "orvctl", 1);
  const char *remote = getenv("SSH_CONNECTION");
  char address[64];
  snprintf(address, sizeof address, "%s", remote != nullptr ? remote : "");
  address[strcspn(address, " ")] = '\0';
  setenv("REMOTE_ADDR", address, 1);
  // What a web server says of a request says nothing here.
  unsetenv("REQUEST_METHOD");
  unsetenv("GATEWAY_INTERFACE");
}

// A terminal that hangs up, and its interrupt key, act like SIGTERM: a script
// is ended, or runs to its end.  Under nohup(1) they end nothing.
static void catch_hangup()
{
  struct sigaction terminated;
  sigaction(SIGTERM, nullptr, &terminated);
  static const int signals[] = {SIGHUP, SIGINT, SIGQUIT};
  for (const int sig : signals) {
    struct sigaction now;
    if (sigaction(sig, nullptr, &now) == 0 && now.sa_handler != SIG_IGN) {
      sigaction(sig, &terminated, nullptr);
    }
  }
}

struct command {
  const char *name;
  int (*run)(int count, char **words);
  int least;        // words behind the name
  int most;         // -1: any number
  const char *help; // lines of --help
};

// clang-format off
static const command commands[] = {
  {"forms",   list_forms, 0, 0,
   "  forms                           the pages of the device\n"},
  {"get",     get_values, 1, -1,
   "  get FORM[/SUBITEM] [NAME...]    what a page shows\n"},
  {"set",     set_values, 2, -1,
   "  set FORM[/SUBITEM] NAME=VALUE...\n"
   "                                  change a page and save it; the value -\n"
   "                                  of a text is a line of standard input\n"},
  {"rows",    table_rows, 2, -1,
   "  rows FORM[/SUBITEM] TABLE       the rows of a table\n"
   "  rows ... TABLE add COLUMN=VALUE...\n"
   "  rows ... TABLE change ROW COLUMN=VALUE...\n"
   "  rows ... TABLE delete ROW...    rows are counted from 1\n"},
  {"dump",    dump,       0, -1,
   "  dump [FORM[/SUBITEM]...]        settings as text, for a backup\n"},
  {"apply",   apply,      1, 1,
   "  apply FILE                      save the settings of a dump (-: stdin)\n"},
  {"confirm", confirm,    0, 0,
   "  confirm                         keep a change that would go back\n"},
  {"history", history,    0, 0,
   "  history                         the last saves\n"},
  {"restore", restore,    1, 1,
   "  restore NUMBER                  the settings as before that save\n"},
  {"reset",   reset,      0, 1,
   "  reset [FORM[/SUBITEM]]          the settings as shipped; asks first\n"},
};
// clang-format on

static void print_usage(FILE *out)
{
  fputs("Usage: orvctl [OPTION...] COMMAND\n\n", out);
  for (const command &row : commands) {
    fputs(row.help, out);
  }
  fputs(
      "\n"
      "  --json      print one JSON value instead of lines\n"
      "  --dry-run   check everything, save nothing\n"
      "  --yes       reset without asking\n"
      "  --secrets   dump and get: with passwords, where scripts report them\n"
      "  --help      show this text\n"
      "  --version   show the version\n"
      "\n"
      "Exit status: 0 done or nothing to do, 1 refused (nothing was saved),\n"
      "2 usage error.  orvctl(8) has the details.\n",
      out);
}

// The pending change is noted before the command makes another.  A usage error
// has printed no JSON value, so no line end belongs to it.
static int run(int count, char **words)
{
  for (const command &row : commands) {
    if (strcmp(row.name, words[0]) != 0) {
      continue;
    }
    if (count - 1 < row.least || (row.most >= 0 && count - 1 > row.most)) {
      return misuse("wrong number of arguments for", row.name);
    }
    if (row.run == apply && !open_applied(words + 1)) {
      return misuse("cannot read", words[1]);
    }
    if (!device_enter()) {
      return EXIT_FAILURE;
    }
    pending_note();
    const int status = row.run(count - 1, words + 1);
    if (status == EXIT_FAILURE) {
      device_explain();
    }
    page_close();
    input_free();
    if (report_json && status != USAGE_STATUS) {
      putchar('\n');
    }
    return fflush(stdout) == 0 ? status : EXIT_FAILURE;
  }
  return misuse("unknown command", words[0]);
}

// clang-format off
static const struct {
  const char *name;
  bool *option;
} options[] = {
  {"--json",    &report_json},
  {"--dry-run", &dry_run},
  {"--secrets", &with_secrets},
  {"--yes",     &is_sure},
};
// clang-format on

// Sets the switch that `word` is; false when it is none.
static bool take_option(const char *word)
{
  for (const auto &row : options) {
    if (strcmp(row.name, word) == 0) {
      *row.option = true;
      return true;
    }
  }
  return false;
}

// For a shell: `words` are those behind "orvctl" up to the cursor, options
// included, the last of them (perhaps "") the one being typed.  Options may
// stand anywhere, so they are no places among the words; the one being typed is
// kept even if it begins like one.
static int complete(int count, char **words)
{
  const char *typed = words[count - 1];
  int kept = 0; // words that are no options, moved to the front
  for (int i = 0; i < count; i++) {
    if (i == count - 1 || strncmp(words[i], "--", 2) != 0) {
      words[kept] = words[i];
      kept++;
    }
  }
  if (typed[0] == '-') {
    complete_offer(typed, "--help");
    complete_offer(typed, "--version");
    for (const auto &row : options) {
      complete_offer(typed, row.name);
    }
  } else if (kept > 1) {
    complete_words(kept, words);
    page_close();
  } else {
    for (const command &row : commands) {
      complete_offer(typed, row.name);
    }
  }
  return fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

// Before the first page.  catch_hangup copies what orv_script_signals has set
// for SIGTERM.  Secrets are asked for by an option alone: a variable left in a
// shell must not bring them into a backup.
static void begin()
{
  cgiScriptName = "";
  orv_fatal_no_exit = 1;
  orv_script_signals();
  catch_hangup();
  openlog("orv", 0, LOG_USER); // it is the log of the pages
  orv_init_env();
  name_user();
  if (with_secrets) {
    setenv("ORV_SECRETS", "1", 1);
  } else {
    unsetenv("ORV_SECRETS");
  }
}

// "complete" is for the completion of shells only, and takes its words as they
// were typed, options included.
int main(int argc, char **argv)
{
  if (argc > 2 && strcmp(argv[1], "complete") == 0) {
    begin();
    return device_enter() ? complete(argc - 2, argv + 2) : EXIT_FAILURE;
  }
  int count = 0; // words that are no options, moved to the front
  for (int i = 1; i < argc; i++) {
    if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
      print_usage(stdout);
      return EXIT_SUCCESS;
    }
    if (strcmp(argv[i], "--version") == 0) {
      puts("orvctl " ORV_VERSION);
      return EXIT_SUCCESS;
    }
    if (strncmp(argv[i], "--", 2) != 0) {
      argv[count] = argv[i];
      count++;
    } else if (!take_option(argv[i])) {
      return misuse("unknown option", argv[i]);
    }
  }
  if (count == 0) {
    print_usage(stderr);
    return USAGE_STATUS;
  }
  begin();
  return run(count, argv);
}
