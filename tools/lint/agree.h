// What a form's scripts are held to: the names that its forms have.

#ifndef LINT_AGREE_H
#define LINT_AGREE_H

#include "device.h"

struct agree_check {
  const device &dev;
  const script &s;
  std::set<std::string> columns;      // of the forms that run it
  std::set<std::string> items;        // their other input items
  std::set<std::string> lists;        // "select_" and a list
  const std::set<std::string> &shown; // what any text of any form refers to
  findings *found;
};

// What a command names that the template has as a column, and the opposite.
void check_column_names(const agree_check &c, const bash_command &command);
// Rows and entries of lists that are counted from 1.
void check_rows_of(const agree_check &c);
// Names of cells that are made with something before the row's number, and
// cells that the script leaves out.
void check_cells(const agree_check &c, const std::vector<const form *> &forms);

#endif
