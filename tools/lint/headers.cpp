// The script lines of a header: whether the script is there, and what becomes
// of the values that a request can choose.

#include <algorithm>
#include <sys/stat.h>

#include "orv_quote.h"
#include "rules.h"
#include "text.h"

// --- the script --------------------------------------------------------------

// Scripts of any language count here, not those alone that are read.
static bool is_file(const std::string &path)
{
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// What is odd was reported where it lies, and a link to orv-store needs nothing
// to be there: the device that is built has it.
bool lacks_script(const device &dev, const script_line &line)
{
  return !line.script.empty() &&
         dev.odd.count(line.script) + dev.keepers.count(line.script) == 0 &&
         dev.scripts.count(line.script) == 0 &&
         !is_file(dev.dir + "/scripts/" + line.script);
}

static std::set<std::string> script_names(const device &dev)
{
  std::set<std::string> names;
  for (const auto &entry : dev.scripts) {
    names.insert(entry.first);
  }
  return names;
}

// Any other script that is missing fails before something is stored.
// What the page says when the script cannot be run.
static std::string consequence(const std::string &keyword)
{
  return keyword == "navbar_script"
             ? "; without it a Submit saves and then shows an error page"
             : "";
}

// The execute permission is reported at the script, since that is what must be
// changed, and once, however many forms run it.
// The default lines count, too: a form without a line runs them.
static void check_script_file(const device &dev, const form &f,
                              const script_line &line, findings *found)
{
  if (line.script.empty() || line.script.find("$S$") != std::string::npos ||
      line.script.find("$T$") != std::string::npos) {
    return; // elsewhere on the device, or named by the request
  }
  const std::string where =
      line.line == 0 ? " (the default of " + line.keyword + ")" : "";
  if (dev.odd.count(line.script) + dev.keepers.count(line.script) != 0) {
    return; // reported where it lies, or a link to orv-store
  }
  const auto known = dev.scripts.find(line.script);
  if (lacks_script(dev, line)) {
    report(found, *f.file, line.line, line.column, "script-missing",
           "Script " + in_quotes("scripts/" + line.script) + " does not exist" +
               where + did_you_mean(line.script, script_names(dev)) +
               consequence(line.keyword));
  } else if (known != dev.scripts.end() && !known->second.executable) {
    report(found, *known->second.file, 1, 1, "script-mode",
           "Cannot execute script " + in_quotes("scripts/" + line.script) +
               ": chmod +x is missing",
           {{{f.file->path, std::max(line.line, 1), line.column},
             "the form " + in_quotes(f.name) + " runs it"}});
  }
}

// Without a line for the bar a form's own script is asked for it, and mostly
// does not know that task.
static void check_bar_task(const device &dev, const form &f, findings *found)
{
  const script_line &line = f.scripts[TASK_NAVBAR];
  const auto own = dev.scripts.find(line.script);
  if (line.line == 0 && own != dev.scripts.end() &&
      own->second.file->text.find("navbar") == std::string::npos) {
    report(found, {f.file->path, "", {}}, 1, 1, "script-task",
           "without a navbar_script line this form's own script must print the "
           "bar, and it does not handle \"--navbar\"");
  }
}

// Lines that name different scripts may differ on purpose, and so may a default
// line, which always hands it on.
// One of the lines forgets the sub-item that the others hand on.
static void check_handed_on(const form &f, findings *found)
{
  const script_line *with = nullptr;
  const script_line *without = nullptr;
  for (const script_task task : {TASK_READ, TASK_CHECK, TASK_WRITE}) {
    const script_line &line = f.scripts[task];
    const bool has = line.text.find("$S$") != std::string::npos;
    (has ? with : without) = &line;
  }
  if (can_save(f) && with != nullptr && without != nullptr && with->line != 0 &&
      without->line != 0 && with->script == without->script) {
    report(found, *f.file, without->line, without->column, "script-argument",
           "this line does not pass the sub-item, and that of " +
               with->keyword + " does");
  }
}

// The word that is the sub-item, 0 without one.
static size_t subitem_word(const script_line &line)
{
  const std::vector<std::string> words = split_words(line.text);
  for (size_t i = 1; i < words.size(); i++) {
    if (words[i].find("$S$") != std::string::npos) {
      return i;
    }
  }
  return 0;
}

// Of lines of one script the one whose sub-item stands elsewhere: the script
// takes another word for it.
// The read line is the measure, as it is the one that is tried first.
static void check_moved(const form &f, findings *found)
{
  const script_line &read = f.scripts[TASK_READ];
  const size_t due = subitem_word(read);
  for (const script_task task : {TASK_CHECK, TASK_WRITE}) {
    const script_line &line = f.scripts[task];
    const size_t at = subitem_word(line);
    if (can_save(f) && line.script == read.script && line.line != 0 &&
        due != 0 && at != 0 && at != due) {
      report(found, *f.file, line.line, line.column, "script-argument",
             "the sub-item is argument " + std::to_string(at) +
                 " here, and argument " + std::to_string(due) + " in that of " +
                 read.keyword);
      return;
    }
  }
}

// --- values in the line ------------------------------------------------------

// A blank is enough: where that can be quoted, everything can.
// A sub-item that stands for what the shell would act on.
static const char HOSTILE[] = "a b";
static constexpr size_t TAG_LENGTH = 3; // of $S$

// Then $T$ in a script line is as dangerous as $S$; a title of the author's own
// is put there as it is written.
// Whether the title inserts what a request can choose.
static bool title_of_request(const form &f)
{
  return std::any_of(f.lines.begin(), f.lines.end(), [](const form_line &line) {
    return line.header && line.keyword == "title" &&
           line.text.find("$S$") != std::string::npos;
  });
}

// Quotes bring the value to them as one word, which they read as a program.
// The shell must stand before its -c: `grep -c` is another option.
// The words of the shell that run their arguments once more.
static bool evaluates(const std::string &before)
{
  const std::vector<std::string> words = split_words(before);
  static const word_set evaluators = {"eval", "source", "."};
  static const word_set shells = {"bash", "sh", "dash", "ash", "busybox", "su"};
  bool shell = false;
  for (const std::string &word : words) {
    if (evaluators.count(word) != 0) {
      return true;
    }
    const size_t slash = word.rfind('/');
    shell |=
        shells.count(slash == std::string::npos ? word
                                                : word.substr(slash + 1)) != 0;
    if (shell && word == "-c") {
      return true;
    }
  }
  return false;
}

// An "eval" in front of a ";" is another command's.
// The command that the value stands in, up to the value.
static std::string command_before(const std::string &text, size_t at)
{
  const size_t start = text.find_last_of(";|&(", at == 0 ? 0 : at - 1);
  return text.substr(
      start == std::string::npos || start >= at ? 0 : start + 1,
      start == std::string::npos || start >= at ? at : at - start - 1);
}

// In '...' a backslash is a character like others.
// Whether the character at `at` stands outside of quotes.
static bool is_bare(const std::string &text, size_t at)
{
  char quote = '\0';
  for (size_t i = 0; i < at; i++) {
    if (text[i] == '\\' && quote != '\'') {
      i++;
    } else if (quote == '\0' && (text[i] == '\'' || text[i] == '"')) {
      quote = text[i];
    } else if (text[i] == quote) {
      quote = '\0';
    }
  }
  return quote == '\0';
}

// The executable's own function decides, so that nothing is reported that a
// page would run, and the other way round.  It takes values between NUL bytes.
// Whether the value at `at` of `marked` can be quoted where it stands; the
// other values are harmless ones.
static bool can_quote(const std::string &text,
                      const std::vector<size_t> &values, size_t at)
{
  std::string marked;
  size_t done = 0;
  for (const size_t value : values) {
    marked += text.substr(done, value - done);
    marked += '\0' + std::string(value == at ? HOSTILE : "1") + '\0';
    done = value + TAG_LENGTH;
  }
  marked += text.substr(done);
  size_t length;
  return shell_quote(marked.c_str(), marked.size(), nullptr, &length);
}

// As the last one it may be absent: a script without a sub-item has none.
// Whether an argument of its own disappears with the value, and others follow.
static bool moves_arguments(const std::string &text, size_t at)
{
  const size_t behind = at + TAG_LENGTH;
  const size_t next = text.find_first_not_of(' ', behind);
  return is_bare(text, at) && at > 0 && text[at - 1] == ' ' &&
         next != std::string::npos && next > behind &&
         std::string(";|&<>").find(text[next]) == std::string::npos;
}

static void check_value(const form &f, const script_line &line,
                        const std::vector<size_t> &values, size_t at,
                        findings *found)
{
  const int column = line.column + static_cast<int>(at);
  const std::string tag = in_quotes(line.text.substr(at, TAG_LENGTH));
  const std::string before = command_before(line.text, at);
  const bool first = before.find_first_not_of(" \t\"'") == std::string::npos;
  if (!can_quote(line.text, values, at)) {
    report(found, *f.file, line.line, column, "script-quote",
           "Cannot quote a value in script command: " + tag +
               " cannot be quoted here; pass it to the script as an argument");
  } else if (first) {
    report(found, *f.file, line.line, column, "script-evaluated",
           tag + " is the command here, and the request chooses it");
  } else if (evaluates(before)) {
    report(found, *f.file, line.line, column, "script-evaluated",
           tag + " is run as commands here, and the request chooses it");
  } else if (moves_arguments(line.text, at)) {
    report(found, *f.file, line.line, column, "script-argument",
           "without a sub-item " + tag +
               " may be no argument at all, and those after it move up; put it "
               "in double quotes");
  }
}

// All values are found before one is judged, as the line is quoted as a whole.
// Only what a request can choose is looked at: a form's name is that of a
// file.
static void check_values(const form &f, const script_line &line,
                         findings *found)
{
  const bool title = title_of_request(f);
  std::vector<size_t> values;
  for (size_t at = 0; at + 2 < line.text.size(); at++) {
    if (line.text[at] == '$' && line.text[at + 2] == '$' &&
        (line.text[at + 1] == 'S' || (line.text[at + 1] == 'T' && title))) {
      values.push_back(at);
      at += 2;
    }
  }
  for (const size_t at : values) {
    check_value(f, line, values, at, found);
  }
}

void check_headers(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    const std::vector<script_line> lines = f.scripts;
    check_bar_task(dev, f, found);
    check_handed_on(f, found);
    check_moved(f, found);
    for (int task = 0; task < TASKS; task++) {
      const script_line &line = lines[static_cast<size_t>(task)];
      const bool runs = task == TASK_READ || task == TASK_NAVBAR || can_save(f);
      const bool done = std::any_of(
          lines.begin(), lines.begin() + task, [&](const script_line &other) {
            return other.script == line.script && other.line == line.line;
          });
      if (runs && !done) { // default lines name the same script
        check_script_file(dev, f, line, found);
      }
      if (line.line != 0) {
        check_values(f, line, found);
      }
    }
  }
}
