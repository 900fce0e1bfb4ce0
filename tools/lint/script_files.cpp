// What a file with a script is: its commands, words and names.

#include "script_files.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

#include "text.h"

// The words of the code, and those that an expansion goes on with: "port$i",
// "log%d", "select_zones".
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

// The files that a command of the library is given.
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
static void add_own_folders(const bash_command &command, script *into)
{
  for (const bash_assignment &assignment : command.assignments) {
    const std::string value = with_own_folder(*into, assignment.value.plain);
    if (is_own_path(value) && assignment.subscript.empty()) {
      into->own_folders[assignment.name] = value;
    }
  }
}

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
      if (!assignment.elements.empty() &&
          !into->arrays.insert({assignment.name, &assignment}).second) {
        into->arrays[assignment.name] = nullptr;
      }
    }
  }
}

// Whether a first line names a shell, or leaves it open (env -S, busybox).
static bool names_shell(const std::string &first)
{
  static const std::set<std::string> shells = {"sh", "bash", "dash", "ash",
                                               "ksh"};
  const std::vector<std::string> words = split_words(first.substr(2));
  return std::any_of(words.begin(), words.end(), [](const std::string &word) {
    return shells.count(word.substr(word.rfind('/') + 1)) != 0;
  });
}

// Whether the file is a text for bash.  What it begins with counts for more
// than its name.
int index_of(const script &s, const bash_command &command)
{
  return static_cast<int>(&command - s.code.commands.data());
}

bool is_script(const std::string &path, const std::string &name)
{
  std::ifstream stream(path, std::ios::binary);
  std::string first;
  std::getline(stream, first);
  return starts_with(first, "#!")
             ? names_shell(first)
             : ends_with(name, ".sh") || ends_with(name, ".bash");
}
