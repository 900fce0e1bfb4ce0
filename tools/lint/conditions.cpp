// Conditional sections: their balance, what their conditions can mean, and
// what a hidden field does to its user.

#include <algorithm>
#include <strings.h>

#include "orv_limits.h"
#include "references.h"
#include "rules.h"
#include "text.h"

// --- balance -----------------------------------------------------------------

struct open_condition {
  const form_line *line;
  const form_line *other; // its else
};

// The parser takes the second else for another turn of the condition, and says
// nothing.
static void check_else(const form &f, const form_line &line,
                       std::vector<open_condition> *stack, findings *found)
{
  if (stack->empty()) {
    report(found, f, line, 0, "condition-balance",
           in_quotes(line.keyword) + " without an if");
    return;
  }
  if (line.keyword == "endif") {
    stack->pop_back();
    return;
  }
  if (stack->back().other != nullptr) {
    report(found, f, line, 0, "condition-balance",
           "a second \"else\" inverts the condition again",
           {{{f.file->path, stack->back().other->number, 1},
             "the first is here"}});
  }
  stack->back().other = &line;
}

// The page counts what is left over; here each has its line.
static void check_balance(const form &f, findings *found)
{
  std::vector<open_condition> stack;
  for (const form_line &line : f.lines) {
    if (line.keyword == "if" || line.keyword == "ifnot") {
      stack.push_back({&line, nullptr});
      // Those inside of it are left out for the same reason, and that is told
      // once.
      if (stack.size() == ORV_CONDITIONS_MAX + 1) {
        report(found, f, line, 0, "condition-depth",
               "conditions are nested more than " +
                   std::to_string(ORV_CONDITIONS_MAX) +
                   " deep; this one is left out");
      }
    } else if (line.keyword == "else" || line.keyword == "endif") {
      check_else(f, line, &stack, found);
    }
  }
  for (const open_condition &open : stack) {
    report(found, *f.file, open.line->number, 1, "condition-balance",
           in_quotes(open.line->keyword) +
               " without an endif: \"conditions left on"
               " stack\"");
  }
}

// --- meaning -----------------------------------------------------------------

// The text without what is inserted when the page is drawn. If something is
// left, the condition can no longer be empty, whatever the values are.
static std::string constant_part(const std::string &text)
{
  std::string rest;
  for (const text_part &part : scan_text(text)) {
    if (part.kind != PART_TAG && part.kind != PART_REFERENCE) {
      rest += text.substr(part.offset, part.length);
    }
  }
  return rest;
}

// The words that the executable takes for false, in any case of letters.
static bool is_false(const std::string &text)
{
  static const char *const words[] = {"", "0", "no", "false", "off"};
  return std::any_of(std::begin(words), std::end(words), [&](const char *word) {
    return strcasecmp(word, text.c_str()) == 0;
  });
}

// The input items of a form by their names in small letters.
typedef std::map<std::string, const form_item *> item_names;

// Of two items with one name the first stays; that there are two is a finding
// of its own.
static item_names names_of(const form &f)
{
  item_names names;
  for (const form_item &item : f.items) {
    if (item.input) {
      names.insert({lower(item.name), &item});
    }
  }
  return names;
}

// The item that a condition asks for alone, NULL without one. $V:name$ and
// $U:name$ follow what the user enters; $O:name$, what was reported, stays the
// same while the page is open.
static const form_item *asked_item(const item_names &items,
                                   const std::string &text)
{
  const std::vector<text_part> parts = scan_text(text);
  if (parts.size() != 1 || parts[0].kind != PART_REFERENCE ||
      (parts[0].type != 'V' && parts[0].type != 'U')) {
    return nullptr;
  }
  const auto item = items.find(lower(parts[0].name));
  return item != items.end() ? item->second : nullptr;
}

// Of a select alone: the values of an iselect come from a script, and a field
// may be blank.
static bool all_choices_true(const form &f, const item_names &items,
                             const std::string &text)
{
  const form_item *item = asked_item(items, text);
  if (item == nullptr || item->type != PT_SELECT) {
    return false;
  }
  const std::set<std::string> choices = choices_of(f, *item);
  return !choices.empty() &&
         std::none_of(choices.begin(), choices.end(), is_false);
}

// A browser draws the page again when a control of that very name changes.
static void check_spelling(const form &f, const form_line &line,
                           const item_names &items, findings *found)
{
  const form_item *item = asked_item(items, line.text);
  const std::vector<text_part> parts = references_of(line.text);
  if (item != nullptr && parts[0].name != item->name) {
    report(found, f, line, 3, "name-case",
           in_quotes(parts[0].name) + " is spelt " + in_quotes(item->name) +
               " as an item; the page follows a change only of a name that is"
               " spelt alike",
           {{{f.file->path, item->line, item->lines.front()->column},
             in_quotes(item->name) + " is here"}});
  }
}

// There are no operators, so text beside a value decides alone. In this order,
// so that `if static_ip` is told how a value is written, and
// `if $V:mode$ = auto` that there is no comparison.
static void check_constant(const form &f, const form_line &line,
                           const item_names &items, findings *found)
{
  const std::string rest = constant_part(line.text);
  if (line.text.empty()) {
    report(found, f, line, 0, "condition-constant",
           "an empty condition is always false");
  } else if (rest == line.text) {
    report(found, f, line, 0, "condition-constant",
           in_quotes(line.text) + " is always " +
               (is_false(line.text) ? "false" : "true") +
               "; a value is written $V:name$");
  } else if (rest.empty() && all_choices_true(f, items, line.text)) {
    report(found, f, line, 0, "condition-constant",
           "this condition is always true: no choice of it is empty, 0, no,"
           " false or off");
  } else if (!rest.empty()) {
    report(found, f, line, 0, "condition-constant",
           "this condition is always true: there are no operators, and " +
               in_quotes(rest) + " is text that is not empty");
  }
}

// --- fields that are not drawn -----------------------------------------------

// What is unset while values are checked, and so hides nothing then that
// stands under its negation.
static bool is_page_tag(const std::string &text)
{
  return text == "$X$" || text == "$H$" || text == "$E$";
}

// Without a check, a field takes what it is given, blank or not.
static bool is_nullok(const form_item &item)
{
  const form_line *check = attribute(item, "check");
  return check == nullptr || check->text == "nullok" ||
         starts_with(check->text, "nullok ");
}

// Whether no value can fail the field's check.
static bool takes_all(const form_item &item)
{
  const form_line *check = attribute(item, "check");
  const std::vector<std::string> words =
      split_words(check != nullptr ? check->text : "nullok text");
  return words.size() > 1 && words[0] == "nullok" && lower(words[1]) == "text";
}

// The lines of a form that show the message of a name, by that.
typedef std::map<std::string, std::vector<const form_line *>> message_lines;

// A condition that asks for a message does not show it.
static message_lines messages_of(const form &f)
{
  message_lines lines;
  for (const form_line &line : f.lines) {
    if (line.keyword == "if" || line.keyword == "ifnot") {
      continue;
    }
    for (const text_part &part : references_of(line.text)) {
      if (part.type == 'E') {
        lines[lower(part.name)].push_back(&line);
      }
    }
  }
  return lines;
}

// Whether all that is not blank passes.
static bool takes_any(const form_item &item)
{
  const form_line *check = attribute(item, "check");
  return check != nullptr && lower(first_word(check->text)) == "text";
}

// A message shown in the same hidden section helps nobody. Both the section and
// its else have the line of the same if, and differ in whether it must hold.
static bool shows_error(const message_lines &lines, const std::string &name,
                        const condition &hiding)
{
  const auto shown = lines.find(lower(name));
  return shown != lines.end() &&
         std::any_of(shown->second.begin(), shown->second.end(),
                     [&](const form_line *line) {
                       return std::none_of(line->conditions.begin(),
                                           line->conditions.end(),
                                           [&](const condition &c) {
                                             return c.line == hiding.line &&
                                                    c.holds == hiding.holds;
                                           });
                     });
}

// Tables are let out: their messages stand under them. A field that is not
// drawn may be blank, but what was typed into it before it disappeared is
// checked. That can happen where the user changes the item that the condition
// asks for; what a script reports stays as it is until the page is opened anew.
static void check_hidden(const form &f, const form_item &item,
                         const message_lines &messages, const item_names &items,
                         findings *found)
{
  if (item.type != PT_TEXT_FIELD || item.table >= 0) {
    return;
  }
  const form_line *check = attribute(item, "check");
  const form_line &at = check != nullptr ? *check : *item.lines.front();
  for (const condition &c : item.conditions) {
    if (!is_page_tag(c.text)) {
      const form_item *asked = asked_item(items, c.text);
      if (asked != nullptr && is_editable(*asked) && !is_nullok(item) &&
          !takes_any(item) && !shows_error(messages, item.name, c)) {
        report(found, f, at, 0, "hidden-message",
               "what was entered in " + in_quotes(item.name) +
                   " is checked even while it is not drawn, and then nobody "
                   "sees the message; show $E:" +
                   item.name + "$ behind an else",
               {{{f.file->path, c.line, 1}, "its condition is here"}});
      }
      continue;
    }
    // Under `ifnot $X$` the field counts as drawn while values are checked,
    // under `if $X$` as not drawn, whichever view the user has.
    if (!c.holds && !is_nullok(item)) {
      report(found, f, at, 0, "required-hidden",
             "a blank " + in_quotes(item.name) +
                 " is refused even while it is not drawn, since " + c.text +
                 " is unset while values are checked",
             {{{f.file->path, c.line, 1}, "its condition is here"}});
    } else if (c.text == "$X$" && !takes_all(item) &&
               !shows_error(messages, item.name, c)) {
      report(found, f, at, 0, "hidden-message",
             "the message for " + in_quotes(item.name) +
                 " is seen by nobody in the"
                 " other view; show $E:" +
                 item.name + "$ there",
             {{{f.file->path, c.line, 1}, "its condition is here"}});
    }
  }
}

void check_conditions(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    const item_names items = names_of(f);
    check_balance(f, found);
    for (const form_line &line : f.lines) {
      if (line.keyword == "if" || line.keyword == "ifnot") {
        check_constant(f, line, items, found);
        check_spelling(f, line, items, found);
      }
    }
    const message_lines messages = messages_of(f);
    for (const form_item &item : f.items) {
      check_hidden(f, item, messages, items, found);
    }
  }
}
