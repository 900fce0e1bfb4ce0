// A form whose script is this program.
//
// The page has checked the values; here all of them are checked again, by the
// same checks, and under the lock when they are stored.  Only the template's
// text fields, check boxes and lists are stored, neither read-only items nor
// other names in a request.  A value that is missing in the request, because
// its field was not drawn, stays as it is.
//
// Owns the form's settings for the life of the process.

#include "own_form.h"

#include <algorithm>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
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
#include "orv_changes.h"
#include "orv_check.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_secret.h"
#include "orv_vars.h"
#include "script_lines.h"
#include "save.h"
#include "settings.h"
#include "store_text.h"
#include "who.h"

constexpr size_t FILE_SIZE = STORE_NAME_MAX + 1;
static const char CLEAR[] = "_clear"; // ends the name of a box beside a secret

static char file[FILE_SIZE]; // settings file: FORM or FORM@SUBITEM
static settings now;         // its values, with the defaults

// --- items -------------------------------------------------------------------

static bool takes_input(const pt_body_item *item)
{
  return item->type == PT_TEXT_FIELD || item->type == PT_CHECKBOX ||
         item->type == PT_SELECT || item->type == PT_ISELECT;
}

static const pt_body_item *find_item(const char *name)
{
  const pt_body_item *item = form_items();
  while (item != nullptr && (item->name == nullptr || !takes_input(item) ||
                             strcasecmp(item->name, name) != 0)) {
    item = item->next;
  }
  return item;
}

// By its name, or because an earlier script of the form has declared it one.
static bool is_secret(const pt_body_item *item)
{
  return orv_is_secret(item) ||
         (item->type == PT_TEXT_FIELD && settings_is_secret(&now, item->name));
}

// The secret that the box clears, NULL for any other box.
static const pt_body_item *cleared_by(const pt_body_item *box)
{
  if (box->type != PT_CHECKBOX || box->name == nullptr) {
    return nullptr;
  }
  const size_t length = strlen(box->name);
  const size_t end = sizeof CLEAR - 1;
  if (length <= end || length >= ORV_NAME_SIZE ||
      strcasecmp(box->name + length - end, CLEAR) != 0) {
    return nullptr;
  }
  char name[ORV_NAME_SIZE];
  snprintf(name, sizeof name, "%.*s", static_cast<int>(length - end),
           box->name);
  const pt_body_item *secret = find_item(name);
  return secret != nullptr && is_secret(secret) ? secret : nullptr;
}

// A box that clears a secret is an order, not a value.
static bool is_stored(const pt_body_item *item)
{
  return takes_input(item) && cleared_by(item) == nullptr;
}

// Settings hold truth values in many spellings; scripts and pages get one.
static const char *as_box(const char *value)
{
  return value != nullptr && orv_string_is_true(value) != 0 ? "True" : "False";
}

// Whether the item is the value's, whose name without a row number has `column`
// characters.
static bool is_item_of(const pt_body_item *item, const char *name,
                       size_t column)
{
  if (item->name == nullptr || (item->name[0] | 0x20) != (name[0] | 0x20)) {
    return false; // most of them differ in the first letter
  }
  return strcasecmp(item->name, name) == 0 ||
         (item->column >= 0 && strlen(item->name) == column &&
          strncasecmp(item->name, name, column) == 0);
}

// The item of the value, found by its own name or as a table's cell.
static const pt_body_item *item_of(const char *name)
{
  const size_t column = settings_column(name);
  const pt_body_item *item = form_items();
  while (item != nullptr && !is_item_of(item, name, column)) {
    item = item->next;
  }
  return item;
}

// As the template spells the name: names are case-insensitive on a page.
static const char *spell(const char *name)
{
  const pt_body_item *item = item_of(name);
  return item != nullptr ? item->name : nullptr;
}

// --- the file ----------------------------------------------------------------

static bool needs_script(const pt_body_item *column)
{
  return store_fault("The column \"%.40s\" is secret: such a table needs a "
                     "script.",
                     column->name);
}

// A page could not say to which row a blank secret of a table belongs.
static bool has_no_secret_cell()
{
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    if (item->column >= 0 && orv_is_secret(item)) {
      return needs_script(item);
    }
  }
  for (const setting *one = now.list; one < now.list + now.count; one++) {
    const pt_body_item *item =
        settings_is_secret(&now, one->name) ? item_of(one->name) : nullptr;
    if (item != nullptr && item->column >= 0) {
      return needs_script(item);
    }
  }
  return true;
}

// Only sub-items with shipped defaults exist.  Their files cannot be another
// form's, since no form's name contains "@".
static bool open_settings(const char *form, const char *subitem)
{
  if (strchr(form, '@') != nullptr || !form_open(form)) {
    return store_fault("There is no such page.");
  }
  const int length =
      snprintf(file, sizeof file, "%s%s%s", form, subitem != nullptr ? "@" : "",
               subitem != nullptr ? subitem : "");
  if (length > static_cast<int>(STORE_NAME_MAX) ||
      (subitem != nullptr && !store_has_defaults(file))) {
    return store_fault("There is no such page here.");
  }
  settings_spell_by(spell);
  return settings_read(file, &now) && has_no_secret_cell();
}

// --- read --------------------------------------------------------------------

// Of a secret only its name is told, unless a command on the device (a dump)
// asks for its value.
static void read_setting(const setting *one)
{
  const pt_body_item *item = find_item(one->name);
  if (item == nullptr ? settings_is_secret(&now, one->name) : is_secret(item)) {
    const bool told =
        getenv("ORV_SECRETS") != nullptr && !store_serves_request();
    report_value(one->name, told ? one->value : "");
  } else if (item != nullptr && item->type == PT_CHECKBOX) {
    report_value(one->name, as_box(one->value));
  } else {
    report_value(one->name, one->value);
  }
}

// Reports items without a stored value, too, so that they can be changed and
// cleared.
static void read_missing(const pt_body_item *item)
{
  if (item->column >= 0 || !takes_input(item) ||
      settings_get(&now, item->name) != nullptr) {
    return;
  }
  report_value(item->name, item->type == PT_CHECKBOX ? "False" : "");
}

// The stamp names the newest commit in these values, and the page: judge_stamp
// compares both.
static bool read_form()
{
  for (size_t i = 0; i < now.count; i++) {
    read_setting(now.list + i);
  }
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    read_missing(item);
  }
  printf("orv_stamp=\"%" PRIu64 " %lld.%d.%ld\"\n", now.number,
         static_cast<long long>(time(nullptr)), static_cast<int>(getpid()),
         random());
  return true;
}

// --- the page's values -------------------------------------------------------

// A name with a prefix would set something else than a setting, such as a
// message or a default.
static void set_value(const char *name, v_origin origin, const char *value)
{
  const char *bare = name;
  if (orv_var_list(&bare) == &cfg_vars && orv_var_prefix(name) == o_undefined) {
    orv_set_var(name, origin, const_cast<char *>(value), 0);
  }
}

static void take_field(const pt_body_item *item, const char *name,
                       const char *sent)
{
  if (item->type == PT_CHECKBOX) {
    set_value(name, o_best, as_box(sent));
  } else if (!is_secret(item) || sent[0] != '\0') {
    set_value(name, o_best, sent); // a blank secret stays as stored
  }
}

static bool has_text_column(const pt_body_item *table)
{
  const pt_body_item *cell = table->next;
  for (int i = 0; i < table->table.columns; i++, cell = cell->next) {
    if (cell->type == PT_TEXT_FIELD) {
      return true;
    }
  }
  return false;
}

// Whether the value makes the row exist.  A list always has a value, so texts
// decide, or check boxes where there are no texts.
static bool makes_row(const pt_body_item *cell, bool by_text, const char *value)
{
  return by_text ? cell->type == PT_TEXT_FIELD && value[0] != '\0'
                 : cell->type == PT_CHECKBOX && orv_string_is_true(value) != 0;
}

static bool row_was_sent(const pt_body_item *table, int row)
{
  const pt_body_item *cell = table->next;
  for (int i = 0; i < table->table.columns; i++, cell = cell->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, cell->name, row);
    if (intake_get(name) != nullptr) {
      return true;
    }
  }
  return false;
}

// By the page's values, or by those that are about to be stored.
static bool row_holds(const pt_body_item *table, int row,
                      const char *(*value_of)(const char *name))
{
  const bool by_text = has_text_column(table);
  const pt_body_item *cell = table->next;
  for (int i = 0; i < table->table.columns; i++, cell = cell->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, cell->name, row);
    const char *value = value_of(name);
    if (value != nullptr && makes_row(cell, by_text, value)) {
      return true;
    }
  }
  return false;
}

// Stores the page's row `from` as the row `to`.
static void take_row(const pt_body_item *table, int from, int to)
{
  const pt_body_item *cell = table->next;
  for (int i = 0; i < table->table.columns; i++, cell = cell->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, cell->name, from);
    const char *sent = intake_get(name);
    orv_cell_name(name, cell->name, to);
    if (takes_input(cell)) {
      take_field(cell, name, sent != nullptr ? sent : "");
    }
  }
}

// Of all variables: no row behind these holds anything, so no loop looks for
// more cells than there are.
static int count_rows()
{
  int rows = 0;
  for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
    rows = std::max(rows, settings_row(var->name) + 1);
  }
  return rows;
}

static void blank_row(const pt_body_item *table, int row)
{
  const pt_body_item *cell = table->next;
  for (int i = 0; i < table->table.columns; i++, cell = cell->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, cell->name, row);
    if (orv_find_var(&cfg_vars, name, 0) != nullptr) {
      orv_set_var(name, o_user, nullptr, 0);
    }
  }
}

// Closes the gaps between rows that hold something; a table with a fixed number
// of rows keeps them in place.
static bool take_table(const pt_body_item *table)
{
  if (!row_was_sent(table, 0)) {
    return true; // it was not drawn
  }
  const int fixed = table->table.fixed_rows;
  const int likely =
      std::min(std::max(intake_count_rows(), fixed), ORV_STORED_ROWS_MAX);
  int to = 0;
  for (int row = 0;
       row < likely || (row < ORV_ROWS_MAX && row_was_sent(table, row));
       row++) {
    if (row < fixed || (fixed == 0 && row_holds(table, row, intake_get))) {
      if (to == ORV_STORED_ROWS_MAX) {
        return store_fault("Nothing was saved: a table keeps %d rows, and this "
                           "one has more.",
                           ORV_STORED_ROWS_MAX);
      }
      take_row(table, row, to);
      to++;
    }
  }
  const int rows = count_rows();
  for (int row = to; row < rows; row++) {
    blank_row(table, row);
  }
  return true;
}

// A ticked box overrides a value that the browser has filled in.
static void clear_secrets()
{
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    const pt_body_item *secret =
        item->column < 0 && item->name != nullptr ? cleared_by(item) : nullptr;
    const char *sent = secret != nullptr ? intake_get(item->name) : nullptr;
    if (sent != nullptr && orv_string_is_true(sent) != 0) {
      orv_set_var(secret->name, o_user, nullptr, 0);
    }
  }
}

static bool take_items()
{
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    if (item->type == PT_TABLE || item->type == PT_FTABLE) {
      if (!take_table(item)) {
        return false;
      }
      continue;
    }
    const char *sent = item->column < 0 && takes_input(item)
                           ? intake_get(item->name)
                           : nullptr;
    if (sent != nullptr) {
      take_field(item, item->name, sent);
    }
  }
  clear_secrets();
  return true;
}

// Fills the variables: stored values count as reported, sent ones as entered.
static bool take_page()
{
  for (size_t i = 0; i < now.count; i++) {
    set_value(now.list[i].name, o_orig, now.list[i].value);
  }
  return take_items();
}

// --- judging -----------------------------------------------------------------

// The choices of such a list are settings: any in a request are ignored.
static bool is_choice(const pt_body_item *item, const char *value)
{
  for (int i = 0;; i++) {
    char name[ORV_NAME_SIZE];
    snprintf(name, sizeof name, "select_%s%d", item->selector, i);
    const char *choice = settings_get(&now, name);
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
        value != nullptr ? settings_get(&now, item->name) : nullptr;
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
      (now.number > number && strcmp(now.owner, rest + 1) != 0)) {
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

static void order_value(FILE *out, const pt_body_item *item, const char *name)
{
  const char *value = orv_get_var(&cfg_vars, name, o_best);
  if (value != nullptr) {
    fprintf(out, "%s=%s\n", name,
            item->type == PT_CHECKBOX ? as_box(value) : value);
  }
}

static const char *best_value(const char *name)
{
  return orv_get_var(&cfg_vars, name, o_best);
}

static void order_table(FILE *out, const pt_body_item *table)
{
  const int rows = count_rows();
  for (int row = 0; row < rows; row++) {
    const bool holds = row_holds(table, row, best_value);
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
  for (size_t i = 0; i < now.count; i++) {
    const setting *one = now.list + i;
    if (!one->shipped && item_of(one->name) == nullptr) {
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
    if (item->name != nullptr && is_secret(item)) {
      fprintf(out, "@secret %s\n", item->name);
    }
  }
  for (size_t i = 0; i < now.count; i++) {
    const char *name = now.list[i].name;
    if (find_item(name) == nullptr && settings_is_secret(&now, name)) {
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
  fprintf(out, "> %s\n", file);
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
    if (item->name != nullptr && is_secret(item)) {
      printf("u_%s=\n", item->name);
    } else if (cleared_by(item) != nullptr) {
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
  return take_page() && judge();
}

// The action comes last, when the settings that it reads are in place.
static bool write_form(const char *form, const char *subitem)
{
  if (!take_page() || !judge()) {
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
  if (!open_settings(form, subitem)) {
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
