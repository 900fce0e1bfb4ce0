// Forms: their items, and which scripts they run.

#include <algorithm>

#include "device.h"
#include "keywords.h"
#include "text.h"

const std::vector<std::string> special_forms = {"orvmenu", "discard_or_return",
                                                "no_changes", "changes_saved"};

bool is_special(const std::string &form)
{
  return std::count(special_forms.begin(), special_forms.end(), form) != 0;
}

void report(findings *found, const form &f, const form_line &line,
            size_t offset, const char *rule, const std::string &text,
            const std::vector<note> &notes)
{
  report(found, *f.file, line.number, line.column + static_cast<int>(offset),
         rule, text, notes);
}

// --- items -------------------------------------------------------------------

bool is_input(const form_item &item)
{
  return item.input;
}

bool is_editable(const form_item &item)
{
  return item.input && item.type != PT_TEXT_FIXED;
}

// $S$ and $T$ stay as they are: what they stand for is not known before a
// request comes.
// What the parser inserts, as far as no request has a say in it.
std::string choice_value(const form &f, const form_line &line)
{
  const std::pair<const char *, std::string> inserted[] = {
      {"$F$", f.name}, {"$#$", "#"}, {"$|$", ""}};
  std::string value = first_word(line.text);
  for (const auto &tag : inserted) {
    // The search goes on behind what was inserted: the parser reads a text
    // once, so what an insertion makes is no tag.
    for (size_t at = value.find(tag.first); at != std::string::npos;
         at = value.find(tag.first, at + tag.second.size())) {
      value.replace(at, 3, tag.second);
    }
  }
  return value;
}

std::set<std::string> choices_of(const form &f, const form_item &item)
{
  std::set<std::string> values;
  for (const form_line *line : item.lines) {
    if (line->keyword == "choice") {
      values.insert(choice_value(f, *line));
    }
  }
  return values;
}

long fixed_rows(const form &f, const form_item &cell)
{
  const form_item &table = f.items[static_cast<size_t>(cell.table)];
  const std::vector<std::string> words = split_words(table.lines.front()->text);
  return table.type == PT_FTABLE && words.size() > 2
             ? strtol(words[2].c_str(), nullptr, 10)
             : 0;
}

// A line that continues the one before has the same keyword but no parameter of
// its own, and the item's first line is no attribute of it.
const form_line *attribute(const form_item &item, const char *keyword)
{
  for (const form_line *line : item.lines) {
    if (line->keyword == keyword && !line->continues &&
        line != item.lines.front()) {
      return line;
    }
  }
  return nullptr;
}

// Words are counted as bash would split them, which is right as long as none
// has blanks in quotes; lines where the place of the sub-item depends on more
// than that are reported by themselves.
size_t subitem_argument(const script_line &line)
{
  const std::vector<std::string> words = split_words(line.text);
  for (size_t i = 1; i < words.size(); i++) {
    if (words[i].find("$S$") != std::string::npos) {
      return i;
    }
  }
  return 0;
}

// Of the form's own lines alone: the default script lines pass $S$ to every
// script, so with them each form would count as one for several things.
bool uses_subitem(const form &f)
{
  return std::any_of(f.lines.begin(), f.lines.end(), [](const form_line &line) {
    return line.text.find("$S$") != std::string::npos;
  });
}

// A page without anything to enter has no Submit, so its check and write
// scripts never run: what they lack is no mistake.
bool can_save(const form &f)
{
  return std::any_of(f.items.begin(), f.items.end(), is_editable);
}

// --- which form runs which script --------------------------------------------

static const char *const task_keywords[TASKS] = {
    "read_script", "check_script", "write_script", "navbar_script"};

// Scripts that are installed lie in the folder that the runner searches, so an
// absolute path there names one of the device's own.  Any other absolute path
// is a program of the system: nothing in the folder says what it does, and ""
// keeps all rules away from it.
// The script's name is the line's first word, as the runner takes it.
static std::string script_name(const std::string &form,
                               const std::string &command)
{
  static const std::string installed = "/usr/share/larkspur/scripts/";
  std::string word = command.substr(0, command.find(' '));
  // A form may itself be called "$F$", by mistake.
  for (size_t at = word.find("$F$"); at != std::string::npos;
       at = word.find("$F$", at + form.size())) {
    word.replace(at, 3, form);
  }
  if (starts_with(word, installed)) {
    word.erase(0, installed.size());
  }
  return word.empty() || word[0] == '/' ? "" : word;
}

// A form without a line runs the default one, so every rule can take it that
// there is one row per task.  A second line of one keyword makes the parser
// refuse the form, which is reported there; which of the two is taken here
// matters little.
static std::vector<script_line> script_lines(const form &f)
{
  std::vector<script_line> all;
  for (int task = 0; task < TASKS; task++) {
    script_line line = {task_keywords[task],
                        header_keyword(task_keywords[task])->script, 0, 1, ""};
    for (const form_line &given : f.lines) {
      if (given.header && given.keyword == task_keywords[task]) {
        line.text = given.text;
        line.line = given.number;
        line.column = given.column;
      }
    }
    line.script = script_name(f.name, line.text);
    all.push_back(line);
  }
  return all;
}

// Files may source each other in a circle: what is in `names` already is not
// opened again.  The library stays out, since its own code is not what the
// author is told about, and a name that is sourced and not there is reported
// elsewhere.
std::set<std::string> with_sources(const device &dev, const std::string &name)
{
  std::set<std::string> names;
  std::vector<std::string> open = {name};
  while (!open.empty()) {
    const std::string next = open.back();
    open.pop_back();
    const auto at = dev.scripts.find(next);
    if (at != dev.scripts.end() && !is_library(next) &&
        names.insert(next).second) {
      open.insert(open.end(), at->second.sources.begin(),
                  at->second.sources.end());
    }
  }
  return names;
}

const std::vector<const form *> &forms_of(const device &dev,
                                          const std::string &name)
{
  static const std::vector<const form *> none;
  const auto forms = dev.forms_of.find(name);
  return forms != dev.forms_of.end() ? forms->second : none;
}

// The navigation script has no values and so no say in names.
void find_scripts(const device &dev, form *f)
{
  f->scripts = script_lines(*f);
  for (const script_task task : {TASK_READ, TASK_CHECK, TASK_WRITE}) {
    const std::set<std::string> more =
        with_sources(dev, f->scripts[task].script);
    f->runs.insert(more.begin(), more.end());
  }
}

bool keeps_itself(const device &dev, const form &f)
{
  return dev.keepers.count(f.scripts[TASK_WRITE].script) != 0;
}
