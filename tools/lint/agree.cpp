// What a form's scripts take and report, against what its template has: rows of
// columns, arms for the page's lines, names that nobody shows.

#include "agree.h"

#include <ctype.h>

#include <algorithm>

#include "flow.h"
#include "references.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// --- what forms have ---------------------------------------------------------

// Cells go by the name of their column: the rows are the page's, and their
// numbers are taken off before a name is looked up.
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

// Of all forms: what a write script reports is shown by the page that confirms,
// which is another form. $E:name$ shows a message and no value.
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

// --- entries -----------------------------------------------------------------

// The element that is one word, of the array that the value is taken from; NULL
// without one. orv_put "select_zones$i" "${ZONES[i]}" is right for elements of
// two words; "${ZONES[i]} $name" adds the text by itself, and an element with a
// pattern or a substitution may become anything.
static const bash_word *bare_element(const agree_check &c,
                                     const bash_word &value)
{
  if (value.expansions.size() != 1) {
    return nullptr;
  }
  const bash_expansion &e = value.expansions[0];
  const auto array = c.s.arrays.find(e.name);
  if (array == c.s.arrays.end() || array->second == nullptr ||
      e.subscript.empty() || !e.rest.empty() ||
      value.plain != "${" + e.name + "[" + e.subscript + "]}") {
    return nullptr;
  }
  for (const bash_word &word : array->second->elements) {
    if (word.expansions.empty() &&
        word.plain.find_first_of(" `*?{(") == std::string::npos) {
      return &word;
    }
  }
  return nullptr;
}

// An entry is a value, a blank and a text. What comes from a variable may have
// its text in it, unless a loop gives it literal words: for zone in UTC CET.
// One with a blank among them, and nothing is said.
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
  const bash_word *bare =
      one_word ? &command.words[2] : bare_element(c, command.words[2]);
  if (bare != nullptr) {
    report(c.found, *c.s.file, bare->line, bare->column, "list-entries",
           "a list entry consists of a value, a blank and the text to show");
  }
}

// --- the page's lines --------------------------------------------------------

// "new_mtu="*) and new_mtu=*) are the same arm.
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

// The name that an arm is for, "new_NAME=*" or, where the line was taken apart,
// "new_NAME"; "" for another.
static std::string arm_name(const std::string &pattern)
{
  const size_t equals = std::min(pattern.find("=*"), pattern.size());
  const bool whole = equals + 2 >= pattern.size();
  const std::string name = lower(pattern.substr(0, equals));
  return whole && std::all_of(name.begin(), name.end(), is_name_char) ? name
                                                                      : "";
}

static bool is_item(const agree_check &c, const std::string &name)
{
  return c.items.count(name) + c.columns.count(without_digits(name)) != 0;
}

static std::set<std::string> all_items(const agree_check &c)
{
  std::set<std::string> items = c.items;
  items.insert(c.columns.begin(), c.columns.end());
  return items;
}

// Variables that `IFS== read name value` fills with the names of the lines. The
// value comes last and the options first, so the name is the last word but one.
// A file that is read so has lines of its own.
static std::set<std::string> names_taken(const script &s)
{
  std::set<std::string> names;
  for (const bash_command &command : s.code.commands) {
    const std::vector<bash_word> &words = command.words;
    const bool apart =
        std::any_of(command.assignments.begin(), command.assignments.end(),
                    [](const bash_assignment &ifs) {
                      return ifs.name == "IFS" && ifs.value.plain == "=";
                    });
    if (first_word(command) == "read" && words.size() > 2 && apart &&
        !command.redirected_in) {
      names.insert(words[words.size() - 2].plain);
    }
  }
  return names;
}

// What is known of a script that takes the page's lines apart.
struct line_reader {
  context flow;
  std::set<std::string> names; // variables with the names of lines
  std::set<int> groups;        // cases with an arm for a line
};

// A case with one arm new_NAME is about the page's lines, so its other arms are
// as well, even where the variable's origin is not known.
static line_reader find_lines(const agree_check &c)
{
  line_reader lines = {follow_values(c.dev, c.s.name), names_taken(c.s), {}};
  for (const bash_branch &arm : c.s.code.branches) {
    if (starts_with(plain_pattern(arm.pattern), "new_")) {
      lines.groups.insert(arm.group);
    }
  }
  return lines;
}

// An arm for a line that the page never sends. That NAME=* lacks its new_ is
// certain only for an item of the form, in a case on what the page has sent. Of
// new_NAME=* nobody else has the name; new_NAME alone may be a word of another
// kind, so there it must be near to an item's.
static void check_arm(const agree_check &c, const line_reader &lines,
                      const bash_branch &arm)
{
  if (arm.kind != "case" || arm.test < 0) {
    return;
  }
  const bash_command &subject =
      c.s.code.commands[static_cast<size_t>(arm.test)];
  const std::string pattern = plain_pattern(arm.pattern);
  const std::string name = arm_name(pattern);
  if (subject.words.empty() || subject.words[0].expansions.empty() ||
      subject.redirected_in || name.empty()) {
    return;
  }
  const bool line = pattern.find('=') != std::string::npos;
  const std::string &variable = subject.words[0].expansions[0].name;
  const bool of_page = lines.flow.input.count(
                           scoped(lines.flow, subject.function, variable)) != 0;
  if (of_page && is_item(c, name) &&
      (line || lines.names.count(variable) != 0 ||
       lines.groups.count(arm.group) != 0)) {
    report(c.found, *c.s.file, arm.line, arm.column, "input-line",
           "the page's lines begin with \"new_\": this arm is never taken");
  }
  if (starts_with(name, "new_") && !c.items.empty() &&
      !is_item(c, name.substr(4)) && (line || of_page) &&
      (line ? c.s.counts.find(name.substr(4)) == c.s.counts.end()
            : !nearest(name.substr(4), all_items(c)).empty())) {
    report(c.found, *c.s.file, arm.line, arm.column, "input-line",
           "no form of this script has " + in_quotes(name.substr(4)) +
               did_you_mean(name.substr(4), all_items(c)));
  }
}

// --- what is reported --------------------------------------------------------

// Names that mean something to the page itself. Messages, entries and marked
// rows have rules of their own.
static bool is_page_name(const std::string &name)
{
  static const word_set names = {"always_submit", "live_seconds",
                                 "live_tell",     "wait_restart",
                                 "wait_address",  "wait_confirm"};
  return names.count(name) != 0 || starts_with(name, "error_") ||
         starts_with(name, "select_") || starts_with(name, "delete_");
}

// A page with something to enter gets no fresh values: they would overwrite it.
// One form of the script without such a field makes the name right.
static void check_live(const agree_check &c, const bash_word &word)
{
  const bool live =
      word.plain == "live_seconds" || starts_with(word.plain, "live_seconds=");
  const std::vector<const form *> &forms = forms_of(c.dev, c.s.name);
  if (live && std::all_of(forms.begin(), forms.end(), [](const form *f) {
        return std::any_of(f->items.begin(), f->items.end(), is_editable);
      })) {
    report(c.found, *c.s.file, word.line, word.column, "reported-name",
           "\"live_seconds\" works on pages of fixed fields only; this page "
           "has something to enter");
  }
}

// A name that is put together, as "port$i", is not known here. One that the
// script has twice may be for another task or for itself.
static void check_reported_name(const agree_check &c, const bash_word &word,
                                const std::string &any_case)
{
  std::string name = lower(any_case);
  if (name.empty() || !std::all_of(name.begin(), name.end(), is_name_char) ||
      is_page_name(name)) {
    return;
  }
  if (name == "fatal" || name == "msg") {
    report(c.found, *c.s.file, word.line, word.column, "reported-name",
           "a message of the page is reported as " +
               in_quotes("error_" + name));
    return;
  }
  // d_mtu, u_mtu, c_mtu and o_mtu are values of mtu.
  if (name.size() > 2 && name[1] == '_' &&
      std::string("duco").find(name[0]) != std::string::npos) {
    name.erase(0, 2);
  }
  const std::string stem = without_digits(name);
  const auto count = c.s.counts.find(lower(any_case));
  if (c.items.count(name) + c.columns.count(stem) + c.shown.count(name) +
              c.shown.count(stem) ==
          0 &&
      count != c.s.counts.end() && count->second == 1) {
    report(c.found, *c.s.file, word.line, word.column, "reported-name",
           in_quotes(name) + " is reported, but no form shows it" +
               did_you_mean(name, c.items));
  }
}

static void check_reported(const agree_check &c, const bash_word &word)
{
  const size_t equals = word.plain.find('=');
  if (equals != std::string::npos) {
    check_reported_name(c, word, word.plain.substr(0, equals));
  }
}

// printf '%s="%s"\n' NAME VALUE NAME VALUE ... bash begins the format anew
// until there are no words left, so names are as far apart as the format has
// codes.
static void check_names_printed(const agree_check &c,
                                const bash_command &command)
{
  const std::vector<bash_word> &words = command.words;
  if (words.size() < 3 || first_word(command) != "printf" ||
      !starts_with(words[1].plain, "%s=")) {
    return;
  }
  const size_t stride = static_cast<size_t>(
      std::count(words[1].plain.begin(), words[1].plain.end(), '%'));
  for (size_t i = 2; i < words.size(); i += stride) {
    if (words[i].expansions.empty()) {
      check_reported_name(c, words[i], words[i].plain);
    }
  }
}

static void check_command(const agree_check &c, const bash_command &command)
{
  check_entry(c, command);
  const std::string &name = first_word(command);
  // What goes to a file, a program or a variable is no report.
  const bool prints = (name == "echo" || name == "printf") &&
                      !command.redirected_out && !command.piped &&
                      command.substitution == 0;
  if (prints) {
    check_names_printed(c, command);
  }
  for (size_t i = 1; i < command.words.size(); i++) {
    if (prints) {
      check_reported(c, command.words[i]);
    }
    if (i == 1 && name == "orv_put" && command.words[1].expansions.empty()) {
      check_reported_name(c, command.words[1], command.words[1].plain);
    }
    check_live(c, command.words[i]);
  }
}

// Whether the script takes lines apart at all; then values are followed. To
// follow them takes longer than all else here, and most scripts leave the lines
// to orv_read.
static bool has_line_arms(const script &s)
{
  return std::any_of(s.code.branches.begin(), s.code.branches.end(),
                     [](const bash_branch &arm) {
                       return arm.kind == "case" &&
                              (arm.pattern.find("=*") != std::string::npos ||
                               arm.pattern.find("new_") != std::string::npos);
                     }) ||
         std::any_of(s.code.commands.begin(), s.code.commands.end(),
                     [](const bash_command &command) {
                       return first_word(command) == "read" &&
                              !command.redirected_in;
                     });
}

static void check_arms(const agree_check &c)
{
  if (!has_line_arms(c.s)) {
    return;
  }
  const line_reader lines = find_lines(c);
  for (const bash_branch &arm : c.s.code.branches) {
    check_arm(c, lines, arm);
  }
}

// What the scripts of bars print is no report. No form reads or saves by them,
// so forms_of() knows none.
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
      check_column_names(c, command);
      if (command.kind == BASH_SIMPLE) {
        check_command(c, command);
      }
    }
    check_rows_of(c);
    check_cells(c, forms);
    check_arms(c);
  }
}
