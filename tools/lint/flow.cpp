// Where a request's values go in a script.
//
// A value of the request is followed from where it comes in (standard input,
// the argument that is the sub-item, what orv_read has filled) through
// assignments and calls.  A variable that is compared with a pattern or handed
// to a function that decides on something counts as judged wherever it is used.

#include "flow.h"

#include <algorithm>
#include <ctype.h>
#include <string.h>

#include "judged.h"
#include "page_values.h"
#include "text.h"

// $1, $2, $@: those of the function, or of the script outside of any.
static bool is_parameter(const std::string &name)
{
  return !name.empty() && (isdigit(static_cast<unsigned char>(name[0])) != 0 ||
                           name == "@" || name == "*");
}

// The name with the function that it belongs to.
// A name that no function declares by `local` is the script's own wherever it
// is set.  That bash lets a called function see its caller's locals is left
// aside.
std::string scoped(const context &c, const std::string &function,
                   const std::string &name)
{
  const std::string own = function + "::" + name;
  return is_parameter(name) || c.locals.count(own) != 0 ? own : "::" + name;
}

const std::string &first_word(const bash_command &command)
{
  static const std::string none;
  return command.kind == BASH_SIMPLE && !command.words.empty()
             ? command.words[0].plain
             : none;
}

bool has_substitution(const bash_word &word)
{
  size_t at = word.text.find("$(");
  while (at != std::string::npos && word.text.compare(at, 3, "$((") == 0) {
    at = word.text.find("$(", at + 2);
  }
  return at != std::string::npos || word.text.find('`') != std::string::npos;
}

// Arithmetic without names, $((2 + 3)), is computed too.
bool is_literal(const bash_word &word)
{
  return word.expansions.empty() &&
         word.text.find_first_of("$`") == std::string::npos;
}

// orv["port$row"] and orv[port${row}] are one element, and a test of one must
// be found for the other.  Braces with an operator stay: ${row%x} is another
// value.
// "${row}" is "$row", and quotes in a subscript change nothing.
std::string full_name(const bash_expansion &expansion)
{
  const std::string &written = expansion.subscript;
  if (written.empty() || written.find_first_of("\"'{") == std::string::npos) {
    return written.empty() ? expansion.name
                           : expansion.name + "[" + written + "]";
  }
  std::string subscript;
  const bool plain = written.find_first_of("#%/:-+?=,^@") == std::string::npos;
  for (const char c : written) {
    if (strchr(plain ? "\"'{}" : "\"'", c) == nullptr) {
      subscript += c;
    }
  }
  return expansion.name + "[" + subscript + "]";
}

// --- what comes from a request -----------------------------------------------

// ${x//[!a-z]/} leaves none but the letters, ${x@Q} quotes what a shell would
// act on, and ${x:+set} is a text of the script.
// Takes away all but plain characters.
static bool cleans(const std::string &rest)
{
  return rest.find("[!") != std::string::npos ||
         rest.find("[^") != std::string::npos || starts_with(rest, "@Q") ||
         rest == "+" || starts_with(rest, ":+") || starts_with(rest, "+");
}

// Commands stand in vectors that do not change while they are looked at, so the
// address tells the script.
const script *owner_of(const context &c, const bash_command &command,
                       size_t *index)
{
  for (const script *s : c.files) {
    const std::vector<bash_command> &all = s->code.commands;
    if (!all.empty() && &command >= all.data() &&
        &command < all.data() + all.size()) {
      *index = static_cast<size_t>(&command - all.data());
      return s;
    }
  }
  return nullptr;
}

// What a test says of ${orv[a]} it does not say of ${orv[b]}, so the name with
// its subscript is asked for.  ${line%%=*} may have been looked at by itself.
// Whether the expansion brings in a value that nothing has looked at.
bool is_input(const context &c, const bash_command &command,
              const bash_expansion &expansion)
{
  if (expansion.length || cleans(expansion.rest)) {
    return false;
  }
  const std::string name = scoped(c, command.function, expansion.name);
  if (c.input.count(name) == 0) {
    return false;
  }
  const std::string all = scoped(c, command.function, full_name(expansion));
  return !is_judged(c, command, all) &&
         !(starts_with(expansion.rest, NAME_PART) &&
           is_judged(c, command, all + NAME_PART)) &&
         !(expansion.subscript.empty() && is_judged(c, command, name));
}

const bash_expansion *input_of(const context &c, const bash_command &command,
                               const bash_word &word)
{
  for (const bash_expansion &expansion : word.expansions) {
    if (is_input(c, command, expansion)) {
      return &expansion;
    }
  }
  return nullptr;
}

// A broad net on purpose: of what root runs, a value too many is compared once
// more, and a value too few is believed.
// Whether the text names the settings, or what loads them.
bool names_store(const std::string &text)
{
  return text.find("orv-store") != std::string::npos ||
         text.find("ORV_STORE") != std::string::npos ||
         text.find("orv_load") != std::string::npos ||
         text.find("/state/") != std::string::npos ||
         text.find("ORV_STATE/") != std::string::npos ||
         text.find(" load ") != std::string::npos;
}

// The file that the command, or the loop that it begins, reads; NULL for what
// comes another way.
// `while read -r line; do ...; done <FILE`: the redirection stands at the end
// of the loop, behind all commands of its body.
static const bash_redirect *file_of(const context &c,
                                    const bash_command &command)
{
  size_t at = 0;
  const script *s = owner_of(c, command, &at);
  for (; s != nullptr && at < s->code.commands.size(); at++) {
    const bash_command &end = s->code.commands[at];
    const bool own = &end == &command ||
                     (end.kind == BASH_BLOCK && end.branch == command.branch);
    for (const bash_redirect &redirect : end.redirects) {
      if (own && redirect.op == "<") {
        return &redirect;
      }
    }
    if (end.kind == BASH_BLOCK && own) {
      return nullptr;
    }
  }
  return nullptr;
}

// A file that a script reads is the device's, unless root's program reads what
// the forms have stored.  That may come through a pipe as well.
// Whether the command reads the script's own input.
static bool reads_input(const context &c, const bash_command &command)
{
  for (const bash_redirect &redirect : command.redirects) {
    if (redirect.op == "<<<") {
      return input_of(c, command, redirect.target) != nullptr;
    }
  }
  if (c.stored) {
    const bash_redirect *file = file_of(c, command);
    return file == nullptr || names_store(file->target.text);
  }
  return !command.redirected_in && !command.piped_in;
}

static bool add_input(context *c, const bash_command &command,
                      const std::string &name)
{
  return c->input.insert(scoped(*c, command.function, name)).second;
}

// Whether the next word is the value of the last option in this one: of
// read -rt 5, not of read -rt5.
static bool takes_next(const std::string &options, const char *with_value)
{
  const size_t at = options.find_first_of(with_value, 1);
  return at != std::string::npos && at + 1 == options.size();
}

// The variables that read, mapfile and the like fill.
static bool follow_reading(context *c, const bash_command &command)
{
  // The name behind -a is filled like the others, so it is no option's value.
  static const word_set readers = {"read", "mapfile", "readarray"};
  const char *with_value =
      first_word(command) == "read" ? "dinNptu" : "dnOsuCc";
  if (readers.count(first_word(command)) == 0 || !reads_input(*c, command)) {
    return false;
  }
  bool more = false;
  for (size_t i = 1; i < command.words.size(); i++) {
    const std::string &word = command.words[i].plain;
    if (word[0] == '-' && word.size() > 1) {
      i += takes_next(word, with_value) ? 1 : 0;
    } else if (command.words[i].expansions.empty()) {
      more |= add_input(c, command, word.substr(0, word.find('[')));
    }
  }
  return more;
}

// Spelt as they are mostly written; a script that reads it in another way has
// values that are not followed.
// The whole of standard input as one value.
static bool reads_all(const std::string &value)
{
  for (const char *all :
       {"$(cat)", "$(</dev/stdin)", "$(< /dev/stdin)", "$(cat -)", "`cat`"}) {
    if (value.find(all) != std::string::npos) {
      return true;
    }
  }
  return false;
}

// $(orv-store load ...), by itself or by a function that asks it.
static bool takes_stored(const context &c, const std::string &value)
{
  const size_t start = value.find("$(");
  return c.stored && start != std::string::npos &&
         (names_store(value) ||
          c.functions.count(first_word(value.substr(start + 2))) != 0);
}

// Only "%s" hands on the text; "%d" makes a number of it.
// printf -v NAME FORMAT VALUE...
static bool follow_printf(context *c, const bash_command &command)
{
  const std::vector<bash_word> &words = command.words;
  if (first_word(command) != "printf" || words.size() < 5 ||
      words[1].plain != "-v" || !words[2].expansions.empty() ||
      words[3].plain.find("%s") == std::string::npos) {
    return false;
  }
  return std::any_of(words.begin() + 4, words.end(),
                     [&](const bash_word &word) {
                       return input_of(*c, command, word) != nullptr;
                     }) &&
         add_input(c, command, words[2].plain);
}

// A variable made of input is input.
// What was looked at before is no input any more, and neither is its copy.  The
// variable of a `for` gets each word of its list.
static bool follow_assignments(context *c, const bash_command &command)
{
  bool more = false;
  for (const bash_assignment &assignment : command.assignments) {
    bool input = input_of(*c, command, assignment.value) != nullptr ||
                 reads_all(assignment.value.text) ||
                 takes_stored(*c, assignment.value.text) ||
                 captures_input(*c, command, assignment.value);
    for (const bash_word &element : assignment.elements) {
      input |= input_of(*c, command, element) != nullptr;
    }
    if (input) {
      more |= add_input(c, command, assignment.name);
    }
  }
  if (command.kind == BASH_FOR && !command.words.empty()) {
    for (size_t i = 1; i < command.words.size(); i++) {
      if (input_of(*c, command, command.words[i]) != nullptr ||
          reads_all(command.words[i].text)) {
        more |= add_input(c, command, command.words[0].plain);
      }
    }
  }
  return more;
}

// With ([0-9]+) a group can hold digits alone.
// An expression that lets anything into the groups of BASH_REMATCH.
static bool is_loose(const std::string &expression)
{
  return expression.find(".*") != std::string::npos ||
         expression.find(".+") != std::string::npos;
}

// What an expression such as (.*) lets through is input still.
static bool follow_match(context *c, const bash_command &command)
{
  if (command.kind != BASH_TEST) {
    return false;
  }
  for (size_t i = 1; i + 1 < command.words.size(); i++) {
    if (command.words[i].text != "=~" ||
        !is_loose(command.words[i + 1].plain)) {
      continue;
    }
    for (const bash_expansion &expansion : command.words[i - 1].expansions) {
      if (c->input.count(scoped(*c, command.function, expansion.name)) != 0) {
        return c->input.insert("::BASH_REMATCH").second;
      }
    }
  }
  return false;
}

// In `g x "$@"` the caller's first is the second of g.
// "$@" hands on all arguments as they are, from the parameter `first` on.
static bool follow_all(context *c, const bash_command &command,
                       const std::string &name, size_t first)
{
  bool more = false;
  for (size_t i = 1; i < 10; i++) {
    if (c->input.count(command.function + "::" + std::to_string(i)) != 0) {
      more |=
          c->input.insert(name + "::" + std::to_string(first + i - 1)).second;
      c->input.insert(name + "::@");
    }
  }
  return more;
}

// The library's own functions are left out: they evaluate nothing of what they
// are given.
// The parameters of a function that is called with a request's values.
static bool follow_call(context *c, const bash_command &command)
{
  const std::string &name = first_word(command);
  if (name == "orv_read" || (c->stored && name == "orv_load")) {
    return c->input.insert("::orv").second;
  }
  if (c->functions.count(name) == 0 || starts_with(name, "orv_")) {
    return false;
  }
  bool more = false;
  for (size_t i = 1; i < command.words.size(); i++) {
    if (command.words[i].plain == "$@") {
      more |= follow_all(c, command, name, i);
    } else if (input_of(*c, command, command.words[i]) != nullptr) {
      more |= c->input.insert(name + "::" + std::to_string(i)).second;
      c->input.insert(name + "::@");
    }
  }
  return more;
}

// Sets only grow, so it comes to an end.
// Until nothing new is reached: functions may call each other in any order.
static void follow_input(context *c)
{
  bool more = true;
  while (more) {
    more = false;
    for (const script *s : c->files) {
      for (const bash_command &command : s->code.commands) {
        more |= follow_reading(c, command) || follow_match(c, command);
        more |= follow_assignments(c, command) || follow_printf(c, command);
        more |= follow_call(c, command);
      }
    }
  }
}

// The order matters in both: which names are local decides what a judgement is
// about, and only what nothing has judged is followed on as input.
context follow_stored(const device &dev, const script &s)
{
  context c = {dev, {&s}, {}, {}, {}, {}, {}, {"orv", "orv_was", "orv_label"},
               {},  true};
  collect_declared(&c);
  collect_judged(&c);
  follow_input(&c);
  return c;
}

context follow_values(const device &dev, const std::string &script_name)
{
  context c = {dev, {},   dev.library, {},
               {},  {},   {},          {"orv", "orv_was", "orv_label"},
               {},  false};
  for (const std::string &name : with_sources(dev, script_name)) {
    c.files.push_back(&dev.scripts.at(name));
  }
  collect_declared(&c);
  collect_judged(&c);
  add_page_values(&c, script_name);
  follow_input(&c);
  return c;
}
