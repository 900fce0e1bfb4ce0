// A save.
//
// Owns the order for the life of the process.  All of it is checked before the
// first byte is written.  The changes are computed from the files themselves,
// so they show what the device really had and has.

#include "save.h"

#include <algorithm>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "commit.h"
#include "confirm.h"
#include "fault.h"
#include "folder.h"
#include "form.h"
#include "guard.h"
#include "history.h"
#include "orv.h"
#include "orv_changes.h"
#include "orv_guard.h"
#include "orv_secret.h"
#include "settings.h"
#include "store_text.h"
#include "told.h"
#include "who.h"

constexpr size_t FILES_MAX = 64;  // of one save
constexpr size_t WORDS_MAX = 256; // secrets, labels and columns of one save
constexpr size_t OWNER_MAX = 40;

// One file of the order.
struct save_file {
  const char *name;
  settings before;
  settings after; // number and owner are not used
};

// A name and, for a label, its text.
struct word {
  const char *name;
  const char *text;
};

struct word_list {
  word list[WORDS_MAX];
  size_t count;
};

static char *order_text;             // owned: names and values point into it
static orv_change *changes;          // owned: the result
static char token[STORE_TOKEN_SIZE]; // of the guarded change, "": none
static save_file files[FILES_MAX];
static size_t file_count;
static word_list secrets;
static word_list labels;
static word_list columns; // of tables, without row numbers
static const char *owner = "-";
static unsigned guard_seconds;         // 0: the change stays
static const char *guard_command = ""; // makes the device use the change
static const char *guard_act_name;     // an action instead; NULL: none

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

// The token of the page itself, so that its user may go Back and save again.
static bool take_owner(char *page)
{
  const size_t length = strlen(page);
  if (length > 0 && length <= OWNER_MAX &&
      strspn(page, "0123456789.") == length) {
    owner = page;
  }
  return true;
}

// "SECONDS", followed by the command that makes the device use the change, if
// there is one, or by "act NAME".
static bool take_guard(char *line)
{
  char *rest;
  guard_seconds = static_cast<unsigned>(strtoul(line, &rest, 10));
  guard_command = rest + strspn(rest, " ");
  static const char act[] = "act ";
  if (strncmp(guard_command, act, strlen(act)) == 0) {
    guard_act_name = guard_command + strlen(act);
  }
  return true;
}

static bool refuse_order()
{
  return store_fault("Nothing was saved: the script's order is not understood");
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
  return refuse_order();
}

// Takes the lines before the first file; `*order` then points to that file.
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

// Whether all lines are values.  Any other line would be lost without a
// message, and a secret declared too late would be shown.
static bool are_values(const char *line)
{
  while (*line != '\0') {
    const size_t name = strcspn(line, "=\n");
    const bool is_blank = line[0] == '\n';
    if (line[0] == '@' || (line[name] != '=' && !is_blank)) {
      return false;
    }
    line += strcspn(line, "\n");
    line += *line != '\0' ? 1 : 0;
  }
  return true;
}

// Takes a line "> FILE" and the values behind it, up to the next such line.
static bool take_file(char **order)
{
  const bool is_file = strncmp(*order, "> ", strlen("> ")) == 0;
  char *name = *order + (is_file ? strlen("> ") : 0);
  char *end = strchr(name, '\n');
  if (!is_file || end == nullptr) {
    return refuse_order();
  }
  *end = '\0';
  if (!store_is_name(name)) {
    return store_fault("This is not a valid name of a settings file.");
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
  if (!are_values(copy)) {
    free(copy);
    return refuse_order();
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

// --- secrets -----------------------------------------------------------------

// Declared by the script that saves, or by one that saved before.
static bool is_secret(const char *name, void *)
{
  for (const save_file *file = files; file < files + file_count; file++) {
    if (settings_names_secret(&file->before, name)) {
      return true;
    }
  }
  return find_word(&secrets, name, strlen(name)) != nullptr;
}

// All files are read first: any of them may say that a value is a secret, which
// may be a hash.
static bool judge()
{
  for (save_file *file = files; file < files + file_count; file++) {
    if (!settings_read(file->name, &file->before)) {
      return false;
    }
  }
  for (const save_file *file = files; file < files + file_count; file++) {
    for (size_t i = 0; i < file->after.count; i++) {
      const setting *one = file->after.list + i;
      if (!settings_is_sound(one, is_secret(one->name, nullptr))) {
        return false;
      }
    }
  }
  return true;
}

// --- the changes -------------------------------------------------------------

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

// By the template or, where a script has a table of its own, by what it
// declared.
static bool is_of_table(const char *name)
{
  const size_t length = settings_column(name);
  if (name[length] == '\0') {
    return false;
  }
  for (const pt_body_item *item = form_items(); item != nullptr;
       item = item->next) {
    if (item->column >= 0 && strlen(item->name) == length &&
        strncmp(item->name, name, length) == 0) {
      return true;
    }
  }
  return find_word(&columns, name, length) != nullptr;
}

static void mark_lasting()
{
  for (const save_file *file = files; file < files + file_count; file++) {
    for (size_t i = 0; i < file->before.count; i++) {
      setting *one = file->before.list + i;
      one->lasts = one->shipped && !is_of_table(one->name);
    }
  }
}

// Values that are not stored come from the defaults as before, except in rows.
static const char *value_after(const char *name, void *)
{
  const char *shipped = nullptr;
  for (const save_file *file = files; file < files + file_count; file++) {
    const char *value = settings_get(&file->after, name);
    if (value != nullptr) {
      return value;
    }
    const setting *before = settings_find(&file->before, name);
    if (before != nullptr && before->lasts) {
      shipped = before->value;
    }
  }
  return shipped;
}

static const char *label_of(const char *name, void *)
{
  const word *found = find_word(&labels, name, strlen(name));
  return found != nullptr ? found->text : nullptr;
}

static int count_rows(void *)
{
  int rows = 0;
  for (const save_file *file = files; file < files + file_count; file++) {
    rows = std::max(rows, settings_count_rows(&file->before));
    rows = std::max(rows, settings_count_rows(&file->after));
  }
  return rows;
}

static const orv_change_source SOURCE = {value_before, value_after, label_of,
                                         is_secret,    nullptr,     count_rows};

// A value without a field is shown under its name.  `*end` is the end of the
// list, kept so that it need not be searched for each time.
static bool find_others(const settings *all, orv_change ***end)
{
  for (size_t i = 0; i < all->count; i++) {
    if (!form_has(all->list[i].name) &&
        !orv_find_change(all->list[i].name, &SOURCE, *end)) {
      return false;
    }
    *end = **end != nullptr ? &(**end)->next : *end;
  }
  return true;
}

static bool find_changes()
{
  if (!orv_find_changes(form_items(), &SOURCE, &changes)) {
    return false;
  }
  orv_change **end = &changes;
  while (*end != nullptr) {
    end = &(*end)->next;
  }
  for (const save_file *file = files; file < files + file_count; file++) {
    if (!find_others(&file->after, &end)) {
      return false;
    }
  }
  return true;
}

// --- writing -----------------------------------------------------------------

// The columns whose rows the file holds completely: those that the script took
// from the page, and those of the form.  Always the file's second line, where
// the script library looks for it.
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

// The names of the file's secrets that do not show in the names themselves, a
// blank before each: owned by the caller, NULL when memory ran out.
static char *secret_names(const save_file *file)
{
  size_t size = 1;
  for (size_t i = 0; i < file->after.count; i++) {
    size += strlen(file->after.list[i].name) + 1;
  }
  char *names = static_cast<char *>(must_malloc(size));
  char *end = names;
  for (size_t i = 0; i < file->after.count && names != nullptr; i++) {
    const char *name = file->after.list[i].name;
    if (!orv_is_secret_name(name) && is_secret(name, nullptr)) {
      end +=
          snprintf(end, size - static_cast<size_t>(end - names), " %s", name);
    }
  }
  if (names != nullptr) {
    *end = '\0';
  }
  return names;
}

static bool write_file(const store_stage *stage, const save_file *file)
{
  store_text content;
  const owned_text names(secret_names(file));
  FILE *out = names != nullptr ? store_open_text(&content) : nullptr;
  if (out == nullptr) {
    return store_fault("Out of memory");
  }
  fprintf(out, "#orv %d %" PRIu64 " %s\n", STORE_FORMAT, stage->number, owner);
  write_tables(out);
  if (file->before.shipped_version > 1) {
    fprintf(out, "#version %u\n", file->before.shipped_version);
  }
  if (names.get()[0] != '\0') {
    fprintf(out, "#secret%s\n", names.get());
  }
  for (size_t i = 0; i < file->after.count; i++) {
    fprintf(out, "%s=%s\n", file->after.list[i].name,
            file->after.list[i].value);
  }
  const bool made = store_close_text(out, &content);
  const owned_text owned(content.bytes);
  return made && stage_write(stage, file->name, content.bytes, content.length);
}

// The token is made only here, so an unguarded save has none.
static bool keep_old(const store_stage *stage, const char *form,
                     const char *subitem)
{
  const char *names[FILES_MAX] = {};
  for (size_t i = 0; i < file_count; i++) {
    names[i] = files[i].name;
  }
  const guarded_change change = {token,         form,          subitem,
                                 changes,       guard_seconds, guard_command,
                                 guard_act_name};
  return store_make_token(token) &&
         guard_keep(stage, names, file_count, &change);
}

// The declared secrets are lent to the record for this, since the history
// leaves out what the record calls secret.
static bool write_history(const store_stage *stage, const char *form,
                          const char *subitem)
{
  if (!history_begin(stage, form, subitem, "saved")) {
    return false;
  }
  for (size_t i = 0; i < told_count(); i++) {
    history_tell(told_log(i));
  }
  bool noted = true;
  for (save_file *file = files; file < files + file_count; file++) {
    const owned_text names(secret_names(file));
    file->after.secrets = names != nullptr ? names.get() : "";
    history_note(file->name, &file->before, &file->after);
    file->after.secrets = "";
    noted &= names != nullptr;
  }
  return (noted || store_fault("Out of memory")) && history_end(stage);
}

static bool write_stage(const store_stage *stage, const char *form,
                        const char *subitem)
{
  for (const save_file *file = files; file < files + file_count; file++) {
    if (!write_file(stage, file)) {
      return false;
    }
  }
  return write_history(stage, form, subitem) &&
         (guard_seconds == 0 || keep_old(stage, form, subitem));
}

// --- reporting ---------------------------------------------------------------

bool save_order(char *order, const char *form, const char *subitem)
{
  order_text = order;
  store_stage stage;
  if (!take_order(order_text) || !judge()) {
    return false;
  }
  if (!form_open(form) && store_fault_text() != nullptr) {
    return false;
  }
  mark_lasting();
  // Before the save begins, so that it is refused if its report lacks memory.
  if (!find_changes() || !told_make(changes)) {
    return store_fault("Out of memory");
  }
  const bool stored = stage_begin(&stage) &&
                      write_stage(&stage, form, subitem) &&
                      stage_commit(&stage);
  if (!stored) {
    stage_drop(&stage);
  }
  return stored;
}

void save_forget(void)
{
  for (save_file *file = files; file < files + file_count; file++) {
    settings_free(&file->before);
    settings_free(&file->after);
  }
  told_free();
  orv_free_changes(changes);
  free(order_text);
  order_text = nullptr;
  changes = nullptr;
  file_count = 0;
  secrets.count = labels.count = columns.count = 0;
  token[0] = '\0';
  owner = "-";
  guard_seconds = 0;
  guard_command = "";
  guard_act_name = nullptr;
}

void save_answer(FILE *out)
{
  char pending[CONFIRM_SENTENCE_SIZE];
  confirm_sentence(pending, sizeof pending);
  fputs("ok\n", out);
  if (pending[0] != '\0') {
    fprintf(out, "pending %s\n", pending);
  }
  if (token[0] != '\0') {
    fprintf(out, "guard %s\n", token);
  }
  told_write_lines(out);
}

void save_tell_page(FILE *out)
{
  char pending[CONFIRM_SENTENCE_SIZE];
  confirm_sentence(pending, sizeof pending);
  if (pending[0] != '\0') {
    fprintf(out, "u_saved_pending=\"%s\"\nu_saved_navbar=True\n", pending);
  }
  told_write_places(out);
}

void save_log(void)
{
  for (size_t i = 0; i < told_count(); i++) {
    const owned_text line(store_line_with_who(told_log(i)));
    if (line != nullptr) {
      store_log(line.get());
    }
  }
}
