// Items and the lines that describe them.

#include <algorithm>

#include "rules.h"
#include "text.h"

// --- choices -----------------------------------------------------------------

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

// Attributes that the parser takes and nothing draws.
static void check_effect(const form &f, const form_item &item, findings *found)
{
  static const std::set<std::string> nowhere = {"item_help", "value", "part"};
  static const std::set<std::string> outside = {"prompt", "rlabel"};
  for (const form_line *line : item.lines) {
    if (line->continues || line == item.lines.front()) {
      continue;
    }
    if (nowhere.count(line->keyword) != 0) {
      report(found, f, *line, 0, "no-effect",
             in_quotes(line->keyword) + " is drawn nowhere" +
                 (line->keyword == "item_help" ? "; use a help item" : ""));
    } else if (outside.count(line->keyword) != 0 && item.table >= 0) {
      report(found, f, *line, 0, "no-effect",
             in_quotes(line->keyword) + " is not drawn in a table");
    } else if (!is_input(item)) {
      report(found, f, *line, 0, "no-effect",
             in_quotes(line->keyword) + " is not drawn for a menu");
    }
  }
}

// --- tables ------------------------------------------------------------------

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

static void check_title(const form &f, findings *found)
{
  for (const form_line &line : f.lines) {
    if (line.header && line.keyword == "title" && line.text.empty()) {
      report(found, f, line, 0, "label",
             "the page has neither title nor heading");
    }
  }
}

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
