// Names that a form and its scripts must agree on.
//
// A script may make its names of parts, so a name counts as reported when the
// code of the form's scripts holds it, or a beginning of it that an expansion
// goes on with.  Findings are about names that no part of the code
// can make.

#include <algorithm>

#include "references.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// --- what scripts name -------------------------------------------------------

struct vocabulary {
  std::set<std::string> words;
  std::set<std::string> stems;
};

static void add_script(vocabulary *known, const script &s)
{
  known->words.insert(s.words.begin(), s.words.end());
  known->stems.insert(s.stems.begin(), s.stems.end());
}

// Prefixes that scripts put in front of a name. Without one it is the name by
// itself.
static const char *const prefixes[] = {"",   "d_",     "c_",  "o_",
                                       "u_", "error_", "new_"};

// Whether an expansion goes on with a beginning of the name. A beginning of one
// or two letters, as in "v$i", could be that of every name, unless a "_" ends
// it.
static bool begins_it(const vocabulary &known, const std::string &name)
{
  for (size_t length = 1; length < name.size(); length++) {
    if ((length >= 3 || name[length - 1] == '_') &&
        known.stems.count(name.substr(0, length)) != 0) {
      return true;
    }
  }
  return false;
}

static bool names_it(const vocabulary &known, const std::string &any_case)
{
  const std::string name = lower(any_case);
  const std::string stem = without_digits(name);
  for (const char *prefix : prefixes) {
    if (known.words.count(prefix + name) != 0 ||
        known.words.count(prefix + stem) != 0) {
      return true;
    }
  }
  // "name_$row" is meant for it; that is reported in the script.
  return begins_it(known, name) || has_cell(known.words, name) ||
         known.stems.count(name + "_") != 0;
}

// The confirmations show the values of whatever form was submitted. The start
// page is one of the special forms, too, but no form was submitted before it.
static bool takes_over(const form &f)
{
  return is_special(f.name) && f.name != "orvmenu";
}

// What orv-store reports: the form's items, and what waits to be kept.
static void add_own(vocabulary *known, const form &f)
{
  if (f.name == "confirm") {
    known->words.insert({"confirm_token", "confirm_who", "confirm_left",
                         "confirm_clock", "confirm_change", "confirm_back",
                         "confirm_box"});
    return;
  }
  for (const form_item &item : f.items) {
    known->words.insert(lower(item.name));
    known->words.insert("select_" + lower(item.selector));
  }
}

// All that the scripts of the form name, small letters alone. Scripts in other
// languages count by their words. A confirmation may show what any script of
// the device reports.
static vocabulary vocabulary_of(const device &dev, const form &f)
{
  vocabulary known;
  if (dev.scripts.empty() && dev.others.empty() && dev.keepers.empty()) {
    return known; // a folder without scripts says nothing
  }
  known.words = {"saved_change", "saved_pending", "saved_note",
                 "orv_stamp"}; // what the library reports
  if (keeps_itself(dev, f)) {
    add_own(&known, f);
  }
  if (takes_over(f)) {
    known.words.insert("after_save"); // what a write script may report
    for (const auto &entry : dev.scripts) {
      add_script(&known, entry.second);
    }
    return known;
  }
  for (const std::string &name : f.runs) {
    add_script(&known, dev.scripts.at(name));
  }
  for (const script_line &line : f.scripts) {
    const auto other = dev.others.find(line.script);
    if (other != dev.others.end()) {
      add_script(&known, other->second);
    }
  }
  if (known.words.count("orv_history") != 0) {
    known.stems.insert("history"); // history0 and so on
  }
  return known;
}

// Confirmations show values of whatever form was submitted: all items count.
static std::set<std::string> named_items(const device &dev, const form &f)
{
  std::set<std::string> names;
  for (const auto &entry : dev.forms) {
    if (entry.first == f.name || takes_over(f)) {
      for (const form_item &item : entry.second.items) {
        if (!item.name.empty()) {
          names.insert(lower(item.name));
        }
      }
    }
  }
  return names;
}

// --- variables in texts ------------------------------------------------------

// What a web server and the system itself put into the environment.
static bool is_environment(const device &dev, const std::string &name)
{
  static const word_set of_file = {"SYSTEM_TYPE", "HW_VERSION", "SW_VERSION"};
  if (of_file.count(name) != 0) {
    return !dev.has_system_type || dev.system_names.count(name) != 0;
  }
  static const word_set own = {"QUERY_STRING",
                               "PATH_INFO",
                               "DOCUMENT_ROOT",
                               "CONTENT_TYPE",
                               "GATEWAY_INTERFACE",
                               "CONTENT_LENGTH",
                               "AUTH_TYPE",
                               "HTTPS",
                               "TZ"};
  static const char *const starts[] = {"HTTP_",    "REMOTE_", "SERVER_",
                                       "REQUEST_", "SCRIPT_", "SSL_"};
  return own.count(name) != 0 ||
         std::any_of(
             std::begin(starts), std::end(starts),
             [&](const char *start) { return starts_with(name, start); });
}

// $E:msg$ and $E:fatal$ are the page's own messages, and no script has to name
// them.
static bool is_known(const text_part &ref, const vocabulary &known,
                     const std::set<std::string> &items)
{
  const std::string name = lower(ref.name);
  if (items.count(name) != 0 || items.count(without_digits(name)) != 0 ||
      names_it(known, name)) {
    return true;
  }
  return ref.type == 'E' && (name == "msg" || name == "fatal");
}

// A check_msg may name a place for its message that is no item, and the text
// asks for it by that name.
static void check_references(const device &dev, const form &f,
                             const vocabulary &known, findings *found)
{
  std::set<std::string> items = named_items(dev, f);
  for (const form_line &line : f.lines) {
    if (line.keyword == "check_msg" && !line.continues) {
      items.insert(lower(line.text.substr(0, line.text.find(' '))));
    }
  }
  static const std::string types = "CDENOUV";
  for (const form_line &line : f.lines) {
    for (const text_part &ref : references_of(line.text)) {
      if (types.find(ref.type) == std::string::npos ||
          ref.name.find_first_of(" \t") != std::string::npos) {
        continue; // reported as malformed
      }
      if (ref.type == 'N') {
        if (!is_environment(dev, ref.name)) {
          report(found, f, line, ref.offset, "unknown-variable",
                 "the environment of a page has no " + in_quotes(ref.name) +
                     did_you_mean(ref.name,
                                  {"SYSTEM_TYPE", "HW_VERSION", "SW_VERSION",
                                   "REMOTE_USER", "REMOTE_ADDR"}));
        }
      } else if (!is_known(ref, known, items)) {
        std::set<std::string> near = items;
        near.insert(known.words.begin(), known.words.end());
        report(found, f, line, ref.offset, "unknown-variable",
               in_quotes(ref.name) +
                   " is not an item of this form, and none of its scripts "
                   "mentions it" +
                   did_you_mean(ref.name, near));
      }
    }
  }
}

// --- items -------------------------------------------------------------------

// A field whose name stands in no script is read and written by none.
static void check_reported(const form &f, const vocabulary &known,
                           findings *found)
{
  for (const form_item &item : f.items) {
    if (is_input(item) && !names_it(known, item.name) &&
        !starts_with(item.name, "unnamed")) {
      report(found, f, *item.lines.front(), 0, "unreported",
             "none of this form's scripts mentions " + in_quotes(item.name) +
                 did_you_mean(item.name, known.words));
    }
  }
}

// Entries have names of their own, which a slip makes unknown without a
// word.
static void check_list(const form &f, const form_item &item,
                       const vocabulary &known, findings *found)
{
  const std::string wanted = "select_" + lower(item.selector);
  if (known.stems.count(wanted) + known.stems.count("select_") +
              known.stems.count(wanted + "_") != // reported in the script
          0 ||
      has_cell(known.words, wanted)) {
    return;
  }
  std::set<std::string> lists;
  for (const std::string &word : known.words) {
    if (starts_with(word, "select_")) {
      lists.insert(without_digits(word));
    }
  }
  report(found, f, *item.lines.front(), 0, "list-entries",
         "none of this form's scripts reports " + in_quotes(wanted + "0") +
             ", so the list stays empty" + did_you_mean(wanted, lists));
}

// A secret that is drawn without being asked for. A field of such a name shows
// dots; a condition asks whether there is a value, and draws none.
static void check_shown_secrets(const form &f, findings *found)
{
  for (const form_item &item : f.items) {
    if (item.type == PT_TEXT_FIXED && is_secret(item.name)) {
      report(found, f, *item.lines.front(), 0, "secret",
             in_quotes(item.name) +
                 " is a secret, and everyone who sees the page sees it");
    }
  }
  for (const form_line &line : f.lines) {
    for (const text_part &ref : references_of(line.text)) {
      if (std::string("VUOCD").find(ref.type) != std::string::npos &&
          is_secret(ref.name) && line.keyword != "if" &&
          line.keyword != "ifnot") {
        report(found, f, line, ref.offset, "secret",
               in_quotes(ref.name) +
                   " is a secret, and everyone who sees the page sees it");
      }
    }
  }
}

// --- scripts that name nothing -----------------------------------------------

// Whether the command prints lines whose names only the run knows: those of a
// file, as they come. A function that is given names does not count. In a
// function, printf '%s="%s"\n' "$1" "$2" prints a name that stands where it is
// called.
static bool prints_any_name(const bash_command &command)
{
  const std::vector<bash_word> &words = command.words;
  if (command.kind != BASH_SIMPLE || words.size() < 2 ||
      command.redirected_out || command.substitution > 0) {
    return false;
  }
  const std::string &name = words[0].plain;
  const std::string &format = words[1].plain;
  if (name == "printf" && starts_with(format, "%s=") && words.size() > 2 &&
      words[2].expansions.size() == 1) {
    return command.function.empty() ||
           words[2].expansions[0].rest.find('=') != std::string::npos;
  }
  return command.function.empty() &&
         (name == "cat" || name == "sed" || name == "grep" ||
          (name == "echo" && starts_with(format, "$")));
}

// Whether the form's scripts hand on whatever a file holds: then their code
// says nothing about names.
static bool hands_on(const device &dev, const form &f)
{
  return std::any_of(f.runs.begin(), f.runs.end(), [&](const auto &name) {
    const auto &commands = dev.scripts.at(name).code.commands;
    return std::any_of(commands.begin(), commands.end(), prints_any_name);
  });
}

// A confirmation shows values of all forms, so one script that hands on a file
// would silence it for good: it is judged all the same.
void check_exchange(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    check_shown_secrets(f, found);
    const vocabulary known = vocabulary_of(dev, f);
    if (known.words.empty() || lacks_script(dev, f.scripts[TASK_READ])) {
      continue; // no script to agree with; that is reported already
    }
    if (takes_over(f) || !hands_on(dev, f)) {
      check_references(dev, f, known, found);
      check_reported(f, known, found);
    }
    for (const form_item &item : f.items) {
      if (!keeps_itself(dev, f) &&
          (item.type == PT_ISELECT || item.type == PT_IMENU)) {
        check_list(f, item, known, found);
      }
    }
  }
}
