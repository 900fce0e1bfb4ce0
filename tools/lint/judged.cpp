// Which values a script has looked at, and where.
//
// A test holds in the branch that it opens, for the commands that && or || make
// depend on it, and behind a branch that leads away (exit, a message, another
// value) where it does not hold.  In the arm *) of a case nothing was seen.

#include "judged.h"

#include <string.h>

#include <algorithm>

#include "judgements.h"
#include "text.h"

static constexpr size_t TO_THE_END = static_cast<size_t>(-1);

// Of one name no more places than these are kept apart.
static constexpr size_t PLACES_MAX = 100;

// One script while its tests are looked at.
struct judge {
  context *c;
  const script &s;
  const std::set<std::string> &leading_away; // functions
  std::vector<size_t> last;                  // command of each branch
  std::vector<bool> diverts;                 // of each branch
  // Names that each branch gives another value.
  std::vector<std::set<std::string>> assigned;
  std::vector<std::vector<size_t>> followers; // that a command decides on
  std::map<int, std::vector<int>> arms;       // of each group
  std::vector<std::vector<int>> opens;        // branches, by their tests
};

// --- places ------------------------------------------------------------------

bool is_inside(const script &s, int branch, int outer)
{
  while (branch >= 0 && branch != outer) {
    branch = s.code.branches[static_cast<size_t>(branch)].parent;
  }
  return branch == outer;
}

static void add_place(const judge &j, const std::string &name,
                      const bash_command &test, int branch, size_t from,
                      size_t to)
{
  std::vector<judged_place> &places = j.c->judged[name];
  if (places.size() == PLACES_MAX) {
    places.assign(1, judged_place{nullptr, "", -1, 0, TO_THE_END});
  } else if (places.empty() || places[0].s != nullptr) {
    places.push_back({&j.s, test.function, branch, from, to});
  }
}

static const bash_branch &branch_at(const judge &j, int index)
{
  return j.s.code.branches[static_cast<size_t>(index)];
}

static bool leads_away(const judge &j, int branch, const std::string &name)
{
  const size_t at = static_cast<size_t>(branch);
  const size_t begin = name.rfind(':') + 1;
  const size_t end = name.find_first_of("[%", begin);
  const std::string plain = name.substr(begin, end - begin);
  return j.diverts[at] || j.assigned[at].count(plain) != 0;
}

// --- what leads away ---------------------------------------------------------

static bool is_diverting(const bash_command &command,
                         const std::set<std::string> &functions)
{
  static const std::set<std::string> words = {
      "exit",      "return",  "continue",  "break",
      "orv_error", "orv_msg", "orv_fatal", "exec"};
  const std::string &name = first_word(command);
  const bool prints = (name == "echo" || name == "printf") &&
                      std::any_of(command.words.begin(), command.words.end(),
                                  [](const bash_word &word) {
                                    return starts_with(word.plain, "error_");
                                  });
  return prints || words.count(name) + functions.count(name) != 0;
}

// Functions that report something or end the script, by themselves or others.
static std::set<std::string> diverting_functions(const context &c)
{
  std::set<std::string> functions;
  for (bool more = true; more;) {
    more = false;
    for (const script *s : c.files) {
      for (const bash_command &command : s->code.commands) {
        const std::string &name = first_word(command);
        if (!command.function.empty() && name != "return" &&
            name != "continue" && name != "break" &&
            is_diverting(command, functions)) {
          more |= functions.insert(command.function).second;
        }
      }
    }
  }
  return functions;
}

static void look_at_branches(judge *j)
{
  const auto &branches = j->s.code.branches;
  j->last.assign(branches.size(), 0);
  j->diverts.assign(branches.size(), false);
  j->assigned.resize(branches.size());
  j->opens.resize(j->s.code.commands.size());
  j->followers.resize(j->s.code.commands.size());
  for (size_t i = 0; i < branches.size(); i++) {
    j->arms[branches[i].group].push_back(static_cast<int>(i));
    if (branches[i].test >= 0 && branches[i].kind != "case") {
      j->opens[static_cast<size_t>(branches[i].test)].push_back(
          static_cast<int>(i));
    }
  }
}

// Whether nothing but a message stands before it in its list.
static bool is_reached(const judge &j, const bash_command &command)
{
  if (command.join.empty() || command.previous < 0) {
    return command.join.empty();
  }
  const bash_command &before =
      j.s.code.commands[static_cast<size_t>(command.previous)];
  const std::string &name = first_word(before);
  return command.join == "&&" && before.join.empty() &&
         (name == "echo" || name == "printf");
}

static void look_at_commands(judge *j)
{
  for (size_t i = 0; i < j->s.code.commands.size(); i++) {
    const bash_command &command = j->s.code.commands[i];
    if (command.previous >= 0) {
      j->followers[static_cast<size_t>(command.previous)].push_back(i);
    }
    if (command.branch < 0) {
      continue;
    }
    const size_t own = static_cast<size_t>(command.branch);
    if (command.substitution == 0 && is_reached(*j, command) &&
        is_diverting(command, j->leading_away)) {
      j->diverts[own] = true;
    }
    for (const bash_assignment &assignment : command.assignments) {
      j->assigned[own].insert(assignment.name);
    }
    for (int b = command.branch; b >= 0; b = branch_at(*j, b).parent) {
      j->last[static_cast<size_t>(b)] = i;
    }
  }
}

// --- where a judgement holds -------------------------------------------------

// Behind all arms of the branch's command.
static void add_behind(const judge &j, const judgement &what,
                       const bash_command &test, int branch)
{
  size_t from = 0;
  for (const int arm : j.arms.at(branch_at(j, branch).group)) {
    from = std::max(from, j.last[static_cast<size_t>(arm)]);
  }
  add_place(j, what.name, test, branch_at(j, branch).parent, from + 1,
            TO_THE_END);
}

// The arms behind the one that the test opens.
static void add_other_arms(const judge &j, const judgement &what,
                           const bash_command &test, int branch)
{
  bool all = true;
  bool otherwise = false;
  for (const int arm : j.arms.at(branch_at(j, branch).group)) {
    if (arm <= branch) {
      continue;
    }
    otherwise |= branch_at(j, arm).otherwise;
    all &= leads_away(j, arm, what.name);
    if (!what.holds) {
      add_place(j, what.name, test, arm, 0, TO_THE_END);
    }
  }
  if (what.holds && otherwise && all) {
    add_behind(j, what, test, branch);
  }
}

// A branch that the test opens, alone (`and_only`, `or_only`) or with others.
static void judge_branch(const judge &j, const judgement &what,
                         const bash_command &test, int branch, bool and_only,
                         bool or_only)
{
  const std::string &kind = branch_at(j, branch).kind;
  const bool turned = kind == "||" || kind == "until";
  const bool holds = what.holds != turned;
  if (holds && and_only) {
    add_place(j, what.name, test, branch, 0, TO_THE_END);
  }
  if (kind == "if" && ((holds && and_only) || (!holds && or_only))) {
    add_other_arms(j, {what.name, holds}, test, branch);
  }
  if (!holds && or_only && leads_away(j, branch, what.name)) {
    add_behind(j, what, test, branch);
  }
}

// A command that && or || makes depend on the test.
static void judge_follower(const judge &j, const judgement &what,
                           const bash_command &test, size_t index,
                           bool and_only, bool or_only)
{
  const bash_command &command = j.s.code.commands[index];
  const bool runs =
      command.join == "&&" ? what.holds && and_only : !what.holds && or_only;
  const bool gives =
      std::any_of(command.assignments.begin(), command.assignments.end(),
                  [&](const bash_assignment &assignment) {
                    return ends_with(what.name, ":" + assignment.name);
                  });
  if (runs) {
    add_place(j, what.name, test, -1, index, index);
  } else if (((command.join == "||" && what.holds && and_only) ||
              (command.join == "&&" && !what.holds && or_only)) &&
             (gives || is_diverting(command, j.leading_away))) {
    add_place(j, what.name, test, command.branch, index + 1, TO_THE_END);
  }
}

// Follows the list that the test stands in.
static void judge_list(const judge &j, const judgement &what, size_t index,
                       const bash_command &test)
{
  bool and_only = true;
  bool or_only = true;
  std::vector<size_t> open = {index};
  while (!open.empty()) {
    const size_t at = open.back();
    open.pop_back();
    for (const int branch : j.opens[at]) {
      judge_branch(j, what, test, branch, and_only, or_only);
    }
    for (const size_t next : j.followers[at]) {
      const bash_command &command = j.s.code.commands[next];
      judge_follower(j, what, test, next, and_only, or_only);
      and_only &= command.join == "&&";
      or_only &= command.join == "||";
      open.push_back(next);
    }
  }
}

// --- cases -------------------------------------------------------------------

static void judge_arms(const judge &j, const bash_command &subject,
                       const std::string &name, const std::vector<int> &arms)
{
  bool wrong_seen = false; // an arm before has taken what is wrong
  bool any_wrong = false;
  bool all_away = true;
  for (const int arm : arms) {
    const std::string &pattern = branch_at(j, arm).pattern;
    const bool wrong =
        takes_wrong(pattern) || (takes_all(pattern) && !wrong_seen);
    wrong_seen |= takes_wrong(pattern);
    if (!wrong) {
      add_place(j, name, subject, arm, 0, TO_THE_END);
      continue;
    }
    any_wrong = true;
    all_away &= leads_away(j, arm, name);
  }
  if (any_wrong && all_away) {
    add_behind(j, {name, true}, subject, arms.front());
  }
}

static void judge_case(const judge &j, const std::vector<int> &arms)
{
  const bash_branch &first = branch_at(j, arms.front());
  if (first.kind != "case" || first.test < 0) {
    return;
  }
  const bash_command &subject =
      j.s.code.commands[static_cast<size_t>(first.test)];
  const std::string part = asks_which_line(subject) ? NAME_PART : "";
  for (const bash_word &word : subject.words) {
    for (const bash_expansion &expansion : word.expansions) {
      judge_arms(j, subject,
                 scoped(*j.c, subject.function, full_name(expansion)) + part,
                 arms);
    }
  }
}

// --- the whole ---------------------------------------------------------------

static void judge_script(context *c, const script &s,
                         const std::set<std::string> &leading_away)
{
  judge j = {c, s, leading_away, {}, {}, {}, {}, {}, {}};
  look_at_branches(&j);
  look_at_commands(&j);
  for (size_t i = 0; i < s.code.commands.size(); i++) {
    const bash_command &command = s.code.commands[i];
    for (const judgement &what : judgements_of(*c, command)) {
      judge_list(j, what, i, command);
    }
  }
  for (const auto &group : j.arms) {
    judge_case(j, group.second);
  }
}

void collect_judged(context *c)
{
  const std::set<std::string> leading_away = diverting_functions(*c);
  for (const script *s : c->files) {
    judge_script(c, *s, leading_away);
  }
}
