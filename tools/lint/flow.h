// The values of a request as they go through a script.

#ifndef LINT_FLOW_H
#define LINT_FLOW_H

#include "device.h"

// What a command or a branch does for the commands behind it.
enum way {
  STAYS,   // nothing
  REPORTS, // a message, or a variable that says so: they run all the same
  RETURNS, // they do not run, and those of other functions do
  LEAVES,  // they do not run
};

constexpr size_t TO_THE_END = static_cast<size_t>(-1);

// Where a value has been looked at: commands of a script, those of one branch.
struct judged_place {
  const script *s; // NULL: wherever it is used
  std::string function;
  int branch; // -1: any
  size_t from;
  size_t to;
  size_t test; // that says so
  way wrong;   // what comes of a value that is not right
};

// A script with the files that it sources: they share variables and functions.
struct context {
  const device &dev;
  std::vector<const script *> files;
  std::set<std::string> functions;
  std::set<std::string> locals; // "function::name"
  std::set<std::string> input;  // scoped names that hold a request's values
  std::map<std::string, std::vector<judged_place>> judged; // by scoped names
  // The page's numbers, which may begin with 0; whether with a sign or 0x, too.
  std::map<std::string, bool> padded;
  std::set<std::string> maps; // arrays whose subscripts are text
  // Scoped names that are declared with -i or -n: what they are given is
  // evaluated.
  std::set<std::string> evaluating;
  // Whether it is root's, and what it reads is what forms have stored.
  bool stored = false;
  // Functions that are called only where there was no message.
  std::set<std::string> calm = {};
  // Variables that are given another value as it is and nothing else.
  std::map<std::string, std::string> copies = {};
  // The calls of its own functions.
  std::map<std::string, std::vector<const bash_command *>> calls = {};
};

// What is judged, beside values: that the script has given no message.
constexpr char NO_MESSAGE[] = "!";

// The name with the function that it belongs to.
std::string scoped(const context &c, const std::string &function,
                   const std::string &name);
// The command's name, "" for what is no simple command.
const std::string &first_word(const bash_command &command);
// Whether a command writes a part of the word: $(...) or `...`.
bool has_substitution(const bash_word &word);
// Whether nothing of the word is known to the run alone.
bool is_literal(const bash_word &word);
// Whether `set`, or the script's first line, turns on an option of bash.
bool turns_on(const bash_command &command, char letter,
              const std::string &name);
bool first_line_turns_on(const script &s, char letter, const std::string &name);
// The name with its subscript as it is written.
std::string full_name(const bash_expansion &expansion);
// Whether the value of that scoped name was looked at where the command stands.
bool is_judged(const context &c, const bash_command &command,
               const std::string &name);
// Whether the command runs only if a test, the script's command `since` or one
// behind it, has seen that there was no message.
bool is_calm(const context &c, const bash_command &command, size_t since);
// Whether the expansion brings in a value that nothing has looked at.
bool is_input(const context &c, const bash_command &command,
              const bash_expansion &expansion);
// The first such expansion of the word, NULL without one.
const bash_expansion *input_of(const context &c, const bash_command &command,
                               const bash_word &word);
// The script that the command is one of, and its number there; NULL when it is
// none of these.
const script *owner_of(const context &c, const bash_command &command,
                       size_t *index);
// Whether the value is what $(...) takes from input, as it is.
bool captures_input(const context &c, const bash_command &command,
                    const bash_word &value);
// What functions and attributes belong to which names.
void collect_declared(context *c);
// All that is known of the script and what it sources.
context follow_values(const device &dev, const std::string &script_name);
// The same of a program that root runs: of what forms have stored.
context follow_stored(const device &dev, const script &s);
// Whether the text names the settings, or what loads them.
bool names_store(const std::string &text);

constexpr char NAME_PART[] = "%%="; // ${line%%=*}

#endif
