// What the items of a form and the arguments of a script can be.

#include "compared.h"

#include <algorithm>
#include <stdlib.h>

#include "flow.h"
#include "script_names.h"
#include "tasks.h"
#include "text.h"

// --- what values there are ---------------------------------------------------

// `accept_other_case`: whether "true" may stand for what a box posts. Browsers
// post "True", so a script that knows "true" alone never sees a ticked box; one
// that has "True" somewhere may look for both. The words of a keyword come as
// they were typed. Any other field has more values than could be listed.
static void add_item_values(const form &f, const form_item &item,
                            bool accept_other_case, value_set *set)
{
  const form_line *check = attribute(item, "check");
  std::vector<std::string> words =
      split_words(check != nullptr ? check->text : "");
  words.erase(std::remove(words.begin(), words.end(), "nullok"), words.end());
  set->list &= item.type == PT_SELECT;
  if (item.type == PT_SELECT) {
    const std::set<std::string> choices = choices_of(f, item);
    set->values.insert(choices.begin(), choices.end());
  } else if (item.type == PT_CHECKBOX) {
    set->values.insert({"True", "False", "1", "0"});
    set->any_case |= accept_other_case;
  } else if (item.type == PT_TEXT_FIELD && !words.empty() &&
             lower(words[0]) == "keyword") {
    set->values.insert(words.begin() + 1, words.end());
    set->any_case = true;
  } else {
    set->known = false;
  }
}

// Those of an item, in all forms that run the script. A word is right where one
// of the forms has it, and nothing is known as soon as one form has a field
// there that takes any text. Such a set is a list only if it is a select in all
// of them.
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
        set.list = first || set.list;
        add_item_values(*f, item,
                        c.s.code.code.find("True") != std::string::npos, &set);
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

// Whether the line gives the script fewer arguments. What a shell would act on
// can be more words, or fewer, and a title has any number. The script itself is
// the word 0.
static bool lacks_argument(const script_line &line, const std::string &number)
{
  return line.text.find_first_of("'`;|&<>()\\*?{") == std::string::npos &&
         line.text.find("$T$") == std::string::npos &&
         split_words(line.text).size() <= strtoul(number.c_str(), nullptr, 10);
}

// What the forms' lines give it; nothing is known where one gives it what a
// request chooses. A line with fewer words leaves the argument blank, which
// every comparison allows for.
static value_set values_of_argument(const compare_check &c,
                                    const std::string &number)
{
  value_set set;
  const auto tasks = c.dev.tasks_of.find(c.s.name);
  if (tasks != c.dev.tasks_of.end()) {
    for (const form_task &of : tasks->second) {
      const script_line &line = of.f->scripts[of.task];
      if (of.task != TASK_NAVBAR && lacks_argument(line, number)) {
        continue; // a bar has one script for all forms, and a default
      }
      const auto known = known_arguments(*of.f, of.task);
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
// With text around it the word has other values than the variable. In
// "${a:-${b}}" the first "}" is not the last, so braces are counted.
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

static value_set values_of_name(const compare_check &c,
                                const bash_command &command,
                                const bash_expansion &e)
{
  if (e.name == "orv" || e.name == "orv_was") {
    return values_of_item(c, key_of(e.subscript));
  }
  // In a function $1 is what the caller gives it.
  if (e.name.find_first_not_of("0123456789") == std::string::npos &&
      command.function.empty() && e.name != "0") {
    return values_of_argument(c, e.name);
  }
  const auto argument = c.arguments.find(e.name);
  if (argument != c.arguments.end() && e.subscript.empty()) {
    value_set set = values_of_argument(c, argument->second.first);
    set.given = argument->second.second;
    set.known &= std::none_of(
        set.values.begin(), set.values.end(),
        [](const std::string &value) { return starts_with(value, "-"); });
    return set;
  }
  const auto holder = c.holders.find(e.name);
  return holder != c.holders.end() && e.subscript.empty()
             ? values_of_item(c, holder->second)
             : value_set();
}

// The default of ${orv[mode]:-none} is one of its values. What quotes or an
// expansion make of a default is not known here.
value_set values_of(const compare_check &c, const bash_command &command,
                    const bash_word &word)
{
  if (!is_one_expansion(word)) {
    return {};
  }
  const bash_expansion &e = word.expansions[0];
  const size_t start = starts_with(e.rest, ":-") ? 2 : 1;
  if ((!e.rest.empty() && e.rest[start - 1] != '-') || e.length || e.indirect ||
      e.rest.find_first_of("$`'\"\\") != std::string::npos) {
    return {};
  }
  value_set set = values_of_name(c, command, e);
  if (e.rest.size() > start) {
    set.values.insert(e.rest.substr(start));
  }
  return set;
}

// --- what holds them ---------------------------------------------------------

// "NAME" of an arm "new_NAME=*)" or "new_NAME)", "" of another. Blanks and
// quotes may stand around the parts of a pattern; anything else means more
// lines than one.
static std::string line_name(const std::string &pattern)
{
  std::string plain;
  for (const char c : pattern) {
    if (c != '"' && c != '\'' && c != ' ') {
      plain += c;
    }
  }
  const size_t equals = plain.find('=');
  const bool name = starts_with(plain, "new_") &&
                    (equals == std::string::npos
                         ? std::all_of(plain.begin(), plain.end(), is_name_char)
                         : plain.substr(equals) == "=*");
  return name ? plain.substr(4, std::min(equals, plain.size()) - 4) : "";
}

// The item that the assigned value is, "" when it is anything else.
// "${orv[mode]} x" is another value, and so is ${orv[mode]%x}.
static std::string item_of(const bash_assignment &assignment)
{
  const bash_word &value = assignment.value;
  return !value.expansions.empty() && value.expansions[0].name == "orv" &&
                 value.expansions[0].rest.empty() &&
                 value.plain == "${" + full_name(value.expansions[0]) + "}"
             ? key_of(value.expansions[0].subscript)
             : "";
}

// "2" of a value that is $2, "" of any other.
static std::string argument_of(const bash_command &command,
                               const bash_assignment &assignment)
{
  const bash_word &value = assignment.value;
  const std::string name =
      value.expansions.size() == 1 ? value.expansions[0].name : "";
  const bool plain =
      value.plain == "$" + name || value.plain == "${" + name + "}";
  return plain && command.function.empty() && name.size() == 1 && name >= "1" &&
                 name <= "9"
             ? name
             : "";
}

// Variables that are given an argument and nothing else. Taken out at the end,
// since the other assignment may stand in front or behind.
static void collect_arguments(compare_check *c)
{
  std::set<std::string> others; // given something else
  for (const bash_command &command : c->s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      const std::string number = argument_of(command, assignment);
      if (number.empty() ||
          !c->arguments.insert({assignment.name, {number, &assignment.value}})
               .second) {
        others.insert(assignment.name);
      }
    }
  }
  for (const std::string &name : others) {
    c->arguments.erase(name);
  }
}

// declare -i makes a plain number of what it is given, 0 of a blank.
static bool makes_number(const bash_command &command)
{
  return std::any_of(command.words.begin(), command.words.end(),
                     [](const bash_word &word) {
                       return word.plain.size() > 1 && word.plain[0] == '-' &&
                              word.plain.find('i') != std::string::npos;
                     });
}

// Variables that are given the value of an item and nothing else. item_of() is
// "" for any other value, so a second kind of value makes the set larger than
// one.
static void collect_copies(compare_check *c)
{
  std::map<std::string, std::set<std::string>> given;
  for (const bash_command &command : c->s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.subscript.empty()) {
        given[assignment.name].insert(
            makes_number(command) ? "" : item_of(assignment));
      }
    }
  }
  for (const auto &entry : given) {
    if (entry.second.size() == 1 && !entry.second.begin()->empty()) {
      c->holders[entry.first] = *entry.second.begin();
    }
  }
}

// Variables that an arm for one of the page's lines fills. Behind the others,
// and over them: `new_mode=*) mode=${line#*=} ;;` cuts the value out of a line,
// which by itself looks like any text. Where a script takes its lines so, that
// is what the variable is for.
void collect_holders(compare_check *c)
{
  collect_copies(c);
  collect_arguments(c);
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
