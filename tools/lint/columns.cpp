// Columns of tables, whose rows have names of their own, and items of a form,
// which have no rows: each where the other was meant.

#include <algorithm>

#include "agree.h"
#include "flow.h"
#include "script_names.h"
#include "text.h"

// --- what is given to the library --------------------------------------------

static void report_name(const agree_check &c, const literal_name &at,
                        const char *rule, const std::string &text)
{
  report(c.found, *c.s.file, at.line, at.column, rule,
         in_quotes(at.name) + text);
}

// The names of one word, placed where the command gives them. Elements of an
// array may stand far from the call that is wrong.
static std::vector<literal_name> names_of(const agree_check &c,
                                          const bash_word &word)
{
  std::vector<literal_name> names;
  add_literals(c.s, word, &names);
  for (literal_name &name : names) {
    name.line = word.line;
    name.column = word.column;
  }
  return names;
}

// A column is no value: each of its rows is one. orv_error takes a column,
// whose message stands under the table. The first word of orv_store is a file.
// A name that is an item of another form may be meant for that one.
static bool check_columns(const agree_check &c, const bash_command &command)
{
  static const std::map<std::string, const char *> takers = {
      {"orv_read", "'NAME#' stands for all its rows"},
      {"orv_show", "orv_pack sets cells to their names"},
      {"orv_store", "orv_pack sets cells to their names"},
      {"orv_tick", "a row's is NAME0"},
      {"orv_number", "a row's is NAME0"},
      {"orv_secret", "a row's is NAME0"}};
  const auto taker = takers.find(first_word(command));
  for (size_t i = taker != takers.end() && taker->first == "orv_store" ? 2 : 1;
       taker != takers.end() && i < command.words.size(); i++) {
    for (const literal_name &name : names_of(c, command.words[i])) {
      const std::string key = lower(name.name);
      if (c.columns.count(key) != 0 && c.items.count(key) == 0) {
        report_name(c, name, "column-row",
                    std::string(" is a column; each of its rows has a name of "
                                "its own; ") +
                        taker->second);
        return true;
      }
    }
  }
  return false;
}

// Whether the name is one of an item that is no column of any of the forms.
static bool is_plain_item(const agree_check &c, const std::string &name)
{
  return c.items.count(lower(name)) != 0 && c.columns.count(lower(name)) == 0;
}

// 'NAME#' and the row of a message are for columns. orv_error "port_mtu$row"
// text "$row" would mark port_mtu33 for row 3.
static void check_rows_given(const agree_check &c, const bash_command &command)
{
  const std::string &function = first_word(command);
  const std::vector<bash_word> &words = command.words;
  if (function == "orv_error" && words.size() == 4) {
    const size_t dollar = words[1].plain.find('$');
    if (dollar != std::string::npos &&
        c.columns.count(lower(words[1].plain.substr(0, dollar))) != 0) {
      report_name(c, {words[1].plain, words[1].line, words[1].column},
                  "library-call",
                  " has the row's number already; give it once");
    }
    for (const literal_name &name : names_of(c, words[1])) {
      if (is_plain_item(c, name.name)) {
        report_name(c, name, "library-call",
                    " is no column of a table: a message for one of its rows is"
                    " shown nowhere");
      }
    }
  }
  for (size_t i = 1; function == "orv_read" && i < words.size(); i++) {
    for (const literal_name &name : names_of(c, words[i])) {
      const std::string stem = name.name.substr(0, name.name.size() - 1);
      if (ends_with(name.name, "#") && is_plain_item(c, stem)) {
        report_name(c, name, "library-call",
                    " asks for the rows of a column, and " + in_quotes(stem) +
                        " is no column");
        return;
      }
    }
  }
}

// --- boxes -------------------------------------------------------------------

// Whether forms of the script have the item or column, and none as a box. True
// only where it is known: a name that no form has may be a value of the
// script's own.
static bool is_never_box(const agree_check &c, const std::string &name)
{
  bool any = false;
  for (const form *f : forms_of(c.dev, c.s.name)) {
    for (const form_item &item : f->items) {
      if (!item.input || item.name.empty() || lower(item.name) != name) {
        continue;
      }
      any = true;
      if (item.type == PT_CHECKBOX) {
        return false;
      }
    }
  }
  return any;
}

// orv_tick makes True or False of whatever it is given. So a list or a text is
// lost, without a word. Of a name that is made, "wifi_on$row", the beginning
// says which column it is.
static void check_boxes(const agree_check &c, const bash_command &command)
{
  for (size_t i = 1;
       first_word(command) == "orv_tick" && i < command.words.size(); i++) {
    std::vector<literal_name> names = names_of(c, command.words[i]);
    const std::string &made = command.words[i].plain;
    if (names.empty() && made.find('$') != std::string::npos) {
      names.push_back({made.substr(0, made.find('$')), command.words[i].line,
                       command.words[i].column});
    }
    for (const literal_name &name : names) {
      const std::string key = lower(name.name);
      if (is_never_box(c, key) ||
          (c.columns.count(key) == 0 && without_digits(key) != key &&
           is_never_box(c, without_digits(key)))) {
        report_name(c, name, "library-call",
                    " is no check box, and \"orv_tick\" replaces its value by"
                    " True or False");
        return;
      }
    }
  }
}

// --- values ------------------------------------------------------------------

// Whether the script gives the array a value of that name by itself.
// orv[port_use]=printer uses the name for another value.
static bool sets(const agree_check &c, const std::string &name)
{
  return std::any_of(c.s.code.commands.begin(), c.s.code.commands.end(),
                     [&](const bash_command &command) {
                       return std::any_of(
                           command.assignments.begin(),
                           command.assignments.end(),
                           [&](const bash_assignment &assignment) {
                             return assignment.subscript == name;
                           });
                     });
}

// ${orv[column]} without a row is empty.
static void check_value(const agree_check &c, const bash_word &word)
{
  for (const bash_expansion &e : word.expansions) {
    const std::string key = lower(e.subscript);
    if ((e.name == "orv" || e.name == "orv_was") && c.columns.count(key) != 0 &&
        c.items.count(key) == 0 && !sets(c, e.subscript)) {
      report(c.found, *c.s.file, e.line, e.column, "column-row",
             in_quotes(e.subscript) +
                 " is a column, so this is always empty: a value has the number"
                 " of its row, as in " +
                 in_quotes(e.subscript + "0"));
    }
  }
}

// The first finding of a command is enough: each of the others would follow
// from the same wrong idea of the name.
void check_column_names(const agree_check &c, const bash_command &command)
{
  if (!check_columns(c, command)) {
    check_rows_given(c, command);
    check_boxes(c, command);
  }
  for (const bash_word &word : command.words) {
    check_value(c, word);
  }
  for (const bash_assignment &assignment : command.assignments) {
    check_value(c, assignment.value);
  }
}
