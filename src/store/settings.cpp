// Settings files: parsed, and merged with their defaults.
//
// A file becomes a list ordered by name, in which each name occurs once.  Lines
// that are not NAME=VALUE are skipped, as the script library does.
//
// Owns the function that spells names, for the life of the process.

#include "settings.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "orv.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_secret.h"

static settings_speller spell_name; // NULL: names keep their spelling

void settings_spell_by(settings_speller spell)
{
  spell_name = spell;
}

// Leaves a record like that of a file without a head, so that it can be read
// again.
void settings_free(settings *all)
{
  // NOLINTBEGIN(clang-analyzer-unix.Malloc): it does not see what "= {}" clears
  free(all->texts[0]);
  free(all->texts[1]);
  free(all->list);
  // NOLINTEND(clang-analyzer-unix.Malloc)
  *all = {};
  all->version = 1;
  all->shipped_version = 1;
  all->owner = "";
  all->tables = "";
  all->secrets = "";
  all->shipped_secrets = "";
}

constexpr unsigned long VERSION_MAX = 999'999'999; // the library has 9 digits

static bool is_letter(char c)
{
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

size_t settings_column(const char *name)
{
  size_t length = strlen(name);
  while (length > 0 && name[length - 1] >= '0' && name[length - 1] <= '9') {
    length--;
  }
  return length;
}

int settings_row(const char *name)
{
  constexpr size_t digits_max = orv_digits(ORV_ROWS_MAX);
  const char *digits = name + settings_column(name);
  const size_t length = strlen(digits);
  const int row = length > 0 && length <= digits_max ? atoi(digits) : -1;
  return row < ORV_ROWS_MAX ? row : -1;
}

int settings_count_rows(const settings *all)
{
  int count = 0;
  for (size_t i = 0; i < all->count; i++) {
    count = std::max(count, settings_row(all->list[i].name) + 1);
  }
  return count;
}

// --- parsing -----------------------------------------------------------------

// Takes the head "2 NUMBER OWNER" or "TOKEN OWNER" of a line "#orv ...".
static bool take_head(const char *name, char *head, settings *all)
{
  const size_t digits = strspn(head, "0123456789");
  all->format = 1;
  if (digits == 0 || strchr(" ", head[digits]) == nullptr) { // a token
    char *owner = strchr(head, ' ');
    all->owner = owner != nullptr ? owner + 1 : "";
    return true;
  }
  if (digits > 1 || head[0] != '0' + STORE_FORMAT) {
    return store_fault("The settings %s are of a newer version (format %.*s)",
                       name, static_cast<int>(digits), head);
  }
  char *rest = head + digits;
  all->format = STORE_FORMAT;
  all->number = strtoull(rest, &rest, 10);
  all->owner = *rest == ' ' ? rest + 1 : "";
  return true;
}

static void take_line(char *line, settings *all)
{
  static const char secret[] = "#secret ";
  if (strncmp(line, secret, strlen(secret)) == 0) {
    all->secrets = line + strlen(secret) - 1;
    return;
  }
  char *equals = is_letter(line[0]) ? strchr(line, '=') : nullptr;
  if (equals != nullptr) {
    *equals = '\0';
    all->list[all->count] = {line, equals + 1, false};
    all->count++;
  }
}

// Ends the line at `*text` and takes it off; NULL when there is none.
static char *next_line(char **text)
{
  char *line = *text;
  char *end = line != nullptr ? strchr(line, '\n') : nullptr;
  if (end != nullptr) {
    *end = '\0';
  }
  *text = end != nullptr ? end + 1 : nullptr;
  return line;
}

// Takes a line that follows the head.
static void take_tables(char *line, settings *all)
{
  static const char key[] = "#table ";
  if (line != nullptr && strncmp(line, key, strlen(key)) == 0) {
    all->tables = line + strlen(key) - 1;
  } else if (line != nullptr) {
    take_line(line, all);
  }
}

// Whether the line, which may be NULL, holds the version of the form.
static bool take_version(const char *line, settings *all)
{
  static const char key[] = "#version ";
  if (line == nullptr || strncmp(line, key, strlen(key)) != 0) {
    return false;
  }
  const unsigned long number = strtoul(line + strlen(key), nullptr, 10);
  if (number > 0 && number <= VERSION_MAX) {
    all->version = static_cast<unsigned>(number);
  }
  return true;
}

// Of several lines with one name the last counts, and stored ones take
// precedence over shipped ones.  Those of one file point into one text, so
// their addresses give their order.
static int compare_settings(const void *a, const void *b)
{
  const setting *left = static_cast<const setting *>(a);
  const setting *right = static_cast<const setting *>(b);
  const int order = strcmp(left->name, right->name);
  if (order != 0 || left->shipped != right->shipped) {
    return order != 0 ? order : (left->shipped ? -1 : 1);
  }
  return left->value < right->value ? -1 : 1;
}

static bool is_ordered(const settings *all)
{
  for (size_t i = 1; i < all->count; i++) {
    if (compare_settings(all->list + i - 1, all->list + i) > 0) {
      return false;
    }
  }
  return true;
}

static void order_settings(settings *all)
{
  if (!is_ordered(all)) { // a stored file is
    qsort(all->list, all->count, sizeof *all->list, compare_settings);
  }
  size_t kept = 0;
  for (size_t i = 0; i < all->count; i++) {
    if (kept > 0 && strcmp(all->list[kept - 1].name, all->list[i].name) == 0) {
      kept--;
    }
    all->list[kept] = all->list[i];
    kept++;
  }
  all->count = kept;
}

static size_t count_lines(const char *text)
{
  size_t lines = 1;
  for (; *text != '\0'; text++) {
    lines += *text == '\n' ? 1 : 0;
  }
  return lines;
}

static bool make_list(settings *all, size_t room)
{
  all->list =
      static_cast<setting *>(must_malloc((room + 1) * sizeof *all->list));
  return all->list != nullptr || store_fault("Out of memory");
}

bool settings_parse(const char *name, char *text, settings *all)
{
  settings_free(all);
  all->texts[0] = text;
  if (!make_list(all, count_lines(text))) {
    return false;
  }
  static const char key[] = "#orv ";
  char *line = next_line(&text);
  if (strncmp(line, key, strlen(key)) == 0) {
    if (!take_head(name, line + strlen(key), all)) {
      return false;
    }
    take_tables(next_line(&text), all);
    line = next_line(&text);
  }
  if (take_version(line, all)) {
    line = next_line(&text);
  }
  for (; line != nullptr; line = next_line(&text)) {
    take_line(line, all);
  }
  order_settings(all);
  return true;
}

// A text field refuses these characters, so a page that shows one could not be
// submitted again.  No page shows a secret, and a hash of a password has
// dollars.
bool settings_is_sound(const setting *one, bool is_secret)
{
  if (strlen(one->name) + strlen(one->value) > ORV_REPORTED_MAX) {
    return store_fault("Nothing was saved: a value is too long.");
  }
  const char *refused = is_secret ? "\"\\`" : "\"\\`$";
  const char *c = one->value;
  while (*c != '\0' && static_cast<unsigned char>(*c) >= ' ' && *c != 0x7f &&
         strchr(refused, *c) == nullptr) {
    c++;
  }
  return *c == '\0' ||
         store_fault("Nothing was saved: no value may contain one of "
                     "\" $ \\ `");
}

// --- merging -----------------------------------------------------------------

// By halves: a table of 100 rows and 20 columns has 2,000 names.
const setting *settings_find(const settings *all, const char *name)
{
  size_t first = 0;
  size_t end = all->count;
  while (first < end) {
    const size_t middle = first + (end - first) / 2;
    const int order = strcmp(name, all->list[middle].name);
    if (order == 0) {
      return all->list + middle;
    }
    if (order < 0) {
      end = middle;
    } else {
      first = middle + 1;
    }
  }
  return nullptr;
}

const char *settings_get(const settings *all, const char *name)
{
  const setting *found = settings_find(all, name);
  return found != nullptr ? found->value : nullptr;
}

bool settings_has_word(const char *words, const char *name, size_t length)
{
  while (*words != '\0') {
    words += strspn(words, " ");
    const size_t size = strcspn(words, " ");
    if (size == length && strncasecmp(words, name, size) == 0) {
      return true;
    }
    words += size;
  }
  return false;
}

bool settings_names_secret(const settings *all, const char *name)
{
  return settings_has_word(all->secrets, name, strlen(name)) ||
         settings_has_word(all->shipped_secrets, name, strlen(name));
}

bool settings_is_secret(const settings *all, const char *name)
{
  return orv_is_secret_name(name) || settings_names_secret(all, name);
}

// Whether the file holds the table that the cell `name` would belong to.  For
// an older file this is unknown ("*"), and rows that a user deleted stay
// deleted.
static bool has_table_of(const settings *stored, const char *name)
{
  const size_t length = settings_column(name);
  return name[length] != '\0' &&
         (stored->format < STORE_FORMAT ||
          settings_has_word(stored->tables, "*", 1) ||
          settings_has_word(stored->tables, name, length));
}

// Adds the defaults that `all` lacks.
static bool add_defaults(settings *all, settings *defaults)
{
  settings both = *all;
  if (!make_list(&both, all->count + defaults->count)) {
    return false;
  }
  for (size_t i = 0; i < all->count; i++) {
    both.list[i] = all->list[i];
  }
  for (size_t i = 0; i < defaults->count; i++) {
    const setting *one = defaults->list + i;
    if (settings_find(all, one->name) == nullptr &&
        !(all->stored && has_table_of(all, one->name))) {
      both.list[both.count] = {one->name, one->value, true};
      both.count++;
    }
  }
  both.texts[1] = defaults->texts[0]; // taken
  both.shipped_secrets = defaults->secrets;
  both.shipped_version = defaults->version;
  defaults->texts[0] = nullptr;
  free(all->list);
  *all = both;
  order_settings(all);
  return true;
}

// The text of the stored file, from the folder that counts; NULL like
// store_read_file.  That is the joined transaction's, then what is committed
// but not yet moved.
static char *read_stored(const char *name)
{
  const char *const folders[] = {stage_folder(), COMMIT_FOLDER, "."};
  size_t length;
  for (const char *folder : folders) {
    char path[STORE_PATH_SIZE];
    if (folder == nullptr) {
      continue;
    }
    snprintf(path, sizeof path, "%s/%s", folder, name);
    char *text = store_read_file(store.fd, path, &length);
    if (text != nullptr || store_fault_text() != nullptr) {
      return text;
    }
  }
  return nullptr;
}

// Links are followed: unlike the settings, the defaults are the maker's.
static char *read_defaults(const char *name)
{
  const int dir = open(store.defaults, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir < 0) {
    if (errno != ENOENT) { // a device may have none
      store_fault_errno("The defaults cannot be read");
    }
    return nullptr;
  }
  size_t length;
  char *text = store_read_linked(dir, name, &length);
  close(dir);
  return text;
}

// `text` is the stored one, taken; NULL for none.
static bool read_both(const char *name, char *text, settings *all,
                      settings *defaults)
{
  if (text != nullptr) {
    if (!settings_parse(name, text, all)) {
      return false;
    }
    all->stored = true;
  }
  text = store_fault_text() == nullptr ? read_defaults(name) : nullptr;
  if (text == nullptr) {
    return store_fault_text() == nullptr;
  }
  return settings_parse(name, text, defaults) && add_defaults(all, defaults);
}

// Only now may a row of the defaults turn out to belong to a stored table.
static void spell_names(settings *all)
{
  size_t kept = 0;
  for (setting *one = all->list; one < all->list + all->count; one++) {
    const char *spelled = spell_name(one->name);
    if (spelled != nullptr) { // into the text that the settings own
      memcpy(const_cast<char *>(one->name), spelled, strlen(spelled));
    }
    if (!(one->shipped && all->stored && has_table_of(all, one->name))) {
      all->list[kept] = *one;
      kept++;
    }
  }
  all->count = kept;
  order_settings(all);
}

bool settings_imagine(const char *name, char *text, settings *all)
{
  settings defaults = {};
  *all = {};
  settings_free(all);
  const bool whole = read_both(name, text, all, &defaults);
  settings_free(&defaults);
  if (whole && spell_name != nullptr && all->list != nullptr) {
    spell_names(all);
  }
  return whole;
}

bool settings_has_stored(const settings *all)
{
  const setting *one = all->list;
  while (one < all->list + all->count && one->shipped) {
    one++;
  }
  return one < all->list + all->count;
}

// Values of another version could have another meaning.  For an older version
// the meaning is the same if the maker ships no program to migrate them.
static bool judge_version(const char *name, const settings *all)
{
  const unsigned known = all->shipped_version;
  if (all->version == known || !settings_has_stored(all)) {
    return true;
  }
  if (all->version > known) {
    return store_fault("The settings %s are of a newer version (%u) than this "
                       "device knows (%u)",
                       name, all->version, known);
  }
  const owned_text hook(store_migration(name));
  if (hook == nullptr) {
    return store_fault_text() == nullptr;
  }
  return store_fault("The settings %s are of an older version (%u), and were "
                     "not brought to this device's (%u)",
                     name, all->version, known);
}

bool settings_read(const char *name, settings *all)
{
  return settings_read_any(name, all) && judge_version(name, all);
}

bool settings_read_any(const char *name, settings *all)
{
  *all = {};
  settings_free(all);
  if (!store_is_name(name)) {
    return store_fault("\"%.50s\" is not a valid name of a settings file",
                       name);
  }
  return settings_imagine(name, store.fd >= 0 ? read_stored(name) : nullptr,
                          all);
}
