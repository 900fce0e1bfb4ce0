// A save.
//
// Owns the order at hand for the life of the process.  All of it is judged
// before the first byte is written.  What changed is worked out from the files
// themselves, so that it is what the device had and has.

#include "save.h"

#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "form.h"
#include "guard.h"
#include "orv.h"
#include "orv_changes.h"
#include "orv_guard.h"
#include "orv_secret.h"
#include "settings.h"
#include "text.h"

// What it makes can be read again: a file has 4 MiB at most.
constexpr size_t ORDER_MAX = 3UL * 1024 * 1024;
constexpr size_t FILES_MAX = 64; // of one save
constexpr size_t WORDS_MAX = 256; // secrets, labels and columns of one save
// What a page's line of 249 bytes can show again, with = and two quotes.
constexpr size_t LINE_MAX = 246;
constexpr size_t OWNER_MAX = 40;
constexpr size_t PAGE_LINE_MAX = 210; // bytes of one, dollars three times
constexpr size_t LABEL_TEXT_MAX = 50;
constexpr size_t VALUE_TEXT_MAX = 60;

// One file of the order.
struct save_file {
  const char *name;
  settings before;
  settings after; // number and owner are not used
};

// A name and, of a label, its text.
struct word {
  const char *name;
  const char *text;
};

struct word_list {
  word list[WORDS_MAX];
  size_t count;
};

static char *text;        // owned: the order
static save_file files[FILES_MAX];
static size_t file_count;
static word_list secrets;
static word_list labels;
static word_list columns; // of tables, without their rows' numbers
static const char *owner = "-";
static unsigned guard_seconds; // 0: the change stays
static bool guard_has_command;

// --- the order ---------------------------------------------------------------

static bool add_word(word_list *words, const char *name, const char *more)
{
  if (words->count == WORDS_MAX) {
    return store_fault("Nothing was saved: the script names too many values");
  }
  words->list[words->count] = {name, more};
  words->count++;
  return true;
}

static const word *find_word(const word_list *words, const char *name,
                             size_t length)
{
  for (const word *one = words->list; one < words->list + words->count; one++) {
    if (strncmp(one->name, name, length) == 0 && one->name[length] == '\0') {
      return one;
    }
  }
  return nullptr;
}

static bool take_secret(char *name)
{
  return add_word(&secrets, name, nullptr);
}

static bool take_label(char *line)
{
  char *equals = strchr(line, '=');
  if (equals == nullptr) {
    return true;
  }
  *equals = '\0';
  return add_word(&labels, line, equals + 1);
}

static bool take_column(char *name)
{
  return add_word(&columns, name, nullptr);
}

// A page's own token, so that its user may go Back and save again.
static bool take_owner(char *token)
{
  const size_t length = strlen(token);
  if (length > 0 && length <= OWNER_MAX &&
      strspn(token, "0123456789.") == length) {
    owner = token;
  }
  return true;
}

// "SECONDS", and " command" behind it where the device must first be made to
// use the change.
static bool take_guard(char *line)
{
  char *rest;
  guard_seconds = static_cast<unsigned>(strtoul(line, &rest, 10));
  guard_has_command = *rest != '\0';
  return true;
}

static bool take_word_line(char *line)
{
  // clang-format off
  static const struct {
    const char *key;
    bool (*take)(char *rest);
  } keys[] = {
    {"@secret ", take_secret},
    {"@label ",  take_label},
    {"@table ",  take_column},
    {"@owner ",  take_owner},
    {"@guard ",  take_guard},
  };
  // clang-format on
  for (const auto &row : keys) {
    const size_t length = strlen(row.key);
    if (strncmp(line, row.key, length) == 0) {
      return row.take(line + length);
    }
  }
  return store_fault("Nothing was saved: the script's order is not understood");
}

// Takes the lines in front of the first file; `*order` is then that file's.
static bool take_words(char **order)
{
  while (**order == '@') {
    char *line = *order;
    char *end = strchr(line, '\n');
    if (end == nullptr) {
      break;
    }
    *end = '\0';
    *order = end + 1;
    if (!take_word_line(line)) {
      return false;
    }
  }
  return true;
}

// Takes a line "> FILE" and the values behind it, up to the next such line.
static bool take_file(char **order)
{
  char *name = *order + strlen("> ");
  char *end = strchr(name, '\n');
  if (strncmp(*order, "> ", strlen("> ")) != 0 || end == nullptr) {
    return store_fault(
        "Nothing was saved: the script's order is not understood");
  }
  *end = '\0';
  if (!store_is_name(name)) {
    return store_fault("This is no name of a settings file.");
  }
  if (file_count == FILES_MAX) {
    return store_fault("Nothing was saved: too many files at once");
  }
  char *values = end + 1;
  char *next = values[0] == '>' ? values : strstr(values, "\n>");
  next = next != nullptr && *next == '\n' ? next + 1 : next;
  const size_t length =
      next != nullptr ? static_cast<size_t>(next - values) : strlen(values);
  *order = values + length;
  save_file *file = files + file_count;
  file->name = name;
  file_count++;
  char *copy = strndup(values, length);
  if (copy == nullptr) {
    return store_fault("Out of memory");
  }
  return settings_parse(name, copy, &file->after);
}

static bool take_order(char *order)
{
  if (!take_words(&order)) {
    return false;
  }
  while (*order != '\0') {
    if (!take_file(&order)) {
      return false;
    }
  }
  return true;
}

static char *read_order(FILE *in)
{
  text = static_cast<char *>(must_malloc(ORDER_MAX + 1));
  if (text == nullptr) {
    store_fault("Out of memory");
    return nullptr;
  }
  const size_t got = fread(text, 1, ORDER_MAX, in);
  text[got] = '\0';
  if (ferror(in) != 0 || got == 0) {
    store_fault("Nothing was saved: the script's order cannot be read");
    return nullptr;
  }
  if (got == ORDER_MAX || strlen(text) < got) {
    store_fault("Nothing was saved: the script's order is too long");
    return nullptr;
  }
  return text;
}

// --- judging -----------------------------------------------------------------

static bool is_secret(const char *name, void *)
{
  return find_word(&secrets, name, strlen(name)) != nullptr;
}

static bool is_sound(const setting *one)
{
  if (strlen(one->name) + strlen(one->value) > LINE_MAX) {
    return store_fault("Nothing was saved: a value is too long.");
  }
  // No page holds a secret, so it may be a hash, which has dollars.
  const char *refused = is_secret(one->name, nullptr) ? "\"\\`" : "\"\\`$";
  const char *c = one->value;
  while (*c != '\0' && static_cast<unsigned char>(*c) >= ' ' && *c != 0x7f &&
         strchr(refused, *c) == nullptr) {
    c++;
  }
  return *c == '\0' || store_fault("Nothing was saved: no value may hold one of "
                                   "\" $ \\ `");
}

static bool judge()
{
  for (save_file *file = files; file < files + file_count; file++) {
    for (size_t i = 0; i < file->after.count; i++) {
      if (!is_sound(file->after.list + i)) {
        return false;
      }
    }
    if (!settings_read(file->name, &file->before)) {
      return false;
    }
  }
  return true;
}

// --- writing -----------------------------------------------------------------

// The columns whose rows the file holds as a whole: those that the script took
// from the page, and those of the form.
static void write_tables(FILE *out)
{
  fputs("#table", out);
  for (const word *one = columns.list; one < columns.list + columns.count;
       one++) {
    fprintf(out, " %s", one->name);
  }
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    if (item->column >= 0 &&
        find_word(&columns, item->name, strlen(item->name)) == nullptr) {
      fprintf(out, " %s", item->name);
    }
  }
  putc('\n', out);
}

static bool write_file(const store_stage *stage, const save_file *file)
{
  store_text content;
  FILE *out = store_open_text(&content);
  if (out == nullptr) {
    return false;
  }
  fprintf(out, "#orv %d %" PRIu64 " %s\n", STORE_FORMAT, stage->number, owner);
  write_tables(out);
  for (size_t i = 0; i < file->after.count; i++) {
    fprintf(out, "%s=%s\n", file->after.list[i].name,
            file->after.list[i].value);
  }
  const bool made = store_close_text(out, &content);
  const owned_text owned(content.bytes);
  return made && stage_write(stage, file->name, content.bytes, content.length);
}

static bool keep_old(const store_stage *stage, char token[STORE_TOKEN_SIZE])
{
  const char *names[FILES_MAX];
  for (size_t i = 0; i < file_count; i++) {
    names[i] = files[i].name;
  }
  return store_make_token(token) &&
         guard_keep(stage, names, file_count, token, !guard_has_command);
}

static bool write_stage(const store_stage *stage, char token[STORE_TOKEN_SIZE])
{
  for (const save_file *file = files; file < files + file_count; file++) {
    if (!write_file(stage, file)) {
      return false;
    }
  }
  return guard_seconds == 0 || keep_old(stage, token);
}

// --- telling -----------------------------------------------------------------

static const char *value_before(const char *name, void *)
{
  for (const save_file *file = files; file < files + file_count; file++) {
    const char *value = settings_get(&file->before, name);
    if (value != nullptr) {
      return value;
    }
  }
  return nullptr;
}

static const char *value_after(const char *name, void *)
{
  for (const save_file *file = files; file < files + file_count; file++) {
    const char *value = settings_get(&file->after, name);
    if (value != nullptr) {
      return value;
    }
  }
  return nullptr;
}

static const char *label_of(const char *name, void *)
{
  const word *found = find_word(&labels, name, strlen(name));
  return found != nullptr ? found->text : nullptr;
}

static const orv_change_source SOURCE = {value_before, value_after, label_of,
                                         is_secret, nullptr};

// What the form has no field for is called by its name.
static bool find_others(const settings *all, orv_change **changes)
{
  for (size_t i = 0; i < all->count; i++) {
    if (!form_has(all->list[i].name) &&
        !orv_find_change(all->list[i].name, &SOURCE, changes)) {
      return false;
    }
  }
  return true;
}

static bool find_changes(orv_change **changes)
{
  if (!orv_find_changes(form_items(), &SOURCE, changes)) {
    return false;
  }
  for (const save_file *file = files; file < files + file_count; file++) {
    if (!find_others(&file->after, changes)) {
      return false;
    }
  }
  return true;
}

// Writes a text so that a page shows its dollars, each as three.
static void write_shown(FILE *out, const char *line)
{
  size_t room = PAGE_LINE_MAX;
  const size_t length = orv_cut_length(line, room);
  for (size_t i = 0; i < length && room >= 3; i++) {
    if (line[i] == '$') {
      fputs("$$$", out);
      room -= 3;
    } else {
      putc(static_cast<unsigned char>(line[i]) < ' ' ? ' ' : line[i], out);
      room--;
    }
  }
}

// For the page that confirms, and for logs.
static bool write_changes(FILE *out, const orv_change *changes)
{
  for (const orv_change *one = changes; one != nullptr; one = one->next) {
    const owned_text shown(orv_change_line(one, "\xe2\x86\x92", LABEL_TEXT_MAX,
                                           VALUE_TEXT_MAX));
    const owned_text line(
        orv_change_line(one, "->", LABEL_TEXT_MAX, VALUE_TEXT_MAX));
    if (shown == nullptr || line == nullptr) {
      return false;
    }
    fputs("page ", out);
    write_shown(out, shown.get());
    fprintf(out, "$L$\nline %s\n", line.get());
  }
  return true;
}

// That no memory is left for telling it stops a save, too, before it begins.
// What is to be told, owned by the caller; NULL with a fault.
static char *tell_changes()
{
  orv_change *changes = nullptr;
  store_text told;
  FILE *out = store_open_text(&told);
  if (out == nullptr) {
    return nullptr;
  }
  const bool made = (find_changes(&changes) && write_changes(out, changes)) ||
                    store_fault("Out of memory");
  orv_free_changes(changes);
  owned_text owned(store_close_text(out, &told) ? told.bytes : nullptr);
  return made ? owned.release() : nullptr;
}

bool save_order(FILE *in, FILE *out, const char *form)
{
  char *order = read_order(in);
  char token[STORE_TOKEN_SIZE] = "";
  store_stage stage;
  if (order == nullptr || !take_order(order) || !judge()) {
    return false;
  }
  form_open(form);
  const owned_text told(tell_changes());
  if (told == nullptr) {
    return false;
  }
  if (!stage_begin(&stage) || !write_stage(&stage, token) ||
      !stage_commit(&stage)) {
    stage_drop(&stage);
    return false;
  }
  fputs("ok\n", out);
  if (token[0] != '\0') {
    fprintf(out, "guard %s\n", token);
  }
  fputs(told.get(), out);
  return true;
}
