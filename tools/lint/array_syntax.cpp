// Arrays as other languages write them: bash reads something else.

#include <algorithm>

#include "rules.h"
#include "script_names.h"
#include "text.h"

// Whether the script knows an array of that name. The library's are named here,
// since their assignments stand in its files and not in the folder's scripts.
static bool is_array(const script &s, const std::string &name)
{
  return is_value_array(name) || name == "orv_label" || name == "rows" ||
         name == "cells" ||
         s.arrays.count(name) + s.sourced_arrays.count(name) != 0;
}

// "$array[0]" is the first element, and "[0]". bash ends the name in front of
// the bracket. Behind a plain variable the bracket may begin a pattern, as in
// $dir[0-9]*, so only arrays are looked at.
static void check_braces(const script &s, const bash_word &word,
                         findings *found)
{
  for (const bash_expansion &e : word.expansions) {
    if (e.subscript.empty() && e.rest.empty() && !e.length && !e.indirect &&
        word.text.find("$" + e.name + "[") != std::string::npos &&
        is_array(s, e.name)) {
      report(found, *s.file, e.line, e.column, "array-syntax",
             in_quotes("$" + e.name) +
                 " ends before the bracket: an element is written \"${" +
                 e.name + "[...]}\"");
      return;
    }
  }
}

// (a, b): blanks alone separate elements. A comma in quotes is a part of a text
// and on purpose; a single one in a longer list may be as well.
static void check_commas(const script &s, const bash_assignment &assignment,
                         findings *found)
{
  const std::vector<bash_word> &elements = assignment.elements;
  const auto commas = std::count_if(
      elements.begin(), elements.end(), [](const bash_word &word) {
        return word.text.size() > 1 && word.text.back() == ',';
      });
  if (commas > 1 || (commas == 1 && elements.size() == 2)) {
    report(found, *s.file, elements[0].line, elements[0].column, "array-syntax",
           "the commas become parts of the elements; blanks separate these");
  }
}

void check_array_syntax(const device &dev, findings *found)
{
  for (const auto &entry : dev.scripts) {
    const script &s = entry.second;
    for (const bash_command &command : s.code.commands) {
      for (const bash_word &word : command.words) {
        check_braces(s, word, found);
      }
      for (const bash_assignment &assignment : command.assignments) {
        check_braces(s, assignment.value, found);
        check_commas(s, assignment, found);
      }
    }
  }
}
