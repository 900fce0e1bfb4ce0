// What scripts compare a form's values and their own arguments with: words that
// these never have.

#include <strings.h>

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "tasks.h"
#include "text.h"

// All values that something can have.
struct value_set {
  bool known = false;
  bool argument = false; // of the script
  std::string what;      // that has them, as messages name it
  std::set<std::string> values;
};

struct compare_check {
  const device &dev;
  const script &s;
  std::vector<const form *> forms;
  std::map<std::string, std::string> holders; // variables, by what they hold
  const std::set<std::string> &given;         // words that commands are given
  findings *found;
};

// --- what values there are ---------------------------------------------------

static void add_item_values(const form &f, const form_item &item,
                            value_set *set)
{
  const form_line *check = attribute(item, "check");
  std::vector<std::string> words =
      split_words(check != nullptr ? check->text : "");
  words.erase(std::remove(words.begin(), words.end(), "nullok"), words.end());
  if (item.type == PT_SELECT) {
    const std::set<std::string> choices = choices_of(f, item);
    set->values.insert(choices.begin(), choices.end());
  } else if (item.type == PT_CHECKBOX) {
    set->values.insert({"True", "False", "1", "0"});
  } else if (item.type == PT_TEXT_FIELD && !words.empty() &&
             lower(words[0]) == "keyword") {
    set->values.insert(words.begin() + 1, words.end());
  } else {
    set->known = false;
  }
}

// Those of an item, in all forms that run the script.
static value_set values_of_item(const compare_check &c, const std::string &key)
{
  const std::string name = lower(key);
  value_set set;
  for (const form *f : c.forms) {
    for (const form_item &item : f->items) {
      const std::string own = lower(item.name);
      const bool cell = item.table >= 0 && own == without_digits(name);
      if (item.input && (own == name || cell)) {
        const bool first = set.what.empty();
        set.what = in_quotes(item.name);
        set.known = first || set.known;
        add_item_values(*f, item, &set);
        if (!set.known) {
          return set;
        }
      }
    }
  }
  return set;
}

// "name$row" is a cell like "name0".
static std::string key_of(const std::string &subscript)
{
  std::string key;
  for (const char c : subscript) {
    if (c == '$') {
      return key;
    }
    if (c != '"' && c != '\'') {
      key += c;
    }
  }
  return key;
}

// What the forms' lines give it; nothing is known where one gives it what a
// request chooses.
static value_set values_of_argument(const compare_check &c,
                                    const std::string &number)
{
  value_set set;
  for (const auto &entry : c.dev.forms) {
    for (int task = 0; task < TASKS; task++) {
      const script_line &line = entry.second.scripts[static_cast<size_t>(task)];
      if (line.script != c.s.name) {
        continue;
      }
      const auto known =
          known_arguments(entry.second, static_cast<script_task>(task));
      const auto value = known.find(number);
      if (value == known.end()) {
        return {};
      }
      set.known = true;
      set.values.insert(value->second);
    }
  }
  set.argument = true;
  set.what = "\"$" + number + "\" here";
  return set;
}

// Whether the word is one expansion and nothing else, "$name" or "${name...}".
static bool is_one_expansion(const bash_word &word)
{
  if (word.expansions.empty()) {
    return false;
  }
  const std::string &text = word.plain;
  if (text == "$" + word.expansions[0].name) {
    return true;
  }
  int depth = 0;
  for (size_t i = 1; i < text.size() && starts_with(text, "${"); i++) {
    depth += text[i] == '{' ? 1 : 0;
    depth -= text[i] == '}' ? 1 : 0;
    if (depth == 0) {
      return i + 1 == text.size();
    }
  }
  return false;
}

static value_set values_of(const compare_check &c, const bash_command &command,
                           const bash_word &word)
{
  if (!is_one_expansion(word)) {
    return {};
  }
  const bash_expansion &e = word.expansions[0];
  if ((!e.rest.empty() && e.rest[0] != '-' && !starts_with(e.rest, ":-")) ||
      e.length || e.indirect) {
    return {};
  }
  if (e.name == "orv" || e.name == "orv_was") {
    return values_of_item(c, key_of(e.subscript));
  }
  if (e.name.find_first_not_of("0123456789") == std::string::npos &&
      command.function.empty() && e.name != "0") {
    return values_of_argument(c, e.name);
  }
  const auto holder = c.holders.find(e.name);
  return holder != c.holders.end() && e.subscript.empty()
             ? values_of_item(c, holder->second)
             : value_set();
}

// --- what holds them ---------------------------------------------------------

// "NAME" of an arm "new_NAME=*)", "" of another.
static std::string line_name(const std::string &pattern)
{
  std::string plain;
  for (const char c : pattern) {
    if (c != '"' && c != '\'' && c != ' ') {
      plain += c;
    }
  }
  const size_t equals = plain.find('=');
  return starts_with(plain, "new_") && equals != std::string::npos &&
                 plain.substr(equals) == "=*"
             ? plain.substr(4, equals - 4)
             : "";
}

// The item that the assigned value is, "" when it is anything else.
static std::string item_of(const bash_assignment &assignment)
{
  const bash_word &value = assignment.value;
  return !value.expansions.empty() && value.expansions[0].name == "orv" &&
                 value.expansions[0].rest.empty() &&
                 value.plain == "${" + full_name(value.expansions[0]) + "}"
             ? key_of(value.expansions[0].subscript)
             : "";
}

// Variables that are given the value of an item and nothing else.
static void collect_copies(compare_check *c)
{
  std::map<std::string, std::set<std::string>> given;
  for (const bash_command &command : c->s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.subscript.empty()) {
        given[assignment.name].insert(item_of(assignment));
      }
    }
  }
  for (const auto &entry : given) {
    if (entry.second.size() == 1 && !entry.second.begin()->empty()) {
      c->holders[entry.first] = *entry.second.begin();
    }
  }
}

// Variables that an arm for one of the page's lines fills.
static void collect_holders(compare_check *c)
{
  collect_copies(c);
  for (const bash_command &command : c->s.code.commands) {
    if (command.branch < 0) {
      continue;
    }
    const bash_branch &arm =
        c->s.code.branches[static_cast<size_t>(command.branch)];
    const std::string name = arm.kind == "case" ? line_name(arm.pattern) : "";
    for (const bash_assignment &assignment : command.assignments) {
      if (!name.empty() && assignment.subscript.empty()) {
        c->holders[assignment.name] = name;
      }
    }
  }
}

// What some script gives a command, as `"$0" --apply` does.
static std::set<std::string> collect_given(const device &dev)
{
  std::set<std::string> given;
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      const std::string &name = first_word(command);
      if (command.kind != BASH_SIMPLE || name == "[" || name == "test") {
        continue;
      }
      for (size_t i = 1; i < command.words.size(); i++) {
        if (command.words[i].plain[0] == '-') {
          given.insert(command.words[i].plain);
        }
      }
    }
  }
  return given;
}

// --- comparisons -------------------------------------------------------------

static std::string listed(const std::set<std::string> &values)
{
  std::string text;
  for (const std::string &value : values) {
    text += (text.empty() ? "" : ", ") + in_quotes(value);
  }
  return text;
}

static bool fits(const compare_check &c, const value_set &set,
                 const std::string &pattern)
{
  if (pattern.empty() || pattern == "*" || pattern == "''" ||
      pattern == "\"\"" || pattern.find('$') != std::string::npos ||
      (pattern[0] == '-' && c.given.count(pattern) != 0)) {
    return true;
  }
  return std::any_of(set.values.begin(), set.values.end(),
                     [&](const std::string &value) {
                       return matches_pattern(pattern, value) ||
                              strcasecmp(pattern.c_str(), value.c_str()) == 0;
                     });
}

static void compare(const compare_check &c, const value_set &set,
                    const std::string &pattern, int line, int column)
{
  if (set.known && !fits(c, set, pattern)) {
    report(c.found, *c.s.file, line, column, "compared-value",
           in_quotes(pattern) + " is never the value of " + set.what +
               ": it is one of " + listed(set.values));
  }
}

// The words behind a comparison in [[ ]] or [ ].
static void check_test(const compare_check &c, const bash_command &command)
{
  for (size_t i = 1; i + 1 < command.words.size(); i++) {
    const std::string &op = command.words[i].text;
    if (op == "==" || op == "=" || op == "!=") {
      const bash_word &right = command.words[i + 1];
      compare(c, values_of(c, command, command.words[i - 1]), right.plain,
              right.line, right.column);
    }
  }
}

// A pattern of an arm and where that stands.
struct arm_pattern {
  std::string text;
  int line;
  int column;
};

static void add_patterns(const bash_branch &arm,
                         std::vector<arm_pattern> *patterns)
{
  std::string part;
  for (const char letter : arm.pattern + "|") {
    if (letter == '|') {
      part.erase(0, part.find_first_not_of(" \t\n\\"));
      part.erase(part.find_last_not_of(" \t\n\\") + 1);
      patterns->push_back({part, arm.line, arm.column});
      part.clear();
    } else {
      part += letter;
    }
  }
}

// Where no pattern fits, another value was meant, and that is reported once.
static void check_case(const compare_check &c, const bash_command &subject,
                       std::vector<arm_pattern> patterns)
{
  const value_set set = values_of(c, subject, subject.words[0]);
  patterns.erase(std::remove_if(patterns.begin(), patterns.end(),
                                [](const arm_pattern &pattern) {
                                  return pattern.text == "*";
                                }),
                 patterns.end());
  const bool none =
      set.argument && set.known && patterns.size() > 1 &&
      std::none_of(patterns.begin(), patterns.end(),
                   [&](const arm_pattern &p) { return fits(c, set, p.text); });
  for (const arm_pattern &pattern : patterns) {
    compare(c, set, pattern.text, none ? subject.words[0].line : pattern.line,
            none ? subject.words[0].column : pattern.column);
    if (none) {
      return;
    }
  }
}

static void check_cases(const compare_check &c)
{
  std::map<int, std::vector<arm_pattern>> cases; // by their subjects
  for (const bash_branch &arm : c.s.code.branches) {
    if (arm.kind == "case" && arm.test >= 0) {
      add_patterns(arm, &cases[arm.test]);
    }
  }
  for (const auto &entry : cases) {
    const bash_command &subject =
        c.s.code.commands[static_cast<size_t>(entry.first)];
    if (!subject.words.empty()) {
      check_case(c, subject, entry.second);
    }
  }
}

static void check_one_of(const compare_check &c, const bash_command &command)
{
  if (first_word(command) != "orv_one_of" || command.words.size() < 3) {
    return;
  }
  const value_set set = values_of(c, command, command.words[1]);
  for (size_t i = 2; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    if (word.expansions.empty()) {
      compare(c, set, word.plain, word.line, word.column);
    }
  }
}

void check_compared(const device &dev, findings *found)
{
  const std::set<std::string> given = collect_given(dev);
  for (const auto &entry : dev.scripts) {
    const script &s = entry.second;
    compare_check c = {dev, s, forms_of(dev, s.name), {}, given, found};
    collect_holders(&c);
    for (const bash_command &command : s.code.commands) {
      if (command.kind == BASH_TEST || first_word(command) == "[" ||
          first_word(command) == "test") {
        check_test(c, command);
      }
      check_one_of(c, command);
    }
    check_cases(c);
  }
}
