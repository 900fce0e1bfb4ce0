// Which values a script looks at before it uses them.

#include <algorithm>
#include <string.h>

#include "flow.h"
#include "text.h"

// A value of an array is judged by its subscript as it is written.
static void judge(context *c, const bash_command &command,
                  const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    c->judged.insert(
        scoped(*c, command.function, expansion.name) +
        (expansion.subscript.empty() ? "" : "[" + expansion.subscript + "]"));
  }
}

// [[ -n $x ]] looks at nothing; a comparison does.
static bool compares(const bash_command &command)
{
  return std::any_of(command.words.begin(), command.words.end(),
                     [](const bash_word &word) {
                       return word.text == "==" || word.text == "!=" ||
                              word.text == "=" || word.text == "=~";
                     });
}

// What decides on a branch has looked at its words.
static std::vector<std::string> patterns_of(const bash_command &command)
{
  std::vector<std::string> patterns = command.patterns;
  for (size_t i = 1; i + 1 < command.words.size(); i++) {
    const std::string &op = command.words[i].text;
    if (op == "==" || op == "=" || op == "!=" || op == "=~") {
      patterns.push_back(command.words[i + 1].plain);
    }
  }
  return patterns;
}

// Whether the patterns ask only which of the page's lines it is, as new_name=*
// does: whatever stands behind was not looked at.  `named` becomes true when
// they name the variable.
static bool asks_which_line(const bash_command &command, bool *named)
{
  bool lines = false;
  *named = true;
  for (const std::string &pattern : patterns_of(command)) {
    std::string alternative;
    for (const char c : pattern + "|") {
      if (c != '|') {
        alternative +=
            strchr(" '\"\\\n", c) == nullptr ? std::string(1, c) : "";
        continue;
      }
      if (alternative != "*") {
        if (!starts_with(alternative, "new_") || alternative.back() != '*' ||
            alternative.find('[') != std::string::npos) {
          return false;
        }
        lines = true;
        *named &= alternative.find('=') != std::string::npos;
      }
      alternative.clear();
    }
  }
  return lines;
}

static void judge_names(context *c, const bash_command &command)
{
  for (const bash_word &word : command.words) {
    for (const bash_expansion &expansion : word.expansions) {
      c->judged.insert(scoped(*c, command.function, full_name(expansion)) +
                       NAME_PART);
    }
  }
}

// grep -qxF "$x" FILE compares with whole lines.
static bool looks_up(const bash_command &command)
{
  std::string options;
  for (const bash_word &word : command.words) {
    if (word.plain.size() > 1 && word.plain[0] == '-' && word.plain[1] != '-') {
      options += word.plain;
    }
  }
  return first_word(command) == "grep" &&
         options.find('x') != std::string::npos &&
         options.find('F') != std::string::npos;
}

// [[ ${list[$x]} ]] of an associative array asks whether it has that name.
static void judge_members(context *c, const bash_command &command)
{
  for (const bash_word &word : command.words) {
    for (size_t i = 0; i + 1 < word.expansions.size(); i++) {
      const bash_expansion &array = word.expansions[i];
      const bash_expansion &member = word.expansions[i + 1];
      if (c->maps.count(array.name) != 0 && array.name != "orv" &&
          array.subscript == "$" + member.name) {
        c->judged.insert(scoped(*c, command.function, member.name));
      }
    }
  }
}

void collect_judged(context *c)
{
  for (const script *s : c->files) {
    for (const bash_command &command : s->code.commands) {
      bool named;
      if (asks_which_line(command, &named)) {
        if (named) {
          judge_names(c, command);
        }
        continue;
      }
      const std::string &name = first_word(command);
      const bool asks = command.condition && c->functions.count(name) != 0;
      const bool tests = (name == "[" || name == "test") && compares(command);
      if (command.kind == BASH_TEST) {
        judge_members(c, command);
      }
      if (command.kind == BASH_CASE || asks || tests || looks_up(command) ||
          (command.kind == BASH_TEST && compares(command))) {
        for (const bash_word &word : command.words) {
          judge(c, command, word);
        }
      }
    }
  }
}
