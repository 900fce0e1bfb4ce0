// The calls of the library that a task makes, one after the other.

#ifndef LINT_ORDER_H
#define LINT_ORDER_H

#include "tasks.h"

constexpr size_t NOWHERE = static_cast<size_t>(-1);

// The first step that calls `name`, from `start` on; the last one.
size_t find_call(const task_run &run, const char *name, size_t start = 0);
size_t find_last(const task_run &run, const char *name);
bool calls(const task_run &run, const char *name);
void report_step(findings *found, const task_step &step, const char *rule,
                 const std::string &text);
// The names that all calls of a function are given, "" for one that is not
// written out.
std::set<std::string> names_given(const task_run &run, const char *name);

// All tasks of one form.
struct form_runs {
  const device &dev;
  const form &f;
  task_run read;
  task_run check;
  task_run write;
  findings *found;
};

// What the read script reports.
void check_shown(const form_runs &runs);
// What a task must do, and what it must not.
void check_duties(const form_runs &runs);
// What is stored: files, names, secrets.
void check_stored(const form_runs &runs);
// What follows a save although it failed, and what is stored although the
// command that makes it failed.
void check_saves(const form_runs &runs);
// What it reads of the page, and what it loads.
void check_reading(const form_runs &runs);
// What comes from a list or a table and is used without being looked at.
void check_sources(const form_runs &runs);

#endif
