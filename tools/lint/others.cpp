// Scripts in other languages: lines that hand a shell, or the language itself,
// a program that is made of values.

#include <algorithm>

#include "rules.h"
#include "text.h"

struct runner {
  const char *language; // its program's name begins with that
  const char *call;
  const char *makers; // what makes a text of values, behind the call
};

// Only calls that hand their argument to a shell or to the language itself: a
// list of words, as subprocess.run(["ping", x]), starts a program with x as one
// word.
static const runner runners[] = {
    {"python", "os.system(", "%+{"},
    {"python", "os.popen(", "%+{"},
    {"python", "shell=True", ""},
    {"python", "eval(", ""},
    {"python", "exec(", ""},
    {"perl", "system(\"", "$@"},
    {"perl", "exec(\"", "$@"},
    {"perl", "`", "$@"},
    {"perl", "eval \"", "$@"},
    {"perl", "eval $", ""},
    {"lua", "os.execute(", "."},
    {"lua", "io.popen(", "."},
    {"lua", "load(", ""},
    {"lua", "loadstring(", ""},
};

// #!/usr/bin/env python3 and #!/usr/bin/lua5.4 alike: the name of a version is
// a part of the word.
static std::string language_of(const script &s)
{
  const std::string first = s.file->lines.empty() ? "" : s.file->lines[0];
  const std::vector<std::string> words = split_words(first);
  for (const std::string &word : words) {
    const std::string name = word.substr(word.find_last_of("/!") + 1);
    for (const char *language : {"python", "perl", "lua"}) {
      if (starts_with(name, language)) {
        return language;
      }
    }
  }
  return "";
}

// A text that is only a part of the argument is no plain one: 'ping ' + host.
// Whether the argument is one text as it stands there, or a list of words.
static bool is_plain(const std::string &argument, const char *makers)
{
  const size_t start = argument.find_first_not_of(' ');
  if (start == std::string::npos || argument[start] == '[') {
    return true;
  }
  if (argument[start] != '"' && argument[start] != '\'') {
    return false; // a variable, or f"..."
  }
  const size_t end = argument.find(argument[start], start + 1);
  return end == std::string::npos ||
         argument.find_first_of(makers, end + 1) == std::string::npos;
}

// What stands behind `at` of the line; with shell=True, behind the call's "(".
static std::string argument_of(const std::string &line, size_t at,
                               const runner &row)
{
  const size_t call = line.find("subprocess.");
  return std::string(row.call) == "shell=True"
             ? line.substr(call < at ? line.find('(', call) + 1 : at)
             : line.substr(at + std::string(row.call).size());
}

static bool runs_values(const std::string &line, size_t at, const runner &row)
{
  const std::string argument = argument_of(line, at, row);
  if (std::string(row.language) == "perl") {
    return *row.makers == '\0' ||
           argument.find_first_of(row.makers) != std::string::npos;
  }
  const char before = at > 0 ? line[at - 1] : ' ';
  // load( is a part of reload(, exec( of the method cursor.exec(.
  if (is_name_char(before) ||
      (before == '.' && *row.makers == '\0' && row.call[0] != 's')) {
    return false; // a part of another name, such as literal_eval(
  }
  return !is_plain(argument, *row.makers != '\0' ? row.makers : "%+{");
}

void check_others(const device &dev, findings *found)
{
  for (const auto &entry : dev.others) {
    const script &s = entry.second;
    const std::string language = language_of(s);
    for (size_t i = 0; i < s.file->lines.size() && !language.empty(); i++) {
      const std::string &line = s.file->lines[i];
      // A "#" before the call makes it a comment; one finding a line is enough.
      for (const runner &row : runners) {
        const size_t at = line.find(row.call);
        if (language == row.language && at != std::string::npos &&
            line.find('#') > at && runs_values(line, at, row)) {
          report(found, *s.file, static_cast<int>(i) + 1,
                 static_cast<int>(at) + 1, "eval",
                 "a program is made of values here and runs whatever they"
                 " contain; pass them as separate arguments");
          break;
        }
      }
    }
  }
}
