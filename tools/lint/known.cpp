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
  // The word of ${1:-x} counts only where there is no value, and a name without
  // one is not in `known`.
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

// An arm such as --check | --write) is kept as one text, whose blanks belong to
// no alternative.  The extra "|" ends the last of them, so that there is one
// place where a part is compared.
bool matches_pattern(const std::string &pattern, const std::string &value)
{
  std::string part;
  for (const char c : pattern + "|") {
    if (c != '|') {
      part += c;
      continue;
    }
    part.erase(0, part.find_first_not_of(" \t\n"));
    part.erase(part.find_last_not_of(" \t\n") + 1);
    if (fnmatch(without_quotes(part).c_str(), value.c_str(), 0) == 0) {
      return true;
    }
    part.clear();
  }
  return false;
}

typedef std::vector<const bash_word *> test_words;

// Numeric comparisons, -f and =~ answer MAYBE: they ask for what is not known
// here, and both branches then count as taken.
// One comparison, or what asks whether a value is empty.
static truth eval_primary(const frame &at, test_words words)
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
    const bool same = matches_pattern(right, left);
    result = op == "==" || op == "=" ? truth_of(same)
             : op == "!="            ? truth_of(!same)
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
    all = std::min(all, eval_primary(at, words));
    words.clear();
    if (text == "||") {
      any = std::max(any, all);
      all = YES;
    }
  }
  return any;
}

truth result_of(const frame &at, const bash_command &command)
{
  const std::string &name = first_word(command);
  truth result = MAYBE;
  if (command.kind == BASH_TEST || name == "[" || name == "test") {
    result = eval_test(at, command);
  } else if (name == "true" || name == ":" ||
             (command.words.empty() && command.kind == BASH_SIMPLE)) {
    // An assignment alone succeeds, as : does.  x=$(command) has the status of
    // the command, which is not told apart here.
    result = YES;
  } else if (name == "false") {
    result = NO;
  }
  return command.negated ? opposite(result) : result;
}
