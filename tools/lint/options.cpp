// Values that a program would take for options, since they can begin with "-"
// and stand where its options may.

#include "sinks.h"

#include <algorithm>
#include <string.h>

#include "text.h"

// Others are left alone, since "--" would be an argument for them: `test`,
// `expr` or a device's own program.  Those whose words are paths are reported
// for worse.
// Commands that take options and "--", beside those whose words are paths.
static bool takes_options(const std::string &name)
{
  static const word_set names = {
      "arping",   "curl",      "date", "dig",        "getent",  "host",
      "hostname", "id",        "kill", "logger",     "ls",      "mail",
      "nslookup", "passwd",    "ping", "ping6",      "scp",     "sort",
      "ssh",      "systemctl", "tar",  "traceroute", "useradd", "userdel",
      "usermod",  "wget"};
  return names.count(name) != 0;
}

// Whether the expression matches something that begins with "-".
// Only what is sure to begin with something else is let out: "^" with a letter,
// or with a set that has neither "-" nor is negated.  In [a-z-] and [-a-z] the
// minus is a character, in [a-z] it makes a range, and the range [ -~] has it.
static bool may_begin(const std::string &expression)
{
  const std::string atom = expression.substr(0, 2);
  if (atom != "^[") {
    return atom.size() < 2 || atom[0] != '^' ||
           strchr(".(-", atom[1]) != nullptr;
  }
  const size_t end = std::min(expression.find(']', 3), expression.size());
  const std::string in = expression.substr(2, end - 2);
  return in.empty() || in[0] == '^' || in[0] == '-' || in.back() == '-' ||
         in.find(" -") != std::string::npos;
}

// An address, a path or the name of a user never begins with "-".  A number
// may: "-5" passes `signed`.
// The same of a field's check.
static bool check_allows(const std::string &check)
{
  static const word_set never = {
      "ipaddr", "ipservice", "file",     "path",      "socket",
      "script", "directory", "username", "groupname", "email"};
  std::string text = starts_with(check, "nullok ") ? check.substr(7) : check;
  const std::string name = lower(first_word(text));
  if (!ends_with(name, "regex")) {
    return never.count(name) == 0;
  }
  text.erase(0, name.size());
  text.erase(0, text.find_first_not_of(' '));
  return may_begin(text);
}

// The item that the expansion is the value of, by its own name or that of a
// variable that was given it.
// The first variable of that name that is given a value of the page decides;
// two that are given different ones are rare.
static std::string item_of(const script &s, const bash_expansion &expansion)
{
  if (expansion.name == "orv") {
    return lower(expansion.subscript);
  }
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      const std::vector<bash_expansion> &given = assignment.value.expansions;
      if (assignment.name == expansion.name && given.size() == 1 &&
          given[0].name == "orv") {
        return lower(given[0].subscript);
      }
    }
  }
  return lower(expansion.name);
}

// Whether an item of the forms that run the script can hold such a value.
// A name that is no item's may hold anything, as a request can be made by hand.
// Cells may be unchecked behind a blank row, so they count as no item.  Choices
// of a list may begin with a minus on purpose.
static bool can_be_option(const sink &at, const bash_expansion &expansion)
{
  const std::string name = item_of(at.s, expansion);
  bool found = false;
  bool may = false;
  for (const form *f : forms_of(at.c.dev, at.s.name)) {
    for (const form_item &item : f->items) {
      if (lower(item.name) == name && item.table < 0) {
        const form_line *check = attribute(item, "check");
        found = true;
        may |= item.type != PT_TEXT_FIELD ||
               check_allows(check != nullptr ? check->text : "");
      }
    }
  }
  return !found || may;
}

// Of find the folders alone, which stand in front of the first test: "--" is no
// help there, and what -name is given is no option.
static void check_folders(const sink &at)
{
  static const word_set links = {"-H", "-L", "-P"};
  const std::vector<bash_word> &words = at.command.words;
  size_t i = 0;
  while (i < words.size() && words[i].plain != "find") {
    i++; // timeout 5 find
  }
  for (i++; i < words.size() &&
            (words[i].plain[0] != '-' || links.count(words[i].plain) != 0);
       i++) {
    const bash_expansion *input = input_of(at.c, at.command, words[i]);
    if (input != nullptr && input->quoted &&
        input->column - words[i].column < 2 && can_be_option(at, *input)) {
      report_at(at, *input, "input-option",
                shown(*input) +
                    " comes from the request and is a test of find where it "
                    "begins with \"-\"; put ./ before it");
      return;
    }
  }
}

// What stands behind a short option of these letters is its value for the
// common programs, as in `ping -c "$count"`.  Without quotes the value is
// reported for that, and behind other text in the word, "user=$x", it begins no
// word.
void check_options(const sink &at)
{
  const std::vector<bash_word> &words = at.command.words;
  if (at.c.stored || !takes_values(at.command)) {
    return;
  }
  const std::string program = run_command(at.command);
  if (program == "find") {
    check_folders(at);
  }
  if (!takes_options(program)) {
    return;
  }
  for (size_t i = 1; i < words.size() && words[i].plain != "--"; i++) {
    const bash_word &word = words[i];
    const std::string &before = words[i - 1].plain;
    const bool value = before.size() == 2 && before[0] == '-' &&
                       strchr("acdefgImnoOpstuwW", before[1]) != nullptr;
    const bash_expansion *input = input_of(at.c, at.command, word);
    if (input != nullptr && !value && input->quoted &&
        input->column - word.column < 2 && can_be_option(at, *input)) {
      report_at(at, *input, "input-option",
                shown(*input) +
                    " comes from the request and is an option where it begins"
                    " with \"-\"; put -- before it");
      return;
    }
  }
}
