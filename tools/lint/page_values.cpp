// What the page gives a script, and what it has seen of it.

#include "page_values.h"

#include <algorithm>

#include "script_names.h"
#include "text.h"

// The page checks before any script of a Submit runs, so the place is all of
// the script, and a value that is not right never comes there.
static void judge_everywhere(context *c, const std::string &name)
{
  c->judged[name] = {{nullptr, "", -1, 0, TO_THE_END, 0, LEAVES}};
}

// Values that the page's own checks hold to something harmless: those of fields
// with such a check, and of lists.  Cells are checked up to the first blank
// row.
// A keyword, a word or a number has no blank, quote or dollar in it; a text or
// a regular expression may let anything pass. A select is compared with its
// choices, and a box is True or False. Rows behind a blank one reach the script
// unchecked, so no cell counts.
static void add_checked(context *c, const std::string &script_name)
{
  static const std::set<std::string> words_of_list = {"keyword", "word"};
  static const std::set<std::string> numbers = {"decimal", "number", "signed"};
  for (const form *f : forms_of(c->dev, script_name)) {
    for (const form_item &item : f->items) {
      const form_line *check = attribute(item, "check");
      const std::vector<std::string> words =
          split_words(check != nullptr ? check->text : "");
      const auto is_one_of = [&](const std::set<std::string> &checks) {
        return std::any_of(words.begin(), words.end(),
                           [&](const std::string &word) {
                             return checks.count(lower(word)) != 0;
                           });
      };
      const bool number = is_one_of(numbers);
      const std::string name = "::orv[" + item.name + "]";
      if (item.table < 0 &&
          (number || is_one_of(words_of_list) || item.type == PT_SELECT ||
           item.type == PT_CHECKBOX)) {
        // What the script has looked at by itself may be plain by then.
        const bool seen = c->judged.count(name) != 0; // by the script as well
        judge_everywhere(c, name);
        if (number && !seen) {
          c->padded[name] = !is_one_of({"decimal"});
        }
      }
    }
  }
}

// What orv_number has made is a plain decimal; what it refuses is one for the
// page's check, and blank or too long.
// Without this the advice of the rule, to call orv_number, would not end its
// finding.
static void add_plain_numbers(context *c)
{
  for (const script *s : c->files) {
    for (const bash_command &command : s->code.commands) {
      if (first_word(command) != "orv_number") {
        continue;
      }
      std::vector<literal_name> names;
      for (size_t i = 1; i < command.words.size(); i++) {
        add_literals(*s, command.words[i], &names);
      }
      for (const literal_name &name : names) {
        c->padded.erase("::orv[" + name.name + "]");
      }
    }
  }
}

// A variable that is given such a number as it is holds the same.
// number=${orv[mtu]} only moves the "010" that the rule is about. ${...#0} and
// sums may have taken it off.
static void add_padded_variables(context *c)
{
  for (const script *s : c->files) {
    for (const bash_command &command : s->code.commands) {
      for (const bash_assignment &assignment : command.assignments) {
        const bash_word &value = assignment.value;
        const auto padded =
            value.expansions.size() == 1 && value.expansions[0].rest.empty() &&
                    value.plain == "${" + full_name(value.expansions[0]) + "}"
                ? c->padded.find("::" + full_name(value.expansions[0]))
                : c->padded.end();
        if (padded != c->padded.end() && assignment.subscript.empty()) {
          const bool sign = padded->second;
          c->padded[scoped(*c, command.function, assignment.name)] = sign;
        }
      }
    }
  }
}

// Which argument is the sub-item depends on the header's line.
// A sub-item is a part of the address, which anybody can write. $@ and $* hold
// it with all others.
static void add_arguments(context *c, const std::string &script_name)
{
  for (const auto &entry : c->dev.forms) {
    for (const script_line &line : entry.second.scripts) {
      const size_t argument =
          line.script == script_name ? subitem_argument(line) : 0;
      if (argument != 0) {
        c->input.insert("::" + std::to_string(argument));
        c->input.insert("::@");
        c->input.insert("::*");
      }
    }
  }
}

void add_page_values(context *c, const std::string &script_name)
{
  add_checked(c, script_name);
  add_plain_numbers(c);
  add_padded_variables(c);
  add_arguments(c, script_name);
}
