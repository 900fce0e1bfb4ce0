// The device folder: what is in it, and how its parts belong together.

#include "device.h"

#include <algorithm>
#include <dirent.h>
#include <fstream>
#include <limits.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "script_files.h"
#include "text.h"

// --- reading -----------------------------------------------------------------

// What stands in a folder, sorted.
struct folder {
  bool readable;
  std::vector<std::string> files;   // regular ones
  std::vector<std::string> folders; // below it
  std::vector<std::string> odd;     // what is neither, or a link to nothing
  std::vector<std::string> keepers; // links to orv-store
};

// The program that is the script of forms without one; the device that is
// judged may have it elsewhere.
static const char STORE[] = "orv-store";

// By the link's text alone: it is the device's place that counts, and where
// this machine has the program does not matter.
static bool leads_to_store(const std::string &path)
{
  char target[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), target, sizeof target);
  const std::string text(target, length > 0 ? static_cast<size_t>(length) : 0);
  return text.substr(text.rfind('/') + 1) == STORE;
}

// Names that begin with "." are those of editors and of git. The order of
// readdir differs between machines, and that of the findings must not.
static folder list_folder(const std::string &dir)
{
  folder all = {false, {}, {}, {}, {}};
  DIR *stream = opendir(dir.c_str());
  if (stream == nullptr) {
    return all;
  }
  all.readable = true;
  while (const dirent *entry = readdir(stream)) {
    struct stat info;
    const std::string name = entry->d_name;
    if (name[0] == '.' || name == STORE) {
      continue;
    }
    if (leads_to_store(dir + "/" + name)) {
      all.keepers.push_back(name);
      continue;
    }
    const bool there = stat((dir + "/" + name).c_str(), &info) == 0;
    (there && S_ISREG(info.st_mode)   ? all.files
     : there && S_ISDIR(info.st_mode) ? all.folders
                                      : all.odd)
        .push_back(name);
  }
  closedir(stream);
  for (std::vector<std::string> *names : {&all.files, &all.folders, &all.odd}) {
    std::sort(names->begin(), names->end());
  }
  return all;
}

// Nothing can be read of it, so the finding has a file without a text.
static void report_odd(const std::string &dir, const folder &all,
                       findings *found)
{
  for (const std::string &name : all.odd) {
    report(found, {dir + "/" + name, "", {}}, 1, 1, "no-file",
           in_quotes(name) +
               " is not a regular file: a dangling link, a pipe or a device");
  }
}

// A file without permission is not a missing one: whoever runs orv-lint is told
// its name, and no rule says that a script or a title is not there.
static bool is_readable(device *dev, const std::string &path)
{
  if (access(path.c_str(), R_OK) == 0) {
    return true;
  }
  dev->unread.push_back(path);
  return false;
}

// The file stays in the device: findings and suppressions look at its lines.
// Read as binary, since a CR or a NUL is something to report; a map does not
// move what it holds, so references to it stay.
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

static void read_script(device *dev, const std::string &name)
{
  const std::string path = dev->dir + "/scripts/" + name;
  fill_script(read_file(dev, path), name, &dev->scripts[name]);
}

// A text in another language, of which no more than the words are known. A file
// without "#!" is no script: an image, a table, a text for another program.
static void read_other(device *dev, const std::string &name)
{
  const std::string path = dev->dir + "/scripts/" + name;
  const source_file &file = read_file(dev, path);
  if (starts_with(file.text, "#!")) {
    script &into = dev->others[name];
    into.name = name;
    into.file = &file;
    into.code.code = file.text;
    collect_words(&into);
  }
}

// --- the whole ---------------------------------------------------------------

// Without the right to read the folder it counts as missing: no form of the
// device is known then.
static bool read_templates(device *dev, findings *found)
{
  const std::string dir = dev->dir + "/templates";
  const folder all = list_folder(dir);
  report_odd(dir, all, found);
  for (const std::string &name : all.files) {
    const std::string path = dir + "/" + name;
    if (ends_with(name, ".tpl") && is_readable(dev, path)) {
      const std::string form_name = name.substr(0, name.size() - 4);
      read_form(read_file(dev, path), form_name, &dev->forms[form_name], found);
    }
  }
  return all.readable;
}

// Names below scripts/, those in folders below it as well. A link to a folder
// is followed, and one that leads upwards would have no end.
static constexpr int FOLDERS_DEEP = 3;

static void list_scripts(device *dev, const std::string &below, int deep,
                         std::vector<std::string> *names, findings *found)
{
  const std::string dir = dev->dir + "/scripts/" + below;
  const folder all = list_folder(dir);
  // One that is not there is missed by the forms that name its scripts; one
  // that is closed would look the same to them.
  if (!all.readable && access(dir.c_str(), F_OK) == 0) {
    dev->unread.push_back(dir.substr(0, dir.find_last_not_of('/') + 1));
  }
  report_odd(dir.substr(0, dir.find_last_not_of('/') + 1), all, found);
  for (const std::string &name : all.odd) {
    dev->odd.insert(below + name);
  }
  for (const std::string &name : all.keepers) {
    dev->keepers.insert(below + name);
  }
  for (const std::string &name : all.files) {
    names->push_back(below + name);
  }
  for (const std::string &name : all.folders) {
    if (deep > 0) {
      list_scripts(dev, below + name + "/", deep - 1, names, found);
    }
  }
}

// Files that scripts source are scripts, whatever they are called. One file
// brings the next, so this goes on until nothing new comes. A file without an
// interpreter that nobody sources may be anything.
static void read_sourced(device *dev, const std::vector<std::string> &names)
{
  for (bool more = true; more;) {
    more = false;
    for (const std::string &name : names) {
      const bool sourced = std::any_of(
          dev->scripts.begin(), dev->scripts.end(), [&](const auto &entry) {
            const std::vector<std::string> &all = entry.second.sources;
            return std::count(all.begin(), all.end(), name) != 0;
          });
      if (sourced && dev->scripts.count(name) == 0 && !is_library(name) &&
          is_readable(dev, dev->dir + "/scripts/" + name)) {
        read_script(dev, name);
        more = true;
      }
    }
  }
}

// What root runs: actions, and programs that convert settings. One without
// "#!" is a shell's, but a compiled one has NUL bytes.
static void read_programs(device *dev)
{
  for (const std::string part : {"actions/", "migrate/"}) {
    const std::string dir = dev->dir + "/" + part;
    for (const std::string &file : list_folder(dir).files) {
      const std::string name = part + file;
      const std::string path = dir + file;
      if (!is_readable(dev, path)) {
        continue;
      }
      const source_file &text = read_file(dev, path);
      const bool marked = starts_with(text.text, "#!");
      const bool shell =
          is_script(path, file) ||
          (!marked && text.text.find('\0') == std::string::npos &&
           access(path.c_str(), X_OK) == 0);
      if (marked || shell) {
        fill_script(text, name, &(shell ? dev->programs : dev->others)[name]);
      }
    }
  }
}

// NAMES of a file that is sourced is used like an own one, which hides it; with
// the name in two files it depends on their order which of the arrays it is.
static void share_arrays(device *dev)
{
  for (auto &entry : dev->scripts) {
    script &s = entry.second;
    for (const std::string &name : with_sources(*dev, s.name)) {
      for (const auto &array : dev->scripts.at(name).arrays) {
        const bool new_name = s.arrays.count(array.first) == 0 &&
                              s.sourced_arrays.insert(array).second;
        if (!new_name && name != s.name) {
          s.sourced_arrays[array.first] = nullptr;
        }
      }
    }
  }
}

// The value of "$NAME" where scripts give that variable one text and no other;
// the word itself otherwise. FILE=port, set once, is as good as the word. Set
// twice, it may be either.
static std::string constant_of(const device &dev,
                               const std::set<std::string> &files,
                               const std::string &word)
{
  std::string value = word;
  int count = 0;
  for (const std::string &file : files) {
    for (const bash_command &command : dev.scripts.at(file).code.commands) {
      for (const bash_assignment &assignment : command.assignments) {
        if (word == "$" + assignment.name ||
            word == "${" + assignment.name + "}") {
          value = assignment.value.plain;
          count++;
        }
      }
    }
  }
  return count == 1 && value.find_first_of("$`(") == std::string::npos ? value
                                                                       : word;
}

// Files that are named by a constant: orv_load "$FILE". All scripts must have
// been read: the constant often stands in a file that several forms source.
static void name_settings(device *dev)
{
  for (auto &entry : dev->scripts) {
    const std::set<std::string> files = with_sources(*dev, entry.first);
    for (std::set<std::string> *names :
         {&entry.second.settings, &entry.second.loaded}) {
      std::set<std::string> all;
      for (const std::string &word : *names) {
        all.insert(word[0] == '$' ? constant_of(*dev, files, word) : word);
      }
      *names = all;
    }
  }
}

static void read_scripts(device *dev, findings *found)
{
  std::vector<std::string> names;
  list_scripts(dev, "", FOLDERS_DEEP, &names, found);
  // The templates' own is of their language.
  std::string bar = dev->dir + "/templates/navbar";
  if (access(bar.c_str(), F_OK) != 0) {
    bar = dev->dir + "/scripts/navbar";
  }
  // Without a form that orv-store keeps, nobody prints the file, and it may be
  // anything.
  if (!dev->keepers.empty() && access(bar.c_str(), F_OK) == 0 &&
      is_readable(dev, bar)) {
    dev->bar = &read_file(dev, bar);
  }
  read_library(dev, names);
  for (const std::string &name : names) {
    const std::string path = dev->dir + "/scripts/" + name;
    if (is_readable(dev, path) && !is_library(name) && is_script(path, name)) {
      read_script(dev, name);
    } else if (!is_library(name) && is_readable(dev, path)) {
      read_other(dev, name);
    }
  }
  read_sourced(dev, names);
  share_arrays(dev);
  name_settings(dev);
}

// What the device was shipped with is judged; what it has stored is not. Names
// of both folders count as files that a script may load.
static void read_settings(device *dev, findings *found)
{
  for (const char *part : {"defaults", "state"}) {
    const std::string dir = dev->dir + "/" + part;
    const folder all = list_folder(dir);
    dev->settings.insert(all.files.begin(), all.files.end());
    if (std::string(part) == "defaults") {
      report_odd(dir, all, found);
      for (const std::string &name : all.files) {
        if (is_readable(dev, dir + "/" + name)) {
          dev->defaults[name] = &read_file(dev, dir + "/" + name);
        }
      }
    }
  }
}

// NAME=VALUE or NAME VALUE; without the file nothing is known of its names.
static void read_system_type(device *dev)
{
  const std::string path = dev->dir + "/system_type";
  struct stat info;
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
      access(path.c_str(), R_OK) != 0) {
    return;
  }
  dev->has_system_type = true;
  for (const std::string &line : read_file(dev, path).lines) {
    const size_t start = std::min(line.find_first_not_of(" \t"), line.size());
    const size_t end =
        std::min(line.find_first_of(" \t=#", start), line.size());
    dev->system_names.insert(line.substr(start, end - start));
  }
}

// Which scripts a form runs needs to know what each sources, so forms get
// theirs last. The maps do not move forms, and pointers to them stay right.
bool read_device(const std::string &dir, device *dev, findings *found)
{
  dev->dir = dir;
  if (!read_templates(dev, found)) {
    return false;
  }
  read_scripts(dev, found);
  read_programs(dev);
  read_settings(dev, found);
  read_system_type(dev);
  for (auto &entry : dev->forms) {
    find_scripts(*dev, &entry.second);
    for (const std::string &script_name : entry.second.runs) {
      dev->forms_of[script_name].push_back(&entry.second);
    }
    for (int task = 0; task < TASKS; task++) {
      const script_line &line = entry.second.scripts[static_cast<size_t>(task)];
      dev->tasks_of[line.script].push_back(
          {&entry.second, static_cast<script_task>(task)});
    }
  }
  return true;
}
