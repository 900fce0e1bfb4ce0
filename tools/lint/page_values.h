// What the page gives a script, and what it has seen of it.

#ifndef LINT_PAGE_VALUES_H
#define LINT_PAGE_VALUES_H

#include "flow.h"

// Enters the arguments that are the sub-item, and the values that the checks of
// the script's forms hold to something harmless.
void add_page_values(context *c, const std::string &script_name);

#endif
