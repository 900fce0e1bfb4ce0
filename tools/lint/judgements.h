// What one test says of the values that it looks at.

#ifndef LINT_JUDGEMENTS_H
#define LINT_JUDGEMENTS_H

#include "flow.h"

// What a test says of one value: that it is something, or that it is not.
struct judgement {
  std::string name; // scoped
  bool holds;
};

// What it says where it succeeds; nothing for a command that is no test.
std::vector<judgement> judgements_of(const context &c,
                                     const bash_command &command);

// Whether the expression matches a part of a value, whatever stands beside it.
bool holds_part(const std::string &expression);
// Whether a case's pattern takes what holds a wrong character: *[!0-9]*.
bool takes_wrong(const std::string &pattern);
// Whether it takes everything.
bool takes_all(const std::string &pattern);
// Whether the patterns ask only which of the page's lines it is, as new_name=*
// does: whatever stands behind was not looked at.
bool asks_which_line(const bash_command &command);

#endif
