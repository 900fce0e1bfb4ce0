// The rules' names, levels and explanations, which stand in rules/NAME.txt.

#include "rules.h"

#include <stdio.h>
#include <string.h>

const rule_text *find_rule(const std::string &name)
{
  for (const rule_text *row = rule_texts; row->name != nullptr; row++) {
    if (name == row->name) {
      return row;
    }
  }
  return nullptr;
}

std::set<std::string> rule_names(void)
{
  std::set<std::string> names;
  for (const rule_text *row = rule_texts; row->name != nullptr; row++) {
    names.insert(row->name);
  }
  return names;
}

// A rule without a text counts as an error, so that a finding whose rule is
// misspelt in the code does not pass as a warning.
bool is_error(const std::string &rule)
{
  const rule_text *row = find_rule(rule);
  return row == nullptr || strncmp(row->text, "error", 5) == 0;
}

void explain(const rule_text &rule)
{
  printf("%s: %s", rule.name, rule.text);
}

void list_rules(void)
{
  for (const rule_text *row = rule_texts; row->name != nullptr; row++) {
    // The first line holds the level and the summary; the README beside the
    // texts says so, and the build takes them as they are.
    const std::string text = row->text;
    printf("%-18s %s\n", row->name, text.substr(0, text.find('\n')).c_str());
  }
}

// Made of the same list as the declarations, so that a check cannot be declared
// and never run.
#define LINT_ROW(name) check_##name,

device_check *const all_checks[] = {LINT_CHECKS(LINT_ROW) nullptr};
