// What scripts give the functions of the library.

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

struct library_call {
  const device &dev;
  const script &s;
  const bash_command &command;
  findings *found;
};

static void tell_word(const library_call &c, size_t word,
                      const std::string &text)
{
  const bash_word &at = c.command.words[word];
  tell(c.found, *c.s.file, at.line, at.column, "library-call", text);
}

// Whether the words are as many as they look, and stand as they are.
static bool is_written_out(const bash_command &command)
{
  return std::all_of(command.words.begin(), command.words.end(),
                     [](const bash_word &word) {
                       return word.expansions.empty() ||
                              (word.text[0] == '"' &&
                               word.text.find('@') == std::string::npos);
                     });
}

// The seconds come first.
static void check_seconds(const library_call &c)
{
  const std::vector<bash_word> &words = c.command.words;
  if (words.size() < 2 || !words[1].expansions.empty()) {
    return;
  }
  const std::string &seconds = words[1].plain;
  const bool guards = words[0].plain == "orv_guard"; // counts whole ones
  if (seconds.find_first_not_of(guards ? "0123456789" : "0123456789.") !=
          std::string::npos ||
      (guards && seconds[0] == '0')) {
    tell_word(c, 1,
              in_quotes(words[0].plain) + " takes its seconds first, and " +
                  in_quotes(seconds) + " is no such number");
  }
}

// Whether none of the scripts that a form runs beside names it once more.
static bool stands_once(const library_call &c, const std::string &name)
{
  const std::vector<const form *> &forms = forms_of(c.dev, c.s.name);
  return !forms.empty() &&
         std::all_of(forms.begin(), forms.end(), [&](const form *f) {
           int count = 0;
           for (const std::string &file : f->runs) {
             const std::map<std::string, int> &counts =
                 c.dev.scripts.at(file).counts;
             const auto row = counts.find(name);
             count += row != counts.end() ? row->second : 0;
           }
           return count == 1;
         });
}

// Names that the page acts on are told by nobody when they are misspelt.
static void check_put(const library_call &c)
{
  static const std::set<std::string> page_names = {
      "always_submit", "live_seconds", "live_tell",
      "wait_restart",  "wait_address", "wait_confirm"};
  const std::vector<bash_word> &words = c.command.words;
  if (is_written_out(c.command) && words.size() != 3) {
    tell_word(c, 0, "\"orv_put\" takes a name and a value, each a word");
  }
  const std::string name = words.size() > 1 ? lower(words[1].plain) : "";
  const std::string near = nearest(name, page_names);
  if (!near.empty() && page_names.count(name) == 0 && name.size() > 8 &&
      stands_once(c, name)) {
    tell_word(c, 1,
              "the page knows no " + in_quotes(name) + " (did you mean " +
                  in_quotes(near) + "?)");
  }
  if (starts_with(name, "wait_") && page_names.count(name) != 0 &&
      stands_once(c, name)) {
    tell_word(c, 1,
              "the read script must report " + in_quotes(name) +
                  " as well, blank, or the page does not take it");
  }
}

static void check_one_of(const library_call &c)
{
  const std::vector<bash_word> &words = c.command.words;
  if (words.size() > 2 && words[1].expansions.empty() &&
      !words.back().expansions.empty()) {
    tell_word(c, 1,
              "\"orv_one_of\" takes the value first, then what it may be");
  }
}

// A list or a box holds something in every row.
static void check_rows(const library_call &c)
{
  std::vector<literal_name> names;
  for (size_t i = 1; i < c.command.words.size(); i++) {
    add_literals(c.s, c.command.words[i], &names);
  }
  for (const form *f : forms_of(c.dev, c.s.name)) {
    for (const form_item &item : f->items) {
      const bool named = std::any_of(
          names.begin(), names.end(), [&](const literal_name &name) {
            return lower(name.name) == lower(item.name);
          });
      if (named && item.table >= 0 && item.type != PT_TEXT_FIELD &&
          item.type != PT_TEXT_FIXED) {
        tell_word(c, 0,
                  in_quotes(item.name) +
                      " is no column of text: it holds something in every row,"
                      " so no row counts as blank");
        return;
      }
    }
  }
}

void check_arguments(const device &dev, findings *found)
{
  static const std::map<std::string, void (*)(const library_call &)> checks = {
      {"orv_guard", check_seconds},
      {"orv_after_page", check_seconds},
      {"orv_put", check_put},
      {"orv_one_of", check_one_of},
      {"orv_rows", check_rows}};
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      const auto check = checks.find(first_word(command));
      if (check != checks.end() && !command.words.empty()) {
        check->second({dev, entry.second, command, found});
      }
    }
  }
}
