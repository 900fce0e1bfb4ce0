// Forms without a script: what orv-store stores for them, and what it cannot.

#include <algorithm>
#include <fstream>
#include <sstream>

#include "page_values.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// A form for several things has a file for each, NAME@SUBITEM, and what one of
// them has is enough: entries of a list may be there for one thing alone.
// Whether `file` of defaults/ or state/ holds settings of the form.
static bool is_of_form(const std::string &file, const form &f)
{
  return file.substr(0, file.find('@')) == f.name;
}

// Names are compared without regard to capitals, as the page does; `start`
// comes in small letters.
static bool has_line(const std::vector<std::string> &lines,
                     const std::string &start)
{
  return std::any_of(lines.begin(), lines.end(), [&](const std::string &line) {
    return starts_with(lower(line), start);
  });
}

static bool is_shipped(const device &dev, const form &f,
                       const std::string &start)
{
  return std::any_of(dev.defaults.begin(), dev.defaults.end(),
                     [&](const auto &entry) {
                       return is_of_form(entry.first, f) &&
                              has_line(entry.second->lines, start);
                     });
}

// The files of state/ are not kept with the rest of the device, since no other
// rule looks into what users have entered; they are read here, for forms
// without a script and with a list alone.
// Whether the device has stored it: a list's entries may come from the device.
static bool is_stored(const device &dev, const form &f,
                      const std::string &start)
{
  return std::any_of(
      dev.settings.begin(), dev.settings.end(), [&](const std::string &name) {
        std::ifstream stream(dev.dir + "/state/" + name, std::ios::binary);
        std::stringstream text;
        text << stream.rdbuf();
        return is_of_form(name, f) && has_line(split_lines(text.str()), start);
      });
}

// That script belongs to another form, or to none: it stores into the same file
// what the device has found, such as the networks in reach.  A name that it
// puts together, "select_net$i", counts as well.
// Whether a script that works on the form's settings has such a name.
static bool is_named(const device &dev, const form &f, const std::string &list)
{
  return std::any_of(
      dev.scripts.begin(), dev.scripts.end(), [&](const auto &entry) {
        const script &s = entry.second;
        return std::any_of(s.settings.begin(), s.settings.end(),
                           [&](const std::string &file) {
                             return is_of_form(file, f);
                           }) &&
               (s.stems.count(list) != 0 || s.words.count(list + "0") != 0);
      });
}

static bool has_entries(const device &dev, const form &f,
                        const std::string &list)
{
  const std::string start = list + "0=";
  return is_shipped(dev, f, start) || is_stored(dev, f, start) ||
         is_named(dev, f, list);
}

// A box that ends so while there are no secrets without one is left alone: it
// may mean something else, such as log_clear.
// A box NAME_clear clears the secret NAME, which must exist.
static void check_clearing(const form &f, const form_item &item,
                           findings *found)
{
  static const std::string end = "_clear";
  std::set<std::string> secrets; // without a box, but for this one
  for (const form_item &other : f.items) {
    if (other.type == PT_TEXT_FIELD && is_secret(other.name)) {
      secrets.insert(other.name + end);
    }
  }
  for (const form_item &other : f.items) {
    if (other.name != item.name) {
      secrets.erase(other.name);
    }
  }
  if (item.type == PT_CHECKBOX && ends_with(item.name, end) &&
      !secrets.empty() && secrets.count(item.name) == 0) {
    report(found, f, *item.lines[0], 0, "keeper",
           "there is no secret for the box " + in_quotes(item.name) +
               did_you_mean(item.name, secrets));
  }
}

// Parts of names, since boxes are called remove_psk as well as psk_remove.
// Words that say that a box empties something.
static bool says_clear(const std::string &name)
{
  static const char *const words[] = {"clear", "remove", "forget", "delete",
                                      "empty", "reset",  "erase",  "no_",
                                      "unset", "wipe",   "drop"};
  return std::any_of(std::begin(words), std::end(words), [&](const char *word) {
    return name.find(word) != std::string::npos;
  });
}

// A box that says so of a secret, under any other name: it is only stored.
// Its name must hold that of the secret and such a word: wifi_psk_save beside
// wifi_psk is nothing to report.
static void check_other_clearing(const form &f, const form_item &item,
                                 findings *found)
{
  const std::string box = lower(item.name);
  for (const form_item &secret : f.items) {
    const std::string name = lower(secret.name);
    if (item.type == PT_CHECKBOX && secret.type == PT_TEXT_FIELD &&
        is_secret(secret.name) && box != name + "_clear" &&
        box.find(name) != std::string::npos && says_clear(box)) {
      report(found, f, *item.lines[0], 0, "keeper",
             "this box empties nothing: the one for " + in_quotes(secret.name) +
                 " is called " + in_quotes(secret.name + "_clear"));
      return;
    }
  }
}

static void check_item(const device &dev, const form &f, const form_item &item,
                       findings *found)
{
  const form_line &line = *item.lines[0];
  // A page never shows a secret, and rows are stored as it shows them.  "Blank
  // means unchanged" has no row that it could mean, since rows move up when one
  // before them is deleted.
  if (item.table >= 0 && is_secret(item.name)) {
    report(found, f, line, 0, "keeper",
           in_quotes(item.name) + " is secret, and rows are stored as shown: "
                                  "such a table needs a script");
  }
  const form_line *check = attribute(item, "check");
  if (item.type == PT_TEXT_FIELD && is_secret(item.name) && check != nullptr &&
      !starts_with(check->text, "nullok")) {
    report(found, f, *check, 0, "secret-blank",
           "a blank " + in_quotes(item.name) +
               " means that the secret stays, but this check refuses it; use "
               "nullok");
  }
  check_clearing(f, item, found);
  check_other_clearing(f, item, found);
  // Entries that nobody ships are a list that stays empty for ever: orv-store
  // reads them from the form's file and makes none.
  if (item.type == PT_ISELECT &&
      !has_entries(dev, f, "select_" + lower(item.selector))) {
    report(found, f, line, 0, "keeper",
           "neither defaults/ nor state/" + f.name + " has " +
               in_quotes("select_" + item.selector + "0") +
               ", and no script stores the entries of this list there");
  }
  // A shipped row 0 speaks for its column.
  const std::string cell = lower(item.name) + (item.table >= 0 ? "0" : "");
  if (item.type == PT_TEXT_FIXED && !is_shipped(dev, f, cell)) {
    report(found, f, line, 0, "keeper",
           "nothing reports " + in_quotes(item.name) +
               ": read-only values need a script");
  }
  // With a script of its own the field may be judged there; here the template's
  // check is the only one.
  if (item.type == PT_TEXT_FIELD && attribute(item, "check") == nullptr) {
    report(found, f, line, 0, "keeper",
           in_quotes(item.name) + " has no check, and no script judges it");
  }
}

// The forms that the system shows store nothing, whatever their script is.
void check_keepers(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    if (!keeps_itself(dev, f) || is_special(f.name)) {
      continue;
    }
    for (const form_item &item : f.items) {
      check_item(dev, f, item, found);
    }
    const std::string start = f.name + "@";
    if (uses_subitem(f) &&
        std::none_of(dev.settings.begin(), dev.settings.end(),
                     [&](const std::string &name) {
                       return starts_with(name, start);
                     })) {
      // A file's first line stands for the whole: there is no line to which the
      // missing file belongs.
      report(found, {f.file->path, "", {}}, 1, 1, "keeper",
             "the page names a sub-item, and defaults/ has no file " +
                 in_quotes(start + "SUBITEM"));
    }
  }
}
