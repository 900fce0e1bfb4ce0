// Reading a dump, whose text is split in place, and writing a value of one.

#include "dump_file.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include "change.h"
#include "orv.h"
#include "terminal.h"

static const char NO_MEMORY[] = "out of memory";

// Makes room for one more element behind the first `count`; zero-filled.
template <typename T> static T *grow(T **list, size_t *count)
{
  char *block = reinterpret_cast<char *>(*list);
  if (must_realloc(&block, (*count + 1) * sizeof **list) == 0) {
    return nullptr;
  }
  *list = reinterpret_cast<T *>(block);
  T *added = *list + *count;
  *added = {};
  (*count)++;
  return added;
}

void dump_free(dump_file *dump)
{
  for (size_t i = 0; i < dump->part_count; i++) {
    free(dump->parts[i].values);
    free(dump->parts[i].tables);
    free(dump->parts[i].secrets);
    free(dump->parts[i].skipped);
  }
  free(dump->parts);
  free(dump->text);
}

// Up to a NUL byte, which a text does not have: so this is all of it.
bool dump_read(FILE *fp, char **text)
{
  size_t size = 0;
  const ssize_t got = getdelim(text, &size, '\0', fp);
  if (got < 0) { // nothing to read, or no way to
    free(*text);
    *text = nullptr;
    return ferror(fp) == 0 && feof(fp) != 0;
  }
  return (*text)[got - 1] != '\0' && ferror(fp) == 0;
}

// The rest of the line behind `key`, NULL when it begins otherwise.
static char *behind(char *line, const char *key)
{
  const size_t length = strlen(key);
  return strncmp(line, key, length) == 0 ? line + length : nullptr;
}

// Small letters only, as dump_put_value writes them; other texts stay what they
// are.
static int hex_digit(char c)
{
  static const char digits[] = "0123456789abcdef";
  const char *found = c != '\0' ? strchr(digits, c) : nullptr;
  return found != nullptr ? static_cast<int>(found - digits) : -1;
}

// Undoes dump_put_value in place.  Not \x00, which would cut the value.
static void restore_value(char *value)
{
  char *out = value;
  for (const char *in = value; *in != '\0'; out++) {
    const int high = in[0] == '\\' && in[1] == 'x' ? hex_digit(in[2]) : -1;
    const int low = high >= 0 ? hex_digit(in[3]) : -1;
    if (low >= 0 && high + low > 0) {
      *out = static_cast<char>(high * 16 + low);
      in += 4;
    } else {
      *out = *in;
      in++;
    }
  }
  *out = '\0';
}

static const char *take_form(dump_file *dump, char *name, int number)
{
  dump_part *part = grow(&dump->parts, &dump->part_count);
  if (part == nullptr) {
    return NO_MEMORY;
  }
  part->page = name;
  part->line = number;
  return nullptr;
}

static const char *take_table(dump_part *part, char *rest, int at)
{
  char *number = strrchr(rest, ' ');
  if (number == nullptr || !isdigit(static_cast<unsigned char>(number[1]))) {
    return "a \"table\" line needs a name and a number of rows";
  }
  *number = '\0';
  dump_table *table = grow(&part->tables, &part->table_count);
  if (table == nullptr) {
    return NO_MEMORY;
  }
  *table = {rest, static_cast<int>(strtol(number + 1, nullptr, 10)), at};
  return nullptr;
}

static const char *take_value(wanted_value **list, size_t *count, char *line,
                              int number)
{
  char *equals = strchr(line, '=');
  if (equals == nullptr) {
    return "expected \"form\", \"table\" or NAME=VALUE";
  }
  *equals = '\0';
  restore_value(equals + 1);
  wanted_value *wanted = grow(list, count);
  if (wanted == nullptr) {
    return NO_MEMORY;
  }
  *wanted = {line, equals + 1, false, number};
  return nullptr;
}

static const char *take_skipped(dump_part *part, const char *name)
{
  const char **skipped = grow(&part->skipped, &part->skipped_count);
  if (skipped == nullptr) {
    return NO_MEMORY;
  }
  *skipped = name;
  return nullptr;
}

// Takes one line; NULL, or what is wrong with it.  Names that are not saved
// come first: to anybody else such a line is a comment.
static const char *take_line(dump_file *dump, char *line, int number)
{
  dump_part *part =
      dump->part_count > 0 ? dump->parts + dump->part_count - 1 : nullptr;
  char *rest = behind(line, DUMP_NOT_SAVED);
  if (rest != nullptr && part != nullptr) {
    return take_skipped(part, rest);
  }
  if (line[0] == '\0' || line[0] == '#') {
    return nullptr;
  }
  rest = behind(line, "form ");
  if (rest != nullptr) {
    return take_form(dump, rest, number);
  }
  if (part == nullptr) {
    return "a \"form\" line must come first";
  }
  rest = behind(line, "table ");
  if (rest != nullptr) {
    return take_table(part, rest, number);
  }
  rest = behind(line, DUMP_SECRET);
  return rest != nullptr
             ? take_value(&part->secrets, &part->secret_count, rest, number)
             : take_value(&part->values, &part->value_count, line, number);
}

const char *dump_parse(dump_file *dump, int *number)
{
  *number = 1;
  for (char *line = dump->text; line != nullptr; ++*number) {
    char *end = strchr(line, '\n');
    if (end != nullptr) {
      *end = '\0';
    }
    const char *fault = take_line(dump, line, *number);
    if (fault != nullptr) {
      return fault;
    }
    line = end != nullptr ? end + 1 : nullptr;
  }
  return nullptr;
}

void dump_put_value(FILE *out, const char *value)
{
  while (*value != '\0') {
    if (value[0] == '\\' && value[1] == 'x') {
      fputs("\\x5c", out);
      value++;
    } else if (value[0] == '\t') {
      putc('\t', out);
      value++;
    } else {
      value += terminal_char(out, value);
    }
  }
  putc('\n', out);
}
