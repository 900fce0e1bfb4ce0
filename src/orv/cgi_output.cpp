// The HTML renderer: the output procedures that draw a form as HTML.
//
// Owns the structure of the page being written: whether its heading is still
// to be printed, and whether its one form and a table are open.  What a page
// posts beside what is seen, links and the help for controls have files of
// their own.  Nothing here fails or reports; what is missing is drawn as empty,
// and names and links that are too long are cut.

#include "cgi_output.h"

#include <stdio.h>
#include <string.h>

#include "cgi.h"
#include "cgi_control.h"
#include "cgi_main.h"
#include "cgi_menu.h"
#include "cgi_state.h"
#include "html.h"
#include "orv.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_secret.h"
#include "orv_vars.h"

// A number of at most three digits; wider fields fit no screen.
constexpr size_t SIZE_SIZE = 4;
constexpr size_t DELETE_LABEL_SIZE = 32; // of a deletion box, for who listens
static const char NBSP[] = "&nbsp;";

// Zero at the start of the process, which draws one page.
static char *default_heading; // borrowed; NULL once printed or cancelled
static int form_running;
static int table_running;
static control_place place; // of the control in progress

static pt_body_item *drawn; // the field or table drawn last, or in progress

static char size_value[SIZE_SIZE]; // set before each use

static html_attribute form_conditions = {"data-conditions", nullptr, nullptr};
static html_attribute html_form_name = {"name", "f1", &form_conditions};
static html_attribute op_text_field_core_attr_size = {"size", size_value,
                                                      nullptr};
static html_attribute op_text_field_core_attr_disabled = {
    "disabled", "disabled", &op_text_field_core_attr_size};
static html_attribute colspan2 = {"colspan", "2", nullptr};
static html_attribute valign = {"valign", "top", nullptr};
static html_attribute new_row = {"data-row", "new", nullptr};
static html_attribute changed = {"data-changed", "yes", nullptr};

static char *expand(char *text)
{
  char *expansion = orv_out_expand(text);
  return expansion != nullptr ? expansion : orv_out_expand(nullptr);
}

// --- heading, form and table -------------------------------------------------

void cgi_set_default_heading(char *heading)
{
  default_heading = heading;
}

static void cgiout_check_heading()
{
  if (default_heading != nullptr) {
    html_heading(0, expand(default_heading), nullptr, nullptr, nullptr);
    default_heading = nullptr;
  }
}

void cgiout_start_form(void)
{
  if (form_running == 0) {
    cgiout_check_heading();
    html_form_begin(nullptr, nullptr, &html_form_name);
    form_running = 1;
  }
}

static void cgiout_start_table(const char *css_class)
{
  if (table_running == 0) {
    cgiout_check_heading();
    html_table_begin(nullptr, css_class, nullptr);
    table_running = 1;
  }
}

void cgiout_close_table(void)
{
  if (table_running != 0) {
    html_table_end();
    table_running = 0;
  }
}

// --- the hidden state --------------------------------------------------------

static void hidden_field(const char *name, const char *value)
{
  html_form_hidden(name, value, nullptr, nullptr);
}

static void hidden_if_set(const char *name, const char *value)
{
  if (value != nullptr) {
    hidden_field(name, value);
  }
}

void cgiout_close_form(void)
{
  if (form_running == 0) {
    return;
  }
  cgiout_close_table();
  // Scripts of the browser ask before a change is left behind.
  const bool is_changed = orv_vars_changed(&cfg_vars) != nullptr;
  html_div_begin("hidden", is_changed ? &changed : nullptr);
  cgiout_variables(hidden_field);
  hidden_if_set("form", orv_form);
  hidden_if_set("subitem", orv_subitem);
  hidden_if_set("return", orv_return);
  hidden_if_set("continue", orv_continue);
  hidden_field("expert_mode", orv_expert_mode != 0 ? "True" : "False");
  // A page with a part of the state is shown, but nothing is done from it.
  if (!orv_vars_lost()) {
    hidden_field("cgi_vars_loaded", "True");
  }
  hidden_field("scroll_y", scroll_y != nullptr ? scroll_y : "0");
  hidden_if_set("anchor_target", anchor_target);
  html_div_end();
  html_form_end();
  form_running = 0;
}

// --- headings ----------------------------------------------------------------

// A heading of the body takes the page heading's place.
static void body_heading(int level, const char *css_class, const char *text)
{
  default_heading = nullptr;
  cgiout_close_table();
  html_heading(level, text, nullptr, css_class, nullptr);
}

static void op_center(char *text)
{
  body_heading(0, "center", text);
}

static void op_header(char *text)
{
  body_heading(0, nullptr, text);
}

static void op_header2(char *text)
{
  body_heading(1, nullptr, text);
}

// The item, among the one drawn last and its columns, whose recorded error is
// the very text; NULL when there is none.
static const pt_body_item *error_owner(const char *text)
{
  const pt_body_item *itm = drawn;
  int columns = 0;
  if (itm != nullptr && (itm->type == PT_TABLE || itm->type == PT_FTABLE)) {
    columns = itm->table.columns;
  }
  while (itm != nullptr && cgi_recorded_error(itm) != text) {
    itm = columns > 0 ? itm->next : nullptr;
    columns--;
  }
  return itm;
}

// --- text, help and errors ---------------------------------------------------

// Inside a table, text is a row that spans both columns.
static void start_table_text()
{
  if (table_running != 0) {
    html_tr_begin(nullptr, nullptr);
    html_td_begin(nullptr, &colspan2);
  }
}

static void end_table_text()
{
  if (table_running != 0) {
    html_td_end();
    html_tr_end();
  }
}

// Carries out the markup code that `code` begins with and returns where the
// scan resumes.  `*open` counts the emphases that are open.
static const char *markup(const char *css_class, const char *code, int *open)
{
  switch (code[1]) {
  case 'B':
    html_em_begin(css_class, nullptr);
    (*open)++;
    break;
  case 'R':
    html_em_end();
    *open -= *open > 0 ? 1 : 0;
    break;
  case 'L':
    html_br(css_class, nullptr);
    break;
  case 'I':
    fputs("&nbsp;&nbsp;&nbsp;&nbsp;", cgiOut);
    break;
  case '$':
    putc('$', cgiOut);
    break;
  default:
    // No code of ours; its closing "$" may open the next one.
    html_escape_data(code, 2);
    return code + 2;
  }
  return code + 3;
}

static void cgiout_para_block(const char *css_class, const char *txt,
                              const html_attribute *attrs)
{
  int open = 0;
  html_p_begin(css_class, attrs);
  const char *text = txt; // what has not been written yet
  const char *dollar = strchr(text, '$');
  while (dollar != nullptr) {
    if (cgi_is_markup(dollar)) {
      html_escape_data(text, static_cast<size_t>(dollar - text));
      text = markup(css_class, dollar, &open);
      dollar = strchr(text, '$');
    } else {
      dollar = strchr(dollar + 1, '$');
    }
  }
  if (*text != '\0') {
    html_escape(text);
  }
  for (; open > 0; open--) {
    html_em_end();
  }
  html_p_end();
}

// The first paragraph carries the attributes.
static void cgiout_text_blocks(const char *css_class, char *txt,
                               const html_attribute *attrs)
{
  char *text = expand(txt);
  char *gap = strstr(text, "\n\n");
  while (gap != nullptr) {
    *gap = '\0';
    cgiout_para_block(css_class, text, attrs);
    attrs = nullptr;
    *gap = '\n';
    text = gap + strspn(gap, "\n");
    gap = strstr(text, "\n\n");
  }
  if (*text != '\0') {
    cgiout_para_block(css_class, text, attrs);
  }
}

static void text_item(const char *css_class, char *text,
                      const html_attribute *attrs)
{
  cgiout_check_heading();
  start_table_text();
  cgiout_text_blocks(css_class, text, attrs);
  end_table_text();
}

static void op_text(char *text)
{
  text_item("plain", text, nullptr);
}

static void op_help(char *text)
{
  text_item("help", text, nullptr);
}

// An error recorded for an item belongs to its controls; any other is the
// page's own message, which is a question where rows are marked for deletion.
static void op_error(char *text)
{
  const pt_body_item *owner = error_owner(text);
  char id[CONTROL_ID_SIZE];
  html_attribute attr = {"role", del_vars != nullptr ? "status" : "alert",
                         nullptr};
  if (owner != nullptr) {
    cgi_error_id(id, owner);
    attr = {"id", id, nullptr};
  }
  text_item("error", text, &attr);
}

// --- menus -------------------------------------------------------------------

static void op_forms_menu(pt_body_item *itm)
{
  cgiout_check_heading();
  cgiout_close_table();
  html_ul_begin("formsmenu", nullptr);
  for (html_form_list_opt *choice = itm->choices.choices; choice != nullptr;
       choice = choice->next) {
    cgi_menu_entry(choice->value, nullptr, "formsmenu", "formsmenu",
                   choice->label);
  }
  html_ul_end();
}

static void op_menu_start(pt_body_item *)
{
  cgiout_check_heading();
  html_ul_begin(nullptr, nullptr);
}

static void op_menu_choice(pt_body_item *itm, char *select, char *, char *text)
{
  cgi_menu_entry(select, itm->name, "form", nullptr, text);
}

static void op_menu_stop(pt_body_item *)
{
  html_ul_end();
}

// --- controls ----------------------------------------------------------------

static void op_text_field_core(pt_body_item *itm, char *name, char *varname,
                               int fixed)
{
  const char *value = orv_get_var(&cfg_vars, varname, o_undefined);
  const int width = itm->field.width != 0 ? itm->field.width : 20;
  snprintf(size_value, sizeof size_value, "%d", width);
  html_attribute *attrs = fixed != 0 ? &op_text_field_core_attr_disabled
                                     : &op_text_field_core_attr_size;
  attrs = cgi_control_help(itm, varname, place, attrs);
  if (fixed == 0 && orv_is_secret(itm)) {
    html_form_password_input(name, value, attrs);
  } else {
    html_form_text_input(name, value, nullptr, nullptr, nullptr, nullptr,
                         attrs);
  }
  if (fixed != 0 && value != nullptr) {
    cgi_narrow_text(nullptr, value); // a control's one line would cut it
  }
}

static void op_checkbox_core(pt_body_item *itm, char *name, char *varname)
{
  const int ticked = cgiout_mark_checkbox(name, varname) ? 1 : 0;
  html_form_checkbox(name, "True", ticked, nullptr, nullptr, nullptr,
                     cgi_control_help(itm, varname, place, nullptr));
}

// The hidden default records what the list shows as chosen.
static void op_select_core(pt_body_item *itm, char *name, char *varname)
{
  const html_form_list_opt *chosen = cgiout_mark_choice(itm, varname);
  char field[ORV_NAME_SIZE];
  cgiout_state_name(field, 'd', varname);
  for (const html_form_list_opt *choice = itm->choices.choices;
       choice != nullptr; choice = choice->next) {
    if (choice == chosen || choice->selected) {
      hidden_if_set(field, choice->value);
    }
  }
  html_form_list(name, 1, nullptr, itm->choices.choices, nullptr,
                 cgi_control_help(itm, varname, place, nullptr));
}

// --- labelled field rows -----------------------------------------------------

static void do_form_left(pt_body_item *itm, int do_label)
{
  cgiout_start_form();
  cgiout_start_table("twocol");
  html_tr_begin(nullptr, nullptr);
  html_td_begin("formleft", &valign);
  drawn = itm;
  place.labelled = false;
  if (do_label != 0 && itm->label != nullptr) {
    const char *label = expand(itm->label);
    if (label[0] != '\0') {
      html_label_begin(cgi_control_id(itm), nullptr, nullptr);
      html_escape(label);
      html_label_end();
      place.labelled = true;
    }
  } else {
    fputs(NBSP, cgiOut);
  }
  html_td_end();
  html_td_begin("form", nullptr);
}

static void do_form_right(pt_body_item *itm)
{
  if (itm->rlabel != nullptr) {
    putc(' ', cgiOut);
    html_escape(expand(itm->rlabel));
  }
  if (itm->prompt != nullptr) {
    html_br(nullptr, nullptr);
    html_span_begin("prompt", nullptr);
    html_escape(expand(itm->prompt));
    html_span_end();
  }
  html_td_end();
  html_tr_end();
}

static void op_text_field(pt_body_item *itm, int fixed)
{
  do_form_left(itm, 1);
  op_text_field_core(itm, itm->name, itm->name, fixed);
  do_form_right(itm);
}

static void op_checkbox(pt_body_item *itm)
{
  do_form_left(itm, 1);
  op_checkbox_core(itm, itm->name, itm->name);
  do_form_right(itm);
}

static void op_select(pt_body_item *itm)
{
  do_form_left(itm, 1);
  op_select_core(itm, itm->name, itm->name);
  do_form_right(itm);
}

// --- multi-column tables -----------------------------------------------------

static void op_mcol_heading(pt_body_item *itm)
{
  html_th_begin("multicol", nullptr);
  if (itm->label != nullptr) {
    html_escape(itm->label);
  } else {
    fputs(NBSP, cgiOut);
  }
  html_th_end();
}

static void start_mcol_table(pt_body_item *table)
{
  drawn = table;
  cgiout_close_table();
  cgiout_start_form();
  cgiout_start_table("multicol");
  html_thead_begin("multicol", nullptr);
  html_tr_begin("multicol", nullptr);
  place.row = 0;
}

static void delete_box(const pt_body_item *table)
{
  char name[CGI_DELETE_NAME_SIZE];
  char label[DELETE_LABEL_SIZE];
  snprintf(name, sizeof name, "delete_%s_%u", table->name, place.row);
  snprintf(label, sizeof label, "Delete row %u", place.row + 1);
  html_attribute aria = {"aria-label", label, nullptr};
  html_form_checkbox(name, "True", 0, nullptr, nullptr, "multicol", &aria);
}

static void op_mcol_trans(pt_body_item *itm, mcol_trans type)
{
  switch (type) {
  case MCOL_START:
    start_mcol_table(itm);
    break;
  case MCOL_BODY_DEL:
    html_th_begin("multicol", nullptr);
    fputs("Delete", cgiOut);
    html_th_end();
    html_tr_end();
    html_thead_end();
    break;
  case MCOL_BODY:
    html_tr_end();
    html_thead_end();
    break;
  case MCOL_ROW_START:
    html_tr_begin("multicol", nullptr);
    break;
  case MCOL_ROW_END_DEL:
    html_td_begin("multicol", nullptr);
    delete_box(itm);
    html_td_end();
    html_tr_end();
    place.row++;
    break;
  case MCOL_ROW_END_BLANK:
    html_td_begin("multicol", &new_row);
    fputs(NBSP, cgiOut);
    html_td_end();
    html_tr_end();
    place.row++;
    break;
  case MCOL_ROW_END:
    html_tr_end();
    place.row++;
    break;
  case MCOL_COL_START: {
    html_attribute label = {"data-label", itm->label, nullptr};
    html_td_begin("multicol", &label);
    break;
  }
  case MCOL_COL_END:
    cgi_cell_message(itm);
    html_td_end();
    break;
  case MCOL_END:
    cgiout_close_table();
    break;
  default:
    break;
  }
}

// --- the table of procedures -------------------------------------------------

// In the order of the slots.
static const pto_procs html_procs = {
    op_text,
    op_help,
    op_error,
    op_center,
    op_header,
    op_header2,
    html_comment,
    op_forms_menu,
    op_text_field,
    op_checkbox,
    op_select,
    op_menu_start,
    op_menu_choice,
    op_menu_stop,
    op_mcol_trans,
    op_mcol_heading,
    op_text_field_core,
    op_checkbox_core,
    op_select_core,
};
static_assert(sizeof html_procs == 19 * sizeof(void (*)()),
              "fill a new slot of pto_procs above, then count it here");

void cgi_body_output(pt_body_item *body, int help, const char *error)
{
  form_conditions.value = cgiout_conditions(body);
  orv_body_output(&html_procs, body, help, error);
}
