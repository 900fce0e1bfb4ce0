// Completion: the words possible at the cursor, one row of a table for each
// place.  Keeps no state; asks the device again for each word.

#include "complete.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "change.h"
#include "orv.h"
#include "page.h"
#include "past.h"
#include "sitemap.h"

static const char PLAIN[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwx"
                            "yz0123456789_./-";

// A shell expands an offered word, and scripts take names from untrusted
// sources: only words that no shell expands are offered.
static bool is_plain(const char *word)
{
  return *word != '\0' && word[strspn(word, PLAIN)] == '\0';
}

static bool starts_with(const char *word, const char *start)
{
  return strncmp(word, start, strlen(start)) == 0;
}

void complete_offer(const char *typed, const char *word)
{
  if (is_plain(word) && starts_with(word, typed)) {
    puts(word);
  }
}

// --- fields and their values -------------------------------------------------

// The name stays as it was typed: its letter case is no matter, and the shell
// replaces the whole word.
static void offer_value(const char *typed, const char *equals,
                        const char *value)
{
  if (is_plain(value) && starts_with(value, equals + 1)) {
    printf("%.*s=%s\n", static_cast<int>(equals - typed), typed, value);
  }
}

static void offer_values(const char *typed, const page_field *field)
{
  const char *equals = strchr(typed, '=');
  if (field->kind == FIELD_BOX) {
    offer_value(typed, equals, "True");
    offer_value(typed, equals, "False");
    return;
  }
  const html_form_list_opt *choice =
      field->kind == FIELD_LIST ? field->item->choices.choices : nullptr;
  for (; choice != nullptr; choice = choice->next) {
    offer_value(typed, equals, choice->value != nullptr ? choice->value : "");
  }
}

static bool takes_value(const page_field *field)
{
  return field->kind == FIELD_TEXT || field->kind == FIELD_BOX ||
         field->kind == FIELD_LIST;
}

// "NAME=" of a field or, once that has been typed, its possible values.
static void offer_setting(const char *typed, const page_field *field,
                          const char *name)
{
  const size_t length = strcspn(typed, "=");
  if (!is_plain(name)) {
    return;
  }
  if (typed[length] == '=') {
    if (strncasecmp(name, typed, length) == 0 && name[length] == '\0') {
      offer_values(typed, field);
    }
  } else if (strncmp(name, typed, length) == 0) {
    printf("%s=\n", name);
  }
}

// --- places ------------------------------------------------------------------

static bool open_named(const char *name)
{
  site_page *page = sitemap_name(name);
  const bool opened =
      page != nullptr && page_open(page->form, page->subitem, false);
  sitemap_free(page);
  return opened;
}

// A command finds the fields of that view by itself, so they are offered, too.
static void show_expert_view()
{
  if (page_header()->expert_mode && orv_expert_mode == 0) {
    orv_expert_mode = 1;
    page_redraw();
  }
}

static void offer_forms(int count, char **words)
{
  site_page *pages = sitemap_read();
  for (const site_page *page = pages; page != nullptr; page = page->next) {
    complete_offer(words[count - 1], page->name);
  }
  sitemap_free(pages);
}

// Of `get`, which shows read-only fields as well.
static void offer_fields(int count, char **words)
{
  if (!open_named(words[1])) {
    return;
  }
  show_expert_view();
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    if (takes_value(field) || field->kind == FIELD_FIXED) {
      complete_offer(words[count - 1], field->name);
    }
  }
}

// Values typed before are set first, since one field may make another appear.
// The word being typed is none of them yet.
static void set_typed(int count, char **words)
{
  for (int i = 0; i < count; i++) {
    char *equals = strchr(words[i], '=');
    if (equals == nullptr) {
      continue;
    }
    *equals = '\0';
    page_field *field = page_find(words[i]);
    if (field != nullptr && page_choose(field, equals + 1) == nullptr) {
      page_redraw();
    }
  }
}

static void offer_settings(int count, char **words)
{
  if (!open_named(words[1])) {
    return;
  }
  show_expert_view();
  set_typed(count - 3, words + 2);
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    if (takes_value(field)) {
      offer_setting(words[count - 1], field, field->name);
    }
  }
}

// The cells of a table follow each other, so each table is met once.
static void offer_tables(int count, char **words)
{
  if (!open_named(words[1])) {
    return;
  }
  show_expert_view();
  const pt_body_item *last = nullptr;
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    const pt_body_item *table = field->row >= 0 && field->item != nullptr
                                    ? page_table_of(field->item)
                                    : last;
    if (table != last) {
      complete_offer(words[count - 1], table->name);
    }
    last = table;
  }
}

static void offer_verbs(int count, char **words)
{
  static const char *const verbs[] = {"add", "change", "delete"};
  for (const char *verb : verbs) {
    complete_offer(words[count - 1], verb);
  }
}

static const pt_body_item *open_table(char **words)
{
  if (!open_named(words[1])) {
    return nullptr;
  }
  show_expert_view();
  return page_find_table(words[2]);
}

static void offer_rows(int count, char **words)
{
  const pt_body_item *table = open_table(words);
  const int rows = table != nullptr ? change_count_rows(table) : 0;
  for (int row = 1; row <= rows; row++) {
    char number[12]; // an int
    snprintf(number, sizeof number, "%d", row);
    complete_offer(words[count - 1], number);
  }
}

static void offer_columns(const char *typed, const pt_body_item *table, int row)
{
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    if (takes_value(field) && field->row == row &&
        page_table_of(field->item) == table) {
      offer_setting(typed, field, field->item->name);
    }
  }
}

// Of the row that `add` would fill.
static void offer_new_cells(int count, char **words)
{
  const pt_body_item *table = open_table(words);
  if (table != nullptr) {
    offer_columns(words[count - 1], table, change_blank_row(table));
  }
}

static void offer_cells(int count, char **words)
{
  const pt_body_item *table = open_table(words);
  const long row = strtol(words[4], nullptr, 10);
  if (table != nullptr && row > 0 && row <= change_count_rows(table)) {
    offer_columns(words[count - 1], table, static_cast<int>(row - 1));
  }
}

static const char *number_typed; // borrowed: while saves are offered

static void offer_number(uint64_t number)
{
  char word[24]; // 64 bits
  snprintf(word, sizeof word, "%" PRIu64, number);
  complete_offer(number_typed, word);
}

static void offer_saves(int count, char **words)
{
  number_typed = words[count - 1];
  past_each_number(offer_number);
}

struct place {
  const char *command;
  const char *verb; // words[3], NULL: any
  int first, last;  // places of the word typed; -1: all later ones
  void (*offer)(int count, char **words);
};

// clang-format off
static const place places[] = {
  {"get",     nullptr,  1,  1, offer_forms},
  {"get",     nullptr,  2, -1, offer_fields},
  {"set",     nullptr,  1,  1, offer_forms},
  {"set",     nullptr,  2, -1, offer_settings},
  {"rows",    nullptr,  1,  1, offer_forms},
  {"rows",    nullptr,  2,  2, offer_tables},
  {"rows",    nullptr,  3,  3, offer_verbs},
  {"rows",    "add",    4, -1, offer_new_cells},
  {"rows",    "change", 4,  4, offer_rows},
  {"rows",    "change", 5, -1, offer_cells},
  {"rows",    "delete", 4, -1, offer_rows},
  {"dump",    nullptr,  1, -1, offer_forms},
  {"restore", nullptr,  1,  1, offer_saves},
  {"reset",   nullptr,  1,  1, offer_forms},
};
// clang-format on

// Rows with a verb begin at word 4, so words[3] is there.
void complete_words(int count, char **words)
{
  for (const place &row : places) {
    if (strcmp(row.command, words[0]) == 0 && count > row.first &&
        (row.last < 0 || count - 1 <= row.last) &&
        (row.verb == nullptr || strcmp(row.verb, words[3]) == 0)) {
      row.offer(count, words);
      return;
    }
  }
}
