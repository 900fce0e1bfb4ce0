// The names that scripts give the functions of the library: those of columns,
// of arrays, and of what a value may be.

#include "arguments.h"

#include <algorithm>

#include "rules.h"
#include "script_names.h"
#include "text.h"

void report_word(const library_call &c, size_t word, const std::string &text)
{
  const bash_word &at = c.command.words[word];
  report(c.found, *c.s.file, at.line, at.column, "library-call", text);
}

// Of a column only orv_read asks for all cells. Elsewhere the mark is a part of
// the name: orv_show "port#" reports a value that nothing ever sets. The words
// of a call mostly share the mistake, so the first one is enough.
void check_marks(const library_call &c)
{
  for (size_t i = 1; i < c.command.words.size(); i++) {
    const std::string &word = c.command.words[i].plain;
    if (word.size() > 1 && word.back() == '#' &&
        c.command.words[i].expansions.empty()) {
      report_word(c, i, "\"#\" stands for all rows in \"orv_read\" only");
      return;
    }
  }
}

// In the wrong order, orv_one_of auto "${orv[mode]}" also lets "auto x" pass,
// since what is allowed is joined by blanks. A literal or a list in front and a
// value at the end is how that looks.
void check_one_of(const library_call &c)
{
  const std::vector<bash_word> &words = c.command.words;
  const bool list = words.size() > 1 && words[1].expansions.size() == 1 &&
                    words[1].expansions[0].subscript == "@";
  if (words.size() > 2 && (list || words[1].expansions.empty()) &&
      !words.back().expansions.empty()) {
    report_word(c, 1,
                "\"orv_one_of\" takes the value first, then what it may be");
  }
}

// What is given as a column and is an item of its own has no rows. The script
// may be that of several forms: one that has such a column makes the call
// right. A name that no form has may be a value of the script's own.
static void check_column(const library_call &c, const literal_name &name)
{
  bool column = false;
  bool item = false;
  for (const form *f : forms_of(c.dev, c.s.name)) {
    for (const form_item &candidate : f->items) {
      const bool named = lower(candidate.name) == lower(name.name);
      column |= named && candidate.table >= 0;
      item |= named && candidate.table < 0 && candidate.input;
    }
  }
  if (item && !column) {
    report(c.found, *c.s.file, name.line, name.column, "library-call",
           in_quotes(name.name) + " is no column of a table");
  }
}

void check_columns(const library_call &c)
{
  std::vector<literal_name> names;
  for (size_t i = 1; i < c.command.words.size(); i++) {
    add_literals(c.s, c.command.words[i], &names);
  }
  for (const literal_name &name : names) {
    check_column(c, name);
  }
}

// "$NAMES" of an array is its first element. With a single element both are the
// same. NULL stands for an array whose elements depend on the run, and the
// script's own array hides one of that name in a file that it sources.
void check_arrays(const library_call &c)
{
  for (size_t i = 1; i < c.command.words.size(); i++) {
    for (const bash_expansion &e : c.command.words[i].expansions) {
      const auto own = c.s.arrays.find(e.name);
      const auto sourced = c.s.sourced_arrays.find(e.name);
      const bash_assignment *array = own != c.s.arrays.end() ? own->second
                                     : sourced != c.s.sourced_arrays.end()
                                         ? sourced->second
                                         : nullptr;
      if (array != nullptr && e.subscript.empty() && !e.length &&
          array->elements.size() > 1) {
        report_word(c, i,
                    in_quotes("$" + e.name) +
                        " is the first element of the array alone; all are "
                        "\"${" +
                        e.name + "[@]}\"");
        return;
      }
    }
  }
}

// A list or a box holds something in every row. orv_rows would find every row
// that was drawn, so one whose texts the user has emptied would be stored
// again. Asked of one column: the others have the same reason.
void check_rows(const library_call &c)
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
        report_word(c, 0,
                    in_quotes(item.name) +
                        " is not a text column: it has a value in every row, "
                        "so no row counts as blank");
        return;
      }
    }
  }
}
