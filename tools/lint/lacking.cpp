// Lists of what is allowed, in scripts, that lack a choice of the template: it
// is offered and always refused.

#include "compared.h"

#include <algorithm>

#include "flow.h"
#include "script_names.h"
#include "tasks.h"
#include "text.h"

struct allowed_values {
  std::vector<literal_name> values;
  value_set set;
};

static const bash_command &command_at(const script &s, int index)
{
  return s.code.commands[static_cast<size_t>(index)];
}

// --- what happens then -------------------------------------------------------

// A message printed by hand refuses the input as one of the library does.
static bool refuses(const bash_command &command)
{
  static const std::set<std::string> words = {"orv_error", "orv_msg",
                                              "orv_fatal"};
  return words.count(first_word(command)) != 0 ||
         (first_word(command) == "echo" && command.words.size() > 1 &&
          starts_with(command.words[1].plain, "error_"));
}

// Three ways to write it: `test || orv_error`, `if ! test; then orv_error`, and
// a group behind && or ||, which is a branch of its own.  A refusal in an
// `else` is not looked for, which costs a finding and makes no wrong one.  A
// list that only decides what is done next is no list of what is allowed.
bool leads_to_refusal(const script &s, int test, bool fails)
{
  return std::any_of(s.code.commands.begin(), s.code.commands.end(),
                     [&](const bash_command &command) {
                       if (!refuses(command)) {
                         return false;
                       }
                       const std::string join = fails ? "||" : "&&";
                       if (command.previous == test && command.join == join) {
                         return true;
                       }
                       if (command.branch < 0) {
                         return false;
                       }
                       const bash_branch &branch =
                           s.code.branches[static_cast<size_t>(command.branch)];
                       const bool negated = command_at(s, test).negated;
                       return branch.test == test && !branch.otherwise &&
                              ((branch.kind == "if" && (fails == negated)) ||
                               branch.kind == join);
                     });
}

// The variables that hold the task: those that are given it.
static std::set<std::string> task_names(const script &s)
{
  std::set<std::string> names = {"orv_failed"};
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.value.plain == "$1") {
        names.insert(assignment.name);
      }
    }
  }
  return names;
}

// A check that runs for some tasks alone, or after no message, still holds for
// all values: [[ $1 == --write ]] before it says nothing of them.
static bool is_task(const std::set<std::string> &tasks, const std::string &name)
{
  return name.find_first_not_of("0123456789") == std::string::npos ||
         tasks.count(name) != 0;
}

// `if [[ ${orv[mode]} == manual ]]` before the list of speeds: "auto" may be a
// choice that only another mode allows.
// Whether another value decides on whether the command runs: then a list may
// well leave out what does not fit that one.
static bool is_conditional(const script &s, const std::set<std::string> &tasks,
                           const bash_command &command)
{
  if (!command.join.empty()) {
    return true;
  }
  for (int b = command.branch; b >= 0;
       b = s.code.branches[static_cast<size_t>(b)].parent) {
    const int test = s.code.branches[static_cast<size_t>(b)].test;
    // A test of several commands is kept by its last; those that && or || join
    // before it decide as well.
    for (int t = test; t >= 0; t = command_at(s, t).previous) {
      for (const bash_word &word : command_at(s, t).words) {
        for (const bash_expansion &e : word.expansions) {
          if (!is_task(tasks, e.name)) {
            return true;
          }
        }
      }
    }
  }
  return false;
}

// --- lists -------------------------------------------------------------------

// "Please choose" is a choice with a value like these, which the script must
// not let through.
// A first choice that asks for one is refused on purpose.
static bool asks_for_choice(const std::string &value)
{
  static const word_set words = {"",       "none", "choose", "0",
                                 "select", "-",    "unset",  "ask"};
  return words.count(lower(value)) != 0;
}

// Only lists of the template are compared: what an iselect offers is made by
// scripts, and a text may be anything that its check lets through.
static void check_list(const compare_check &c, const allowed_values &allowed)
{
  if (!allowed.set.known || !allowed.set.list || allowed.values.empty()) {
    return;
  }
  std::set<std::string> names;
  for (const literal_name &value : allowed.values) {
    names.insert(value.name);
  }
  std::set<std::string> missing;
  size_t common = 0;
  for (const std::string &value : allowed.set.values) {
    const bool there =
        std::any_of(names.begin(), names.end(), [&](const std::string &name) {
          // A list may have patterns: eth* allows eth0 and eth1.
          return matches_pattern(name, value);
        });
    common += there ? 1 : 0;
    if (!there && !asks_for_choice(value)) {
      missing.insert(value);
    }
  }
  // With a value in the list that is no choice, one spelling is probably meant
  // for the other, and two findings would tell the same.
  // A choice that is misspelt here is reported as that.
  if (!missing.empty() && common == names.size()) {
    report(c.found, *c.s.file, allowed.values[0].line, allowed.values[0].column,
           "compared-value",
           allowed.set.what + " has the choice " + in_quotes(*missing.begin()) +
               ", which is always refused here");
  }
}

// All words must be known: in `orv_one_of "$x" "${MODES[@]}" $more` the missing
// choice may be one of those that stand nowhere.
static void check_one_of(const compare_check &c, const bash_command &command)
{
  const int at = index_of(c.s, command);
  allowed_values allowed = {{}, values_of(c, command, command.words[1])};
  bool all = true;
  for (size_t i = 2; i < command.words.size(); i++) {
    all &= add_literals(c.s, command.words[i], &allowed.values);
  }
  if (all && leads_to_refusal(c.s, at, true)) {
    check_list(c, allowed);
  }
}

// Words come in fours, "$x == a ||", so a test of this kind has 4n + 3 of them.
// A test that asks for anything else beside is left alone: it may refuse for
// another reason.  One comparison is no list; that a value is compared with a
// word which it never has is another rule's.
// [[ $x == a || $x == b ]] || refuse, and [[ $x != a && $x != b ]] && refuse.
static void check_test(const compare_check &c, const bash_command &command)
{
  const std::vector<bash_word> &words = command.words;
  if (words.size() < 3 || words.size() % 4 != 3) {
    return;
  }
  const bool unequal = words[1].text == "!=";
  allowed_values allowed = {{}, values_of(c, command, words[0])};
  for (size_t i = 0; i < words.size(); i += 4) {
    const bool same =
        words[i].plain == words[0].plain &&
        (unequal ? words[i + 1].text == "!=" : words[i + 1].text[0] == '=');
    const bool joined = i == 0 || words[i - 1].text == (unequal ? "&&" : "||");
    if (!same || !joined || words[i + 1].text == "=~" ||
        !words[i + 2].expansions.empty()) {
      return;
    }
    allowed.values.push_back(
        {words[i + 2].plain, words[i + 2].line, words[i + 2].column});
  }
  if (allowed.values.size() > 1 &&
      leads_to_refusal(c.s, index_of(c.s, command), !unequal)) {
    check_list(c, allowed);
  }
}

// --- cases -------------------------------------------------------------------

// Behind || it runs only where another command has failed, so the arm may take
// the value.
static bool refuses_in(const script &s, const bash_branch &arm)
{
  const int index = static_cast<int>(&arm - s.code.branches.data());
  return std::any_of(s.code.commands.begin(), s.code.commands.end(),
                     [&](const bash_command &command) {
                       return command.branch == index && refuses(command) &&
                              (command.join.empty() || command.join == "&&");
                     });
}

static void add_arm(const bash_branch &arm, allowed_values *allowed)
{
  for (const std::string &pattern : patterns_of(arm.pattern)) {
    allowed->values.push_back({pattern, arm.line, arm.column});
  }
}

// An arm that expands something may take any choice, so nothing is said of the
// whole case then.  Arms before "*" that refuse as well are counted as
// allowing: they name the choice, so it was not forgotten.
// The arms of one case: those that take a value, and "*", which refuses it.
static void check_case(const compare_check &c, int subject)
{
  const bash_command &command = command_at(c.s, subject);
  allowed_values allowed = {{}, values_of(c, command, command.words[0])};
  bool refused = false;
  for (const bash_branch &arm : c.s.code.branches) {
    if (arm.kind != "case" || arm.test != subject) {
      continue;
    }
    if (arm.pattern.find('$') != std::string::npos) {
      return;
    }
    if (arm.pattern == "*") {
      refused = refuses_in(c.s, arm);
    } else {
      add_arm(arm, &allowed);
    }
  }
  if (refused) {
    check_list(c, allowed);
  }
}

// Each of these is judged by where it stands first: a list that not every value
// reaches may lack some.
void check_lacking(const compare_check &c)
{
  const std::set<std::string> tasks = task_names(c.s);
  for (const bash_command &command : c.s.code.commands) {
    if (command.words.empty() || is_conditional(c.s, tasks, command)) {
      continue;
    }
    if (command.kind == BASH_CASE) {
      check_case(c, index_of(c.s, command));
    } else if (command.kind == BASH_TEST) {
      check_test(c, command);
    } else if (first_word(command) == "orv_one_of" &&
               command.words.size() > 2) {
      check_one_of(c, command);
    }
  }
}
