// Numbers of the page that scripts compare in a way that suits texts, or plain
// decimals alone.

#include <algorithm>
#include <string.h>

#include "compared.h"
#include "flow.h"
#include "rules.h"
#include "script_names.h"
#include "text.h"

// What the page lets pass as the number.
struct page_number {
  bool known = false;  // every form of the script checks it as a number
  bool point = false;  // it may be 28.5
  bool hex = false;    // it may be 0x10
  bool blank = false;  // it may be left blank
  bool unsent = false; // it may be left out
};

// "name" of a word that is ${orv[name]}, of "${orv[name$row]}", or of a
// variable that holds it; "" of any other.
static std::string number_key(const compare_check &c, const bash_word &word)
{
  if (word.expansions.empty()) {
    return "";
  }
  const bash_expansion &e = word.expansions[0];
  if (e.name == "orv" && e.rest.empty() && !e.length &&
      word.plain == "${" + full_name(e) + "}") {
    return lower(e.subscript.substr(0, e.subscript.find('$')));
  }
  const auto holder = c.holders.find(e.name);
  return holder != c.holders.end() && word.plain == "$" + e.name
             ? lower(holder->second)
             : "";
}

static bool is_item(const form_item &item, const std::string &key)
{
  const std::string own = lower(item.name);
  return item.input && !own.empty() &&
         (own == key || (item.table >= 0 && own == without_digits(key)));
}

// `once`: an item that the form has twice, under an if and its else, is drawn
// in either case, and its value is sent.
static void add_number(const form_item &item, bool once, page_number *number)
{
  static const word_set kinds = {"decimal", "number", "signed", "real"};
  const form_line *check = attribute(item, "check");
  bool kind = false;
  for (const std::string &text :
       split_words(check != nullptr ? check->text : "")) {
    const std::string word = lower(text);
    kind |= kinds.count(word) != 0;
    number->point |= word == "real";
    number->hex |= word == "number";
    number->blank |= word == "nullok";
  }
  number->known &= kind;
  number->unsent |= once && !item.conditions.empty();
}

// With several forms each of them must check it as a number; what one of them
// lets pass may come.
static page_number number_of(const compare_check &c, const std::string &key)
{
  page_number number;
  bool first = true;
  for (const form *f : c.forms) {
    const auto is_this = [&](const form_item &item) {
      return is_item(item, key);
    };
    const auto count = std::count_if(f->items.begin(), f->items.end(), is_this);
    for (const form_item &item : f->items) {
      if (is_this(item)) {
        number.known |= first;
        first = false;
        add_number(item, count == 1, &number);
      }
    }
  }
  return number;
}

// --- as texts ----------------------------------------------------------------

// A number as people write it. A long one may be a date, one with a 0 before it
// a part of a time: as texts, those of the same length are in the right order.
static bool is_short_number(const std::string &text)
{
  return !text.empty() && text.size() <= 3 &&
         (text[0] != '0' || text.size() == 1) &&
         text.find_first_not_of("0123456789") == std::string::npos;
}

// A number on one side and a value on the other: two literals are a test that
// says nothing, but nothing wrong.
static bool are_numbers(const compare_check &c, const bash_word &left,
                        const bash_word &right)
{
  return (is_short_number(left.plain) && !right.expansions.empty()) ||
         (is_short_number(right.plain) && !left.expansions.empty()) ||
         number_of(c, number_key(c, left)).known ||
         number_of(c, number_key(c, right)).known;
}

// [[ 9 > 10 ]] holds, and in [ ] a backslash in front of the operator makes it
// the same.
static void check_order_of_texts(const compare_check &c,
                                 const bash_command &command)
{
  for (size_t i = 1; i + 1 < command.words.size(); i++) {
    const bash_word &op = command.words[i];
    if ((op.plain == "<" || op.plain == ">") &&
        are_numbers(c, command.words[i - 1], command.words[i + 1])) {
      report(c.found, *c.s.file, op.line, op.column, "number-text",
             in_quotes(op.plain) +
                 " compares texts here, and 9 is behind 10 then; use " +
                 (op.plain == "<" ? "-lt" : "-gt") + " in [ ]");
    }
  }
}

// [ 5 > 4 ] is a redirection to the file "4". It succeeds, and leaves the file
// behind. In `[ -n "$day" ] >/dev/null` the redirection stands behind the
// bracket and is meant.
static void check_redirected(const compare_check &c,
                             const bash_command &command)
{
  const bash_word &end = command.words.back();
  for (const bash_redirect &redirect : command.redirects) {
    const bash_word &file = redirect.target;
    const bool inside = file.line < end.line ||
                        (file.line == end.line && file.column < end.column);
    if (end.plain == "]" && inside && command.words.size() == 3 &&
        (redirect.op == ">" || redirect.op == "<") &&
        are_numbers(c, command.words[1], file)) {
      report(c.found, *c.s.file, file.line, file.column, "number-text",
             in_quotes(redirect.op) +
                 " is a redirection to a file here, and no comparison; use " +
                 (redirect.op == "<" ? "-lt" : "-gt"));
    }
  }
}

// --- as plain decimals -------------------------------------------------------

static bool compares_numbers(const bash_word &word)
{
  static const word_set operators = {"-eq", "-ne", "-lt", "-le", "-gt", "-ge"};
  return operators.count(word.text) != 0;
}

static bool is_operand(const bash_command &command, size_t i)
{
  return (i > 0 && compares_numbers(command.words[i - 1])) ||
         (i + 1 < command.words.size() &&
          compares_numbers(command.words[i + 1]));
}

static bool names_key(const bash_word &word, const std::string &key)
{
  return std::any_of(word.expansions.begin(), word.expansions.end(),
                     [&](const bash_expansion &e) {
                       return starts_with(lower(e.subscript), key);
                     });
}

// Whether the word is only asked for being blank: behind -n or -z, or alone.
static bool asks_blank(const bash_command &command, size_t i)
{
  static const word_set comparisons = {"=", "==", "!=", "=~", "<", ">"};
  const auto is_comparison = [&](size_t at) {
    return at < command.words.size() &&
           comparisons.count(command.words[at].plain) != 0;
  };
  return command.kind != BASH_CASE && !is_comparison(i + 1) &&
         (i == 0 || !is_comparison(i - 1));
}

// Whether the command looks at the value in another way, or sets it: what it
// can be behind that is not known. Wherever it stands: a test of -n in front of
// the comparison is the usual way to keep blank values from it. Of 28.5 and
// 0x10 (`odd`) such a test says nothing.
static bool looks_at(const compare_check &c, const bash_command &command,
                     const std::string &key, bool odd)
{
  const std::string &name = first_word(command);
  const bool test = command.kind == BASH_TEST || name == "[" || name == "test";
  for (size_t i = 0; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    const bool other =
        command.kind == BASH_CASE || (test && !is_operand(command, i));
    if (other && !(odd && asks_blank(command, i)) &&
        (names_key(word, key) || number_key(c, word) == key)) {
      return true;
    }
  }
  return name == "orv_number" || // names of a list may be any
         std::any_of(command.assignments.begin(), command.assignments.end(),
                     [&](const bash_assignment &assignment) {
                       return assignment.name == "orv" &&
                              (starts_with(lower(assignment.subscript), key) ||
                               strchr(assignment.subscript.c_str(), '$') !=
                                   nullptr);
                     });
}

// What of the number the comparison cannot read, "" for nothing. A field that
// was not drawn is sent by no browser, and blank then. Only a comparison that
// always runs is certain to meet it: in a branch, something has been asked
// before.
static std::string unreadable(const compare_check &c,
                              const bash_command &command,
                              const page_number &number)
{
  if (!number.known) {
    return "";
  }
  if (number.point) {
    return "may have a decimal point, which bash cannot read; compare it with "
           "awk, or check it as a decimal";
  }
  if (command.kind == BASH_TEST) {
    return ""; // reads 0x10, and takes a blank for 0
  }
  if (number.hex) {
    return "may begin with 0x, which [ ] cannot read; call orv_number first";
  }
  const bool always = command.branch < 0 && command.previous < 0;
  return number.blank ||
                 (number.unsent && always && c.s.words.count("orv_read"))
             ? "may be blank, which [ ] cannot read; look at that first"
             : "";
}

// With 2>/dev/null the author has thought of the message. Where another file is
// sourced beside the library, that may look at the value.
static void check_operands(const compare_check &c, const bash_command &command)
{
  for (size_t i = 0; i < command.words.size(); i++) {
    const bash_word &word = command.words[i];
    const std::string key = is_operand(command, i) ? number_key(c, word) : "";
    const page_number number = key.empty() ? page_number() : number_of(c, key);
    const std::string fault = unreadable(c, command, number);
    const bool odd = number.point || number.hex;
    const std::vector<bash_command> &all = c.s.code.commands;
    if (!fault.empty() && command.redirects.empty() && c.s.sources.size() < 2 &&
        std::none_of(all.begin(), all.end(), [&](const bash_command &other) {
          return looks_at(c, other, key, odd);
        })) {
      report(c.found, *c.s.file, word.expansions[0].line,
             word.expansions[0].column, "number-test",
             word.plain + " " + fault);
    }
  }
}

void check_numbers(const compare_check &c, const bash_command &command)
{
  if (command.words.empty()) {
    return;
  }
  check_order_of_texts(c, command);
  if (command.kind == BASH_SIMPLE) {
    check_redirected(c, command);
  }
  check_operands(c, command);
}
