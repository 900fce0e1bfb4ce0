// What scripts give the functions of the library.
//
// The words are judged as they are written. What an expansion brings is known
// to the run alone, so a word with one is judged only where its place or the
// number of words says enough.

#include "arguments.h"

#include <algorithm>
#include <unistd.h>

#include "expressions.h"
#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// --- how many words ----------------------------------------------------------

// The words behind the name; `takes` ends the sentence that begins with it.
struct signature {
  const char *name;
  size_t least;
  size_t most; // 0: any number
  const char *takes;
};

// Functions that are not here take any words or, as orv_end does, none: what
// those are given is ignored and does no harm.
static const signature signatures[] = {
    {"orv_act", 1, 2, "an action and seconds"},
    {"orv_after_page", 2, 0, "seconds and a command"},
    {"orv_background", 1, 0, "a command"},
    {"orv_error", 2, 3, "a name, a text and a row's number"},
    {"orv_fatal", 1, 1, "a text, one word"},
    {"orv_guard", 1, 0, "seconds and a command"},
    {"orv_history", 1, 1, "the number of lines"},
    {"orv_load", 1, 0, "files"},
    {"orv_msg", 1, 1, "a text, one word"},
    {"orv_number", 1, 0, "names"},
    {"orv_one_of", 2, 0, "a value and what it may be"},
    {"orv_pack", 1, 0, "columns"},
    {"orv_put", 2, 2, "a name and a value, each a word"},
    {"orv_read", 1, 0, "names"},
    {"orv_rows", 1, 0, "columns"},
    {"orv_secret", 1, 0, "names"},
    {"orv_show", 1, 0, "names"},
    {"orv_show_hash", 1, 2, "a name and a field"},
    {"orv_show_secrets", 1, 0, "names"},
    {"orv_store", 2, 0, "a file and names"},
    {"orv_take_hash", 2, 3, "a name, a pattern and a field"},
    {"orv_tick", 1, 0, "names"},
};

static const signature *signature_of(const std::string &name)
{
  const auto row =
      std::find_if(std::begin(signatures), std::end(signatures),
                   [&](const signature &one) { return name == one.name; });
  return row != std::end(signatures) ? row : nullptr;
}

// Whether the word is one word, whatever stands in it. Without quotes a value
// may be no word or several, "$@" is as many as there are arguments, and mtu*
// as many as files fit.
static bool is_one_word(const bash_word &word)
{
  return word.text.find_first_of("*?{@") == std::string::npos
             ? is_literal(word) || word.text[0] == '"' || word.text[0] == '\''
             : word.text[0] == '\'' ||
                   (word.text[0] == '"' &&
                    word.text.find('@') == std::string::npos);
}

// A word too many is mostly a text without quotes: orv_msg Enter a name.
// orv_put "${pair[@]}" may be right, so one word whose number is not known
// makes the whole call uncertain.
static void check_count(const library_call &c, const signature &takes)
{
  const std::vector<bash_word> &words = c.command.words;
  const size_t count = words.size() - 1;
  const bool exact = std::all_of(words.begin() + 1, words.end(), is_one_word);
  const bool more = takes.most != 0 && count > takes.most && exact;
  if (more || (count < takes.least && exact)) {
    report_word(c, 0, in_quotes(takes.name) + " takes " + takes.takes);
  }
}

// A row is a number, whatever else is given last is a part of the text.
// orv_error mtu Too large puts "Too" beside a cell that no table has. That is a
// text of two words; of a longer one, the number of words has told it already.
static void check_row(const library_call &c)
{
  const std::vector<bash_word> &words = c.command.words;
  if (words.size() == 4 && is_literal(words[3]) &&
      words[3].plain.find_first_not_of("0123456789") != std::string::npos) {
    report_word(c, 3, "the row must be a number, and the text one quoted word");
  }
}

// --- what they are -----------------------------------------------------------

// The action's program must be there, under a name that may be asked for.
static void check_act(const library_call &c, size_t word)
{
  const std::vector<bash_word> &words = c.command.words;
  if (words.size() <= word || !is_literal(words[word])) {
    return;
  }
  const std::string &name = words[word].plain;
  // A folder without actions/ is a part of a device, and says nothing about
  // those that it has.
  const std::string dir = c.dev.dir + "/actions";
  if (name.size() > 40 ||
      name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                             "0123456789_-") != std::string::npos) {
    report_word(c, word,
                in_quotes(name) +
                    " is not a valid action name; use a-z, 0-9, _ and -");
  } else if (access(dir.c_str(), X_OK) == 0 &&
             access((dir + "/" + name).c_str(), X_OK) != 0) {
    report_word(c, word,
                "the device has no action \"actions/" + name +
                    "\" that can be executed");
  }
}

// The longest that a page waits for an action. orv-store refuses a longer time,
// and the action is not requested at all.
static constexpr long ACT_SECONDS_MAX = 600;

static void check_act_seconds(const library_call &c, size_t word)
{
  const std::vector<bash_word> &words = c.command.words;
  if (words.size() <= word || !is_literal(words[word])) {
    return;
  }
  const std::string &seconds = words[word].plain;
  // With fewer than nine digits strtol cannot overflow, also where a long has
  // 32 bits.
  const bool number =
      !seconds.empty() &&
      seconds.find_first_not_of("0123456789") == std::string::npos &&
      seconds.size() < 9;
  const long value = number ? strtol(seconds.c_str(), nullptr, 10) : 0;
  if (value < 1 || value > ACT_SECONDS_MAX) {
    report_word(c, word,
                "\"orv_act\" waits 1 to " + std::to_string(ACT_SECONDS_MAX) +
                    " seconds, and " + in_quotes(seconds) +
                    " is no such number");
  }
}

// The seconds come first; an action may be what is called later. orv_guard and
// orv_after_page run orv_act by its name, so its words are judged as if they
// stood alone. sleep, which counts for orv_after_page, takes 0.5; orv_guard
// refuses everything but whole seconds without a 0 in front.
static void check_seconds(const library_call &c)
{
  const std::vector<bash_word> &words = c.command.words;
  if (words.size() > 2 && words[2].plain == "orv_act") {
    check_act(c, 3);
    check_act_seconds(c, 4);
  }
  if (words.size() < 2 || !is_literal(words[1])) {
    return;
  }
  const std::string &seconds = words[1].plain;
  const bool guards = words[0].plain == "orv_guard"; // counts whole ones
  if (seconds.find_first_not_of(guards ? "0123456789" : "0123456789.") !=
          std::string::npos ||
      (guards && seconds[0] == '0')) {
    report_word(c, 1,
                in_quotes(words[0].plain) + " takes its seconds first, and " +
                    in_quotes(seconds) + " is no such number");
  }
}

// Whether none of the scripts that a form runs beside names it once more. A
// second mention may be the read task that reports it, or a test of the
// script's own; a beginning that an expansion goes on with may make the name,
// and counts as two. A script that no form runs has no page that takes
// anything.
static bool stands_once(const library_call &c, const std::string &name)
{
  const std::vector<const form *> &forms = forms_of(c.dev, c.s.name);
  return !forms.empty() &&
         std::all_of(forms.begin(), forms.end(), [&](const form *f) {
           int count = 0;
           for (const std::string &file : f->runs) {
             for (const std::string &stem : c.dev.scripts.at(file).stems) {
               count += starts_with(name, stem) ? 2 : 0; // "wait_$name"
             }
             const std::unordered_map<std::string, int> &counts =
                 c.dev.scripts.at(file).counts;
             const auto row = counts.find(name);
             count += row != counts.end() ? row->second : 0;
           }
           return count == 1;
         });
}

// Names that the page acts on: nothing else reports a misspelt one.
static void check_put(const library_call &c)
{
  static const std::set<std::string> page_names = {
      "always_submit", "live_seconds", "live_tell",
      "wait_restart",  "wait_address", "wait_confirm"};
  const std::vector<bash_word> &words = c.command.words;
  const std::string name = words.size() > 1 ? lower(words[1].plain) : "";
  const std::string near = nearest(name, page_names);
  if (!near.empty() && page_names.count(name) == 0 && name.size() > 8 &&
      stands_once(c, name)) {
    report_word(c, 1,
                "the page knows no " + in_quotes(name) + " (did you mean " +
                    in_quotes(near) + "?)");
  }
  // A blank one is what the read task reports, so that the page takes the
  // number later.
  static const std::set<std::string> seconds = {"live_seconds", "wait_restart",
                                                "wait_confirm"};
  if (seconds.count(name) != 0 && words.size() == 3 &&
      words[2].expansions.empty() &&
      words[2].plain.find_first_not_of("0123456789") != std::string::npos) {
    report_word(c, 2, in_quotes(name) + " is a number of seconds");
  }
  // A slash in ${address%/*} or in a command is none of the address.
  if (name == "wait_address" && words.size() == 3 &&
      words[2].plain.find('/') != std::string::npos &&
      words[2].text.find_first_of("{(`") == std::string::npos) {
    report_word(c, 2,
                "\"wait_address\" is an address, which a port can follow, and"
                " no URL");
  }
  // A page takes of these only what was reported when it was opened. The write
  // task alone prints one in vain.
  if (starts_with(name, "wait_") && page_names.count(name) != 0 &&
      stands_once(c, name)) {
    report_word(c, 1,
                "the read script must report " + in_quotes(name) +
                    " as well, blank, or the page does not take it");
  }
}

// The command is words, and no line for a shell. bash looks for a program that
// is called "logger -t port", blanks and all. What comes from a variable may be
// the path of one.
static void check_runner(const library_call &c, size_t at)
{
  if (at < c.command.words.size() && c.command.words[at].expansions.empty() &&
      c.command.words[at].plain.find(' ') != std::string::npos) {
    report_word(c, at,
                "no command is called " + in_quotes(c.command.words[at].plain) +
                    "; give the command and its arguments as separate words");
  }
}

// What the hash of a backup must match as a whole. The library puts ^( and )$
// around it, so anchors are not asked for. A hash begins with a dollar, as $6$
// does, and whoever writes that into the expression asks for the end of the
// text twice. No field has such a value, so the fault has other words here.
static void check_hash(const library_call &c)
{
  if (c.command.words.size() < 3 || !c.command.words[2].expansions.empty()) {
    return;
  }
  const bash_word &word = c.command.words[2];
  const expression_fault fault = expression_fault_of(word.plain);
  if (!fault.text.empty()) {
    report(c.found, *c.s.file, word.line, word.column, "regex-meaning",
           word.plain[fault.offset] == '$'
               ? "\"$\" means the end of the hash, so nothing can follow it;"
                 " write [$] for the character"
               : fault.text);
  }
}

// Each call is judged alone. In which order calls must come is judged by task,
// elsewhere: one call may serve several.
void check_arguments(const device &dev, findings *found)
{
  static const word_set without_marks = {"orv_rows",  "orv_pack", "orv_show",
                                         "orv_store", "orv_tick", "orv_secret"};
  static const std::map<std::string, void (*)(const library_call &)> checks = {
      {"orv_act",
       [](const library_call &c) {
         check_act(c, 1);
         check_act_seconds(c, 2);
       }},
      {"orv_error", check_row},
      {"orv_guard",
       [](const library_call &c) {
         check_seconds(c);
         check_runner(c, 2);
       }},
      {"orv_after_page",
       [](const library_call &c) {
         check_seconds(c);
         check_runner(c, 2);
       }},
      {"orv_background", [](const library_call &c) { check_runner(c, 1); }},
      {"orv_put", check_put},
      {"orv_one_of", check_one_of},
      {"orv_take_hash", check_hash},
      {"orv_pack", check_columns},
      {"orv_rows", [](const library_call &c) {
         check_rows(c);
         check_columns(c);
       }}};
  for (const auto &entry : dev.scripts) {
    for (const bash_command &command : entry.second.code.commands) {
      const std::string &name = first_word(command);
      if (!starts_with(name, "orv_")) {
        continue;
      }
      const library_call c = {dev, entry.second, command, found};
      const signature *takes = signature_of(name);
      if (takes != nullptr) {
        check_count(c, *takes);
        check_arrays(c);
      }
      if (without_marks.count(name) != 0) {
        check_marks(c);
      }
      const auto check = checks.find(name);
      if (check != checks.end()) {
        check->second(c);
      }
    }
  }
}
