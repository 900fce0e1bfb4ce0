// Which values a script has looked at, and where.
//
// A test holds in the branch that it opens, for the commands that && or || make
// depend on it, and behind a branch that is left (by exit and the like, or with
// another value) where it does not hold.  A message leaves nothing: behind one,
// it holds where a test has found that there was none.  In the arm *) of a case
// nothing was seen.

#include "judged.h"

#include <algorithm>

#include "judge.h"
#include "text.h"

// Beyond that the value counts as looked at everywhere: a script with a hundred
// tests of one value takes care of it, and each use is compared with each
// place.
// Of one name no more places than these are kept apart.
static constexpr size_t PLACES_MAX = 100;

// --- places ------------------------------------------------------------------

// For -1 the walk goes on to the end, where everything is inside.
bool is_inside(const script &s, int branch, int outer)
{
  while (branch >= 0 && branch != outer) {
    branch = s.code.branches[static_cast<size_t>(branch)].parent;
  }
  return branch == outer;
}

// A place without a script is that of all, and nothing is added to it any more.
void add_place(const judge &j, const std::string &name,
               const bash_command &test, int branch, size_t from, size_t to,
               way wrong)
{
  std::vector<judged_place> &places = j.c->judged[name];
  const size_t index = static_cast<size_t>(index_of(j.s, test));
  if (places.size() == PLACES_MAX) {
    places.assign(1, judged_place{nullptr, "", -1, 0, TO_THE_END, 0, LEAVES});
  } else if (places.empty() || places[0].s != nullptr) {
    places.push_back({&j.s, test.function, branch, from, to, index, wrong});
  }
}

const bash_branch &branch_at(const judge &j, int index)
{
  return j.s.code.branches[static_cast<size_t>(index)];
}

// `[[ $port == +([0-9]) ]] || port=80`: behind it the value is right in either
// case.
// What a branch does for what follows it: another value is as good as none.
static way way_of_branch(const judge &j, int branch, const std::string &name)
{
  const size_t at = static_cast<size_t>(branch);
  const size_t begin = name.find("::") + 2;
  const std::string plain =
      name.substr(begin, std::min(name.find('%'), name.size()) - begin);
  return j.assigned[at].count(plain) != 0 ? LEAVES : j.ways[at];
}

// --- what leads away ---------------------------------------------------------

// Everything is found by branch or by command below, so the tables are made
// once for a script.  A case has no test that opens its arms: they are judged
// as a group, by their patterns.
void look_at_branches(judge *j)
{
  const auto &branches = j->s.code.branches;
  j->first.assign(branches.size(), TO_THE_END);
  j->last.assign(branches.size(), 0);
  j->ways.assign(branches.size(), STAYS);
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

// `echo error_x=No && exit` leaves for certain, as echo does not fail; behind
// any other command an exit may not be reached, and the branch goes on.
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

// Quotes in it are dropped in the same way, so that orv["mtu"]=1 is found for
// ${orv[mtu]}.
// The name with its subscript, as the values of expansions are called.
static std::string name_of(const bash_assignment &assignment)
{
  bash_expansion value;
  value.name = assignment.name;
  value.subscript = assignment.subscript;
  return full_name(value);
}

void look_at_commands(judge *j)
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
    // An exit in $( ) ends the subshell alone: `x=$(exit 3)` goes on.
    if (command.substitution == 0 && is_reached(*j, command)) {
      j->ways[own] = std::max(j->ways[own], way_of(command, j->known));
    }
    for (const bash_assignment &assignment : command.assignments) {
      j->assigned[own].insert(name_of(assignment));
    }
    for (int b = command.branch; b >= 0; b = branch_at(*j, b).parent) {
      j->last[static_cast<size_t>(b)] = i;
      j->first[static_cast<size_t>(b)] =
          std::min(j->first[static_cast<size_t>(b)], i);
    }
  }
}

// --- where a judgement holds -------------------------------------------------

// The end is that of whichever arm has the last command.
// Behind all arms of the branch's command.
static void add_behind(const judge &j, const judgement &what,
                       const bash_command &test, int branch, way wrong)
{
  if (wrong == STAYS) {
    return;
  }
  size_t from = 0;
  for (const int arm : j.arms.at(branch_at(j, branch).group)) {
    from = std::max(from, j.last[static_cast<size_t>(arm)]);
  }
  add_place(j, what.name, test, branch_at(j, branch).parent, from + 1,
            TO_THE_END, wrong);
}

// They run only where the test has failed.  If all of them leave and there is
// an `else`, whatever goes on behind has passed the test; without one, the
// command may also have run no arm at all.
// The arms behind the one that the test opens.
static void add_other_arms(const judge &j, const judgement &what,
                           const bash_command &test, int branch)
{
  way all = LEAVES;
  bool otherwise = false;
  size_t end = 0;
  for (const int arm : j.arms.at(branch_at(j, branch).group)) {
    if (arm <= branch) {
      continue;
    }
    otherwise |= branch_at(j, arm).otherwise;
    all = std::min(all, way_of_branch(j, arm, what.name));
    end = std::max(end, j.last[static_cast<size_t>(arm)]);
  }
  if (!what.holds) { // their tests as well
    add_place(j, what.name, test, branch_at(j, branch).parent,
              j.last[static_cast<size_t>(branch)] + 1, end);
  }
  if (what.holds && otherwise) {
    add_behind(j, what, test, branch, all);
  }
}

// In `if a && b; then` the body runs where both hold, and its else where one of
// them has failed: which one is not known, so nothing is said there.  With ||
// it is the other way round.
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
  if (!holds && or_only) {
    add_behind(j, what, test, branch, way_of_branch(j, branch, what.name));
  }
}

// `test && use` runs one command with a value that is right, and says nothing
// of those behind; `test || exit` says it of all that follow in its branch.
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
                    return ends_with(what.name, ":" + name_of(assignment));
                  });
  const way wrong = gives ? LEAVES : way_of(command, j.known);
  if (runs) {
    add_place(j, what.name, test, -1, index, index);
  } else if (wrong != STAYS &&
             ((command.join == "||" && what.holds && and_only) ||
              (command.join == "&&" && !what.holds && or_only))) {
    add_place(j, what.name, test, command.branch, index + 1, TO_THE_END, wrong);
  }
}

// && and || have the same weight in bash and group from the left, so in a || b
// && c the last runs whichever of the two held.  As soon as a list mixes them,
// neither `and_only` nor `or_only` is left and nothing more is said.
void judge_list(const judge &j, const judgement &what, size_t index,
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

// An arm *) that comes behind *[!0-9]*) takes what is left, which is right;
// where no arm has sorted out what is wrong, *) has seen nothing.
static void judge_arms(const judge &j, const bash_command &subject,
                       const std::string &name, const std::vector<int> &arms)
{
  bool wrong_seen = false; // an arm before has taken what is wrong
  bool any_wrong = false;
  way all = LEAVES;
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
    all = std::min(all, way_of_branch(j, arm, name));
  }
  // Behind the case a value is right if all arms leave that have taken a wrong
  // one.
  if (any_wrong) {
    add_behind(j, {name, true}, subject, arms.front(), all);
  }
}

// A case over the page's lines, new_name=*), has looked at the name and not at
// the value.  In the arm of a task that only writes what was checked before,
// there was no message: the page runs it only then.
void judge_case(const judge &j, const std::vector<int> &arms)
{
  const bash_branch &first = branch_at(j, arms.front());
  if (first.kind != "case" || first.test < 0) {
    return;
  }
  const bash_command &subject =
      j.s.code.commands[static_cast<size_t>(first.test)];
  const std::string part = asks_which_line(subject) ? NAME_PART : "";
  for (const int arm : arms) {
    if (is_write_pattern(j.known, branch_at(j, arm).pattern)) {
      add_place(j, NO_MESSAGE, subject, arm, 0, TO_THE_END);
    }
  }
  for (const bash_word &word : subject.words) {
    for (const bash_expansion &expansion : word.expansions) {
      judge_arms(j, subject,
                 scoped(*j.c, subject.function, full_name(expansion)) + part,
                 arms);
    }
  }
}
