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

// By the file's name in whatever folder: a library that a device keeps beside
// its scripts, or below them, is the same one.
bool is_library(const std::string &name)
{
  const std::string file = name.substr(name.rfind('/') + 1);
  return std::find(std::begin(library_files), std::end(library_files), file) !=
         std::end(library_files);
}

// Such a file needs no execute permission and no first line, so a rule that
// asks for either must leave it alone.
bool is_sourced_only(const script &s)
{
  return !s.executable && !starts_with(s.file->text, "#!");
}

// All three find the script's own folder: ${BASH_SOURCE%/*}, $(dirname "$0")
// and ${0%/*}.  More is not asked for: whoever writes one of them knows that
// the current folder may be any.
bool is_own_path(const std::string &word)
{
  return word.find("BASH_SOURCE") != std::string::npos ||
         word.find("dirname") != std::string::npos ||
         word.find("${0%") != std::string::npos;
}

// HERE=${BASH_SOURCE%/*}, then . "$HERE/orv.bash": without the variable's value
// the file would be one that nothing is known of.  In ${HERE%/*} or ${HERE:-x}
// the name is not the whole of the expansion, and the word stays as it is.
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

// A library of another path is known by its name; of any other file only the
// own folder says where it lies.
std::string sourced_name(const std::string &from, const std::string &word)
{
  if (!is_own_path(word)) {
    return is_library(word) ? word.substr(word.rfind('/') + 1) : "";
  }
  // The slash that ends the folder comes behind the expansion: the one of
  // ${BASH_SOURCE%/*} is a part of its pattern.
  const size_t mark = word.find_last_of("})");
  const size_t slash = word.find('/', mark == std::string::npos ? 0 : mark);
  if (slash == std::string::npos) {
    return "";
  }
  // The script that sources may itself lie in a folder below scripts/.
  const size_t folder = from.rfind('/');
  return (folder == std::string::npos ? "" : from.substr(0, folder + 1)) +
         word.substr(slash + 1);
}

// What a file of the library calls its functions and variables.
struct library_part {
  std::set<std::string> functions;
  std::set<std::string> words;
};

// A file that cannot be opened adds nothing: the caller asks what is there, and
// not whether all went well.  The newline that is put behind the code ends its
// last word.
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
  // A folder may hold a part of the library, of a version that it was copied
  // from.  Two functions that no version lacks, of two files, say whether it is
  // whole; if not, names that the rest has would be reported as misspelt.
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
  // Variables are what begins like the library's own names and is no function,
  // so that a misspelt orv_faild is found without a list that is kept by hand.
  for (const std::string &word : all.words) {
    if (starts_with(word, "orv_") && dev->library.count(word) == 0) {
      dev->library_variables.insert(word);
    }
  }
}
