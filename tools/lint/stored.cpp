// What a write script stores: its files, names and secrets.

#include "order.h"

#include <algorithm>

#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// --- files -------------------------------------------------------------------

// The files that the device's scripts load, as far as they are written out.
// Of all scripts, since one form may store what only another one shows.
static std::set<std::string> loaded_files(const form_runs &runs)
{
  std::set<std::string> files;
  for (const auto &entry : runs.dev.scripts) {
    files.insert(entry.second.loaded.begin(), entry.second.loaded.end());
  }
  for (const task_run *run : {&runs.read, &runs.write}) {
    for (const task_step &step : run->steps) {
      if (first_word(*step.command) == "orv_load") {
        files.insert(step.given.begin() + 1, step.given.end());
      }
    }
  }
  return files;
}

static bool has_item(const form &f, const std::string &name)
{
  return std::any_of(f.items.begin(), f.items.end(), [&](const form_item &it) {
    return it.input && it.name == name;
  });
}

// The first word and what stands behind "--" are files, all others names.
// orv_store port -- vlan id: a name in the file's place stores the values of
// this form in a file that is never loaded, and a file in a name's place stores
// one more value, which is blank.
static void check_store_word(const form_runs &runs, const task_step &step,
                             size_t i, const std::set<std::string> &loaded)
{
  const bash_word &word = step.command->words[i];
  const std::string &name = step.given[i];
  const bool is_file = i == 1 || step.given[i - 1] == "--";
  const bool item = has_item(runs.f, name);
  if (name.empty() || name == "--") {
    return;
  }
  // A word that only the run knows is "" here.
  const std::string near = nearest(name, loaded);
  if (is_file && !near.empty() && runs.dev.settings.count(name) != 0 &&
      runs.dev.settings.count(near) == 0) {
    return; // it is the other that is misspelt
  }
  // Where nothing is loaded at all, the values may be for another program.
  if (is_file && loaded.count(name) == 0 && (item || !loaded.empty())) {
    report(runs.found, *step.s->file, word.line, word.column, "store-file",
           item ? in_quotes(name) +
                      " is a name of the form; the file's name comes first"
                : "no script loads the file " + in_quotes(name) +
                      did_you_mean(name, loaded));
  } else if (!is_file && !item && loaded.count(name) != 0) {
    report(runs.found, *step.s->file, word.line, word.column, "store-file",
           in_quotes(name) + " is a file; \"--\" comes before the next file");
  }
}

// "${NAMES[@]}" first: a name of the form where the file's is due.
// The word of an array has no known value, so check_store_word cannot judge it.
static void check_first_word(const form_runs &runs, const task_step &step)
{
  std::vector<literal_name> names;
  add_literals(*step.s, step.command->words[1], &names);
  if (!step.command->words[1].expansions.empty() && !names.empty() &&
      has_item(runs.f, names[0].name)) {
    report(runs.found, *step.s->file, step.command->words[1].line,
           step.command->words[1].column, "store-file",
           in_quotes(names[0].name) +
               " is a name of the form; the file's name comes first");
  }
}

// "ports.$port" where "port.$port" is loaded.
static void check_made_file(const form_runs &runs, const task_step &step,
                            size_t i)
{
  std::set<std::string> made;
  for (const std::string &file : step.s->loaded) {
    // A name that is nothing but a variable is near to any other such name.
    if (file.find('$') != std::string::npos && file[0] != '$') {
      made.insert(file);
    }
  }
  const bash_word &word = step.command->words[i];
  const std::string near = nearest(word.plain, made);
  if (word.plain.find('$') != std::string::npos && !near.empty() &&
      made.count(word.plain) == 0) {
    report(runs.found, *step.s->file, word.line, word.column, "store-file",
           "no script loads the file " + in_quotes(word.plain) +
               did_you_mean(word.plain, made));
  }
}

// orv_load "$which" where "vlan.$which" is stored.
// Only a name that lacks the beginning is judged: two that differ otherwise may
// be meant, as for a form that copies settings.
static void check_loaded_name(const form_runs &runs)
{
  const size_t load = find_call(runs.write, "orv_load");
  const size_t store = find_call(runs.write, "orv_store");
  if (load == NOWHERE || store == NOWHERE ||
      runs.write.steps[load].command->words.size() != 2 ||
      runs.write.steps[store].command->words.size() < 3) {
    return;
  }
  const bash_word &loaded = runs.write.steps[load].command->words[1];
  const bash_word &stored = runs.write.steps[store].command->words[1];
  if (loaded.plain != stored.plain && !loaded.expansions.empty() &&
      loaded.plain[0] == '$' && ends_with(stored.plain, loaded.plain) &&
      runs.write.steps[load].s->loaded.count(stored.plain) == 0) {
    report(runs.found, *runs.write.steps[load].s->file, loaded.line,
           loaded.column, "store-file",
           "what is stored is " + in_quotes(stored.plain) +
               ", and this loads another file");
  }
}

static void check_files(const form_runs &runs)
{
  check_loaded_name(runs);
  const std::set<std::string> loaded = loaded_files(runs);
  for (const task_step &step : runs.write.steps) {
    if (first_word(*step.command) == "orv_store" && step.given.size() > 1) {
      check_first_word(runs, step);
      check_made_file(runs, step, 1);
    }
    for (size_t i = 1; i < step.given.size(); i++) {
      if (first_word(*step.command) == "orv_store") {
        check_store_word(runs, step, i, loaded);
      }
    }
  }
}

// "port.$2" is the same file for all sub-items where the form's name is meant
// to be one of them.
// The form's name is the same word in each request, so "port.$2" has a known
// value where $2 is that. Settings as shipped with the same beginning show that
// there should be a file for each sub-item.
static void check_made_name(const form_runs &runs, const task_step &step)
{
  const bash_word &word = step.command->words[1];
  const size_t dollar = word.plain.find('$');
  const std::set<std::string> &shipped = runs.dev.settings;
  if (step.given[1].empty() || word.expansions.empty() || dollar == 0 ||
      dollar == std::string::npos || shipped.count(step.given[1]) != 0) {
    return;
  }
  const auto near = shipped.lower_bound(word.plain.substr(0, dollar));
  if (near != shipped.end() &&
      starts_with(*near, word.plain.substr(0, dollar))) {
    report(runs.found, *step.s->file, word.line, word.column, "store-file",
           "this is always the file " + in_quotes(step.given[1]) +
               ", and the device was shipped with " + in_quotes(*near) +
               ": another argument is the sub-item");
  }
}

static void check_made_names(const form_runs &runs)
{
  for (const task_step &step : runs.read.steps) {
    if (first_word(*step.command) == "orv_load" && step.given.size() > 1) {
      check_made_name(runs, step);
    }
  }
}

// --- names -------------------------------------------------------------------

// What the store is given.
struct stored_names {
  std::set<std::string> names;
  bool cells = false; // of tables, as orv_pack names them
  bool all = true;    // no others
};

// The first word behind orv_store is the file's and may be made by the script;
// `all` asks only whether each other word is written out.
static stored_names names_stored(const task_run &write)
{
  stored_names stored;
  for (const task_step &step : write.steps) {
    if (first_word(*step.command) != "orv_store") {
      continue;
    }
    for (const bash_word &word : step.command->words) {
      std::vector<literal_name> names;
      add_literals(*step.s, word, &names);
      stored.cells |= word.plain == "${cells[@]}";
      stored.all &= !names.empty() || word.plain == "${cells[@]}" ||
                    &word == &step.command->words[1];
      for (const literal_name &name : names) {
        stored.names.insert(lower(name.name));
      }
    }
  }
  return stored;
}

// The keys of `orv` that the task's code looks at; "" for one that it makes.
// "" stands for ${orv[$name]}, which may be any of them: then nothing can be
// said to be unused. Of ${orv[port_mtu$row]} the column is what counts.
static std::set<std::string> keys_used(const task_run &run)
{
  std::set<std::string> keys;
  const auto add = [&](const bash_word &word) {
    for (const bash_expansion &e : word.expansions) {
      if (e.name == "orv" && !e.subscript.empty()) {
        const size_t end = e.subscript.find('$');
        keys.insert(lower(e.subscript.substr(0, end)));
      }
    }
    // These name the element without a dollar, so that it is no expansion.
    if (word.plain.find("orv[") == 0) { // [[ -v, (( orv[x] ))
      keys.insert(lower(word.plain.substr(4, word.plain.find(']') - 4)));
    }
  };
  for (const task_step &step : run.steps) {
    for (const bash_word &word : step.command->words) {
      add(word);
    }
    for (const bash_assignment &assignment : step.command->assignments) {
      add(assignment.value);
    }
  }
  return keys;
}

// What is read, used for nothing and not stored is lost.
// A value that is looked at and not stored may be right: a box that only asks
// for something to be done is no setting.
static void check_lost(const form_runs &runs)
{
  const stored_names stored = names_stored(runs.write);
  const std::set<std::string> read = names_given(runs.write, "orv_read");
  const std::set<std::string> used = keys_used(runs.write);
  const size_t store = find_call(runs.write, "orv_store");
  if (store == NOWHERE || !stored.all || used.count("") != 0) {
    return;
  }
  for (const form_item &item : runs.f.items) {
    const std::string name = lower(item.name);
    const bool column = item.table >= 0;
    // "port#" asks the page for a whole column.
    const bool kept = column ? stored.cells || has_cell(stored.names, name)
                             : stored.names.count(name) != 0;
    if (is_editable(item) && read.count(column ? name + "#" : name) != 0 &&
        !kept && used.count(name) == 0) {
      report_step(runs.found, runs.write.steps[store], "not-stored",
                  in_quotes(item.name) +
                      " is read from the page but neither used nor stored");
      return;
    }
  }
}

// What the user can enter and no task asks the page for is lost as well.
// Judged only where the task reads and stores by names that are all known: a
// form that only shows, or that reads the lines itself, loses nothing by this.
static void check_unread(const form_runs &runs)
{
  const std::set<std::string> read = names_given(runs.write, "orv_read");
  const size_t at = find_call(runs.write, "orv_read");
  if (at == NOWHERE || !calls(runs.write, "orv_store") || read.count("") != 0) {
    return;
  }
  for (const form_item &item : runs.f.items) {
    const std::string name = lower(item.name);
    const bool cells = item.table >= 0 && has_cell(read, name);
    if (is_editable(item) && !cells && read.count(name) == 0 &&
        read.count(name + "#") == 0) {
      report_step(runs.found, runs.write.steps[at], "not-stored",
                  "what the user enters in " + in_quotes(item.name) +
                      " is lost: no script reads it");
      return;
    }
  }
}

// --- secrets -----------------------------------------------------------------

// A secret that is read and stored like any other text goes back to the page.
// The page never shows a secret, so its field comes back blank unless the user
// has typed a new one. Columns are left out: a row can move, so blank says
// nothing of what was there.
static void check_secrets(const task_run &run, findings *found)
{
  const size_t read = find_call(run, "orv_read");
  const std::set<std::string> names = names_given(run, "orv_read");
  const std::set<std::string> secrets = names_given(run, "orv_secret");
  const stored_names stored = names_stored(run);
  if (read == NOWHERE || !calls(run, "orv_store") || secrets.count("") != 0) {
    return;
  }
  for (const form_item &item : run.f->items) {
    const std::string name = lower(item.name);
    const bool secret =
        item.type == PT_TEXT_FIELD && item.table < 0 && is_secret(item.name);
    if (secret && names.count(name) != 0 && secrets.count(name) == 0 &&
        (!stored.all || stored.names.count(name) != 0)) {
      report_step(found, run.steps[read], "library-missing",
                  "a blank " + in_quotes(item.name) +
                      " would be stored; call \"orv_secret\" for it, so that"
                      " blank means unchanged");
    }
    // The page's check runs before the script, which would fill in the stored
    // secret.
    const form_line *check = attribute(item, "check");
    if (secret && secrets.count(name) != 0 && check != nullptr &&
        !starts_with(check->text, "nullok")) {
      report(found, *run.f, *check, 0, "secret-blank",
             "a blank " + in_quotes(item.name) +
                 " means unchanged to the script, but this check refuses it; "
                 "use nullok");
    }
  }
}

// A backup is a dump of what the read scripts show to orvctl alone.
// A secret that is stored as a hash is shown by orv_show_hash under another
// name, so the rule is silent about forms with such a call.
static void check_dump(const task_run &read, const task_run &write,
                       findings *found)
{
  const std::set<std::string> kept = names_given(write, "orv_secret");
  const std::set<std::string> shown = names_given(read, "orv_show_secrets");
  if (calls(read, "orv_show_hash") || shown.count("") != 0 ||
      !calls(write, "orv_store")) {
    return;
  }
  for (const form_item &item : read.f->items) {
    const std::string name = lower(item.name);
    if (item.type == PT_TEXT_FIELD && kept.count(name) != 0 &&
        shown.count(name) == 0) {
      report(
          found, *read.f, *item.lines.front(), 0, "secret-dump",
          "no backup has " + in_quotes(item.name) +
              ": the read script shows it by neither \"orv_show_secrets\" nor"
              " \"orv_show_hash\"");
    }
  }
}

void check_stored(const form_runs &runs)
{
  check_files(runs);
  check_made_names(runs);
  check_lost(runs);
  check_unread(runs);
  check_secrets(runs.write, runs.found);
  check_dump(runs.read, runs.write, runs.found);
}
