// Items and the lines that describe them.

#include <algorithm>

#include "rules.h"
#include "text.h"

// --- choices -----------------------------------------------------------------

// Values are compared with capitals: the page sends the choice as it is
// written, and a script sees the difference.  A menu's choices are links, where
// the second of the same value is as useless.
static void check_choices(const form &f, const form_item &item, findings *found)
{
  std::map<std::string, const form_line *> values;
  for (const form_line *line : item.lines) {
    if (line->keyword != "choice") {
      continue;
    }
    const std::string value = choice_value(f, *line);
    const auto added = values.insert({value, line});
    if (!added.second) {
      report(found, f, *line, 0, "choice-twice",
             "the choice " + in_quotes(value) + " is there already",
             {{{f.file->path, added.first->second->number, 1},
               "the first is here"}});
    }
  }
  if (values.empty()) {
    report(found, f, *item.lines.front(), 0, "choice-missing",
           in_quotes(item.lines.front()->keyword) +
               " without choices is an empty list");
  }
}

// --- labels ------------------------------------------------------------------

// An empty label is one that was begun and forgotten.  Columns need one as
// well: on a phone each row is a card, with the labels of the columns beside
// the cells.
static void check_label(const form &f, const form_item &item, findings *found)
{
  const form_line *label = attribute(item, "label");
  if (label == nullptr || label->text.empty()) {
    report(found, f, label != nullptr ? *label : *item.lines.front(), 0,
           "label",
           in_quotes(item.name) +
               (item.table >= 0 ? " is a column" : " is an item") +
               " without a label: users cannot know what it is");
  }
}

// The parser takes them, so only a rule can say that they do nothing.
// Attributes that the parser takes and nothing draws.
static void check_effect(const form &f, const form_item &item, findings *found)
{
  static const std::set<std::string> nowhere = {"item_help", "value", "part"};
  static const word_set outside = {"prompt", "rlabel"};
  for (const form_line *line : item.lines) {
    // The item's own line is none: that of a menu would be reported.
    if (line->continues || line == item.lines.front()) {
      continue;
    }
    if (nowhere.count(line->keyword) != 0) {
      report(found, f, *line, 0, "no-effect",
             in_quotes(line->keyword) + " is drawn nowhere" +
                 (line->keyword == "item_help" ? "; use a help item" : ""));
    } else if (outside.count(line->keyword) != 0 && item.table >= 0) {
      // A cell has no room for a text beside or below it; the label of its
      // column is the only one that is drawn.
      report(found, f, *line, 0, "no-effect",
             in_quotes(line->keyword) + " is not drawn in a table");
    } else if (!is_input(item)) {
      report(found, f, *line, 0, "no-effect",
             in_quotes(line->keyword) + " is not drawn for a menu");
    }
  }
}

// --- tables ------------------------------------------------------------------

// A table has no end keyword: it ends by the number of its columns, and a wrong
// number shows only on the page.  A list of entries that scripts report cannot
// be a column, so one that follows was never meant to be.
// An item that follows the last cell directly was mostly meant to be one more.
static void check_extra(const form &f, size_t index, findings *found)
{
  const form_item &item = f.items[index];
  if (index == 0 || item.table >= 0 || !is_input(item) ||
      item.type == PT_ISELECT || f.items[index - 1].table < 0) {
    return;
  }
  const form_item &table =
      f.items[static_cast<size_t>(f.items[index - 1].table)];
  const std::string &before =
      f.file->lines[static_cast<size_t>(std::max(item.line - 2, 0))];
  // A blank line or a comment says that the end is meant, as the message
  // proposes.
  const bool apart = before.find_first_not_of(" \t\r") == std::string::npos ||
                     before[0] == '#';
  if (!apart) {
    report(found, *f.file, item.line, 1, "table-extra",
           in_quotes(item.name) + " follows the last of the " +
               std::to_string(table.columns) + " columns of " +
               in_quotes(table.name) +
               " and is not part of the table; if that is intended, leave a "
               "blank line before it",
           {{{f.file->path, table.line, 1}, "the table is here"}});
  }
}

// Texts alone are asked for: a list and a box always have a value that passes.
// A check runs for each row that is in use, also for one that the user empties
// to be rid of it.
// Fixed tables are let out: their rows may all have to be filled in.
static void check_columns(const form &f, const form_item &item, findings *found)
{
  if (item.table < 0 || item.type != PT_TEXT_FIELD ||
      f.items[static_cast<size_t>(item.table)].type != PT_TABLE) {
    return;
  }
  const form_line *check = attribute(item, "check");
  if (check != nullptr && check->text != "nullok" &&
      !starts_with(check->text, "nullok ")) {
    report(found, f, *check, 0, "table-required",
           "a row that another column keeps in use cannot be emptied while " +
               in_quotes(item.name) +
               " is required; use nullok, and let the check script ask");
  }
}

// The parser refuses a form without the line, but takes it without a text.
static void check_title(const form &f, findings *found)
{
  for (const form_line &line : f.lines) {
    if (line.header && line.keyword == "title" && line.text.empty()) {
      report(found, f, line, 0, "label",
             "the page has neither title nor heading");
    }
  }
}

// Menus have no label and no value, but attributes that nothing draws.
void check_items(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    check_title(f, found);
    for (size_t i = 0; i < f.items.size(); i++) {
      const form_item &item = f.items[i];
      if (item.type == PT_SELECT || item.type == PT_FORMS_MENU) {
        check_choices(f, item, found);
      }
      if (is_input(item)) {
        check_label(f, item, found);
        check_columns(f, item, found);
      }
      if (is_input(item) || item.type == PT_IMENU ||
          item.type == PT_FORMS_MENU) {
        if (item.type != PT_FORMS_MENU) {
          check_effect(f, item, found);
        }
      }
      check_extra(f, i, found);
    }
  }
}
