// Names that stand in a script once, and those of the items that they were
// mostly meant to be.

#include <algorithm>

#include "references.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// How often the word stands in the code of a script and what it sources.
// Words and not names are counted: one that stands in a message or a path as
// well was not written by a slip of the finger.
static int count_word(const device &dev, const std::set<std::string> &files,
                      const std::string &word)
{
  int count = 0;
  for (const std::string &file : files) {
    const std::unordered_map<std::string, int> &counts =
        dev.scripts.at(file).counts;
    const auto row = counts.find(word);
    count += row != counts.end() ? row->second : 0;
  }
  return count;
}

// The names that the script's forms can show or post.
// What a text shows counts as well as what can be entered: $V:state$ is a
// reason to report "state".
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
  std::map<std::string, int> places; // where names stand, as such
  findings *found;
};

// "port#" stands for the column "port".
static std::string plain_name(const literal_name &at)
{
  const std::string name = lower(at.name);
  return name.substr(0, name.find_last_not_of('#') + 1);
}

// A cell's name is looked for with its row's number first, since an item
// outside of tables may end in a digit. u_port reports a value of "port" as if
// the user had entered it, and the other letters of an origin alike.
static bool has_item(const name_check &c, const std::string &name)
{
  const bool origin = name.size() > 2 && name[1] == '_' &&
                      std::string("duco").find(name[0]) != std::string::npos;
  return c.items.count(name) + c.items.count(without_digits(name)) != 0 ||
         (origin && has_item(c, name.substr(2)));
}

// orv_put may report what no item shows, such as live_seconds, so a name
// without a near one is left alone.  What orv_read asks for comes from the page
// or from nowhere, and needs no likeness to anything.
// A name that is asked for (`asked`) is the page's; of others a near one is.
static void check_script_name(const name_check &c, const literal_name &at,
                              bool asked)
{
  const std::string name = plain_name(at);
  const auto places = c.places.find(name);
  const bool alone = places != c.places.end() && places->second == 1;
  const bool once = count_word(c.dev, c.files, name) == 1;
  if (name.empty() || has_item(c, name) || !(once || (asked && alone))) {
    return;
  }
  const std::string near = nearest(name, c.items);
  if (!near.empty() || asked) {
    report(c.found, *c.s.file, at.line, at.column, "script-name",
           "no form of this script has " + in_quotes(at.name) +
               ", and it occurs nowhere else here" +
               did_you_mean(name, c.items));
  }
}

// --- where names stand -------------------------------------------------------

struct named_place {
  literal_name at;
  bool asked; // what the page is asked for, or made of its values
};

static bool is_plain_key(const std::string &key)
{
  return !key.empty() && std::all_of(key.begin(), key.end(), is_name_char);
}

// A subscript that is put together, ${orv[port$row]}, says too little of the
// name.
static void add_keys(const bash_word &word, std::vector<named_place> *places)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (is_value_array(expansion.name) && is_plain_key(expansion.subscript)) {
      places->push_back(
          {{expansion.subscript, expansion.line, expansion.column}, false});
    }
  }
}

// Names that the library is given: whether they are the page's.
static void add_given(const script &s, const bash_command &command,
                      std::vector<named_place> *places)
{
  static const std::map<std::string, bool> takers = {
      {"orv_read", true},       {"orv_tick", true},
      {"orv_rows", true},       {"orv_pack", true},
      {"orv_secret", true},     {"orv_number", true},
      {"orv_show", false},      {"orv_show_secrets", false},
      {"orv_put", false},       {"orv_store", false},
      {"orv_show_hash", false}, {"orv_take_hash", false}};
  const std::string &call = command.words[0].plain;
  const auto taker =
      starts_with(call, "orv_") ? takers.find(call) : takers.end();
  if (taker == takers.end()) {
    return;
  }
  // The first word of orv_store is a file; behind the name that the others take
  // come its value, or a pattern.
  const size_t first = taker->first == "orv_store" ? 2 : 1;
  static const word_set of_one = {"orv_put", "orv_show_hash", "orv_take_hash"};
  const size_t end = of_one.count(taker->first) != 0
                         ? std::min<size_t>(2, command.words.size())
                         : command.words.size();
  std::vector<literal_name> names;
  for (size_t i = first; i < end; i++) {
    add_literals(s, command.words[i], &names);
  }
  for (const literal_name &name : names) {
    places->push_back({name, taker->second});
  }
}

static std::vector<named_place> places_of(const script &s)
{
  std::vector<named_place> places;
  for (const bash_command &command : s.code.commands) {
    for (const bash_word &word : command.words) {
      add_keys(word, &places);
    }
    for (const bash_assignment &assignment : command.assignments) {
      add_keys(assignment.value, &places);
      if (is_value_array(assignment.name) &&
          is_plain_key(assignment.subscript)) {
        places.push_back({{assignment.subscript, assignment.value.line,
                           assignment.value.column},
                          false});
      }
    }
    if (!command.words.empty()) {
      add_given(s, command, &places);
    }
  }
  return places;
}

// Bash distinguishes capitals, so a name has one spelling.
// The page takes both spellings for one name, and in the array they are two:
// what orv_read stores in orv[mtu] is not found in ${orv[MTU]}.  Small letters
// count as the right ones, and only the first name with others is reported.
static void check_spelling(const name_check &c,
                           const std::vector<named_place> &places)
{
  std::map<std::string, std::map<std::string, int>> spelt;
  for (const named_place &place : places) {
    const std::string &name = place.at.name;
    spelt[plain_name(place.at)]
         [name.substr(0, name.find_last_not_of('#') + 1)]++;
  }
  for (const named_place &place : places) {
    const auto &ways = spelt[plain_name(place.at)];
    const std::string name =
        place.at.name.substr(0, place.at.name.find_last_not_of('#') + 1);
    if (ways.size() > 1 && has_item(c, plain_name(place.at)) &&
        name != plain_name(place.at)) {
      report(c.found, *c.s.file, place.at.line, place.at.column, "name-case",
             "names are case-sensitive in bash, and this script has " +
                 in_quotes(ways.begin()->first) + " and " +
                 in_quotes(ways.rbegin()->first));
      return;
    }
  }
}

static void check_keys_of(const device &dev, const script &s, findings *found)
{
  name_check c = {
      dev, s,    with_sources(dev, s.name), names_of_forms(dev, s.name),
      {},  found};
  // A script that no form runs has nobody's names, and everything in it would
  // be foreign.
  if (c.items.empty()) {
    return;
  }
  for (const std::string &file : c.files) {
    for (const named_place &place : places_of(dev.scripts.at(file))) {
      c.places[plain_name(place.at)]++;
    }
  }
  const std::vector<named_place> places = places_of(s);
  for (const named_place &place : places) {
    check_script_name(c, place.at, place.asked);
  }
  check_spelling(c, places);
}

void check_script_keys(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    check_keys_of(dev, entry.second, found);
  }
}
