// --run: what the read and navigation scripts really say.
//
// They run in a copy of the folder, as the executable would run them, with
// nothing of a request but a sub-item that some menu or bar leads to.  Check
// and write scripts are not run: they would need a user.

#include "lint.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "orv_quote.h"

static constexpr size_t LINE_MAX_LENGTH = 249; // of a line that a page reads
static constexpr long SLOW_MS = 1000;
static constexpr long LIMIT_MS = 10000; // a script that goes on is ended
// Silence of a pipe that its script has left behind.
static constexpr long LEFT_MS = 250;

// --- running -----------------------------------------------------------------

struct outcome {
  std::string output;
  std::string errors;
  int status = 0;       // as a shell tells it
  bool held = false;    // something else keeps the output open
  bool stopped = false; // it took too long
  long ms = 0;
};

static long now_ms()
{
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

[[noreturn]] static void run_child(const std::string &line,
                                   const std::string &dir, const int *out,
                                   const int *err)
{
  setpgid(0, 0);
  signal(SIGPIPE, SIG_DFL);
  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
  dup2(out[1], STDOUT_FILENO);
  dup2(err[1], STDERR_FILENO);
  setenv("SYSTEM_TYPE", "device", 0);
  setenv("HW_VERSION", "1", 0);
  setenv("SW_VERSION", "1", 0);
  if (chdir(dir.c_str()) == 0) {
    execl("/bin/bash", "bash", "-c", line.c_str(),
          static_cast<char *>(nullptr));
  }
  _exit(127);
}

// Reads what is there; false at the end of the pipe.
static bool read_some(int fd, std::string *text)
{
  char buf[4096];
  const ssize_t got = read(fd, buf, sizeof buf);
  if (got > 0) {
    text->append(buf, static_cast<size_t>(got));
  }
  return got > 0;
}

// Takes in both pipes until they end, or the script has and they are silent.
static void listen(pid_t pid, int out, int err, outcome *result)
{
  const long begin = now_ms();
  struct pollfd fds[] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
  std::string *const texts[] = {&result->output, &result->errors};
  long ended = 0;
  long active = begin;
  int status = 0;
  while (fds[0].fd >= 0 || fds[1].fd >= 0 || ended == 0) {
    poll(fds, 2, 10);
    for (int i = 0; i < 2; i++) {
      if (fds[i].fd >= 0 && fds[i].revents != 0) {
        active = now_ms();
        if (!read_some(fds[i].fd, texts[i])) {
          fds[i].fd = -1;
        }
      }
    }
    const long now = now_ms();
    if (ended == 0 && waitpid(pid, &status, WNOHANG) == pid) {
      ended = now;
      active = now;
    }
    if (ended == 0 && now - begin > LIMIT_MS) {
      result->stopped = true;
      kill(-pid, SIGKILL);
    }
    if (ended != 0 && now - active > LEFT_MS) {
      result->held = fds[0].fd >= 0 || fds[1].fd >= 0;
      break;
    }
  }
  result->ms = ended - begin;
  result->status =
      WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

static outcome run(const std::string &line, const std::string &dir)
{
  outcome result;
  int out[2];
  int err[2];
  if (pipe2(out, O_CLOEXEC) != 0) {
    return result;
  }
  if (pipe2(err, O_CLOEXEC) != 0) {
    close(out[0]);
    close(out[1]);
    return result;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    run_child(line, dir, out, err);
  }
  close(out[1]);
  close(err[1]);
  if (pid > 0) {
    setpgid(pid, pid);
    listen(pid, out[0], err[0], &result);
    kill(-pid, SIGKILL); // what it has left behind
  }
  close(out[0]);
  close(err[0]);
  return result;
}

// The script line as the executable runs it, "" when a value in it cannot be
// quoted; that is told by a rule of its own.
static std::string command_of(const script_line &line, const form &f,
                              const std::string &subitem,
                              const std::string &dir)
{
  const std::string &text = line.text;
  std::string marked;
  for (size_t at = 0; at < text.size(); at++) {
    const bool tag =
        text[at] == '$' && at + 2 < text.size() && text[at + 2] == '$';
    if (!tag || (text[at + 1] != 'F' && text[at + 1] != 'S')) {
      marked += text[at];
      continue;
    }
    const std::string &value = text[at + 1] == 'F' ? f.name : subitem;
    if (!value.empty()) {
      marked += '\0' + value + '\0';
    }
    at += 2;
  }
  size_t length = 0;
  if (!shell_quote(marked.c_str(), marked.size(), nullptr, &length)) {
    return "";
  }
  std::string command(length, ' ');
  shell_quote(marked.c_str(), marked.size(), command.data(), &length);
  return text[0] == '/' ? command : "'" + dir + "/scripts/'" + command;
}

// --- the run of a device -----------------------------------------------------

struct device_run {
  const device &dev;
  findings *found;
  std::string dir;                             // of the copy
  std::map<std::string, std::string> subitems; // by form, the first one known
};

// Where what a script does is told.
static const source_file *script_file(const device_run &r,
                                      const script_line &line)
{
  const auto s = r.dev.scripts.find(line.script);
  return s != r.dev.scripts.end() && s->second.executable ? s->second.file
                                                          : nullptr;
}

static std::vector<note> in_form(const form &f, const script_line &line)
{
  return {{{f.file->path, std::max(line.line, 1), line.column},
           "run as the " + line.keyword + " of " + in_quotes(f.name)}};
}

// What holds for scripts of both kinds.
static void check_end(const device_run &r, const form &f,
                      const script_line &line, const outcome &result)
{
  const source_file *file = script_file(r, line);
  const std::vector<note> notes = in_form(f, line);
  if (result.stopped || result.ms > SLOW_MS) {
    tell(r.found, *file, 1, 1, "run-slow",
         "the page waits " + std::to_string(result.ms) + " ms for this script",
         notes);
  }
  if (result.held) {
    tell(r.found, *file, 1, 1, "run-pipe",
         "a process that this script leaves behind keeps its output open, and"
         " the page waits for it",
         notes);
  }
  if (!result.errors.empty()) {
    tell(r.found, *file, 1, 1, "run-stderr",
         "standard error counts as output: " +
             in_quotes(split_lines(result.errors)[0]),
         notes);
  }
}

// --- values ------------------------------------------------------------------

typedef std::map<std::string, std::string> values;

// The store's rules, as far as names go.
static void store_line(const device_run &r, const source_file &file,
                       const std::vector<note> &notes, std::string line,
                       values *into)
{
  line.erase(line.find_last_not_of(" \t") + 1);
  line.erase(0, line.find_first_not_of(" \t"));
  if (line.empty()) {
    return;
  }
  const size_t equals = line.find('=');
  if (equals == std::string::npos) {
    tell(r.found, file, 1, 1, "run-format",
         "Bad format script output " + in_quotes(line), notes);
    return;
  }
  std::string name = lower(line.substr(0, equals));
  std::string value = line.substr(equals + 1);
  if (value.size() > 1 && value.front() == value.back() &&
      (value[0] == '"' || value[0] == '\'')) {
    value = value.substr(1, value.size() - 2);
  }
  const bool origin =
      name.size() > 2 && name[1] == '_' && strchr("duco", name[0]) != nullptr;
  if (origin) {
    name.erase(0, 2);
  }
  if (is_secret(name) && !value.empty() && !starts_with(name, "error_")) {
    tell(r.found, file, 1, 1, "secret",
         in_quotes(name) +
             " is a secret, and the script reports it to the page",
         notes);
  }
  (*into)[name] = value;
}

// Pieces of a long line are read as lines, as a page does.
static values read_values(const device_run &r, const form &f,
                          const script_line &line, const std::string &output)
{
  values all;
  const source_file &file = *script_file(r, line);
  const std::vector<note> notes = in_form(f, line);
  for (const std::string &text : split_lines(output)) {
    if (text.size() > LINE_MAX_LENGTH) {
      tell(r.found, file, 1, 1, "run-long",
           "a reported line has " + std::to_string(text.size()) +
               " bytes, and a page reads 249 at a time: " +
               in_quotes(text.substr(0, 40) + "..."),
           notes);
    }
    store_line(r, file, notes, text.substr(0, LINE_MAX_LENGTH), &all);
  }
  return all;
}

// Whether any row of the column is reported.
static bool has_cell(const values &all, const std::string &column)
{
  const auto at = all.lower_bound(column + "0");
  return at != all.end() && starts_with(at->first, column) &&
         at->first.find_first_not_of("0123456789", column.size()) ==
             std::string::npos;
}

// Whether the script keeps the name back on purpose.
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
                      [&](const bash_word &word) {
                        return starts_with(lower(word.plain), name);
                      })) {
        return true;
      }
    }
  }
  return is_secret(name);
}

static bool is_conditional_on(const std::vector<condition> &conditions,
                              const std::string &name)
{
  return std::any_of(
      conditions.begin(), conditions.end(), [&](const condition &c) {
        return lower(c.text).find(":" + name + "$") != std::string::npos;
      });
}

// A box that was never reported is an unticked one, and can be ticked.
static void check_item_reported(const device_run &r, const form &f,
                                const form_item &item, const values &all)
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
    tell(r.found, f, *item.lines.front(), 0, "run-unreported",
         "the read script does not report " + in_quotes(item.name) +
             "; report what is empty, too, or it cannot be emptied");
  }
}

// A text that is shown only with its value may do without.
static void check_text_reported(const device_run &r, const form &f,
                                const form_line &line, const values &all)
{
  const std::string text = lower(line.text);
  for (size_t at = text.find("$v:"); at != std::string::npos;
       at = text.find("$v:", at + 1)) {
    const size_t end = text.find('$', at + 3);
    if (end == std::string::npos) {
      return;
    }
    const std::string name = text.substr(at + 3, end - at - 3);
    const std::string stem =
        name.substr(0, name.find_last_not_of("0123456789") + 1);
    if (all.count(name) == 0 && !has_cell(all, stem) &&
        !is_conditional_on(line.conditions, name)) {
      tell(r.found, f, line, at, "run-unreported",
           "the read script does not report " + in_quotes(name));
    }
  }
}

// Those of the template, or the first words of the entries reported.
static std::set<std::string> choices_of(const form_item &item,
                                        const values &all)
{
  std::set<std::string> choices;
  for (const form_line *line : item.lines) {
    if (line->keyword == "choice") {
      choices.insert(line->text.substr(0, line->text.find(' ')));
    }
  }
  if (item.type == PT_ISELECT) {
    const std::string stem = "select_" + lower(item.selector);
    for (int i = 0; all.count(stem + std::to_string(i)) != 0; i++) {
      const auto words = split_words(all.at(stem + std::to_string(i)));
      choices.insert(words.empty() ? "" : words[0]);
    }
  }
  return choices;
}

static void check_choice(const device_run &r, const form &f,
                         const form_item &item, const values &all)
{
  const std::set<std::string> choices = choices_of(item, all);
  const std::string name = lower(item.name);
  for (const auto &entry : all) {
    const bool cell = item.table >= 0 && starts_with(entry.first, name) &&
                      entry.first.size() > name.size() &&
                      entry.first.find_first_not_of(
                          "0123456789", name.size()) == std::string::npos;
    if ((entry.first != name && !cell) || entry.second.empty()) {
      continue;
    }
    if (item.type == PT_CHECKBOX) {
      if (entry.second != "True" && entry.second != "False") {
        tell(r.found, f, *item.lines.front(), 0, "run-choice",
             in_quotes(entry.first) + " is reported as " +
                 in_quotes(entry.second) +
                 ", and a box is \"True\" or \"False\"");
      }
    } else if (!choices.empty() && choices.count(entry.second) == 0) {
      tell(r.found, f, *item.lines.front(), 0, "run-choice",
           in_quotes(entry.first) + " is reported as " +
               in_quotes(entry.second) + ", which is none of the choices" +
               did_you_mean(entry.second, choices));
    }
  }
}

static void check_entries(const device_run &r, const form &f,
                          const form_item &item, const values &all)
{
  const std::string stem = "select_" + lower(item.selector);
  if (all.count(stem + "0") == 0) {
    tell(r.found, f, *item.lines.front(), 0, "list-entries",
         "the read script reports no " + in_quotes(stem + "0") +
             ", so the list is empty");
    return;
  }
  int last = 0;
  while (all.count(stem + std::to_string(last)) != 0) {
    last++;
  }
  for (const auto &entry : all) {
    if (starts_with(entry.first, stem) &&
        entry.first.find_first_not_of("0123456789", stem.size()) ==
            std::string::npos &&
        atoi(entry.first.c_str() + stem.size()) > last) {
      tell(r.found, f, *item.lines.front(), 0, "list-entries",
           "the list ends before " + in_quotes(stem + std::to_string(last)) +
               ", which is missing, though " + in_quotes(entry.first) +
               " is reported");
      return;
    }
  }
}

// --- scripts -----------------------------------------------------------------

static void keep_subitem(device_run *r, const std::string &target)
{
  const size_t slash = target.find('/', 1);
  if (slash != std::string::npos) {
    r->subitems.insert({target.substr(0, slash), target.substr(slash + 1)});
  }
}

static void keep_menu(device_run *r, const form &f, const values &all)
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
static bool run_read(device_run *r, const form &f, values *all)
{
  const script_line line = f.scripts[TASK_READ];
  if (script_file(*r, line) == nullptr) {
    return false;
  }
  const auto subitem = r->subitems.find(f.name);
  const std::string command = command_of(
      line, f, subitem != r->subitems.end() ? subitem->second : "", r->dir);
  if (command.empty()) {
    return false;
  }
  const outcome result = run(command, r->dir);
  check_end(*r, f, line, result);
  *all = read_values(*r, f, line, result.output);
  if (result.status != 0) {
    tell(r->found, *script_file(*r, line), 1, 1, "run-status",
         "the read script ends with status " + std::to_string(result.status) +
             ", so no page is shown",
         in_form(f, line));
  }
  return result.status == 0;
}

// A page that only tells a fault has no values.
static void check_values(const device_run &r, const form &f, const values &all)
{
  // A script that tells a fault reports what it likes.
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
    const bool shown = line.keyword != "if" && line.keyword != "ifnot";
    if (shown && !(is_special(f.name) && f.name != "orvmenu")) {
      check_text_reported(r, f, line, all);
    }
  }
}

static constexpr size_t BAR_MAX = 6;
static constexpr size_t LABEL_MAX = 29;

static void check_entry(device_run *r, const source_file &file,
                        const std::string &text, const std::vector<note> &notes)
{
  const size_t gap = text.find_first_of(" \t");
  if (gap == std::string::npos || gap + 1 == text.size()) {
    tell(r->found, file, 1, 1, "nav-line",
         std::string(gap == std::string::npos ? "navbar: Premature end of line"
                                              : "navbar: Missing a label") +
             ": " + in_quotes(text),
         notes);
    return;
  }
  const std::string target = text.substr(0, gap);
  const std::string form_name = target.substr(0, target.find('/', 1));
  keep_subitem(r, target);
  if (text.size() - gap - 1 > LABEL_MAX) {
    tell(r->found, file, 1, 1, "nav-label",
         "the label " + in_quotes(text.substr(gap + 1)) +
             " is cut after 29"
             " characters",
         notes);
  }
  if (target != "-" && r->dev.forms.count(form_name) == 0) {
    tell(r->found, file, 1, 1, "target",
         "no template " + in_quotes(form_name + ".tpl") + " for the link " +
             in_quotes(text),
         notes);
  }
}

// Read as the page reads it: six entries, one of them fixed.
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
    if (first && text == "--") {
      entries = 0;
    } else {
      check_entry(r, *file, text, in_form(f, line));
      entries++;
    }
    first = false;
  }
  if (entries > BAR_MAX) {
    tell(r->found, *file, 1, 1, "nav-full",
         "the bar of " + in_quotes(f.name) + " has " + std::to_string(entries) +
             " links, and 6 fit",
         in_form(f, line));
  }
}

static void keep_choices(device_run *r)
{
  for (const auto &entry : r->dev.forms) {
    for (const form_line &line : entry.second.lines) {
      if (line.keyword == "choice" && line.item >= 0 &&
          entry.second.items[static_cast<size_t>(line.item)].type ==
              PT_FORMS_MENU) {
        keep_subitem(r, line.text.substr(0, line.text.find(' ')));
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

// Bars and menus first: they tell which sub-items there are.
static void run_all(device_run *r)
{
  keep_choices(r);
  for (const auto &entry : r->dev.forms) {
    run_bar(r, entry.second);
  }
  for (const bool menus : {true, false}) {
    for (const auto &entry : r->dev.forms) {
      values all;
      if (has_menu(entry.second) == menus && run_read(r, entry.second, &all)) {
        keep_menu(r, entry.second, all);
        check_values(*r, entry.second, all);
      }
    }
  }
}

// The scripts' library, where the folder has none of its own: that of the
// sources, or the one installed with this program.
static void add_library(const std::string &dir)
{
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const fs::path &from :
       {fs::path(ORV_LIBRARY_DIR), here / "../share/larkspur/scripts"}) {
    for (const char *name : {"orv.bash", "orv_store.bash"}) {
      if (fs::exists(from / name, error) &&
          !fs::exists(dir + "/scripts/" + name, error)) {
        fs::copy(from / name, dir + "/scripts/" + name, error);
      }
    }
  }
}

void run_scripts(const device &dev, findings *found)
{
  namespace fs = std::filesystem;
  std::error_code error;
  std::string dir =
      (fs::temp_directory_path(error) / "orv-lint.XXXXXX").string();
  if (error || mkdtemp(dir.data()) == nullptr) {
    fprintf(stderr, "orv-lint: no folder for a copy of %s\n", dev.dir.c_str());
    return;
  }
  for (const char *part :
       {"templates", "scripts", "state", "defaults", "system_type"}) {
    if (fs::exists(dev.dir + "/" + part, error)) {
      fs::copy(dev.dir + "/" + part, dir + "/" + part,
               fs::copy_options::recursive, error);
    }
  }
  fs::create_directory(dir + "/state", error);
  add_library(dir);
  device_run r = {dev, found, dir, {}};
  run_all(&r);
  fs::remove_all(dir, error);
}
