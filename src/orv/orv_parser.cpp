// The body of a template: tables of keywords and the functions that take what
// stands behind them.
//
// Every failure is reported where it is found; the parse then releases all
// that it has built and returns NULL.  Nothing here knows what a form means:
// names are not looked up, conditions not paired, checks not named.

#include "orv_parser.h"

#include <algorithm>
#include <iterator>
#include <stdlib.h>
#include <string.h>

#include "orv.h"
#include "orv_error.h"
#include "orv_limits.h"
#include "orv_template.h"

static bool choice_lost; // for lack of memory, since iselect_setup

// --- choices -----------------------------------------------------------------

static int add_choice(pt_choices *choices, const char *value, const char *text)
{
  html_form_list_opt *node =
      static_cast<html_form_list_opt *>(must_malloc(sizeof *node));
  if (node == nullptr) {
    return 0;
  }
  memset(node, 0, sizeof *node);
  node->value = tpl_expand(value);
  node->label = tpl_expand(text);
  if (choices->last != nullptr) {
    choices->last->next = node;
  } else {
    choices->choices = node;
  }
  choices->last = node;
  choices->width = std::max(choices->width, static_cast<int>(strlen(text)));
  return node->value != nullptr && node->label != nullptr ? 1 : 0;
}

static void free_choices(pt_choices *choices)
{
  if (choices == nullptr) {
    return;
  }
  html_form_list_opt *node = choices->choices;
  while (node != nullptr) {
    html_form_list_opt *next = node->next;
    free(node->label);
    free(node->value);
    free(node);
    node = next;
  }
  choices->choices = nullptr;
  choices->last = nullptr;
}

void iselect_setup(pt_body_item *itm)
{
  free_choices(&itm->choices);
  choice_lost = false;
}

// A list that lacks a choice would post another one in its place; an empty one
// posts nothing, and the variable stays as it is.
void iselect_entry(pt_body_item *itm, char *var, char *, char *text)
{
  if (!choice_lost && add_choice(&itm->choices, var, text) == 0) {
    free_choices(&itm->choices);
    choice_lost = true;
  }
}

// --- body items --------------------------------------------------------------

// One parse of a body.
struct body_state {
  pt_header *hdr;
  pt_body_item *first;
  pt_body_item *current;
  bool allow_attributes; // the current item is an input item
  int collecting_table;  // cells that the table still lacks
  int column;            // of the next cell
};

struct item_keyword {
  const char *keyword;
  pt_type type;
  bool cell;         // may, and inside a table must, be a table's cell
  bool attributes;   // attribute lines may follow
  bool input;        // the form has something to submit
  signed char words; // used behind the keyword, or PT_ALL_WORDS
  bool (*take)(body_state *body, pt_body_item *itm);
};

// Reports a fault of the pending line; false, so that it can be returned.
static bool bad_line(pt_fault_code code, const char *fault)
{
  orv_fatal("orv_parse_body: line %d. %s", tpl_location()->line_number, fault);
  return tpl_refuse(code);
}

static bool take_nothing(body_state *, pt_body_item *)
{
  tpl_line_used();
  return true;
}

static bool take_text(body_state *body, pt_body_item *itm)
{
  return tpl_take_text(body->hdr, &itm->text) != 0;
}

static bool take_oneline(body_state *, pt_body_item *itm)
{
  itm->text.txt = tpl_take_line();
  return itm->text.txt != nullptr;
}

static bool set_name(pt_body_item *itm, const char *name)
{
  if (name[0] == '\0') {
    return bad_line(PT_NO_NAME, "Item must have a name");
  }
  itm->name = must_strdup(name);
  return itm->name != nullptr;
}

// Takes the item's name; `*rest` receives what follows it, or NULL.
static bool take_two(pt_body_item *itm, char **rest)
{
  char *name = nullptr;
  tpl_two_words(&name, rest);
  tpl_line_used();
  return set_name(itm, name);
}

static bool take_name(body_state *, pt_body_item *itm)
{
  char *ignored = nullptr;
  return take_two(itm, &ignored);
}

static bool take_field(body_state *, pt_body_item *itm)
{
  char *width = nullptr;
  if (!take_two(itm, &width)) {
    return false;
  }
  if (width == nullptr) {
    return true;
  }
  itm->field.width = tpl_leading_number(width);
  return itm->field.width >= 1 || bad_line(PT_BAD_WIDTH, "Bad field width");
}

static bool take_selector(body_state *, pt_body_item *itm)
{
  char *selector = nullptr;
  if (!take_two(itm, &selector)) {
    return false;
  }
  itm->selector = must_strdup(selector != nullptr ? selector : itm->name);
  return itm->selector != nullptr;
}

// Name and columns; `*rows` receives the text of the row count or NULL.
static bool take_columns(body_state *body, pt_body_item *itm, char **rows)
{
  char *name = nullptr;
  char *columns = nullptr;
  tpl_three_words(&name, &columns, rows);
  tpl_line_used();
  if (!set_name(itm, name)) {
    return false;
  }
  const int count = columns != nullptr ? tpl_leading_number(columns) : 0;
  if (count < 1 || count > ORV_COLUMNS_MAX) {
    return bad_line(PT_BAD_COLUMNS, "Bad column number");
  }
  itm->table.columns = count;
  body->collecting_table = count;
  body->column = 0;
  return true;
}

static bool take_table(body_state *body, pt_body_item *itm)
{
  char *rows = nullptr;
  if (!take_columns(body, itm, &rows)) {
    return false;
  }
  const int count = rows != nullptr ? tpl_leading_number(rows) : 0;
  itm->table.add_rows = count > 0 ? count : 1;
  return true;
}

static bool take_ftable(body_state *body, pt_body_item *itm)
{
  char *rows = nullptr;
  if (!take_columns(body, itm, &rows)) {
    return false;
  }
  const int count = rows != nullptr ? tpl_leading_number(rows) : 0;
  if (count < 0) {
    return bad_line(PT_BAD_ROWS, "Bad number of rows");
  }
  itm->table.fixed_rows = count;
  return true;
}

// clang-format off
constexpr signed char ALL = PT_ALL_WORDS;
static const item_keyword item_keywords[] = {
  // keyword    type            cell   attr.  input  words parameter
  {"text",     PT_TEXT,        false, false, false, ALL,take_text},
  {"help",     PT_HELP_TEXT,   false, false, false, ALL,take_text},
  {"error",    PT_ERROR_TEXT,  false, false, false, ALL,take_text},
  {"center",   PT_HEADING_CTR, false, false, false, ALL,take_oneline},
  {"centre",   PT_HEADING_CTR, false, false, false, ALL,take_oneline},
  {"heading",  PT_HEADING_H1,  false, false, false, ALL,take_oneline},
  {"heading2", PT_HEADING_H2,  false, false, false, ALL,take_oneline},
  {"field",    PT_TEXT_FIELD,  true,  true,  true,  2,  take_field},
  {"fixed",    PT_TEXT_FIXED,  true,  true,  true,  2,  take_field},
  {"select",   PT_SELECT,      true,  true,  true,  1,  take_name},
  {"checkbox", PT_CHECKBOX,    true,  true,  true,  1,  take_name},
  {"iselect",  PT_ISELECT,     false, true,  true,  2,  take_selector},
  {"imenu",    PT_IMENU,       false, true,  false, 2,  take_selector},
  {"fmenu",    PT_FORMS_MENU,  false, true,  false, 0,  take_nothing},
  {"table",    PT_TABLE,       false, false, false, 3,  take_table},
  {"ftable",   PT_FTABLE,      false, false, false, 3,  take_ftable},
  {"if",       PT_IF,          false, false, false, ALL,take_oneline},
  {"ifnot",    PT_IFNOT,       false, false, false, ALL,take_oneline},
  {"else",     PT_ELSE,        false, false, false, 0,  take_nothing},
  {"endif",    PT_ENDIF,       false, false, false, 0,  take_nothing},
};
// clang-format on

// A cleared item at the end of the list, NULL when memory ran out.
static pt_body_item *append_item(body_state *body, const item_keyword &row)
{
  pt_body_item *itm = static_cast<pt_body_item *>(must_malloc(sizeof *itm));
  if (itm == nullptr) {
    return nullptr;
  }
  memset(itm, 0, sizeof *itm);
  itm->type = row.type;
  itm->line_number = tpl_location()->line_number;
  itm->column = -1;
  if (body->current != nullptr) {
    body->current->next = itm;
  } else {
    body->first = itm;
  }
  body->current = itm;
  body->allow_attributes = row.attributes;
  return itm;
}

static bool take_item(body_state *body, const item_keyword &row)
{
  if (!row.cell && body->collecting_table != 0) {
    return bad_line(PT_NOT_IN_TABLE, "Item not allowed in table");
  }
  pt_body_item *itm = append_item(body, row);
  if (itm == nullptr || !row.take(body, itm)) {
    return false;
  }
  if (row.cell && body->collecting_table != 0) {
    itm->column = body->column++;
    body->collecting_table--;
  }
  if (row.input) {
    body->hdr->has_input_fields = 1;
  }
  return true;
}

// --- lines that add to the current item --------------------------------------

struct line_keyword {
  const char *keyword;
  bool (*take)(body_state *body, const line_keyword &row);
  char *pt_body_item::*text;
};

// Reports an attribute that cannot be set; false, so that it can be returned.
static bool bad_attribute(pt_fault_code code, const char *attribute,
                          const char *fault)
{
  orv_fatal("orv_parse_body: line %d. Attribute %s %s",
            tpl_location()->line_number, attribute, fault);
  return tpl_refuse(code);
}

static bool may_have(const body_state *body, const char *attribute)
{
  return body->allow_attributes ||
         bad_attribute(PT_MISPLACED, attribute, "not allowed");
}

static bool is_unset(const char *present, const char *attribute)
{
  return present == nullptr ||
         bad_attribute(PT_SET_TWICE, attribute, "already set");
}

static bool is_field(const body_state *body)
{
  return body->current != nullptr && body->current->type == PT_TEXT_FIELD;
}

static bool take_attribute(body_state *body, const line_keyword &row)
{
  if (!may_have(body, row.keyword) ||
      !is_unset(body->current->*row.text, row.keyword)) {
    return false;
  }
  body->current->*row.text = tpl_take_line();
  return body->current->*row.text != nullptr;
}

static bool take_label(body_state *body, const line_keyword &row)
{
  if (!take_attribute(body, row)) {
    return false;
  }
  const int length = static_cast<int>(strlen(body->current->label));
  body->hdr->llabel_max = std::max(body->hdr->llabel_max, length);
  return true;
}

static bool take_item_help(body_state *body, const line_keyword &row)
{
  return may_have(body, row.keyword) &&
         is_unset(body->current->help.txt, row.keyword) &&
         tpl_take_text(body->hdr, &body->current->help) != 0;
}

static bool take_check(body_state *body, const line_keyword &row)
{
  if (!is_field(body)) {
    return bad_line(PT_MISPLACED, "Can only set check for text field entries");
  }
  char **check = &body->current->field.check;
  if (!may_have(body, row.keyword) || !is_unset(*check, row.keyword)) {
    return false;
  }
  *check = tpl_take_line();
  return *check != nullptr;
}

static bool copy_attribute(const body_state *body, char **to, const char *text,
                           const char *attribute)
{
  if (!may_have(body, attribute) || !is_unset(*to, attribute)) {
    return false;
  }
  *to = must_strdup(text);
  return *to != nullptr;
}

static bool take_check_msg(body_state *body, const line_keyword &)
{
  if (!is_field(body)) {
    return bad_line(PT_MISPLACED,
                    "Can only set check_msg for text field entries");
  }
  char *label = nullptr;
  char *message = nullptr;
  tpl_two_words(&label, &message);
  tpl_line_used();
  pt_field *field = &body->current->field;
  if (!copy_attribute(body, &field->check_label, label, "check_label")) {
    return false;
  }
  return message == nullptr ||
         copy_attribute(body, &field->check_msg, message, "check_message");
}

static bool take_choice(body_state *body, const line_keyword &)
{
  pt_body_item *itm = body->current;
  if (itm == nullptr ||
      (itm->type != PT_SELECT && itm->type != PT_FORMS_MENU)) {
    return bad_line(PT_MISPLACED, "Choice not allowed here");
  }
  char *value = nullptr;
  char *text = nullptr;
  tpl_two_words(&value, &text);
  tpl_line_used();
  if (text == nullptr) {
    return bad_line(PT_NO_CHOICE_TEXT,
                    "Choice requires selector and description");
  }
  return add_choice(&itm->choices, value, text) != 0 ||
         bad_line(PT_NO_MEMORY, "Out of memory adding choice");
}

// A line that older templates carry; it means nothing here.
static bool take_part(body_state *, const line_keyword &)
{
  tpl_line_used();
  return true;
}

// clang-format off
static const line_keyword line_keywords[] = {
  {"choice",    take_choice,    nullptr},
  {"label",     take_label,     &pt_body_item::label},
  {"rlabel",    take_attribute, &pt_body_item::rlabel},
  {"prompt",    take_attribute, &pt_body_item::prompt},
  {"value",     take_attribute, &pt_body_item::value},
  {"check",     take_check,     nullptr},
  {"check_msg", take_check_msg, nullptr},
  {"item_help", take_item_help, nullptr},
  {"part",      take_part,      nullptr},
};
// clang-format on

// --- keywords for others -----------------------------------------------------

static bool item_row(size_t index, pt_keyword *keyword)
{
  constexpr size_t rows = std::size(item_keywords);
  if (index >= rows) {
    return false;
  }
  const item_keyword &row = item_keywords[index];
  *keyword = {
      row.keyword, PT_ITEM_LINE,   row.type,  row.words, row.take == take_text,
      row.cell,    row.attributes, row.input, nullptr};
  return true;
}

static bool line_row(size_t index, pt_keyword *keyword)
{
  constexpr size_t rows = std::size(line_keywords);
  if (index >= rows) {
    return false;
  }
  const line_keyword &row = line_keywords[index];
  *keyword = {row.keyword,
              PT_ATTRIBUTE_LINE,
              PT_TEXT,
              PT_ALL_WORDS,
              row.take == take_item_help,
              false,
              false,
              false,
              nullptr};
  return true;
}

bool orv_keyword(size_t index, pt_keyword *keyword)
{
  const size_t headers = pt_count_header_keywords();
  constexpr size_t items = std::size(item_keywords);
  return pt_header_keyword(index, keyword) ||
         (index >= headers && item_row(index - headers, keyword)) ||
         (index >= headers + items &&
          line_row(index - headers - items, keyword));
}

// --- the body ----------------------------------------------------------------

static bool take_line(body_state *body)
{
  const item_keyword *item = tpl_find_keyword(item_keywords);
  if (item != nullptr) {
    return take_item(body, *item);
  }
  const line_keyword *line = tpl_find_keyword(line_keywords);
  if (line != nullptr) {
    return line->take(body, *line);
  }
  orv_fatal("orv_parse_body: unknown keyword line %d \"%s\"",
            tpl_location()->line_number, tpl_line());
  return tpl_refuse(PT_UNKNOWN_BODY_KEYWORD);
}

static bool parse_body_lines(body_state *body)
{
  while (tpl_next_keyword(body->hdr) != 0) {
    if (!take_line(body)) {
      return false;
    }
  }
  // The fields behind would be saved without their checks.
  if (ferror(body->hdr->fp) != 0) {
    orv_fatal("orv_parse_body: failed to read the template");
    return tpl_refuse(PT_READ_FAILED);
  }
  if (body->collecting_table != 0) {
    orv_fatal("orv_parse_body: Too few items for table."
              "%d remain to be collected",
              body->collecting_table);
    return tpl_refuse(PT_TABLE_TOO_SHORT);
  }
  return true;
}

pt_body_item *orv_parse_body(pt_header *hdr)
{
  hdr->has_input_fields = 0;
  orv_parser_fault = {PT_NO_FAULT, 0};
  if (tpl_fast_forward(hdr, "body", &hdr->start_body) == 0) {
    orv_fatal("orv_parse_body: failed to locate body keyword");
    tpl_refuse(PT_NO_BODY);
    return nullptr;
  }
  if (tpl_next_keyword(hdr) == 0 || tpl_match_keyword("body") == 0) {
    orv_fatal("orv_parse_body: unexpected keyword for body");
    tpl_refuse(PT_NO_BODY);
    return nullptr;
  }
  tpl_line_used();
  hdr->llabel_max = 0;
  body_state body = {hdr, nullptr, nullptr, false, 0, 0};
  if (!parse_body_lines(&body)) {
    orv_free_body(body.first);
    return nullptr;
  }
  return body.first;
}

// Releases what the item's kind keeps in the union.
static void free_content(pt_body_item *itm)
{
  switch (itm->type) {
  case PT_TEXT:
  case PT_HELP_TEXT:
  case PT_ERROR_TEXT:
  case PT_HEADING_CTR:
  case PT_HEADING_H1:
  case PT_HEADING_H2:
  case PT_IF:
  case PT_IFNOT:
    free(itm->text.txt);
    break;
  case PT_TEXT_FIELD:
    free(itm->field.check);
    free(itm->field.check_msg);
    free(itm->field.check_label);
    break;
  case PT_CHECKBOX:
  case PT_SELECT:
  case PT_ISELECT:
  case PT_FORMS_MENU:
    free_choices(&itm->choices);
    break;
  case PT_TEXT_FIXED:
  case PT_IMENU:
  case PT_TABLE:
  case PT_FTABLE:
  case PT_ELSE:
  case PT_ENDIF:
    break;
  }
}

void orv_free_body(pt_body_item *list)
{
  while (list != nullptr) {
    pt_body_item *itm = list;
    list = itm->next;
    free(itm->name);
    free(itm->label);
    free(itm->rlabel);
    free(itm->prompt);
    free(itm->help.txt);
    free(itm->value);
    free(itm->selector);
    free_content(itm);
    free(itm);
  }
}
