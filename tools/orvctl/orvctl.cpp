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
#include "change.h"
#include "complete.h"
#include "dump.h"
#include "on_device.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_scripts.h"
#include "page.h"
#include "past.h"
#include "pending.h"
#include "report.h"
#include "sitemap.h"
#include "stdin_value.h"
#include "suggest.h"
#include "terminal.h"
#include "who.h"

constexpr int USAGE_STATUS = 2;

static bool dry_run;
static bool with_secrets;
static bool is_sure;         // nobody needs to be asked
static owned_stream applied; // the file named to apply, once it is open

static const char USAGE[] =
    "Usage: orvctl [OPTION...] COMMAND\n"
    "\n"
    "  forms                           the pages of the device\n"
    "  get FORM[/SUBITEM] [NAME...]    what a page shows\n"
    "  set FORM[/SUBITEM] NAME=VALUE...\n"
    "                                  change a page and save it; the value -\n"
    "                                  of a text is a line of standard input\n"
    "  rows FORM[/SUBITEM] TABLE       the rows of a table\n"
    "  rows ... TABLE add COLUMN=VALUE...\n"
    "  rows ... TABLE change ROW COLUMN=VALUE...\n"
    "  rows ... TABLE delete ROW...    rows are counted from 1\n"
    "  dump [FORM[/SUBITEM]...]        settings as text, for a backup\n"
    "  apply FILE                      save what a dump holds (- : stdin)\n"
    "  confirm                         keep a change that would go back\n"
    "  history                         the last saves\n"
    "  restore NUMBER                  the settings as before that save\n"
    "  reset [FORM[/SUBITEM]]          the settings as shipped; asks first\n"
    "\n"
    "  --json      print one JSON value instead of lines\n"
    "  --dry-run   check everything, save nothing\n"
    "  --yes       reset without asking\n"
    "  --secrets   dump and get: with passwords, where the scripts tell them\n"
    "  --help      show this text\n"
    "  --version   show the version\n"
    "\n"
    "Exit status: 0 done or nothing to do, 1 refused (nothing was saved),\n"
    "2 wrong use.  orvctl(8) tells more.\n";

static int misuse(const char *text, const char *what)
{
  terminal_print(stderr, "orvctl: %s%s%s (orvctl --help tells more)\n", text,
                 what[0] != '\0' ? ": " : "", what);
  return USAGE_STATUS;
}

// Opens FORM or FORM/SUBITEM; false, reported.
static bool open_page(const char *name)
{
  site_page *page = sitemap_name(name);
  const bool opened =
      page != nullptr && page_open(page->form, page->subitem, false);
  if (page != nullptr && !opened) {
    unopened_form(name);
  }
  sitemap_free(page);
  return opened;
}

// --- forms -------------------------------------------------------------------

static void print_page(const site_page *page)
{
  const char *text = page->title != nullptr ? page->title : page->fault;
  if (!report_json) {
    terminal_print(stdout, "%-24s %s%s\n", page->name,
                   page->title != nullptr ? "" : "(fault) ",
                   text != nullptr ? text : "");
    return;
  }
  report_open(nullptr, '{');
  report_member("form", page->name);
  report_member(page->title != nullptr ? "title" : "fault",
                text != nullptr ? text : "");
  report_truth("input", page->has_input);
  report_close('}');
}

static int list_forms(int, char **)
{
  site_page *pages = sitemap_read();
  if (report_json) {
    report_open(nullptr, '[');
  }
  for (const site_page *page = pages; page != nullptr; page = page->next) {
    print_page(page);
  }
  if (report_json) {
    report_close(']');
  }
  const int status = pages != nullptr ? EXIT_SUCCESS : EXIT_FAILURE;
  sitemap_free(pages);
  return status;
}

// --- get ---------------------------------------------------------------------

static bool is_shown(const page_field *field)
{
  return field->kind != FIELD_STATE && field->kind != FIELD_DELETE;
}

static bool is_hidden(const page_field *field)
{
  return !with_secrets && page_is_secret(field->name);
}

static void print_field(const page_field *field)
{
  const bool hidden = is_hidden(field);
  if (!report_json) {
    terminal_print(stdout, "%s=%s\n", field->name,
                   hidden ? "" : page_value(field));
  } else if (hidden) {
    report_member(field->name, "");
  } else {
    report_field(field->name, field);
  }
}

// True when the page has every field named; else the first that it lacks has
// been reported.
static bool has_fields(const char *form, int count, char **names)
{
  for (int i = 0; i < count; i++) {
    if (page_find(names[i]) == nullptr) {
      unknown_field(form, "has no field \"%s\"", names[i]);
      return false;
    }
  }
  return true;
}

static int get_values(int count, char **words)
{
  if (!open_page(words[0])) {
    return EXIT_FAILURE;
  }
  orv_expert_mode = page_header()->expert_mode ? 1 : 0;
  if (orv_expert_mode != 0 && !page_redraw()) {
    report_failure(words[0], page_message());
    return EXIT_FAILURE;
  }
  if (!has_fields(words[0], count - 1, words + 1)) {
    return EXIT_FAILURE;
  }
  if (report_json) {
    report_open(nullptr, '{');
  }
  for (int i = 1; i < count; i++) {
    print_field(page_find(words[i]));
  }
  for (const page_field *field = count == 1 ? page_fields() : nullptr;
       field != nullptr; field = field->next) {
    if (is_shown(field)) {
      print_field(field);
    }
  }
  if (report_json) {
    report_close('}');
  }
  return EXIT_SUCCESS;
}

// --- set ---------------------------------------------------------------------

// Splits NAME=VALUE words in place; the list is owned by the caller (free).
// NULL, reported, when a word has another shape.
static wanted_value *take_values(int count, char **words)
{
  wanted_value *values = static_cast<wanted_value *>(
      must_malloc(static_cast<size_t>(count) * sizeof *values));
  for (int i = 0; values != nullptr && i < count; i++) {
    char *equals = strchr(words[i], '=');
    if (equals == nullptr) {
      misuse("not NAME=VALUE", words[i]);
      free(values);
      return nullptr;
    }
    *equals = '\0';
    values[i] = {words[i], equals + 1, false, 0};
  }
  return values;
}

static int set_values(int count, char **words)
{
  wanted_value *values = take_values(count - 1, words + 1);
  if (values == nullptr) {
    return USAGE_STATUS;
  }
  int status = EXIT_FAILURE;
  if (open_page(words[0]) &&
      input_values(words[0], values, static_cast<size_t>(count - 1)) &&
      change_values(words[0], values, static_cast<size_t>(count - 1))) {
    status = report_result(words[0], change_submit(dry_run), dry_run, {});
  }
  free(values);
  return status;
}

// --- rows --------------------------------------------------------------------

static void print_cell(const page_field *field)
{
  const bool hidden = is_hidden(field);
  const char *name = field->item->name;
  if (!report_json) {
    terminal_print(stdout, "\t%s=%s", name, hidden ? "" : page_value(field));
  } else if (hidden) {
    report_member(name, "");
  } else {
    report_field(name, field);
  }
}

// Ends the row before, if any, and begins row `row`, if it is one.
static void print_row_edge(int before, int row)
{
  if (before >= 0 && report_json) {
    report_close('}');
  } else if (before >= 0) {
    putchar('\n');
  }
  if (row >= 0 && report_json) {
    report_open(nullptr, '{');
  } else if (row >= 0) {
    printf("%d", row + 1);
  }
}

// The rows up to the last one that holds something, of a fixed table all.
static int count_rows(const pt_body_item *table)
{
  if (table->type == PT_TABLE) {
    return change_count_rows(table);
  }
  int rows = 0;
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    rows = field->table == table ? field->row + 1 : rows;
  }
  return rows;
}

static int list_rows(const pt_body_item *table)
{
  const int rows = count_rows(table);
  if (report_json) {
    report_open(nullptr, '[');
  }
  int row = -1; // that is being written
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    if (field->table != table || field->row >= rows || !is_shown(field)) {
      continue;
    }
    if (field->row != row) {
      print_row_edge(row, field->row);
      row = field->row;
    }
    print_cell(field);
  }
  print_row_edge(row, -1);
  if (report_json) {
    report_close(']');
  }
  return EXIT_SUCCESS;
}

static int submit(const char *form)
{
  return report_result(form, change_submit(dry_run), dry_run, {});
}

// True when the table has every column named; else the first that it lacks has
// been reported.
static bool has_columns(const char *form, const pt_body_item *table, int count,
                        char **names)
{
  for (int i = 0; i < count; i++) {
    const pt_body_item *cell = table->next;
    int left = table->table.columns;
    while (left > 0 && strcasecmp(cell->name, names[i]) != 0) {
      cell = cell->next;
      left--;
    }
    if (left == 0) {
      unknown_column(form, table, names[i]);
      return false;
    }
  }
  return true;
}

// Sets cells of the row; `words` are COLUMN=VALUE.
static int set_row(const char *form, const pt_body_item *table, int row,
                   int count, char **words)
{
  wanted_value *values = take_values(count, words);
  if (values == nullptr) {
    return USAGE_STATUS;
  }
  bool named = has_columns(form, table, count, words);
  for (int i = 0; i < count && named; i++) {
    char *name = static_cast<char *>(must_malloc(strlen(words[i]) + 12));
    named = name != nullptr;
    if (named) {
      snprintf(name, strlen(words[i]) + 12, "%s%d", words[i], row);
    }
    values[i].name = name;
  }
  int status = EXIT_FAILURE;
  if (named && input_values(form, values, static_cast<size_t>(count)) &&
      change_values(form, values, static_cast<size_t>(count))) {
    status = submit(form);
  }
  for (int i = 0; i < count; i++) {
    if (values[i].name != words[i]) {
      free(const_cast<char *>(values[i].name));
    }
  }
  free(values);
  return status;
}

// The number that `word` is, counted from 0; -1, reported, when the table has
// no such row.
static int take_row(const pt_body_item *table, const char *word)
{
  char *end;
  const long row = strtol(word, &end, 10);
  if (*word == '\0' || *end != '\0' || row < 1 || row > count_rows(table)) {
    misuse("the table has no such row", word);
    return -1;
  }
  return static_cast<int>(row - 1);
}

static int delete_rows(const char *form, const pt_body_item *table, int count,
                       char **words)
{
  for (int i = 0; i < count; i++) {
    const int row = take_row(table, words[i]);
    if (row < 0) {
      return USAGE_STATUS;
    }
    if (!change_delete_row(table, row)) {
      report_failure(form, "rows of this table cannot be deleted");
      return EXIT_FAILURE;
    }
  }
  return submit(form);
}

static int table_rows(int count, char **words)
{
  const char *form = words[0];
  if (!open_page(form)) {
    return EXIT_FAILURE;
  }
  const pt_body_item *table = page_find_table(words[1]);
  if (table == nullptr) {
    unknown_table(form, words[1]);
    return EXIT_FAILURE;
  }
  if (!change_show_table(table)) {
    report_failure(form, page_message());
    return EXIT_FAILURE;
  }
  if (count == 2) {
    return list_rows(table);
  }
  const char *verb = words[2];
  if (strcmp(verb, "add") == 0 && count > 3) {
    return set_row(form, table, change_blank_row(table), count - 3, words + 3);
  }
  if (strcmp(verb, "change") == 0 && count > 4) {
    const int row = take_row(table, words[3]);
    return row < 0 ? USAGE_STATUS
                   : set_row(form, table, row, count - 4, words + 4);
  }
  if (strcmp(verb, "delete") == 0 && count > 3) {
    return delete_rows(form, table, count - 3, words + 3);
  }
  return misuse("unknown use of rows", verb);
}

// --- dump and apply ----------------------------------------------------------

// The system log shows who has read all settings, and who has replaced them.
static int log_use(int status, const char *done, const char *failed)
{
  store_who who;
  char text[WHO_USER_SIZE + WHO_ADDRESS_SIZE + 5];
  store_ask_who(&who);
  store_write_who(&who, text, sizeof text);
  syslog(LOG_NOTICE, "%s (%s)", status == EXIT_SUCCESS ? done : failed, text);
  return status;
}

static int dump(int count, char **words)
{
  if (report_json) {
    return misuse("a dump is lines for \"apply\"", "--json");
  }
  return log_use(dump_pages(words, count, with_secrets),
                 with_secrets ? "Settings dumped, with secrets"
                              : "Settings dumped, without secrets",
                 "Settings dumped, not all of them");
}

// Opens the file, which may be one that only the user who calls can read.
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
  return dry_run ? misuse("confirm keeps a change or does not", "--dry-run")
                 : pending_confirm();
}

static int history(int, char **)
{
  return past_list();
}

static int restore(int, char **words)
{
  char *end;
  const unsigned long long number = strtoull(words[0], &end, 10);
  if (words[0][0] < '0' || words[0][0] > '9' || *end != '\0') {
    return misuse("not the number of a save", words[0]);
  }
  return past_restore(number, dry_run);
}

// Asks the person at the terminal for confirmation.
static bool ask(const char *form)
{
  char answer[8] = "";
  terminal_print(stderr, "Set %s back to the settings as shipped? [y/N] ",
                 form != nullptr ? form : "every page of the device");
  return fgets(answer, sizeof answer, stdin) != nullptr &&
         strcasecmp(answer, "y\n") == 0;
}

static int reset(int count, char **words)
{
  char *form = count > 0 ? words[0] : nullptr;
  if (is_sure || dry_run) {
    return past_reset(form, dry_run);
  }
  if (isatty(STDIN_FILENO) == 0) {
    return misuse("reset asks at a terminal; elsewhere it wants", "--yes");
  }
  if (ask(form)) {
    return past_reset(form, false);
  }
  fputs("orvctl: nothing was saved\n", stderr);
  return EXIT_FAILURE;
}

// --- the command line --------------------------------------------------------

// Scripts log who changed what, as they do for users of the web server.
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
  int least; // words behind the name
  int most;  // -1: any number
};

// clang-format off
static const command commands[] = {
  {"forms",   list_forms, 0, 0},
  {"get",     get_values, 1, -1},
  {"set",     set_values, 2, -1},
  {"rows",    table_rows, 2, -1},
  {"dump",    dump,       0, -1},
  {"apply",   apply,      1, 1},
  {"confirm", confirm,    0, 0},
  {"history", history,    0, 0},
  {"restore", restore,    1, 1},
  {"reset",   reset,      0, 1},
};
// clang-format on

static int run(int count, char **words)
{
  for (const command &row : commands) {
    if (strcmp(row.name, words[0]) != 0) {
      continue;
    }
    if (count - 1 < row.least || (row.most >= 0 && count - 1 > row.most)) {
      return misuse("wrong number of words behind", row.name);
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
// included, the last of them (perhaps "") the one being typed.
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

// Before the first page.
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

int main(int argc, char **argv)
{
  if (argc > 2 && strcmp(argv[1], "complete") == 0) {
    begin();
    return device_enter() ? complete(argc - 2, argv + 2) : EXIT_FAILURE;
  }
  int count = 0; // words that are no options, moved to the front
  for (int i = 1; i < argc; i++) {
    if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
      fputs(USAGE, stdout);
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
    fputs(USAGE, stderr);
    return USAGE_STATUS;
  }
  begin();
  return run(count, argv);
}
