// What one test says of the values that it looks at.

#include "judgements.h"

#include <string.h>

#include <algorithm>

#include "script_names.h"
#include "text.h"

// --- what tests say ----------------------------------------------------------

static void add_names(const context &c, const bash_command &command,
                      const bash_word &word, bool holds,
                      std::vector<judgement> *what)
{
  for (const bash_expansion &expansion : word.expansions) {
    what->push_back({scoped(c, command.function, full_name(expansion)), holds});
  }
}

// Whether each part of a test that "||" joins is about the value.
// [[ $x == a || $y == b ]] may succeed without having looked at $x.  With &&,
// or with parentheses, which part decides is not followed, and the author gets
// the benefit of the doubt.
static bool is_in_each_part(const context &c, const bash_command &command,
                            const std::string &name)
{
  bool found = false;
  for (const bash_word &word : command.words) {
    if (word.text == "&&" || word.text.find_first_of("()") == 0) {
      return true; // taken for right
    }
    if (word.text == "||" && !found) {
      return false;
    }
    found =
        word.text != "||" &&
        (found || std::any_of(word.expansions.begin(), word.expansions.end(),
                              [&](const bash_expansion &e) {
                                return scoped(c, command.function,
                                              full_name(e)) == name;
                              }));
  }
  return found;
}

// [ "$x" -gt 1 ] with x='a[$(reboot)]' ends with an error, "integer expression
// expected"; [[ $x -gt 1 ]] runs the command, so it is where the value must
// have been looked at before.  An expression that matches a part of the value
// says nothing of the rest.
// Whether the comparison looks at what stands before it: [ takes whole numbers
// alone and evaluates nothing.
static bool looks_at(const bash_command &command, size_t i)
{
  static const word_set orders = {"-eq", "-ne", "-lt", "-le", "-gt", "-ge"};
  const std::string &op = command.words[i].text;
  return op == "==" || op == "=" || op == "!=" ||
         (op == "=~" && !holds_part(command.words[i + 1].plain)) ||
         (command.kind == BASH_SIMPLE && orders.count(op) != 0);
}

// "!" turns the part that it stands in, `! [[ ]]` the whole.  Where a test with
// || fails, all of its parts have failed, so each says something; where it
// succeeds, only a value that each part names was looked at.
// [[ -n $x ]] looks at nothing; a comparison does.
static void judge_comparisons(const context &c, const bash_command &command,
                              std::vector<judgement> *what)
{
  bool turned = command.negated;
  for (size_t i = 0; i < command.words.size(); i++) {
    const std::string &op = command.words[i].text;
    if (op == "&&" || op == "||") {
      turned = command.negated;
    }
    turned ^= op == "!";
    if (i > 0 && i + 1 < command.words.size() && looks_at(command, i)) {
      const bool holds = (op != "!=") != turned;
      add_names(c, command, command.words[i - 1], holds, what);
    }
  }
  what->erase(std::remove_if(what->begin(), what->end(),
                             [&](const judgement &one) {
                               return one.holds != command.negated &&
                                      !is_in_each_part(c, command, one.name);
                             }),
              what->end());
}

static std::string options_of(const bash_command &command)
{
  std::string options;
  for (const bash_word &word : command.words) {
    if (word.plain.size() > 1 && word.plain[0] == '-' && word.plain[1] != '-') {
      options += word.plain;
    }
  }
  return options;
}

// Without -x, a part of a line is enough, and without -F "." is any character.
// grep -qxF "$x" FILE compares with whole lines.
static bool looks_up(const bash_command &command)
{
  const std::string options = options_of(command);
  return first_word(command) == "grep" &&
         options.find('x') != std::string::npos &&
         options.find('F') != std::string::npos;
}

// A value of the page has no line end, so its only line is the whole.
// Whether grep holds its input to an expression for the whole line.
static bool holds_line(const bash_command &command)
{
  return first_word(command) == "grep" &&
         (options_of(command).find('x') != std::string::npos ||
          std::any_of(command.words.begin() + 1, command.words.end(),
                      [](const bash_word &word) {
                        return word.plain[0] == '^' && word.plain.back() == '$';
                      }));
}

// The command before grep is the one that prints into the pipe, as commands
// stand in the order of their ends.  Only what printf or echo print is the
// value itself.
// printf '%s\n' "$x" | grep -qx EXPRESSION, or with <<<"$x".
static void judge_lines(const context &c, const bash_command &command,
                        std::vector<judgement> *what)
{
  size_t index = 0;
  const script *s = owner_of(c, command, &index);
  for (const bash_redirect &redirect : command.redirects) {
    if (redirect.op == "<<<") {
      add_names(c, command, redirect.target, !command.negated, what);
    }
  }
  if (s == nullptr || index == 0 || !command.piped_in) {
    return;
  }
  const bash_command &printing = s->code.commands[index - 1];
  const std::string &name = first_word(printing);
  for (const bash_word &word : printing.words) {
    if (name == "printf" || name == "echo") {
      add_names(c, printing, word, command.negated == printing.negated, what);
    }
  }
}

// The library's own array is let out: ${orv[$x]} is the value of a field, and
// the array no list of names.
// [[ ${list[$x]} ]] of an associative array asks whether it has that name.
static void judge_members(const context &c, const bash_command &command,
                          std::vector<judgement> *what)
{
  const bool turned = !command.words.empty() && command.words[0].text == "!";
  for (const bash_word &word : command.words) {
    for (size_t i = 0; i + 1 < word.expansions.size(); i++) {
      const bash_expansion &array = word.expansions[i];
      const bash_expansion &member = word.expansions[i + 1];
      if (c.maps.count(array.name) != 0 && array.name != "orv" &&
          array.subscript == "$" + member.name) {
        what->push_back({scoped(c, command.function, member.name),
                         turned == command.negated});
      }
    }
  }
}

// A function of the script that decides on something is taken at its word,
// whatever it looks at: its author has thought of the value, and what goes on
// in it may be too much to follow.
// Whether the command is a function that says whether a value is right.  Of the
// library only orv_one_of does; storing is no judging.
static bool asks(const context &c, const bash_command &command)
{
  const std::string &name = first_word(command);
  return name == "orv_one_of" ||
         (!starts_with(name, "orv_") && c.functions.count(name) != 0);
}

// It changes only what is a number, and fails where one of its names is none,
// so a success says it of all.
// orv_number takes names of values, also those that are made: "port$row".
static void judge_numbers(const context &c, const bash_command &command,
                          std::vector<judgement> *what)
{
  size_t index = 0;
  const script *s = owner_of(c, command, &index);
  for (size_t i = 1; s != nullptr && i < command.words.size(); i++) {
    std::vector<literal_name> names;
    add_literals(*s, command.words[i], &names);
    if (names.empty()) {
      names.push_back({command.words[i].plain, 0, 0});
    }
    for (const literal_name &name : names) {
      bash_expansion value;
      value.name = "orv";
      value.subscript = name.name;
      what->push_back({"::" + full_name(value), !command.negated});
    }
  }
}

// The first that fits decides: a [[ ]] with a function's name in it is a test.
std::vector<judgement> judgements_of(const context &c,
                                     const bash_command &command)
{
  std::vector<judgement> what;
  const std::string &name = first_word(command);
  if (command.kind == BASH_TEST || name == "[" || name == "test") {
    judge_comparisons(c, command, &what);
    judge_members(c, command, &what);
  } else if (holds_line(command) &&
             (command.piped_in || !command.redirects.empty())) {
    judge_lines(c, command, &what);
  } else if (name == "orv_number") {
    judge_numbers(c, command, &what);
  } else if (asks(c, command) || looks_up(command)) {
    for (size_t i = 1; i < command.words.size(); i++) {
      add_names(c, command, command.words[i], !command.negated, &what);
    }
  }
  return what;
}

// --- patterns ----------------------------------------------------------------

// Quotes and blanks are dropped, as only the shape of a pattern is asked for.
static std::vector<std::string> alternatives_of(const std::string &pattern)
{
  std::vector<std::string> all;
  std::string part;
  for (const char c : pattern + "|") {
    if (c == '|') {
      all.push_back(part);
      part.clear();
    } else if (strchr(" '\"\\\n", c) == nullptr) {
      part += c;
    }
  }
  return all;
}

// Its arm is for what is refused; the value is right in those behind it.
// Whether the pattern takes what holds a wrong character: *[!0-9]*.
bool takes_wrong(const std::string &pattern)
{
  return pattern.find("[!") != std::string::npos ||
         pattern.find("[^") != std::string::npos;
}

bool takes_all(const std::string &pattern)
{
  const std::vector<std::string> all = alternatives_of(pattern);
  return std::find(all.begin(), all.end(), "*") != all.end();
}

// Whether the patterns ask only which of the page's lines it is, as new_name=*
// does: whatever stands behind was not looked at.
bool asks_which_line(const bash_command &command)
{
  bool lines = false;
  for (const std::string &pattern : command.patterns) {
    for (const std::string &part : alternatives_of(pattern)) {
      if (part == "*") {
        continue;
      }
      if (!starts_with(part, "new_") || part.back() != '*' ||
          part.find('[') != std::string::npos) {
        return false;
      }
      lines = true;
    }
  }
  return lines;
}
