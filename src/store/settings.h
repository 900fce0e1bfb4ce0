// Settings files: lines NAME=VALUE below a head.
//
//   #orv 2 NUMBER OWNER      format, number of the commit, page that saved it
//   #table COLUMN...         columns whose rows are stored as a whole
//   #version NUMBER          of the form, where it is not 1
//   #secret NAME...          values that are secret though no name says so
//   NAME=VALUE
//
// An older head is "#orv TOKEN OWNER"; a file without one was made by hand, and
// has the version in its first line, as a file of defaults has.

#ifndef STORE_SETTINGS_H
#define STORE_SETTINGS_H

#include <stddef.h>
#include <stdint.h>

constexpr int STORE_FORMAT = 2;

// One value; both texts borrowed from its settings.
struct setting {
  const char *name;
  const char *value;
  bool shipped; // it comes from the defaults
};

// A file taken apart, or two put together.
struct settings {
  char *texts[2]; // owned: what the names and values point into
  setting *list;  // owned, ordered by name; a name occurs once
  size_t count;
  bool stored;              // somebody has saved it
  int format;               // 0: by hand
  uint64_t number;          // of the commit; 0: none
  unsigned version;         // of the form that stored it
  unsigned shipped_version; // of the form that the device has, by the defaults
  const char *owner;
  const char *tables;          // columns with a blank before each, "" for none
  const char *secrets;         // names, likewise
  const char *shipped_secrets; // those that the defaults name
};

// How the form at hand spells a name, of the same length: borrowed, and valid
// until the next call; NULL when it has no such item.  Where this is set, what
// is put together from here on is spelled so: letter case makes no other name.
using settings_speller = const char *(*)(const char *name);
void settings_spell_by(settings_speller spell);

// Reads what is in force of the file `name`: what was stored, and of the
// defaults all that the stored file does not have.  A table that was stored is
// whole as it was stored.  False with a fault, also when they are of another
// version of the form than the device's; owned by the caller (settings_free) in
// either case.
bool settings_read(const char *name, settings *all);

// The same of whatever version: to be looked at, not to be used.
bool settings_read_any(const char *name, settings *all);

// Takes one file's text apart, which is taken.  False with a fault that names
// it: a newer format, or no memory.
bool settings_parse(const char *name, char *text, settings *all);

// What would be in force of the file if `text`, which is taken, were stored.
// False and owned as above.
bool settings_imagine(const char *name, char *text, settings *all);

void settings_free(settings *all);

// Whether a value was stored.  Settings without one are of every version.
bool settings_has_stored(const settings *all);

// The value of that name, NULL when there is none: alone, and with where it
// comes from.
const setting *settings_find(const settings *all, const char *name);
const char *settings_get(const settings *all, const char *name);

// Whether the file itself says that the value is a secret.
bool settings_names_secret(const settings *all, const char *name);

// Whether the value is a secret, by its name or by what the file says.
bool settings_is_secret(const settings *all, const char *name);

// Whether a page could show the value again; else there is a fault.  A secret,
// which no page holds, may be a hash.
bool settings_is_sound(const setting *one, bool is_secret);

// The length of `name` without its row number.
size_t settings_column(const char *name);

#endif
