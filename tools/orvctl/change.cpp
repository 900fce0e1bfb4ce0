// Changes to a form, made as a person makes them.  Owns nothing; what is wrong
// is reported where it is met.

#include "change.h"

#include <stdio.h>
#include <string.h>

#include "orv.h"
#include "report.h"

constexpr size_t REASON_SIZE = 400; // a name, cut, and why it cannot be set

static bool refuse(const char *form, const char *name, const char *why)
{
  char text[REASON_SIZE];
  snprintf(text, sizeof text, "\"%.200s\" %s", name, why);
  report_failure(form, text);
  return false;
}

// Sets what the page shows now.  The number of values set, -1 when one was
// refused.
static int set_shown(const char *form, wanted_value *values, size_t count)
{
  int set = 0;
  for (wanted_value *wanted = values; wanted < values + count; wanted++) {
    page_field *field = wanted->set ? nullptr : page_find(wanted->name);
    if (field == nullptr) {
      continue;
    }
    const char *why = page_choose(field, wanted->value);
    if (why != nullptr) {
      refuse(form, wanted->name, why);
      return -1;
    }
    wanted->set = true;
    set++;
  }
  return set;
}

static const wanted_value *first_missing(const wanted_value *values,
                                         size_t count)
{
  for (const wanted_value *wanted = values; wanted < values + count; wanted++) {
    if (!wanted->set) {
      return wanted;
    }
  }
  return nullptr;
}

bool change_values(const char *form, wanted_value *values, size_t count)
{
  for (;;) {
    const int set = set_shown(form, values, count);
    const wanted_value *missing = first_missing(values, count);
    if (set < 0 || missing == nullptr) {
      return missing == nullptr;
    }
    if (set == 0) {
      if (!page_header()->expert_mode || orv_expert_mode != 0) {
        return refuse(form, missing->name, "is no field of the form as it is");
      }
      orv_expert_mode = 1;
    }
    if (!page_redraw()) {
      report_failure(form, page_message());
      return false;
    }
  }
}

static bool is_row(const page_field *field, const pt_body_item *table)
{
  return field->kind == FIELD_DELETE && field->item == table;
}

bool change_delete_row(const pt_body_item *table, int row)
{
  page_field *field = page_fields();
  while (field != nullptr && !(is_row(field, table) && field->row == row)) {
    field = field->next;
  }
  return field != nullptr && page_choose(field, "True") == nullptr;
}

bool change_show_table(const pt_body_item *table)
{
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    if (field->row >= 0 && field->item != nullptr &&
        page_table_of(field->item) == table) {
      return true;
    }
  }
  if (!page_header()->expert_mode || orv_expert_mode != 0) {
    return true;
  }
  orv_expert_mode = 1;
  return page_redraw();
}

int change_count_rows(const pt_body_item *table)
{
  int rows = 0;
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    rows = is_row(field, table) ? field->row + 1 : rows;
  }
  return rows;
}

int change_blank_row(const pt_body_item *table)
{
  int row = 0;
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    row += is_row(field, table) && field->row == row ? 1 : 0;
  }
  return row;
}

page_result change_submit(bool dry)
{
  const page_result result = page_submit(dry);
  return result == PAGE_AGAIN ? page_submit(dry) : result;
}
