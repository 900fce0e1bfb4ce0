// What a command does to the values that are known.

#include "effects.h"

#include "flow.h"
#include "text.h"

static bool is_argument(const std::string &name)
{
  return name.find_first_not_of("0123456789") == std::string::npos;
}

// What runs in a process of its own: neither its exit nor its variables count
// for the commands behind it.
bool is_apart(const bash_command &command)
{
  return command.background || command.piped || command.piped_in;
}

// --- calls -------------------------------------------------------------------

// The arguments of a call, as far as they are known.
// A function sees the caller's variables and has arguments of its own.
known_values arguments_of(const frame &at, const bash_command &call)
{
  known_values known = at.known;
  for (auto entry = known.begin(); entry != known.end();) {
    entry = is_argument(entry->first) ? known.erase(entry) : std::next(entry);
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

// The caller has its arguments again, and what it had of the names that the
// function has made its own.
void take_back(frame *at, const frame &inner)
{
  known_values known = inner.known;
  for (auto entry = known.begin(); entry != known.end();) {
    entry = is_argument(entry->first) || inner.own.count(entry->first) != 0
                ? known.erase(entry)
                : std::next(entry);
  }
  for (const auto &entry : at->known) {
    if (is_argument(entry.first) || inner.own.count(entry.first) != 0) {
      known.insert(entry);
    }
  }
  at->known = known;
}

// --- commands ----------------------------------------------------------------

// A variable is known once it gets a known value for certain; any other
// assignment makes it unknown.
// An element or a whole array has no single value.
static void follow_assignments(frame *at, const bash_command &command,
                               truth state)
{
  for (const bash_assignment &assignment : command.assignments) {
    std::string value;
    const auto old = at->known.find(assignment.name);
    const bool known = state == YES && assignment.subscript.empty() &&
                       assignment.elements.empty() &&
                       value_of(*at, assignment.value, &value) &&
                       (!assignment.appends || old != at->known.end());
    if (known && assignment.appends) {
      old->second += value;
    } else if (known) {
      at->known[assignment.name] = value;
    } else {
      at->known.erase(assignment.name);
    }
  }
}

// `local task` hides the caller's variable, and has no value yet.
static void follow_declaration(frame *at, const bash_command &command)
{
  for (size_t i = 1; i < command.words.size(); i++) {
    const std::string &word = command.words[i].plain;
    if (word[0] == '-' && word.find('g') != std::string::npos) {
      return; // a global variable
    }
    at->own.insert(word);
    at->known.erase(word);
  }
  for (const bash_assignment &assignment : command.assignments) {
    at->own.insert(assignment.name);
  }
}

// What a command gives a variable in another way is known to the run alone.
static void forget_filled(frame *at, const bash_command &command)
{
  static const word_set fillers = {"read",  "mapfile", "readarray",
                                   "unset", "getopts", "let"};
  const std::vector<bash_word> &words = command.words;
  const std::string &name = first_word(command);
  if (name == "printf" && words.size() > 2 && words[1].plain == "-v") {
    at->known.erase(words[2].plain);
  }
  if (command.kind == BASH_FOR && !words.empty()) {
    at->known.erase(words[0].plain);
  }
  const bool fills = fillers.count(name) != 0;
  for (size_t i = 1; fills && i < words.size(); i++) {
    at->known.erase(words[i].plain.substr(0, words[i].plain.find('=')));
  }
  for (size_t i = 0; command.kind == BASH_ARITHMETIC && i < words.size(); i++) {
    for (const bash_expansion &e : words[i].expansions) {
      if (!is_argument(e.name)) {
        at->known.erase(e.name); // ((row = 3))
      }
    }
  }
}

// Whether the assignments are made here: those in front of a command are its
// own, and in a pipe they are lost.
static bool keeps_assignments(const bash_command &command)
{
  static const word_set words = {"",       "declare",  "local",
                                 "export", "readonly", "typeset"};
  return words.count(first_word(command)) != 0 && !is_apart(command);
}

// Behind `set -- ...` the arguments are other ones, and so they are without the
// dashes where a word is no option. Their number is not counted: "$@" and a
// pattern are any.
static void follow_set(frame *at, const bash_command &command)
{
  const std::string &first = command.words[1].plain;
  if (first != "--" && !first.empty() && (first[0] == '-' || first[0] == '+')) {
    return;
  }
  at->given = -1;
  for (auto entry = at->known.begin(); entry != at->known.end();) {
    entry = is_argument(entry->first) ? at->known.erase(entry) : ++entry;
  }
}

// $0 is not among the arguments, and stays where it is in bash; it is never
// known.
static void follow_shift(frame *at)
{
  at->given -= at->given > 0 ? 1 : 0;
  known_values moved;
  for (const auto &entry : at->known) {
    if (!is_argument(entry.first)) {
      moved.insert(entry);
    } else if (entry.first != "1") {
      moved[std::to_string(std::stoi(entry.first) - 1)] = entry.second;
    }
  }
  at->known = moved;
}

void follow_effects(frame *at, const bash_command &command, truth state)
{
  const std::string &name = first_word(command);
  if (!command.assignments.empty() && keeps_assignments(command)) {
    follow_assignments(at, command, state);
  }
  if (!at->function.empty() &&
      (name == "local" || name == "declare" || name == "typeset")) {
    follow_declaration(at, command);
  }
  forget_filled(at, command);
  if (name == "shift") {
    follow_shift(at);
  }
  if (name == "set" && command.words.size() > 1) {
    follow_set(at, command);
  }
}
