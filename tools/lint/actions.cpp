// What root runs for forms: actions, and the programs that convert settings.
// What forms have stored is a stranger's to them.

#include <algorithm>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include "rules.h"
#include "sinks.h"
#include "text.h"

static bool is_action(const script &s)
{
  return starts_with(s.name, "actions/");
}

// --- the file ----------------------------------------------------------------

static std::string base_name(const script &s)
{
  return s.name.substr(s.name.find('/') + 1);
}

// What an action's name consists of. orv-store and the service refuse any other
// before they look for the file.
static bool is_valid_name(const std::string &name)
{
  return name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_-") ==
         std::string::npos;
}

// Whether the file is a link that is one on the device as well: what installs
// the folder resolves those that lead out of it. An absolute target is a place
// on the device, which need not exist here.
static bool stays_link(const device &dev, const script &s)
{
  const std::string path = dev.dir + "/" + s.name;
  char target[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), target, sizeof target);
  if (length <= 0) {
    return false;
  }
  char whole[PATH_MAX];
  char folder[PATH_MAX];
  return target[0] == '/' || (realpath(path.c_str(), whole) != nullptr &&
                              realpath(dev.dir.c_str(), folder) != nullptr &&
                              starts_with(whole, std::string(folder) + "/"));
}

// A README or a file of functions may lie beside the programs, so a wrong name
// is reported only where a form or a file of settings has its first part. The
// service follows no link: it must know whose the file is that root runs.
static void check_file(const device &dev, const script &s, findings *found)
{
  if (is_action(s) && stays_link(dev, s)) {
    report(found, *s.file, 1, 1, "script-mode",
           "an action must be a file and no link: it is refused");
    return;
  }
  const std::string name = base_name(s);
  const std::string stem = name.substr(0, name.find('.'));
  const bool action = is_action(s);
  const bool of_form =
      dev.forms.count(lower(stem)) + dev.defaults.count(stem) != 0;
  if (action ? !is_valid_name(name) && of_form : name != stem && of_form) {
    report(found, *s.file, 1, 1, "script-mode",
           action ? "no form can ask for " + in_quotes(s.name) +
                        ": an action's name consists of a-z, 0-9, _ and -"
                  : "nothing runs " + in_quotes(s.name) +
                        ": the program has the name of the settings, " +
                        in_quotes("migrate/" + stem));
  } else if (!s.executable && (!action || is_valid_name(name))) {
    report(found, *s.file, 1, 1, "script-mode",
           "Cannot execute " + in_quotes(s.name) + ": chmod +x is missing");
  }
}

// --- what it is given --------------------------------------------------------

// Behind `set -- ...` they are what the action has put there.
static bool sets_arguments(const script &s)
{
  return std::any_of(s.code.commands.begin(), s.code.commands.end(),
                     [](const bash_command &command) {
                       return first_word(command) == "set" &&
                              command.words.size() > 1 &&
                              command.words[1].plain == "--";
                     });
}

// ${1:-eth0} allows for an argument that is missing.
static const bash_expansion *argument_of(const bash_word &word)
{
  const auto at = std::find_if(
      word.expansions.begin(), word.expansions.end(),
      [](const bash_expansion &e) {
        return e.rest.empty() &&
               (e.name == "@" || e.name == "*" ||
                (e.name >= "1" && e.name <= "9" && e.name.size() == 1));
      });
  return at != word.expansions.end() ? &*at : nullptr;
}

// An action gets no arguments. A request is its name and nothing else, since
// everybody who may write to the service's pipe can make one. In a function $1
// is the caller's word; one finding tells the others, too.
static void check_given(const script &s, findings *found)
{
  if (!is_action(s) || sets_arguments(s)) {
    return;
  }
  for (const bash_command &command : s.code.commands) {
    if (!command.function.empty()) {
      continue;
    }
    const bash_expansion *argument = nullptr;
    for (const bash_word &word : command.words) {
      argument = argument == nullptr ? argument_of(word) : argument;
    }
    for (const bash_assignment &assignment : command.assignments) {
      argument = argument == nullptr ? argument_of(assignment.value) : argument;
    }
    if (argument != nullptr) {
      report(found, *s.file, argument->line, argument->column,
             "script-argument",
             in_quotes("$" + argument->name) +
                 " is empty: an action gets no arguments; it loads what was"
                 " stored");
      return;
    }
  }
}

// --- what it does with stored values -----------------------------------------

// Commands that only look at a value, or hand it to the next one. A program
// that is not here may change the device by what it is given: hostname, ip, or
// one of the maker's.
static bool only_looks(const std::string &name)
{
  static const word_set names = {
      "",        ":",    "[",     "test",     "read",     "local",  "declare",
      "export",  "set",  "shift", "return",   "exit",     "unset",  "readonly",
      "typeset", "grep", "egrep", "sed",      "awk",      "tr",     "cut",
      "wc",      "head", "tail",  "logger",   "expr",     "ipcalc", "cmp",
      "mapfile", "eval", "sort",  "basename", "dirname",  "getent", "printf",
      "echo",    "true", "false", "jq",       "sha256sum"};
  return names.count(name) != 0;
}

// Whether what the command prints goes to a file, or to a program that acts.
// Otherwise echo and printf show the value to the page that waits, and that
// does nothing. The list has the next command of a pipe directly behind this
// one.
static bool prints_on(const script &s, const bash_command &command)
{
  const size_t next = static_cast<size_t>(index_of(s, command)) + 1;
  const bool file =
      std::any_of(command.redirects.begin(), command.redirects.end(),
                  [](const bash_redirect &redirect) {
                    return redirect.op.find('>') != std::string::npos &&
                           redirect.op.find('&') == std::string::npos &&
                           redirect.target.plain != "/dev/null";
                  });
  return file || (command.piped && next < s.code.commands.size() &&
                  !only_looks(run_command(s.code.commands[next])));
}

// Not from the word 0: that a value is run as a command is a finding by itself.
static const bash_expansion *used_input(const context &c,
                                        const bash_command &command)
{
  for (size_t i = 1; i < command.words.size(); i++) {
    const bash_expansion *input = input_of(c, command, command.words[i]);
    if (input != nullptr) {
      return input;
    }
  }
  return nullptr;
}

// In a function of the action the value is followed to the command that uses
// it.
static void check_used(const sink &at, std::set<std::string> *reported)
{
  const std::string name = run_command(at.command);
  const bool prints = name == "echo" || name == "printf";
  if (at.command.kind != BASH_SIMPLE || at.c.functions.count(name) != 0 ||
      (only_looks(name) && !(prints && prints_on(at.s, at.command)))) {
    return;
  }
  const bash_expansion *input = used_input(at.c, at.command);
  if (input != nullptr && reported->insert(full_name(*input)).second) {
    report_at(at, *input, "action-value",
              shown(*input) + " is used as it was stored, and whoever can"
                              " store can have stored anything: compare it"
                              " with an expression first");
  }
}

// Whether the word of the test is compared, and not only asked for.
// [ -n "$name" ] and [[ $name ]] say nothing of what stands in it;
// [ "$name" = lan ] does.
// Only the left side counts: the right one is what it is compared with.
static bool is_compared(const bash_command &command, size_t i)
{
  return command.kind == BASH_CASE ||
         (i + 1 < command.words.size() &&
          command.words[i + 1].plain.find_first_of("=!<>-") == 0 &&
          (i == 0 || (command.words[i - 1].plain != "-n" &&
                      command.words[i - 1].plain != "-z")));
}

// The values that a case or a test compares with anything. With anything, since
// what follows from a test is judged where bash would evaluate the value. Here
// it is enough that somebody has thought of it.
static std::set<std::string> compared_values(const script &s)
{
  std::set<std::string> names;
  for (const bash_command &command : s.code.commands) {
    const std::string &name = first_word(command);
    if (command.kind != BASH_CASE && command.kind != BASH_TEST && name != "[" &&
        name != "test") {
      continue;
    }
    for (size_t i = 0; i < command.words.size(); i++) {
      for (const bash_expansion &e : command.words[i].expansions) {
        if (is_compared(command, i)) {
          names.insert(full_name(e));
        }
      }
    }
  }
  return names;
}

// The folder of the settings, as paths name it. ${ORV_STATE%/*} is the folder
// above, which holds other things as well.
static bool is_state_path(const std::string &path)
{
  return path.find("larkspur/state/") != std::string::npos ||
         path.find("$ORV_STATE/") != std::string::npos ||
         path.find("${ORV_STATE}/") != std::string::npos ||
         path.find("${ORV_STATE:-") != std::string::npos;
}

// An unfinished save, and who may put a file there, are known to orv-store. A
// test, as with -e, takes nothing out of it. A program of migrate/ is given the
// settings as its input.
static void check_state(const script &s, const bash_command &command,
                        findings *found)
{
  std::vector<const bash_word *> paths;
  for (const bash_word &word : command.words) {
    paths.push_back(&word);
  }
  for (const bash_redirect &redirect : command.redirects) {
    paths.push_back(&redirect.target);
  }
  const std::string &name = first_word(command);
  for (const bash_word *path : paths) {
    if (is_action(s) && is_state_path(path->plain) && name != "[" &&
        name != "test" && command.kind == BASH_SIMPLE) {
      report(found, *s.file, path->line, path->column, "action-value",
             path->text + " is a file of the settings, which whoever stores"
                          " can replace: load it by \"orv-store load\", which"
                          " gives up root's rights first");
      return;
    }
  }
}

// An action that loads nothing has no stored value to misuse; a program of
// migrate/ always has. What bash evaluates comes first: that finding says more,
// and one is enough for a command and for a value.
static void check_values(const device &dev, const script &s, findings *found)
{
  if (is_action(s) && !names_store(s.code.code)) {
    return;
  }
  const context c = follow_stored(dev, s);
  std::set<std::string> reported = compared_values(s); // each value once
  for (const bash_command &command : s.code.commands) {
    const size_t before = found->size();
    check_command_sinks({c, s, command, found});
    if (found->size() == before) {
      check_state(s, command, found);
    }
    if (is_action(s) && found->size() == before) {
      check_used({c, s, command, found}, &reported);
    }
    if (found->size() > before) {
      const bash_expansion *input = used_input(c, command);
      reported.insert(input != nullptr ? full_name(*input) : "");
    }
  }
}

void check_actions(const device &dev, findings *found)
{
  for (const auto &entry : dev.programs) {
    check_file(dev, entry.second, found);
    check_given(entry.second, found);
    check_values(dev, entry.second, found);
  }
}
