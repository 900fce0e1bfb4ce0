// What scripts report: messages for names that a page shows, boxes, secrets.

#include <algorithm>

#include "references.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// What a function of a script does with the names that it is given.
enum name_use { USE_NONE, USE_ERROR, USE_REPORT };

// A function is known by what it prints: names that it is given.
// Not its name: authors have helpers such as put() or fail() of their own, and
// what they are called says nothing for certain.
static name_use use_of_format(const std::string &format)
{
  if (format.find("error_%s=") != std::string::npos) {
    return USE_ERROR;
  }
  return starts_with(format, "%s=") ? USE_REPORT : USE_NONE;
}

// The functions that print names they are given, by the formats they print.
// Only functions that print the name as it was given to them, as $1 or as the
// usual `local name=$1`, are known; of any other the words of a call are no
// names.
static std::map<std::string, name_use> name_functions(const device &dev,
                                                      const std::string &name)
{
  std::map<std::string, name_use> uses = {{"orv_error", USE_ERROR},
                                          {"orv_put", USE_REPORT},
                                          {"orv_show", USE_REPORT}};
  for (const std::string &file : with_sources(dev, name)) {
    for (const bash_command &command : dev.scripts.at(file).code.commands) {
      // What goes to a file or another program is no report.
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
    // Values in a name are let through, as in "error_$name=" and "port%d=": the
    // parts that stand there still tell a message from a value.
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
// An item has such a place beside it; $E:name$ makes one for any name. "msg"
// and "fatal" are the page's own.
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
      for (const text_part &ref : references_of(line.text)) {
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
  // A name that is made at run time may be any of those known.
  if (name.find_first_of("$%") == std::string::npos && known.count(name) == 0) {
    report(found, *s.file, at.line, at.column, "error-name",
           "no form of this script shows a message for " + in_quotes(at.name) +
               did_you_mean(name, known));
  }
}

// Values that a box has in scripts and never posts.
// Only words that mean yes or no: what is expanded, or any other text, says too
// little of what was meant.
static bool is_other_truth(const std::string &value)
{
  static const word_set words = {"yes", "no", "on",   "off",
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

// The choices of the lists of all forms that run the script, by their names;
// none for a list that has others in another form.
typedef std::map<std::string, std::set<std::string>> list_choices;

static list_choices choices_by_name(const device &dev,
                                    const std::string &script_name)
{
  list_choices all;
  for (const form *f : forms_of(dev, script_name)) {
    for (const form_item &item : f->items) {
      if (item.type == PT_SELECT) {
        // Those of all forms together: what is a choice in one of them may be
        // reported for that one.
        const std::set<std::string> choices = choices_of(*f, item);
        all[lower(item.name)].insert(choices.begin(), choices.end());
      }
    }
  }
  return all;
}

static void check_choice(const script &s, const literal_name &at,
                         const std::string &value, const list_choices &lists,
                         findings *found)
{
  std::string name = lower(at.name);
  name.erase(0, starts_with(name, "o_") || starts_with(name, "d_") ? 2 : 0);
  auto list = lists.find(name);
  // The full name first: a list may be called "port1" and be no cell.
  list = list == lists.end() ? lists.find(without_digits(name)) : list;
  // A blank value is a list without a setting. A value with an expansion is
  // known to the run alone.
  if (list != lists.end() && !value.empty() &&
      value.find_first_of("$`%") == std::string::npos &&
      list->second.count(value) == 0) {
    report(found, *s.file, at.line, at.column, "reported-choice",
           in_quotes(value) + " is none of the choices of " +
               in_quotes(at.name) + did_you_mean(value, list->second));
  }
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
    report(found, *s.file, at.line, at.column, "box-value",
           "the box " + in_quotes(at.name) + " is reported as " +
               in_quotes(value) +
               " but comes back as \"True\" or \"False\", so the form looks "
               "changed");
  }
}

// What is known of the values that scripts report.
struct reported_values {
  std::set<std::string> boxes;
  list_choices lists;
};

static void check_value(const script &s, const literal_name &at,
                        const std::string &value, const reported_values &values,
                        findings *found)
{
  check_box(s, at, value, values.boxes, found);
  check_choice(s, at, value, values.lists, found);
}

// Emptying a secret (u_NAME=) and messages about it are no reports.
// What a script reports stands in the source of the page, whatever the field
// draws in its place.
static void check_secret(const script &s, const literal_name &at,
                         findings *found)
{
  if (is_secret(at.name) && !starts_with(at.name, "u_") &&
      !starts_with(at.name, "error_")) {
    report(found, *s.file, at.line, at.column, "secret",
           in_quotes(at.name) + " is a secret, and everything that a script "
                                "reports is in the page");
  }
}

// The value of a printed "NAME=VALUE", its quotes taken off.
static std::string printed_value(const std::string &text)
{
  std::string value = text.substr(text.find('=') + 1);
  // printf's format has a backslash and an n there, and $'...' a line end.
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
// A secret with nothing behind "=" is emptied, which is right.
static void check_printed(const script &s, const bash_word &word,
                          const std::set<std::string> &messages,
                          const reported_values &values, findings *found)
{
  const std::string name = assigned_name(word.plain);
  const literal_name at = {name, word.line, word.column};
  if (starts_with(name, "error_")) {
    check_error_name(s, {name.substr(6), word.line, word.column}, messages,
                     found);
  } else if (!name.empty()) {
    const std::string value = printed_value(word.plain);
    check_value(s, at, value, values, found);
    if (!value.empty()) {
      check_secret(s, at, found);
    }
  }
}

// The lines of a printf format that holds several.
// printf 'mtu=%s\nuse=%s\n' reports two names in one word. A word without "\n"
// is one part, so the words of echo need no code of their own.
static void check_format(const script &s, const bash_word &word,
                         const std::set<std::string> &messages,
                         const reported_values &values, findings *found)
{
  bash_word part = word;
  size_t start = 0;
  while (start <= word.plain.size()) {
    const size_t end =
        std::min(word.plain.find("\\n", start), word.plain.size());
    part.plain = word.plain.substr(start, end - start);
    check_printed(s, part, messages, values, found);
    start = end + 2;
  }
}

// A script that no form runs reports to nobody, so none of its names can be
// wrong.
static void check_names_of(const device &dev, const script &s, findings *found)
{
  if (forms_of(dev, s.name).empty()) {
    return;
  }
  const std::set<std::string> messages = message_names(dev, s.name);
  const reported_values values = {box_names(dev, s.name),
                                  choices_by_name(dev, s.name)};
  const std::map<std::string, name_use> uses = name_functions(dev, s.name);
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (is_value_array(assignment.name)) {
        check_value(s,
                    {assignment.subscript, assignment.value.line,
                     assignment.value.column},
                    assignment.value.plain, values, found);
      }
    }
    // All words, since echo can be given several, and -e in front of them.
    if (prints(command)) {
      for (size_t i = 1; i < command.words.size(); i++) {
        check_format(s, command.words[i], messages, values, found);
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
    // The second word of those is a text or a value, and no name.
    const bool one_name = use->second == USE_ERROR || use->first == "orv_put";
    for (size_t i = 1; i < (one_name ? size_t(2) : command.words.size()); i++) {
      add_literals(s, command.words[i], &names);
    }
    for (const literal_name &name : names) {
      // orv_show_secrets is not among these: it shows secrets to orvctl alone.
      if (use->second == USE_ERROR) {
        check_error_name(s, name, messages, found);
      } else {
        check_secret(s, name, found);
      }
    }
    if (use->first == "orv_put" && command.words.size() > 2 && !names.empty()) {
      check_value(s, names[0], command.words[2].plain, values, found);
    }
  }
}

// Each file for itself: one that is sourced has the forms of all scripts that
// do so, and its messages may be for any of them.
void check_reported_names(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    check_names_of(dev, entry.second, found);
  }
}
