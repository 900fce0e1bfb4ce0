// Settings files: lines NAME=VALUE below a head.
//
//   #orv 2 NUMBER OWNER      format, number of the commit, page that saved it
//   #table COLUMN...         columns whose rows are stored as a whole
//   #version NUMBER          of the form, where it is not 1
//   #secret NAME...          values that are secret though no name says so
//   NAME=VALUE
//
// An older head is "#orv TOKEN OWNER".  A file without a head was made by hand,
// and has the version in its first line, like a file of defaults.

#ifndef STORE_SETTINGS_H
#define STORE_SETTINGS_H

#include <stddef.h>
#include <stdint.h>

constexpr int STORE_FORMAT = 2;

// One value; both texts borrowed from its settings.
struct setting {
  const char *name;
  const char *value;
  bool shipped;       // it comes from the defaults
  bool lasts = false; // and will, as the save does not replace its table
};

// One parsed file, or two merged ones.
struct settings {
  char *texts[2]; // owned: names and values point into these
  setting *list;  // owned, ordered by name; a name occurs once
  size_t count;
  bool stored;              // it was saved at least once
  int format;               // 0: by hand
  uint64_t number;          // of the commit; 0: none
  unsigned version;         // of the form that stored it
  unsigned shipped_version; // of the device's form, from the defaults
  const char *owner;
  const char *tables;          // columns with a blank before each, "" for none
  const char *secrets;         // names, likewise
  const char *shipped_secrets; // those named by the defaults
};

// How the form spells a name, or what of it stands before a row's number:
// borrowed, NULL when it has no such item.  Once this is set, merged settings
// use that spelling, since names that differ only in letter case are the same.
using settings_speller = const char *(*)(const char *name);
void settings_spell_by(settings_speller spell);

// Reads the values in force of the file `name`: those stored, and the defaults
// of all others.  A stored table gets no rows from the defaults.  False with a
// fault, also when the file is of another version of the form than the
// device's; owned by the caller (settings_free) in either case.
bool settings_read(const char *name, settings *all);

// The same for any version: the values can be inspected, but not used.
bool settings_read_any(const char *name, settings *all);

// Parses the text of one file, which is taken.  False with a fault that names
// the file: a newer format, or no memory.
bool settings_parse(const char *name, char *text, settings *all);

// The values that would be in force if `text`, which is taken, were stored as
// the file.  False and owned as above.
bool settings_imagine(const char *name, char *text, settings *all);

void settings_free(settings *all);

// Whether any value was stored.  Without one, settings fit every version.
bool settings_has_stored(const settings *all);

// The value of that name, NULL when there is none: alone, and with its origin.
const setting *settings_find(const settings *all, const char *name);
const char *settings_get(const settings *all, const char *name);

// Whether the file itself says that the value is a secret.
bool settings_names_secret(const settings *all, const char *name);

// Whether the value is a secret, by its name or by what the file says.
bool settings_is_secret(const settings *all, const char *name);

// Whether a page could show the value again; otherwise there is a fault.  A
// secret, which no page holds, may be a hash.
bool settings_is_sound(const setting *one, bool is_secret);

// Whether the first `length` bytes of `name` are one of the words, which have a
// blank before each.
bool settings_has_word(const char *words, const char *name, size_t length);

// The length of `name` without its row number.
size_t settings_column(const char *name);

// The number of the row that `name` can be a cell of; -1 when it has none, or
// none that a table can have.
int settings_row(const char *name);

// One more than the highest row that any of the names can be a cell of.
int settings_count_rows(const settings *all);

#endif
