// The steps of a script when a form runs it.
//
// The walk knows the arguments and what follows from them, so it takes only the
// branches of the task at hand: usually "case $1 in --read) ...".  Where a test
// cannot be decided, both sides count as possible (MAYBE).

#include "tasks.h"

#include <algorithm>

#include "flow.h"
#include "known.h"
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
    return YES;
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

// The arguments of a call, as far as they are known.
// A function sees the caller's variables and has arguments of its own.
static known_values arguments_of(const frame &at, const bash_command &call)
{
  known_values known = at.known;
  for (auto entry = known.begin(); entry != known.end();) {
    entry = entry->first.find_first_not_of("0123456789") == std::string::npos
                ? known.erase(entry)
                : std::next(entry);
  }
  for (size_t i = 1; i < call.words.size(); i++) {
    std::string value;
    if (call.words[i].plain == "$@") { // passes the caller's arguments on
      for (const auto &entry : at.known) {
        known.insert(entry);
      }
      break;
    }
    if (value_of(at, call.words[i], &value)) {
      known[std::to_string(i)] = value;
    }
  }
  return known;
}

// What cannot be followed may do anything, so rules that say "never done" are
// silent then.
static void follow_call(walk *w, frame *at, const bash_command &command)
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
    frame inner = {
        name, arguments_of(*at, command), {}, {}, all ? at->given : -1};
    w->depth++;
    walk_commands(w, *s, name, &inner);
    w->depth--;
  }
}

// The code of a sourced file runs in place, with the same variables.
static void follow_source(walk *w, const script &s, frame *at,
                          const bash_command &command)
{
  if ((first_word(command) == "." || first_word(command) == "source") &&
      command.words.size() > 1) {
    const std::string name =
        sourced_name(s.name, with_own_folder(s, command.words[1].plain));
    const auto file = w->dev.scripts.find(name);
    if (file != w->dev.scripts.end() && w->depth < CALLS_DEEP) {
      w->depth++;
      walk_commands(w, file->second, "", at);
      w->depth--;
    }
  }
}

// A variable is known once it gets a known value for certain; any other
// assignment makes it unknown.
// An element or a whole array has no single value.
static void follow_assignments(frame *at, const bash_command &command,
                               truth state)
{
  for (const bash_assignment &assignment : command.assignments) {
    std::string value;
    at->known.erase(assignment.name);
    if (state == YES && assignment.subscript.empty() &&
        assignment.elements.empty() &&
        value_of(*at, assignment.value, &value)) {
      at->known[assignment.name] = value;
    }
  }
}

// $0 is not among the arguments, and stays where it is in bash; it is never
// known.
static void follow_shift(frame *at)
{
  at->given -= at->given > 0 ? 1 : 0;
  known_values moved;
  for (const auto &entry : at->known) {
    const bool number =
        entry.first.find_first_not_of("0123456789") == std::string::npos;
    if (!number) {
      moved.insert(entry);
    } else if (entry.first != "1") {
      moved[std::to_string(std::stoi(entry.first) - 1)] = entry.second;
    }
  }
  at->known = moved;
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

static bool in_subshell(const script &s, int branch)
{
  for (; branch >= 0;
       branch = s.code.branches[static_cast<size_t>(branch)].parent) {
    if (s.code.branches[static_cast<size_t>(branch)].kind == "(") {
      return true;
    }
  }
  return false;
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
    at->results[&command] = result_at(*at, s, command.previous);
    return true;
  }
  const std::string &name = first_word(command);
  at->results[&command] = !command.join.empty() && state != YES ? MAYBE
                          : name == "orv_one_of" ? is_one_of(*at, s, command)
                                                 : result_of(*at, command);
  w->run->steps.push_back(
      {&s, &command, state == YES, given_words(*at, command)});
  note_all_arguments(w, s, *at, command);
  if (command.substitution > 0) {
    return true; // a subshell: neither its exit nor its variables count here
  }
  // Where it is only possible, what follows may run and is walked through.
  if (state == YES && (name == "exit" || name == "return")) {
    w->ended = name == "exit" && !in_subshell(s, command.branch);
    return w->ended ? false : at->function.empty();
  }
  // In this order: the words of a call or of a sourced file may use what the
  // same script has just set, and an argument that was shifted away is gone by
  // then.
  follow_assignments(at, command, state);
  if (name == "shift") {
    follow_shift(at);
  }
  follow_source(w, s, at, command);
  follow_call(w, at, command);
  return !w->ended;
}

static void walk_commands(walk *w, const script &s, const std::string &function,
                          frame *at)
{
  const auto commands = s.functions.find(function);
  if (commands == s.functions.end()) {
    return;
  }
  for (const bash_command *command : commands->second) {
    if (!walk_command(w, s, at, *command)) {
      return;
    }
  }
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
    frame top = {"",
                 known_arguments(f, task, subitem),
                 {},
                 {},
                 count_arguments(f, task)};
    walk_commands(&w, s->second, "", &top);
    note_calls(&run);
  }
  return run;
}
