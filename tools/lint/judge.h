// What the files that follow tests share; nothing for others.

#ifndef LINT_JUDGE_H
#define LINT_JUDGE_H

#include "judgements.h"
#include "ways.h"

// One script while its tests are looked at.
struct judge {
  context *c;
  const script &s;
  const script_ways &known;  // of its functions and variables
  std::vector<size_t> first; // command of each branch
  std::vector<size_t> last;
  std::vector<way> ways; // of each branch
  // Names that each branch gives another value.
  std::vector<std::set<std::string>> assigned;
  std::vector<std::vector<size_t>> followers; // that a command decides on
  std::map<int, std::vector<int>> arms;       // of each group
  std::vector<std::vector<int>> opens;        // branches, by their tests
};

void look_at_branches(judge *j);
void look_at_commands(judge *j);
const bash_branch &branch_at(const judge &j, int index);
// `wrong`: what a value that is not right leads to.
void add_place(const judge &j, const std::string &name,
               const bash_command &test, int branch, size_t from, size_t to,
               way wrong = LEAVES);
// Follows the list that the test stands in.
void judge_list(const judge &j, const judgement &what, size_t index,
                const bash_command &test);
// All arms of one case.
void judge_case(const judge &j, const std::vector<int> &arms);

#endif
