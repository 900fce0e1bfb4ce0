// What is known of a script's values, and what its tests say.

#include "known.h"

#include <fnmatch.h>

#include <algorithm>

#include "flow.h"
#include "tasks.h"
#include "text.h"

truth opposite(truth t)
{
  return t == MAYBE ? MAYBE : t == YES ? NO : YES;
}

truth truth_of(bool b)
{
  return b ? YES : NO;
}

// --- values ------------------------------------------------------------------

// Only what is certain may be answered: on it the walk through a task decides
// which branches do not run, and what was left out wrongly would be called
// missing in a script that has it.
// The value of one expansion; false when it is not known.
static bool value_of(const frame &at, const bash_expansion &expansion,
                     std::string *value)
{
  const auto known = at.known.find(expansion.name);
  if (known == at.known.end() || expansion.indirect || expansion.length ||
      !expansion.subscript.empty()) {
    return false;
  }
  *value = known->second;
  const std::string &rest = expansion.rest;
  // The word of ${1-x} counts only where there is no value, and a name without
  // one is not in `known`; that of ${1:-x} also in place of a blank one.
  if (starts_with(rest, ":-") && value->empty()) {
    *value = rest.substr(2);
    return value->find_first_of("$`\"'\\") == std::string::npos;
  }
  if (rest.empty() || rest[0] == '-' || starts_with(rest, ":-")) {
    return true;
  }
  // ${1#--} is how scripts make "read" of "--read".  With a pattern in it, how
  // much is cut depends on more than the text, and every other operator is left
  // alone.
  const std::string start =
      rest.substr(std::min(rest.find_first_not_of('#'), rest.size()));
  if (rest[0] != '#' || start.find_first_of("*?[$") != std::string::npos) {
    return false;
  }
  value->erase(0, starts_with(*value, start) ? start.size() : 0);
  return true;
}

// Each expansion is found in the text by how it is spelt, since the reader
// keeps no place of it there; one that is not found so makes the word unknown.
// So does a substitution: what $(command) prints stands nowhere.
bool value_of(const frame &at, const bash_word &word, std::string *value)
{
  *value = word.plain;
  for (const bash_expansion &expansion : word.expansions) {
    std::string part;
    if (!value_of(at, expansion, &part)) {
      return false;
    }
    const std::string bare = "$" + expansion.name;
    const std::string braced = "${" + expansion.name + expansion.rest + "}";
    const size_t place = std::min(value->find(braced), value->find(bare));
    if (place == std::string::npos) {
      return false;
    }
    value->replace(
        place, (*value)[place + 1] == '{' ? braced.size() : bare.size(), part);
  }
  return value->find("$(") == std::string::npos &&
         value->find('`') == std::string::npos;
}

// --- tests -------------------------------------------------------------------

// A pattern is kept as it is written, since quotes decide in bash what of it is
// literal: "*" matches only a star, * everything.  For fnmatch they are
// dropped; a quoted star is so rare in a list of tasks that it may count as a
// pattern.
static std::string without_quotes(const std::string &text)
{
  std::string plain;
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      i++;
      plain += text[i];
    } else if (text[i] != '"' && text[i] != '\'') {
      plain += text[i];
    }
  }
  return plain;
}

// An arm is kept as it is written: blanks belong to none of its patterns, and a
// backslash in front of a line end neither.
std::vector<std::string> patterns_of(const std::string &arm)
{
  std::vector<std::string> patterns = {""};
  int depth = 0; // of @(a|b)
  for (const char c : arm) {
    depth += c == '(' ? 1 : 0;
    depth -= c == ')' ? 1 : 0;
    if (c == '|' && depth <= 0) {
      patterns.emplace_back();
    } else {
      patterns.back() += c;
    }
  }
  for (std::string &pattern : patterns) {
    pattern.erase(0, pattern.find_first_not_of(" \t\n\\"));
    pattern.erase(pattern.find_last_not_of(" \t\n\\") + 1);
  }
  return patterns;
}

bool matches_pattern(const std::string &arm, const std::string &value)
{
  const std::vector<std::string> patterns = patterns_of(arm);
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string &pattern) {
                       return fnmatch(without_quotes(pattern).c_str(),
                                      value.c_str(), FNM_EXTMATCH) == 0;
                     });
}

// Whether the value is what stands behind == in [[ ]]: a pattern, or where it
// is quoted a text.  A word with both is left open.
static truth is_equal(const bash_word &word, const std::string &right,
                      const std::string &left)
{
  const bool quoted = word.text.find_first_of("\"'\\") != std::string::npos;
  const bool pattern = right.find_first_of("*?[(\\") != std::string::npos;
  return quoted && pattern ? MAYBE
         : pattern
             ? truth_of(fnmatch(right.c_str(), left.c_str(), FNM_EXTMATCH) == 0)
             : truth_of(left == right);
}

typedef std::vector<const bash_word *> test_words;

// Numeric comparisons, -f and =~ answer MAYBE: they ask for what is not known
// here, and both branches then count as taken.
// One comparison, or what asks whether a value is empty.
static truth eval_primary(const frame &at, test_words words, bool patterns)
{
  bool turned = false;
  while (!words.empty() && words[0]->text == "!") {
    turned = !turned;
    words.erase(words.begin());
  }
  truth result = MAYBE;
  std::string left;
  std::string right;
  if (words.size() == 3 && value_of(at, *words[0], &left) &&
      value_of(at, *words[2], &right)) {
    const std::string &op = words[1]->text;
    const truth same = patterns ? is_equal(*words[2], right, left)
                                : truth_of(left == right); // [ a = "*" ]
    result = op == "==" || op == "=" ? same
             : op == "!="            ? opposite(same)
                                     : MAYBE;
  } else if (words.size() == 2 && value_of(at, *words[1], &left)) {
    const std::string &op = words[0]->text;
    result = op == "-n"   ? truth_of(!left.empty())
             : op == "-z" ? truth_of(left.empty())
                          : MAYBE;
  }
  return turned ? opposite(result) : result;
}

// That is so within [[ ]]: [[ a == a || a == b && a == c ]] succeeds.  Parts
// are joined by the least and the greatest answer, so that one MAYBE stays
// MAYBE unless another part decides.  With parentheses the order is another
// one, and the whole is left open.  The "||" that is put behind the last word
// ends the last part.
// && binds closer than ||.
static truth eval_test(const frame &at, const bash_command &command)
{
  const size_t skip = command.kind == BASH_TEST ? 0 : 1;
  const size_t end = command.words.size() -
                     (skip != 0 && command.words.back().text == "]" ? 1 : 0);
  truth any = NO;
  truth all = YES;
  test_words words;
  for (size_t i = skip; i <= end; i++) {
    const std::string text = i < end ? command.words[i].text : "||";
    if (text.find_first_of("()") == 0) {
      return MAYBE;
    }
    if (text != "&&" && text != "||") {
      words.push_back(&command.words[i]);
      continue;
    }
    all = std::min(all, eval_primary(at, words, skip == 0));
    words.clear();
    if (text == "||") {
      any = std::max(any, all);
      all = YES;
    }
  }
  return any;
}

// x=$(command) has the status of the command, and >file may fail.
static bool can_fail(const bash_command &command)
{
  return !command.redirects.empty() ||
         std::any_of(command.assignments.begin(), command.assignments.end(),
                     [](const bash_assignment &assignment) {
                       return has_substitution(assignment.value) ||
                              std::any_of(assignment.elements.begin(),
                                          assignment.elements.end(),
                                          has_substitution);
                     });
}

truth result_of(const frame &at, const bash_command &command)
{
  const std::string &name = first_word(command);
  truth result = MAYBE;
  if (command.kind == BASH_TEST || name == "[" || name == "test") {
    result = eval_test(at, command);
  } else if (name == "true" || name == ":" ||
             (command.words.empty() && command.kind == BASH_SIMPLE)) {
    // An assignment alone succeeds, as : does.
    result = can_fail(command) ? MAYBE : YES;
  } else if (name == "false") {
    result = NO;
  }
  return command.negated ? opposite(result) : result;
}
