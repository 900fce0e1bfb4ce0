// What scripts let others see: secrets in the list of processes or a log, text
// that a message would expand.

#include <string.h>

#include <algorithm>

#include "flow.h"
#include "sinks.h"
#include "text.h"

// --- secrets -----------------------------------------------------------------

// ${orv[psk]} is a secret by its subscript, $psk by its name.  In
// ${orv[psk$row]} the name is what stands before the row.
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

// ${#psk} is a number and ${psk:+set} a word of the script: neither shows the
// secret.
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

// hash=$(openssl passwd -6 -stdin <<<"$password") is made from a secret and is
// what may be shown.
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

// A parameter is known by its function and number, as in "set_key::1", so that
// what is called with a secret has one under another name.  The library's
// functions are left out: they are no part of the script, and what they do with
// a secret is known.  True if something was added, since that may lead further.
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

// A function may stand behind its call and call others, so all commands are
// looked at again until nothing new carries a secret.
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

// They run in the shell's own process: `ps` and /proc show arguments of
// programs only.  A function of the script is such a command as well; what it
// calls in turn is judged with its parameters.
// Commands of bash itself, whose arguments nobody sees.
static bool is_internal(const context &c, const std::string &name)
{
  static const word_set builtins = {
      "",      ":",     "[",       "test",     "echo",    "printf",   "read",
      "local", "unset", "declare", "export",   "typeset", "readonly", "return",
      "exit",  "set",   "shift",   "eval",     ".",       "source",   "let",
      "true",  "false", "mapfile", "readarray"};
  return builtins.count(name) != 0 || c.functions.count(name) != 0 ||
         starts_with(name, "orv_");
}

// By the path, so that `echo "$psk" >>/var/log/x.log` counts although echo is
// internal.
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

// Here-strings are redirections and no words: `prog <<<"$psk"` is the way that
// the message proposes.  One finding a command is enough.
static void check_arguments(const context &c, const script &s,
                            const carriers &secrets,
                            const bash_command &command, findings *found)
{
  const std::string &name = first_word(command);
  // A log is reported for internal commands as well, since what is written
  // there stays and is read by others than those who may see the settings.
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

// --- messages ----------------------------------------------------------------

// A test is no excuse here: it seldom looks for "$", and orv_error costs
// nothing.
// Whether the expansion holds what a request chose, looked at or not.
static bool is_foreign(const context &c, const bash_command &command,
                       const bash_expansion &expansion)
{
  return c.input.count(scoped(c, command.function, expansion.name)) != 0 &&
         !expansion.length;
}

// The name of a network, a line of a log or an answer from the network is
// written by strangers: an access point called $N:HTTP_COOKIE$ would show it.
// "$(<file" is a read without a command.
// Whether the word holds what a command prints that reads others' texts.
static bool quotes_others(const bash_word &word)
{
  static const word_set readers = {
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

// Whether read gives the variable a line of a file or of a command's output. A
// here-string is a text of the script's own, which is looked at by its name.
static bool reads_others(const context &c, const bash_command &command,
                         const std::string &name)
{
  const std::vector<bash_word> &words = command.words;
  return first_word(command) == "read" &&
         (command.redirected_in || command.piped_in) &&
         std::none_of(command.redirects.begin(), command.redirects.end(),
                      [](const bash_redirect &redirect) {
                        return redirect.op == "<<<";
                      }) &&
         std::any_of(words.begin() + 1, words.end(),
                     [&](const bash_word &word) {
                       return scoped(c, command.function, word.plain) == name;
                     });
}

// With 2>&1 a program's complaint is in the value, which mostly quotes what it
// was given.
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
    if (reads_others(c, giving, name)) {
      return true;
    }
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

// A line of a message may stand behind others in one text.
static bool begins_message(const std::string &text)
{
  return starts_with(text, "error_") ||
         text.find("\\nerror_") != std::string::npos ||
         text.find("\nerror_") != std::string::npos;
}

// Output that goes elsewhere than to the page is no message: a file, a pipe, a
// substitution.
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
    message |= begins_message(word.plain);
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
    // What echo prints is one line, and the words behind the format of
    // printf 'error_x=%s\n' "$text" belong to it; those of '%s\n' do not.
    message &= name == "echo" || begins_message(command.words[1].plain);
  }
}

// --- patterns ----------------------------------------------------------------

// The first word that is no option is the expression, and all others are files.
// An option with a value of its own, such as -e, makes that value the first
// word, which is right as well.
// What grep is given first is an expression, unless it says -F.
static void check_pattern(const context &c, const script &s,
                          const bash_command &command, findings *found)
{
  static const word_set programs = {"grep", "egrep", "zgrep"};
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

// Of the script alone: what it sources is looked at when its own turn comes,
// and would else be reported once for each that sources it.
void check_leaks(const context &c, const script &s, findings *found)
{
  const carriers secrets = find_carriers(c);
  for (const bash_command &command : s.code.commands) {
    check_arguments(c, s, secrets, command, found);
    check_message(c, s, command, found);
    check_pattern(c, s, command, found);
  }
}
