// The device folder: what is in it, and how its parts belong together.

#include "device.h"

#include <algorithm>
#include <dirent.h>
#include <errno.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "keywords.h"
#include "text.h"

const std::vector<std::string> special_forms = {"orvmenu", "discard_or_return",
                                                "no_changes", "changes_saved"};

bool is_special(const std::string &form)
{
  return std::count(special_forms.begin(), special_forms.end(), form) != 0;
}

bool is_library(const std::string &name)
{
  return name == "orv.bash" || name == "orv_store.bash";
}

static const std::set<std::string> library_functions = {
    "orv_load",    "orv_read",        "orv_put",        "orv_show",
    "orv_error",   "orv_msg",         "orv_fatal",      "orv_end",
    "orv_stamp",   "orv_one_of",      "orv_tick",       "orv_rows",
    "orv_pack",    "orv_secret",      "orv_lock",       "orv_store",
    "orv_changes", "orv_log_changes", "orv_background", "orv_after_page",
    "orv_guard",   "orv_guard_boot"};

// --- reading -----------------------------------------------------------------

// The regular files of a folder, sorted; false when it cannot be read.
static bool list_files(const std::string &dir, std::vector<std::string> *names)
{
  DIR *stream = opendir(dir.c_str());
  if (stream == nullptr) {
    return false;
  }
  while (const dirent *entry = readdir(stream)) {
    struct stat info;
    const std::string name = entry->d_name;
    if (name[0] != '.' && stat((dir + "/" + name).c_str(), &info) == 0 &&
        S_ISREG(info.st_mode)) {
      names->push_back(name);
    }
  }
  closedir(stream);
  std::sort(names->begin(), names->end());
  return true;
}

// The file stays in the device: findings and suppressions look at its lines.
static bool is_readable(device *dev, const std::string &path)
{
  if (access(path.c_str(), R_OK) == 0) {
    return true;
  }
  dev->unread.push_back(path);
  return false;
}

static const source_file &read_file(device *dev, const std::string &path)
{
  std::ifstream stream(path, std::ios::binary);
  std::stringstream text;
  text << stream.rdbuf();
  source_file &file = dev->files[path];
  file.path = path;
  file.text = text.str();
  file.lines = split_lines(file.text);
  return file;
}

// --- scripts -----------------------------------------------------------------

// The words of the code, and those that an expansion goes on with: "port$i",
// "log%d", "select_zones".
static void collect_words(script *into)
{
  const std::string &code = into->code.code;
  size_t at = 0;
  while (at < code.size()) {
    if (!is_name_char(code[at])) {
      at++;
      continue;
    }
    const size_t start = at;
    while (at < code.size() && is_name_char(code[at])) {
      at++;
    }
    std::string word = lower(code.substr(start, at - start));
    into->words.insert(word);
    const char next = at < code.size() ? code[at] : '\0';
    const char before = start > 0 ? code[start - 1] : '\0';
    if (before == '\\' && word.size() > 1) { // printf's "\n"
      word.erase(0, 1);
      into->words.insert(word);
    }
    if (before == '$' || before == '{' || before == '!') {
      continue; // a variable of the script
    }
    if (next == '$' || next == '%' || next == '{' || next == '@') {
      into->stems.insert(word);
    }
  }
}

// The name below scripts/ of a file that a script names, "" when it lies
// elsewhere: the last component of a path that begins with the script's own.
static std::string sourced_name(const std::string &word)
{
  const size_t slash = word.rfind('/');
  const bool own = word.find("BASH_SOURCE") != std::string::npos ||
                   word.find("dirname") != std::string::npos ||
                   word.find("${0%") != std::string::npos;
  return own && slash != std::string::npos ? word.substr(slash + 1) : "";
}

// The library's functions: those of the folder's own, or of the one that this
// program comes with, or those that it has always had.
static std::set<std::string> read_library(const std::string &dir)
{
  for (const std::string &from :
       {dir + "/scripts/", std::string(ORV_LIBRARY_DIR "/")}) {
    std::set<std::string> functions;
    for (const char *name : {"orv.bash", "orv_store.bash"}) {
      std::ifstream stream(from + name, std::ios::binary);
      std::stringstream text;
      text << stream.rdbuf();
      const bash_script code = read_bash(text.str());
      functions.insert(code.functions.begin(), code.functions.end());
    }
    if (functions.count("orv_load") != 0) {
      return functions;
    }
  }
  return library_functions;
}

static void read_script(device *dev, const std::string &name)
{
  const std::string path = dev->dir + "/scripts/" + name;
  script &into = dev->scripts[name];
  into.name = name;
  into.file = &read_file(dev, path);
  into.executable = access(path.c_str(), X_OK) == 0;
  into.code = read_bash(into.file->text);
  for (const bash_command &command : into.code.commands) {
    if (command.words.size() > 1 &&
        (command.words[0].plain == "." || command.words[0].plain == "source")) {
      const std::string source = sourced_name(command.words[1].plain);
      if (!source.empty()) {
        into.sources.push_back(source);
      }
    }
  }
  collect_words(&into);
}

// A program, or something else that is no text for bash.
static bool is_script(const std::string &path, const std::string &name)
{
  std::ifstream stream(path, std::ios::binary);
  std::string first;
  std::getline(stream, first);
  return ends_with(name, ".sh") || ends_with(name, ".bash") ||
         (starts_with(first, "#!") && first.find("sh") != std::string::npos);
}

void tell(findings *found, const form &f, const form_line &line, size_t offset,
          const char *rule, const std::string &text,
          const std::vector<note> &notes)
{
  tell(found, *f.file, line.number, line.column + static_cast<int>(offset),
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

bool can_save(const form &f)
{
  return std::any_of(f.items.begin(), f.items.end(), is_editable);
}

// --- which form runs which script --------------------------------------------

static const char *const task_keywords[TASKS] = {
    "read_script", "check_script", "write_script", "navbar_script"};

// The script's name is the line's first word, as the runner takes it.
static std::string script_name(const std::string &form,
                               const std::string &command)
{
  static const std::string installed = "/usr/share/larkspur/scripts/";
  std::string word = command.substr(0, command.find(' '));
  for (size_t at = word.find("$F$"); at != std::string::npos;
       at = word.find("$F$")) {
    word.replace(at, 3, form);
  }
  if (starts_with(word, installed)) {
    word.erase(0, installed.size());
  }
  return word.empty() || word[0] == '/' ? "" : word;
}

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

std::vector<const form *> forms_of(const device &dev, const std::string &name)
{
  std::vector<const form *> forms;
  for (const auto &entry : dev.forms) {
    if (entry.second.runs.count(name) != 0) {
      forms.push_back(&entry.second);
    }
  }
  return forms;
}

// The navigation script has no values and so no say in names.
static void find_scripts(const device &dev, form *f)
{
  f->scripts = script_lines(*f);
  for (const script_task task : {TASK_READ, TASK_CHECK, TASK_WRITE}) {
    const std::set<std::string> more =
        with_sources(dev, f->scripts[task].script);
    f->runs.insert(more.begin(), more.end());
  }
}

// --- the whole ---------------------------------------------------------------

bool read_device(const std::string &dir, device *dev, findings *found)
{
  dev->dir = dir;
  std::vector<std::string> names;
  if (!list_files(dir + "/templates", &names)) {
    return false;
  }
  for (const std::string &name : names) {
    if (ends_with(name, ".tpl")) {
      const std::string form_name = name.substr(0, name.size() - 4);
      const std::string path = dir + "/templates/" + name;
      if (!is_readable(dev, path)) {
        continue;
      }
      const source_file &file = read_file(dev, path);
      read_form(file, form_name, &dev->forms[form_name], found);
    }
  }
  names.clear();
  dev->library = read_library(dir);
  if (!list_files(dir + "/scripts", &names) && errno != ENOENT) {
    dev->unread.push_back(dir + "/scripts");
  }
  for (const std::string &name : names) {
    if (is_readable(dev, dir + "/scripts/" + name) && !is_library(name) &&
        is_script(dir + "/scripts/" + name, name)) {
      read_script(dev, name);
    }
  }
  for (const char *folder : {"/defaults", "/state"}) {
    names.clear();
    list_files(dir + folder, &names);
    dev->settings.insert(names.begin(), names.end());
  }
  for (auto &entry : dev->forms) {
    find_scripts(*dev, &entry.second);
  }
  return true;
}
