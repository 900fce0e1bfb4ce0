// --run: what the read and navigation scripts really say.
//
// They run in a copy of the folder, as the executable would run them, with
// nothing of a request but a sub-item that some menu or bar leads to.  Check
// and write scripts are not run: they would need a user.

#include "run.h"

#include <algorithm>
#include <filesystem>
#include <stdio.h>
#include <stdlib.h>

#include "copy.h"
#include "orv_limits.h"
#include "orv_scripts.h"
#include "rules.h"
#include "terminal.h"
#include "text.h"

// A device is mostly slower than the machine that lints: what takes a second
// here takes longer there, and the user waits for it with every page.
static constexpr long SLOW_MS = 1000;

// Where findings about a script go.
// A script without the right to be executed fails on the device as well, and a
// rule of its own says so; running it would only say the same again.
const source_file *script_file(const device_run &r, const script_line &line)
{
  const auto s = r.dev.scripts.find(line.script);
  return s != r.dev.scripts.end() && s->second.executable ? s->second.file
                                                          : nullptr;
}

// One script serves several forms and tasks, so the finding, which stands in
// the script, needs the form that it was run for. A default line has the number
// 0.
std::vector<note> in_form(const form &f, const script_line &line)
{
  return {{{f.file->path, std::max(line.line, 1), line.column},
           "run as the " + line.keyword + " of " + in_quotes(f.name)}};
}

// What holds for scripts of both kinds.
// All of these are reported at the script's first line: a run does not tell
// which of its lines was the cause.
static void check_end(const device_run &r, const form &f,
                      const script_line &line, const outcome &result)
{
  const source_file *file = script_file(r, line);
  const std::vector<note> notes = in_form(f, line);
  if (result.stopped || result.ms > SLOW_MS) {
    report(r.found, *file, 1, 1, "run-slow",
           "the page waits " + std::to_string(result.ms) +
               " ms for this script",
           notes);
  }
  if (result.too_long) {
    report(r.found, *file, 1, 1, "run-long",
           "Script output too long: a page takes " +
               std::to_string(ORV_SCRIPT_OUTPUT_MAX >> 20) + " MiB",
           notes);
  }
  if (result.held) {
    report(r.found, *file, 1, 1, "run-pipe",
           "a background process keeps this script's output open, and the page "
           "waits for it",
           notes);
  }
  // One line is enough: bash often says more about the same fault.
  if (!result.errors.empty()) {
    report(r.found, *file, 1, 1, "run-stderr",
           "standard error counts as output: " +
               in_quotes(split_lines(result.errors)[0]),
           notes);
  }
}

// The first one stays, since a form whose pages are all alike needs no more. A
// slash at the start belongs to an address and separates nothing.
static void keep_subitem(device_run *r, const std::string &target)
{
  const size_t slash = target.find('/', 1);
  if (slash != std::string::npos) {
    r->subitems.insert({target.substr(0, slash), target.substr(slash + 1)});
  }
}

// An entry is a sub-item of the form that the menu names, unless it names a
// form itself.
static void keep_menu(device_run *r, const form &f, const named_values &all)
{
  for (const form_item &item : f.items) {
    if (item.type != PT_IMENU) {
      continue;
    }
    for (int i = 0;; i++) {
      const auto entry =
          all.find("select_" + lower(item.selector) + std::to_string(i));
      if (entry == all.end()) {
        break;
      }
      const auto words = split_words(entry->second);
      if (!words.empty()) {
        keep_subitem(r, words[0].find('/') == std::string::npos
                            ? item.name + "/" + words[0]
                            : words[0]);
      }
    }
  }
}

// Runs the form's read script; false when there is none to run.
static bool run_read(device_run *r, const form &f, named_values *all)
{
  const script_line line = f.scripts[TASK_READ];
  if (script_file(*r, line) == nullptr) {
    return false;
  }
  // Without a known sub-item the form is opened as a user could open it, too.
  const auto subitem = r->subitems.find(f.name);
  const std::string command = command_of(
      line, f, subitem != r->subitems.end() ? subitem->second : "", r->dir);
  if (command.empty()) {
    return false;
  }
  const outcome result = run(command, r->dir);
  check_end(*r, f, line, result);
  // The output counts although the script may have failed: what is wrong in it
  // is often the reason.
  *all = read_values(*r, f, line, result.output);
  if (result.status != 0) {
    report(r->found, *script_file(*r, line), 1, 1, "run-status",
           "the read script ends with status " + std::to_string(result.status) +
               ", so no page is shown",
           in_form(f, line));
  }
  return result.status == 0;
}

// The two messages are those of the page. A sub-item is learnt here even where
// the link leads to no form: that is reported, and the form may only be
// misspelt.
static void check_entry(device_run *r, const source_file &file,
                        const std::string &text, const std::vector<note> &notes)
{
  const size_t gap = text.find_first_of(" \t");
  if (gap == std::string::npos || gap + 1 == text.size()) {
    report(r->found, file, 1, 1, "nav-line",
           std::string(gap == std::string::npos
                           ? "navbar: Premature end of line"
                           : "navbar: Missing a label") +
               ": " + in_quotes(text),
           notes);
    return;
  }
  const std::string target = text.substr(0, gap);
  const std::string form_name = target.substr(0, target.find('/', 1));
  keep_subitem(r, target);
  if (text.size() - gap - 1 > ORV_BAR_LABEL_MAX) {
    report(r->found, file, 1, 1, "nav-label",
           "the label " + in_quotes(text.substr(gap + 1)) + " is cut after " +
               std::to_string(ORV_BAR_LABEL_MAX) + " characters",
           notes);
  }
  // A label alone, without a link, is written "- LABEL".
  if (target != "-" && r->dev.forms.count(form_name) == 0) {
    report(r->found, file, 1, 1, "target",
           "no template " + in_quotes(form_name + ".tpl") + " for the link " +
               in_quotes(text),
           notes);
  }
}

// Read as the page reads it: one of the entries is fixed.
// The page ignores the status of a bar's script, and so does this.
static void run_bar(device_run *r, const form &f)
{
  const script_line line = f.scripts[TASK_NAVBAR];
  const source_file *file = script_file(*r, line);
  if (file == nullptr) {
    return;
  }
  const outcome result = run(command_of(line, f, "", r->dir), r->dir);
  check_end(*r, f, line, result);
  size_t entries = 1;
  bool first = true;
  for (std::string text : split_lines(result.output)) {
    text.erase(text.find_last_not_of(" \t") + 1);
    text.erase(0, text.find_first_not_of(" \t"));
    if (text.empty()) {
      continue;
    }
    // Only the first line can take that entry away; a later "--" is a line
    // without a label.
    if (first && text == "--") {
      entries = 0;
    } else {
      check_entry(r, *file, text, in_form(f, line));
      entries++;
    }
    first = false;
  }
  if (entries > ORV_BAR_MAX) {
    report(r->found, *file, 1, 1, "nav-full",
           "the bar of " + in_quotes(f.name) + " has " +
               std::to_string(entries) + " links, and " +
               std::to_string(ORV_BAR_MAX) + " fit",
           in_form(f, line));
  }
}

// What a template offers needs no run, so it is known before the first bar asks
// for it.
static void keep_choices(device_run *r)
{
  for (const auto &entry : r->dev.forms) {
    for (const form_line &line : entry.second.lines) {
      if (line.keyword == "choice" && line.item >= 0 &&
          entry.second.items[static_cast<size_t>(line.item)].type ==
              PT_FORMS_MENU) {
        keep_subitem(r, choice_value(entry.second, line));
      }
    }
  }
}

static bool has_menu(const form &f)
{
  return std::any_of(f.items.begin(), f.items.end(), [](const form_item &item) {
    return item.type == PT_IMENU;
  });
}

// Bars and menus first: they show which sub-items there are.
static void run_all(device_run *r)
{
  keep_choices(r);
  for (const auto &entry : r->dev.forms) {
    run_bar(r, entry.second);
  }
  // A menu leads to forms that may stand before it by name.
  for (const bool menus : {true, false}) {
    for (const auto &entry : r->dev.forms) {
      named_values all;
      if (has_menu(entry.second) == menus && run_read(r, entry.second, &all)) {
        keep_menu(r, entry.second, all);
        check_values(*r, entry.second, all);
      }
    }
  }
}

// The scripts' library, where the folder has none of its own: that of the
// sources, or the one installed with this program.
// A device's own copy is what its pages source, so that one stays even where it
// is older. A file that cannot be copied is missed by the script, which says
// so.
static void add_library(const std::string &dir)
{
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const fs::path &from :
       {fs::path(ORV_LIBRARY_DIR), here / "../share/larkspur/scripts"}) {
    for (const std::string &name : library_names()) {
      if (fs::exists(from / name, error) &&
          !fs::exists(dir + "/scripts/" + name, error)) {
        fs::copy(from / name, dir + "/scripts/" + name, error);
      }
    }
  }
}

// Folders in each other; more is a link that leads back.
static constexpr int COPY_DEEP = 8;

// Links to nothing, such as those to a program of the device's, stay behind.
static void copy_tree(const std::filesystem::path &from,
                      const std::filesystem::path &to, int deep)
{
  namespace fs = std::filesystem;
  std::error_code error;
  if (fs::is_regular_file(from, error)) {
    fs::copy_file(from, to, error);
  } else if (fs::is_directory(from, error) && deep > 0) {
    fs::create_directory(to, error);
    for (const auto &entry : fs::directory_iterator(from, error)) {
      copy_tree(entry.path(), to / entry.path().filename(), deep - 1);
    }
  }
}

// A read script may write: to state/ as a rule, and nothing that it does there
// reaches the folder of the author.
void run_scripts(const device &dev, findings *found)
{
  namespace fs = std::filesystem;
  std::error_code error;
  own_folder copy = make_own_folder();
  const std::string &dir = copy.path;
  if (dir.empty()) {
    terminal_print(stderr, "orv-lint: no folder for a copy of %s\n",
                   dev.dir.c_str());
    return;
  }
  for (const char *part :
       {"templates", "scripts", "state", "defaults", "system_type"}) {
    copy_tree(dev.dir + "/" + part, dir + "/" + part, COPY_DEEP);
  }
  // A folder from the sources has no settings yet, and the device always has
  // the place for them.
  fs::create_directory(dir + "/state", error);
  add_library(dir);
  device_run r = {dev, found, dir, {}};
  run_all(&r);
  drop_own_folder(&copy);
}
