// Changes to a form, made as a person makes them.  Owns nothing; what is wrong
// is reported where it is met.

#include "change.h"

#include <stdlib.h>
#include <string.h>

#include "orv.h"
#include "report.h"
#include "suggest.h"

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
      report_at.line = wanted->line;
      report_fault(form, "\"%s\" %s", wanted->name, why);
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

// The table that shows the cell `name` and the cell's row, from 0; NULL when it
// is no cell's name.
static const pt_body_item *find_table_of(const char *name, long *row)
{
  const pt_body_item *item = page_find_item(name);
  if (item == nullptr || item->column < 0) {
    return nullptr;
  }
  *row = strtol(name + strlen(item->name), nullptr, 10);
  return page_table_of(item);
}

// The number of the table's rows that the page shows, blank ones included.
static int count_shown(const pt_body_item *table)
{
  int rows = 0;
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    rows = field->table == table ? field->row + 1 : rows;
  }
  return rows;
}

// A table that is asked for more rows than its template offers.
struct offer {
  const pt_body_item *table;
  int shown;   // rows of the page
  long wanted; // rows that the values need
  int blank;   // blank rows that the template offers
};

// More tables than a form has; what is behind them is filled row by row.
constexpr size_t OFFERS_MAX = 20;

struct offer_list {
  offer offers[OFFERS_MAX];
  size_t count;
};

static offer *find_offer(offer_list *list, const pt_body_item *table)
{
  for (size_t i = 0; i < list->count; i++) {
    if (list->offers[i].table == table) {
      return list->offers + i;
    }
  }
  if (list->count == OFFERS_MAX) {
    return nullptr;
  }
  offer *added = list->offers + list->count;
  list->count++;
  *added = {table, count_shown(table), 0, table->table.add_rows};
  return added;
}

// Finds out which rows the missing values need.  A table of a fixed size never
// gets more.
static void collect_offers(offer_list *list, const wanted_value *values,
                           size_t count)
{
  for (size_t i = 0; i < count; i++) {
    long row = 0;
    const pt_body_item *table =
        values[i].set ? nullptr : find_table_of(values[i].name, &row);
    offer *its = table != nullptr && table->type == PT_TABLE
                     ? find_offer(list, table)
                     : nullptr;
    if (its != nullptr && row >= its->wanted) {
      its->wanted = row + 1;
    }
  }
}

// Has the page drawn with all the rows at once that a person would get one
// after the other: those in front of the blank ones that stand there at last.
// False when none is needed, or the page cannot be drawn.  A table that is not
// drawn waits for the value that brings it into the page.
static bool ask_for_rows(offer_list *list, size_t values)
{
  bool more = false;
  for (offer *its = list->offers; its < list->offers + list->count; its++) {
    // Each row takes a value at least, so a cell x99999 of a single value does
    // not make the page draw as many rows.
    const long most = its->shown + static_cast<long>(values);
    const long last = its->wanted < most ? its->wanted : most;
    const long extra = last - its->blank - its->shown;
    if (its->shown > 0 && extra > 0) {
      page_offer_rows(its->table, its->blank + static_cast<int>(extra));
      more = true;
    }
  }
  return more;
}

static bool redraw(const char *form)
{
  if (!page_redraw()) {
    report_failure(form, page_message());
    return false;
  }
  return true;
}

static bool refuse_unknown(const char *form, const wanted_value *wanted)
{
  report_at.line = wanted->line;
  unknown_field(form, "\"%s\" is not a field of the page as shown",
                wanted->name);
  return false;
}

// The page with the rows that it has by itself again.  False when it lacks a
// value set in one of the others: no person could have reached a row behind a
// gap.
static bool keep_rows(const char *form, const offer_list *list,
                      const wanted_value *values, size_t count)
{
  for (size_t i = 0; i < list->count; i++) {
    page_offer_rows(list->offers[i].table, list->offers[i].blank);
  }
  if (!redraw(form)) {
    return false;
  }
  for (size_t i = 0; i < count; i++) {
    long row;
    if (values[i].set && find_table_of(values[i].name, &row) != nullptr &&
        page_find(values[i].name) == nullptr) {
      return refuse_unknown(form, values + i);
    }
  }
  return true;
}

// Sets what belongs into rows that the page does not show yet.  The number of
// values set, -1, reported, when that failed; the page has been drawn anew when
// it is not 0.
static int set_rows(const char *form, wanted_value *values, size_t count)
{
  offer_list list = {};
  collect_offers(&list, values, count);
  if (!ask_for_rows(&list, count)) {
    return 0;
  }
  const int set = redraw(form) ? set_shown(form, values, count) : -1;
  return set >= 0 && keep_rows(form, &list, values, count) ? set : -1;
}

// It ends, since each round sets a value more or switches to the expert view,
// which happens once.
bool change_values(const char *form, wanted_value *values, size_t count)
{
  for (;;) {
    const int set = set_shown(form, values, count);
    const wanted_value *missing = first_missing(values, count);
    if (set < 0 || missing == nullptr) {
      return missing == nullptr;
    }
    const int in_rows = set_rows(form, values, count);
    if (in_rows != 0) {
      if (in_rows < 0) {
        return false;
      }
      continue;
    }
    if (set == 0) {
      if (!page_header()->expert_mode || orv_expert_mode != 0) {
        return refuse_unknown(form, missing);
      }
      orv_expert_mode = 1;
    }
    if (!redraw(form)) {
      return false;
    }
  }
}

// Only rows that hold something get a deletion box, so the boxes tell which
// rows are in use.
static bool is_row(const page_field *field, const pt_body_item *table)
{
  return field->kind == FIELD_DELETE && field->item == table;
}

bool change_delete_row(const pt_body_item *table, int row)
{
  page_field *field = page_find_delete(table, row);
  return field != nullptr && page_choose(field, "True") == nullptr;
}

bool change_show_table(const pt_body_item *table)
{
  if (count_shown(table) > 0 || !page_header()->expert_mode ||
      orv_expert_mode != 0) {
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

// The first number without a box, which may be that of a gap: a row behind it
// must not be written over.
int change_blank_row(const pt_body_item *table)
{
  int row = 0;
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    row += is_row(field, table) && field->row == row ? 1 : 0;
  }
  return row;
}

// The page that shows the rows without the deleted ones has been drawn in
// between; a person would look at it and press again.
page_result change_submit(bool dry)
{
  const page_result result = page_submit(dry);
  return result == PAGE_AGAIN ? page_submit(dry) : result;
}
