// Rows of tables and entries of lists, whose numbers a script makes: they begin
// with 0.

#include <algorithm>
#include <ctype.h>

#include "agree.h"
#include "flow.h"
#include "script_names.h"
#include "text.h"

// --- where a number begins ---------------------------------------------------

// What a variable is set to at first, as far as it stands there.
// With the place, since a finding stands where the counting begins and not
// where the number is used.
struct start {
  std::string value;
  int line;
  int column;
};

// Arithmetic means the same with and without blanks: i+1, i + 1.
static std::string without_blanks(std::string text)
{
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  return text;
}

// The first of what a loop goes through: of {1..9} and $(seq 9) it is 1.
// seq with one number begins with 1, with more it begins with the first of
// them.
static std::string first_of_loop(const bash_word &word)
{
  const std::string &text = word.plain;
  const size_t seq = text.find("seq ");
  if (seq != std::string::npos) {
    const std::string rest = text.substr(seq + 4, text.find(')') - seq - 4);
    const std::vector<std::string> words = split_words(rest);
    return words.size() == 1 ? "1" : words.empty() ? "" : words[0];
  }
  return starts_with(text, "{1..") ? "1" : text;
}

// All of a script, by "function::variable".
// Two functions can have an index of the same name, and one of them begins with
// 1 for a reason.
typedef std::map<std::string, std::vector<start>> all_starts;

static void add_start(all_starts *all, const bash_command &command,
                      const std::string &name, const std::string &value,
                      const bash_word &at)
{
  (*all)[command.function + "::" + name].push_back({value, at.line, at.column});
}

static void add_loop(const bash_command &loop, all_starts *all)
{
  if (loop.words.empty()) {
    return;
  }
  if (loop.kind == BASH_FOR && loop.words.size() > 1) {
    add_start(all, loop, loop.words[0].plain, first_of_loop(loop.words[1]),
              loop.words[1]);
  }
  const std::string text = without_blanks(loop.words[0].text);
  const size_t equals = text.find('=');
  // ((i = 1)) and the beginning of for ((i = 1; ...)); ((i == 1)) is a test.
  if (loop.kind == BASH_ARITHMETIC && equals != std::string::npos &&
      equals + 1 < text.size() && text[equals + 1] != '=') {
    add_start(all, loop, text.substr(0, equals), text.substr(equals + 1, 1),
              loop.words[0]);
  }
}

static all_starts find_starts(const script &s)
{
  all_starts all;
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      add_start(&all, command, assignment.name, assignment.value.plain,
                assignment.value);
    }
    add_loop(command, &all);
  }
  return all;
}

struct row_check {
  const agree_check &c;
  all_starts starts;
};

static const std::vector<start> &starts_of(const row_check &r,
                                           const std::string &function,
                                           const std::string &name)
{
  static const std::vector<start> none;
  const auto starts = r.starts.find(function + "::" + name);
  return starts != r.starts.end() ? starts->second : none;
}

// Whether the number may begin with 0, or comes from elsewhere.
// row=$((row + 1)) counts on from elsewhere and is no beginning; row=$1 is one
// that is not known here. -1 is for those who add before they use it.
static bool may_be_first(const start &at, const std::string &name)
{
  const bool counts_on = at.value.find(name) != std::string::npos;
  return at.value.empty() || at.value == "0" || at.value == "-1" ||
         (at.value[0] == '$' && !counts_on);
}

// Reports where it begins with 1 and nowhere with 0.
// A script may count one table from 0 and number lines for people from 1 by the
// same variable, so one possible 0 is enough to be silent.
static bool check_start(const row_check &r, const std::string &function,
                        const std::string &name)
{
  const agree_check &c = r.c;
  const std::vector<start> &starts = starts_of(r, function, name);
  const auto one =
      std::find_if(starts.begin(), starts.end(),
                   [](const start &at) { return at.value == "1"; });
  if (one == starts.end() ||
      std::any_of(starts.begin(), starts.end(),
                  [&](const start &at) { return may_be_first(at, name); })) {
    return false;
  }
  report(c.found, *c.s.file, one->line, one->column, "first-row",
         "rows and list entries are numbered from 0, and " +
             in_quotes("$" + name) + " starts at 1: the first is left out");
  return true;
}

// --- where it is used --------------------------------------------------------

struct row_name {
  std::string stem; // of a column or a list
  std::string row;  // the variable, or "(" and what is computed
};

// "column$row", "${list}_$row": what stands in front of the last expansion.
// What stands in front has to be a column or a list of the forms: "log$1" may
// be anything.
static bool read_row_name(const agree_check &c, const std::string &text,
                          row_name *into)
{
  const size_t dollar = text.find('$');
  if (dollar == std::string::npos || dollar + 1 == text.size()) {
    return false;
  }
  into->stem = lower(text.substr(0, dollar));
  size_t at = dollar + 1;
  at += text[at] == '{' ? 1 : 0;
  size_t end = at;
  while (end < text.size() && is_name_char(text[end])) {
    end++;
  }
  into->row = text[at] == '(' ? without_blanks(text.substr(at))
                              : text.substr(at, end - at);
  return c.columns.count(into->stem) + c.lists.count(into->stem) != 0;
}

// The keys of an array and the rows of the library count from 0, too.
static bool begins_with_0(const row_check &r, const std::string &function,
                          const std::string &variable)
{
  const std::vector<start> &starts = starts_of(r, function, variable);
  return std::any_of(starts.begin(), starts.end(), [](const start &at) {
    return at.value == "0" || starts_with(at.value, "${!") ||
           at.value == "${rows[@]}";
  });
}

// Whether calls of the function give it such a number as that parameter.
// A parameter has no beginning of its own.
static bool is_given_row(const row_check &r, const std::string &function,
                         const std::string &parameter)
{
  const size_t number = strtoul(parameter.c_str(), nullptr, 10);
  const std::vector<bash_command> &all = r.c.s.code.commands;
  return !function.empty() &&
         std::any_of(all.begin(), all.end(), [&](const bash_command &call) {
           return first_word(call) == function && call.words.size() > number &&
                  call.words[number].expansions.size() == 1 &&
                  call.words[number].text.find('(') == std::string::npos &&
                  begins_with_0(r, call.function,
                                call.words[number].expansions[0].name);
         });
}

// $((i + 1)) where i begins with 0: the first number is 1.  `sum` is what
// stands behind the dollar, without blanks.
static bool check_computed(const row_check &r, const bash_command &command,
                           const bash_word &word, const std::string &sum)
{
  const size_t end = sum.find_first_not_of("($");
  size_t stop = end;
  while (stop < sum.size() && is_name_char(sum[stop])) {
    stop++;
  }
  // Nothing but one more: i * 2 + 1 and the like follow a plan of their own.
  if (end == std::string::npos || sum.substr(stop) != "+1))") {
    return false;
  }
  const std::string variable = sum.substr(end, stop - end);
  const bool parameter = isdigit(static_cast<unsigned char>(variable[0])) != 0;
  const bool from_0 = parameter ? is_given_row(r, command.function, variable)
                                : begins_with_0(r, command.function, variable);
  if (from_0) {
    report(r.c.found, *r.c.s.file, word.line, word.column, "first-row",
           "rows and list entries are numbered from 0, and these start at 1: "
           "nothing is drawn");
  }
  return from_0;
}

struct row_use {
  const bash_command *command;
  const bash_word *word;
  row_name name;
};

// orv_error COLUMN TEXT ROW makes the name of the cell from its first and third
// words.
static void add_use(const agree_check &c, const bash_command &command,
                    const bash_word &word, std::vector<row_use> *uses)
{
  row_name name;
  const bool error = first_word(command) == "orv_error" &&
                     command.words.size() == 4 && &word == &command.words[3] &&
                     c.columns.count(lower(command.words[1].plain)) != 0;
  const std::string text = error ? command.words[1].plain + word.plain
                                 : word.plain; // it names a cell as well
  if (read_row_name(c, text, &name)) {
    uses->push_back({&command, &word, name});
  }
  for (const bash_expansion &expansion : word.expansions) {
    if (expansion.name == "orv" &&
        read_row_name(c, expansion.subscript, &name)) {
      uses->push_back({&command, &word, name});
    }
  }
}

// In the order of the script, so that the finding is the first one that a
// reader meets.
static std::vector<row_use> uses_of(const agree_check &c)
{
  std::vector<row_use> uses;
  for (const bash_command &command : c.s.code.commands) {
    for (const bash_word &word : command.words) {
      add_use(c, command, word, &uses);
    }
    for (const bash_assignment &assignment : command.assignments) {
      add_use(c, command, assignment.value, &uses);
    }
  }
  return uses;
}

// A function's parameter that it uses as a row: what calls give it.
// Each call counts for itself: one that begins with 1 leaves out the first row,
// whatever the others do.
static bool check_given(const row_check &r, const std::string &function,
                        const std::string &parameter)
{
  const size_t number = strtoul(parameter.c_str(), nullptr, 10);
  for (const bash_command &call : r.c.s.code.commands) {
    if (first_word(call) != function || call.words.size() <= number ||
        call.words[number].expansions.size() != 1) {
      continue;
    }
    const bash_word &given = call.words[number];
    if (starts_with(given.plain, "$((")
            ? check_computed(r, call, given, without_blanks(given.plain))
            : check_start(r, call.function, given.expansions[0].name)) {
      return true;
    }
  }
  return false;
}

// Cells and entries that are reported by their whole names: none without the
// first.
// A name with 1 is right where anything else in the script has the one with 0,
// or makes names from the same beginning.
static bool check_written_out(const agree_check &c)
{
  for (const bash_command &command : c.s.code.commands) {
    if (first_word(command) != "orv_put" || command.words.size() < 2) {
      continue;
    }
    const bash_word &word = command.words[1];
    const std::string name = lower(word.plain);
    const std::string stem = without_digits(name);
    if (name == stem + "1" &&
        c.columns.count(stem) + c.lists.count(stem) != 0 &&
        c.s.words.count(stem + "0") + c.s.stems.count(stem) == 0) {
      report(c.found, *c.s.file, word.line, word.column, "first-row",
             "rows and list entries are numbered from 0, and nothing reports " +
                 in_quotes(stem + "0"));
      return true;
    }
  }
  return false;
}

void check_rows_of(const agree_check &c)
{
  if (check_written_out(c)) {
    return;
  }
  const row_check r = {c, find_starts(c.s)};
  std::set<std::string> asked; // parameters, each once
  for (const row_use &use : uses_of(c)) {
    const std::string &row = use.name.row;
    const std::string &function = use.command->function;
    const bool parameter =
        !row.empty() && isdigit(static_cast<unsigned char>(row[0])) != 0;
    if (row.empty()     ? false
        : row[0] == '(' ? check_computed(r, *use.command, *use.word, row)
        : parameter
            ? !function.empty() && asked.insert(function + "::" + row).second &&
                  check_given(r, function, row)
            : check_start(r, function, row)) {
      return; // one mistake is one finding
    }
  }
}
