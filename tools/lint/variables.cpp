// Variables that nothing in a script sets, and whose names are similar to one
// that is set: probably a typing error.  Other unset ones may be intended.

#include <algorithm>
#include <stdlib.h>

#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

struct variable_check {
  const device &dev;
  const script &s;
  std::set<std::string> set;   // in the script and what it sources
  std::set<std::string> cells; // columns and lists of its forms
  findings *found;
  bool any = false; // it sets variables whose names only the run knows
};

// Whether the command makes the name of what it sets: declare "$name=$value".
// A name with an expansion in front of "=" may be any, so nothing can be said
// to be unset then. What stands behind "=" is a value: declare "mtu=$value".
static bool makes_name(const bash_command &command)
{
  static const word_set setters = {"declare",  "local",   "typeset",
                                   "readonly", "export",  "read",
                                   "eval",     "mapfile", "readarray"};
  const std::vector<bash_word> &words = command.words;
  const std::string &name = first_word(command);
  const bool prints =
      name == "printf" && words.size() > 2 && words[1].plain == "-v";
  for (size_t i = prints ? 2 : 1; i < (prints ? 3 : words.size()); i++) {
    if ((prints || setters.count(name) != 0) && !words[i].expansions.empty() &&
        (name == "eval" ||
         words[i].plain.find('$') < words[i].plain.find('='))) {
      return true;
    }
  }
  return false;
}

// The names that a command sets: assignments, loops, and arguments that some
// commands fill.
// More than those that are set: a word such as -r harms nothing, as no variable
// has that name. In (( )) any word may be assigned to.
static void add_set(const bash_command &command, std::set<std::string> *names)
{
  static const word_set fillers = {"read",   "mapfile", "readarray", "declare",
                                   "local",  "typeset", "readonly",  "export",
                                   "printf", "getopts", "let"};
  for (const bash_assignment &assignment : command.assignments) {
    names->insert(assignment.name);
  }
  if (command.kind == BASH_FOR && !command.words.empty()) {
    names->insert(command.words[0].plain);
  }
  for (const bash_word &word : command.words) {
    if (command.kind == BASH_ARITHMETIC ||
        fillers.count(first_word(command)) != 0) {
      names->insert(word.plain.substr(0, word.plain.find_first_of("[=+")));
    }
  }
}

static variable_check begin_check(const device &dev, const script &s,
                                  findings *found)
{
  variable_check c = {dev, s, {}, {}, found, false};
  // Files that are sourced share the variables, in both directions.
  for (const std::string &file : with_sources(dev, s.name)) {
    for (const bash_command &command : dev.scripts.at(file).code.commands) {
      add_set(command, &c.set);
      c.any |= makes_name(command);
    }
  }
  for (const form *f : forms_of(dev, s.name)) {
    for (const form_item &item : f->items) {
      if (item.table >= 0) {
        c.cells.insert(lower(item.name));
      }
      if (!item.selector.empty()) {
        c.cells.insert("select_" + lower(item.selector));
      }
    }
  }
  return c;
}

// A name of bash, of the environment, of the library or of a parameter.
// Short names are near to each other by chance: i and j, row and now. A name of
// the environment here is most likely there on the device, too.
static bool is_given(const variable_check &c, const std::string &name)
{
  static const word_set of_library = {"rows",     "cells",      "orv",
                                      "orv_was",  "orv_failed", "orv_acted",
                                      "orv_label"};
  return name.size() < 4 || c.set.count(name) != 0 ||
         of_library.count(name) + c.dev.library_variables.count(name) != 0 ||
         starts_with(name, "BASH") || starts_with(name, "ORV_") ||
         getenv(name.c_str()) != nullptr;
}

// ${name:-none} says that the author knows of it being unset.
static void check_variable(const variable_check &c, const bash_expansion &e)
{
  const bool defaulted =
      !e.rest.empty() && e.rest.find_first_of("-+?=") != std::string::npos;
  if (c.any || is_given(c, e.name) || defaulted) {
    return;
  }
  const std::string near = nearest(e.name, c.set);
  if (!near.empty()) {
    report(c.found, *c.s.file, e.line, e.column, "script-name",
           "nothing sets " + in_quotes("$" + e.name) +
               did_you_mean(e.name, c.set));
  }
}

// "column_$row": the text before the row number must be a column.
// A name that stands more than once in the script is its own: few make the same
// typing error twice.
static void check_cell(const variable_check &c, const bash_expansion &e)
{
  const size_t end = e.subscript.find('$');
  const std::string stem = lower(e.subscript.substr(0, end));
  const auto count = c.s.counts.find(stem);
  if (!is_value_array(e.name) || end == std::string::npos || stem.empty() ||
      c.cells.count(stem) != 0 || count == c.s.counts.end() ||
      count->second != 1) {
    return;
  }
  const std::string near = nearest(stem, c.cells);
  if (!near.empty()) {
    report(c.found, *c.s.file, e.line, e.column, "script-name",
           "no form of this script has the column " + in_quotes(stem) +
               did_you_mean(stem, c.cells));
  }
}

// An element can be both: its array a misspelt variable, its subscript a cell.
static void check_word(const variable_check &c, const bash_word &word)
{
  for (const bash_expansion &e : word.expansions) {
    check_variable(c, e);
    check_cell(c, e);
  }
}

// Each file reports its own expansions alone, and those that source it or that
// it sources only say what is set.
void check_variables(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    const variable_check c = begin_check(dev, entry.second, found);
    for (const bash_command &command : entry.second.code.commands) {
      for (const bash_word &word : command.words) {
        check_word(c, word);
      }
      for (const bash_assignment &assignment : command.assignments) {
        check_word(c, assignment.value);
      }
    }
  }
}
