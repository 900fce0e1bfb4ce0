// Suggestions for a name that does not exist.  Keeps no state.

#include "suggest.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "orv.h"
#include "orv_guard.h"
#include "page.h"
#include "report.h"
#include "sitemap.h"

constexpr size_t NAMES_MAX = 200; // more are no help

// --- the nearest name --------------------------------------------------------

static bool same_letter(char a, char b)
{
  return tolower(static_cast<unsigned char>(a)) ==
         tolower(static_cast<unsigned char>(b));
}

static size_t smallest(size_t a, size_t b, size_t c)
{
  const size_t least = a < b ? a : b;
  return least < c ? least : c;
}

// How many letters have to be typed, left out, replaced or swapped with their
// neighbour to make one name of the other; letter case is no difference.  (The
// optimal string alignment distance: neighbours swapped are one slip of the
// fingers, not two.)
static size_t distance_of(const char *a, const char *b)
{
  const size_t rows = strnlen(a, SUGGEST_SIZE - 1);
  const size_t columns = strnlen(b, SUGGEST_SIZE - 1);
  size_t steps[SUGGEST_SIZE][SUGGEST_SIZE];
  for (size_t i = 0; i <= rows; i++) {
    for (size_t j = 0; j <= columns; j++) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const size_t replaced =
          steps[i - 1][j - 1] + (same_letter(a[i - 1], b[j - 1]) ? 0 : 1);
      steps[i][j] =
          smallest(steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced);
      if (i > 1 && j > 1 && same_letter(a[i - 1], b[j - 2]) &&
          same_letter(a[i - 2], b[j - 1]) &&
          steps[i - 2][j - 2] + 1 < steps[i][j]) {
        steps[i][j] = steps[i - 2][j - 2] + 1;
      }
    }
  }
  return steps[rows][columns];
}

// Without memory for the list the nearest name is lost as well: the message
// stands without a suggestion.
void suggest_begin(suggestion *of, const char *wanted)
{
  *of = {};
  of->wanted = wanted;
  // A third of the letters may be wrong.
  of->distance = strnlen(wanted, SUGGEST_SIZE) / 3 + 1;
  of->stream = open_memstream(&of->list, &of->size);
}

// Of names that are equally near the first is kept: it is the first on the
// page.
void suggest_name(suggestion *of, const char *name)
{
  const size_t distance = distance_of(of->wanted, name);
  if (distance < of->distance) {
    of->distance = distance;
    snprintf(of->nearest, sizeof of->nearest, "%s", name);
  }
  of->names++;
  if (of->stream != nullptr && of->names <= NAMES_MAX) {
    fprintf(of->stream, " %s", name);
  }
}

char *suggest_end(suggestion *of, const char *words)
{
  if (of->stream == nullptr || fclose(of->stream) != 0) {
    return nullptr;
  }
  const owned_text list(of->list);
  const bool near = of->nearest[0] != '\0';
  char *text = nullptr;
  const int length = asprintf(
      &text, "%s%s%s; %s:%s%s", near ? " (did you mean \"" : "", of->nearest,
      near ? "\"?)" : "", words, of->names > 0 ? list.get() : " none",
      of->names > NAMES_MAX ? " ..." : "");
  return length >= 0 ? text : nullptr;
}

// --- what is unknown ---------------------------------------------------------

static const char THERE_ARE[] = "there are";

// Reports `text` with `name` in place of its %s, and what there is.  The text
// is taken apart here, as a format that is no literal would escape the
// compiler's checks.
static void tell(const char *form, const char *text, const char *name,
                 suggestion *of)
{
  const owned_text there(of != nullptr ? suggest_end(of, THERE_ARE) : nullptr);
  const size_t before = strcspn(text, "%");
  report_fault(form, "%.*s%s%s%s", static_cast<int>(before), text, name,
               text + before + strlen("%s"),
               there != nullptr ? there.get() : "");
}

// A name in the template is no typing error: its field is hidden, or its row
// does not exist.
void unknown_field(const char *form, const char *text, const char *name)
{
  if (page_find_item(name) != nullptr) {
    tell(form, text, name, nullptr);
    return;
  }
  suggestion of;
  suggest_begin(&of, name);
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    // Rows have the same fields.
    if (field->kind != FIELD_STATE && field->kind != FIELD_DELETE &&
        field->row < 1) {
      suggest_name(&of, field->name);
    }
  }
  tell(form, text, name, &of);
}

void unknown_table(const char *form, const char *name)
{
  suggestion of;
  suggest_begin(&of, name);
  for (const pt_body_item *itm = page_body(); itm != nullptr; itm = itm->next) {
    if (itm->type == PT_TABLE || itm->type == PT_FTABLE) {
      suggest_name(&of, itm->name);
    }
  }
  tell(form, "has no such table \"%s\"", name, &of);
}

void unknown_column(const char *form, const pt_body_item *table,
                    const char *name)
{
  suggestion of;
  suggest_begin(&of, name);
  const pt_body_item *cell = table->next;
  for (int i = 0; i < table->table.columns && cell != nullptr; i++) {
    suggest_name(&of, cell->name);
    cell = cell->next;
  }
  tell(form, "the table has no column \"%s\"", name, &of);
}

// A page that cannot be opened for another reason exists all the same.
void unopened_form(const char *name)
{
  if (page_header() != nullptr) {
    report_failure(name, page_message());
    return;
  }
  const owned_text why(must_strdup(page_message())); // the other pages have one
  site_page *pages = sitemap_read();
  suggestion of;
  suggest_begin(&of, name);
  bool known = false;
  for (const site_page *page = pages; page != nullptr; page = page->next) {
    known |= strcmp(page->name, name) == 0;
    if (page->title != nullptr) {
      suggest_name(&of, page->name);
    }
  }
  sitemap_free(pages);
  const owned_text there(suggest_end(&of, THERE_ARE));
  report_fault(name, "%s%s", why != nullptr ? why.get() : "",
               !known && there != nullptr ? there.get() : "");
}
