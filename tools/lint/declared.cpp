// What scripts declare of their variables: which belong to a function, which
// are arrays with text as subscripts, and which evaluate what they are given.

#include "flow.h"

#include <algorithm>

#include "text.h"

// set -ue -o pipefail ARGUMENT: options are in front, and "o" takes the next
// word.  set -- begins with the arguments.
static bool turns_on(const std::vector<std::string> &words, char letter,
                     const std::string &name)
{
  bool on = false;
  for (size_t i = 1; i < words.size(); i++) {
    const std::string &word = words[i];
    if (word.size() < 2 || (word[0] != '-' && word[0] != '+') || word == "--") {
      break;
    }
    const bool named = word.back() == 'o' && i + 1 < words.size();
    if (word.find(letter) != std::string::npos ||
        (named && words[i + 1] == name)) {
      on = word[0] == '-';
    }
    i += named ? 1 : 0;
  }
  return on;
}

bool turns_on(const bash_command &command, char letter, const std::string &name)
{
  std::vector<std::string> words;
  if (first_word(command) == "set") {
    for (const bash_word &word : command.words) {
      words.push_back(word.plain);
    }
  }
  return turns_on(words, letter, name);
}

// #!/bin/bash -e: the kernel hands on what stands behind the program as one
// word.
bool first_line_turns_on(const script &s, char letter, const std::string &name)
{
  const std::string first = s.file->lines.empty() ? "" : s.file->lines[0];
  std::vector<std::string> words =
      split_words(first.substr(std::min<size_t>(2, first.size())));
  if (words.size() > 2 && words[1] == "-S") { // of /usr/bin/env
    words.erase(words.begin(), words.begin() + 2);
  }
  return starts_with(first, "#!") && turns_on(words, letter, name);
}

// In a function, readonly and export leave the variable whose it was.
static bool declares(const bash_command &command)
{
  static const word_set words = {"local", "declare", "typeset"};
  return words.count(first_word(command)) != 0;
}

// Whether one of the options has such a letter. Options may be joined: -gA.
static bool has_option(const bash_command &command, const char *letters)
{
  return std::any_of(
      command.words.begin(), command.words.end(), [&](const bash_word &word) {
        return word.plain[0] == '-' &&
               word.plain.find_first_of(letters) != std::string::npos;
      });
}

// The name of the builtin and its options are among them, which harms nobody:
// no variable is called so.
static std::set<std::string> declared_names(const bash_command &command)
{
  std::set<std::string> names;
  for (const bash_assignment &assignment : command.assignments) {
    names.insert(assignment.name);
  }
  for (const bash_word &word : command.words) {
    names.insert(word.plain);
  }
  return names;
}

// A name that a function declares is its own there, but not with -g. A map
// counts in the whole script: its subscripts are text, and a map taken for an
// ordinary array would be a false alarm in every place that uses it.
static void add_locals(context *c, const bash_command &command)
{
  if (!declares(command)) {
    return;
  }
  const std::set<std::string> names = declared_names(command);
  if (has_option(command, "A")) {
    c->maps.insert(names.begin(), names.end());
  }
  for (const std::string &name : names) {
    if (!command.function.empty() && !has_option(command, "g")) {
      c->locals.insert(command.function + "::" + name);
    }
  }
}

// With -i whatever the variable is given later is computed, with -n it is taken
// for a name: both run what stands in a[$(reboot)]. So the attribute stays with
// the name, wherever the values come from.
static void add_attributes(context *c, const bash_command &command)
{
  if (declares(command) && has_option(command, "in")) {
    for (const std::string &name : declared_names(command)) {
      c->evaluating.insert(scoped(*c, command.function, name));
    }
  }
}

// The scoped name of the value that the word is, "" when it is anything else.
// Only then a test of one says the same of the other: new=${orv[mtu]} makes
// $new as good as checked, but ${orv[mtu]%.*} is another value.
static std::string copied_value(const context &c, const bash_command &command,
                                const bash_word &value)
{
  if (value.expansions.size() != 1 || !value.expansions[0].rest.empty() ||
      value.expansions[0].indirect || value.expansions[0].length) {
    return "";
  }
  const std::string &text = value.plain;
  const std::string &name = value.expansions[0].name;
  const bool whole = text == "$" + name || text == "${" + name + "}" ||
                     (starts_with(text, "${" + name + "[") &&
                      text.find('}') == text.size() - 1);
  return whole ? scoped(c, command.function, full_name(value.expansions[0]))
               : "";
}

// A second value makes a variable no copy. It stays here as "" until the end,
// or a third assignment would make it a copy again.
static void collect_copies(context *c)
{
  for (const script *s : c->files) {
    for (const bash_command &command : s->code.commands) {
      for (const bash_assignment &assignment : command.assignments) {
        const std::string value =
            assignment.subscript.empty()
                ? copied_value(*c, command, assignment.value)
                : "";
        const auto row = c->copies.insert(
            {scoped(*c, command.function, assignment.name), value});
        if (!row.second) {
          row.first->second.clear();
        }
      }
    }
  }
  for (auto row = c->copies.begin(); row != c->copies.end();) {
    row = row->second.empty() ? c->copies.erase(row) : std::next(row);
  }
}

// Whether the word is run: also one that orv_background and the like are given.
// The text of `trap clean_up EXIT` may be no more than a function's name.
static bool is_run(const bash_command &command, size_t i)
{
  static const word_set runners = {"orv_background", "orv_after_page",
                                   "orv_guard",      "orv_guard_boot",
                                   "trap",           "command"};
  return command.kind == BASH_SIMPLE &&
         (i == 0 || runners.count(command.words[0].plain) != 0);
}

// All names first: a file that is sourced calls the script's functions as well
// as the other way round.
static void collect_calls(context *c)
{
  std::set<std::string> own;
  for (const script *s : c->files) {
    own.insert(s->code.functions.begin(), s->code.functions.end());
  }
  for (const script *s : c->files) {
    for (const bash_command &command : s->code.commands) {
      for (size_t i = 0; i < command.words.size() && is_run(command, i); i++) {
        if (own.count(command.words[i].plain) != 0) {
          c->calls[command.words[i].plain].push_back(&command);
        }
      }
    }
  }
}

void collect_declared(context *c)
{
  for (const script *s : c->files) {
    c->functions.insert(s->code.functions.begin(), s->code.functions.end());
    for (const bash_command &command : s->code.commands) {
      add_locals(c, command);
    }
  }
  // Only now it is known which names are locals, and scoped() needs to know
  // that.
  for (const script *s : c->files) {
    for (const bash_command &command : s->code.commands) {
      add_attributes(c, command);
    }
  }
  collect_copies(c);
  collect_calls(c);
}

// --- what $(...) takes -------------------------------------------------------

// Commands that print what they are given, or parts of it. Any other makes
// something new of it: a hash, a number of lines, the name of a file.
static bool hands_on(const std::string &name)
{
  static const word_set names = {
      "echo", "printf", "cat",      "head",    "tail", "cut",  "tr",
      "sed",  "awk",    "basename", "dirname", "sort", "uniq", "xargs"};
  return names.count(name) != 0;
}

// Whether it leaves out all but plain characters. tr -cd 0-9 and sed
// 's/[^0-9]//g' are how that is written. Which characters are left is not
// asked.
static bool cleans(const bash_command &command)
{
  return std::any_of(
      command.words.begin(), command.words.end(), [&](const bash_word &word) {
        return word.plain.find("[^") != std::string::npos ||
               (first_word(command) == "tr" && word.plain[0] == '-' &&
                word.plain.find('c') != std::string::npos);
      });
}

// Of the redirections only <<< brings the value itself; what < brings is a file
// of the device.
static bool takes_input(const context &c, const bash_command &command)
{
  const auto is_input = [&](const bash_word &word) {
    return input_of(c, command, word) != nullptr;
  };
  return std::any_of(command.words.begin(), command.words.end(), is_input) ||
         std::any_of(command.redirects.begin(), command.redirects.end(),
                     [&](const bash_redirect &redirect) {
                       return redirect.op == "<<<" && is_input(redirect.target);
                     });
}

// The commands of a substitution stand in front of the one that it is in. So
// they are gone through backwards, to the first that begins in front of the
// value. One command that makes something new, or cleans, speaks for all of
// them: in a pipe it hardly matters where it stands.
bool captures_input(const context &c, const bash_command &command,
                    const bash_word &value)
{
  size_t index = 0;
  const script *s =
      has_substitution(value) ? owner_of(c, command, &index) : nullptr;
  bool input = false;
  while (s != nullptr && index > 0) {
    const bash_command &inner = s->code.commands[--index];
    if (inner.substitution <= command.substitution ||
        std::make_pair(inner.line, inner.column) <
            std::make_pair(value.line, value.column)) {
      break;
    }
    if (!hands_on(first_word(inner)) || cleans(inner)) {
      return false;
    }
    input |= takes_input(c, inner);
  }
  return input;
}
