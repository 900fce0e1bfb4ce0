// The last saves.
//
// Owns the entry that is being written, for the life of the process.  An entry
// is a part of the commit that it tells of.

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
// A device has little flash: what is older goes, and a save that would fill it
// all by itself can be looked at, but not undone.
constexpr size_t BYTES_MAX = 64UL * 1024;
constexpr size_t ENTRY_MAX = 24UL * 1024;

static store_text told;  // the entry's head and what changed
static FILE *telling;    // writes it; NULL: no entry is begun
static store_text noted; // how to get back
static FILE *noting;

// --- writing -----------------------------------------------------------------

bool history_begin(const store_stage *stage, const char *form,
                   const char *subitem, const char *kind)
{
  store_who who;
  store_ask_who(&who);
  telling = store_open_text(&told);
  noting = telling != nullptr ? store_open_text(&noted) : nullptr;
  if (noting == nullptr) {
    store_close_text(telling, &told);
    return false;
  }
  fprintf(telling, "@ %" PRIu64 " %lld %s %s %s%s%s %s\n", stage->number,
          static_cast<long long>(time(nullptr)), who.user, who.address,
          form[0] != '\0' ? form : "-", subitem != nullptr ? "/" : "",
          subitem != nullptr ? subitem : "", kind);
  return true;
}

void history_tell(const char *line)
{
  fprintf(telling, "= %s\n", line);
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

static bool is_secret(const settings *before, const settings *after,
                      const char *name)
{
  return settings_is_secret(before, name) || settings_is_secret(after, name);
}

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
    if (settings_get(after, one->name) == nullptr &&
        !is_secret(before, after, one->name)) {
      fprintf(noting, "< %s %s=%s\n", file, one->name, one->value);
    }
  }
}

// The length of the entry that `text` begins with.
static size_t entry_length(const char *text)
{
  const char *next = strstr(text, "\n@ ");
  return next != nullptr ? static_cast<size_t>(next + 1 - text) : strlen(text);
}

// The length of as many entries as fit behind one of `used` bytes.
static size_t kept_length(const char *entries, size_t used)
{
  size_t length = 0;
  for (int i = 1; i < ENTRIES_MAX && entries[length] == '@'; i++) {
    const size_t more = entry_length(entries + length);
    if (used + length + more > BYTES_MAX) {
      break;
    }
    length += more;
  }
  return length;
}

// The history as it will be with the saves of the stage at hand; owned by the
// caller, NULL when there is none or with a fault.
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
  const bool is_told = store_close_text(telling, &told);
  const bool is_noted = store_close_text(noting, &noted);
  const owned_text entry(told.bytes);
  const owned_text back(noted.bytes);
  telling = nullptr;
  const owned_text older(is_told && is_noted ? read_history(stage) : nullptr);
  if (store_fault_text() != nullptr) {
    return false;
  }
  const size_t back_size = noted.length <= ENTRY_MAX ? noted.length : 0;
  const size_t used = told.length + back_size;
  const size_t kept = older != nullptr ? kept_length(older.get(), used) : 0;
  const owned_text all(static_cast<char *>(must_malloc(used + kept + 1)));
  if (all == nullptr) {
    return store_fault("Out of memory");
  }
  memcpy(all.get(), told.bytes, told.length);
  memcpy(all.get() + told.length, noted.bytes, back_size);
  if (kept > 0) {
    memcpy(all.get() + used, older.get(), kept);
  }
  return stage_write(stage, HISTORY_FILE, all.get(), used + kept);
}

// --- reading -----------------------------------------------------------------

bool history_print(FILE *out)
{
  const owned_text text(store.fd >= 0 ? read_history(nullptr) : nullptr);
  if (text != nullptr) {
    fputs(text.get(), out);
  }
  return store_fault_text() == nullptr;
}

// What one file becomes: names and values of lines that are met later, which
// are older, take the place of what was there.
struct old_file {
  char name[STORE_NAME_MAX + 1];
  settings now;
  bool blank; // nobody had stored it
  setting *list;
  size_t count;
  size_t room;
};

constexpr size_t OLD_FILES_MAX = 64;
static old_file old_files[OLD_FILES_MAX];
static size_t old_count;

static bool set_old(old_file *file, const char *name, const char *value)
{
  for (size_t i = 0; i < file->count; i++) {
    if (strcmp(file->list[i].name, name) == 0) {
      file->list[i].value = value;
      return true;
    }
  }
  if (file->count == file->room) {
    const size_t room = 2 * file->room + 64;
    char *block = reinterpret_cast<char *>(file->list);
    if (must_realloc(&block, room * sizeof *file->list) == 0) {
      return store_fault("Out of memory");
    }
    file->list = reinterpret_cast<setting *>(block);
    file->room = room;
  }
  file->list[file->count] = {name, value, false};
  file->count++;
  return true;
}

// The file as it is now, taken in at its first line.
static old_file *find_old(const char *name)
{
  for (size_t i = 0; i < old_count; i++) {
    if (strcmp(old_files[i].name, name) == 0) {
      return old_files + i;
    }
  }
  old_file *file = old_files + old_count;
  if (old_count == OLD_FILES_MAX || !store_is_name(name)) {
    store_fault("The history cannot be read");
    return nullptr;
  }
  snprintf(file->name, sizeof file->name, "%s", name);
  if (!settings_read(name, &file->now)) {
    return nullptr;
  }
  old_count++;
  for (size_t i = 0; i < file->now.count; i++) {
    if (!set_old(file, file->now.list[i].name, file->now.list[i].value)) {
      return nullptr;
    }
  }
  return file;
}

// Goes back over one line of an entry; cut in place.
static bool undo_line(char *line)
{
  if (strchr("<+!", line[0]) == nullptr || line[0] == '\0' || line[1] != ' ') {
    return true;
  }
  char *name = strchr(line + 2, ' ');
  if (name != nullptr) {
    *name = '\0';
    name++;
  }
  old_file *file = find_old(line + 2);
  if (file == nullptr) {
    return false;
  }
  file->blank = line[0] == '!';
  if (line[0] == '!') {
    return true;
  }
  char *value = name != nullptr ? strchr(name, '=') : nullptr;
  if (name == nullptr || (line[0] == '<') != (value != nullptr)) {
    return store_fault("The history cannot be read");
  }
  if (value != nullptr) {
    *value = '\0';
  }
  return set_old(file, name, value != nullptr ? value + 1 : nullptr);
}

// Goes back over the entries from the newest to that of the save `number`.
static bool undo_entries(char *text, uint64_t number)
{
  bool found = false;
  for (char *line = text; line != nullptr;) {
    char *end = strchr(line, '\n');
    if (end != nullptr) {
      *end = '\0';
    }
    if (line[0] == '@') {
      // A transaction's saves have one number.
      const bool is_it = strtoull(line + 1, nullptr, 10) == number;
      if (found && !is_it) {
        return true;
      }
      found = is_it;
    } else if (!undo_line(line)) {
      return false;
    }
    line = end != nullptr ? end + 1 : nullptr;
  }
  return found ||
         store_fault("There is no save %" PRIu64 " in the history", number);
}

static bool write_old(const store_stage *stage, const old_file *file)
{
  if (file->blank) {
    return stage_blank(stage, file->name);
  }
  store_text content;
  FILE *out = store_open_text(&content);
  if (out == nullptr) {
    return false;
  }
  fprintf(out, "#orv 2 %" PRIu64 " -\n#table%s\n#secret%s\n", stage->number,
          file->now.format == STORE_FORMAT ? file->now.tables : " *",
          file->now.secrets);
  for (size_t i = 0; i < file->count; i++) {
    if (file->list[i].value != nullptr) {
      fprintf(out, "%s=%s\n", file->list[i].name, file->list[i].value);
    }
  }
  const bool made = store_close_text(out, &content);
  const owned_text owned(content.bytes);
  return made && stage_write(stage, file->name, content.bytes, content.length);
}

bool history_stage(const store_stage *stage, uint64_t number)
{
  static char *text; // borrowed by the values
  text = read_history(nullptr);
  if (text == nullptr) {
    return store_fault("There is no save %" PRIu64 " in the history", number);
  }
  if (!undo_entries(text, number)) {
    return false;
  }
  for (size_t i = 0; i < old_count; i++) {
    if (!write_old(stage, old_files + i)) {
      return false;
    }
  }
  return true;
}
