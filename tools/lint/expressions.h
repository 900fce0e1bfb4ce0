// Regular expressions of checks, as far as they compile and mean something
// else.

#ifndef LINT_EXPRESSIONS_H
#define LINT_EXPRESSIONS_H

#include <stddef.h>

#include <map>
#include <string>
#include <vector>

struct expression_fault {
  size_t offset;
  std::string text; // "" without a fault
};

expression_fault expression_fault_of(const std::string &text);

#endif
