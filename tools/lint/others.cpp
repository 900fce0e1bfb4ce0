// Scripts in other languages: lines that hand a shell, or the language itself,
// a program that is made of values.

#include <algorithm>

#include <string.h>

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
    {"perl", "system(", "$@"},
    {"perl", "exec(", "$@"},
    {"perl", "qx", "$@"},
    {"perl", "`", "$@"},
    {"perl", "eval \"", "$@"},
    {"perl", "eval $", ""},
    {"perl", "open(", "$@"},
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

// The end of the text that `quote` begins, in front of `from`; that of the line
// without one.
static size_t text_end(const std::string &line, size_t from, char quote)
{
  static const std::string open = "({[<";
  const size_t pair = open.find(quote);
  const char end = pair == std::string::npos ? quote : ")}]>"[pair];
  while (from < line.size() && line[from] != end) {
    from += line[from] == '\\' ? 2 : 1;
  }
  return std::min(from, line.size());
}

// "$name" and "@list" in a text of Perl, \$ left out.
static bool holds_values(const std::string &text)
{
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] == '$' || text[i] == '@') {
      return true;
    }
    i += text[i] == '\\' ? 1 : 0;
  }
  return false;
}

// The arguments of system and exec: system("ping $x") starts a shell, and
// system("ping", $x) the program with $x as a word.
static bool runs_shell(const std::string &arguments)
{
  const char quote = arguments[0];
  if (quote != '"' && quote != '\'') {
    const size_t end = arguments.find_first_of(",)");
    return quote == '$' && end != std::string::npos && arguments[end] == ')';
  }
  const size_t end = text_end(arguments, 1, quote);
  const size_t next = arguments.find_first_not_of("\"' ", end);
  const char behind = next == std::string::npos ? '\0' : arguments[next];
  return behind != ',' &&
         ((quote == '"' && holds_values(arguments.substr(0, end))) ||
          (behind == '.' && holds_values(arguments.substr(next))));
}

// open(F, "list $x|") and open(F, "-|", "list $x") hand the text to a shell,
// and open(F, "-|", "list", $x) starts the program. Without a mode of its own
// the value alone decides whether it is a file or a program.
static bool opens_shell(const std::string &arguments)
{
  const size_t comma = arguments.find(',');
  const size_t start = comma == std::string::npos
                           ? comma
                           : arguments.find_first_not_of(' ', comma + 1);
  if (start == std::string::npos) {
    return false;
  }
  const char quote = arguments[start];
  if (quote != '"' && quote != '\'') {
    const size_t end = arguments.find_first_of(",)", start);
    return quote == '$' && end != std::string::npos && arguments[end] == ')';
  }
  const size_t end = text_end(arguments, start + 1, quote);
  const std::string text = arguments.substr(start + 1, end - start - 1);
  if (text == "-|" || text == "|-") {
    const size_t next = arguments.find_first_not_of("\"' ,", end);
    return next != std::string::npos &&
           runs_shell(
               arguments.substr(arguments.find_first_not_of(", ", end + 1)));
  }
  const size_t behind = arguments.find_first_not_of(' ', end + 1);
  const bool joined = behind != std::string::npos && arguments[behind] == '.';
  const bool pipe = !text.empty() && (text[0] == '|' || text.back() == '|');
  return joined ? (text.find('<') != 0 && text.find('>') != 0 &&
                   holds_values(arguments.substr(behind)))
                : pipe && quote == '"' && holds_values(text);
}

// Whether Perl hands a shell, or itself, a text with values.
static bool runs_text(const std::string &call, std::string argument)
{
  argument.erase(0, argument.find_first_not_of(' '));
  if (call == "system(" || call == "exec(") {
    return runs_shell(argument);
  }
  if (call == "open(") {
    return opens_shell(argument);
  }
  if (call == "qx" &&
      (is_name_char(argument[0]) || strchr("'=,;) ", argument[0]) != nullptr)) {
    return false; // a part of another name, or qx'...', which expands nothing
  }
  const size_t start = call == "qx" ? 1 : 0;
  const char quote = call == "qx" ? argument[0] : call.back();
  return holds_values(
      argument.substr(start, text_end(argument, start, quote) - start));
}

static bool runs_values(const std::string &line, size_t at, const runner &row)
{
  const std::string argument = argument_of(line, at, row);
  const char before = at > 0 ? line[at - 1] : ' ';
  if (std::string(row.language) == "perl") {
    return !is_name_char(before) && before != '>' && // $db->exec(
           (*row.makers == '\0' || runs_text(row.call, argument));
  }
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
