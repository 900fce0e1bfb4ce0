// The page engine: text expansion, conditions and the body walk.
//
// One walk draws one page.  The module owns the tag replacements (borrowed
// texts, set per walk and per item), the conditions of the walk in progress,
// and the expansion buffer, which only grows and lives until
// orv_output_cleanup.  Nothing stops a walk: every problem becomes a comment
// in the page and is counted.  The walker decides what is drawn and in which
// order; how it looks is the output procedures' business.

#include "orv_output.h"

#include <algorithm>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "orv.h"
#include "orv_conditions.h"
#include "orv_error.h"
#include "orv_expand.h"
#include "orv_parser.h"
#include "orv_vars.h"

// A few references to a long value would otherwise make a page of any size.
constexpr size_t EXPANSION_MAX = 1024UL * 1024;
// More cells than a request has room for: a page shows each and posts its
// state.
constexpr int EMPTIED_CELLS_MAX = 50000;
constexpr size_t CONDITION_SIZE = 50; // a problem of conditions

// Set by each walk, kept afterwards.
static const pto_procs *p;
static int error_count;
// Set while a text is expanded whose problems are reported elsewhere.
static bool is_again;

// Set by each walk (E, H, X) and for each item (V, N), reset by
// orv_output_cleanup; looked up in this order.
static orv_tag tags[] = {{'E', false, nullptr}, {'H', false, nullptr},
                         {'X', false, nullptr}, {'V', false, nullptr},
                         {'N', false, nullptr}, {'\0', false, nullptr}};

// Allocated by orv_out_expand, freed by orv_output_cleanup.
static char *outbuf;
static size_t outbuf_len;

// Texts are expanded before the first walk, too (the page's title, conditions
// of checks); their problems have no page to go to.
static void problem(const char *message)
{
  if (is_again) {
    return;
  }
  error_count++;
  if (p != nullptr) {
    p->o_comment("%s", message);
  } else {
    orv_log(LOG_INFO, message);
  }
}

static void condition_problem(const char *what)
{
  if (what != nullptr) {
    char text[CONDITION_SIZE];
    snprintf(text, sizeof text, "Error: %s", what);
    problem(text);
  }
}

// Left at the start of a walk.
static orv_conditions conditions = {condition_problem, 0, 0, {}};

// --- text expansion ----------------------------------------------------------

// What a variable reference reads.
struct reference {
  char type;
  orv_var **list; // NULL: the process environment
  v_origin origin;
};

// clang-format off
static const reference references[] = {
  {'C', &cfg_vars, o_calc},
  {'D', &cfg_vars, o_default},
  {'E', &err_vars, o_best},
  {'N', nullptr,   o_undefined},
  {'O', &cfg_vars, o_orig},
  {'U', &cfg_vars, o_user},
  {'V', &cfg_vars, o_best},
};
// clang-format on

static const reference *find_reference(char type)
{
  for (const reference &row : references) {
    if (row.type == type) {
      return &row;
    }
  }
  return nullptr;
}

// What a reference stands for, "" when it has no value.  The name is ended
// where it stands while it is looked up: texts may be written to.
static const char *read_reference(const char *in, const char **rest)
{
  const char *name = in + 3;
  char *end = const_cast<char *>(strchr(name, '$'));
  if (end == nullptr) {
    problem("Bad format variable name missing $");
    return nullptr;
  }
  const reference *ref = find_reference(in[1]);
  if (ref == nullptr) {
    problem("Bad format variable subs. Unknown type");
    return nullptr;
  }
  *end = '\0';
  const char *value = ref->list != nullptr
                          ? orv_get_var(ref->list, name, ref->origin)
                          : getenv(name);
  *end = '$';
  *rest = end + 1;
  return value != nullptr ? value : "";
}

static const orv_codes codes = {tags, read_reference};

static void set_subs(char tag, const char *replacement)
{
  orv_find_tag(&codes, tag)->replacement = replacement;
}

// Writes the expansion of `in`, cut at `limit`, unless `out` is NULL; its
// length.  What is cut off is looked up all the same, so that both passes meet,
// and report, the same problems.
static size_t expand_p(char *out, const char *in, size_t limit)
{
  size_t length = 0;
  while (*in != '\0') {
    const orv_piece piece = orv_next_piece(&codes, &in);
    const size_t taken = std::min(piece.length, limit - length);
    if (out != nullptr) {
      memcpy(out + length, piece.text, taken);
    }
    length += taken;
  }
  if (out != nullptr) {
    out[length] = '\0';
  }
  return length;
}

char *orv_out_expand(char *in)
{
  static char nothing[1] = "";
  if (in == nullptr) {
    nothing[0] = '\0';
    return nothing;
  }
  if (strchr(in, '$') == nullptr) {
    return in;
  }
  size_t length = expand_p(nullptr, in, EXPANSION_MAX + 1);
  if (length > EXPANSION_MAX) {
    problem("Expanded text too long");
    length = EXPANSION_MAX;
  }
  const size_t size = length + 1;
  if (outbuf_len < size) {
    free(outbuf);
    outbuf_len = 0;
    outbuf = static_cast<char *>(must_malloc(size));
    if (outbuf == nullptr) {
      problem("out_expand: Out of memory");
      return nullptr;
    }
    outbuf_len = size;
  }
  expand_p(outbuf, in, length);
  return outbuf;
}

char *orv_out_expand_again(char *in)
{
  is_again = true;
  char *text = orv_out_expand(in);
  is_again = false;
  return text;
}

// The same for callers that cannot handle NULL.
static char *expand_or_empty(char *in)
{
  char *text = orv_out_expand(in);
  return text != nullptr ? text : orv_out_expand(nullptr);
}

void orv_output_cleanup(void)
{
  free(outbuf);
  outbuf = nullptr;
  outbuf_len = 0;
  for (orv_tag &record : tags) {
    record.replacement = nullptr;
  }
}

// --- multi-column tables -----------------------------------------------------

// Calls `func` with each column of the table, fewer when the body ends.
template <typename Function>
static void for_each_column(pt_body_item *table, Function func)
{
  pt_body_item *column = table->next;
  for (int i = 0; i < table->table.columns && column != nullptr; i++) {
    func(column);
    column = column->next;
  }
}

struct cell_name {
  char text[ORV_NAME_SIZE];
};

static cell_name name_cell(const pt_body_item *column, int row)
{
  cell_name name;
  orv_cell_name(name.text, column->name, row);
  return name;
}

static char *cell_value(const pt_body_item *column, int row)
{
  return orv_get_var(&cfg_vars, name_cell(column, row).text, o_undefined);
}

// A selection list always has a value and never makes a row count as used.
static bool is_entry(const pt_body_item *column, const char *value)
{
  return value != nullptr && value[0] != '\0' && column->type != PT_SELECT;
}

static void draw_headings(pt_body_item *table, mcol_trans body)
{
  p->o_mcol_trans(table, MCOL_START);
  for_each_column(table,
                  [](pt_body_item *column) { p->o_mcol_heading(column); });
  p->o_mcol_trans(table, body);
}

// Draws the cell that is posted as `name` and shows the variable `varname`.
// The tag N outlives the cell: the table's own error text may hold it.
static void draw_cell(pt_body_item *column, char *name, char *varname)
{
  static cell_name posted;
  snprintf(posted.text, sizeof posted.text, "%s", name);
  p->o_mcol_trans(column, MCOL_COL_START);
  set_subs('V', orv_get_var(&cfg_vars, varname, o_undefined));
  set_subs('N', posted.text);
  switch (column->type) {
  case PT_TEXT_FIELD:
    p->o_mcol_text_field(column, name, varname, 0);
    break;
  case PT_TEXT_FIXED:
    p->o_mcol_text_field(column, name, varname, 1);
    break;
  case PT_CHECKBOX:
    p->o_mcol_checkbox(column, name, varname);
    break;
  case PT_SELECT:
    p->o_mcol_select(column, name, varname);
    break;
  default:
    p->o_comment("Unexpected item type in table (%d)", column->type);
    break;
  }
}

static int row_is_deleted(const char *table, int row)
{
  if (del_vars == nullptr) {
    return 0;
  }
  char key[ORV_NAME_SIZE];
  snprintf(key, sizeof key, "%s_%d", table, row);
  return orv_find_var(&del_vars, key, 0) != nullptr ? 1 : 0;
}

// Draws the stored row `in_row` as row `out_row`; whether it has an entry.  A
// row that moves up takes its values along.
static bool draw_row(pt_body_item *table, int in_row, int out_row)
{
  bool row_has_entry = false;
  p->o_mcol_trans(table, MCOL_ROW_START);
  for_each_column(table, [&](pt_body_item *column) {
    cell_name in_name = name_cell(column, in_row);
    cell_name out_name = name_cell(column, out_row);
    row_has_entry |= is_entry(column, cell_value(column, in_row));
    draw_cell(column, out_name.text, in_name.text);
    if (in_row != out_row) {
      orv_set_var(out_name.text, o_user, cell_value(column, in_row), 0);
    }
    p->o_mcol_trans(column, MCOL_COL_END);
  });
  p->o_mcol_trans(table, row_has_entry ? MCOL_ROW_END_DEL : MCOL_ROW_END_BLANK);
  return row_has_entry;
}

// Empties the rows from `row` on that deletion has freed.
static void empty_rows(pt_body_item *table, int row, int end)
{
  int cells = 0;
  for (; row < end && cells <= EMPTIED_CELLS_MAX; row++) {
    for_each_column(table, [&](pt_body_item *column) {
      if (cells < EMPTIED_CELLS_MAX) {
        orv_set_var(name_cell(column, row).text, o_user, nullptr, 0);
      }
      cells++;
    });
  }
  if (cells > EMPTIED_CELLS_MAX) {
    problem("Too many deleted cells in table");
  }
}

static void do_table_iter(pt_body_item *table)
{
  draw_headings(table, MCOL_BODY_DEL);
  int add_rows = table->table.add_rows;
  int in_row = 0;  // as stored and posted
  int out_row = 0; // as drawn now
  bool more = true;
  while (more) {
    while (in_row < ORV_ROWS_MAX && row_is_deleted(table->name, in_row) != 0) {
      in_row++;
    }
    if (in_row >= ORV_ROWS_MAX) {
      problem("Too many rows in table");
      break;
    }
    if (!draw_row(table, in_row, out_row)) {
      add_rows--;
      more = add_rows > 0;
    }
    in_row++;
    out_row++;
  }
  p->o_comment("DEBUG: in_row %d out_row %d", in_row, out_row);
  empty_rows(table, out_row, in_row);
  p->o_mcol_trans(table, MCOL_END);
}

static bool fixed_row_exists(pt_body_item *table, int row)
{
  if (table->table.fixed_rows > 0) {
    return row < table->table.fixed_rows;
  }
  bool exists = false;
  for_each_column(table, [&](pt_body_item *column) {
    exists |= is_entry(column, cell_value(column, row));
  });
  return exists;
}

static void do_ftable_iter(pt_body_item *table)
{
  draw_headings(table, MCOL_BODY);
  for (int row = 0; fixed_row_exists(table, row); row++) {
    if (row >= ORV_ROWS_MAX) {
      problem("Too many rows in table");
      break;
    }
    p->o_mcol_trans(table, MCOL_ROW_START);
    for_each_column(table, [&](pt_body_item *column) {
      cell_name name = name_cell(column, row);
      draw_cell(column, name.text, name.text);
      p->o_mcol_trans(column, MCOL_COL_END);
    });
    p->o_mcol_trans(table, MCOL_ROW_END);
  }
  p->o_mcol_trans(table, MCOL_END);
}

// --- items -------------------------------------------------------------------

static void do_display(void (*slot)(char *), char *text)
{
  if (orv_conditions_hold(&conditions)) {
    slot(expand_or_empty(text));
  }
}

static char *skip_blanks(char *text)
{
  return text + strspn(text, " \t");
}

// Hands the entries of a dynamic list or menu to `func`: the variables
// select_STEM0, select_STEM1 and so on, up to the first that is missing.
static void do_iter(void (*func)(pt_body_item *, char *, char *, char *),
                    pt_body_item *itm)
{
  for (int i = 0; i <= ORV_ROWS_MAX; i++) {
    char name[ORV_NAME_SIZE];
    snprintf(name, sizeof name, "select_%s%d", itm->selector, i);
    char *entry = orv_get_var(&cfg_vars, name, o_undefined);
    if (entry == nullptr) {
      return;
    }
    if (i == ORV_ROWS_MAX) {
      problem("Too many entries in list");
      return;
    }
    char *var = skip_blanks(entry);
    char *end = var + strcspn(var, " \t");
    char *text = skip_blanks(end);
    const char behind = *end;
    *end = '\0';
    char varname[ORV_NAME_SIZE];
    snprintf(varname, sizeof varname, "%s%s", itm->selector, var);
    func(itm, var, varname, text);
    *end = behind;
  }
}

// Draws the error recorded for the item, if any.
static void add_error(pt_body_item *itm)
{
  if (itm == nullptr || itm->name == nullptr) {
    return;
  }
  char *text = orv_get_var(&err_vars, itm->name, o_best);
  if (text != nullptr && *skip_blanks(text) != '\0') {
    p->o_error(skip_blanks(text));
  }
}

static void set_item_subs(const pt_body_item *itm)
{
  set_subs('V', orv_get_var(&cfg_vars, itm->name, o_best));
  set_subs('N', itm->name);
}

static void draw_error_text(char *text)
{
  const char *expansion = expand_or_empty(text);
  if (expansion[strspn(expansion, " \t\n")] != '\0') {
    p->o_error(text);
  }
}

static void draw_menu(pt_body_item *itm)
{
  set_item_subs(itm);
  p->o_menu_start(itm);
  do_iter(p->o_menu_choice, itm);
  p->o_menu_stop(itm);
}

// Draws an input item and the error recorded for it.
static void draw_input(pt_body_item *itm)
{
  set_item_subs(itm);
  switch (itm->type) {
  case PT_TEXT_FIELD:
    p->o_text_field(itm, 0);
    break;
  case PT_TEXT_FIXED:
    p->o_text_field(itm, 1);
    break;
  case PT_CHECKBOX:
    p->o_checkbox(itm);
    break;
  case PT_ISELECT:
    iselect_setup(itm);
    do_iter(iselect_entry, itm);
    p->o_select(itm);
    break;
  default:
    p->o_select(itm);
    break;
  }
  add_error(itm);
}

static void draw_item(pt_body_item *itm, int help)
{
  switch (itm->type) {
  case PT_TEXT:
    p->o_text(itm->text.txt);
    break;
  case PT_HELP_TEXT:
    if (help != 0) {
      p->o_help(itm->text.txt);
    }
    break;
  case PT_ERROR_TEXT:
    draw_error_text(itm->text.txt);
    break;
  case PT_HEADING_CTR:
    do_display(p->o_center, itm->text.txt);
    break;
  case PT_HEADING_H1:
    do_display(p->o_header, itm->text.txt);
    break;
  case PT_HEADING_H2:
    do_display(p->o_header2, itm->text.txt);
    break;
  case PT_TEXT_FIELD:
  case PT_TEXT_FIXED:
  case PT_CHECKBOX:
  case PT_SELECT:
  case PT_ISELECT:
    draw_input(itm);
    break;
  case PT_IMENU:
    draw_menu(itm);
    break;
  case PT_FORMS_MENU:
    p->o_forms_menu(itm);
    break;
  case PT_TABLE:
    do_table_iter(itm);
    add_error(itm);
    break;
  case PT_FTABLE:
    do_ftable_iter(itm);
    add_error(itm);
    break;
  case PT_IF:
  case PT_IFNOT:
  case PT_ELSE:
  case PT_ENDIF:
    break;
  }
}

// Steps over the columns of a table and draws their errors; the last item of
// the table.
static pt_body_item *finish_table(pt_body_item *table)
{
  pt_body_item *itm = table;
  int i = table->table.columns;
  while (i > 0 && itm->next != nullptr) {
    itm = itm->next;
    i--;
    if (orv_conditions_hold(&conditions)) {
      add_error(itm);
    }
  }
  if (i != 0) {
    problem("Logic bomb. Too few items in table");
  }
  return itm;
}

// --- the walk ----------------------------------------------------------------

static void start_walk(const pto_procs *pp, int help, const char *error_text)
{
  p = pp;
  error_count = 0;
  orv_conditions_reset(&conditions);
  set_subs('E', error_text);
  set_subs('H', help != 0 ? "True" : "False");
  set_subs('X', orv_expert_mode != 0 ? "True" : "False");
}

int orv_body_output(const pto_procs *pp, pt_body_item *itm, int help,
                    const char *error_text)
{
  start_walk(pp, help, error_text);
  for (; itm != nullptr; itm = itm->next) {
    set_subs('V', nullptr);
    set_subs('N', nullptr);
    if (orv_conditions_hold(&conditions)) {
      p->o_comment("Line %d", itm->line_number);
      draw_item(itm, help);
    }
    orv_conditions_follow(&conditions, itm);
    if (itm->type == PT_TABLE || itm->type == PT_FTABLE) {
      itm = finish_table(itm);
    }
  }
  if (conditions.depth != 0) {
    p->o_comment("%d conditions left on stack", conditions.depth);
    error_count++;
  }
  if (error_count > 0) {
    p->o_comment("orv_body_output: %d errors found", error_count);
  }
  return error_count;
}
