// Drawing a page into a list of fields: which controls post, under which name,
// in which order, as a browser does it.
//
// Owns the fields and links of the open page; each drawing replaces them.

#include "page_draw.h"

#include <search.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "cgi_output.h"
#include "cgi_state.h"
#include "html_records.h"
#include "orv.h"
#include "orv_output.h"
#include "orv_vars.h"
#include "page.h"

static page_field *fields; // owned
static page_field **fields_end = &fields;
static void *field_tree; // the fields by name; the first of a name counts
static page_link *links; // owned
static page_link **links_end = &links;
static const pt_body_item *drawn_table; // that is being drawn, NULL outside
static int row;                         // of it, -1 outside
static bool out_of_memory; // while drawing: the list of fields is incomplete

// --- lists -------------------------------------------------------------------

// Names ignore letter case, as in the executable.
static int compare_fields(const void *a, const void *b)
{
  return strcasecmp(static_cast<const page_field *>(a)->name,
                    static_cast<const page_field *>(b)->name);
}

// The tree only borrows the fields: the list owns them.
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

// State is not in the tree, since no person can set it.  A name that is there
// already keeps its field there: a request takes the first of a name, too.
page_field *page_add_field(field_kind kind, const char *name, const char *value,
                           const pt_body_item *item)
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

// Without memory the link is left out: then the pages behind it are not found.
void page_add_link(const char *form, const char *target)
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
// The output procedures: they record fields and links, and show nothing.

static void draw_text(char *)
{
}

static void draw_comment(const char *, ...)
{
}

static void draw_item(pt_body_item *)
{
}

// A browser removes line ends from the value of a text field.
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

// A field without a value is drawn empty, and posts "".
static void draw_cell(pt_body_item *itm, char *name, char *varname, int fixed)
{
  const char *value = orv_get_var(&cfg_vars, varname, o_undefined);
  page_field *field = page_add_field(fixed != 0 ? FIELD_FIXED : FIELD_TEXT,
                                     name, value != nullptr ? value : "", itm);
  if (field != nullptr && field->value != nullptr) {
    strip_line_ends(field->value);
  }
}

static void draw_box_cell(pt_body_item *itm, char *name, char *varname)
{
  const bool ticked = cgiout_mark_checkbox(name, varname);
  page_add_field(FIELD_BOX, name, ticked ? "True" : nullptr, itm);
}

// A browser always posts a list: without a reported value, its first entry.
// The page notes that as the default, so that it does not count as a change.
static void draw_list_cell(pt_body_item *itm, char *name, char *varname)
{
  const html_form_list_opt *chosen = cgiout_mark_choice(itm, varname);
  if (chosen != nullptr) {
    char field[ORV_NAME_SIZE];
    cgiout_state_name(field, 'd', varname);
    page_add_field(FIELD_STATE, field, chosen->value, nullptr);
  }
  page_add_field(FIELD_LIST, name, chosen != nullptr ? chosen->value : nullptr,
                 itm);
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
    page_add_link(nullptr, choice->value);
  }
}

static void draw_menu_entry(pt_body_item *itm, char *select, char *, char *)
{
  page_add_link(itm->name, select);
}

// The row is counted where it ends, so cells, which are drawn before, have its
// number.
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
    page_add_field(FIELD_DELETE, name, nullptr, itm);
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

// In the order of pto_procs; what posts nothing and links to nothing has an
// empty procedure.
static const pto_procs field_procs = {
    draw_text, draw_text,    draw_text,       draw_text,      draw_text,
    draw_text, draw_comment, draw_forms_menu, draw_field,     draw_box,
    draw_list, draw_item,    draw_menu_entry, draw_item,      draw_table,
    draw_item, draw_cell,    draw_box_cell,   draw_list_cell,
};

// A browser posts these hidden fields unseen, so the next request needs them.
static void add_state(const char *name, const char *value)
{
  page_add_field(FIELD_STATE, name, value, nullptr);
}

bool page_draw(pt_body_item *body)
{
  page_free_fields();
  drawn_table = nullptr;
  row = -1;
  out_of_memory = false;
  orv_body_output(&field_procs, body, 0, nullptr);
  cgiout_variables(add_state);
  return !out_of_memory && !orv_vars_lost();
}

void page_free_fields(void)
{
  free_fields();
  free_links();
}

// --- finding fields ----------------------------------------------------------

// Fixed ones, too, so that setting one is refused as read-only, rather than as
// unknown.
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

page_field *page_fields(void)
{
  return fields;
}

const page_link *page_links(void)
{
  return links;
}
