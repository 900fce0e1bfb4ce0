// Regular expressions that scripts hold values to, and that match a part of the
// value where the whole was meant.

#include "compared.h"

#include <string.h>

#include "judgements.h"
#include "text.h"

// Only an expression that repeats something at its end is meant for a whole
// value: [0-9]+ is, while "lan" or ^eth looks for a part on purpose.
bool holds_part(const std::string &expression)
{
  if (expression.empty() || expression.find('$') < expression.size() - 1) {
    return false; // made of values, or a set with a dollar
  }
  const bool begins = expression[0] == '^';
  const bool ends = expression.back() == '$';
  const bool repeats =
      strchr("+*}", expression[expression.size() - 1 - (ends ? 1 : 0)]) !=
          nullptr &&
      expression.size() > 2;
  return !(begins && ends) && repeats;
}

// [[ $x =~ [0-9]{1,3} ]] || refuse: "1; reboot" has such a part.
void check_matched(const compare_check &c, const bash_command &command)
{
  const std::vector<bash_word> &words = command.words;
  for (size_t i = 1; i + 1 < words.size(); i++) {
    const bash_word &expression = words[i + 1];
    // [[ ! $x =~ ... ]] && refuse is the same mistake.
    const bool turned = i > 1 && words[i - 2].text == "!";
    const int at = index_of(c.s, command);
    if (words[i].text == "=~" && expression.expansions.empty() &&
        !words[i - 1].expansions.empty() && holds_part(expression.plain) &&
        leads_to_refusal(c.s, at, !turned)) {
      report(c.found, *c.s.file, expression.line, expression.column,
             "regex-anchor",
             "this matches a part of the value, whatever stands beside it: "
             "begin with ^ and end with $");
    }
  }
}
