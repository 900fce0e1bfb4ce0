// The HTML renderer: the output procedures that draw a form as HTML.
//
// Owns the structure of the page being written: whether its heading is still
// to be printed, and whether its one form and a table are open.  The names of
// the visible fields, the hidden fields that close the form and the links of
// menus are the protocol by which a page hands its state to the next request.
// Nothing here fails or reports; what is missing is drawn as empty, and names
// and links that are too long are cut.

#include "cgi_output.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

#include "cgi.h"
#include "cgi_main.h"
#include "html.h"
#include "orv.h"
#include "orv_check.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_secret.h"
#include "orv_vars.h"

constexpr size_t CODE_LENGTH = 3; // a character in an address, as "%25"
// A number of at most three digits; wider fields fit no screen.
constexpr size_t SIZE_SIZE = 4;
constexpr size_t CONTROL_ID_SIZE = 16; // a letter and a line number
// A column's label, cut where it is longer than can be listened to, and its
// row.
constexpr int CONTROL_LABEL_MAX = 100;
constexpr size_t CONTROL_LABEL_SIZE = CONTROL_LABEL_MAX + 20;
// Far more names than conditions of a form ask for; what does not fit is left
// out, and changes with a button as it does without scripts.
constexpr size_t CONDITIONS_SIZE = 500;
// Messages repeated in cells: more than anybody scrolls through on a phone,
// where every cell of a long table may fail with a long value in its message.
constexpr size_t CELL_MESSAGES_MAX = 256UL * 1024;

static const char NBSP[] = "&nbsp;";

// Zero at the start of the process, which draws one page.
static char *default_heading; // borrowed; NULL once printed or cancelled
static int form_running;
static int table_running;
static unsigned int row; // body row of the multi-column table being drawn

static pt_body_item *drawn;   // the field or table drawn last, or in progress
static int row_labelled;      // the field row in progress shows its label
static int failure_focused;   // the first failing control has been drawn
static bool cell_has_message; // the cell in progress shows its column's error

static char size_value[SIZE_SIZE]; // set before each use

static char conditions[CONDITIONS_SIZE]; // collected before the body is drawn

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

// --- conditions --------------------------------------------------------------
// They are decided when a page is drawn.  The form names the variables that
// they read, so that scripts of the browser can have it drawn again at once.

// Names differ by more than capitals.
static bool is_watched(const char *name, size_t length)
{
  const char *at = conditions;
  while (*at != '\0') {
    if (strncasecmp(at, name, length) == 0 && at[length] == ' ') {
      return true;
    }
    at += strcspn(at, " ") + 1;
  }
  return false;
}

static void watch(const char *name, size_t length)
{
  const size_t used = strlen(conditions);
  if (length > 0 && used + length + 2 <= sizeof conditions &&
      !is_watched(name, length)) {
    memcpy(conditions + used, name, length);
    conditions[used + length] = ' ';
    form_conditions.value = conditions;
  }
}

// Reads the condition as its expansion does.
static void add_condition(const char *text)
{
  text = strchr(text, '$');
  while (text != nullptr && text[1] != '\0') {
    const bool is_reference =
        text[2] == ':' && strchr("CDENOUV", text[1]) != nullptr;
    const char *end = is_reference ? strchr(text + 3, '$') : nullptr;
    if (text[2] == '$') {
      end = text + 2;
    } else if (end != nullptr && strchr("UV", text[1]) != nullptr) {
      watch(text + 3, static_cast<size_t>(end - text) - 3);
    }
    text = strchr(end != nullptr ? end + 1 : text + 1, '$');
  }
}

static void collect_conditions(const pt_body_item *itm)
{
  for (; itm != nullptr; itm = itm->next) {
    if (itm->type == PT_IF || itm->type == PT_IFNOT) {
      add_condition(itm->text.txt);
    }
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

void cgiout_state_name(char (&field)[ORV_NAME_SIZE], char type,
                       const char *name)
{
  const size_t length = strnlen(name, sizeof field - 3);
  field[0] = type;
  field[1] = '_';
  memcpy(field + 2, name, length);
  field[2 + length] = '\0';
}

// An unticked box posts nothing, so a check box carries "False" as its user
// value, which a ticked box's own field then replaces.  One of a row that was
// emptied stays empty, or its row would count as used.
static const char *user_value(const orv_var *var)
{
  const bool is_empty = var->u_value != nullptr && var->u_value[0] == '\0';
  return var->is_checkbox && !is_empty ? "False" : var->u_value;
}

void cgiout_variables(void (*put)(const char *name, const char *value))
{
  for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
    const struct {
      char type;
      const char *text;
    } values[] = {
        {'d', var->d_value},
        {'c', var->c_value},
        {'o', var->o_value},
        {'u', user_value(var)},
    };
    for (const auto &value : values) {
      if (value.text != nullptr) {
        char field[ORV_NAME_SIZE];
        cgiout_state_name(field, value.type, var->name);
        put(field, value.text);
      }
    }
  }
}

static bool is_choice_of(const pt_body_item *itm, const char *name)
{
  if (itm->type != PT_CHECKBOX && itm->type != PT_SELECT &&
      itm->type != PT_ISELECT) {
    return false;
  }
  const size_t length = strlen(itm->name);
  return strncasecmp(name, itm->name, length) == 0 &&
         name[length + strspn(name + length, "0123456789")] == '\0';
}

// A row that moves up takes its values along as the user's.
static bool has_secret(const orv_var *var)
{
  if (!orv_is_secret_name(var->name)) {
    return false;
  }
  const char *value = del_vars != nullptr
                          ? orv_get_var(&cfg_vars, var->name, o_undefined)
                          : var->u_value;
  return value != nullptr && value[0] != '\0';
}

bool cgiout_carries_secret(const pt_body_item *body)
{
  for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
    if (!has_secret(var)) {
      continue;
    }
    const pt_body_item *itm = body;
    while (itm != nullptr && !is_choice_of(itm, var->name)) {
      itm = itm->next;
    }
    if (itm == nullptr) {
      return true;
    }
  }
  return false;
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

// --- recorded errors ---------------------------------------------------------

// What is recorded for the item, NULL when that is nothing or blank.
static const char *recorded_error(const pt_body_item *itm)
{
  const char *text = orv_get_var(&err_vars, itm->name, o_undefined);
  if (text == nullptr) {
    return nullptr;
  }
  text += strspn(text, " \t");
  return *text != '\0' ? text : nullptr;
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
  while (itm != nullptr && recorded_error(itm) != text) {
    itm = columns > 0 ? itm->next : nullptr;
    columns--;
  }
  return itm;
}

static void error_id(char (&id)[CONTROL_ID_SIZE], const pt_body_item *itm)
{
  snprintf(id, sizeof id, "e%d", itm->line_number);
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

static bool is_markup(const char *text)
{
  return text[0] == '$' && text[1] != '\0' && text[2] == '$';
}

static void cgiout_para_block(const char *css_class, const char *txt,
                              const html_attribute *attrs)
{
  int open = 0;
  html_p_begin(css_class, attrs);
  const char *text = txt; // what has not been written yet
  const char *dollar = strchr(text, '$');
  while (dollar != nullptr) {
    if (is_markup(dollar)) {
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
    error_id(id, owner);
    attr = {"id", id, nullptr};
  }
  text_item("error", text, &attr);
}

// --- menus -------------------------------------------------------------------

struct address {
  char text[CGI_HREF_SIZE]; // zeros behind its end
  size_t length;
};

// Adds `part` with a code for each of its `special` characters.  Where there is
// no more room, the address ends.
static void add_part(address *to, const char *part, const char *special)
{
  for (; *part != '\0'; part++) {
    const size_t length = strchr(special, *part) != nullptr ? CODE_LENGTH : 1;
    char *at = to->text + to->length;
    to->length += length;
    if (to->length >= sizeof to->text) {
      to->length = sizeof to->text;
      return;
    }
    *at = *part;
    if (length > 1) {
      snprintf(at, CODE_LENGTH + 1, "%%%02hhX",
               static_cast<unsigned char>(*part));
    }
  }
}

// Adds a name, with codes for what a request would not read as a part of it.
static void add_name_part(address *to, const char *name)
{
  add_part(to, name, "&#%+");
}

// Writes a menu entry that links to the form and sub-item which `target` joins
// by its first "/".  Without one, `target` is the sub-item of `form`, or the
// form itself when that is NULL.
static void menu_entry(char *target, const char *form, const char *item_class,
                       const char *link_class, const char *text)
{
  char *slash = strchr(target, '/');
  const char *subitem = form != nullptr ? target : nullptr;
  if (slash != nullptr) {
    *slash = '\0';
    subitem = slash + 1;
  }
  address link = {};
  add_part(&link, cgiScriptName, "");
  add_part(&link, "?form=", "");
  add_name_part(&link, slash != nullptr || form == nullptr ? target : form);
  if (subitem != nullptr) {
    add_part(&link, "&subitem=", "");
    add_name_part(&link, subitem);
  }
  if (slash != nullptr) {
    *slash = '/';
  }
  html_li_begin(item_class, nullptr);
  html_a_begin(link.text, link_class, nullptr);
  html_escape(text);
  html_a_end();
  html_li_end();
}

static void op_forms_menu(pt_body_item *itm)
{
  cgiout_check_heading();
  cgiout_close_table();
  html_ul_begin("formsmenu", nullptr);
  for (html_form_list_opt *choice = itm->choices.choices; choice != nullptr;
       choice = choice->next) {
    menu_entry(choice->value, nullptr, "formsmenu", "formsmenu", choice->label);
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
  menu_entry(select, itm->name, "form", nullptr, text);
}

static void op_menu_stop(pt_body_item *)
{
  html_ul_end();
}

// --- what helps the user of a control ----------------------------------------
// Attributes that add a name, the error and hints for input, but change nothing
// that is shown as text or posted.

// In the order in which they are written; a control has each once at most.
enum control_attr {
  ATTR_ID,
  ATTR_LABEL,
  ATTR_INVALID,
  ATTR_DESCRIBEDBY,
  ATTR_AUTOFOCUS,
  ATTR_INPUTMODE,
  ATTR_AUTOCOMPLETE,
  ATTR_AUTOCAPITALIZE,
  ATTR_SPELLCHECK,
  CONTROL_ATTRS, // their number
};

static const char *const attr_names[] = {
    "id",        "aria-label", "aria-invalid", "aria-describedby",
    "autofocus", "inputmode",  "autocomplete", "autocapitalize",
    "spellcheck"};
static_assert(sizeof attr_names / sizeof *attr_names == CONTROL_ATTRS,
              "every attribute has its name");

// Valid until the next control.
struct control_attrs {
  html_attribute attrs[CONTROL_ATTRS];
  int count;
};

static void add_attr(control_attrs *list, control_attr which, const char *value)
{
  html_attribute *attr = &list->attrs[list->count];
  *attr = {attr_names[which], value, nullptr};
  if (list->count > 0) {
    attr[-1].next = attr;
  }
  list->count++;
}

static const char *control_id(const pt_body_item *itm)
{
  static char id[CONTROL_ID_SIZE];
  snprintf(id, sizeof id, "i%d", itm->line_number);
  return id;
}

// What names a control best.  A field's label is expanded where it is shown; a
// second expansion would tell its problems twice.  A column's is shown as it
// stands.
static const char *any_label(const pt_body_item *itm)
{
  const char *const by_rank[] = {itm->label, itm->rlabel, itm->prompt};
  for (const char *label : by_rank) {
    if (label != nullptr && label[0] != '\0' &&
        ((itm->column >= 0 && label == itm->label) ||
         strchr(label, '$') == nullptr)) {
      return label;
    }
  }
  return itm->name;
}

// A field row's label element points at its control by an id made of the
// template's line, which is unique; a table's cell, and a field that shows no
// label, has its name in an attribute.
static void add_name(control_attrs *list, const pt_body_item *itm)
{
  static char text[CONTROL_LABEL_SIZE];
  if (itm->column >= 0) {
    snprintf(text, sizeof text, "%.*s, row %u", CONTROL_LABEL_MAX,
             any_label(itm), row + 1);
    add_attr(list, ATTR_LABEL, text);
  } else if (row_labelled != 0) {
    add_attr(list, ATTR_ID, control_id(itm));
  } else {
    add_attr(list, ATTR_LABEL, any_label(itm));
  }
}

static bool cell_fails(const char *varname)
{
  return orv_find_var(&failed_cells, varname, 0) != nullptr;
}

static bool field_fails(const pt_body_item *itm)
{
  const char *label =
      itm->type == PT_TEXT_FIELD ? itm->field.check_label : nullptr;
  return recorded_error(itm) != nullptr ||
         (label != nullptr &&
          orv_get_var(&err_vars, label, o_undefined) != nullptr);
}

// Errors of a table are shown by column.  Our checks know which cells are wrong
// and scripts may say so; what a script says of the column may be about any
// cell, so it describes them all.
// A field's error may be recorded under a label of its own, and is then shown
// where the template wants it.  Where a row is drawn as a card, the message is
// seen in each marked cell, else in the first row's.
static void add_error_state(control_attrs *list, const pt_body_item *itm,
                            const char *varname)
{
  static char id[CONTROL_ID_SIZE];
  const bool is_cell = itm->column >= 0;
  const bool failing = is_cell ? cell_fails(varname) : field_fails(itm);
  const bool has_error = recorded_error(itm) != nullptr &&
                         (failing || !is_cell || !orv_column_is_marked(itm));
  if (failing) {
    add_attr(list, ATTR_INVALID, "true");
  }
  if (has_error) {
    error_id(id, itm);
    add_attr(list, ATTR_DESCRIBEDBY, id);
    cell_has_message = is_cell && (failing || row == 0);
  }
  if ((failing || has_error) && failure_focused == 0 &&
      itm->type != PT_TEXT_FIXED) {
    add_attr(list, ATTR_AUTOFOCUS, "autofocus");
    failure_focused = 1;
  }
}

// What a keyboard should offer and a browser may fill in; NULL: no hint.
struct input_hint {
  const char *check;
  const char *inputmode;
  const char *autocomplete;
};

// Numbers that may be negative or hexadecimal need more than a number pad; the
// keyboard for addresses of the web has the dot, the colon and the slash at
// hand.  Nothing is switched off: a browser that goes Back would not put back
// what was typed into a field without completion.
// clang-format off
static const input_hint input_hints[] = {
  {"decimal", "numeric", nullptr},
  {"real",    "decimal", nullptr},
  {"ipaddr",  "url",     nullptr},
  {"email",   "email",   "email"},
  {"file",    "url",     nullptr},
  {"path",    "url",     nullptr},
};
// clang-format on

// Values of every check but "text" are no prose.
static void add_input_hints(control_attrs *list, const pt_body_item *itm)
{
  if (orv_is_secret(itm)) {
    add_attr(list, ATTR_AUTOCOMPLETE, "new-password");
    return;
  }
  int nullok;
  const char *options;
  const checks_info *check =
      orv_find_check(itm->field.check, &nullok, &options);
  if (check == nullptr || strcmp(check->name, "text") == 0) {
    return;
  }
  for (const input_hint &hint : input_hints) {
    if (strcmp(hint.check, check->name) == 0) {
      add_attr(list, ATTR_INPUTMODE, hint.inputmode);
      add_attr(list, ATTR_AUTOCOMPLETE, hint.autocomplete);
    }
  }
  add_attr(list, ATTR_AUTOCAPITALIZE, "none");
  add_attr(list, ATTR_SPELLCHECK, "false");
}

// All of them, in front of `tail`.
static html_attribute *control_help(const pt_body_item *itm,
                                    const char *varname, html_attribute *tail)
{
  static control_attrs list;
  list.count = 0;
  add_name(&list, itm);
  add_error_state(&list, itm, varname);
  if (itm->type == PT_TEXT_FIELD) {
    add_input_hints(&list, itm);
  }
  list.attrs[list.count - 1].next = tail;
  return list.attrs;
}

// --- texts for narrow screens ------------------------------------------------
// Empty elements whose attribute the style sheet draws where the text proper
// stands too far away or is cut, so nothing is shown or read out twice.

static void narrow_text(const char *css_class, const char *text)
{
  html_attribute hidden = {"aria-hidden", "true", nullptr};
  html_attribute attr = {"data-text", text, &hidden};
  html_span_begin(css_class, &attr);
  html_span_end();
}

// Drops the markup codes of `text`, in place; a break becomes a blank.
static void drop_markup(char *text)
{
  char *to = text;
  while (*text != '\0') {
    if (!is_markup(text)) {
      *to++ = *text++;
      continue;
    }
    if (text[1] == '$') {
      *to++ = '$';
    } else if (text[1] == 'L' || text[1] == 'I') {
      *to++ = ' ';
    }
    text += 3;
  }
  *to = '\0';
}

// Expanded like the paragraph's.  What the cells' messages have no room for
// stands in the paragraph alone.
static void draw_cell_message(const char *recorded)
{
  static size_t room = CELL_MESSAGES_MAX;
  char *text =
      room > 0 ? orv_out_expand_again(const_cast<char *>(recorded)) : nullptr;
  if (text == nullptr) {
    return;
  }
  const size_t length = strlen(text);
  if (length > room) {
    room = 0;
    return;
  }
  room -= length;
  drop_markup(text);
  narrow_text("wrong", text);
}

static void cell_message(const pt_body_item *column)
{
  const char *recorded = recorded_error(column);
  if (cell_has_message && recorded != nullptr) {
    draw_cell_message(recorded);
  }
  cell_has_message = false;
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
  attrs = control_help(itm, varname, attrs);
  if (fixed == 0 && orv_is_secret(itm)) {
    html_form_password_input(name, value, attrs);
  } else {
    html_form_text_input(name, value, nullptr, nullptr, nullptr, nullptr,
                         attrs);
  }
  if (fixed != 0 && value != nullptr) {
    narrow_text(nullptr, value); // a control's one line would cut it
  }
}

bool cgiout_mark_checkbox(const char *name, const char *varname)
{
  const char *value = orv_get_var(&cfg_vars, varname, o_undefined);
  if (value != nullptr) {
    orv_set_var_ischeckbox(varname);
    orv_set_var_ischeckbox(name); // as which it is posted
  }
  return orv_string_is_true(value) != 0;
}

static void op_checkbox_core(pt_body_item *itm, char *name, char *varname)
{
  const int ticked = cgiout_mark_checkbox(name, varname) ? 1 : 0;
  html_form_checkbox(name, "True", ticked, nullptr, nullptr, nullptr,
                     control_help(itm, varname, nullptr));
}

html_form_list_opt *cgiout_mark_choice(pt_body_item *itm, const char *varname)
{
  const char *value = orv_get_var(&cfg_vars, varname, o_undefined);
  html_form_list_opt *chosen = nullptr;
  for (html_form_list_opt *choice = itm->choices.choices; choice != nullptr;
       choice = choice->next) {
    const bool selected = value != nullptr && choice->value != nullptr &&
                          strcmp(value, choice->value) == 0;
    choice->selected = selected ? 1 : 0;
    chosen = selected ? choice : chosen;
  }
  return chosen != nullptr ? chosen : itm->choices.choices;
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
                 control_help(itm, varname, nullptr));
}

// --- labelled field rows -----------------------------------------------------

static void do_form_left(pt_body_item *itm, int do_label)
{
  cgiout_start_form();
  cgiout_start_table("twocol");
  html_tr_begin(nullptr, nullptr);
  html_td_begin("formleft", &valign);
  drawn = itm;
  row_labelled = 0;
  if (do_label != 0 && itm->label != nullptr) {
    const char *label = expand(itm->label);
    if (label[0] != '\0') {
      html_label_begin(control_id(itm), nullptr, nullptr);
      html_escape(label);
      html_label_end();
      row_labelled = 1;
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
  row = 0;
}

static void delete_box(const pt_body_item *table)
{
  char name[CGI_DELETE_NAME_SIZE];
  char label[CONTROL_LABEL_SIZE];
  snprintf(name, sizeof name, "delete_%s_%u", table->name, row);
  snprintf(label, sizeof label, "Delete row %u", row + 1);
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
    row++;
    break;
  case MCOL_ROW_END_BLANK:
    html_td_begin("multicol", &new_row);
    fputs(NBSP, cgiOut);
    html_td_end();
    html_tr_end();
    row++;
    break;
  case MCOL_ROW_END:
    html_tr_end();
    row++;
    break;
  case MCOL_COL_START: {
    html_attribute label = {"data-label", itm->label, nullptr};
    html_td_begin("multicol", &label);
    break;
  }
  case MCOL_COL_END:
    cell_message(itm);
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
              "every slot is filled");

void cgi_body_output(pt_body_item *body, int help, const char *error)
{
  collect_conditions(body);
  orv_body_output(&html_procs, body, help, error);
}
