// What a script does when a form runs it: which of its commands run for one
// task, in which order.
//
// The script's arguments are known from the form's line, and so is what
// branches on them; every other branch may be taken or not.

#ifndef LINT_TASKS_H
#define LINT_TASKS_H

#include "device.h"

struct task_step {
  const script *s;
  const bash_command *command;
  bool certain; // no other value than those known decides on it
  // Of orv_load and orv_store: the words, "" for one that is not known.
  std::vector<std::string> given;
};

struct task_run {
  const form *f;
  script_task task;
  std::vector<task_step> steps;
  // The steps that call a function of the library, by its name.
  std::map<std::string, std::vector<size_t>> library;
  // What asks for an argument that the form's line gives, or does not give.
  std::map<const bash_expansion *, const script *> present;
  std::map<const bash_expansion *, const script *> absent;
  // Whether it calls what cannot be followed: a name that it makes, or another
  // script.
  bool opaque;
};

// The steps of the form's script, none where that is not the folder's; with a
// sub-item, those for this one.
task_run follow_task(const device &dev, const form &f, script_task task,
                     const std::string &subitem = "");

// What a form's line gives its script, by the argument's number: an option, the
// form's name, the sub-item if that is not "".  What else a request chooses is
// left out.
std::map<std::string, std::string>
known_arguments(const form &f, script_task task,
                const std::string &subitem = "");

// The patterns of a case's arm.
std::vector<std::string> patterns_of(const std::string &arm);
// Whether one of them, or that of [[ == ]], matches the value.
bool matches_pattern(const std::string &arm, const std::string &value);

#endif
