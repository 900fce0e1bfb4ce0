// The names of items.  They are read without regard to the case of letters,
// share their space with what the page itself posts, and grow by a row's
// number in tables.

#include <algorithm>
#include <ctype.h>
#include <string.h>

#include "orv_limits.h"
#include "rules.h"
#include "text.h"

// A name travels in hidden fields behind a letter and "_".
static constexpr size_t NAME_MAX_LENGTH = ORV_NAME_MAX - ORV_NAME_PREFIX;
// More rows than the store keeps are drawn and never stored, so their numbers
// need no room.
static constexpr size_t ROW_DIGITS = ORV_STORED_ROW_DIGITS;

static bool is_variable(const form_item &item)
{
  return is_input(item);
}

// --- one name ----------------------------------------------------------------

// What the page posts by itself, and the three names that control it when
// scripts report them.
static const std::set<std::string> reserved = {
    "form",        "subitem",  "action",        "return",
    "continue",    "scroll_y", "anchor_target", "cgi_vars_loaded",
    "expert_mode", "msg",      "fatal",         "always_submit"};

// The parser takes any word for a name.  Bash does not: in orv[my-lan] the name
// is a text, but $my-lan is the value of "my" with "-lan" behind it.
static void check_characters(const form &f, const form_item &item,
                             findings *found)
{
  const size_t bad = item.name.find_first_not_of(
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_");
  if (bad != std::string::npos) {
    report(found, f, *item.lines.front(), bad, "name-characters",
           "the name " + in_quotes(item.name) + " holds " +
               in_quotes(item.name.substr(bad, 1)) +
               "; use letters, digits and \"_\"; nothing is expanded in names");
  } else if (item.name[0] >= '0' && item.name[0] <= '9') {
    report(found, f, *item.lines.front(), 0, "name-characters",
           "the name " + in_quotes(item.name) +
               " begins with a digit, so no script"
               " can use it as a variable");
  }
}

// Without regard to capitals, as the page compares them: a field "Form" is
// swallowed like "form".
// The page's own fields win over items, and prefixes over both.
static void check_reserved(const form &f, const form_item &item,
                           findings *found)
{
  const std::string name = lower(item.name);
  const form_line &line = *item.lines.front();
  if (reserved.count(name) != 0) {
    report(
        found, f, line, 0, "name-reserved",
        in_quotes(item.name) +
            " is reserved for the page, so the value never reaches a script");
  } else if (name.size() > 1 && name[1] == '_' &&
             strchr("duco", name[0]) != nullptr) {
    // "u_mtu" is what the user has entered for "mtu": the two would share one
    // value.
    report(found, f, line, 0, "name-prefix",
           in_quotes(item.name) + " means one value of " +
               in_quotes(item.name.substr(2)) + ", not a name of its own");
  } else {
    for (const char *prefix : {"error_", "delete_", "select_"}) {
      if (starts_with(name, prefix)) {
        report(found, f, line, 0, "name-prefix",
               in_quotes(item.name) + " begins with " + in_quotes(prefix) +
                   ", which means messages, marked rows or entries of lists");
      }
    }
  }
}

// Outside of tables a digit at the end is usual and harmless: dns1, dns2.
// route1 and row 0 make route10, and so do route and row 10.
static void check_digit(const form &f, const form_item &item, findings *found)
{
  if (item.table >= 0 &&
      isdigit(static_cast<unsigned char>(item.name.back())) != 0) {
    report(found, f, *item.lines.front(), 0, "name-clash",
           "the column " + in_quotes(item.name) +
               " ends in a digit, so the row's number that follows cannot be "
               "separated from it");
  }
}

// A name that is too long by a digit works until the tenth row is filled in, so
// the room for that is taken off at once.
static void check_length(const form &f, const form_item &item, findings *found)
{
  const size_t room = NAME_MAX_LENGTH - (item.table >= 0 ? ROW_DIGITS : 0);
  if (item.name.size() > room) {
    report(found, f, *item.lines.front(), room, "name-length",
           "the name has " + std::to_string(item.name.size()) +
               " characters; at most " + std::to_string(room) +
               (item.table >= 0 ? " fit with a row's number behind" : " fit"));
  }
}

// --- names beside each other -------------------------------------------------

// The same condition once met and once not, by its if and else or by another if
// with the same text.  Whether two different conditions can be met at once
// depends on values, and then both may be drawn.
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

// Two read-only fields of one name show one value in two places and post
// nothing.  A different spelling is reported before anything else, since it is
// wrong in two sections that exclude each other as well: a script knows one of
// them.
static void compare(const form &f, const form_item &first,
                    const form_item &second, findings *found)
{
  const form_line &line = *second.lines.front();
  const bool both_fixed =
      first.type == PT_TEXT_FIXED && second.type == PT_TEXT_FIXED;
  if (first.name != second.name) {
    report(found, f, line, 0, "name-case",
           in_quotes(second.name) + " and " + in_quotes(first.name) +
               " are the same name: names are case-insensitive",
           first_use(f, first));
  } else if (!both_fixed && !exclude_each_other(first, second)) {
    report(found, f, line, 0, "name-twice",
           in_quotes(second.name) + " is the name of two items; the page posts"
                                    " both and one value is lost",
           first_use(f, first));
  }
}

// The items of a form by their names in small letters.
typedef std::map<std::string, std::vector<const form_item *>> named_items;

// All ways to part the digits at the end are tried: "lan12" is row 2 of "lan1"
// as well as row 12 of "lan".
// A column named port makes port0, port1 and so on.
static void check_clashes(const form &f, const form_item &item,
                          const named_items &columns, findings *found)
{
  const std::string name = lower(item.name);
  const size_t digits = name.find_last_not_of("0123456789") + 1;
  for (size_t length = std::max<size_t>(digits, 1); length < name.size();
       length++) {
    const auto column = columns.find(name.substr(0, length));
    if (column != columns.end()) {
      const form_item &other = *column->second.front();
      report(found, f, *item.lines.front(), 0, "name-clash",
             in_quotes(item.name) + " is a cell of the column " +
                 in_quotes(other.name) +
                 (item.table >= 0 ? ", and so are its own cells" : ""),
             first_use(f, other));
    }
  }
}

// A generated template with a thousand fields of one name must not take a
// million comparisons; the first findings tell as much.
// Of more items of one name, only the first are compared.
static constexpr size_t SAME_NAME_MAX = 20;

static void check_form(const form &f, findings *found)
{
  named_items columns;
  for (const form_item &item : f.items) {
    if (item.table >= 0 && is_variable(item)) {
      columns[lower(item.name)].push_back(&item);
    }
  }
  named_items before;
  for (const form_item &item : f.items) {
    // An item without a name was refused by the parser and got a name here, so
    // that the lines behind it could be read.
    if (!is_variable(item) || starts_with(item.name, "unnamed")) {
      continue;
    }
    check_characters(f, item, found);
    check_reserved(f, item, found);
    check_length(f, item, found);
    check_digit(f, item, found);
    check_clashes(f, item, columns, found);
    std::vector<const form_item *> &same = before[lower(item.name)];
    for (const form_item *other : same) {
      compare(f, *other, item, found);
    }
    if (same.size() < SAME_NAME_MAX) {
      same.push_back(&item);
    }
  }
}

// It is also that of a file, so under the strict policy only harmless
// characters are let through, and nothing that begins like "..", or like an
// option.
// The name of a form comes with a request.
static void check_form_name(const form &f, findings *found)
{
  const size_t bad = f.name.find_first_not_of(
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-");
  if (bad != std::string::npos || f.name[0] == '.' || f.name[0] == '-') {
    report(found, *f.file, 1, 1, "form-name",
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
