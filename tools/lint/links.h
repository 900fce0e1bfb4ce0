// Where a link of a menu or a bar leads.

#ifndef LINT_LINKS_H
#define LINT_LINKS_H

#include "device.h"

struct link_target {
  std::string form;
  std::string subitem;
};

// As menus and bars split it: at the first "/" behind the first character.
link_target split_target(const std::string &target);
// Whether a script makes up a part of it when it runs.
bool is_inserted(const std::string &text);
// Reports what is wrong with a link to `target`.
void check_target(const device &dev, const source_file &file, int line,
                  int column, const std::string &target, findings *found);

#endif
