// Validation of submitted values.
//
// orv_check_vars walks a body in template order, follows its conditional
// sections, and checks every input item: first the rules that hold for all
// text fields, then the check that the template names for this one.  A failure
// is a message in err_vars under the field's name; every failure is recorded
// and none ends the walk.  Values are normalised where they lie in cfg_vars,
// so that scripts receive what was checked.
//
// The state below belongs to one walk, which resets it at its start.  Mistakes
// in the template (an unknown check, bad options) are reported in our own
// words, because the template's message is about the user's value.  When memory
// runs out, the memory helpers have reported it and the request becomes an
// error page, so a check then only gives up.
//
// Nothing here draws.  The checks of texts and patterns are here, those of
// numbers, addresses and files in their own files.

#include "orv_check.h"

#include <algorithm>
#include <regex.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "orv.h"
#include "orv_check_fault.h"
#include "orv_conditions.h"
#include "orv_parser.h"
#include "orv_pattern.h"
#include "orv_vars.h"

static int error_count; // failures recorded in this walk

static void condition_failed(const char *problem)
{
  check_failed("fatal", nullptr, problem, nullptr);
}

static orv_conditions conditions = {condition_failed, 0, 0, {}};

// What is not shown is not required.
static bool is_displayed()
{
  return orv_conditions_hold(&conditions);
}

// --- recording failures ------------------------------------------------------

// Messages are short lines on the page; those composed here are cut to this.
constexpr size_t LABELLED_SIZE = ORV_LABELLED_MAX + 1;
constexpr size_t SUMMARY_SIZE = 80; // the number of errors
constexpr size_t ROW_SIZE = 24;     // a long in decimal, terminated

// Replaces the user value, in its own buffer where the text fits.  A record
// that gets no copy stays without a message, and the failure is counted.
static void store_message(orv_var *record, const char *text)
{
  const size_t size = strlen(text) + 1;
  if (record->u_value != nullptr && strlen(record->u_value) + 1 >= size) {
    memcpy(record->u_value, text, size);
    return;
  }
  free(record->u_value);
  record->u_value = must_strdup(text);
}

void check_failed(const char *err_name, const char *tpl_text,
                  const char *def_text, const char *var_label)
{
  error_count++;
  orv_var *record = orv_find_var(&err_vars, err_name, 1);
  if (record == nullptr) {
    return;
  }
  if (tpl_text != nullptr) {
    store_message(record, tpl_text);
    return;
  }
  const char *text = def_text != nullptr ? def_text : "Unspecified error";
  if (var_label == nullptr) {
    store_message(record, text);
    return;
  }
  char labelled[LABELLED_SIZE];
  snprintf(labelled, sizeof labelled, "%s: %s", var_label, text);
  store_message(record, labelled);
}

void check_record(const char *fault, const char *tpl_error,
                  const char *err_name, const char *var_label)
{
  if (fault != nullptr) {
    check_failed(err_name, tpl_error, fault, var_label);
  }
}

// --- text --------------------------------------------------------------------

const char *check_next_word(const char *word, const char *blanks)
{
  word += strcspn(word, blanks);
  return word + strspn(word, blanks);
}

char check_first_other(const char *text, const char *allowed)
{
  return text[strspn(text, allowed)];
}

void chk_text(char *, const char *, const char *, const char *, const char *)
{
}

void chk_word(char *value, const char *, const char *tpl_error,
              const char *err_name, const char *var_label)
{
  const char other = check_first_other(value, ASCII_ALNUM "-_");
  if (other != '\0') {
    check_failed(err_name, tpl_error,
                 other == ' ' ? "Single word is required"
                              : "Illegal character in word",
                 var_label);
  }
}

void chk_keyword(char *value, const char *options, const char *tpl_error,
                 const char *err_name, const char *var_label)
{
  const size_t length = strlen(value);
  for (const char *word = options; *word != '\0';
       word = check_next_word(word, " ")) {
    if (strcspn(word, " ") == length && strncasecmp(word, value, length) == 0) {
      return;
    }
  }
  check_failed(err_name, tpl_error, "Unknown keyword entered", var_label);
}

void chk_email(char *value, const char *, const char *tpl_error,
               const char *err_name, const char *var_label)
{
  const char *fault = nullptr;
  const char *at = strchr(value, '@');
  if (check_first_other(value, ASCII_ALNUM "_.-+@") != '\0') {
    fault = "Illegal character in email address";
  } else if (at == nullptr) {
    fault = "Missing @ in email address";
  } else if (strchr(at + 1, '@') != nullptr) {
    fault = "Too many @s in email address";
  }
  check_record(fault, tpl_error, err_name, var_label);
}

// --- patterns ----------------------------------------------------------------

static void chk_Xregex(const char *value, const char *options,
                       const char *tpl_error, const char *err_name,
                       const char *var_label, int flags)
{
  const pattern_answer answer = (flags & REG_ICASE) == 0
                                    ? orv_pattern_match(options, value)
                                    : PATTERN_OTHER;
  if (answer != PATTERN_OTHER) {
    if (answer == PATTERN_FITS_NOT) {
      check_failed(err_name, tpl_error, "Incorrect format", var_label);
    }
    return;
  }
  regex_t pattern;
  if (regcomp(&pattern, options, flags | REG_NOSUB) != 0) {
    check_failed(err_name, nullptr, "Bad regular expression in check options",
                 var_label);
    return;
  }
  if (regexec(&pattern, value, 0, nullptr, 0) != 0) {
    check_failed(err_name, tpl_error, "Incorrect format", var_label);
  }
  regfree(&pattern);
}

void chk_regex(char *value, const char *options, const char *tpl_error,
               const char *err_name, const char *var_label)
{
  chk_Xregex(value, options, tpl_error, err_name, var_label, REG_EXTENDED);
}

void chk_iregex(char *value, const char *options, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  chk_Xregex(value, options, tpl_error, err_name, var_label,
             REG_EXTENDED | REG_ICASE);
}

// --- values ------------------------------------------------------------------

static const char *skip_spaces(const char *text)
{
  return text + strspn(text, " ");
}

// Skips "nullok" at the start of `*check`; true when it was there.
static bool take_nullok(const char **check)
{
  static const char word[] = "nullok";
  constexpr size_t length = sizeof word - 1;
  const char *text = *check;
  if (strncmp(text, word, length) != 0 ||
      (text[length] != ' ' && text[length] != '\0')) {
    return false;
  }
  *check = text + length;
  return true;
}

// Holds values to what scripts can handle without quoting; tabs become spaces.
static const char *screen_value(char *value)
{
  for (char *at = value; *at != '\0'; at++) {
    if (strchr("\"$\\`", *at) != nullptr) {
      return "Characters \"$\\` not allowed in input";
    }
    if (*at == '\t') {
      *at = ' ';
    } else if (*at < ' ' || *at > '~') {
      return "Only printable characters allowed in input";
    }
  }
  return nullptr;
}

static void trim_spaces(char *value)
{
  size_t length = strlen(value);
  while (length > 0 && value[length - 1] == ' ') {
    length--;
  }
  value[length] = '\0';
  const size_t leading = strspn(value, " ");
  memmove(value, value + leading, length - leading + 1);
}

const checks_info *orv_find_check(const char *check, int *nullok,
                                  const char **options)
{
  const char *name = skip_spaces(check != nullptr ? check : "nullok text");
  *nullok = take_nullok(&name) ? 1 : 0;
  name = skip_spaces(name);
  const size_t length = strcspn(name, " ");
  *options = skip_spaces(name + length);
  for (const checks_info *row = chk_list; row->name != nullptr; row++) {
    if (static_cast<size_t>(row->name_len) == length &&
        strncasecmp(row->name, name, length) == 0) {
      return row;
    }
  }
  return nullptr;
}

static void do_check(const char *name, const char *check, const char *tpl_error,
                     const char *err_name, const char *var_label)
{
  if (err_name == nullptr) {
    err_name = "msg";
  }
  int nullok;
  const char *options;
  const checks_info *row = orv_find_check(check, &nullok, &options);
  char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if (value == nullptr || value[strspn(value, " \t")] == '\0') {
    if (nullok == 0 && is_displayed()) {
      check_failed(err_name, tpl_error,
                   "Empty input where parameter is required", var_label);
    }
    return;
  }
  const char *fault = screen_value(value);
  if (fault != nullptr) {
    check_failed(err_name, tpl_error, fault, var_label);
    return;
  }
  trim_spaces(value);
  if (row == nullptr) {
    check_failed(err_name, nullptr, "Bad check name in template", var_label);
    return;
  }
  row->func(value, options, tpl_error, err_name, var_label);
}

// --- items -------------------------------------------------------------------

// Messages name the column in a table alone: elsewhere they stand beside their
// field.
static const char *message_label(const pt_body_item *itm, int is_table)
{
  return is_table != 0 ? itm->label : nullptr;
}

static void itm_check_text_field(const pt_body_item *itm, const char *name,
                                 int is_table)
{
  const pt_field &field = itm->field;
  do_check(name, field.check, field.check_msg,
           field.check_label != nullptr ? field.check_label : itm->name,
           message_label(itm, is_table));
}

static void itm_check_checkbox(const pt_body_item *itm, const char *name,
                               int is_table)
{
  const char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if (value == nullptr || value[0] == '\0' || strcasecmp(value, "true") == 0 ||
      strcasecmp(value, "false") == 0 || strcmp(value, "1") == 0 ||
      strcmp(value, "0") == 0) {
    return;
  }
  check_failed(itm->name, nullptr, "Checkbox must be True or False",
               message_label(itm, is_table));
}

static void itm_check_select(const pt_body_item *itm, const char *name,
                             int is_table)
{
  const char *label = message_label(itm, is_table);
  const char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if (value == nullptr || value[0] == '\0') {
    if (is_displayed()) {
      check_failed(itm->name, nullptr, "Select returned a null value ?", label);
    }
    return;
  }
  const html_form_list_opt *choice = itm->choices.choices;
  while (choice != nullptr && strcmp(choice->value, value) != 0) {
    choice = choice->next;
  }
  if (choice == nullptr) {
    check_failed(itm->name, nullptr, "Select value failed to match choices",
                 label);
  }
}

// The choices exist only while the page is drawn, so any value will do.
static void itm_check_iselect(const pt_body_item *itm, const char *name)
{
  const char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if ((value == nullptr || value[0] == '\0') && is_displayed()) {
    check_failed(itm->name, nullptr, "iSelect returned a null value ?",
                 nullptr);
  }
}

// --- tables ------------------------------------------------------------------

// Selections always have a value, so they do not make a row.
static bool row_has_values(const pt_body_item *itm, int row)
{
  const pt_body_item *cell = itm->next;
  for (int column = 0; column < itm->table.columns && cell != nullptr;
       column++, cell = cell->next) {
    if (cell->type == PT_SELECT) {
      continue;
    }
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, cell->name, row);
    const char *value = orv_get_var(&cfg_vars, name, o_undefined);
    if (value != nullptr && value[0] != '\0') {
      return true;
    }
  }
  return false;
}

static bool row_exists(const pt_body_item *itm, int row)
{
  const int fixed_rows = itm->table.fixed_rows;
  return fixed_rows != 0 ? row < fixed_rows : row_has_values(itm, row);
}

// The error is recorded by column, so the cell itself is marked.  It need not
// have a variable, and gets none.
static void mark_failed(const char *cell)
{
  orv_find_var(&failed_cells, cell, 1);
}

static void check_row(const pt_body_item *itm, int row)
{
  const pt_body_item *cell = itm->next;
  for (int column = 0; column < itm->table.columns && cell != nullptr;
       column++, cell = cell->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, cell->name, row);
    const int errors = error_count;
    switch (cell->type) {
    case PT_TEXT_FIELD:
      itm_check_text_field(cell, name, 1);
      break;
    case PT_CHECKBOX:
      itm_check_checkbox(cell, name, 1);
      break;
    case PT_SELECT:
      itm_check_select(cell, name, 1);
      break;
    default:
      break;
    }
    if (error_count != errors) {
      mark_failed(name);
    }
  }
}

static void do_table_iter(const pt_body_item *itm)
{
  for (int row = 0; row < ORV_ROWS_MAX && row_exists(itm, row); row++) {
    check_row(itm, row);
  }
}

// --- the walk ----------------------------------------------------------------

static void check_item(const pt_body_item *itm)
{
  switch (itm->type) {
  case PT_TEXT_FIELD:
    itm_check_text_field(itm, itm->name, 0);
    break;
  case PT_CHECKBOX:
    itm_check_checkbox(itm, itm->name, 0);
    break;
  case PT_SELECT:
    itm_check_select(itm, itm->name, 0);
    break;
  case PT_ISELECT:
    itm_check_iselect(itm, itm->name);
    break;
  case PT_TABLE:
  case PT_FTABLE:
    do_table_iter(itm);
    break;
  default:
    orv_conditions_follow(&conditions, itm);
    break;
  }
}

// The item behind `itm` and, if it is a table, behind its cells.
static const pt_body_item *next_item(const pt_body_item *itm)
{
  const bool is_table = itm->type == PT_TABLE || itm->type == PT_FTABLE;
  int cells = is_table ? itm->table.columns : 0;
  const pt_body_item *next = itm->next;
  while (cells > 0 && next != nullptr) {
    next = next->next;
    cells--;
  }
  return next;
}

int orv_check_vars(pt_body_item *itm)
{
  orv_free_vars(&err_vars);
  orv_free_vars(&failed_cells);
  orv_conditions_reset(&conditions);
  error_count = 0;

  for (const pt_body_item *at = itm; at != nullptr; at = next_item(at)) {
    check_item(at);
  }
  if (error_count != 0 && orv_find_var(&err_vars, "msg", 0) == nullptr) {
    char text[SUMMARY_SIZE];
    snprintf(text, sizeof text, "%d errors found", error_count);
    check_failed("msg", nullptr, text, nullptr);
  }
  return error_count == 0 ? 1 : 0;
}

// --- cells that scripts mark -------------------------------------------------

// The row of the column's cell called `name`, -1 when it is none.
static int row_of(const pt_body_item *column, const char *name)
{
  const size_t length = strlen(column->name);
  if (strncasecmp(name, column->name, length) != 0) {
    return -1;
  }
  const char *number = name + length;
  char *end;
  const long row = strtol(number, &end, 10);
  char written[ROW_SIZE];
  snprintf(written, sizeof written, "%ld", row);
  const bool is_row =
      row >= 0 && row < ORV_ROWS_MAX && strcmp(number, written) == 0;
  return is_row ? static_cast<int>(row) : -1;
}

static bool is_blank(const char *text)
{
  return text == nullptr || text[strspn(text, " \t")] == '\0';
}

// The column's message is its own or that of its first marked cell.  It is
// stored as a calculated value, which distinguishes the two kinds: a message of
// the script that marks no cell is about all of them.
static void mark_column(const pt_body_item *column)
{
  const char *message = orv_get_var(&err_vars, column->name, o_undefined);
  const bool has_own = !is_blank(message);
  int first = ORV_ROWS_MAX;
  for (const orv_var *var = err_vars; var != nullptr; var = var->next) {
    const int row = row_of(column, var->name);
    const char *text = orv_get_var(&err_vars, var->name, o_undefined);
    if (row < 0 || is_blank(text)) {
      continue;
    }
    mark_failed(var->name);
    message = row < first && !has_own ? text : message;
    first = std::min(first, row);
  }
  orv_var *record =
      first < ORV_ROWS_MAX ? orv_find_var(&err_vars, column->name, 1) : nullptr;
  if (record != nullptr) {
    char *copy = must_strdup(message);
    free(record->c_value);
    record->c_value = copy;
  }
}

void orv_mark_cells(pt_body_item *itm)
{
  if (error_count != 0) { // the errors are those of checks
    return;
  }
  for (; itm != nullptr && err_vars != nullptr; itm = itm->next) {
    if (itm->column >= 0) {
      mark_column(itm);
    }
  }
}

bool orv_column_is_marked(const pt_body_item *column)
{
  const orv_var *record = orv_find_var(&err_vars, column->name, 0);
  return error_count != 0 || (record != nullptr && record->c_value != nullptr);
}

// --- the table of checks -----------------------------------------------------

#define CHECK_ROW(name, traits) {#name, sizeof #name - 1, chk_##name},

const checks_info chk_list[] = {ORV_CHECKS(CHECK_ROW){nullptr, 0, nullptr}};
