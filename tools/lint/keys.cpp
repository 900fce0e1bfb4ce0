// Names that stand in a script once, and those of the items that they were
// mostly meant to be.

#include <algorithm>

#include "references.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// How often the word stands in the code of a script and what it sources.
static int count_word(const device &dev, const std::set<std::string> &files,
                      const std::string &word)
{
  int count = 0;
  for (const std::string &file : files) {
    const std::map<std::string, int> &counts = dev.scripts.at(file).counts;
    const auto row = counts.find(word);
    count += row != counts.end() ? row->second : 0;
  }
  return count;
}

// The names that the script's forms can show or post.
static std::set<std::string> names_of_forms(const device &dev,
                                            const std::string &script_name)
{
  std::set<std::string> names;
  for (const form *f : forms_of(dev, script_name)) {
    for (const form_item &item : f->items) {
      if (is_input(item)) {
        names.insert(lower(item.name));
      }
    }
    for (const form_line &line : f->lines) {
      for (const text_part &ref : references_of(line.text)) {
        names.insert(lower(ref.name));
      }
    }
  }
  return names;
}

// A name that stands in the code once and is that of no item was mostly meant
// to be one that is near.
struct name_check {
  const device &dev;
  const script &s;
  std::set<std::string> files; // the script and what it sources
  std::set<std::string> items;
  findings *found;
};

static void check_script_name(const name_check &c, const literal_name &at)
{
  std::string name = lower(at.name);
  name.erase(name.find_last_not_of('#') + 1);
  if (name.empty() || c.items.count(name) != 0 ||
      c.items.count(without_digits(name)) != 0) {
    return;
  }
  if (count_word(c.dev, c.files, name) != 1) {
    return;
  }
  const std::string near = nearest(name, c.items);
  if (!near.empty()) {
    tell(c.found, *c.s.file, at.line, at.column, "script-name",
         "no form of this script has " + in_quotes(at.name) +
             ", and nothing else here names it (did you mean " +
             in_quotes(near) + "?)");
  }
}

static bool is_plain_key(const std::string &key)
{
  return !key.empty() && std::all_of(key.begin(), key.end(), is_name_char);
}

static void check_keys(const name_check &c, const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (is_value_array(expansion.name) && is_plain_key(expansion.subscript)) {
      check_script_name(
          c, {expansion.subscript, expansion.line, expansion.column});
    }
  }
}

static void check_keys_of(const device &dev, const script &s, findings *found)
{
  static const std::set<std::string> takers = {
      "orv_read", "orv_show",   "orv_tick",        "orv_rows",
      "orv_pack", "orv_secret", "orv_show_secrets"};
  const name_check c = {dev, s, with_sources(dev, s.name),
                        names_of_forms(dev, s.name), found};
  if (c.items.empty()) {
    return;
  }
  for (const bash_command &command : s.code.commands) {
    for (const bash_word &word : command.words) {
      check_keys(c, word);
    }
    for (const bash_assignment &assignment : command.assignments) {
      check_keys(c, assignment.value);
      if (is_value_array(assignment.name) &&
          is_plain_key(assignment.subscript)) {
        check_script_name(c, {assignment.subscript, assignment.value.line,
                              assignment.value.column});
      }
    }
    if (command.words.empty() || takers.count(command.words[0].plain) == 0) {
      continue;
    }
    std::vector<literal_name> names;
    for (size_t i = 1; i < command.words.size(); i++) {
      add_literals(s, command.words[i], &names);
    }
    for (const literal_name &name : names) {
      check_script_name(c, name);
    }
  }
}

void check_script_keys(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    check_keys_of(dev, entry.second, found);
  }
}
