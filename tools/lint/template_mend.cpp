// Mending what the parser refuses.
//
// The parser stops at the first fault, and an author wants to know all of them.
// So it is given a copy of the file; the line that it refuses is told in its
// own words and mended in the copy as it was most likely meant, and it starts
// again, until it is content.

#include "template_copy.h"

#include <algorithm>

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

// The line that the message is about: the one it names, or the last.
static line_place line_of(repair *work, const std::string &message)
{
  const size_t number = static_cast<size_t>(line_in(message));
  return number >= 1 && number <= work->copy.size()
             ? work->copy.begin() + static_cast<std::ptrdiff_t>(number) - 1
             : work->copy.end() - (work->copy.empty() ? 0 : 1);
}

// Tells the message, its number being that of the file.
static void tell_message(repair *work, std::string message, int line,
                         const std::string &more,
                         const std::vector<note> &notes = {})
{
  const size_t at = message.find("line ");
  if (at != std::string::npos && line_in(message) != 0) {
    const size_t digits = at + 5;
    const size_t end = message.find_first_not_of("0123456789", digits);
    message.replace(digits, end - digits, std::to_string(line));
  }
  message.erase(std::remove(message.begin(), message.end(), '\n'),
                message.end());
  tell(work->found, work->file, line, 1, "syntax", message + more, notes);
}

static void replace_keyword(copy_line *line, const std::string &keyword)
{
  const std::string old = keyword_of(line->text);
  line->text.replace(0, old.size(), keyword);
}

static bool has_body(const repair &work)
{
  return std::any_of(
      work.copy.begin(), work.copy.end(),
      [](const copy_line &line) { return keyword_of(line.text) == "body"; });
}

// A keyword that no header has.
static void mend_header_keyword(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  const std::string keyword = keyword_of(at->text);
  const std::string near = nearest(keyword, header_keywords);
  if (item_keywords.count(keyword) + attribute_keywords.count(keyword) != 0) {
    const bool later = has_body(*work);
    tell_message(work, message, at->number,
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
  tell_message(work, message, at->number,
               did_you_mean(keyword, header_keywords));
  if (near.empty()) {
    at->text.clear();
  } else {
    replace_keyword(&*at, near);
  }
}

// The attributes behind an item that cannot be made out belong to it.
static void orphan_attributes(repair *work, line_place at)
{
  for (++at; at != work->copy.end(); ++at) {
    const std::string keyword = keyword_of(at->text);
    if (!keyword.empty() && attribute_keywords.count(keyword) == 0) {
      return;
    }
    work->orphans.insert(at->number);
  }
}

// What a keyword was meant to be: also where bash calls it something else.
static std::string meant_keyword(const std::string &keyword,
                                 const std::set<std::string> &known)
{
  static const std::map<std::string, std::string> others = {
      {"fi", "endif"},        {"end", "endif"},
      {"elif", "else"},       {"option", "choice"},
      {"input", "field"},     {"check_message", "check_msg"},
      {"heading1", "heading"}};
  const auto other = others.find(keyword);
  return other != others.end() ? other->second : nearest(keyword, known);
}

static void mend_body_keyword(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  const std::string keyword = keyword_of(at->text);
  std::set<std::string> known = item_keywords;
  known.insert(attribute_keywords.begin(), attribute_keywords.end());
  const bool misplaced = header_keywords.count(keyword) != 0;
  const std::string near = misplaced ? "" : meant_keyword(keyword, known);
  tell_message(work, message, at->number,
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
static void mend_no_body(repair *work, const std::string &message)
{
  const int last = static_cast<int>(work->file.lines.size());
  tell_message(work, message, std::max(last, 1), "");
  work->copy.push_back({"body", std::max(last, 1)});
}

// The second one goes, as the first was meant to count.
static void mend_second(repair *work, const std::string &message)
{
  const std::vector<std::string> words = split_words(message);
  const std::string keyword = words.size() > 2 ? words[2] : "";
  const auto is_it = [&](const copy_line &line) {
    return keyword_of(line.text) == keyword;
  };
  const line_place first =
      std::find_if(work->copy.begin(), work->copy.end(), is_it);
  const line_place second =
      first == work->copy.end()
          ? first
          : std::find_if(first + 1, work->copy.end(), is_it);
  if (second == work->copy.end()) {
    tell_message(work, message, 1, "");
    work->copy.clear();
    return;
  }
  tell_message(work, message, second->number, "",
               {{{work->file.path, first->number, 1}, "the first is here"}});
  second->text.clear();
}

static void mend_no_title(repair *work, const std::string &message)
{
  tell_message(work, message, 1, "");
  work->copy.insert(work->copy.begin(), {"title Untitled", 1});
}

static void mend_quoting(repair *work, const std::string &message)
{
  for (copy_line &line : work->copy) {
    if (ends_with(keyword_of(line.text), "_script") &&
        message.find(in_quotes(text_of(line.text))) != std::string::npos) {
      tell_message(work, message, line.number, "");
      line.text.clear();
      return;
    }
  }
  tell_message(work, message, 1, "");
  work->copy.clear();
}

// The last table before `at`, and how many cells it has by then.
static line_place table_before(repair *work, line_place at, int *cells)
{
  *cells = 0;
  while (at != work->copy.begin()) {
    --at;
    const std::string keyword = keyword_of(at->text);
    if (keyword == "table" || keyword == "ftable") {
      return at;
    }
    *cells += cell_keywords.count(keyword) != 0 ? 1 : 0;
  }
  return work->copy.end();
}

// Makes the table as wide as its cells are many.
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

static std::string lacks(const copy_line &table, int cells)
{
  const std::vector<std::string> words = split_words(text_of(table.text));
  return "this table has " + (words.size() > 1 ? words[1] : "?") +
         " columns, of which only " + std::to_string(cells) + " follow";
}

// The message has no line; the table that it speaks of is the last one.
static void mend_short_table(repair *work, const std::string &message)
{
  int cells;
  const line_place table = table_before(work, work->copy.end(), &cells);
  if (table == work->copy.end()) {
    tell_message(work, message, 1, "");
    work->copy.clear();
    return;
  }
  tell_message(work, message, table->number, "; " + lacks(*table, cells));
  cut_table(table, cells);
}

// The table ends where something else begins.
static void mend_broken_table(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  int cells;
  const line_place table = table_before(work, at, &cells);
  if (table == work->copy.end()) {
    tell_message(work, message, at->number, "");
    at->text.clear();
    return;
  }
  tell_message(work, message, at->number, "",
               {{{work->file.path, table->number, 1}, lacks(*table, cells)}});
  cut_table(table, cells);
}

// A name of ours keeps the item, so that its attributes are no faults.
static void mend_name(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  tell_message(work, message, at->number, "");
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
static void mend_width(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  tell_message(work, message, at->number, "");
  keep_words(&*at, 1);
}

// The cells that follow say how many columns were meant.
static void mend_columns(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  tell_message(work, message, at->number,
               "; a table has 1 to 20, and their number stands behind its"
               " name");
  int cells = 0;
  for (line_place next = at + 1; next != work->copy.end(); ++next) {
    const std::string keyword = keyword_of(next->text);
    if (cell_keywords.count(keyword) != 0 && cells < 20) {
      cells++;
    } else if (item_keywords.count(keyword) != 0) {
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

static void mend_rows(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  tell_message(work, message, at->number, "");
  keep_words(&*at, 2);
}

// A line that adds to an item and does not fit there.
static void mend_line(repair *work, const std::string &message)
{
  const line_place at = line_of(work, message);
  if (at == work->copy.end()) {
    tell_message(work, message, 1, "");
    work->copy.clear();
    return;
  }
  if (work->orphans.count(at->number) == 0) {
    tell_message(work, message, at->number, "");
  }
  at->text.clear();
}

// What a message says, and how the line is mended.
static const struct {
  const char *part;
  void (*mend)(repair *work, const std::string &message);
} mendings[] = {
    {"orv_parse_header: unknown keyword", mend_header_keyword},
    {"no body keyword found", mend_no_body},
    {"keyword found", mend_second},
    {"contains no title", mend_no_title},
    {"Cannot quote a value", mend_quoting},
    {"orv_parse_body: unknown keyword", mend_body_keyword},
    {"Too few items", mend_short_table},
    {"Item not allowed in table", mend_broken_table},
    {"Item must have a name", mend_name},
    {"Bad field width", mend_width},
    {"Bad column number", mend_columns},
    {"Bad number of rows", mend_rows},
    {"", mend_line},
};

// Parses until nothing is refused; the body's items.
pt_body_item *parse_all(repair *work)
{
  pt_body_item *body = nullptr;
  // Each round mends a line; a table can be mended once for each of its cells.
  const size_t rounds = 3 * work->copy.size() + 10;
  for (size_t round = 0; round < rounds; round++) {
    orv_free_body(body);
    body = nullptr;
    const std::string message = parse(joined(work->copy), work->name, &body);
    if (message.empty()) {
      return body;
    }
    for (const auto &row : mendings) {
      if (message.find(row.part) != std::string::npos) {
        row.mend(work, message);
        break;
      }
    }
    if (work->copy.empty()) {
      break; // nothing left that could be mended
    }
  }
  orv_free_body(body);
  return nullptr;
}
