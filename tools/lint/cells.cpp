// Cells as scripts name them, against the columns and rows that a table has.

#include "agree.h"

#include <algorithm>

#include "flow.h"
#include "script_names.h"
#include "text.h"

// --- names that are made -----------------------------------------------------

// The column or list that the beginning of a made name was meant to be: rows'
// numbers follow the name at once. "" for any other beginning. "port_mtu_$row"
// where the page has port_mtu0. A name that is a column with the "_" is right,
// and one letter in front of the expansion says too little.
static std::string meant_name(const agree_check &c, const std::string &text)
{
  const size_t mark = text.find_first_of("$%");
  if (mark == std::string::npos || mark < 2) {
    return "";
  }
  const std::string stem = lower(text.substr(0, mark));
  const std::string name = stem.substr(0, stem.find_last_not_of("_.-") + 1);
  return name != stem && c.columns.count(name) + c.lists.count(name) != 0 &&
                 c.columns.count(stem) + c.lists.count(stem) == 0
             ? name
             : "";
}

static bool check_made(const agree_check &c, const std::string &text, int line,
                       int column)
{
  const std::string name = meant_name(c, text);
  if (!name.empty()) {
    report(c.found, *c.s.file, line, column, "script-name",
           "the cells of " + in_quotes(name) + " are " + in_quotes(name + "0") +
               ", " + in_quotes(name + "1") +
               " and so on: nothing stands before the number");
  }
  return !name.empty();
}

// Words that are names of cells, or print them. Of orv_put the second word is a
// value, which may look like anything.
static bool names_cells(const bash_command &command, size_t i)
{
  static const word_set takers = {"orv_put", "orv_show", "orv_read",
                                  "orv_error", "orv_store"};
  const std::string &name = first_word(command);
  return (takers.count(name) != 0 && (name != "orv_put" || i == 1)) ||
         ((name == "echo" || name == "printf") &&
          command.words[i].plain.find('=') != std::string::npos);
}

static void check_made_cells(const agree_check &c)
{
  for (const bash_command &command : c.s.code.commands) {
    for (size_t i = 1; i < command.words.size(); i++) {
      const bash_word &word = command.words[i];
      if (names_cells(command, i) &&
          check_made(c, word.plain, word.line, word.column)) {
        return; // one mistake is one finding
      }
    }
    for (const bash_assignment &assignment : command.assignments) {
      if (is_value_array(assignment.name) &&
          check_made(c, assignment.subscript, assignment.value.line,
                     assignment.value.column)) {
        return;
      }
    }
  }
}

// --- tables of a fixed number of rows ----------------------------------------

// The cells of the column that the script writes out where it reads the page,
// by their rows; none where it makes such names. One word that is not known, or
// a beginning that is the column, and the script may read all of them.
static std::map<long, literal_name> cells_read(const agree_check &c,
                                               const std::string &column)
{
  std::map<long, literal_name> cells;
  for (const bash_command &command : c.s.code.commands) {
    for (size_t i = 1; i < command.words.size(); i++) {
      if (first_word(command) != "orv_read") {
        continue;
      }
      std::vector<literal_name> names;
      if (!add_literals(c.s, command.words[i], &names)) {
        return {};
      }
      for (const literal_name &name : names) {
        const std::string key = lower(name.name);
        if (key == column + "#") {
          return {};
        }
        if (key != column && without_digits(key) == column) {
          cells.insert(
              {strtol(key.c_str() + column.size(), nullptr, 10), name});
        }
      }
    }
  }
  return c.s.stems.count(column) != 0 ? std::map<long, literal_name>() : cells;
}

// Every row of such a table is drawn, so every cell must be read, and no other.
// A script that reads no cell of a column may leave that to another one.
static void check_fixed_rows(const agree_check &c, const form &f)
{
  for (const form_item &item : f.items) {
    const long rows =
        item.table >= 0 && is_editable(item) ? fixed_rows(f, item) : 0;
    const std::map<long, literal_name> cells =
        rows > 0 ? cells_read(c, lower(item.name))
                 : std::map<long, literal_name>();
    if (cells.empty()) {
      continue;
    }
    // The finding stands where the list of names ends: there the next one is
    // missing, or the last is too many.
    const auto &last = *cells.rbegin();
    const bool beyond = last.first >= rows;
    if (beyond || static_cast<long>(cells.size()) < rows) {
      report(c.found, *c.s.file, last.second.line, last.second.column,
             "not-stored",
             "the table has the rows 0 to " + std::to_string(rows - 1) +
                 (beyond ? ", and not that of " + in_quotes(last.second.name)
                         : ", and not each cell of " + in_quotes(item.name) +
                               " is read: what is entered there is lost"));
      return;
    }
  }
}

void check_cells(const agree_check &c, const std::vector<const form *> &forms)
{
  check_made_cells(c);
  for (const form *f : forms) {
    check_fixed_rows(c, *f);
  }
}
