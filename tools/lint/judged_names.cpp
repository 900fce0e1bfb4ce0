// What else a judgement is about: copies of the value, the names of a loop, the
// values that a called function looks at.

#include <algorithm>

#include "judge.h"
#include "judged.h"
#include "script_names.h"
#include "text.h"

// --- loops -------------------------------------------------------------------

// The list of the loop over `variable` that begins the branch; NULL without
// one.
// Commands stand in the order of their ends, and the words of a `for` end
// before its body begins: the nearest one before the branch, in the branch
// around it, is the loop's.  If that runs over another variable, the subscript
// is not its name.
static const bash_command *loop_of(const judge &j, int branch,
                                   const std::string &variable)
{
  for (size_t i = j.s.code.commands.size(); branch >= 0 && i-- > 0;) {
    const bash_command &loop = j.s.code.commands[i];
    if (loop.kind == BASH_FOR && i < j.first[static_cast<size_t>(branch)] &&
        loop.branch == branch_at(j, branch).parent) {
      return loop.words[0].plain == variable ? &loop : nullptr;
    }
  }
  return nullptr;
}

// `for name in mtu queue; do [[ ${orv[$name]} == +([0-9]) ]] || exit; done`
// comes to its end only when all have passed.  So the test must hold up to the
// end of the body, and what is said of each begins behind its last command.
// Names that a variable makes are not known, and stay as they are.
// What a loop over names says of ${orv[$name]} it says, behind it, of each.
static void judge_loop(const judge &j, const judgement &what,
                       const bash_command &test)
{
  const size_t dollar = what.name.find("[$");
  const int branch = test.branch;
  if (dollar == std::string::npos || branch < 0 ||
      branch_at(j, branch).kind != "for") {
    return;
  }
  const std::string variable =
      what.name.substr(dollar + 2, what.name.size() - dollar - 3);
  const bash_command *loop = loop_of(j, branch, variable);
  std::vector<literal_name> names;
  for (size_t i = 1; loop != nullptr && i < loop->words.size(); i++) {
    add_literals(j.s, loop->words[i], &names);
  }
  const std::vector<judged_place> places = j.c->judged[what.name];
  for (const judged_place &place : places) {
    for (const literal_name &name : names) {
      if (place.s == &j.s && place.branch == branch && place.to == TO_THE_END) {
        add_place(j, what.name.substr(0, dollar + 1) + name.name + "]", test,
                  branch_at(j, branch).parent,
                  j.last[static_cast<size_t>(branch)] + 1, TO_THE_END,
                  place.wrong);
      }
    }
  }
}

// --- the whole ---------------------------------------------------------------

// port=${orv[port]}, then a test of $port: a command may use either.  A copy
// that is changed later is none, and was sorted out before.
// What is said of a value is said of its copies.
static void judge_name(const judge &j, const judgement &what, size_t index)
{
  const bash_command &command = j.s.code.commands[index];
  judge_list(j, what, index, command);
  const auto own = j.c->copies.find(what.name);
  const std::string &first = own != j.c->copies.end() ? own->second : what.name;
  if (own != j.c->copies.end()) {
    judge_list(j, {first, what.holds}, index, command);
  }
  for (const auto &copy : j.c->copies) {
    if (copy.second == first && copy.first != what.name) {
      judge_list(j, {copy.first, what.holds}, index, command);
    }
  }
}

static void judge_script(const judge &j)
{
  for (size_t i = 0; i < j.s.code.commands.size(); i++) {
    const bash_command &command = j.s.code.commands[i];
    bool none = false;
    for (const judgement &what : judgements_of(*j.c, command)) {
      judge_name(j, what, i);
      judge_loop(j, what, command);
    }
    if (asks_for_message(j.known, command, &none)) {
      judge_list(j, {NO_MESSAGE, none}, i, command);
    }
  }
  for (const auto &group : j.arms) {
    judge_case(j, group.second);
  }
}

// --- functions ---------------------------------------------------------------

// One that is called by such a function is such a one as well, so this goes on
// until no more are found.
// Functions that are called only where there was no message.
static void collect_calm(context *c)
{
  for (bool more = true; more;) {
    more = false;
    for (const auto &entry : c->calls) {
      const bool calm = std::all_of(
          entry.second.begin(), entry.second.end(),
          [&](const bash_command *call) { return is_calm(*c, *call, 0); });
      more |= calm && c->calm.insert(entry.first).second;
    }
  }
}

// Behind `check_port || exit` the values count as seen by the caller; how the
// function tells is all the same.
// Values that a function says something of by its status: it returns where
// they are not right, or ends with the test.
typedef std::map<std::string, std::set<std::string>> function_values;

static bool returns_fault(const bash_command &command)
{
  return first_word(command) == "return" && command.words.size() == 2 &&
         command.words[1].plain != "0" && command.branch < 0;
}

// Two shapes are common: `is_port() { [[ $1 == +([0-9]) ]]; }`, and `[[ ... ]]
// && return` in front of a `return 1` at the end.  With a second early return,
// either test may have let the value through, so none decides.  A list that
// ends in || succeeds also where the test has failed.
// The test whose status the function ends with: its last command, or the one
// that returns early where all else ends with a fault.  NULL without one.
static const bash_command *
deciding_test(const script &s, const std::vector<const bash_command *> &all)
{
  if (!returns_fault(*all.back())) {
    return all.back()->join != "||" ? all.back() : nullptr;
  }
  const bash_command *test = nullptr;
  for (const bash_command *command : all) {
    if (first_word(*command) != "return" || command == all.back()) {
      continue;
    }
    if (test != nullptr || command->join != "&&" || command->previous < 0) {
      return nullptr;
    }
    test = &s.code.commands[static_cast<size_t>(command->previous)];
  }
  return test;
}

// Only what holds for the whole function is its caller's: a test inside of a
// branch may not have run.
static function_values values_of_functions(const context &c)
{
  function_values values;
  for (const auto &entry : c.judged) {
    for (const judged_place &place : entry.second) {
      if (place.wrong == RETURNS && place.branch < 0) {
        values[place.function].insert(entry.first);
      }
    }
  }
  for (const script *s : c.files) {
    for (const auto &entry : s->functions) {
      const bash_command *test =
          entry.first.empty() ? nullptr : deciding_test(*s, entry.second);
      if (test == nullptr || test->branch >= 0) {
        continue;
      }
      for (const judgement &what : judgements_of(c, *test)) {
        if (what.holds) {
          values[entry.first].insert(what.name);
        }
      }
    }
  }
  return values;
}

// The file that the call stands in is found by the address of the command,
// since a function of one file may be called in another.
static void judge_call(const std::vector<judge> &all, const bash_command &call,
                       const std::string &name)
{
  for (const judge &j : all) {
    const std::vector<bash_command> &commands = j.s.code.commands;
    if (&call >= commands.data() && &call < commands.data() + commands.size()) {
      judge_list(j, {name, !call.negated},
                 static_cast<size_t>(index_of(j.s, call)), call);
    }
  }
}

// A call that makes a value seen may do so in a function whose own calls then
// do the same, hence the repetition; each pair of function and value is handed
// on once, so it ends.
// `check_port || exit` looks at what the function looks at.
static void judge_calls(const std::vector<judge> &all, context *c)
{
  std::set<std::string> seen;
  for (bool more = true; more;) {
    more = false;
    const function_values values = values_of_functions(*c);
    for (const auto &entry : values) {
      const auto calls = c->calls.find(entry.first);
      for (const std::string &name : entry.second) {
        if (calls == c->calls.end() ||
            !seen.insert(entry.first + " " + name).second) {
          continue;
        }
        more = true;
        for (const bash_command *call : calls->second) {
          judge_call(all, *call, name);
        }
      }
    }
  }
}

// Calls come behind all scripts: what a function says is known only when its
// own tests have been entered.  Calm functions come last, as they depend on the
// places where there was no message.
void collect_judged(context *c)
{
  const script_ways known = collect_ways(*c);
  std::vector<judge> all;
  for (const script *s : c->files) {
    all.push_back({c, *s, known, {}, {}, {}, {}, {}, {}, {}});
    look_at_branches(&all.back());
    look_at_commands(&all.back());
    judge_script(all.back());
  }
  judge_calls(all, c);
  collect_calm(c);
}
