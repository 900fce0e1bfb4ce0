// Forms without a script: what orv-store keeps for them, and what it cannot.

#include <algorithm>

#include "page_values.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// Whether some file of the form's settings as shipped has a line of that name.
static bool is_shipped(const device &dev, const form &f,
                       const std::string &name)
{
  for (const auto &entry : dev.defaults) {
    const std::vector<std::string> &lines = entry.second->lines;
    if (entry.first.substr(0, entry.first.find('@')) == f.name &&
        std::any_of(lines.begin(), lines.end(), [&](const std::string &line) {
          return starts_with(lower(line), name + "=");
        })) {
      return true;
    }
  }
  return false;
}

static bool uses_subitem(const form &f)
{
  return std::any_of(f.lines.begin(), f.lines.end(), [](const form_line &line) {
    return line.text.find("$S$") != std::string::npos;
  });
}

static void check_item(const device &dev, const form &f, const form_item &item,
                       findings *found)
{
  const form_line &line = *item.lines[0];
  if (item.table >= 0 && is_secret(item.name)) {
    tell(found, f, line, 0, "keeper",
         in_quotes(item.name) + " is secret, and rows are stored as they were"
                                " shown: such a table needs a script");
  }
  if (item.type == PT_ISELECT &&
      !is_shipped(dev, f, "select_" + lower(item.selector) + "0")) {
    tell(found, f, line, 0, "keeper",
         "defaults/" + f.name + " has no " +
             in_quotes("select_" + item.selector + "0") +
             ", and no script reports the entries of this list");
  }
  if (item.type == PT_TEXT_FIELD && attribute(item, "check") == nullptr) {
    tell(found, f, line, 0, "keeper",
         in_quotes(item.name) + " has no check, and no script judges it");
  }
}

void check_keepers(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    if (!keeps_itself(dev, f) || is_special(f.name)) {
      continue;
    }
    for (const form_item &item : f.items) {
      check_item(dev, f, item, found);
    }
    const std::string start = f.name + "@";
    if (uses_subitem(f) &&
        std::none_of(dev.settings.begin(), dev.settings.end(),
                     [&](const std::string &name) {
                       return starts_with(name, start);
                     })) {
      tell(found, {f.file->path, "", {}}, 1, 1, "keeper",
           "the page names a sub-item, and defaults/ has no file " +
               in_quotes(start + "SUBITEM"));
    }
  }
}
