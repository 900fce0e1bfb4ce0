// Values from standard input.  Owns the lines read until input_free, which
// overwrites them, as they may be secrets.

#include "stdin_value.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orv.h"
#include "page.h"
#include "report.h"

struct input_line {
  char *text;
  size_t size;
  input_line *next;
};

static input_line *lines; // owned

// explicit_bzero, since a compiler may leave out a memset before free.
void input_free(void)
{
  while (lines != nullptr) {
    input_line *next = lines->next;
    if (lines->text != nullptr) {
      explicit_bzero(lines->text, lines->size);
    }
    free(lines->text);
    free(lines);
    lines = next;
  }
}

// The next line, NULL when there is none or it holds a NUL byte.  Such a byte
// would cut a secret short without a word.
static const char *read_line()
{
  input_line *line = static_cast<input_line *>(must_malloc(sizeof *line));
  if (line == nullptr) {
    return nullptr;
  }
  *line = {nullptr, 0, lines};
  lines = line;
  const ssize_t got = getline(&line->text, &line->size, stdin);
  if (got < 0 || strlen(line->text) != static_cast<size_t>(got)) {
    return nullptr;
  }
  line->text[strcspn(line->text, "\n")] = '\0';
  return line->text;
}

// Whether users type the value of the field `name`.  For a list, "-" may be the
// value of an entry.
static bool is_typed(const char *name)
{
  const pt_body_item *itm = page_find_item(name);
  return itm != nullptr && itm->type == PT_TEXT_FIELD;
}

bool input_values(const char *form, wanted_value *values, size_t count)
{
  for (wanted_value *wanted = values; wanted < values + count; wanted++) {
    if (strcmp(wanted->value, "-") != 0 || !is_typed(wanted->name)) {
      continue;
    }
    wanted->value = read_line();
    if (wanted->value == nullptr) {
      report_fault(form, "\"%s\" expects a line on standard input",
                   wanted->name);
      return false;
    }
  }
  return true;
}
