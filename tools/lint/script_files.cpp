// What a file with a script is: its commands, words and names.

#include "script_files.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

#include "text.h"

// The words of the code, and those that an expansion goes on with: "port$i",
// "log%d", "select_zones".
// Rules that ask whether a script names an item look here. In small letters,
// since the page's names have no case; a word too many can hide a mistake, but
// causes no false alarm.
void collect_words(script *into)
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
    if (++into->counts[word] == 1) {
      into->words.insert(word);
    }
    const char next = at < code.size() ? code[at] : '\0';
    const char before = start > 0 ? code[start - 1] : '\0';
    // 'mtu=%s\nuse=%s' holds a "nuse" otherwise.
    if (before == '\\' && word.size() > 1) { // printf's "\n"
      word.erase(0, 1);
      into->words.insert(word);
    }
    // "$port$i" makes its beginning at run time as well.
    if (before == '$' || before == '{' || before == '!') {
      continue; // a variable of the script
    }
    if (next == '$' || next == '%' || next == '{' || next == '@') {
      into->stems.insert(word);
    }
  }
}

// The files that a command of the library is given.
// orv_store takes names behind each file's, orv_load nothing but files.
static void add_settings(const bash_command &command, script *into)
{
  const std::vector<bash_word> &words = command.words;
  const bool loads = !words.empty() && words[0].plain == "orv_load";
  const bool stores = !words.empty() && words[0].plain == "orv_store";
  for (size_t i = 1; i < words.size(); i++) {
    if (loads) {
      into->loaded.insert(words[i].plain);
    }
    if (loads || (stores && (i == 1 || words[i - 1].plain == "--"))) {
      into->settings.insert(words[i].plain);
    }
  }
}

// here=${BASH_SOURCE%/*}, and what goes on from there.
// One variable can be made of another, so this goes in the order of the
// commands.
static void add_own_folders(const bash_command &command, script *into)
{
  for (const bash_assignment &assignment : command.assignments) {
    const std::string value = with_own_folder(*into, assignment.value.plain);
    if (is_own_path(value) && assignment.subscript.empty()) {
      into->own_folders[assignment.name] = value;
    }
  }
}

// The folders come first: a file is sourced by a path that begins with one. The
// pointers into `code` stay right, since nothing is added to it afterwards.
void fill_script(const source_file &file, const std::string &name, script *into)
{
  into->name = name;
  into->file = &file;
  into->executable = access(file.path.c_str(), X_OK) == 0;
  into->code = read_bash(file.text);
  for (const bash_command &command : into->code.commands) {
    add_own_folders(command, into);
    if (command.words.size() > 1 &&
        (command.words[0].plain == "." || command.words[0].plain == "source")) {
      const std::string source =
          sourced_name(name, with_own_folder(*into, command.words[1].plain));
      if (!source.empty()) {
        into->sources.push_back(source);
      }
    }
  }
  collect_words(into);
  for (const bash_command &command : into->code.commands) {
    into->functions[command.function].push_back(&command);
    add_settings(command, into);
    for (const bash_assignment &assignment : command.assignments) {
      // NULL for an array that gets its elements twice: which of them it has
      // depends on the run.
      if (!assignment.elements.empty() &&
          !into->arrays.insert({assignment.name, &assignment}).second) {
        into->arrays[assignment.name] = nullptr;
      }
    }
  }
}

// Whether a first line names a shell, or leaves it open (env -S, busybox).
// All words, for "/usr/bin/env bash" and "/bin/busybox sh" name it second.
static bool names_shell(const std::string &first)
{
  static const word_set shells = {"sh", "bash", "dash", "ash", "ksh"};
  const std::vector<std::string> words = split_words(first.substr(2));
  return std::any_of(words.begin(), words.end(), [](const std::string &word) {
    return shells.count(word.substr(word.rfind('/') + 1)) != 0;
  });
}

int index_of(const script &s, const bash_command &command)
{
  return static_cast<int>(&command - s.code.commands.data());
}

// Whether the file is a text for bash.  What it begins with counts for more
// than its name.
bool is_script(const std::string &path, const std::string &name)
{
  std::ifstream stream(path, std::ios::binary);
  std::string first;
  std::getline(stream, first);
  return starts_with(first, "#!")
             ? names_shell(first)
             : ends_with(name, ".sh") || ends_with(name, ".bash");
}
