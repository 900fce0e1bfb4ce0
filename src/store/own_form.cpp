// A form whose script is this program.
//
// The page has checked the values; here all of them are checked again, by the
// same checks, and under the lock when they are stored.

#include "own_form.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "act.h"
#include "commit.h"
#include "confirm.h"
#include "fault.h"
#include "folder.h"
#include "form.h"
#include "intake.h"
#include "orv.h"
#include "orv_check.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_vars.h"
#include "own_items.h"
#include "own_page.h"
#include "script_lines.h"
#include "save.h"
#include "settings.h"
#include "store_text.h"
#include "who.h"

// --- read --------------------------------------------------------------------

// Of a secret only its name is told, unless a command on the device (a dump)
// asks for its value.
static void read_setting(const setting *one)
{
  const pt_body_item *item = own_find_item(one->name);
  if (item == nullptr ? settings_is_secret(own_settings(), one->name)
                      : own_is_secret(item)) {
    const bool told =
        getenv("ORV_SECRETS") != nullptr && !store_serves_request();
    report_value(one->name, told ? one->value : "");
  } else if (item != nullptr && item->type == PT_CHECKBOX) {
    report_value(one->name, own_as_box(one->value));
  } else {
    report_value(one->name, one->value);
  }
}

// Reports items without a stored value, too, so that they can be changed and
// cleared.
static void read_missing(const pt_body_item *item)
{
  if (item->column >= 0 || !own_takes_input(item) ||
      settings_get(own_settings(), item->name) != nullptr) {
    return;
  }
  report_value(item->name, item->type == PT_CHECKBOX ? "False" : "");
}

// The stamp names the newest commit in these values, and the page: judge_stamp
// compares both.
static bool read_form()
{
  for (size_t i = 0; i < own_settings()->count; i++) {
    read_setting(own_settings()->list + i);
  }
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    read_missing(item);
  }
  printf("orv_stamp=\"%" PRIu64 " %lld.%d.%ld\"\n", own_settings()->number,
         static_cast<long long>(time(nullptr)), static_cast<int>(getpid()),
         random());
  return true;
}

// --- judging -----------------------------------------------------------------

// The choices of such a list are settings: any in a request are ignored.
static bool is_choice(const pt_body_item *item, const char *value)
{
  for (int i = 0;; i++) {
    char name[ORV_NAME_SIZE];
    snprintf(name, sizeof name, "select_%s%d", item->selector, i);
    const char *choice = settings_get(own_settings(), name);
    if (choice == nullptr) {
      return false;
    }
    const size_t length = strcspn(choice, " ");
    if (strncmp(choice, value, length) == 0 && value[length] == '\0') {
      return true;
    }
  }
}

// The stored value passes even if it is no choice any more: saving the form
// must not depend on a list that has changed meanwhile.
static void judge_lists()
{
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    const char *value = item->type == PT_ISELECT
                            ? orv_get_var(&cfg_vars, item->name, o_best)
                            : nullptr;
    const char *stored =
        value != nullptr ? settings_get(own_settings(), item->name) : nullptr;
    if (value != nullptr && value[0] != '\0' &&
        (stored == nullptr || strcmp(stored, value) != 0) &&
        !is_choice(item, value)) {
      report_error(item->name, "Choose one of the entries");
    }
  }
}

static void tell_errors()
{
  for (const orv_var *var = err_vars; var != nullptr; var = var->next) {
    const char *text = orv_get_var(&err_vars, var->name, o_undefined);
    if (text != nullptr && strcmp(var->name, "msg") != 0) {
      report_error(var->name, text);
    }
  }
}

// A page may save again what it saved itself: its user went Back.
static void judge_stamp()
{
  const char *page = intake_get("orv_stamp");
  if (page == nullptr || page[0] == '\0') {
    return; // a command, which has read no page
  }
  char *rest = nullptr;
  const uint64_t number = strtoull(page, &rest, 10);
  if (strspn(page, "0123456789") == 0 || *rest != ' ' ||
      (own_settings()->number > number &&
       strcmp(own_settings()->owner, rest + 1) != 0)) {
    report_message("This page is older than the last save. Please open it "
                   "again.");
  }
}

// Whether all values are valid; messages are reported for those that are not.
static bool judge()
{
  judge_stamp();
  if (orv_check_vars(const_cast<pt_body_item *>(form_items())) == 0) {
    tell_errors();
  }
  judge_lists();
  if (!report_has_errors()) {
    return true;
  }
  report_message("Nothing was saved yet. Please look at the marked fields.");
  return false;
}

// --- writing -----------------------------------------------------------------

// A box that clears a secret is an order, not a value.
static bool is_stored(const pt_body_item *item)
{
  return own_takes_input(item) && own_cleared_by(item) == nullptr;
}

static void order_value(FILE *out, const pt_body_item *item, const char *name)
{
  const char *value = orv_get_var(&cfg_vars, name, o_best);
  if (value != nullptr) {
    fprintf(out, "%s=%s\n", name,
            item->type == PT_CHECKBOX ? own_as_box(value) : value);
  }
}

static const char *best_value(const char *name)
{
  return orv_get_var(&cfg_vars, name, o_best);
}

static void order_table(FILE *out, const pt_body_item *table)
{
  const int rows = own_count_rows();
  for (int row = 0; row < rows; row++) {
    const bool holds = own_row_holds(table, row, best_value);
    const pt_body_item *cell = table->next;
    for (int i = 0; i < table->table.columns; i++, cell = cell->next) {
      char name[ORV_NAME_SIZE];
      orv_cell_name(name, cell->name, row);
      if (is_stored(cell) && (holds || row < table->table.fixed_rows)) {
        order_value(out, cell, name);
      }
    }
  }
}

static void order_items(FILE *out)
{
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    if (item->type == PT_TABLE || item->type == PT_FTABLE) {
      order_table(out, item);
    } else if (item->column < 0 && is_stored(item)) {
      order_value(out, item, item->name);
    }
  }
}

// Other values of the file, such as the choices of a list.
static void order_others(FILE *out)
{
  for (size_t i = 0; i < own_settings()->count; i++) {
    const setting *one = own_settings()->list + i;
    if (!one->shipped && own_item_of(one->name) == nullptr) {
      fprintf(out, "%s=%s\n", one->name, one->value);
    }
  }
}

// Secrets are stored as typed.  Those without a field are declared again, or
// the next save would tell them.
static void order_secrets(FILE *out)
{
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    if (item->name != nullptr && own_is_secret(item)) {
      fprintf(out, "@secret %s\n", item->name);
    }
  }
  for (size_t i = 0; i < own_settings()->count; i++) {
    const char *name = own_settings()->list[i].name;
    if (own_find_item(name) == nullptr &&
        settings_is_secret(own_settings(), name)) {
      fprintf(out, "@secret %s\n", name);
    }
  }
}

// The order of the save; owned by the caller, NULL with a fault.
static char *make_order()
{
  store_text order;
  FILE *out = store_open_text(&order);
  if (out == nullptr) {
    return nullptr;
  }
  const char *page = intake_get("orv_stamp");
  const char *token = page != nullptr ? strchr(page, ' ') : nullptr;
  if (token != nullptr) {
    fprintf(out, "@owner %s\n", token + 1);
  }
  order_secrets(out);
  fprintf(out, "> %s\n", own_file());
  order_others(out);
  order_items(out);
  return store_close_text(out, &order) ? order.bytes : nullptr;
}

// The confirmation page must carry neither a secret nor the tick that clears
// it.  No table has any.
static void forget_secrets()
{
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    if (item->name != nullptr && own_is_secret(item)) {
      printf("u_%s=\n", item->name);
    } else if (own_cleared_by(item) != nullptr) {
      printf("u_%s=False\n", item->name);
    }
  }
}

// An action with the form's name makes the device use the saved values.
static void ask_action(const char *form)
{
  if (act_exists(form) && !act_ask(form)) {
    report_value("u_saved_note", store_fault_text());
    store_forget_fault();
  }
}

static bool check_form()
{
  return own_take_page() && judge();
}

// The action comes last, when the settings that it reads are in place.
static bool write_form(const char *form, const char *subitem)
{
  if (!own_take_page() || !judge()) {
    return false;
  }
  char *order = make_order();
  if (order == nullptr || !save_order(order, form, subitem)) {
    return false;
  }
  forget_secrets();
  save_tell_page(stdout);
  save_log();
  ask_action(form);
  return true;
}

// --- tasks -------------------------------------------------------------------

// The folders are beside that of the link, not beside that of its target.  What
// the environment gives stays; a blank value gives nothing.
static bool set_places(const char *path)
{
  const char *slash = strrchr(path, '/');
  const int length = slash != nullptr ? static_cast<int>(slash - path) : 1;
  static const char *const names[] = {
      "ORV_STATE",     "state",     "ORV_DEFAULTS", "defaults",
      "ORV_TEMPLATES", "templates", "ORV_ACTIONS",  "actions",
      "ORV_MIGRATE",   "migrate"};
  for (size_t i = 0; i < sizeof names / sizeof *names; i += 2) {
    const size_t size = strlen(path) + 32;
    const owned_text place(static_cast<char *>(must_malloc(size)));
    if (place == nullptr) {
      return store_fault("Out of memory");
    }
    snprintf(place.get(), size, "%.*s/../%s", length,
             slash != nullptr ? path : ".", names[i + 1]);
    const char *given = getenv(names[i]);
    setenv(names[i], place.get(), given == nullptr || given[0] == '\0');
  }
  return true;
}

static bool run_task(const char *task, const char *form, const char *subitem)
{
  const bool writes = strcmp(task, "--write") == 0;
  const bool reads = strcmp(task, "--read") == 0;
  form_set_subitem(subitem);
  store_find(); // finds the form of a large request before the lock is taken
  if ((!reads && !intake_read(form)) || !store_open(writes)) {
    return false;
  }
  stage_join();
  if (writes && !store_lock_for(form)) {
    return false;
  }
  if (strcmp(form, CONFIRM_FORM) == 0) {
    return reads ? confirm_read() : !writes || confirm_write();
  }
  if (!own_open(form, subitem)) {
    return false;
  }
  if (reads) {
    return read_form();
  }
  return writes ? write_form(form, subitem) : check_form();
}

int own_form_run(const char *path, int count, char **words)
{
  static const char *const tasks[] = {"--read", "--check", "--write",
                                      "--navbar"};
  const char *task = count > 0 ? words[0] : "";
  const bool bar = strcmp(task, "--navbar") == 0; // the same for every page
  bool known = false;
  for (const char *one : tasks) {
    known |= strcmp(one, task) == 0;
  }
  if (!known || count > 3 || (count < 2 && !bar)) {
    fprintf(stderr,
            "usage: %s --read|--check|--write|--navbar FORM [SUBITEM]\n", path);
    return EXIT_FAILURE;
  }
  const char *subitem = count > 2 && words[2][0] != '\0' ? words[2] : nullptr;
  const bool done =
      set_places(path) &&
      (bar ? navbar_print(path) : run_task(task, words[1], subitem));
  // A page without its values must not be saved.
  const bool failed = !done && strcmp(task, "--read") == 0;
  if (!done && store_fault_text() != nullptr) {
    report_fault(store_fault_text(), failed);
  }
  return fflush(stdout) == 0 && !failed ? EXIT_SUCCESS : EXIT_FAILURE;
}
