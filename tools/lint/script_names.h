// Names of values as they stand in scripts.

#ifndef LINT_SCRIPT_NAMES_H
#define LINT_SCRIPT_NAMES_H

#include "device.h"

// A name that stands in a script as it is, and where.
struct literal_name {
  std::string name;
  int line;
  int column;
};

// The column of a cell's name; of another name, the name itself.
std::string without_digits(const std::string &name);
// Whether one of them, or of a map's keys, is a cell of the column: its name
// and a number.
bool has_cell(const std::set<std::string> &names, const std::string &column);
bool has_cell(const std::map<std::string, std::string> &values,
              const std::string &column);
// The names that a word stands for, as far as they are written out: its own,
// or the elements of an array that is given them once.  False when it may stand
// for others as well.
bool add_literals(const script &s, const bash_word &word,
                  std::vector<literal_name> *names);
// The arrays that hold a form's values.
bool is_value_array(const std::string &name);

#endif
