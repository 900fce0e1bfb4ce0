// The values of a page, taken over into the variables of its form.
//
// Only the template's text fields, check boxes and lists are taken, neither
// read-only items nor other names in a request.  A value that is missing in the
// request, because its field was not drawn, stays as it is.

#include "own_page.h"

#include <algorithm>

#include "fault.h"
#include "form.h"
#include "intake.h"
#include "orv.h"
#include "orv_limits.h"
#include "orv_vars.h"
#include "own_items.h"
#include "settings.h"

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
    set_value(name, o_best, own_as_box(sent));
  } else if (!own_is_secret(item) || sent[0] != '\0') {
    set_value(name, o_best, sent); // a blank secret stays as stored
  }
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

// Stores the page's row `from` as the row `to`.
static void take_row(const pt_body_item *table, int from, int to)
{
  const pt_body_item *cell = table->next;
  for (int i = 0; i < table->table.columns; i++, cell = cell->next) {
    char name[ORV_NAME_SIZE];
    orv_cell_name(name, cell->name, from);
    const char *sent = intake_get(name);
    orv_cell_name(name, cell->name, to);
    if (own_takes_input(cell)) {
      take_field(cell, name, sent != nullptr ? sent : "");
    }
  }
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
    if (row < fixed || (fixed == 0 && own_row_holds(table, row, intake_get))) {
      if (to == ORV_STORED_ROWS_MAX) {
        return store_fault("Nothing was saved: a table keeps %d rows, and this "
                           "one has more.",
                           ORV_STORED_ROWS_MAX);
      }
      take_row(table, row, to);
      to++;
    }
  }
  const int rows = own_count_rows();
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
    const pt_body_item *secret = item->column < 0 && item->name != nullptr
                                     ? own_cleared_by(item)
                                     : nullptr;
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
    const char *sent = item->column < 0 && own_takes_input(item)
                           ? intake_get(item->name)
                           : nullptr;
    if (sent != nullptr) {
      take_field(item, item->name, sent);
    }
  }
  clear_secrets();
  return true;
}

bool own_take_page(void)
{
  const settings *stored = own_settings();
  for (size_t i = 0; i < stored->count; i++) {
    set_value(stored->list[i].name, o_orig, stored->list[i].value);
  }
  return take_items();
}
