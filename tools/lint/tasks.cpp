// The steps of a script when a form runs it.
//
// The walk knows the arguments and what follows from them, so it takes only the
// branches of the task at hand: usually "case $1 in --read) ...".  Where a test
// cannot be decided, both sides count as possible (MAYBE).

#include "tasks.h"

#include <algorithm>

#include "effects.h"
#include "flow.h"
#include "script_names.h"
#include "text.h"

// --- arguments ---------------------------------------------------------------

// The arguments are those of the line as a shell splits it; the file's name is
// the word 0. Where the sub-item is not known, its place is kept and has no
// value.
known_values known_arguments(const form &f, script_task task,
                             const std::string &subitem)
{
  known_values known;
  const std::vector<std::string> words = split_words(f.scripts[task].text);
  for (size_t i = 1; i < words.size(); i++) {
    const bool plain =
        words[i].find_first_of("$\"'`;|&<>()") == std::string::npos;
    const bool form_name = words[i] == "$F$" || words[i] == "\"$F$\"";
    if (form_name) {
      known[std::to_string(i)] = f.name;
    } else if (!subitem.empty() &&
               (words[i] == "$S$" || words[i] == "\"$S$\"")) {
      known[std::to_string(i)] = subitem;
    } else if (plain) {
      known[std::to_string(i)] = words[i];
    } else if (words[i].find("$S$") == std::string::npos) {
      break; // more than words: nothing is known from here on
    }
  }
  return known;
}

// The number of words in the line, -1 if a shell could turn them into more or
// fewer.
// $F$ is never blank, and a blank "$S$" in quotes is still an argument. A title
// has any number of words.
static int count_arguments(const form &f, script_task task)
{
  const std::string &text = f.scripts[task].text;
  const bool plain =
      text.find_first_of("'`;|&<>()\\*?{") == std::string::npos &&
      text.find("$T$") == std::string::npos;
  return plain ? static_cast<int>(split_words(text).size()) - 1 : -1;
}

// One walk for all functions and sourced files: `depth` counts those that are
// open, and `ended` stops all of them at an exit.
struct walk {
  const device &dev;
  std::set<std::string> names; // of the script and what it sources
  task_run *run;
  int depth;
  bool ended;
};

// --- branches ----------------------------------------------------------------

static truth result_at(const frame &at, const script &s, int command)
{
  if (command < 0) {
    return MAYBE;
  }
  const auto known =
      at.results.find(&s.code.commands[static_cast<size_t>(command)]);
  return known != at.results.end() ? known->second : MAYBE;
}

// Whether its own test takes the branch.  A loop may run no time or many times,
// so its test decides nothing.
// A subshell runs always; that its exit is not the script's is seen to where it
// is walked through. A pattern with an expansion is known to the run alone.
static truth own_test(const frame &at, const script &s,
                      const bash_branch &branch)
{
  if (branch.otherwise || branch.kind == "(") {
    return YES;
  }
  if (branch.kind == "case" && branch.test >= 0) {
    std::string value;
    const bash_command &subject =
        s.code.commands[static_cast<size_t>(branch.test)];
    const bool known = !subject.words.empty() &&
                       value_of(at, subject.words[0], &value) &&
                       branch.pattern.find('$') == std::string::npos;
    return known ? truth_of(matches_pattern(branch.pattern, value)) : MAYBE;
  }
  const truth test = result_at(at, s, branch.test);
  return branch.kind == "||"                          ? opposite(test)
         : branch.kind == "if" || branch.kind == "&&" ? test
                                                      : MAYBE;
}

// An arm is taken only if none before it was, so a MAYBE in front makes all
// that follow no more than possible. What was found stays: bash decides once
// for a branch, and a variable may have another value at its later commands.
static truth state_of(frame *at, const script &s, int index)
{
  if (index < 0) {
    return at->taken;
  }
  const bash_branch &branch = s.code.branches[static_cast<size_t>(index)];
  const auto known = at->states.find(&branch);
  if (known != at->states.end()) {
    return known->second;
  }
  truth state =
      std::min(state_of(at, s, branch.parent), own_test(*at, s, branch));
  for (int arm = branch.before; arm >= 0 && state != NO;
       arm = s.code.branches[static_cast<size_t>(arm)].before) {
    state = std::min(
        state,
        opposite(own_test(*at, s, s.code.branches[static_cast<size_t>(arm)])));
  }
  at->states[&branch] = state;
  return state;
}

// --- the walk ----------------------------------------------------------------

// Recursion must end somewhere.
// Sourced files count, too: two that source each other would go on for ever.
static constexpr int CALLS_DEEP = 12;

static void walk_commands(walk *w, const script &s, const std::string &function,
                          frame *at);

// Functions of the library are not followed: what they do is known by their
// names.
static const script *function_script(const walk &w, const std::string &name)
{
  for (const std::string &file : w.names) {
    const script &s = w.dev.scripts.at(file);
    if (s.code.functions.count(name) != 0) {
      return &s;
    }
  }
  return nullptr;
}

// What cannot be followed may do anything, so rules that say "never done" are
// silent then.
static void follow_call(walk *w, frame *at, const bash_command &command,
                        truth state)
{
  std::string name;
  if (command.kind != BASH_SIMPLE || command.words.empty()) {
    return;
  }
  if (!value_of(*at, command.words[0], &name) || name == "eval" ||
      name == "exec" || ends_with(name, ".sh")) {
    w->run->opaque = true;
    return;
  }
  const script *s = function_script(*w, name);
  if (s != nullptr && w->depth < CALLS_DEEP) {
    // Only a call with all arguments has the script's own; of others nobody
    // asks for an argument that the form's line should give.
    const bool all =
        command.words.size() == 2 && command.words[1].plain == "$@";
    frame inner = {name, arguments_of(*at, command), {}, state, {},
                   {},   all ? at->given : -1};
    w->depth++;
    walk_commands(w, *s, name, &inner);
    w->depth--;
    if (is_apart(command)) {
      w->ended = false;
    } else {
      take_back(at, inner);
    }
  }
}

// The code of a sourced file runs in place, with the same variables.
static void follow_source(walk *w, const script &s, frame *at,
                          const bash_command &command, truth state)
{
  if ((first_word(command) == "." || first_word(command) == "source") &&
      command.words.size() > 1) {
    const std::string name =
        sourced_name(s.name, with_own_folder(s, command.words[1].plain));
    const auto file = w->dev.scripts.find(name);
    if (file != w->dev.scripts.end() && w->depth < CALLS_DEEP) {
      const truth taken = at->taken;
      at->taken = state;
      w->depth++;
      walk_commands(w, file->second, "", at);
      w->depth--;
      at->taken = taken;
    }
  }
}

// In "a && b", the command before decides, too.
static truth state_of(frame *at, const script &s, const bash_command &command)
{
  const truth branch = state_of(at, s, command.branch);
  // A branch that is taken for certain does not run its list's later commands
  // for certain.
  const truth before = result_at(*at, s, command.previous);
  return command.join == "&&"   ? std::min(branch, before)
         : command.join == "||" ? std::min(branch, opposite(before))
                                : branch;
}

// A subshell that is being walked through: what was known in front of it, and
// whether it has ended.
struct subshell {
  int branch;
  known_values known;
  bool ended;
};

// Leaves the subshells that the command does not stand in, and enters those
// that it does.
static void follow_subshells(std::vector<subshell> *open, const script &s,
                             int branch, frame *at)
{
  std::vector<int> around;
  for (; branch >= 0;
       branch = s.code.branches[static_cast<size_t>(branch)].parent) {
    if (s.code.branches[static_cast<size_t>(branch)].kind == "(") {
      around.insert(around.begin(), branch);
    }
  }
  while (!open->empty() && (open->size() > around.size() ||
                            open->back().branch != around[open->size() - 1])) {
    at->known = open->back().known;
    open->pop_back();
  }
  while (open->size() < around.size()) {
    const bool ended = !open->empty() && open->back().ended;
    open->push_back({around[open->size()], at->known, ended});
  }
}

// Notes which of the script's arguments the command uses.
// ${2:-} allows for an argument that is missing, so it asks for nothing.
static void note_arguments(walk *w, const script &s, const frame &at,
                           const bash_word &word)
{
  for (const bash_expansion &e : word.expansions) {
    const bool number =
        !e.name.empty() && e.name.size() < 3 &&
        e.name.find_first_not_of("0123456789") == std::string::npos;
    if (number && at.given >= 0 && e.rest.empty()) {
      (std::stoi(e.name) <= at.given ? w->run->present : w->run->absent)[&e] =
          &s;
    }
  }
}

static void note_all_arguments(walk *w, const script &s, const frame &at,
                               const bash_command &command)
{
  for (const bash_word &word : command.words) {
    note_arguments(w, s, at, word);
  }
  for (const bash_assignment &assignment : command.assignments) {
    note_arguments(w, s, at, assignment.value);
  }
}

// The words that the command passes to the library.
// Other calls take names, which stand in the script or in its arrays.
static std::vector<std::string> given_words(const frame &at,
                                            const bash_command &command)
{
  const std::string &name = first_word(command);
  std::vector<std::string> given;
  if (name == "orv_load" || name == "orv_store") {
    for (const bash_word &word : command.words) {
      std::string value;
      given.push_back(value_of(at, word, &value) ? value : "");
    }
  }
  return given;
}

// Whether orv_one_of finds the value among the literal words.
// NO needs all of the words; a single one that is the value is enough for YES.
static truth is_one_of(const frame &at, const script &s,
                       const bash_command &command)
{
  std::string value;
  if (command.words.size() < 3 || !value_of(at, command.words[1], &value)) {
    return MAYBE;
  }
  std::vector<literal_name> names;
  bool all = true;
  for (size_t i = 2; i < command.words.size(); i++) {
    all &= add_literals(s, command.words[i], &names);
  }
  const bool found =
      std::any_of(names.begin(), names.end(),
                  [&](const literal_name &name) { return name.name == value; });
  const truth result = found ? YES : all ? NO : MAYBE;
  return command.negated ? opposite(result) : result;
}

// Takes one step; false when the function or script ends there.
static bool walk_command(walk *w, const script &s, frame *at,
                         const bash_command &command)
{
  const truth state = state_of(at, s, command);
  // In "a && b || c" the status of a decides on c where b does not run.
  if (state == NO) {
    if (command.decides) {
      at->results[&command] = result_at(*at, s, command.previous);
    }
    return true;
  }
  const std::string &name = first_word(command);
  if (command.decides) {
    at->results[&command] = !command.join.empty() && state != YES ? MAYBE
                            : name == "orv_one_of" ? is_one_of(*at, s, command)
                                                   : result_of(*at, command);
  }
  w->run->steps.push_back(
      {&s, &command, state == YES, given_words(*at, command)});
  note_all_arguments(w, s, *at, command);
  if (command.substitution > 0) {
    return true; // a subshell: neither its exit nor its variables count here
  }
  // Where it is only possible, what follows may run and is walked through.
  if (state == YES && !is_apart(command) &&
      (name == "exit" || name == "return")) {
    w->ended = name == "exit";
    return !w->ended && at->function.empty();
  }
  // In this order: the words of a call or of a sourced file may use what the
  // same script has just set, and an argument that was shifted away is gone by
  // then.
  follow_effects(at, command, state);
  follow_source(w, s, at, command, state);
  follow_call(w, at, command, state);
  return !w->ended;
}

static void walk_commands(walk *w, const script &s, const std::string &function,
                          frame *at)
{
  const auto commands = s.functions.find(function);
  if (commands == s.functions.end()) {
    return;
  }
  std::vector<subshell> open;
  for (const bash_command *command : commands->second) {
    follow_subshells(&open, s, command->branch, at);
    if (!open.empty() && open.back().ended) {
      continue;
    }
    if (!walk_command(w, s, at, *command)) {
      if (open.empty()) {
        return;
      }
      open.back().ended = true;
      w->ended = false;
    }
  }
  follow_subshells(&open, s, -1, at);
}

static void note_calls(task_run *run)
{
  for (size_t i = 0; i < run->steps.size(); i++) {
    const std::string &name = first_word(*run->steps[i].command);
    if (starts_with(name, "orv_")) {
      run->library[name].push_back(i);
    }
  }
}

// A script that is not the folder's gives no steps, and rules that look for a
// call have to tell this from a script without one.
task_run follow_task(const device &dev, const form &f, script_task task,
                     const std::string &subitem)
{
  task_run run = {&f, task, {}, {}, {}, {}, false};
  const auto s = dev.scripts.find(f.scripts[task].script);
  if (s != dev.scripts.end()) {
    walk w = {dev, with_sources(dev, s->first), &run, 0, false};
    frame top = {"", known_arguments(f, task, subitem), {}, YES, {},
                 {}, count_arguments(f, task)};
    walk_commands(&w, s->second, "", &top);
    note_calls(&run);
  }
  return run;
}
