// Names that a form and its scripts must agree on.
//
// A script may make its names of parts, so a name counts as reported when the
// code of the form's scripts holds it, or a beginning of it that an expansion
// goes on with.  What is told here is told of names that no part of the code
// can make.

#include "lint.h"

#include <algorithm>
#include <ctype.h>
#include <stdlib.h>

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

// The column of a cell's name; of another name, the name itself.
static std::string without_digits(const std::string &name)
{
  return name.substr(0, name.find_last_not_of("0123456789") + 1);
}

// Prefixes that scripts put in front of a name.
static const char *const prefixes[] = {"",   "d_",     "c_",  "o_",
                                       "u_", "error_", "new_"};

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
  return std::any_of(known.stems.begin(), known.stems.end(),
                     [&](const std::string &start) {
                       const bool long_enough =
                           start.size() >= 3 || ends_with(start, "_");
                       return long_enough && start.size() < name.size() &&
                              starts_with(name, start);
                     }) ||
         // A cell as the script sees it: the column's name and a number.
         std::any_of(known.words.begin(), known.words.end(),
                     [&](const std::string &word) {
                       return word.size() > name.size() &&
                              starts_with(word, name) &&
                              without_digits(word) == name;
                     });
}

// The confirmations show the values of whatever form was submitted.
static bool takes_over(const form &f)
{
  return is_special(f.name) && f.name != "orvmenu";
}

// All that the scripts of the form name, small letters alone.
static vocabulary vocabulary_of(const device &dev, const form &f)
{
  vocabulary known;
  if (dev.scripts.empty()) {
    return known;
  }
  known.words = {"saved_change", "orv_stamp"}; // what the library reports
  if (takes_over(f)) {
    for (const auto &entry : dev.scripts) {
      add_script(&known, entry.second);
    }
    return known;
  }
  for (const std::string &name : f.runs) {
    add_script(&known, dev.scripts.at(name));
  }
  return known;
}

// Confirmations show values of whatever form was submitted: all items count.
static std::set<std::string> item_names(const device &dev, const form &f)
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
static bool is_environment(const std::string &name)
{
  static const std::set<std::string> own = {
      "SYSTEM_TYPE",    "HW_VERSION",    "SW_VERSION",   "QUERY_STRING",
      "PATH_INFO",      "DOCUMENT_ROOT", "CONTENT_TYPE", "GATEWAY_INTERFACE",
      "CONTENT_LENGTH", "AUTH_TYPE",     "HTTPS",        "TZ"};
  static const char *const starts[] = {"HTTP_",    "REMOTE_", "SERVER_",
                                       "REQUEST_", "SCRIPT_", "SSL_"};
  return own.count(name) != 0 ||
         std::any_of(
             std::begin(starts), std::end(starts),
             [&](const char *start) { return starts_with(name, start); });
}

struct text_reference {
  char type;
  std::string name;
  size_t offset;
};

// Follows the expansion of a page, so that "$B$V:x$" is no reference.
static std::vector<text_reference> references_of(const std::string &text)
{
  std::vector<text_reference> all;
  size_t at = text.find('$');
  while (at != std::string::npos) {
    const size_t end = text.find('$', at + 3);
    size_t next = at + 1;
    if (at + 2 < text.size() && text[at + 2] == '$') {
      next = at + 3;
    } else if (at + 2 < text.size() && text[at + 2] == ':' &&
               end != std::string::npos) {
      all.push_back({text[at + 1], text.substr(at + 3, end - at - 3), at});
      next = end + 1;
    }
    at = text.find('$', next);
  }
  return all;
}

static bool is_known(const text_reference &ref, const vocabulary &known,
                     const std::set<std::string> &items)
{
  const std::string name = lower(ref.name);
  if (items.count(name) != 0 || items.count(without_digits(name)) != 0 ||
      names_it(known, name)) {
    return true;
  }
  return ref.type == 'E' && (name == "msg" || name == "fatal");
}

static void check_references(const device &dev, const form &f,
                             const vocabulary &known, findings *found)
{
  std::set<std::string> items = item_names(dev, f);
  for (const form_line &line : f.lines) {
    if (line.keyword == "check_msg" && !line.continues) {
      items.insert(lower(line.text.substr(0, line.text.find(' '))));
    }
  }
  static const std::string types = "CDENOUV";
  for (const form_line &line : f.lines) {
    for (const text_reference &ref : references_of(line.text)) {
      if (types.find(ref.type) == std::string::npos ||
          ref.name.find_first_of(" \t") != std::string::npos) {
        continue; // told as malformed
      }
      if (ref.type == 'N') {
        if (!is_environment(ref.name)) {
          tell(found, f, line, ref.offset, "unknown-variable",
               "the environment of a page holds no " + in_quotes(ref.name) +
                   did_you_mean(ref.name,
                                {"SYSTEM_TYPE", "HW_VERSION", "SW_VERSION",
                                 "REMOTE_USER", "REMOTE_ADDR"}));
        }
      } else if (!is_known(ref, known, items)) {
        std::set<std::string> near = items;
        near.insert(known.words.begin(), known.words.end());
        tell(found, f, line, ref.offset, "unknown-variable",
             in_quotes(ref.name) +
                 " is no item of this form, and none of its"
                 " scripts names it" +
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
      tell(found, f, *item.lines.front(), 0, "unreported",
           "none of this form's scripts names " + in_quotes(item.name) +
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
  if (names_it(known, wanted) || known.stems.count("select_") != 0) {
    return;
  }
  std::set<std::string> lists;
  for (const std::string &word : known.words) {
    if (starts_with(word, "select_")) {
      lists.insert(without_digits(word));
    }
  }
  tell(found, f, *item.lines.front(), 0, "list-entries",
       "none of this form's scripts reports " + in_quotes(wanted + "0") +
           ", so the list stays empty" + did_you_mean(wanted, lists));
}

// A secret that is drawn without being asked for.
static void check_shown_secrets(const form &f, findings *found)
{
  for (const form_item &item : f.items) {
    if (item.type == PT_TEXT_FIXED && is_secret(item.name)) {
      tell(found, f, *item.lines.front(), 0, "secret",
           in_quotes(item.name) +
               " is a secret, and everybody who sees the page"
               " sees it");
    }
  }
  for (const form_line &line : f.lines) {
    for (const text_reference &ref : references_of(line.text)) {
      if (std::string("VUOCD").find(ref.type) != std::string::npos &&
          is_secret(ref.name) && line.keyword != "if" &&
          line.keyword != "ifnot") {
        tell(found, f, line, ref.offset, "secret",
             in_quotes(ref.name) +
                 " is a secret, and everybody who sees the page"
                 " sees it");
      }
    }
  }
}

// --- names in scripts --------------------------------------------------------

// What a function of a script does with the names that it is given.
enum name_use { USE_NONE, USE_ERROR, USE_REPORT };

// A function is known by what it prints: names that it is given.
static name_use use_of_format(const std::string &format)
{
  if (format.find("error_%s=") != std::string::npos) {
    return USE_ERROR;
  }
  return starts_with(format, "%s=") ? USE_REPORT : USE_NONE;
}

// The functions that print names they are given, by the formats they print.
static std::map<std::string, name_use> name_functions(const device &dev,
                                                      const std::string &name)
{
  std::map<std::string, name_use> uses = {{"orv_error", USE_ERROR},
                                          {"orv_put", USE_REPORT},
                                          {"orv_show", USE_REPORT}};
  for (const std::string &file : with_sources(dev, name)) {
    for (const bash_command &command : dev.scripts.at(file).code.commands) {
      if (command.function.empty() || command.words.size() < 3 ||
          command.words[0].plain != "printf" || command.redirected_out) {
        continue;
      }
      const name_use use = use_of_format(command.words[1].plain);
      const std::vector<bash_expansion> &given = command.words[2].expansions;
      if (use != USE_NONE && given.size() == 1 &&
          (given[0].name == "1" || given[0].name == "name")) {
        uses[command.function] = use;
      }
    }
  }
  return uses;
}

// A name that stands in a script as it is, and where.
struct literal_name {
  std::string name;
  int line;
  int column;
};

// "$name" of an array that is given its elements once.
static const bash_assignment *array_of(const script &s,
                                       const bash_expansion &expansion)
{
  const bash_assignment *array = nullptr;
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.name == expansion.name && !assignment.elements.empty()) {
        if (array != nullptr) {
          return nullptr;
        }
        array = &assignment;
      }
    }
  }
  return expansion.subscript == "@" && expansion.rest.empty() ? array : nullptr;
}

// The names that a word stands for, as far as they are written out.
static void add_literals(const script &s, const bash_word &word,
                         std::vector<literal_name> *names)
{
  if (word.expansions.empty()) {
    names->push_back({word.plain, word.line, word.column});
    return;
  }
  const bash_assignment *array = array_of(s, word.expansions[0]);
  if (array != nullptr && word.expansions.size() == 1) {
    for (const bash_word &element : array->elements) {
      if (element.expansions.empty()) {
        names->push_back({element.plain, element.line, element.column});
      }
    }
  }
}

static const char *const value_prefixes[] = {"d_", "c_", "o_", "u_"};

// "NAME=..." of a line that is printed; "" when the word is none.
static std::string assigned_name(const std::string &text)
{
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    return "";
  }
  std::string name = text.substr(0, equals);
  for (const char c : name) {
    if (!is_name_char(c) && c != '%' && c != '$' && c != '{' && c != '}') {
      return "";
    }
  }
  return name;
}

// Whether what the command prints reaches the page.
static bool prints(const bash_command &command)
{
  return command.kind == BASH_SIMPLE && command.words.size() > 1 &&
         (command.words[0].plain == "echo" ||
          command.words[0].plain == "printf") &&
         !command.redirected_out && command.substitution == 0 && !command.piped;
}

// Names for which a page has a place to show a message.
static std::set<std::string> message_names(const device &dev,
                                           const std::string &script_name)
{
  std::set<std::string> names = {"msg", "fatal"};
  for (const form *f : forms_of(dev, script_name)) {
    for (const form_item &item : f->items) {
      if (!item.name.empty()) {
        names.insert(lower(item.name));
      }
    }
    for (const form_line &line : f->lines) {
      for (const text_reference &ref : references_of(line.text)) {
        if (ref.type == 'E') {
          names.insert(lower(ref.name));
        }
      }
    }
  }
  return names;
}

static void check_error_name(const script &s, const literal_name &at,
                             const std::set<std::string> &known,
                             findings *found)
{
  const std::string name = lower(at.name);
  if (name.find_first_of("$%") == std::string::npos && known.count(name) == 0) {
    tell(found, *s.file, at.line, at.column, "error-name",
         "no form of this script shows a message for " + in_quotes(at.name) +
             did_you_mean(name, known));
  }
}

// Values that a box has in scripts and never posts.
static bool is_other_truth(const std::string &value)
{
  static const std::set<std::string> words = {"yes", "no", "on",   "off",
                                              "1",   "0",  "true", "false"};
  return value != "True" && value != "False" && words.count(lower(value)) != 0;
}

// The boxes of all forms that run the script.
static std::set<std::string> box_names(const device &dev,
                                       const std::string &script_name)
{
  std::set<std::string> names;
  for (const form *f : forms_of(dev, script_name)) {
    for (const form_item &item : f->items) {
      if (item.type == PT_CHECKBOX) {
        names.insert(lower(item.name));
      }
    }
  }
  return names;
}

static void check_box(const script &s, const literal_name &at,
                      const std::string &value,
                      const std::set<std::string> &boxes, findings *found)
{
  std::string name = lower(at.name);
  for (const char *prefix : value_prefixes) {
    if (starts_with(name, prefix)) {
      name.erase(0, 2);
    }
  }
  if (boxes.count(without_digits(name)) + boxes.count(name) != 0 &&
      is_other_truth(value)) {
    tell(found, *s.file, at.line, at.column, "box-value",
         "the box " + in_quotes(at.name) + " is reported as " +
             in_quotes(value) +
             " and comes back as \"True\" or \"False\", so the form looks"
             " changed");
  }
}

// Emptying a secret (u_NAME=) and messages about it are no reports.
static void check_secret(const script &s, const literal_name &at,
                         findings *found)
{
  if (is_secret(at.name) && !starts_with(at.name, "u_") &&
      !starts_with(at.name, "error_")) {
    tell(found, *s.file, at.line, at.column, "secret",
         in_quotes(at.name) +
             " is a secret, and what a script reports stands in"
             " the page");
  }
}

// The value of a printed "NAME=VALUE", its quotes taken off.
static std::string printed_value(const std::string &text)
{
  std::string value = text.substr(text.find('=') + 1);
  for (const char *end : {"\\n", "\n"}) {
    const size_t at = value.find(end);
    value.erase(std::min(at, value.size()));
  }
  if (value.size() > 1 && value.front() == '"' && value.back() == '"') {
    value = value.substr(1, value.size() - 2);
  }
  return value;
}

// A word of a command that prints lines.
static void check_printed(const script &s, const bash_word &word,
                          const std::set<std::string> &messages,
                          const std::set<std::string> &boxes, findings *found)
{
  const std::string name = assigned_name(word.plain);
  const literal_name at = {name, word.line, word.column};
  if (starts_with(name, "error_")) {
    check_error_name(s, {name.substr(6), word.line, word.column}, messages,
                     found);
  } else if (!name.empty()) {
    const std::string value = printed_value(word.plain);
    check_box(s, at, value, boxes, found);
    if (!value.empty()) {
      check_secret(s, at, found);
    }
  }
}

// The lines of a printf format that holds several.
static void check_format(const script &s, const bash_word &word,
                         const std::set<std::string> &messages,
                         const std::set<std::string> &boxes, findings *found)
{
  bash_word part = word;
  size_t start = 0;
  while (start <= word.plain.size()) {
    const size_t end =
        std::min(word.plain.find("\\n", start), word.plain.size());
    part.plain = word.plain.substr(start, end - start);
    check_printed(s, part, messages, boxes, found);
    start = end + 2;
  }
}

// The arrays that hold a form's values.
static bool is_value_array(const std::string &name)
{
  return name == "orv" || name == "cfg" || name == "orv_was";
}

static void check_names_of(const device &dev, const script &s, findings *found)
{
  if (forms_of(dev, s.name).empty()) {
    return;
  }
  const std::set<std::string> messages = message_names(dev, s.name);
  const std::set<std::string> boxes = box_names(dev, s.name);
  const std::map<std::string, name_use> uses = name_functions(dev, s.name);
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (is_value_array(assignment.name)) {
        check_box(s,
                  {assignment.subscript, assignment.value.line,
                   assignment.value.column},
                  assignment.value.plain, boxes, found);
      }
    }
    if (prints(command)) {
      for (size_t i = 1; i < command.words.size(); i++) {
        check_format(s, command.words[i], messages, boxes, found);
      }
      continue;
    }
    if (command.kind != BASH_SIMPLE || command.words.size() < 2) {
      continue;
    }
    const auto use = uses.find(command.words[0].plain);
    if (use == uses.end()) {
      continue;
    }
    std::vector<literal_name> names;
    const bool one_name = use->second == USE_ERROR || use->first == "orv_put";
    for (size_t i = 1; i < (one_name ? size_t(2) : command.words.size()); i++) {
      add_literals(s, command.words[i], &names);
    }
    for (const literal_name &name : names) {
      if (use->second == USE_ERROR) {
        check_error_name(s, name, messages, found);
      } else {
        check_secret(s, name, found);
      }
    }
    if (use->first == "orv_put" && command.words.size() > 2 && !names.empty()) {
      check_box(s, names[0], command.words[2].plain, boxes, found);
    }
  }
}

// --- keys that nobody sets ---------------------------------------------------

// How often each word stands in the code of a script and what it sources.
static std::map<std::string, int> count_words(const device &dev,
                                              const std::string &name)
{
  std::map<std::string, int> counts;
  for (const std::string &file : with_sources(dev, name)) {
    std::string word;
    for (const char c : dev.scripts.at(file).code.code + " ") {
      if (is_name_char(c)) {
        word += c;
      } else if (!word.empty()) {
        counts[lower(word)]++;
        word.clear();
      }
    }
  }
  return counts;
}

// The names that the script's forms can show or post.
static std::set<std::string> names_of_forms(const device &dev,
                                            const std::string &script_name)
{
  std::set<std::string> names;
  for (const form *f : forms_of(dev, script_name)) {
    for (const form_item &item : f->items) {
      if (is_input(item)) {
        names.insert(lower(item.name));
      }
    }
    for (const form_line &line : f->lines) {
      for (const text_reference &ref : references_of(line.text)) {
        names.insert(lower(ref.name));
      }
    }
  }
  return names;
}

// A name that stands in the code once and is that of no item was mostly meant
// to be one that is near.
struct name_check {
  const script &s;
  std::map<std::string, int> counts;
  std::set<std::string> items;
  findings *found;
};

static void check_script_name(const name_check &c, const literal_name &at)
{
  std::string name = lower(at.name);
  name.erase(name.find_last_not_of('#') + 1);
  if (name.empty() || c.items.count(name) != 0 ||
      c.items.count(without_digits(name)) != 0) {
    return;
  }
  const auto count = c.counts.find(name);
  const std::string near = nearest(name, c.items);
  if (count != c.counts.end() && count->second == 1 && !near.empty()) {
    tell(c.found, *c.s.file, at.line, at.column, "script-name",
         "no form of this script has " + in_quotes(at.name) +
             ", and nothing else here names it (did you mean " +
             in_quotes(near) + "?)");
  }
}

static bool is_plain_key(const std::string &key)
{
  return !key.empty() && std::all_of(key.begin(), key.end(), is_name_char);
}

static void check_keys(const name_check &c, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (is_value_array(expansion.name) && is_plain_key(expansion.subscript)) {
      check_script_name(
          c, {expansion.subscript, expansion.line, expansion.column});
    }
  }
}

static void check_keys_of(const device &dev, const script &s, findings *found)
{
  static const std::set<std::string> takers = {
      "orv_read", "orv_show", "orv_tick", "orv_rows", "orv_pack", "orv_secret"};
  const name_check c = {s, count_words(dev, s.name),
                        names_of_forms(dev, s.name), found};
  if (c.items.empty()) {
    return;
  }
  for (const bash_command &command : s.code.commands) {
    for (const bash_word &word : command.words) {
      check_keys(c, word);
    }
    for (const bash_assignment &assignment : command.assignments) {
      check_keys(c, assignment.value);
      if (is_value_array(assignment.name) &&
          is_plain_key(assignment.subscript)) {
        check_script_name(c, {assignment.subscript, assignment.value.line,
                              assignment.value.column});
      }
    }
    if (command.words.empty() || takers.count(command.words[0].plain) == 0) {
      continue;
    }
    std::vector<literal_name> names;
    for (size_t i = 1; i < command.words.size(); i++) {
      add_literals(s, command.words[i], &names);
    }
    for (const literal_name &name : names) {
      check_script_name(c, name);
    }
  }
}

// --- scripts that name nothing -----------------------------------------------

// Whether the command prints lines whose names only the run knows: those of a
// file, as they come.  A function that is given names does not count.
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

void check_exchange(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    check_shown_secrets(f, found);
    const vocabulary known = vocabulary_of(dev, f);
    if (known.words.size() <= 2) {
      continue; // no script to agree with; that is told already
    }
    if (takes_over(f) || !hands_on(dev, f)) {
      check_references(dev, f, known, found);
      check_reported(f, known, found);
    }
    for (const form_item &item : f.items) {
      if (item.type == PT_ISELECT || item.type == PT_IMENU) {
        check_list(f, item, known, found);
      }
    }
  }
  for (const auto &entry : dev.scripts) {
    check_names_of(dev, entry.second, found);
    check_keys_of(dev, entry.second, found);
  }
}
