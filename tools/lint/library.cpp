// The library of the scripts, and paths by which one file sources another.

#include <algorithm>
#include <fstream>
#include <sstream>

#include "device.h"
#include "library_parts.h"
#include "text.h"

std::vector<std::string> library_names(void)
{
  return {std::begin(library_files), std::end(library_files)};
}

bool is_library(const std::string &name)
{
  const std::string file = name.substr(name.rfind('/') + 1);
  return std::find(std::begin(library_files), std::end(library_files), file) !=
         std::end(library_files);
}

bool is_sourced_only(const script &s)
{
  return !s.executable && !starts_with(s.file->text, "#!");
}

bool is_own_path(const std::string &word)
{
  return word.find("BASH_SOURCE") != std::string::npos ||
         word.find("dirname") != std::string::npos ||
         word.find("${0%") != std::string::npos;
}

std::string with_own_folder(const script &s, const std::string &word)
{
  const size_t start = starts_with(word, "${") ? 2 : 1;
  size_t end = start;
  while (end < word.size() && is_name_char(word[end])) {
    end++;
  }
  const size_t rest = start == 2 ? end + 1 : end;
  const auto folder =
      s.own_folders.find(word.empty() ? "" : word.substr(start, end - start));
  const bool whole = starts_with(word, "$") &&
                     (start == 1 || (end < word.size() && word[end] == '}'));
  return whole && folder != s.own_folders.end()
             ? folder->second + word.substr(rest)
             : word;
}

std::string sourced_name(const std::string &from, const std::string &word)
{
  if (!is_own_path(word)) {
    return is_library(word) ? word.substr(word.rfind('/') + 1) : "";
  }
  const size_t mark = word.find_last_of("})");
  const size_t slash = word.find('/', mark == std::string::npos ? 0 : mark);
  if (slash == std::string::npos) {
    return "";
  }
  const size_t folder = from.rfind('/');
  return (folder == std::string::npos ? "" : from.substr(0, folder + 1)) +
         word.substr(slash + 1);
}

// What a file of the library calls its functions and variables.
struct library_part {
  std::set<std::string> functions;
  std::set<std::string> words;
};

static void add_library(const std::string &path, library_part *into)
{
  std::ifstream stream(path, std::ios::binary);
  std::stringstream text;
  text << stream.rdbuf();
  const bash_script code = read_bash(text.str());
  into->functions.insert(code.functions.begin(), code.functions.end());
  std::string word;
  for (const char c : code.code + "\n") {
    if (is_name_char(c)) {
      word += c;
    } else {
      into->words.insert(word);
      word.clear();
    }
  }
}

// The library's functions: those of the folder's own, or of the one that this
// program comes with, or, where that is gone, those that it had when the
// program was built.
void read_library(device *dev, const std::vector<std::string> &names)
{
  library_part all;
  for (const std::string &name : names) {
    if (is_library(name)) {
      add_library(dev->dir + "/scripts/" + name, &all);
    }
  }
  const bool has_own = all.functions.count("orv_load") != 0 &&
                       all.functions.count("orv_store") != 0;
  for (const char *name : library_files) {
    if (!has_own) {
      add_library(ORV_LIBRARY_DIR "/" + std::string(name), &all);
    }
  }
  if (all.functions.count("orv_load") == 0) {
    all.functions.insert(std::begin(library_functions),
                         std::end(library_functions));
  }
  dev->library = all.functions;
  for (const std::string &word : all.words) {
    if (starts_with(word, "orv_") && dev->library.count(word) == 0) {
      dev->library_variables.insert(word);
    }
  }
}
