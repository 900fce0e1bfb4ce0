// The commands that read and change single forms: forms, get, set and rows.
// Keeps no state beyond a command.

#include "form_commands.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "change.h"
#include "command.h"
#include "orv.h"
#include "page.h"
#include "report.h"
#include "sitemap.h"
#include "stdin_value.h"
#include "suggest.h"
#include "terminal.h"

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

// A page that cannot be opened is listed, too: its name is all that tells an
// administrator which form is at fault.
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

int list_forms(int, char **)
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

// What a reader of the page sees; the rest is for the next request.
static bool is_shown(const page_field *field)
{
  return field->kind != FIELD_STATE && field->kind != FIELD_DELETE;
}

static bool is_hidden(const page_field *field)
{
  return !with_secrets && page_is_secret(field->name);
}

// A secret is shown as an empty value: that there is such a field is no secret.
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

// Names are looked up before the first value is printed, so a script that reads
// the output gets all that it asked for, or nothing.
int get_values(int count, char **words)
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

// Lines of input are taken once the page is open, since only its text fields
// take "-" for one.
int set_values(int count, char **words)
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

// Under its column's name, since the row has its number already.
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

// The rows up to the last one that holds something, of a fixed table all.  Its
// rows have no deletion boxes to count.
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
// been reported.  A cell's name with its row would be refused as well, but the
// message would name what nobody has typed.
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

// Sets cells of the row; `words` are COLUMN=VALUE.  The names of their cells,
// with the row's number (an int), replace those of the columns, and are freed
// here.
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
// no such row.  Users count from 1, as pages do.
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

// Rows are only marked until the Submit, so the numbers of the others stay what
// they were.
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

int table_rows(int count, char **words)
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
  return misuse("unknown verb after rows", verb);
}
