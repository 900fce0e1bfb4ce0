// The names of items.  They are read without regard to the case of letters,
// share their space with what the page itself posts, and grow by a row's
// number in tables.

#include <algorithm>
#include <string.h>
#include <strings.h>

#include "orv_limits.h"
#include "rules.h"
#include "text.h"

// A name travels in hidden fields behind a letter and "_".
static constexpr size_t NAME_MAX_LENGTH = ORV_NAME_MAX - ORV_NAME_PREFIX;
static constexpr size_t ROW_DIGITS = 2; // rows up to 99

static bool is_variable(const form_item &item)
{
  return is_input(item);
}

// --- one name ----------------------------------------------------------------

static const std::set<std::string> reserved = {
    "form",        "subitem",  "action",        "return",
    "continue",    "scroll_y", "anchor_target", "cgi_vars_loaded",
    "expert_mode", "msg",      "fatal",         "always_submit"};

static void check_characters(const form &f, const form_item &item,
                             findings *found)
{
  const size_t bad = item.name.find_first_not_of(
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_");
  if (bad != std::string::npos) {
    tell(found, f, *item.lines.front(), bad, "name-characters",
         "the name " + in_quotes(item.name) + " holds " +
             in_quotes(item.name.substr(bad, 1)) +
             "; use letters, digits and \"_\", nothing is inserted in names");
  } else if (item.name[0] >= '0' && item.name[0] <= '9') {
    tell(found, f, *item.lines.front(), 0, "name-characters",
         "the name " + in_quotes(item.name) +
             " begins with a digit, so no script"
             " can use it as a variable");
  }
}

// The page's own fields win over items, and prefixes over both.
static void check_reserved(const form &f, const form_item &item,
                           findings *found)
{
  const std::string name = lower(item.name);
  const form_line &line = *item.lines.front();
  if (reserved.count(name) != 0) {
    tell(found, f, line, 0, "name-reserved",
         in_quotes(item.name) + " has a meaning of its own for the page, so the"
                                " value never reaches a script");
  } else if (name.size() > 1 && name[1] == '_' &&
             strchr("duco", name[0]) != nullptr) {
    tell(found, f, line, 0, "name-prefix",
         in_quotes(item.name) + " means one value of " +
             in_quotes(item.name.substr(2)) + ", not a name of its own");
  } else {
    for (const char *prefix : {"error_", "delete_", "select_"}) {
      if (starts_with(name, prefix)) {
        tell(found, f, line, 0, "name-prefix",
             in_quotes(item.name) + " begins with " + in_quotes(prefix) +
                 ", which means messages, marked rows or entries of lists");
      }
    }
  }
}

static void check_length(const form &f, const form_item &item, findings *found)
{
  const size_t room = NAME_MAX_LENGTH - (item.table >= 0 ? ROW_DIGITS : 0);
  if (item.name.size() > room) {
    tell(found, f, *item.lines.front(), room, "name-length",
         "the name has " + std::to_string(item.name.size()) +
             " characters; at most " + std::to_string(room) +
             (item.table >= 0 ? " fit with a row's number behind" : " fit"));
  }
}

// --- names beside each other -------------------------------------------------

// Whether the two are never drawn on the same page.
static bool exclude_each_other(const form_item &a, const form_item &b)
{
  for (const condition &x : a.conditions) {
    for (const condition &y : b.conditions) {
      if ((x.line == y.line || x.text == y.text) && x.holds != y.holds) {
        return true;
      }
    }
  }
  return false;
}

static std::vector<note> first_use(const form &f, const form_item &item)
{
  return {{{f.file->path, item.line, item.lines.front()->column},
           in_quotes(item.name) + " is here"}};
}

static void compare(const form &f, const form_item &first,
                    const form_item &second, findings *found)
{
  const form_line &line = *second.lines.front();
  const bool both_fixed =
      first.type == PT_TEXT_FIXED && second.type == PT_TEXT_FIXED;
  if (strcasecmp(first.name.c_str(), second.name.c_str()) == 0) {
    if (first.name != second.name) {
      tell(found, f, line, 0, "name-case",
           in_quotes(second.name) + " and " + in_quotes(first.name) +
               " are the same name: the case of letters does not count",
           first_use(f, first));
    } else if (!both_fixed && !exclude_each_other(first, second)) {
      tell(found, f, line, 0, "name-twice",
           in_quotes(second.name) + " is the name of two items; the page posts"
                                    " both and one value is lost",
           first_use(f, first));
    }
  }
}

// Whether `name` is that of a cell of the column.
static bool is_cell_of(const std::string &name, const std::string &column)
{
  return name.size() > column.size() &&
         strncasecmp(name.c_str(), column.c_str(), column.size()) == 0 &&
         name.find_first_not_of("0123456789", column.size()) ==
             std::string::npos;
}

// A column named port makes port0, port1 and so on.
static void check_clashes(const form &f, const form_item &item, findings *found)
{
  for (const form_item &other : f.items) {
    if (&other != &item && other.table >= 0 && is_variable(other) &&
        is_cell_of(item.name, other.name)) {
      tell(found, f, *item.lines.front(), 0, "name-clash",
           in_quotes(item.name) + " is a cell of the column " +
               in_quotes(other.name) +
               (item.table >= 0 ? ", and so are its own cells" : ""),
           first_use(f, other));
    }
  }
}

static void check_form(const form &f, findings *found)
{
  for (size_t i = 0; i < f.items.size(); i++) {
    const form_item &item = f.items[i];
    if (!is_variable(item) || starts_with(item.name, "unnamed")) {
      continue;
    }
    check_characters(f, item, found);
    check_reserved(f, item, found);
    check_length(f, item, found);
    check_clashes(f, item, found);
    for (size_t j = 0; j < i; j++) {
      if (is_variable(f.items[j])) {
        compare(f, f.items[j], item, found);
      }
    }
  }
}

// The name of a form comes with a request.
static void check_form_name(const form &f, findings *found)
{
  const size_t bad = f.name.find_first_not_of(
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-");
  if (bad != std::string::npos || f.name[0] == '.' || f.name[0] == '-') {
    tell(found, *f.file, 1, 1, "form-name",
         "no page can show the form " + in_quotes(f.name) +
             ": its name may hold letters, digits, \"_\", \".\" and \"-\"");
  }
}

void check_names(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    check_form_name(entry.second, found);
    check_form(entry.second, found);
  }
}
