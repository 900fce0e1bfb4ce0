// Accessibility of a control: attributes that give it a name, its error and
// hints for input, and texts for narrow screens.  They change nothing that is
// shown as text or posted.
//
// Owns what one page has drawn so far of errors: which control got the focus,
// and how much the cells' messages may still take.

#include "cgi_control.h"

#include <stdio.h>
#include <string.h>

#include "html.h"
#include "orv.h"
#include "orv_check.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_secret.h"
#include "orv_vars.h"

// A column's label, cut where it is longer than can be listened to, and its
// row.
constexpr int CONTROL_LABEL_MAX = 100;
constexpr size_t CONTROL_LABEL_SIZE = CONTROL_LABEL_MAX + 20;
// Messages repeated in cells: more than anybody scrolls through on a phone,
// where every cell of a long table may fail with a long value in its message.
constexpr size_t CELL_MESSAGES_MAX = 256UL * 1024;

// Zero at the start of the process, which draws one page.
static bool failure_focused;  // the first failing control has been drawn
static bool cell_has_message; // the cell in progress shows its column's error

// --- recorded errors ---------------------------------------------------------

const char *cgi_recorded_error(const pt_body_item *itm)
{
  const char *text = orv_get_var(&err_vars, itm->name, o_undefined);
  if (text == nullptr) {
    return nullptr;
  }
  text += strspn(text, " \t");
  return *text != '\0' ? text : nullptr;
}

void cgi_error_id(char (&id)[CONTROL_ID_SIZE], const pt_body_item *itm)
{
  snprintf(id, sizeof id, "e%d", itm->line_number);
}

// --- attributes --------------------------------------------------------------

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

const char *cgi_control_id(const pt_body_item *itm)
{
  static char id[CONTROL_ID_SIZE];
  snprintf(id, sizeof id, "i%d", itm->line_number);
  return id;
}

// The best accessible name of a control.  A field's label is expanded where it
// is shown; a second expansion would report its problems twice.  A column's is
// shown unexpanded.
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
static void add_name(control_attrs *list, const pt_body_item *itm,
                     const control_place &place)
{
  static char text[CONTROL_LABEL_SIZE];
  if (itm->column >= 0) {
    snprintf(text, sizeof text, "%.*s, row %u", CONTROL_LABEL_MAX,
             any_label(itm), place.row + 1);
    add_attr(list, ATTR_LABEL, text);
  } else if (place.labelled) {
    add_attr(list, ATTR_ID, cgi_control_id(itm));
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
  return cgi_recorded_error(itm) != nullptr ||
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
                            const char *varname, const control_place &place)
{
  static char id[CONTROL_ID_SIZE];
  const bool is_cell = itm->column >= 0;
  const bool failing = is_cell ? cell_fails(varname) : field_fails(itm);
  const bool has_error = cgi_recorded_error(itm) != nullptr &&
                         (failing || !is_cell || !orv_column_is_marked(itm));
  if (failing) {
    add_attr(list, ATTR_INVALID, "true");
  }
  if (has_error) {
    cgi_error_id(id, itm);
    add_attr(list, ATTR_DESCRIBEDBY, id);
    cell_has_message = is_cell && (failing || place.row == 0);
  }
  if ((failing || has_error) && !failure_focused &&
      itm->type != PT_TEXT_FIXED) {
    add_attr(list, ATTR_AUTOFOCUS, "autofocus");
    failure_focused = true;
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

html_attribute *cgi_control_help(const pt_body_item *itm, const char *varname,
                                 const control_place &place,
                                 html_attribute *tail)
{
  static control_attrs list;
  list.count = 0;
  add_name(&list, itm, place);
  add_error_state(&list, itm, varname, place);
  if (itm->type == PT_TEXT_FIELD) {
    add_input_hints(&list, itm);
  }
  list.attrs[list.count - 1].next = tail;
  return list.attrs;
}

// --- texts for narrow screens ------------------------------------------------
// Empty elements whose attribute the style sheet draws where the real text is
// too far away or cut, so nothing is shown or read out twice.

void cgi_narrow_text(const char *css_class, const char *text)
{
  html_attribute hidden = {"aria-hidden", "true", nullptr};
  html_attribute attr = {"data-text", text, &hidden};
  html_span_begin(css_class, &attr);
  html_span_end();
}

bool cgi_is_markup(const char *text)
{
  return text[0] == '$' && text[1] != '\0' && text[2] == '$';
}

// Drops the markup codes of `text`, in place; a break becomes a blank.
static void drop_markup(char *text)
{
  char *to = text;
  while (*text != '\0') {
    if (!cgi_is_markup(text)) {
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
  cgi_narrow_text("wrong", text);
}

void cgi_cell_message(const pt_body_item *column)
{
  const char *recorded = cgi_recorded_error(column);
  if (cell_has_message && recorded != nullptr) {
    draw_cell_message(recorded);
  }
  cell_has_message = false;
}
