// Which values a script has looked at, and where.

#ifndef LINT_JUDGED_H
#define LINT_JUDGED_H

#include "flow.h"

// Enters what the scripts compare with something, and where that holds.
void collect_judged(context *c);
// Whether the branch is `outer`, or stands in it; every one stands in -1.
bool is_inside(const script &s, int branch, int outer);

#endif
