// Mending what the parser refuses.
//
// The parser stops at the first fault, and an author wants to know all of them.
// So it is given a copy of the file; the line that it refuses is reported in
// its own words and mended in the copy as it was most likely meant, and it
// starts again, until it is content.

#include "template_copy.h"

#include <algorithm>

#include "orv_limits.h"
#include "text.h"

static std::string joined(const std::vector<copy_line> &copy)
{
  std::string text;
  for (const copy_line &line : copy) {
    text += line.text + "\n";
  }
  return text;
}

typedef std::vector<copy_line>::iterator line_place;

// The line that the parser stopped at, or the last.
// The copy and the text that was parsed have the same lines, so the parser's
// number is an index here. The file's number is kept beside each line, as lines
// that were added have shifted them.
static line_place line_of(repair *work, const refusal &why)
{
  const size_t number = static_cast<size_t>(why.line);
  return number >= 1 && number <= work->copy.size()
             ? work->copy.begin() + static_cast<std::ptrdiff_t>(number) - 1
             : work->copy.end() - (work->copy.empty() ? 0 : 1);
}

// Reports the message, its number being that of the file.
// The message ends with a line end and names the line of the copy.
static void report_message(repair *work, const refusal &why, int line,
                           const std::string &more,
                           const std::vector<note> &notes = {})
{
  std::string message = why.message;
  const std::string number = "line " + std::to_string(why.line);
  const size_t at = message.find(number);
  if (at != std::string::npos) {
    message.replace(at, number.size(), "line " + std::to_string(line));
  }
  message.erase(std::remove(message.begin(), message.end(), '\n'),
                message.end());
  report(work->found, work->file, line, 1, "syntax", message + more, notes);
}

static void replace_keyword(copy_line *line, const std::string &keyword)
{
  const std::string old = keyword_of(line->text);
  line->text.replace(0, old.size(), keyword);
}

// Whether "body" is only too late, or missing altogether.
static bool has_body(const repair &work)
{
  return std::any_of(
      work.copy.begin(), work.copy.end(),
      [](const copy_line &line) { return keyword_of(line.text) == "body"; });
}

// A keyword that no header has.
// A body keyword in the header most likely means that "body" is missing, which
// makes all that follows right at once. Where there is such a line further
// down, only this one is misplaced.
static void mend_header_keyword(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  const std::string keyword = keyword_of(at->text);
  const std::string near = nearest(keyword, header_keywords());
  if (item_keyword(keyword) != nullptr ||
      attribute_keyword(keyword) != nullptr) {
    const bool later = has_body(*work);
    report_message(work, why, at->number,
                   later ? "; " + in_quotes(keyword) +
                               " belongs behind the line \"body\""
                         : "; the line \"body\" is missing before it");
    if (later) {
      at->text.clear();
    } else {
      work->copy.insert(at, {"body", at->number});
    }
    return;
  }
  report_message(work, why, at->number,
                 did_you_mean(keyword, header_keywords()));
  if (near.empty()) {
    at->text.clear();
  } else {
    replace_keyword(&*at, near);
  }
}

// The attributes behind an item that cannot be made out belong to it.
// They would be refused one by one, or describe the item before; the item's own
// message is enough.
static void orphan_attributes(repair *work, line_place at)
{
  for (++at; at != work->copy.end(); ++at) {
    const std::string keyword = keyword_of(at->text);
    if (!keyword.empty() && attribute_keyword(keyword) == nullptr) {
      return;
    }
    work->orphans.insert(at->number);
  }
}

// What a keyword was meant to be: also where bash calls it something else.
// Words of bash and HTML that are too far from ours to be found by their
// letters.
static std::string meant_keyword(const std::string &keyword)
{
  static const std::map<std::string, std::string> others = {
      {"fi", "endif"},        {"end", "endif"},
      {"elif", "else"},       {"option", "choice"},
      {"input", "field"},     {"check_message", "check_msg"},
      {"heading1", "heading"}};
  const auto other = others.find(keyword);
  return other != others.end() ? other->second
                               : nearest(keyword, body_keywords());
}

// A line that is emptied keeps its place, so the numbers of the others stay
// true.
static void mend_body_keyword(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  const std::string keyword = keyword_of(at->text);
  const bool misplaced = header_keyword(keyword) != nullptr;
  const std::string near = misplaced ? "" : meant_keyword(keyword);
  report_message(work, why, at->number,
                 misplaced ? "; " + in_quotes(keyword) +
                                 " belongs before the line \"body\""
                 : near.empty() ? ""
                                : " (did you mean " + in_quotes(near) + "?)");
  if (!near.empty()) {
    replace_keyword(&*at, near);
  } else {
    at->text.clear();
    orphan_attributes(work, at);
  }
}

// All lines were header lines: an empty body is what is left.
static void mend_no_body(repair *work, const refusal &why)
{
  const int last = static_cast<int>(work->file.lines.size());
  report_message(work, why, std::max(last, 1), "");
  work->copy.push_back({"body", std::max(last, 1)});
}

// The second one goes, as the first was meant to count.
static void mend_second(repair *work, const refusal &why)
{
  const line_place second = line_of(work, why);
  const std::string keyword = keyword_of(second->text);
  const line_place first =
      std::find_if(work->copy.begin(), second, [&](const copy_line &line) {
        return keyword_of(line.text) == keyword;
      });
  report_message(work, why, second->number, "",
                 {{{work->file.path, first->number, 1}, "the first is here"}});
  second->text.clear();
}

// Its text is never reported: the line has the number of the first one.
static void mend_no_title(repair *work, const refusal &why)
{
  report_message(work, why, 1, "");
  work->copy.insert(work->copy.begin(), {"title Untitled", 1});
}

static bool is_cell(const std::string &keyword)
{
  const pt_keyword *row = item_keyword(keyword);
  return row != nullptr && row->cell;
}

// The last table before `at`, and how many cells it has by then.
// Whatever stands between the table and `at` is counted if it can be a cell:
// the parser refuses the first item that is none.
static line_place table_before(repair *work, line_place at, int *cells)
{
  *cells = 0;
  while (at != work->copy.begin()) {
    --at;
    const std::string keyword = keyword_of(at->text);
    if (keyword == "table" || keyword == "ftable") {
      return at;
    }
    *cells += is_cell(keyword) ? 1 : 0;
  }
  return work->copy.end();
}

// Makes the table as wide as its cells are many.
// The columns that are there stay checked; without any the table has nothing to
// describe.
static void cut_table(line_place table, int cells)
{
  const std::vector<std::string> words = split_words(text_of(table->text));
  if (cells == 0 || words.empty()) {
    table->text.clear();
    return;
  }
  table->text =
      keyword_of(table->text) + " " + words[0] + " " + std::to_string(cells);
}

// The number as written, since it need not be one.
static std::string lacks(const copy_line &table, int cells)
{
  const std::vector<std::string> words = split_words(text_of(table.text));
  return "this table has " + (words.size() > 1 ? words[1] : "?") +
         " columns, of which only " + std::to_string(cells) + " follow";
}

// The message has no line; the table that it speaks of is the last one.
static void mend_short_table(repair *work, const refusal &why)
{
  int cells;
  const line_place table = table_before(work, work->copy.end(), &cells);
  if (table == work->copy.end()) {
    report_message(work, why, 1, "");
    work->copy.clear();
    return;
  }
  report_message(work, why, table->number, "; " + lacks(*table, cells));
  cut_table(table, cells);
}

// The table ends where something else begins.
static void mend_broken_table(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  int cells;
  const line_place table = table_before(work, at, &cells);
  if (table == work->copy.end()) {
    report_message(work, why, at->number, "");
    at->text.clear();
    return;
  }
  report_message(work, why, at->number, "",
                 {{{work->file.path, table->number, 1}, lacks(*table, cells)}});
  cut_table(table, cells);
}

// A name of ours keeps the item, so that its attributes are no faults.
// It is unique, lest it be reported as the name of two items. A table needs its
// number of columns as well.
static void mend_name(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  report_message(work, why, at->number, "");
  const std::string keyword = keyword_of(at->text);
  at->text = keyword + " unnamed" + std::to_string(at->number) +
             (ends_with(keyword, "table") ? " 1" : "");
}

// Leaves the first `count` words of the line.
static void keep_words(copy_line *line, size_t count)
{
  const std::vector<std::string> words = split_words(text_of(line->text));
  std::string text = keyword_of(line->text);
  for (size_t i = 0; i < count && i < words.size(); i++) {
    text += " " + words[i];
  }
  line->text = text;
}

// The item stays without the width.
static void mend_width(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  report_message(work, why, at->number, "");
  keep_words(&*at, 1);
}

// The cells that follow say how many columns were meant.
// The next item that is no cell ends the search; attributes stand between
// cells.
static void mend_columns(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  report_message(work, why, at->number,
                 "; a table has 1 to " + std::to_string(ORV_COLUMNS_MAX) +
                     ", and their number stands behind its name");
  int cells = 0;
  for (line_place next = at + 1; next != work->copy.end(); ++next) {
    const std::string keyword = keyword_of(next->text);
    if (is_cell(keyword) && cells < ORV_COLUMNS_MAX) {
      cells++;
    } else if (item_keyword(keyword) != nullptr) {
      break;
    }
  }
  keep_words(&*at, 1);
  if (cells == 0) {
    at->text.clear();
  } else {
    at->text += " " + std::to_string(cells);
  }
}

// The number may be left out, so the name and the columns are a whole table.
static void mend_rows(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  report_message(work, why, at->number, "");
  keep_words(&*at, 2);
}

// A line that adds to an item and does not fit there.
// Also what has no row in the table below: to leave the line out is always a
// way to go on.
static void mend_line(repair *work, const refusal &why)
{
  const line_place at = line_of(work, why);
  if (at == work->copy.end()) {
    report_message(work, why, 1, "");
    work->copy.clear();
    return;
  }
  if (work->orphans.count(at->number) == 0) {
    report_message(work, why, at->number, "");
  }
  at->text.clear();
}

// How what the parser refuses is mended.
static const struct {
  pt_fault_code code;
  void (*mend)(repair *work, const refusal &why);
} mendings[] = {
    {PT_UNKNOWN_HEADER_KEYWORD, mend_header_keyword},
    {PT_NO_BODY, mend_no_body},
    {PT_SECOND_KEYWORD, mend_second},
    {PT_NO_TITLE, mend_no_title},
    {PT_UNKNOWN_BODY_KEYWORD, mend_body_keyword},
    {PT_TABLE_TOO_SHORT, mend_short_table},
    {PT_NOT_IN_TABLE, mend_broken_table},
    {PT_NO_NAME, mend_name},
    {PT_BAD_WIDTH, mend_width},
    {PT_BAD_COLUMNS, mend_columns},
    {PT_BAD_ROWS, mend_rows},
};

static void mend(repair *work, const refusal &why)
{
  for (const auto &row : mendings) {
    if (row.code == why.code) {
      row.mend(work, why);
      return;
    }
  }
  mend_line(work, why);
}

// Parses until nothing is refused; the body's items.
pt_body_item *parse_all(repair *work)
{
  pt_body_item *body = nullptr;
  // Each round mends a line; a table can be mended once for each of its cells.
  const size_t rounds = 3 * work->copy.size() + 10;
  for (size_t round = 0; round < rounds; round++) {
    orv_free_body(body);
    body = nullptr;
    const refusal why = parse(joined(work->copy), work->name, &body);
    if (why.code == PT_NO_FAULT) {
      return body;
    }
    if (work->copy.empty()) {
      break; // nothing left that could be mended
    }
    mend(work, why);
  }
  orv_free_body(body);
  return nullptr;
}
