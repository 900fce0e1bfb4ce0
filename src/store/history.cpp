// The last saves.
//
// Owns the entry that is being written, for the life of the process.  An entry
// is part of the commit that it describes.

#include "history.h"

#include <errno.h>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "fault.h"
#include "folder.h"
#include "orv.h"
#include "orv_guard.h"
#include "store_text.h"
#include "who.h"

constexpr int ENTRIES_MAX = 10;
// A device has little flash: older entries are dropped, and a save that alone
// would fill the history is listed there, but cannot be undone.
constexpr size_t BYTES_MAX = 64UL * 1024;
constexpr size_t ENTRY_MAX = 24UL * 1024;
constexpr size_t TOLD_MAX = 8UL * 1024;
constexpr size_t SHOWN_MAX = 200; // no form or sub-item has a longer name

static store_text told;  // the entry's head and its changes
static FILE *telling;    // writes it; NULL: no entry is begun
static store_text noted; // how to undo it
static FILE *noting;
static size_t told_size; // of the lines that describe the changes
static size_t untold;    // lines that did not fit

// --- writing -----------------------------------------------------------------

// Writes a name so that it stays one word; it may come from a request.
static void put_name(const char *name)
{
  const char *end = name + strnlen(name, SHOWN_MAX);
  for (; name < end; name++) {
    putc(static_cast<unsigned char>(*name) > ' ' ? *name : '_', telling);
  }
}

bool history_begin(const store_stage *stage, const char *form,
                   const char *subitem, const char *kind)
{
  store_who who;
  store_ask_who(&who);
  told_size = 0;
  untold = 0;
  telling = store_open_text(&told);
  noting = telling != nullptr ? store_open_text(&noted) : nullptr;
  if (noting == nullptr) {
    store_close_text(telling, &told);
    return false;
  }
  fprintf(telling, "@ %" PRIu64 " %lld %s %s ", stage->number,
          static_cast<long long>(time(nullptr)), who.user, who.address);
  put_name(form[0] != '\0' ? form : "-");
  if (subitem != nullptr) {
    putc('/', telling);
    put_name(subitem);
  }
  fprintf(telling, " %s\n", kind);
  return true;
}

// Cut here, so that one save of thousands of values does not fill the history.
void history_tell(const char *line)
{
  if (told_size > TOLD_MAX) {
    untold++;
    return;
  }
  told_size += strlen(line);
  fprintf(telling, "= %s\n", line);
}

void history_also(const char *form)
{
  fprintf(telling, "& %s\n", form);
}

void history_sign(const char *token)
{
  fprintf(telling, "* %s\n", token);
}

static void note_name(const char *file, const setting *one,
                      const settings *before)
{
  const char *value = settings_get(before, one->name);
  if (value == nullptr) {
    fprintf(noting, "+ %s %s\n", file, one->name);
  } else if (strcmp(value, one->value) != 0) {
    fprintf(noting, "< %s %s=%s\n", file, one->name, value);
  }
}

// Declared by either, since a script may have begun, or ceased, to call the
// same value a secret.
static bool is_secret(const settings *before, const settings *after,
                      const char *name)
{
  return settings_is_secret(before, name) || settings_is_secret(after, name);
}

// First what the new file holds, then what only the old one held.  What lasts
// is read from the defaults again: a long list of choices would fill the
// history.
void history_note(const char *file, const settings *before,
                  const settings *after)
{
  if (!before->stored) {
    fprintf(noting, "! %s\n", file);
  }
  for (size_t i = 0; i < after->count; i++) {
    if (!is_secret(before, after, after->list[i].name)) {
      note_name(file, after->list + i, before);
    }
  }
  for (size_t i = 0; i < before->count; i++) {
    const setting *one = before->list + i;
    if (!one->lasts && settings_get(after, one->name) == nullptr &&
        !is_secret(before, after, one->name)) {
      fprintf(noting, "< %s %s=%s\n", file, one->name, one->value);
    }
  }
}

// The length of the entry that `text` begins with.  No other line begins with
// "@".
static size_t entry_length(const char *text)
{
  const char *next = strstr(text, "\n@ ");
  return next != nullptr ? static_cast<size_t>(next + 1 - text) : strlen(text);
}

static uint64_t entry_number(const char *entry)
{
  return strtoull(entry + 1, nullptr, 10);
}

// The length of the entries of one save: a transaction has several.
static size_t save_length(const char *entries)
{
  const uint64_t number = entry_number(entries);
  size_t length = 0;
  while (entries[length] == '@' && entry_number(entries + length) == number) {
    length += entry_length(entries + length);
  }
  return length;
}

// The length of as many saves as fit behind an entry of `used` bytes.  `*whole`
// becomes false when an entry of the save `number` itself does not fit.
static size_t kept_length(const char *entries, size_t used, uint64_t number,
                          bool *whole)
{
  size_t length = 0;
  int saves = 1;
  while (entries[length] == '@') {
    const bool is_same = entry_number(entries + length) == number;
    const size_t more = save_length(entries + length);
    saves += is_same ? 0 : 1;
    if (saves > ENTRIES_MAX || used + length + more > BYTES_MAX) {
      *whole = *whole && !is_same;
      break;
    }
    length += more;
  }
  return length;
}

// The history with the saves of this stage; owned by the caller, NULL when
// there is none or with a fault.
static char *read_history(const store_stage *stage)
{
  size_t length;
  char *text = stage != nullptr && stage->transaction
                   ? store_read_file(stage->fd, HISTORY_FILE, &length)
                   : nullptr;
  return text != nullptr || store_fault_text() != nullptr
             ? text
             : store_read_file(store.fd, HISTORY_FILE, &length);
}

bool history_end(const store_stage *stage)
{
  if (untold > 0) {
    fprintf(telling, "= and %zu more\n", untold);
  }
  const bool is_told = store_close_text(telling, &told);
  const bool is_noted = store_close_text(noting, &noted);
  const owned_text entry(told.bytes);
  const owned_text back(noted.bytes);
  telling = nullptr;
  const owned_text older(is_told && is_noted ? read_history(stage) : nullptr);
  if (store_fault_text() != nullptr) {
    return false;
  }
  static const char too_many[] = "-\n";
  bool fits = noted.length <= ENTRY_MAX;
  const size_t size = told.length + (fits ? noted.length : 0);
  const size_t kept = older != nullptr
                          ? kept_length(older.get(), size, stage->number, &fits)
                          : 0;
  const size_t back_size = fits ? noted.length : strlen(too_many);
  const size_t used = told.length + back_size;
  const owned_text all(static_cast<char *>(must_malloc(used + kept + 1)));
  if (all == nullptr) {
    return store_fault("Out of memory");
  }
  memcpy(all.get(), told.bytes, told.length);
  memcpy(all.get() + told.length, fits ? noted.bytes : too_many, back_size);
  if (kept > 0) {
    memcpy(all.get() + used, older.get(), kept);
  }
  return stage_write(stage, HISTORY_FILE, all.get(), used + kept);
}

// --- reading -----------------------------------------------------------------

char *history_read(void)
{
  return store.fd >= 0 ? read_history(nullptr) : nullptr;
}

bool history_has_sign(const char *token)
{
  char *text = history_read();
  const owned_text owned(text);
  const char *line = text != nullptr ? history_line(&text, '*') : nullptr;
  while (line != nullptr && strcmp(line, token) != 0) {
    line = history_line(&text, '*');
  }
  return line != nullptr;
}

bool history_print(FILE *out)
{
  const owned_text text(history_read());
  if (text != nullptr) {
    fputs(store_clean(text.get()), out);
  }
  return store_fault_text() == nullptr;
}

static bool is_no_history()
{
  return store_fault("The history cannot be read");
}

// Ends the line at `*text` and takes it off; NULL behind the last.
static char *take_line(char **text)
{
  char *line = *text;
  if (line[0] == '\0') {
    return nullptr;
  }
  const size_t length = strcspn(line, "\n");
  *text = line + length + (line[length] == '\n' ? 1 : 0);
  line[length] = '\0';
  return line;
}

// The next word of a head, "" behind the last.
static char *take_word(char **head)
{
  char *word = *head;
  const size_t length = strcspn(word, " ");
  *head = word + length + (word[length] == ' ' ? 1 : 0);
  word[length] = '\0';
  return word;
}

bool history_next(char **text, history_entry *entry)
{
  if ((*text)[0] == '\0') {
    return false;
  }
  char *next = *text + entry_length(*text);
  const bool is_last = *next == '\0';
  if (!is_last) {
    next[-1] = '\0'; // the line end before it
  }
  char *rest = *text;
  char *head = take_line(&rest);
  *text = next;
  if (head == nullptr || strcmp(take_word(&head), "@") != 0) {
    is_no_history();
    return false;
  }
  entry->number = strtoull(take_word(&head), nullptr, 10);
  entry->seconds = strtoll(take_word(&head), nullptr, 10);
  entry->user = take_word(&head);
  entry->address = take_word(&head);
  entry->form = take_word(&head);
  entry->kind = take_word(&head);
  entry->lines = rest;
  return true;
}

const char *history_line(char **lines, char kind)
{
  char *line = take_line(lines);
  while (line != nullptr && !(line[0] == kind && line[1] == ' ')) {
    line = take_line(lines);
  }
  return line != nullptr ? line + 2 : nullptr;
}

// --- going back --------------------------------------------------------------

// The new content of one file: later lines of the history, which are older,
// replace earlier ones.
struct old_file {
  char name[STORE_NAME_MAX + 1];
  settings now;  // a value is NULL if there was none
  setting *gone; // owned: what the file no longer has; as long as a history
  size_t count;
  size_t room;
};

constexpr size_t OLD_FILES_MAX = 64;
static old_file old_files[OLD_FILES_MAX];
static size_t old_count;

static int compare_name(const void *name, const void *one)
{
  return strcmp(static_cast<const char *>(name),
                static_cast<const setting *>(one)->name);
}

// Undoing changes values, but no name, so the list stays ordered.
static setting *find_value(const old_file *file, const char *name)
{
  void *found = bsearch(name, file->now.list, file->now.count,
                        sizeof *file->now.list, compare_name);
  if (found != nullptr) {
    return static_cast<setting *>(found);
  }
  for (size_t i = 0; i < file->count; i++) {
    if (strcmp(file->gone[i].name, name) == 0) {
      return file->gone + i;
    }
  }
  return nullptr;
}

static bool set_old(old_file *file, const char *name, const char *value)
{
  setting *found = find_value(file, name);
  if (found != nullptr) {
    found->value = value;
    return true;
  }
  if (file->count == file->room) {
    const size_t room = 2 * file->room + 64;
    char *block = reinterpret_cast<char *>(file->gone);
    if (must_realloc(&block, room * sizeof *file->gone) == 0) {
      return store_fault("Out of memory");
    }
    file->gone = reinterpret_cast<setting *>(block);
    file->room = room;
  }
  file->gone[file->count] = {name, value, false};
  file->count++;
  return true;
}

// The file as it is now, read when its first line is met.
static old_file *find_old(const char *name)
{
  for (size_t i = 0; i < old_count; i++) {
    if (strcmp(old_files[i].name, name) == 0) {
      return old_files + i;
    }
  }
  if (old_count == OLD_FILES_MAX || !store_is_name(name)) {
    old_count < OLD_FILES_MAX ? is_no_history()
                              : store_fault("Too many settings have changed");
    return nullptr;
  }
  old_file *file = old_files + old_count;
  snprintf(file->name, sizeof file->name, "%s", name);
  old_count++;
  return settings_read(name, &file->now) ? file : nullptr;
}

// Undoes one line of an entry, which is split in place.
static bool undo_line(char *line, uint64_t number)
{
  if (line[0] == '-') {
    return store_fault("Save %" PRIu64 " has changed too much to be undone",
                       number);
  }
  if (line[0] == '\0' || strchr("<+!", line[0]) == nullptr) {
    return true;
  }
  char *words = line + 1;
  take_word(&words);
  old_file *file = find_old(take_word(&words));
  if (file == nullptr || line[0] == '!') {
    return file != nullptr;
  }
  char *value = line[0] == '<' ? strchr(words, '=') : nullptr;
  if (value != nullptr) {
    *value = '\0';
    value++;
  }
  return words[0] != '\0' && (line[0] == '<') == (value != nullptr)
             ? set_old(file, words, value)
             : is_no_history();
}

// Values of an older version of a form may mean something else today.
static bool undo_entry(history_entry *entry)
{
  if (strcmp(entry->kind, HISTORY_MIGRATED) == 0) {
    return store_fault("Save %" PRIu64 " brought the settings to a new version:"
                       " neither it nor what was before can be undone",
                       entry->number);
  }
  for (char *line = take_line(&entry->lines); line != nullptr;
       line = take_line(&entry->lines)) {
    if (!undo_line(line, entry->number)) {
      return false;
    }
  }
  return true;
}

// Undoes the entries from the newest to that of the save `number`.
static bool undo_entries(char *text, uint64_t number)
{
  history_entry entry = {};
  bool found = false;
  while (history_next(&text, &entry) && !(found && entry.number != number)) {
    found = entry.number == number;
    if (!undo_entry(&entry)) {
      return false;
    }
  }
  return store_fault_text() == nullptr &&
         (found ||
          store_fault("There is no save %" PRIu64 " in the history", number));
}

static void write_list(FILE *out, const setting *list, size_t count)
{
  for (size_t i = 0; i < count; i++) {
    if (list[i].value != nullptr) {
      fprintf(out, "%s=%s\n", list[i].name, list[i].value);
    }
  }
}

// What the file declares stays, with a value or not yet: its next value is a
// secret as well.  Names that the defaults declare are stored too, as by a
// save, and once, however often the file goes back.
static void write_secrets(FILE *out, const settings *now)
{
  if (now->secrets[0] == '\0' && now->shipped_secrets[0] == '\0') {
    return;
  }
  fprintf(out, "#secret%s", now->secrets);
  const char *word = now->shipped_secrets;
  while (*word != '\0') {
    word += strspn(word, " ");
    const size_t size = strcspn(word, " ");
    if (!settings_has_word(now->secrets, word, size)) {
      fprintf(out, " %.*s", static_cast<int>(size), word);
    }
    word += size;
  }
  putc('\n', out);
}

// The file holds all values, so no row comes from the defaults.  Tables and
// version are lines that the script library finds by their places.
static bool write_old(const store_stage *stage, const old_file *file)
{
  store_text content;
  FILE *out = store_open_text(&content);
  if (out == nullptr) {
    return false;
  }
  const settings *now = &file->now;
  fprintf(out, "#orv 2 %" PRIu64 " -\n#table *\n", stage->number);
  if (now->shipped_version > 1) {
    fprintf(out, "#version %u\n", now->shipped_version);
  }
  write_secrets(out, now);
  write_list(out, file->now.list, file->now.count);
  write_list(out, file->gone, file->count);
  const bool made = store_close_text(out, &content);
  const owned_text owned(content.bytes);
  return made && stage_write(stage, file->name, content.bytes, content.length);
}

// The entries are undone in memory first: only then is it known which files
// change, and that all of them can.
bool history_stage(const store_stage *stage, uint64_t number)
{
  static char *text; // borrowed by the values
  static char nothing[] = "";
  text = history_read();
  if (store_fault_text() != nullptr ||
      !undo_entries(text != nullptr ? text : nothing, number)) {
    return false;
  }
  for (size_t i = 0; i < old_count; i++) {
    if (!write_old(stage, old_files + i)) {
      return false;
    }
  }
  return true;
}
