// A page of the device without a browser: drawing, setting, posting.
//
// Owns the open page: its header, body, fields and links, all made anew by each
// drawing.  The variable lists are used as a request uses them, emptied and
// filled again by each.  What is drawn, which values are right and what scripts
// are told is decided by the same code as for a browser; here stands only what
// a browser does: which controls post, under which name, in which order.

#include "page.h"

#include <search.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "cgi_navbar.h"
#include "cgi_output.h"
#include "cgi_policy.h"
#include "html_records.h"
#include "orv.h"
#include "orv_changes.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_output.h"
#include "orv_secret.h"
#include "orv_submit.h"
#include "orv_vars.h"
#include "suggest.h"

static pt_header *hdr;     // owned: the form shown
static pt_body_item *body; // owned: its items
static page_field *fields; // owned
static page_field **fields_end = &fields;
static void *field_tree;    // the fields by name, of one name the first
static orv_change *changes; // owned: what the last Submit came to
static bool has_changed;    // the same in one word
static page_link *links;    // owned
static page_link **links_end = &links;
static const pt_body_item *drawn_table; // that is being drawn, NULL outside
static int row;                         // of it, -1 outside
static const char *message;             // borrowed: the page's, NULL when none
static char *told;         // owned: what a script said, for `message`
static char *refusal;      // owned: what is wrong with a choice
static bool out_of_memory; // while drawing: the list of fields is a part

// --- lists -------------------------------------------------------------------

// Fields that a person can set, and deletion boxes.
static int compare_fields(const void *a, const void *b)
{
  return strcasecmp(static_cast<const page_field *>(a)->name,
                    static_cast<const page_field *>(b)->name);
}

static void keep_node(void *)
{
}

static void free_fields()
{
  tdestroy(field_tree, keep_node);
  field_tree = nullptr;
  while (fields != nullptr) {
    page_field *next = fields->next;
    free(fields->name);
    free(fields->value);
    free(fields);
    fields = next;
  }
  fields_end = &fields;
}

static void free_links()
{
  while (links != nullptr) {
    page_link *next = links->next;
    free(links->form);
    free(links->subitem);
    free(links);
    links = next;
  }
  links_end = &links;
}

// Adds a copy of the name and the value (NULL: posts nothing).
static page_field *add_field(field_kind kind, const char *name,
                             const char *value, const pt_body_item *item)
{
  page_field *field = static_cast<page_field *>(must_malloc(sizeof *field));
  if (field == nullptr) {
    out_of_memory = true;
    return nullptr;
  }
  *field = {kind, must_strdup(name), nullptr, item, drawn_table, row, nullptr};
  field->value = value != nullptr ? must_strdup(value) : nullptr;
  out_of_memory |= field->name == nullptr;
  out_of_memory |= value != nullptr && field->value == nullptr;
  *fields_end = field;
  fields_end = &field->next;
  if (kind != FIELD_STATE && field->name != nullptr &&
      tsearch(field, &field_tree, compare_fields) == nullptr) {
    out_of_memory = true;
  }
  return field;
}

// Adds the page that `target` names: "FORM", "FORM/SUBITEM", or a sub-item of
// `form` where that is not NULL and `target` has no "/".
static void add_link(const char *form, const char *target)
{
  page_link *link = static_cast<page_link *>(must_malloc(sizeof *link));
  if (link == nullptr) {
    return;
  }
  const char *slash = strchr(target, '/');
  *link = {};
  if (slash != nullptr) {
    link->form = must_strdup(target);
    link->subitem = must_strdup(slash + 1);
    if (link->form != nullptr) {
      link->form[slash - target] = '\0';
    }
  } else {
    link->form = must_strdup(form != nullptr ? form : target);
    link->subitem = form != nullptr ? must_strdup(target) : nullptr;
  }
  *links_end = link;
  links_end = &link->next;
}

// --- drawing -----------------------------------------------------------------
// The output procedures of a page that nobody looks at.

static void draw_text(char *)
{
}

static void draw_comment(const char *, ...)
{
}

static void draw_item(pt_body_item *)
{
}

// A browser takes line ends out of a line of text.
static void strip_line_ends(char *text)
{
  char *out = text;
  for (const char *in = text; *in != '\0'; in++) {
    if (*in != '\r' && *in != '\n') {
      *out = *in;
      out++;
    }
  }
  *out = '\0';
}

static void draw_cell(pt_body_item *itm, char *name, char *varname, int fixed)
{
  const char *value = orv_get_var(&cfg_vars, varname, o_undefined);
  page_field *field = add_field(fixed != 0 ? FIELD_FIXED : FIELD_TEXT, name,
                                value != nullptr ? value : "", itm);
  if (field != nullptr && field->value != nullptr) {
    strip_line_ends(field->value);
  }
}

static void draw_box_cell(pt_body_item *itm, char *name, char *varname)
{
  const bool ticked = cgiout_mark_checkbox(name, varname);
  add_field(FIELD_BOX, name, ticked ? "True" : nullptr, itm);
}

static void draw_list_cell(pt_body_item *itm, char *name, char *varname)
{
  const html_form_list_opt *chosen = cgiout_mark_choice(itm, varname);
  if (chosen != nullptr) {
    char field[ORV_NAME_SIZE];
    cgiout_state_name(field, 'd', varname);
    add_field(FIELD_STATE, field, chosen->value, nullptr);
  }
  add_field(FIELD_LIST, name, chosen != nullptr ? chosen->value : nullptr, itm);
}

static void draw_field(pt_body_item *itm, int fixed)
{
  draw_cell(itm, itm->name, itm->name, fixed);
}

static void draw_box(pt_body_item *itm)
{
  draw_box_cell(itm, itm->name, itm->name);
}

static void draw_list(pt_body_item *itm)
{
  draw_list_cell(itm, itm->name, itm->name);
}

static void draw_forms_menu(pt_body_item *itm)
{
  for (const html_form_list_opt *choice = itm->choices.choices;
       choice != nullptr; choice = choice->next) {
    add_link(nullptr, choice->value);
  }
}

static void draw_menu_entry(pt_body_item *itm, char *select, char *, char *)
{
  add_link(itm->name, select);
}

static void draw_table(pt_body_item *itm, mcol_trans step)
{
  switch (step) {
  case MCOL_START:
    drawn_table = itm;
    row = 0;
    break;
  case MCOL_ROW_END_DEL: {
    char name[CGI_DELETE_NAME_SIZE];
    snprintf(name, sizeof name, "delete_%s_%d", itm->name, row);
    add_field(FIELD_DELETE, name, nullptr, itm);
    row++;
    break;
  }
  case MCOL_ROW_END:
  case MCOL_ROW_END_BLANK:
    row++;
    break;
  case MCOL_END:
    drawn_table = nullptr;
    row = -1;
    break;
  default:
    break;
  }
}

static const pto_procs field_procs = {
    draw_text, draw_text,    draw_text,       draw_text,      draw_text,
    draw_text, draw_comment, draw_forms_menu, draw_field,     draw_box,
    draw_list, draw_item,    draw_menu_entry, draw_item,      draw_table,
    draw_item, draw_cell,    draw_box_cell,   draw_list_cell,
};

static void add_state(const char *name, const char *value)
{
  add_field(FIELD_STATE, name, value, nullptr);
}

// Draws the body that has been parsed.
static bool draw()
{
  free_fields();
  free_links();
  drawn_table = nullptr;
  row = -1;
  out_of_memory = false;
  orv_body_output(&field_procs, body, 0, nullptr);
  cgiout_variables(add_state);
  if (out_of_memory || orv_vars_lost()) {
    message = "Out of memory";
    return false;
  }
  return true;
}

// --- what a page may be asked ------------------------------------------------

// The strict policy's rules for a field, whatever the build's own policy is.
static const char *field_fault(const char *name, const char *value)
{
  static const policy_request page = {true, "POST", "", "", "", "", ""};
  return policy_field_fault(&page, name, value);
}

// --- opening and closing -----------------------------------------------------

static void free_form()
{
  orv_free_body(body);
  body = nullptr;
  orv_free_header(hdr);
  hdr = nullptr;
}

// The form stays parsed from page to page: each parsing gives the same.  What
// the codes of the last drawing stood for goes, above all $X$: conditions that
// a Submit checks see no expert view.
static void begin_request()
{
  message = nullptr;
  free(told);
  told = nullptr;
  orv_output_cleanup();
  orv_error_msg = nullptr;
  orv_free_vars(&cfg_vars);
  orv_free_vars(&err_vars);
  orv_free_vars(&del_vars);
  orv_free_vars(&failed_cells);
}

bool page_is_secret(const char *name)
{
  if (!orv_is_secret_name(name)) {
    return false;
  }
  const page_field *field = page_find(name);
  return field == nullptr ||
         (field->kind != FIELD_BOX && field->kind != FIELD_LIST);
}

static void forget_changes()
{
  orv_free_changes(changes);
  changes = nullptr;
  has_changed = false;
}

void page_close(void)
{
  begin_request();
  forget_changes();
  free_form();
  free_fields();
  free_links();
  free(refusal);
  refusal = nullptr;
}

// Makes a script's message, which may hold markup, that of the page.
static void take_told(const char *text)
{
  free(told);
  told = orv_plain_text(text);
  message = told != nullptr ? told : text;
}

// Whether the read script could make nothing of the page: there is no such
// sub-item, or its settings cannot be read.  Its message is then the page's.
static bool is_refused()
{
  const char *msg = orv_get_var(&err_vars, "msg", o_undefined);
  if (msg == nullptr &&
      orv_get_var(&err_vars, "fatal", o_undefined) == nullptr) {
    return false;
  }
  take_told(msg != nullptr ? msg
                           : "The read script says: there is no such page");
  return true;
}

// The recorded message; false, for the caller to return.
static bool fail(const char *otherwise)
{
  message = orv_error_msg != nullptr ? orv_error_msg : otherwise;
  return false;
}

static bool set_text(char **global, const char *value)
{
  free(*global);
  *global = value != nullptr ? must_strdup(value) : nullptr;
  return value == nullptr || *global != nullptr;
}

// Adds what the navigation bar links to; its addresses begin with "?form=".
static void add_bar()
{
  html_navbar_entry *entry = nullptr;
  cgi_get_navbar(hdr, &entry);
  for (; entry != nullptr && entry->label != nullptr; entry++) {
    const char *form =
        entry->url != nullptr ? strchr(entry->url, '=') : nullptr;
    if (form == nullptr) {
      continue;
    }
    char target[CGI_HREF_SIZE];
    snprintf(target, sizeof target, "%s", form + 1);
    char *subitem = strstr(target, "&subitem=");
    if (subitem != nullptr) {
      *subitem = '/';
      memmove(subitem + 1, subitem + strlen("&subitem="),
              strlen(subitem + strlen("&subitem=")) + 1);
    }
    add_link(nullptr, target);
  }
  orv_error_msg = nullptr; // a page without a bar is a page all the same
}

bool page_open(const char *form, const char *subitem, bool with_links)
{
  page_close();
  if (field_fault("form", form) != nullptr) {
    message = "This is no name of a form";
    return false;
  }
  if (subitem != nullptr && field_fault("subitem", subitem) != nullptr) {
    message = "This is no name of a sub-item";
    return false;
  }
  if (!set_text(&orv_form, form) || !set_text(&orv_subitem, subitem)) {
    return fail("Out of memory");
  }
  hdr = orv_parse_header(orv_form, orv_subitem);
  if (hdr == nullptr) {
    return fail("Failed to parse template header");
  }
  // The expert view has the most links.
  orv_expert_mode = with_links && hdr->expert_mode ? 1 : 0;
  if (orv_load_vars(hdr->read_script, 0) < 0) {
    return fail("The form's read script failed.");
  }
  if (!with_links && is_refused()) {
    return false;
  }
  body = orv_parse_body(hdr);
  if (body == nullptr) {
    return fail("The form is empty.");
  }
  if (!draw()) {
    return false;
  }
  if (with_links) {
    add_bar();
  }
  return true;
}

// --- setting -----------------------------------------------------------------

static bool can_be_set(const page_field *field)
{
  return field->kind == FIELD_TEXT || field->kind == FIELD_BOX ||
         field->kind == FIELD_LIST || field->kind == FIELD_FIXED;
}

static page_field *find_field(const char *name)
{
  page_field key = {};
  key.name = const_cast<char *>(name);
  void *node = tfind(&key, &field_tree, compare_fields);
  return node != nullptr ? *static_cast<page_field **>(node) : nullptr;
}

page_field *page_find(const char *name)
{
  page_field *field = find_field(name);
  return field != nullptr && can_be_set(field) ? field : nullptr;
}

page_field *page_find_delete(const pt_body_item *of, int number)
{
  char name[CGI_DELETE_NAME_SIZE];
  snprintf(name, sizeof name, "delete_%s_%d", of->name, number);
  page_field *field = find_field(name);
  return field != nullptr && field->kind == FIELD_DELETE ? field : nullptr;
}

static const char *set_value(page_field *field, const char *value)
{
  char *copy = value != nullptr ? must_strdup(value) : nullptr;
  if (value != nullptr && copy == nullptr) {
    return "out of memory";
  }
  free(field->value);
  field->value = copy;
  return nullptr;
}

static const char *choose_box(page_field *field, const char *value)
{
  static const char *const words[] = {"1", "true",  "yes", "on", "0",
                                      "",  "false", "no",  "off"};
  for (const char *word : words) {
    if (strcasecmp(word, value) == 0) {
      return set_value(field,
                       orv_string_is_true(value) != 0 ? "True" : nullptr);
    }
  }
  return "is a check box: True or False";
}

// What is wrong when the value is no entry of the list; borrowed until the next
// call.
static const char *no_choice(const html_form_list_opt *choice,
                             const char *value)
{
  suggestion of;
  suggest_begin(&of, value);
  for (; choice != nullptr; choice = choice->next) {
    if (choice->value != nullptr) {
      suggest_name(&of, choice->value);
    }
  }
  const owned_text there(suggest_end(&of, "it takes one of"));
  free(refusal);
  refusal = nullptr;
  const bool made =
      there != nullptr &&
      asprintf(&refusal, "has no such choice%s", there.get()) >= 0;
  return made ? refusal : "has no such choice";
}

static const char *choose_entry(page_field *field, const char *value)
{
  for (const html_form_list_opt *choice = field->item->choices.choices;
       choice != nullptr; choice = choice->next) {
    if (choice->value != nullptr && strcmp(choice->value, value) == 0) {
      return set_value(field, value);
    }
  }
  return no_choice(field->item->choices.choices, value);
}

const char *page_choose(page_field *field, const char *value)
{
  if (strpbrk(value, "\r\n") != nullptr) {
    return "is one line of text";
  }
  const char *fault = field_fault(field->name, value);
  if (fault != nullptr) {
    return fault;
  }
  switch (field->kind) {
  case FIELD_TEXT:
    return set_value(field, value);
  case FIELD_BOX:
    return choose_box(field, value);
  case FIELD_LIST:
    return choose_entry(field, value);
  case FIELD_DELETE:
    return set_value(field, "True");
  case FIELD_FIXED:
  case FIELD_STATE:
  default:
    return "is shown, and cannot be set";
  }
}

// --- posting -----------------------------------------------------------------

static bool is_posted(const page_field *field)
{
  return field->kind != FIELD_FIXED && field->value != nullptr;
}

static bool is_state_of(const page_field *field, const char *name)
{
  return field->kind == FIELD_STATE && strcasecmp(field->name, name) == 0;
}

// As a page carries it: the state of the user's value.
const char *page_put_secret(const char *name, const char *value)
{
  const char *fault = field_fault(name, value);
  if (fault != nullptr || strpbrk(value, "\r\n") != nullptr) {
    return fault != nullptr ? fault : "is one line of text";
  }
  char state[ORV_NAME_SIZE];
  cgiout_state_name(state, 'u', name);
  if (strcmp(state + strlen("u_"), name) != 0) {
    return "is too long a name";
  }
  page_field *field = fields;
  while (field != nullptr && !is_state_of(field, state)) {
    field = field->next;
  }
  if (field != nullptr) {
    return set_value(field, value);
  }
  field = add_field(FIELD_STATE, state, value, nullptr);
  return field != nullptr && !out_of_memory ? nullptr : "out of memory";
}

static int compare_names(const void *a, const void *b)
{
  return strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

// Whether `name` is not yet in the set `names`, which it then enters.
static bool is_first(const char *name, void **names)
{
  const void *node = tsearch(name, names, compare_names);
  return node == nullptr || *static_cast<const char *const *>(node) == name;
}

// What the page was made of comes first, since a user's value counts only where
// it differs from that.  Of several fields of one name the first counts, as in
// a request: a list's default stands before the one that was reported.
static void take_fields(bool tagged)
{
  void *names = nullptr;
  for (const page_field *field = fields; field != nullptr;
       field = field->next) {
    if (is_posted(field) &&
        (orv_var_prefix(field->name) != o_undefined) == tagged &&
        is_first(field->name, &names)) {
      orv_set_var(field->name, tagged ? o_undefined : o_best, field->value, 0);
    }
  }
  tdestroy(names, keep_node);
}

static void post()
{
  begin_request();
  take_fields(true);
  take_fields(false);
}

bool page_redraw(void)
{
  post();
  return draw();
}

// A message of the scripts or of a check concerns the whole page when it is
// recorded under this name.
static page_result refuse(const char *otherwise)
{
  const char *msg = orv_get_var(&err_vars, "msg", o_undefined);
  message = otherwise;
  if (msg != nullptr) {
    take_told(msg);
  }
  if (orv_error_msg != nullptr) { // a script that could not run, or memory
    message = orv_error_msg;
  }
  return PAGE_REFUSED;
}

static bool is_changed(const orv_var *var)
{
  orv_var alone = *var;
  alone.next = nullptr;
  orv_var *list = &alone;
  return orv_vars_changed(&list) != nullptr;
}

// What the device has; a default stands in the page as well.
static const char *value_before(const orv_var *var)
{
  return var->o_value != nullptr ? var->o_value : var->d_value;
}

static const char *old_value(const char *name, void *)
{
  const orv_var *var = orv_find_var(&cfg_vars, name, 0);
  return var != nullptr ? value_before(var) : nullptr;
}

static const char *new_value(const char *name, void *)
{
  const orv_var *var = orv_find_var(&cfg_vars, name, 0);
  if (var == nullptr) {
    return nullptr;
  }
  return is_changed(var) ? var->u_value : value_before(var);
}

// A hash goes by a name of its own, behind which stands the script's.
static const char *own_label(const char *name, void *)
{
  static const char prefix[] = "stored_";
  const size_t length = strlen(prefix);
  return strncmp(name, prefix, length) == 0 && page_find_item(name) == nullptr
             ? name + length
             : nullptr;
}

// Works out what is about to be saved, while the values are those that the
// write script gets: it may empty secrets.  False without memory.
static bool find_changes()
{
  static const orv_change_source source = {old_value, new_value, own_label,
                                           nullptr, nullptr};
  bool whole = orv_find_changes(body, &source, &changes);
  for (const orv_var *var = cfg_vars; var != nullptr && whole;
       var = var->next) {
    if (is_changed(var) && orv_is_secret_name(var->name) &&
        page_find_item(var->name) == nullptr) {
      whole = orv_find_change(var->name, &source, &changes);
    }
  }
  return whole;
}

// A save is whole or has not begun, whatever becomes of the terminal.
page_result page_submit(bool dry)
{
  forget_changes();
  post();
  orv_refusal why = orv_submit_rows();
  if (why != nullptr) {
    message = why;
    return draw() ? PAGE_AGAIN : PAGE_REFUSED;
  }
  const bool differs = orv_vars_changed(&cfg_vars) != nullptr;
  if (!orv_submit_is_due()) {
    return PAGE_UNCHANGED;
  }
  why = orv_submit_judge(hdr, body);
  if (why != nullptr) {
    return refuse(why);
  }
  has_changed = differs;
  if (!find_changes()) {
    return refuse("Out of memory");
  }
  why = dry ? nullptr : orv_submit_save(hdr);
  return why == nullptr && orv_error_msg == nullptr ? PAGE_SAVED : refuse(why);
}

// --- looking at it -----------------------------------------------------------

const pt_header *page_header(void)
{
  return hdr;
}

const pt_body_item *page_body(void)
{
  return body;
}

page_field *page_fields(void)
{
  return fields;
}

const pt_body_item *page_find_table(const char *name)
{
  const pt_body_item *itm = body;
  while (itm != nullptr && ((itm->type != PT_TABLE && itm->type != PT_FTABLE) ||
                            strcasecmp(itm->name, name) != 0)) {
    itm = itm->next;
  }
  return itm;
}

// Cells first: of a column "n" the rows are n0, n1 and so on.
const pt_body_item *page_find_item(const char *name)
{
  size_t stem = strlen(name);
  while (stem > 0 && name[stem - 1] >= '0' && name[stem - 1] <= '9') {
    stem--;
  }
  const pt_body_item *itm = body;
  while (itm != nullptr &&
         !(itm->column >= 0
               ? name[stem] != '\0' && strlen(itm->name) == stem &&
                     strncasecmp(itm->name, name, stem) == 0
               : itm->name != nullptr && strcasecmp(itm->name, name) == 0)) {
    itm = itm->next;
  }
  return itm;
}

// The body is ours; callers only look at it.
void page_offer_rows(const pt_body_item *of, int blank_rows)
{
  pt_body_item *itm = body;
  while (itm != of) {
    itm = itm->next;
  }
  itm->table.add_rows = blank_rows;
}

bool page_has_changed(void)
{
  return has_changed;
}

const orv_change *page_changes(void)
{
  return changes;
}

const pt_body_item *page_table_of(const pt_body_item *cell)
{
  const pt_body_item *table = nullptr;
  for (const pt_body_item *itm = body; itm != cell->next; itm = itm->next) {
    table = itm->type == PT_TABLE || itm->type == PT_FTABLE ? itm : table;
  }
  return table;
}

const page_link *page_links(void)
{
  return links;
}

const char *page_message(void)
{
  return message != nullptr ? message : "";
}

const char *page_value(const page_field *field)
{
  if (field->kind == FIELD_BOX) {
    return field->value != nullptr ? "True" : "False";
  }
  return field->value != nullptr ? field->value : "";
}
