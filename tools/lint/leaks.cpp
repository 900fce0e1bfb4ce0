// What scripts let others see or change: secrets in the list of processes or a
// log, files that everybody can write, text that a message would expand.

#include <string.h>

#include <algorithm>

#include "flow.h"
#include "sinks.h"
#include "text.h"

// --- secrets -----------------------------------------------------------------

// The name that the expansion stands for: that of a value, or its own.
static std::string value_name(const bash_expansion &expansion)
{
  if (expansion.name != "orv" && expansion.name != "orv_was") {
    return expansion.name;
  }
  return expansion.subscript.substr(0, expansion.subscript.find('$'));
}

// Variables and parameters that are given a secret, by their scoped names.
typedef std::set<std::string> carriers;

static bool is_value(const bash_expansion &expansion)
{
  return !expansion.length && !starts_with(expansion.rest, "+") &&
         !starts_with(expansion.rest, ":+");
}

static bool holds_secret(const context &c, const carriers &all,
                         const bash_command &command,
                         const bash_expansion &expansion)
{
  return is_value(expansion) &&
         (is_secret(value_name(expansion)) ||
          all.count(scoped(c, command.function, expansion.name)) != 0);
}

// The secret as it is and nothing of it that was made by another command.
static bool hands_on(const context &c, const carriers &all,
                     const bash_command &command, const bash_word &word)
{
  return word.text.find("$(") == std::string::npos &&
         std::any_of(word.expansions.begin(), word.expansions.end(),
                     [&](const bash_expansion &expansion) {
                       return holds_secret(c, all, command, expansion);
                     });
}

static bool follow_secrets(const context &c, const bash_command &command,
                           carriers *all)
{
  bool more = false;
  for (const bash_assignment &assignment : command.assignments) {
    if (assignment.subscript.empty() &&
        hands_on(c, *all, command, assignment.value)) {
      more |= all->insert(scoped(c, command.function, assignment.name)).second;
    }
  }
  const std::string &name = first_word(command);
  for (size_t i = 1; i < command.words.size(); i++) {
    if (c.functions.count(name) != 0 && !starts_with(name, "orv_") &&
        hands_on(c, *all, command, command.words[i])) {
      more |= all->insert(name + "::" + std::to_string(i)).second;
    }
  }
  return more;
}

static carriers find_carriers(const context &c)
{
  carriers all;
  for (bool more = true; more;) {
    more = false;
    for (const script *s : c.files) {
      for (const bash_command &command : s->code.commands) {
        more |= follow_secrets(c, command, &all);
      }
    }
  }
  return all;
}

// Commands of bash itself, whose arguments nobody sees.
static bool is_internal(const context &c, const std::string &name)
{
  static const std::set<std::string> builtins = {
      "",      ":",     "[",       "test",     "echo",    "printf",   "read",
      "local", "unset", "declare", "export",   "typeset", "readonly", "return",
      "exit",  "set",   "shift",   "eval",     ".",       "source",   "let",
      "true",  "false", "mapfile", "readarray"};
  return builtins.count(name) != 0 || c.functions.count(name) != 0 ||
         starts_with(name, "orv_");
}

// Whether the command adds to a log.
static bool writes_log(const bash_command &command)
{
  return std::any_of(command.redirects.begin(), command.redirects.end(),
                     [](const bash_redirect &redirect) {
                       const std::string &path = redirect.target.plain;
                       return redirect.op.find('>') != std::string::npos &&
                              (starts_with(path, "/var/log/") ||
                               ends_with(path, ".log") ||
                               ends_with(path, "/log"));
                     });
}

static void check_arguments(const context &c, const script &s,
                            const carriers &secrets,
                            const bash_command &command, findings *found)
{
  const std::string &name = first_word(command);
  const bool log =
      name == "logger" || name == "systemd-cat" || writes_log(command);
  if (command.kind != BASH_SIMPLE || (is_internal(c, name) && !log)) {
    return;
  }
  for (const bash_word &word : command.words) {
    for (const bash_expansion &expansion : word.expansions) {
      const std::string key = value_name(expansion);
      if (holds_secret(c, secrets, command, expansion)) {
        report(found, *s.file, expansion.line, expansion.column,
               "secret-argument",
               in_quotes(key) +
                   (log ? " is a secret, and the log keeps it"
                        : " is a secret, and everyone on the device can see "
                          "the arguments of " +
                              in_quotes(name) + "; pass it on standard input"));
        return;
      }
    }
  }
}

// --- files -------------------------------------------------------------------

static bool is_shared_folder(const std::string &path)
{
  return starts_with(path, "/tmp/") || starts_with(path, "/var/tmp/");
}

static void report_shared(const script &s, const bash_word &word,
                          findings *found)
{
  report(found, *s.file, word.line, word.column, "tmp-file",
         word.text + " has a predictable name in a folder where anyone can "
                     "create it first, as a link; use mktemp");
}

// Variables that are given one value that stands there; "" for another.
typedef std::map<std::string, std::string> constants;

static constants find_constants(const script &s)
{
  constants all;
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      const bool first = all.count(assignment.name) == 0;
      all[assignment.name] = first && assignment.value.expansions.empty()
                                 ? assignment.value.plain
                                 : "";
    }
  }
  return all;
}

// The word with what such a variable in front of it stands for.
static std::string whole_path(const constants &all, const bash_word &word)
{
  if (word.expansions.empty()) {
    return word.plain;
  }
  const std::string &name = word.expansions[0].name;
  const auto value = all.find(name);
  const bool first = starts_with(word.plain, "$" + name) ||
                     starts_with(word.plain, "${" + name);
  return first && value != all.end() ? value->second + word.plain : word.plain;
}

static void check_shared(const script &s, const constants &all,
                         const bash_command &command, findings *found)
{
  static const std::set<std::string> makers = {"touch", "tee", "mkdir", "cp",
                                               "mv"};
  for (const bash_redirect &redirect : command.redirects) {
    if (redirect.op.find('>') != std::string::npos &&
        is_shared_folder(whole_path(all, redirect.target))) {
      report_shared(s, redirect.target, found);
    }
  }
  if (makers.count(first_word(command)) != 0 && command.words.size() > 1 &&
      is_shared_folder(whole_path(all, command.words.back()))) {
    report_shared(s, command.words.back(), found);
  }
}

// Whether a mode gives everybody the right to write.
static bool is_open_mode(const std::string &mode)
{
  if (mode.find_first_not_of("01234567") == std::string::npos) {
    return mode.size() >= 3 && strchr("2367", mode.back()) != nullptr;
  }
  const size_t plus = mode.find('+');
  return plus != std::string::npos &&
         mode.find('w', plus) != std::string::npos &&
         (plus == 0 || mode.find_first_of("oa") < plus);
}

static void check_modes(const script &s, const bash_command &command,
                        findings *found)
{
  const std::string &name = first_word(command);
  for (size_t i = 1; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    const bool open =
        name == "chmod"
            ? word.plain[0] != '-' && is_open_mode(word.plain)
            : name == "umask" && (word.plain == "0" || word.plain == "000" ||
                                  word.plain == "0000");
    if (open) {
      report(found, *s.file, word.line, word.column, "world-writable",
             "this makes files writable by everyone; only the web server needs "
             "to write them");
    }
    if (name == "chmod" && word.plain[0] != '-') {
      return; // files follow
    }
  }
}

// --- messages ----------------------------------------------------------------

// Whether the expansion holds what a request chose, looked at or not.
static bool is_foreign(const context &c, const bash_command &command,
                       const bash_expansion &expansion)
{
  return c.input.count(scoped(c, command.function, expansion.name)) != 0 &&
         !expansion.length;
}

// Whether the word holds what a command prints that reads others' texts.
static bool quotes_others(const bash_word &word)
{
  static const std::set<std::string> readers = {
      "cat",        "tail",   "head",     "grep",  "sed",     "awk",
      "journalctl", "dmesg",  "logread",  "curl",  "wget",    "<",
      "dig",        "host",   "nslookup", "nc",    "ssh",     "arp",
      "iw",         "iwlist", "nmap",     "nmcli", "snmpget", "ping"};
  const size_t start = word.text.find("$(");
  if (start == std::string::npos) {
    return false;
  }
  const std::string command = first_word(word.text.substr(start + 2));
  return readers.count(command) != 0 || starts_with(command, "<");
}

// Whether such a command, or one's complaint, gives the variable its value, and
// nothing has looked at that here.
static bool holds_others(const context &c, const script &s,
                         const bash_command &command,
                         const bash_expansion &expansion)
{
  const std::string name = scoped(c, command.function, expansion.name);
  if (expansion.length || !expansion.subscript.empty() ||
      is_judged(c, command, name)) {
    return false;
  }
  for (const bash_command &giving : s.code.commands) {
    for (const bash_assignment &assignment : giving.assignments) {
      if (scoped(c, giving.function, assignment.name) == name &&
          (quotes_others(assignment.value) ||
           (assignment.value.text.find("$(") != std::string::npos &&
            assignment.value.text.find("2>&1") != std::string::npos))) {
        return true;
      }
    }
  }
  return false;
}

static const char EXPANDED[] =
    ", and messages are expanded: $N:NAME$ in it shows the environment; use "
    "orv_error or orv_msg, which escape it";

// A message made by hand is expanded: "$N:NAME$" in it shows the environment.
static void check_message(const context &c, const script &s,
                          const bash_command &command, findings *found)
{
  const std::string &name = first_word(command);
  if ((name != "echo" && name != "printf") || command.redirected_out ||
      command.piped || command.substitution > 0) {
    return;
  }
  bool message = false;
  for (size_t i = 1; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    message |= starts_with(word.plain, "error_");
    if (message && quotes_others(word)) {
      report(found, *s.file, word.line, word.column, "message-text",
             std::string("this text comes from elsewhere") + EXPANDED);
      return;
    }
    for (const bash_expansion &expansion : word.expansions) {
      const bool foreign = message && is_foreign(c, command, expansion);
      if (foreign || (message && holds_others(c, s, command, expansion))) {
        report(found, *s.file, expansion.line, expansion.column, "message-text",
               shown(expansion) + " comes from " +
                   (foreign ? "the request" : "elsewhere") + EXPANDED);
        return;
      }
    }
    message &= name == "printf"; // the values of a format
  }
}

// --- patterns ----------------------------------------------------------------

// What grep is given first is an expression, unless it says -F.
static void check_pattern(const context &c, const script &s,
                          const bash_command &command, findings *found)
{
  static const std::set<std::string> programs = {"grep", "egrep", "zgrep"};
  if (programs.count(first_word(command)) == 0) {
    return;
  }
  for (size_t i = 1; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    const bool option = word.plain.size() > 1 && word.plain[0] == '-';
    if (option && (word.plain.find('F') != std::string::npos ||
                   word.plain == "--fixed-strings")) {
      return;
    }
    if (option) {
      continue;
    }
    const bash_expansion *input = input_of(c, command, word);
    if (input != nullptr) {
      report(found, *s.file, input->line, input->column, "input-pattern",
             shown(*input) +
                 " comes from the request and is a regular expression here; "
                 "use grep -qxF --");
    }
    return;
  }
}

void check_leaks(const context &c, const script &s, findings *found)
{
  const carriers secrets = find_carriers(c);
  const constants all = find_constants(s);
  for (const bash_command &command : s.code.commands) {
    check_arguments(c, s, secrets, command, found);
    check_shared(s, all, command, found);
    check_modes(s, command, found);
    check_message(c, s, command, found);
    check_pattern(c, s, command, found);
  }
}
