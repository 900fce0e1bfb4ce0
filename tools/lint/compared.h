// The values that items and arguments can have, for what compares them.

#ifndef LINT_COMPARED_H
#define LINT_COMPARED_H

#include "device.h"

// All values that something can have.
struct value_set {
  bool known = false;
  bool argument = false; // of the script
  bool any_case = false; // capitals do not matter in them
  bool list = false;     // the choices of select items alone
  std::string what;      // that has them, as messages name it
  std::set<std::string> values;
  // Where the variable was given the argument, NULL for the argument itself.
  const bash_word *given = nullptr;
};

struct compare_check {
  const device &dev;
  const script &s;
  std::vector<const form *> forms;
  std::map<std::string, std::string> holders; // variables, by what they hold
  const std::set<std::string> &given;         // words that commands are given
  findings *found;
  // Variables that are an argument of the script, and where they become it.
  std::map<std::string, std::pair<std::string, const bash_word *>> arguments;
};

// Enters which variables hold the value of an item or an argument.
void collect_holders(compare_check *c);
// Those of a word that is one expansion; not known for any other.
value_set values_of(const compare_check &c, const bash_command &command,
                    const bash_word &word);
// Whether a refusal follows where the test fails, or where it succeeds.
bool leads_to_refusal(const script &s, int test, bool fails);
// Expressions that match a part of the value where the whole was meant.
void check_matched(const compare_check &c, const bash_command &command);
// Numbers that are compared as texts, or that the test cannot read.
void check_numbers(const compare_check &c, const bash_command &command);
// Lists of what is allowed that lack a choice of the template.
void check_lacking(const compare_check &c);

#endif
