// The items and the settings of a form whose script is this program.
//
// Owns the form's settings for the life of the process; own_open reads them.

#include "own_items.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>
#include <strings.h>

#include "fault.h"
#include "folder.h"
#include "form.h"
#include "orv.h"
#include "orv_limits.h"
#include "orv_secret.h"
#include "orv_vars.h"
#include "settings.h"

constexpr size_t FILE_SIZE = STORE_NAME_MAX + 1;
static const char CLEAR[] = "_clear"; // ends the name of a box beside a secret

static char file[FILE_SIZE]; // settings file: FORM or FORM@SUBITEM
static settings now;         // its values, with the defaults

// --- items -------------------------------------------------------------------

bool own_takes_input(const pt_body_item *item)
{
  return item->type == PT_TEXT_FIELD || item->type == PT_CHECKBOX ||
         item->type == PT_SELECT || item->type == PT_ISELECT;
}

const pt_body_item *own_find_item(const char *name)
{
  const pt_body_item *item = form_items();
  while (item != nullptr && (item->name == nullptr || !own_takes_input(item) ||
                             strcasecmp(item->name, name) != 0)) {
    item = item->next;
  }
  return item;
}

bool own_is_secret(const pt_body_item *item)
{
  return orv_is_secret(item) ||
         (item->type == PT_TEXT_FIELD && settings_is_secret(&now, item->name));
}

const pt_body_item *own_cleared_by(const pt_body_item *box)
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
  const pt_body_item *secret = own_find_item(name);
  return secret != nullptr && own_is_secret(secret) ? secret : nullptr;
}

// Settings hold truth values in many spellings; scripts and pages get one.
const char *own_as_box(const char *value)
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

const pt_body_item *own_item_of(const char *name)
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
  const pt_body_item *item = own_item_of(name);
  return item != nullptr ? item->name : nullptr;
}

// --- rows --------------------------------------------------------------------

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

bool own_row_holds(const pt_body_item *table, int row,
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

// Of all variables: no row behind these holds anything, so no loop looks for
// more cells than there are.
int own_count_rows(void)
{
  int rows = 0;
  for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
    rows = std::max(rows, settings_row(var->name) + 1);
  }
  return std::min(rows, ORV_STORED_ROWS_MAX);
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
        settings_is_secret(&now, one->name) ? own_item_of(one->name) : nullptr;
    if (item != nullptr && item->column >= 0) {
      return needs_script(item);
    }
  }
  return true;
}

// Only sub-items with shipped defaults exist.  Their files cannot be another
// form's, since no form's name contains "@".
bool own_open(const char *form, const char *subitem)
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

const char *own_file(void)
{
  return file;
}

const settings *own_settings(void)
{
  return &now;
}
