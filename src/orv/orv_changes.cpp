// What has changed in a form's values, in the words of its page.
//
// Owns nothing beyond a call.  Fields are compared one by one; of a table, the
// rows that hold something are listed for both sides and paired (orv_rows.h).
// Lack of memory gives the whole list up: half a list would be taken for all
// that has changed.

#include "orv_changes.h"

#include <algorithm>
#include <search.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "orv.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_rows.h"
#include "orv_secret.h"
#include "orv_vars.h"

// A row is reported as one line, which a person has to read.
constexpr size_t ROW_TEXT_MAX = 400;
// Rows behind a gap count as well: a script may pack them.  Behind as many
// blank ones as are stored a table is over.
constexpr int GAP_ROWS_MAX = ORV_STORED_ROWS_MAX;

// What one call works with.
struct search_state {
  const orv_change_source *source;
  orv_change *first; // owned until the call ends
  orv_change **end;
};

// --- values ------------------------------------------------------------------

static bool is_box(const pt_body_item *itm)
{
  return itm->type == PT_CHECKBOX;
}

// The item's value in the words of the page; owned by the caller, NULL when
// memory ran out.
static char *value_text(const pt_body_item *itm, const char *value)
{
  if (is_box(itm)) {
    return must_strdup(orv_string_is_true(value) != 0 ? "on" : "off");
  }
  if (itm->type != PT_SELECT && itm->type != PT_ISELECT) {
    return must_strdup(value);
  }
  const html_form_list_opt *choice = itm->choices.choices;
  while (choice != nullptr &&
         (choice->value == nullptr || strcmp(choice->value, value) != 0)) {
    choice = choice->next;
  }
  return choice != nullptr && choice->label != nullptr &&
                 choice->label[0] != '\0'
             ? orv_plain_text(choice->label)
             : must_strdup(value);
}

// --- the list ----------------------------------------------------------------

static void free_change(orv_change *change)
{
  free(change->name);
  free(change->label);
  free(change->old_text);
  free(change->new_text);
  free(change);
}

void orv_free_changes(orv_change *changes)
{
  while (changes != nullptr) {
    orv_change *next = changes->next;
    free_change(changes);
    changes = next;
  }
}

using owned_change = std::unique_ptr<orv_change, orv_releaser<free_change>>;

// A change of that name without texts; NULL without memory.
static orv_change *new_change(orv_change_kind kind, const char *name)
{
  orv_change *change = static_cast<orv_change *>(must_malloc(sizeof *change));
  if (change == nullptr) {
    return nullptr;
  }
  *change = {};
  change->kind = kind;
  change->name = must_strdup(name);
  if (change->name == nullptr) {
    free_change(change);
    return nullptr;
  }
  return change;
}

static void append(search_state *state, owned_change change)
{
  *state->end = change.release();
  state->end = &(*state->end)->next;
}

static const char *text_of(const char *value)
{
  return value != nullptr ? value : "";
}

static const char *own_label(const orv_change_source *source, const char *name)
{
  return source->label != nullptr ? source->label(name, source->data) : nullptr;
}

static bool is_secret(const orv_change_source *source, const pt_body_item *itm,
                      const char *name)
{
  const bool ruled =
      itm != nullptr ? orv_is_secret(itm) : orv_is_secret_name(name);
  return ruled || (source->is_secret != nullptr &&
                   source->is_secret(name, source->data));
}

// Two values of an item are the same when the page shows them alike.
static bool differs(const pt_body_item *itm, const char *before,
                    const char *after)
{
  return is_box(itm) ? orv_string_is_true(before) != orv_string_is_true(after)
                     : strcmp(before, after) != 0;
}

// Adds the change of one variable that the item shows; `number` is its row from
// 1, or 0.  False without memory.
static bool add_value(search_state *state, const pt_body_item *itm,
                      const char *name, int number, const char *before,
                      const char *after)
{
  owned_change change(
      new_change(number > 0 ? CHANGE_CELL : CHANGE_VALUE, name));
  if (change == nullptr) {
    return false;
  }
  const char *label = own_label(state->source, name);
  change->row = number;
  change->box = is_box(itm);
  change->secret = is_secret(state->source, itm, name);
  change->label = label != nullptr ? must_strdup(label) : orv_item_label(itm);
  bool whole = change->label != nullptr;
  if (!change->secret) {
    change->old_text = value_text(itm, before);
    change->new_text = value_text(itm, after);
    whole &= change->old_text != nullptr && change->new_text != nullptr;
  }
  if (whole) {
    append(state, std::move(change));
  }
  return whole;
}

// --- rows --------------------------------------------------------------------

static void free_side(orv_rows *rows)
{
  free(rows->cells);
  free(rows->rows);
}

// A list always has a value, so it makes no row; neither does a box that is not
// ticked.
static bool is_entry(const pt_body_item *column, const char *value)
{
  return column->type != PT_SELECT && column->type != PT_ISELECT &&
         value[0] != '\0';
}

template <typename T> static bool resize(T **block, size_t count)
{
  char *bytes = reinterpret_cast<char *>(*block);
  if (must_realloc(&bytes, std::max<size_t>(count, 1) * sizeof **block) == 0) {
    return false;
  }
  *block = reinterpret_cast<T *>(bytes);
  return true;
}

// The value as rows are compared by it.
static const char *cell_value(const pt_body_item *column, const char *value)
{
  if (is_box(column)) {
    return orv_string_is_true(value) != 0 ? "True" : "";
  }
  return text_of(value);
}

using value_function = const char *(const char *name, void *data);

// Reads row `number` behind the rows that the side has; whether it holds
// something.
static bool read_row(const pt_body_item *table, int number,
                     value_function *value, void *data, const char **cells)
{
  bool used = false;
  const pt_body_item *column = table->next;
  for (int i = 0; i < table->table.columns; i++, column = column->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, column->name, number);
    cells[i] = cell_value(column, value(name, data));
    used |= is_entry(column, cells[i]);
  }
  return used;
}

// Lists the rows below `end` that hold something; false without memory.
static bool read_side(const pt_body_item *table, int end, value_function *value,
                      void *data, orv_rows *rows)
{
  const size_t columns = static_cast<size_t>(table->table.columns);
  size_t room = 0;
  int gap = 0;
  for (int number = 0; number < end && gap < GAP_ROWS_MAX; number++) {
    if (rows->count == room) {
      room += room / 2 + 16;
      if (!resize(&rows->cells, room * columns) || !resize(&rows->rows, room)) {
        return false;
      }
    }
    gap++;
    if (read_row(table, number, value, data,
                 rows->cells + rows->count * columns)) {
      rows->rows[rows->count] = {nullptr, columns, number, rows->count,
                                 ORV_NO_ROW};
      rows->count++;
      gap = 0;
    }
  }
  for (size_t i = 0; i < rows->count; i++) {
    rows->rows[i].cells = rows->cells + i * columns;
  }
  return true;
}

// --- what rows come to -------------------------------------------------------

// Which cells a pass over a row takes: those by which a person recognises the
// row come first.
enum cell_pass { PASS_TEXTS, PASS_LISTS, PASS_BOXES, PASSES };

static cell_pass pass_of(const pt_body_item *column)
{
  switch (column->type) {
  case PT_SELECT:
  case PT_ISELECT:
    return PASS_LISTS;
  case PT_CHECKBOX:
    return PASS_BOXES;
  default:
    return PASS_TEXTS;
  }
}

// Writes what the cell says behind what the line has, which has `*length` bytes
// then.  False without memory.
static bool write_cell(FILE *out, long *length, const orv_change_source *source,
                       const pt_body_item *column, const char *value,
                       int number)
{
  char name[ORV_NAME_SIZE];
  orv_cell_name(name, column->name, number);
  if (value[0] == '\0' || is_secret(source, column, name)) {
    return true;
  }
  const owned_text part(is_box(column) ? orv_item_label(column)
                                       : value_text(column, value));
  if (part == nullptr) {
    return false;
  }
  *length += fprintf(out, "%s%s", *length > 0 ? ", " : "", part.get());
  return true;
}

static bool write_cells(FILE *out, const orv_change_source *source,
                        const pt_body_item *table, const orv_row *told)
{
  long length = 0;
  for (int pass = PASS_TEXTS; pass < PASSES; pass++) {
    const pt_body_item *column = table->next;
    for (size_t i = 0; i < told->columns; i++, column = column->next) {
      if (pass_of(column) == pass &&
          !write_cell(out, &length, source, column, told->cells[i],
                      told->number)) {
        return false;
      }
    }
  }
  return true;
}

// The row as one line; owned by the caller, NULL without memory.
static char *describe_row(const orv_change_source *source,
                          const pt_body_item *table, const orv_row *told)
{
  char *line = nullptr;
  size_t length = 0;
  FILE *out = open_memstream(&line, &length);
  if (out == nullptr) {
    return nullptr;
  }
  const bool whole = write_cells(out, source, table, told);
  if (fclose(out) != 0 || !whole || line == nullptr) {
    free(line);
    return nullptr;
  }
  line[orv_cut_length(line, ROW_TEXT_MAX)] = '\0';
  return line;
}

static bool add_row(search_state *state, const pt_body_item *table,
                    const orv_row *told, orv_change_kind kind)
{
  owned_change change(new_change(kind, table->name));
  char *text =
      change != nullptr ? describe_row(state->source, table, told) : nullptr;
  if (text == nullptr) {
    return false;
  }
  (kind == CHANGE_ROW_DELETED ? change->old_text : change->new_text) = text;
  change->row = told->number + 1;
  append(state, std::move(change));
  return true;
}

static bool add_cells(search_state *state, const pt_body_item *table,
                      const orv_row *before, const orv_row *after)
{
  const pt_body_item *column = table->next;
  for (size_t i = 0; i < before->columns; i++, column = column->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, column->name, after->number);
    if (strcmp(before->cells[i], after->cells[i]) != 0 &&
        !add_value(state, column, name, after->number + 1, before->cells[i],
                   after->cells[i])) {
      return false;
    }
  }
  return true;
}

// In the order of the rows; a deleted one stands where it was.
static bool add_rows(search_state *state, const pt_body_item *table,
                     const orv_rows *before, const orv_rows *after)
{
  size_t j = 0;
  for (size_t i = 0; i <= before->count; i++) {
    const orv_row *old = i < before->count ? before->rows + i : nullptr;
    const size_t partner = old != nullptr ? old->partner : after->count;
    if (partner == ORV_NO_ROW) {
      if (!add_row(state, table, old, CHANGE_ROW_DELETED)) {
        return false;
      }
      continue;
    }
    for (; j < partner; j++) {
      if (!add_row(state, table, after->rows + j, CHANGE_ROW_ADDED)) {
        return false;
      }
    }
    if (old != nullptr && !add_cells(state, table, old, after->rows + j)) {
      return false;
    }
    j++;
  }
  return true;
}

// --- items -------------------------------------------------------------------

// Compares cells by their place, in `rows` rows; 0: up to the first that is
// blank on both sides.
static bool find_in_place(search_state *state, const pt_body_item *table,
                          int rows)
{
  orv_rows before = {};
  orv_rows after = {};
  bool whole = true;
  const orv_change_source *source = state->source;
  const size_t columns = static_cast<size_t>(table->table.columns);
  whole = resize(&before.cells, columns) && resize(&after.cells, columns);
  for (int number = 0; whole && number < (rows > 0 ? rows : ORV_ROWS_MAX);
       number++) {
    const bool was =
        read_row(table, number, source->old_value, source->data, before.cells);
    const bool is =
        read_row(table, number, source->new_value, source->data, after.cells);
    if (rows == 0 && !was && !is) {
      break;
    }
    const orv_row old_row = {before.cells, columns, number, 0, ORV_NO_ROW};
    const orv_row new_row = {after.cells, columns, number, 0, ORV_NO_ROW};
    whole = add_cells(state, table, &old_row, &new_row);
  }
  free_side(&before);
  free_side(&after);
  return whole;
}

// Whether the table has a column that can make a row.
static bool has_entries(const pt_body_item *table)
{
  const pt_body_item *column = table->next;
  for (int i = 0; i < table->table.columns; i++, column = column->next) {
    if (is_entry(column, "True")) {
      return true;
    }
  }
  return false;
}

static bool find_in_table(search_state *state, const pt_body_item *table)
{
  if (!has_entries(table)) { // of lists alone only the blank rows are drawn
    return find_in_place(state, table, table->table.add_rows);
  }
  const orv_change_source *source = state->source;
  const int end = source->count_rows != nullptr
                      ? source->count_rows(source->data)
                      : ORV_ROWS_MAX;
  orv_rows before = {};
  orv_rows after = {};
  const bool whole =
      read_side(table, end, source->old_value, source->data, &before) &&
      read_side(table, end, source->new_value, source->data, &after) &&
      orv_pair_rows(&before, &after) && add_rows(state, table, &before, &after);
  free_side(&before);
  free_side(&after);
  return whole;
}

static bool find_in_field(search_state *state, const pt_body_item *itm)
{
  const orv_change_source *source = state->source;
  const char *before = text_of(source->old_value(itm->name, source->data));
  const char *after = text_of(source->new_value(itm->name, source->data));
  return !differs(itm, before, after) ||
         add_value(state, itm, itm->name, 0, before, after);
}

// NULL where the body ends before it.
static const pt_body_item *last_column(const pt_body_item *table)
{
  const pt_body_item *last = table;
  for (int i = 0; i < table->table.columns && last != nullptr; i++) {
    last = last->next;
  }
  return last;
}

static bool find_in_item(search_state *state, const pt_body_item *itm)
{
  switch (itm->type) {
  case PT_TEXT_FIELD:
  case PT_TEXT_FIXED:
  case PT_CHECKBOX:
  case PT_SELECT:
  case PT_ISELECT:
    return find_in_field(state, itm);
  case PT_TABLE:
    return find_in_table(state, itm);
  case PT_FTABLE:
    return find_in_place(state, itm, itm->table.fixed_rows);
  default:
    return true;
  }
}

static bool is_table(const pt_body_item *itm)
{
  return itm->type == PT_TABLE || itm->type == PT_FTABLE;
}

// Names of variables; a table's is that of its first column, whose cells it
// shares with another of that column.
static int compare_items(const void *a, const void *b)
{
  const pt_body_item *left = static_cast<const pt_body_item *>(a);
  const pt_body_item *right = static_cast<const pt_body_item *>(b);
  if (is_table(left) != is_table(right)) {
    return is_table(left) ? 1 : -1;
  }
  return strcasecmp(is_table(left) ? left->next->name : left->name,
                    is_table(right) ? right->next->name : right->name);
}

static void keep_item(void *)
{
}

// Finds the changes of the item, unless its variables have been seen.  False
// without memory.
static bool find_in_new_item(search_state *state, const pt_body_item *itm,
                             void **seen)
{
  const bool is_input = is_table(itm) || itm->type == PT_TEXT_FIELD ||
                        itm->type == PT_TEXT_FIXED ||
                        itm->type == PT_CHECKBOX || itm->type == PT_SELECT ||
                        itm->type == PT_ISELECT;
  if (!is_input) {
    return true;
  }
  const void *node = tsearch(itm, seen, compare_items);
  if (node == nullptr) {
    return false;
  }
  return *static_cast<const pt_body_item *const *>(node) != itm ||
         find_in_item(state, itm);
}

bool orv_find_changes(pt_body_item *body, const orv_change_source *source,
                      orv_change **changes)
{
  search_state state = {source, nullptr, nullptr};
  state.end = &state.first;
  void *seen = nullptr;
  bool whole = true;
  for (const pt_body_item *itm = body; itm != nullptr && whole;
       itm = itm->next) {
    const pt_body_item *last = is_table(itm) ? last_column(itm) : itm;
    if (last == nullptr || (is_table(itm) && last == itm)) {
      continue; // a table without columns
    }
    whole = find_in_new_item(&state, itm, &seen);
    itm = last;
  }
  tdestroy(seen, keep_item);
  if (!whole) {
    orv_free_changes(state.first);
    state.first = nullptr;
  }
  *changes = state.first;
  return whole;
}

bool orv_find_change(const char *name, const orv_change_source *source,
                     orv_change **changes)
{
  const char *before = text_of(source->old_value(name, source->data));
  const char *after = text_of(source->new_value(name, source->data));
  if (strcmp(before, after) == 0) {
    return true;
  }
  owned_change change(new_change(CHANGE_VALUE, name));
  if (change == nullptr) {
    return false;
  }
  const char *label = own_label(source, name);
  change->secret = is_secret(source, nullptr, name);
  change->label = must_strdup(label != nullptr ? label : name);
  bool whole = change->label != nullptr;
  if (!change->secret) {
    change->old_text = must_strdup(before);
    change->new_text = must_strdup(after);
    whole &= change->old_text != nullptr && change->new_text != nullptr;
  }
  if (!whole) {
    return false;
  }
  while (*changes != nullptr) {
    changes = &(*changes)->next;
  }
  *changes = change.release();
  return true;
}
