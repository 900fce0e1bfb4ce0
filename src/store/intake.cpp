// The values that a form's page passes to its script.
//
// Owns the input, which is read once and lives as long as the process.  A value
// of the request is only text here: names are checked letter by letter, and
// lines that no page would write are skipped.

#include "intake.h"

#include <algorithm>
#include <errno.h>
#include <search.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "fault.h"
#include "form.h"
#include "orv.h"
#include "orv_limits.h"
#include "orv_vars.h"
#include "settings.h"
#include "store_text.h"

// A request has 4 MiB at most; the lines add some bytes to each value.
constexpr size_t INPUT_MAX = 8UL * 1024 * 1024;
constexpr size_t CHUNK = 64UL * 1024;
// Fields that the page carries although its template has none of those names,
// such as values that a read script reports for its own use.
constexpr size_t OTHERS_MAX = 1000;
constexpr size_t ROW_DIGITS = ORV_STORED_ROW_DIGITS;
constexpr size_t NAME_MAX_LENGTH = ORV_NAME_MAX; // pages cut longer ones
constexpr size_t VALUE_MAX = 999;                // more is never stored

// One line of the input.
struct posted_field {
  char *name;
  char *value;
};

static char *text;           // owned
static posted_field *fields; // owned; point into the text
static size_t count;
static bool ordered; // by name

static bool is_too_large()
{
  return store_fault(
      "The request has more fields than any page of this device");
}

// --- taking ------------------------------------------------------------------

static bool read_all(size_t *length)
{
  size_t size = 0;
  for (;;) {
    if (size - *length <= CHUNK) {
      size = 2 * size + 2 * CHUNK;
      if (must_realloc(&text, size) == 0) {
        return store_fault("Out of memory");
      }
    }
    const ssize_t got = read(STDIN_FILENO, text + *length, CHUNK);
    if (got < 0 && errno != EINTR) {
      return store_fault("The request cannot be read: %s", strerror(errno));
    }
    if (got == 0) {
      text[*length] = '\0';
      return true;
    }
    *length += got > 0 ? static_cast<size_t>(got) : 0;
    if (*length > INPUT_MAX) {
      return is_too_large();
    }
  }
}

// Turns a name into lower case; false when it is not a valid name.  Pages
// ignore letter case, so one name has to be found by any spelling.
static bool take_name(char *name, const char *end)
{
  if (name == end || static_cast<size_t>(end - name) > NAME_MAX_LENGTH) {
    return false;
  }
  for (char *c = name; c < end; c++) {
    if (*c >= 'A' && *c <= 'Z') {
      *c = static_cast<char>(*c - 'A' + 'a');
    }
    const bool fits =
        (*c >= 'a' && *c <= 'z') || (*c >= '0' && *c <= '9') || *c == '_';
    if (!fits) {
      return false;
    }
  }
  return true;
}

// Splits a line without its end; false when it has another format.  The
// shortest value is a pair of quotation marks.
static bool take_line(char *line, char *end, posted_field *one)
{
  static const char start[] = "new_";
  constexpr size_t START = sizeof start - 1;
  if (strncmp(line, start, START) != 0) {
    return false;
  }
  char *equals = strchr(line, '=');
  if (equals == nullptr || equals[1] != '"' || end - equals < 3 ||
      end[-1] != '"' || !take_name(line + START, equals)) {
    return false;
  }
  *equals = '\0';
  end[-1] = '\0';
  *one = {line + START, equals + 2};
  if (one->value[strspn(one->value, " \t")] == '\0') {
    one->value[0] = '\0'; // the checks pass a blank text as typed
  } else if (static_cast<size_t>(end - one->value) > VALUE_MAX) {
    one->value[VALUE_MAX] = '\0';
  }
  return true;
}

static bool make_fields(size_t length)
{
  size_t lines = 1;
  for (const char *c = text; c < text + length; c++) {
    lines += *c == '\n' ? 1 : 0;
  }
  fields = static_cast<posted_field *>(must_malloc(lines * sizeof *fields));
  return fields != nullptr || store_fault("Out of memory");
}

// No page sends a NUL byte: what follows it is skipped.
static void take_lines()
{
  for (char *line = text; line != nullptr;) {
    char *end = strchr(line, '\n');
    if (end != nullptr) {
      *end = '\0';
      count += take_line(line, end, fields + count) ? 1 : 0;
    }
    line = end != nullptr ? end + 1 : nullptr;
  }
}

static bool is_beyond_stored(const char *row)
{
  return strlen(row) > ROW_DIGITS ||
         strtol(row, nullptr, 10) >= ORV_STORED_ROWS_MAX;
}

// Only a large request is compared with its form, so most are not slowed down.
static bool is_of_form(const char *form)
{
  if (count <= OTHERS_MAX) {
    return true;
  }
  if (form == nullptr || !form_open(form)) {
    return is_too_large();
  }
  size_t others = 0;
  for (size_t i = 0; i < count; i++) {
    const char *name = fields[i].name;
    const bool is_beyond = is_beyond_stored(name + settings_column(name));
    others += form_has(name) && !is_beyond ? 0 : 1;
  }
  return others <= OTHERS_MAX || is_too_large();
}

bool intake_read(const char *form)
{
  size_t length = 0;
  if (!read_all(&length) || !make_fields(length)) {
    return false;
  }
  take_lines();
  return is_of_form(form);
}

int intake_count_rows()
{
  int rows = 0;
  for (size_t i = 0; i < count && rows < ORV_STORED_ROWS_MAX; i++) {
    const char *name = fields[i].name;
    rows = is_beyond_stored(name + settings_column(name))
               ? ORV_STORED_ROWS_MAX
               : std::max(rows, settings_row(name) + 1);
  }
  return rows;
}

// --- printing ----------------------------------------------------------------

static int compare_names(const void *a, const void *b)
{
  return strcmp(static_cast<const posted_field *>(a)->name,
                static_cast<const posted_field *>(b)->name);
}

static void order_fields()
{
  if (!ordered && count > 0) {
    qsort(fields, count, sizeof *fields, compare_names);
  }
  ordered = true;
}

const char *intake_get(const char *name)
{
  char key[NAME_MAX_LENGTH + 1];
  const size_t length = strnlen(name, NAME_MAX_LENGTH);
  for (size_t i = 0; i < length; i++) {
    const char c = name[i];
    key[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  key[length] = '\0';
  order_fields();
  const posted_field wanted = {key, nullptr};
  const void *found =
      count > 0 ? bsearch(&wanted, fields, count, sizeof *fields, compare_names)
                : nullptr;
  return found != nullptr ? static_cast<const posted_field *>(found)->value
                          : nullptr;
}

// Of two values with one name, the page may have checked the one and the script
// would store the other.
bool intake_is_clear(void)
{
  order_fields();
  for (size_t i = 1; i < count; i++) {
    if (strcmp(fields[i - 1].name, fields[i].name) == 0) {
      return store_fault("The request contains a name twice.");
    }
  }
  return true;
}

bool intake_write(FILE *out)
{
  if (!intake_is_clear()) {
    return false;
  }
  for (size_t i = 0; i < count; i++) {
    fprintf(out, "%s=%s\n", fields[i].name, fields[i].value);
  }
  return true;
}

// --- printing selected values ------------------------------------------------

// Takes the next word off, without the "#" of a column at its end; NULL after
// the last one.
static const char *next_word(char **words, bool *is_column)
{
  char *word = *words + strspn(*words, " ");
  char *end = word + strcspn(word, " ");
  *words = *end != '\0' ? end + 1 : end;
  *is_column = end > word + 1 && end[-1] == '#';
  *end = '\0';
  end[*is_column ? -1 : 0] = '\0';
  return word[0] != '\0' ? word : nullptr;
}

// Writes the value of `name`, "" for none; when it has a quotation mark, the
// name is added to those left out.
static void write_value(FILE *out, FILE *left_out, const char *name)
{
  const char *value = intake_get(name);
  if (value != nullptr && strchr(value, '"') != nullptr) {
    fprintf(left_out, " %s", name);
  } else if (value != nullptr) {
    fprintf(out, "%s=%s\n", name, value);
  }
}

static void write_cells(FILE *out, FILE *left_out, const char *column, int rows)
{
  char name[ORV_NAME_SIZE];
  for (int row = 0; row < rows; row++) {
    orv_cell_name(name, column, row);
    write_value(out, left_out, name);
  }
}

// Whether a row beyond those that can be stored has a value in the column.  Its
// blank rows count as none: a page may have drawn more than can be stored.
static bool goes_beyond(const char *column)
{
  const size_t length = strlen(column);
  for (size_t i = 0; i < count; i++) {
    const char *row = fields[i].name + settings_column(fields[i].name);
    if (is_beyond_stored(row) && row[0] != '0' && fields[i].value[0] != '\0' &&
        static_cast<size_t>(row - fields[i].name) == length &&
        strncasecmp(fields[i].name, column, length) == 0) {
      return true;
    }
  }
  return false;
}

static void write_wanted(FILE *beyond, FILE *left_out, FILE *values,
                         char *names)
{
  const int rows = intake_count_rows();
  bool is_column;
  for (const char *word = next_word(&names, &is_column); word != nullptr;
       word = next_word(&names, &is_column)) {
    if (!is_column) {
      write_value(values, left_out, word);
      continue;
    }
    write_cells(values, left_out, word, rows);
    if (goes_beyond(word)) {
      fprintf(beyond, " %s", word);
    }
  }
}

bool intake_write_wanted(FILE *out, char *names)
{
  store_text texts[3] = {};
  FILE *streams[3];
  bool whole = true;
  for (size_t i = 0; i < 3; i++) {
    streams[i] = store_open_text(texts + i);
    whole = whole && streams[i] != nullptr;
  }
  if (whole) {
    write_wanted(streams[0], streams[1], streams[2], names);
  }
  for (size_t i = 0; i < 3; i++) {
    whole = store_close_text(streams[i], texts + i) && whole;
    fprintf(out, i < 2 ? "%s \n" : "%s", whole ? texts[i].bytes : "");
    free(texts[i].bytes);
  }
  return whole;
}

void intake_forget(void)
{
  free(text);
  free(fields);
  text = nullptr;
  fields = nullptr;
  count = 0;
  ordered = false;
}
