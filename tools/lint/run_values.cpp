// --run: the values that read scripts report, and how their forms use them.

#include <algorithm>
#include <stdlib.h>
#include <string.h>

#include "orv_limits.h"
#include "references.h"
#include "run.h"
#include "script_names.h"
#include "text.h"

// Stores a line by the executable's rules, as far as names matter.
// The page takes off the blanks first and then one pair of quotes, and so does
// this: blanks inside of the quotes belong to the value.
static void store_line(const device_run &r, const source_file &file,
                       const std::vector<note> &notes, std::string line,
                       named_values *into)
{
  line.erase(line.find_last_not_of(" \t") + 1);
  line.erase(0, line.find_first_not_of(" \t"));
  if (line.empty()) {
    return;
  }
  const size_t equals = line.find('=');
  if (equals == std::string::npos) {
    report(r.found, file, 1, 1, "run-format",
           "Bad format script output " + in_quotes(line), notes);
    return;
  }
  std::string name = lower(line.substr(0, equals));
  std::string value = line.substr(equals + 1);
  if (value.size() > 1 && value.front() == value.back() &&
      (value[0] == '"' || value[0] == '\'')) {
    value = value.substr(1, value.size() - 2);
  }
  // The origin of a value does not matter here: a script that reports d_mtu and
  // not mtu has reported something of it, so that nothing is missing.
  const bool origin =
      name.size() > 2 && name[1] == '_' && strchr("duco", name[0]) != nullptr;
  if (origin) {
    name.erase(0, 2);
  }
  // A blank secret gives nothing away. A message about a secret ends like one,
  // error_wifi_password, and is meant for the page.
  if (is_secret(name) && !value.empty() && !starts_with(name, "error_")) {
    report(r.found, file, 1, 1, "secret",
           in_quotes(name) +
               " is a secret, and the script reports it to the page",
           notes);
  }
  (*into)[name] = value;
}

// Pieces of a long line are read as lines, as a page does.
// Only the first piece of a line that is too long is stored: what goes on
// behind it depends on the value, and one finding says all of it. Takes for
// granted that the script is one of the folder's; who calls this has run it.
named_values read_values(const device_run &r, const form &f,
                         const script_line &line, const std::string &output)
{
  named_values all;
  const source_file &file = *script_file(r, line);
  const std::vector<note> notes = in_form(f, line);
  for (const std::string &text : split_lines(output)) {
    if (text.size() > ORV_LINE_MAX) {
      report(r.found, file, 1, 1, "run-long",
             "a reported line has " + std::to_string(text.size()) +
                 " bytes, and a page reads " + std::to_string(ORV_LINE_MAX) +
                 " at a time: " + in_quotes(text.substr(0, 40) + "..."),
             notes);
    }
    store_line(r, file, notes, text.substr(0, ORV_LINE_MAX), &all);
  }
  return all;
}

// Whether the script keeps the name back on purpose.
// A script that empties u_NAME after a save, or hands the name to orv_secret,
// treats it as a secret whatever it is called. A blank one means unchanged
// there, so it need not be reported to be emptied.
static bool is_kept_back(const device_run &r, const form &f,
                         const std::string &name)
{
  for (const std::string &script_name : f.runs) {
    const script &s = r.dev.scripts.at(script_name);
    if (s.words.count("u_" + name) != 0) {
      return true;
    }
    for (const bash_command &command : s.code.commands) {
      if (!command.words.empty() && command.words[0].plain == "orv_secret" &&
          std::any_of(command.words.begin(), command.words.end(),
                      // The names of cells begin with that of the column.
                      [&](const bash_word &word) {
                        return starts_with(lower(word.plain), name);
                      })) {
        return true;
      }
    }
  }
  return is_secret(name);
}

// A section that asks for the value itself is there for the case that it is
// unset.
static bool is_conditional_on(const std::vector<condition> &conditions,
                              const std::string &name)
{
  return std::any_of(
      conditions.begin(), conditions.end(),
      [&](const condition &c) { return refers_to(c.text, "CDEOUV", name); });
}

// A box that was never reported is an unticked one, and can be ticked.
// Of a table without rows nothing can be reported. Where other columns have
// rows, this one should have them as well.
static void check_item_reported(const device_run &r, const form &f,
                                const form_item &item, const named_values &all)
{
  const std::string name = lower(item.name);
  bool reported = all.count(name) != 0;
  if (item.table >= 0) {
    const bool any = std::any_of(
        f.items.begin(), f.items.end(), [&](const form_item &other) {
          return other.table == item.table && has_cell(all, lower(other.name));
        });
    reported = !any || has_cell(all, name);
  }
  if (!reported && item.type != PT_CHECKBOX && !is_kept_back(r, f, name) &&
      !is_conditional_on(item.conditions, name)) {
    report(r.found, f, *item.lines.front(), 0, "run-unreported",
           "the read script does not report " + in_quotes(item.name) +
               "; report what is empty, too, or it cannot be emptied");
  }
}

// A text that is only shown if its value is set needs no report, and neither do
// the lines after the first of several.
// Here "several" are lines such as $V:log0$, $V:log1$: a script reports as many
// as there are, and the section asks for the first. Only V is looked at: C, D,
// O and U ask for one value that need not be there.
static void check_text_reported(const device_run &r, const form &f,
                                const form_line &line, const named_values &all)
{
  for (const text_part &part : references_of(line.text)) {
    const std::string name = lower(part.name);
    if (part.type == 'V' && all.count(name) == 0 &&
        !has_cell(all, without_digits(name)) &&
        !is_conditional_on(line.conditions, name) &&
        !is_conditional_on(line.conditions, without_digits(name) + "0")) {
      report(r.found, f, line, part.offset, "run-unreported",
             "the read script does not report " + in_quotes(part.name));
    }
  }
}

// The template's choices, or the first words of the reported entries.
static std::set<std::string> choices_of(const form &f, const form_item &item,
                                        const named_values &all)
{
  std::set<std::string> choices = choices_of(f, item);
  // A list goes on up to the first number that is missing, as on the page.
  if (item.type == PT_ISELECT) {
    const std::string stem = "select_" + lower(item.selector);
    for (int i = 0; all.count(stem + std::to_string(i)) != 0; i++) {
      choices.insert(first_word(all.at(stem + std::to_string(i))));
    }
  }
  return choices;
}

static void check_choice(const device_run &r, const form &f,
                         const form_item &item, const named_values &all)
{
  const std::set<std::string> choices = choices_of(f, item, all);
  const std::string name = lower(item.name);
  for (const auto &entry : all) {
    // A blank value is no choice either, but what a new row or a list without a
    // setting has; the page shows the first choice then.
    const bool cell = item.table >= 0 && starts_with(entry.first, name) &&
                      entry.first.size() > name.size() &&
                      entry.first.find_first_not_of(
                          "0123456789", name.size()) == std::string::npos;
    if ((entry.first != name && !cell) || entry.second.empty()) {
      continue;
    }
    if (item.type == PT_CHECKBOX) {
      if (entry.second != "True" && entry.second != "False") {
        report(r.found, f, *item.lines.front(), 0, "run-choice",
               in_quotes(entry.first) + " is reported as " +
                   in_quotes(entry.second) +
                   ", and a box is \"True\" or \"False\"");
      }
    } else if (!choices.empty() && choices.count(entry.second) == 0) {
      // A list without a choice is a fault that other rules report.
      report(r.found, f, *item.lines.front(), 0, "run-choice",
             in_quotes(entry.first) + " is reported as " +
                 in_quotes(entry.second) + ", which is none of the choices" +
                 did_you_mean(entry.second, choices));
    }
  }
}

static void check_entries(const device_run &r, const form &f,
                          const form_item &item, const named_values &all)
{
  const std::string stem = "select_" + lower(item.selector);
  if (all.count(stem + "0") == 0) {
    report(r.found, f, *item.lines.front(), 0, "list-entries",
           "the read script reports no " + in_quotes(stem + "0") +
               ", so the list is empty");
    return;
  }
  int last = 0;
  while (all.count(stem + std::to_string(last)) != 0) {
    last++;
  }
  for (const auto &entry : all) {
    // A list "zone" and a list "zone_names" share the beginning, so what
    // follows must be digits alone.
    if (starts_with(entry.first, stem) &&
        entry.first.find_first_not_of("0123456789", stem.size()) ==
            std::string::npos &&
        atoi(entry.first.c_str() + stem.size()) > last) {
      report(r.found, f, *item.lines.front(), 0, "list-entries",
             "the list ends before " + in_quotes(stem + std::to_string(last)) +
                 ", which is missing, though " + in_quotes(entry.first) +
                 " is reported");
      return;
    }
  }
}

void check_values(const device_run &r, const form &f, const named_values &all)
{
  // A script that reports a fault need not report any values.
  if (all.count("error_msg") + all.count("error_fatal") != 0) {
    return;
  }
  for (const form_item &item : f.items) {
    if (is_input(item)) {
      check_item_reported(r, f, item, all);
    }
    if (item.type == PT_SELECT || item.type == PT_ISELECT ||
        item.type == PT_CHECKBOX) {
      check_choice(r, f, item, all);
    }
    if (item.type == PT_ISELECT || item.type == PT_IMENU) {
      check_entries(r, f, item, all);
    }
  }
  for (const form_line &line : f.lines) {
    // Conditions ask whether a value is there. What the other forms of the
    // system show can come from the request that led to them, as from a write
    // script; the start page alone has nothing but its own read script.
    const bool shown = line.keyword != "if" && line.keyword != "ifnot";
    if (shown && !(is_special(f.name) && f.name != "orvmenu")) {
      check_text_reported(r, f, line, all);
    }
  }
}
