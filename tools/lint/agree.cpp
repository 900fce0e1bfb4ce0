// What a form's scripts take and report, against what its template has: rows of
// columns, arms for the page's lines, names that nobody shows.

#include <ctype.h>

#include <algorithm>

#include "flow.h"
#include "references.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

struct agree_check {
  const device &dev;
  const script &s;
  std::set<std::string> columns;      // of the forms that run it
  std::set<std::string> items;        // their other input items
  std::set<std::string> lists;        // "select_" and a list
  const std::set<std::string> &shown; // what any text of any form refers to
  findings *found;
};

// --- what forms have ---------------------------------------------------------

static void add_form(const form &f, agree_check *c)
{
  for (const form_item &item : f.items) {
    if (item.input) {
      (item.table >= 0 ? c->columns : c->items).insert(lower(item.name));
    }
    if (!item.selector.empty()) {
      c->lists.insert("select_" + lower(item.selector));
    }
  }
}

static std::set<std::string> shown_names(const device &dev)
{
  std::set<std::string> names;
  for (const auto &entry : dev.forms) {
    for (const form_line &line : entry.second.lines) {
      for (const text_part &part : references_of(line.text)) {
        if (part.type != 'E') {
          names.insert(lower(part.name));
        }
      }
    }
  }
  return names;
}

// --- columns -----------------------------------------------------------------

// A column is no value: each of its rows is one.
static void check_columns(const agree_check &c, const bash_command &command)
{
  static const std::map<std::string, const char *> takers = {
      {"orv_read", "'NAME#' stands for all its rows"},
      {"orv_show", "orv_pack sets cells to their names"},
      {"orv_store", "orv_pack sets cells to their names"}};
  const auto taker = takers.find(first_word(command));
  if (taker == takers.end()) {
    return;
  }
  for (size_t i = taker->first == "orv_store" ? 2 : 1; i < command.words.size();
       i++) {
    std::vector<literal_name> names;
    add_literals(c.s, command.words[i], &names);
    for (const literal_name &name : names) {
      if (c.columns.count(lower(name.name)) != 0) {
        tell(c.found, *c.s.file, command.words[i].line, command.words[i].column,
             "column-row",
             in_quotes(name.name) +
                 " is a column, of which every row has a name of its own; " +
                 taker->second);
        return;
      }
    }
  }
}

// --- rows --------------------------------------------------------------------

// The numbers that a variable is set to at first, as far as they stand there.
static void add_starts(const script &s, const std::string &function,
                       const std::string &name, std::set<std::string> *starts)
{
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.name == name && command.function == function) {
        starts->insert(assignment.value.plain);
      }
    }
    const bool loop =
        command.function == function &&
        (command.kind == BASH_FOR || command.kind == BASH_ARITHMETIC) &&
        !command.words.empty();
    if (loop && command.kind == BASH_FOR && command.words.size() > 1 &&
        command.words[0].plain == name) {
      const std::string &first = command.words[1].plain;
      starts->insert(starts_with(first, "{1..") ? "1" : first);
    } else if (loop && starts_with(command.words[0].text, name)) {
      std::string text = command.words[0].text;
      text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
      if (starts_with(text, name + "=") && text.size() > name.size() + 1) {
        starts->insert(text.substr(name.size() + 1, 1));
      }
    }
  }
}

// "name$row" in a word that is reported: rows and entries count from 0.
static void check_first_row(const agree_check &c, const bash_command &command,
                            const bash_word &word)
{
  if (word.expansions.empty()) {
    return;
  }
  const bash_expansion &row = word.expansions[0];
  const size_t at = word.plain.find('$');
  const std::string stem = lower(word.plain.substr(0, at));
  if (c.columns.count(stem) + c.lists.count(stem) == 0 || !row.rest.empty() ||
      !row.subscript.empty()) {
    return;
  }
  std::set<std::string> starts;
  add_starts(c.s, command.function, row.name, &starts);
  const bool other =
      std::any_of(starts.begin(), starts.end(), [&](const std::string &start) {
        const bool counts_on = start.find(row.name) != std::string::npos;
        return start.empty() || start == "0" || start == "-1" ||
               (start[0] == '$' && !counts_on);
      });
  const bool one = starts.count("1") != 0 && !other;
  if (one) {
    tell(c.found, *c.s.file, word.line, word.column, "first-row",
         "rows and entries of lists count from 0, and " +
             in_quotes("$" + row.name) + " begins with 1: nothing is drawn");
  }
}

// An entry is a value, a blank and a text.
static void check_entry(const agree_check &c, const bash_command &command)
{
  if (first_word(command) != "orv_put" || command.words.size() != 3) {
    return;
  }
  const std::string name =
      lower(command.words[1].plain.substr(0, command.words[1].plain.find('$')));
  if (c.lists.count(without_digits(name)) == 0) {
    return;
  }
  const std::string &value = command.words[2].plain;
  const std::string variable =
      command.words[2].expansions.size() == 1 && value[0] == '$'
          ? command.words[2].expansions[0].name
          : "";
  bool one_word = !value.empty() && variable.empty() &&
                  value.find_first_of(" $`") == std::string::npos;
  for (const bash_command &loop : c.s.code.commands) {
    if (loop.kind == BASH_FOR && loop.words.size() > 1 && !variable.empty() &&
        loop.words[0].plain == variable && value == "$" + variable) {
      one_word = std::all_of(
          loop.words.begin() + 1, loop.words.end(), [](const bash_word &word) {
            return word.expansions.empty() &&
                   word.plain.find_first_of(" `*?{(") == std::string::npos;
          });
    }
  }
  if (one_word) {
    tell(c.found, *c.s.file, command.words[2].line, command.words[2].column,
         "list-entries",
         "an entry of a list is a value, a blank and the text that is shown");
  }
}

// --- the page's lines --------------------------------------------------------

static std::string plain_pattern(const std::string &pattern)
{
  std::string plain;
  for (const char c : pattern) {
    if (c != '"' && c != '\'' && c != ' ') {
      plain += c;
    }
  }
  return plain;
}

// An arm for a line that the page never sends.
static void check_arm(const agree_check &c, const context &flow,
                      const bash_branch &arm)
{
  if (arm.kind != "case" || arm.test < 0) {
    return;
  }
  const bash_command &subject =
      c.s.code.commands[static_cast<size_t>(arm.test)];
  const std::string pattern = plain_pattern(arm.pattern);
  const size_t equals = pattern.find("=*");
  if (subject.words.empty() || subject.words[0].expansions.empty() ||
      equals == std::string::npos || equals + 2 != pattern.size() ||
      pattern.find_first_of("|[$?") != std::string::npos) {
    return;
  }
  const bool of_page =
      flow.input.count(scoped(flow, subject.function,
                              subject.words[0].expansions[0].name)) != 0;
  const std::string name = lower(pattern.substr(0, equals));
  const bool is_item = c.items.count(name) + c.columns.count(name) != 0;
  if (of_page && is_item) {
    tell(c.found, *c.s.file, arm.line, arm.column, "input-line",
         "the page's lines begin with \"new_\": this arm is never taken");
  }
  if (starts_with(name, "new_") && !c.items.empty() &&
      c.items.count(name.substr(4)) == 0 &&
      c.columns.count(without_digits(name.substr(4))) == 0 &&
      name.find('*') == std::string::npos &&
      c.s.counts.find(name.substr(4)) == c.s.counts.end()) {
    std::set<std::string> items = c.items;
    items.insert(c.columns.begin(), c.columns.end());
    tell(c.found, *c.s.file, arm.line, arm.column, "input-line",
         "no form of this script has " + in_quotes(name.substr(4)) +
             did_you_mean(name.substr(4), items));
  }
}

// --- what is reported --------------------------------------------------------

// Names that mean something to the page itself.
static bool is_page_name(const std::string &name)
{
  static const std::set<std::string> names = {"always_submit", "live_seconds",
                                              "live_tell", "wait_restart",
                                              "wait_address"};
  return names.count(name) != 0 || starts_with(name, "error_") ||
         starts_with(name, "select_") || starts_with(name, "delete_");
}

static void check_reported(const agree_check &c, const bash_word &word)
{
  const size_t equals = word.plain.find('=');
  std::string name = lower(word.plain.substr(0, equals));
  if (equals == std::string::npos || name.empty() ||
      !std::all_of(name.begin(), name.end(), is_name_char) ||
      is_page_name(name)) {
    return;
  }
  if (name == "fatal" || name == "msg") {
    tell(c.found, *c.s.file, word.line, word.column, "reported-name",
         "a message of the page is reported as " + in_quotes("error_" + name));
    return;
  }
  if (name.size() > 2 && name[1] == '_' &&
      std::string("duco").find(name[0]) != std::string::npos) {
    name.erase(0, 2);
  }
  const std::string stem = without_digits(name);
  const auto count = c.s.counts.find(name);
  if (c.items.count(name) + c.columns.count(stem) + c.shown.count(name) +
              c.shown.count(stem) ==
          0 &&
      count != c.s.counts.end() && count->second == 1) {
    tell(c.found, *c.s.file, word.line, word.column, "reported-name",
         in_quotes(name) + " is reported, and no form shows it" +
             did_you_mean(name, c.items));
  }
}

static void check_command(const agree_check &c, const bash_command &command)
{
  check_columns(c, command);
  check_entry(c, command);
  const std::string &name = first_word(command);
  const bool prints = (name == "echo" || name == "printf") &&
                      !command.redirected_out && !command.piped &&
                      command.substitution == 0;
  for (size_t i = 1; i < command.words.size(); i++) {
    if (prints) {
      check_reported(c, command.words[i]);
    }
    if (prints || (name == "orv_put" && i == 1)) {
      check_first_row(c, command, command.words[i]);
    }
  }
}

// Whether the script has arms for lines at all; then values are followed.
static bool has_line_arms(const script &s)
{
  return std::any_of(s.code.branches.begin(), s.code.branches.end(),
                     [](const bash_branch &arm) {
                       return arm.kind == "case" &&
                              arm.pattern.find("=*") != std::string::npos;
                     });
}

static void check_arms(const agree_check &c)
{
  if (!has_line_arms(c.s)) {
    return;
  }
  const context flow = follow_values(c.dev, c.s.name);
  for (const bash_branch &arm : c.s.code.branches) {
    check_arm(c, flow, arm);
  }
}

// What the scripts of bars print is no report.
void check_agreement(const device &dev, findings *found)
{
  const std::set<std::string> shown = shown_names(dev);
  for (const auto &entry : dev.scripts) {
    const script &s = entry.second;
    const std::vector<const form *> &forms = forms_of(dev, s.name);
    if (forms.empty()) {
      continue;
    }
    agree_check c = {dev, s, {}, {}, {}, shown, found};
    for (const form *f : forms) {
      add_form(*f, &c);
    }
    for (const bash_command &command : s.code.commands) {
      if (command.kind == BASH_SIMPLE) {
        check_command(c, command);
      }
    }
    check_arms(c);
  }
}
