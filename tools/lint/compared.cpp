// What scripts compare a form's values and their own arguments with: words that
// these never have.

#include "compared.h"

#include <strings.h>

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "tasks.h"
#include "text.h"

// What some script gives a command, as `"$0" --apply` does. A script may call
// itself or another one with a task that no header has, so an option that any
// script passes on may come. -n and -eq of a test are no such options.
static std::set<std::string> collect_given(const device &dev)
{
  std::set<std::string> given;
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      const std::string &name = first_word(command);
      if (command.kind != BASH_SIMPLE || name == "[" || name == "test") {
        continue;
      }
      for (size_t i = 1; i < command.words.size(); i++) {
        if (command.words[i].plain[0] == '-') {
          given.insert(command.words[i].plain);
        }
      }
    }
  }
  return given;
}

// --- comparisons -------------------------------------------------------------

static std::string listed(const std::set<std::string> &values)
{
  std::string text;
  for (const std::string &value : values) {
    text += (text.empty() ? "" : ", ") + in_quotes(value);
  }
  return text;
}

// Blank is always possible: an item that is not drawn has no value, and an
// argument may be missing. Patterns of a case come as they are written, so a
// blank one is '' or "". What an expansion makes of a pattern is known to the
// run alone.
static bool fits(const compare_check &c, const value_set &set,
                 const std::string &pattern)
{
  if (pattern.empty() || pattern == "*" || pattern == "''" ||
      pattern == "\"\"" || pattern.find('$') != std::string::npos ||
      (pattern[0] == '-' && c.given.count(pattern) != 0)) {
    return true;
  }
  return std::any_of(set.values.begin(), set.values.end(),
                     [&](const std::string &value) {
                       return matches_pattern(pattern, value) ||
                              (set.any_case &&
                               strcasecmp(pattern.c_str(), value.c_str()) == 0);
                     });
}

static void compare(const compare_check &c, const value_set &set,
                    const std::string &pattern, int line, int column)
{
  if (!set.known || fits(c, set, pattern)) {
    return;
  }
  if (set.given != nullptr) { // one finding, where the wrong argument is taken
    report(c.found, *c.s.file, set.given->line, set.given->column,
           "compared-value",
           set.what + " is one of " + listed(set.values) +
               ", and what is compared with it is none of these: another"
               " argument was meant");
    return;
  }
  report(c.found, *c.s.file, line, column, "compared-value",
         in_quotes(pattern) + " is never the value of " + set.what +
             ": it is one of " + listed(set.values));
}

// The words behind a comparison in [[ ]] or [ ]. The value is what stands in
// front of the operator. [[ auto == $mode ]] is left alone: there the value is
// the pattern.
static void check_test(const compare_check &c, const bash_command &command)
{
  for (size_t i = 1; i + 1 < command.words.size(); i++) {
    const std::string &op = command.words[i].text;
    if (op == "==" || op == "=" || op == "!=") {
      const bash_word &right = command.words[i + 1];
      compare(c, values_of(c, command, command.words[i - 1]), right.plain,
              right.line, right.column);
    }
  }
}

// A pattern of an arm and where that stands.
struct arm_pattern {
  std::string text;
  int line;
  int column;
};

// The text of the arm still has its blanks and, where it goes on in the next
// line, the backslash. The "|" behind it ends the last pattern like the others.
static void add_patterns(const bash_branch &arm,
                         std::vector<arm_pattern> *patterns)
{
  for (const std::string &pattern : patterns_of(arm.pattern)) {
    patterns->push_back({pattern, arm.line, arm.column});
  }
}

// Where no pattern fits, another value was meant, and that is reported once.
// Only of an argument: `case $2 in --read) ... --write)` asks for the wrong
// one. With one arm, it may as well be the word that is wrong. `*` fits
// whatever is asked for, and would hide the mistake.
static void check_case(const compare_check &c, const bash_command &subject,
                       std::vector<arm_pattern> patterns)
{
  const value_set set = values_of(c, subject, subject.words[0]);
  patterns.erase(std::remove_if(patterns.begin(), patterns.end(),
                                [](const arm_pattern &pattern) {
                                  return pattern.text == "*";
                                }),
                 patterns.end());
  const bool none =
      set.argument && set.known && patterns.size() > 1 &&
      std::none_of(patterns.begin(), patterns.end(),
                   [&](const arm_pattern &p) { return fits(c, set, p.text); });
  for (const arm_pattern &pattern : patterns) {
    compare(c, set, pattern.text, none ? subject.words[0].line : pattern.line,
            none ? subject.words[0].column : pattern.column);
    if (none) {
      return;
    }
  }
}

// The reader has a branch for each arm; which arms are of one case is seen by
// their common subject.
static void check_cases(const compare_check &c)
{
  std::map<int, std::vector<arm_pattern>> cases; // by their subjects
  for (const bash_branch &arm : c.s.code.branches) {
    if (arm.kind == "case" && arm.test >= 0) {
      add_patterns(arm, &cases[arm.test]);
    }
  }
  for (const auto &entry : cases) {
    const bash_command &subject =
        c.s.code.commands[static_cast<size_t>(entry.first)];
    if (!subject.words.empty()) {
      check_case(c, subject, entry.second);
    }
  }
}

// A list that has none of the values of an argument: another was meant.
// Elements of an array count as if they stood there. A word that is not known
// could be the right one, so then nothing is said.
static bool refuses_all(const compare_check &c, const value_set &set,
                        const bash_command &command)
{
  std::vector<literal_name> names;
  bool all = true;
  for (size_t i = 2; i < command.words.size(); i++) {
    all &= add_literals(c.s, command.words[i], &names);
  }
  if (!all || names.empty() ||
      std::any_of(names.begin(), names.end(), [&](const literal_name &name) {
        return fits(c, set, name.name);
      })) {
    return false;
  }
  compare(c, set, names[0].name, command.words[1].line,
          command.words[1].column);
  return true;
}

static void check_one_of(const compare_check &c, const bash_command &command)
{
  if (first_word(command) != "orv_one_of" || command.words.size() < 3) {
    return;
  }
  const value_set set = values_of(c, command, command.words[1]);
  if (set.argument && set.known && refuses_all(c, set, command)) {
    return;
  }
  for (size_t i = 2; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    if (word.expansions.empty()) {
      compare(c, set, word.plain, word.line, word.column);
    }
    if (set.argument && set.known && !fits(c, set, word.plain)) {
      return; // the argument is the mistake, and not each of the words
    }
  }
}

void check_compared(const device &dev, findings *found)
{
  const std::set<std::string> given = collect_given(dev);
  for (const auto &entry : dev.scripts) {
    const script &s = entry.second;
    compare_check c = {dev, s, forms_of(dev, s.name), {}, given, found, {}};
    // With shopt -s nocasematch, [[ A == a ]] holds and case takes the arm a,
    // so words that are never the value may fit all the same.
    if (s.words.count("nocasematch") != 0) {
      continue;
    }
    // Before anything is compared: a function may stand in front of the
    // assignment that fills its variable.
    collect_holders(&c);
    check_lacking(c);
    for (const bash_command &command : s.code.commands) {
      if (command.kind == BASH_TEST || first_word(command) == "[" ||
          first_word(command) == "test") {
        check_test(c, command);
        check_matched(c, command);
        check_numbers(c, command);
      }
      check_one_of(c, command);
    }
    check_cases(c);
  }
}
