// A page of the device without a browser: opening it, posting it.
//
// Owns the open page: its header and body.  The variable lists are used as a
// request uses them, emptied and filled again by each.  What is drawn, which
// values are valid and what scripts get is decided by the same code as for a
// browser; this file only does what a browser does when it posts.

#include "page.h"

#include <search.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "cgi_navbar.h"
#include "cgi_output.h"
#include "html_records.h"
#include "orv.h"
#include "orv_changes.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_output.h"
#include "orv_secret.h"
#include "orv_submit.h"
#include "orv_vars.h"
#include "page_draw.h"

static pt_header *hdr;      // owned: the form shown
static pt_body_item *body;  // owned: its items
static orv_change *changes; // owned: of the last Submit
static bool has_changed;    // the same in one word
static const char *message; // borrowed: the page's, NULL when none
static char *told;          // owned: what a script said, for `message`

// --- opening and closing -----------------------------------------------------

// Draws the body that has been parsed.
static bool draw()
{
  if (!page_draw(body)) {
    message = "Out of memory";
    return false;
  }
  return true;
}

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

// A box or a list is none, whatever its name: what can be chosen in it is no
// secret, and it is drawn openly.
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
  page_free_fields();
  page_free_refusal();
}

// Makes a script's message, which may hold markup, that of the page.
static void take_told(const char *text)
{
  free(told);
  told = orv_plain_text(text);
  message = told != nullptr ? told : text;
}

// Whether the read script has refused the page: there is no such sub-item, or
// its settings cannot be read.  Its message is then that of the page.
static bool is_refused()
{
  const char *msg = orv_get_var(&err_vars, "msg", o_undefined);
  if (msg == nullptr &&
      orv_get_var(&err_vars, "fatal", o_undefined) == nullptr) {
    return false;
  }
  take_told(msg != nullptr ? msg : "The read script reports no such page");
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
// Form and sub-item stand in a page_link as in a menu, with a slash between
// them.
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
    page_add_link(nullptr, target);
  }
  orv_error_msg = nullptr; // a page without a bar is a page all the same
}

// Names are judged as in a request, since they become parts of paths and of
// script lines.  Where only links are wanted, a page counts even if its script
// reports an error: its bar leads on all the same.
bool page_open(const char *form, const char *subitem, bool with_links)
{
  page_close();
  if (page_field_fault("form", form) != nullptr) {
    message = "This is not a valid name of a form";
    return false;
  }
  if (subitem != nullptr && page_field_fault("subitem", subitem) != nullptr) {
    message = "This is not a valid name of a sub-item";
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
    return is_refused() ? false : fail("The form's read script failed.");
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

// --- posting -----------------------------------------------------------------

// A browser posts neither what is only shown nor a box that is not ticked.
static bool is_posted(const page_field *field)
{
  return field->kind != FIELD_FIXED && field->value != nullptr;
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
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    if (is_posted(field) &&
        (orv_var_prefix(field->name) != o_undefined) == tagged &&
        is_first(field->name, &names)) {
      orv_set_var(field->name, tagged ? o_undefined : o_best, field->value, 0);
    }
  }
  tdestroy(names, [](void *) {}); // the names are the fields'
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

// orv_vars_changed tells the first of a list, so each is put into a list of its
// own.
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

// Computes what is about to be saved, while the values are those that the write
// script gets: it may clear secrets.  False when memory ran out.  A hash that a
// dump brings back has no item on the page, so it is found by its name.
static bool find_changes()
{
  static const orv_change_source source = {old_value, new_value, own_label,
                                           nullptr,   nullptr,   nullptr};
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

// A save is complete or has not begun, whatever happens to the terminal.  The
// steps have the order of a request (cgi_main.cpp).
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

// A cell does not know its table: that is the last one before it.
const pt_body_item *page_table_of(const pt_body_item *cell)
{
  const pt_body_item *table = nullptr;
  for (const pt_body_item *itm = body; itm != cell->next; itm = itm->next) {
    table = itm->type == PT_TABLE || itm->type == PT_FTABLE ? itm : table;
  }
  return table;
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
