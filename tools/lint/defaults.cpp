// The settings that a device is shipped with, judged by the forms that edit
// them.

#include <string.h>

#include <algorithm>

#include "default_files.h"
#include "flow.h"
#include "orv_check.h"
#include "orv_vars.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

struct settings_check {
  const device &dev;
  const source_file &file;
  std::vector<const form *> forms; // that load or store the file
  std::set<std::string> words;     // of their scripts
  std::set<std::string> stems;     // of names that these make
  findings *found;
};

// --- which forms -------------------------------------------------------------

// `runs` holds only scripts that were read, so at() finds each.
static bool uses_file(const device &dev, const form &f, const std::string &name)
{
  if (keeps_itself(dev, f)) {
    return name.substr(0, name.find('@')) == f.name;
  }
  return std::any_of(
      f.runs.begin(), f.runs.end(), [&](const std::string &script_name) {
        return dev.scripts.at(script_name).settings.count(name) != 0;
      });
}

// Beginnings of names count as words, too: orv_show "port$i" uses port0.
static settings_check settings_of(const device &dev, const std::string &name,
                                  const source_file &file, findings *found)
{
  settings_check c = {dev, file, {}, {}, {}, found};
  for (const auto &entry : dev.forms) {
    if (uses_file(dev, entry.second, name)) {
      c.forms.push_back(&entry.second);
      for (const std::string &script_name : entry.second.runs) {
        const script &s = dev.scripts.at(script_name);
        c.words.insert(s.words.begin(), s.words.end());
        c.words.insert(s.stems.begin(), s.stems.end());
        c.stems.insert(s.stems.begin(), s.stems.end());
      }
    }
  }
  return c;
}

// The item that the name belongs to, NULL when no form has it. A name without a
// row's number finds its column as well, so that the finding can say what it
// lacks.
static const form_item *find_item(const settings_check &c,
                                  const std::string &name, const form **f)
{
  for (const form *candidate : c.forms) {
    for (const form_item &item : candidate->items) {
      const std::string own = lower(item.name);
      if (item.input && (item.table < 0 ? own == lower(name)
                                        : own == without_digits(lower(name)))) {
        *f = candidate;
        return &item;
      }
    }
  }
  return nullptr;
}

// --- values ------------------------------------------------------------------

// What the field's check says of the value, "" when it passes. By the
// executable's own function, so in the words of a page. It may cut the text,
// hence the copy, and leaves its message among those of the page, which are
// emptied for the next value. A blank value is what a device has before anybody
// has set it up.
static std::string check_fault(const form_item &item, const std::string &value)
{
  const form_line *line = attribute(item, "check");
  int nullok = 0;
  const char *options = nullptr;
  const checks_info *check = orv_find_check(
      line != nullptr ? line->text.c_str() : nullptr, &nullok, &options);
  // Those that ask the device at hand would ask this one.
  if (check == nullptr || (orv_check_traits(check) & CHECK_DEVICE) != 0 ||
      value.empty()) {
    return "";
  }
  std::string copy = value;
  check->func(copy.data(), options, nullptr, "value", nullptr);
  const char *message = orv_get_var(&err_vars, "value", o_best);
  std::string fault = message != nullptr ? message : "";
  orv_free_vars(&err_vars);
  return fault;
}

// What no field can hold. The executable refuses these before it asks any
// check, so they are looked for even where the check would ask the device.
static std::string foreign_character(const std::string &value)
{
  for (const char c : value) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (strchr("\"$\\`", c) != nullptr || byte < ' ' || byte > 126) {
      return in_quotes(std::string(1, c)) + " is in it, which no field accepts";
    }
  }
  return "";
}

// A page lets true and 1 pass for a box, but shows a form as changed whose box
// is reported so. Entries of an iselect are compared with those of the file; a
// fixed field shows whatever there is.
static std::string fault_of(const form &f, const form_item &item,
                            const std::string &value)
{
  const std::set<std::string> choices = choices_of(f, item);
  if (item.type == PT_CHECKBOX && value != "True" && value != "False") {
    return "a box must be \"True\" or \"False\"";
  }
  if (item.type == PT_SELECT && choices.count(value) == 0) {
    return "it is none of the choices" + did_you_mean(value, choices);
  }
  if (item.type != PT_TEXT_FIELD) {
    return "";
  }
  const std::string foreign = foreign_character(value);
  return foreign.empty() ? check_fault(item, value) : foreign;
}

// --- lines -------------------------------------------------------------------

static bool is_quoted(const std::string &value)
{
  return value.size() > 1 && value.front() == value.back() &&
         (value[0] == '"' || value[0] == '\'');
}

// Scripts make names of a beginning and a number. One of a letter or two would
// let nearly every name pass.
static void check_name(const settings_check &c, const std::string &name,
                       int line)
{
  const std::string key = lower(name);
  const bool made =
      std::any_of(c.stems.begin(), c.stems.end(), [&](const std::string &stem) {
        return stem.size() > 2 && starts_with(key, stem);
      });
  if (made || c.words.count(key) + c.words.count(without_digits(key)) != 0) {
    return;
  }
  std::set<std::string> names;
  for (const form *f : c.forms) {
    for (const form_item &item : f->items) {
      if (item.input) {
        names.insert(item.name);
      }
      if (without_digits(key) == "select_" + lower(item.selector)) {
        return; // an entry of its list
      }
    }
  }
  report(c.found, c.file, line, 1, "default-name",
         "no form has " + in_quotes(name) +
             ", and no script that loads the file uses it" +
             did_you_mean(name, names));
}

// Whether a secret is stored otherwise than it is typed. The check is that of
// what is typed; a hash is longer, and has dollars that no field takes. A
// script that calls such a program for another value is let off as well.
static bool makes_hashes(const settings_check &c, const std::string &value)
{
  static const std::set<std::string> makers = {
      "orv_show_hash", "orv_take_hash", "openssl",       "mkpasswd", "passwd",
      "cryptpw",       "sha256sum",     "sha512sum",     "md5sum",   "crypt",
      "base64",        "argon2",        "wpa_passphrase"};
  return value.find('$') != std::string::npos ||
         std::any_of(makers.begin(), makers.end(),
                     [&](const std::string &maker) {
                       return c.words.count(maker) != 0;
                     });
}

// One finding for a line: with quotes or blanks in it, its value says nothing.
// `names` gets the name all the same, since the rows behind ask for it, and in
// small letters, because names have no case on a page.
static void check_setting(const settings_check &c, const std::string &text,
                          int line, std::set<std::string> *names)
{
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    report(c.found, c.file, line, 1, "default-line",
           "a setting has the form NAME=VALUE, and this line has no \"=\"");
    return;
  }
  const std::string name = text.substr(0, equals);
  const std::string value = text.substr(equals + 1);
  if (!names->insert(lower(name)).second) {
    report(c.found, c.file, line, 1, "default-line",
           in_quotes(name) +
               " is already set above; only one of the lines counts");
    return;
  }
  if (name.find_first_of(" \t") != std::string::npos) {
    report(c.found, c.file, line, 1, "default-line",
           "remove the blanks around \"=\": they become part of the name and "
           "the value");
    return;
  }
  if (is_quoted(value)) {
    report(c.found, c.file, line, static_cast<int>(equals) + 2, "default-line",
           "remove the quotes: they become part of the value");
    return;
  }
  const form *f = nullptr;
  const form_item *item = find_item(c, name, &f);
  if (item == nullptr) {
    check_name(c, name, line);
    return;
  }
  if (item->table >= 0 && lower(item->name) == lower(name)) {
    report(c.found, c.file, line, 1, "default-name",
           in_quotes(name) +
               " is a column: a value has the number of its row,"
               " as in " +
               in_quotes(name + "0"));
    return;
  }
  const bool secret = is_secret(item->name);
  const std::string fault =
      secret && makes_hashes(c, value) ? "" : fault_of(*f, *item, value);
  if (!fault.empty()) {
    report(c.found, c.file, line, static_cast<int>(equals) + 2, "default-value",
           (secret ? "this" : in_quotes(value)) + " is no value of " +
               in_quotes(name) + ": " + fault);
  }
}

// Whether the name without its number is that of a list: its entries are
// counted like rows.
static bool has_list(const settings_check &c, const std::string &stem)
{
  return std::any_of(c.forms.begin(), c.forms.end(), [&](const form *f) {
    return std::any_of(f->items.begin(), f->items.end(),
                       [&](const form_item &item) {
                         return !item.selector.empty() &&
                                stem == "select_" + lower(item.selector);
                       });
  });
}

// What is shipped for a list must be one of the entries that are shipped. Where
// the file has none, a script reports them, and only the run knows which.
static void check_entries(const settings_check &c, const std::string &text,
                          int line)
{
  const form *f = nullptr;
  const std::string name = text.substr(0, text.find('='));
  const std::string value = text.substr(text.find('=') + 1);
  const form_item *item = find_item(c, name, &f);
  if (item == nullptr || item->type != PT_ISELECT || value.empty()) {
    return;
  }
  std::set<std::string> entries;
  for (const std::string &other : c.file.lines) {
    const size_t equals = other.find('=');
    if (equals != std::string::npos &&
        without_digits(lower(other.substr(0, equals))) ==
            "select_" + lower(item->selector)) {
      entries.insert(first_word(other.substr(equals + 1)));
    }
  }
  if (!entries.empty() && entries.count(value) == 0) {
    report(c.found, c.file, line, static_cast<int>(name.size()) + 2,
           "default-value",
           in_quotes(value) + " is none of the entries of " +
               in_quotes("select_" + item->selector) +
               did_you_mean(value, entries));
  }
}

// A row that is missing ends the table, or moves those behind it. Only the rows
// of a table with a fixed number have places of their own, which may stay
// empty.
static void check_rows(const settings_check &c,
                       const std::set<std::string> &names)
{
  const form *f = nullptr;
  for (size_t i = 0; i < c.file.lines.size(); i++) {
    const std::string name =
        c.file.lines[i].substr(0, c.file.lines[i].find('='));
    const form_item *item = find_item(c, name, &f);
    const std::string stem = without_digits(lower(name));
    if (stem.size() == name.size() ||
        ((item == nullptr || item->table < 0) && !has_list(c, stem))) {
      continue;
    }
    const long row = strtol(name.c_str() + stem.size(), nullptr, 10);
    const long rows =
        item != nullptr && item->table >= 0 ? fixed_rows(*f, *item) : 0;
    if (rows > 0) { // each has its place
      if (row >= rows) {
        report(c.found, c.file, static_cast<int>(i) + 1, 1, "default-row",
               "the table has the rows 0 to " + std::to_string(rows - 1) +
                   ", and not that of " + in_quotes(name));
        return;
      }
      continue;
    }
    if (row > 0 && names.count(stem + std::to_string(row - 1)) == 0) {
      report(c.found, c.file, static_cast<int>(i) + 1, 1, "default-row",
             in_quotes(name) + " has no row " + std::to_string(row - 1) +
                 " before it; rows are numbered from 0");
      return; // one mistake is one finding
    }
  }
}

void check_defaults(const device &dev, findings *found)
{
  for (const auto &entry : dev.defaults) {
    const settings_check c =
        settings_of(dev, entry.first, *entry.second, found);
    if (c.forms.empty()) {
      check_unused_file(dev, *entry.second, entry.first, found);
      continue; // nothing is known of its names
    }
    std::set<std::string> names;
    int number = 0;
    for (const std::string &line : entry.second->lines) {
      number++;
      if (!line.empty() && line[0] != '#') {
        check_setting(c, line, number, &names);
        check_entries(c, line, number);
      }
    }
    check_rows(c, names);
  }
}
