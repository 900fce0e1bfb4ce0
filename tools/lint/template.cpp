// Reading a template with the parser of the executable.
//
// The parser stops at the first fault, and an author wants to know all of them.
// So it is given a copy of the file; the line that it refuses is told in its
// own words and mended in the copy as it was most likely meant, and it starts
// again, until it is content.  Faults that it would report as something else
// (CR LF, a last line without its end, a line longer than its buffer) are
// mended first; what the parser would have said of them goes along as a note.

#include "lint.h"

#include <algorithm>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "orv_error.h"

// What one read takes, the line end included.
static constexpr size_t LINE_MAX_LENGTH = 249;

static const std::set<std::string> header_keywords = {
    "title",     "read_script", "check_script", "write_script", "navbar_script",
    "help_mode", "expert_mode", "no_header",    "no_footer",    "body"};
static const std::set<std::string> text_keywords = {"text", "help", "error",
                                                    "item_help"};
static const std::set<std::string> attribute_keywords = {
    "choice", "label", "rlabel",    "prompt",   "value",
    "check",  "part",  "check_msg", "item_help"};
static const std::set<std::string> cell_keywords = {"field", "fixed", "select",
                                                    "checkbox"};
static const std::set<std::string> item_keywords = {
    "text",  "help",   "error",    "center", "centre",  "heading", "heading2",
    "field", "fixed",  "checkbox", "select", "iselect", "imenu",   "fmenu",
    "table", "ftable", "if",       "ifnot",  "else",    "endif"};

// A line of the copy and its number in the file.
struct copy_line {
  std::string text;
  int number;
};

// The work on one template.
struct repair {
  const source_file &file;
  const std::string &name;
  findings *found;
  std::vector<copy_line> copy;
  std::set<int> orphans; // attributes of an item that nobody can make out
};

// --- lines as the parser sees them -------------------------------------------

static bool is_keyword_line(const std::string &line)
{
  return !line.empty() && strchr(" \t#", line[0]) == nullptr;
}

// The same characters end a keyword as for the parser.
static std::string keyword_of(const std::string &line)
{
  return is_keyword_line(line)
             ? lower(line.substr(0, line.find_first_of(" \t#")))
             : "";
}

// Where the text behind the keyword, or behind the blanks, begins.
static size_t text_start(const std::string &line)
{
  const size_t behind =
      is_keyword_line(line) ? line.find_first_of(" \t#") : size_t(0);
  const size_t start = line.find_first_not_of(" \t", behind);
  return behind == std::string::npos || start == std::string::npos ? line.size()
                                                                   : start;
}

static std::string text_of(const std::string &line)
{
  std::string text = line.substr(text_start(line));
  size_t mark = text.find('#');
  while (mark != std::string::npos && mark > 0 && text[mark - 1] == '$' &&
         mark + 1 < text.size() && text[mark + 1] == '$') {
    mark = text.find('#', mark + 1);
  }
  text.erase(std::min(mark, text.size()));
  text.erase(text.find_last_not_of(" \t") + 1);
  std::replace(text.begin(), text.end(), '\t', ' ');
  return text;
}

static std::string first_word(const std::string &text)
{
  return text.substr(0, text.find_first_of(" \t"));
}

// --- one parse ---------------------------------------------------------------

static std::string first_message;

// The first message is the cause; those behind it are its consequences.
static void keep_message(const char *message)
{
  if (first_message.empty()) {
    first_message = message;
  }
}

// What the parser needs: a file of its own.  -1 when there is no memory.
static int make_file(const std::string &text)
{
  const int fd = memfd_create("template", MFD_CLOEXEC);
  if (fd < 0) {
    return -1;
  }
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t put = write(fd, text.data() + done, text.size() - done);
    if (put <= 0) {
      close(fd);
      return -1;
    }
    done += static_cast<size_t>(put);
  }
  return fd;
}

// Parses `text`; the parser's first message, "" without one.  The body goes to
// `body` where that is given.
static std::string parse(const std::string &text, const std::string &name,
                         pt_body_item **body)
{
  first_message.clear();
  orv_fatal_no_exit = 1;
  orv_fatal_alt_report = keep_message;
  const int fd = make_file(text);
  if (fd < 0) {
    return "no memory for a template";
  }
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  pt_header *hdr = orv_parse_header(path.data(), nullptr);
  if (hdr != nullptr) {
    pt_body_item *items = orv_parse_body(hdr);
    if (body != nullptr) {
      *body = items;
    } else {
      orv_free_body(items);
    }
  }
  orv_free_header(hdr);
  close(fd);
  const size_t at = first_message.find(path);
  if (at != std::string::npos) {
    first_message.replace(at, path.size(), name);
  }
  return first_message;
}

static std::string joined(const std::vector<copy_line> &copy)
{
  std::string text;
  for (const copy_line &line : copy) {
    text += line.text + "\n";
  }
  return text;
}

// The number that the message names, 0 without one.
static int line_in(const std::string &message)
{
  const size_t at = message.find("line ");
  return at == std::string::npos ? 0 : atoi(message.c_str() + at + 5);
}

// --- what the parser would misread -------------------------------------------

static std::string without_mark(const std::string &line)
{
  return starts_with(line, BYTE_ORDER_MARK)
             ? line.substr(sizeof BYTE_ORDER_MARK - 1)
             : line;
}

// The copy has a line for each of the file's, so that numbers stay true.
static void copy_lines(repair *work)
{
  int number = 0;
  for (const std::string &line : work->file.lines) {
    number++;
    std::string text = number == 1 ? without_mark(line) : line;
    std::replace(text.begin(), text.end(), '\0', ' ');
    if (!text.empty() && text.back() == '\r') {
      text.pop_back();
    }
    work->copy.push_back({text.substr(0, LINE_MAX_LENGTH - 1), number});
  }
}

// What the parser says of the file as it is, as a note for the line that it
// names.
static std::vector<note> parser_note(const repair &work,
                                     const std::string &message, int line)
{
  const bool last = line == static_cast<int>(work.file.lines.size());
  const int named = line_in(message);
  if (message.empty() ||
      (named != line && named != line + 1 && !(named == 0 && last))) {
    return {};
  }
  std::string text = "the page would say: " + message;
  for (const char *end : {"\n", "\r"}) {
    for (size_t at = text.find(end); at != std::string::npos;
         at = text.find(end)) {
      text.erase(at, 1);
    }
  }
  return {{{work.file.path, line, 1}, text}};
}

// What makes the parser talk of something else is told once, by its own
// name.
static void tell_lines(const repair &work)
{
  const source_file &file = work.file;
  const std::string message = parse(file.text, work.name, nullptr);
  bool told_cr = false;
  int number = 0;
  for (const std::string &line : file.lines) {
    number++;
    const std::vector<note> notes = parser_note(work, message, number);
    if (number == 1 && starts_with(line, BYTE_ORDER_MARK)) {
      tell(work.found, file, 1, 1, "byte-order-mark",
           "the file begins with a byte order mark, which counts as text",
           notes);
    }
    if (!line.empty() && line.back() == '\r' && !told_cr) {
      told_cr = true;
      tell(work.found, file, number, static_cast<int>(line.size()), "crlf",
           "lines end in CR LF; the CR counts as text, so a keyword is not"
           " known and a value is another one",
           notes);
    }
    if (line.size() >= LINE_MAX_LENGTH) {
      tell(work.found, file, number, static_cast<int>(LINE_MAX_LENGTH),
           "long-line",
           "this line has " + std::to_string(line.size()) +
               " characters; what stands behind the 249th is read as another"
               " line",
           notes);
    }
    if (line.find('\0') != std::string::npos) {
      tell(work.found, file, number, static_cast<int>(line.find('\0')) + 1,
           "nul-byte", "a NUL byte ends this line for the parser", notes);
    }
  }
  if (!file.text.empty() && file.text.back() != '\n') {
    tell(work.found, file, number,
         static_cast<int>(file.lines.back().size()) + 1, "last-line",
         "the last line has no line end, so its keyword is not known",
         parser_note(work, message, number));
  }
}

// --- mending -----------------------------------------------------------------

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
static pt_body_item *parse_all(repair *work)
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

// --- the form ----------------------------------------------------------------

// Lines that the parser skips are left out, so a rule sees what counts.
static void add_lines(const repair &work, form *into)
{
  bool header = true;
  std::string keyword; // of the text that goes on
  for (const copy_line &line : work.copy) {
    if (line.text.empty() || line.text[0] == '#') {
      continue;
    }
    const bool continues = !is_keyword_line(line.text);
    if (!continues) {
      keyword = keyword_of(line.text);
    } else if (text_start(line.text) == line.text.size() || header ||
               text_keywords.count(keyword) == 0) {
      continue;
    }
    into->lines.push_back({line.number,
                           header,
                           keyword,
                           continues,
                           text_of(line.text),
                           static_cast<int>(text_start(line.text)) + 1,
                           -1,
                           {}});
    header &= keyword != "body";
  }
}

// The page holds 20; what is kept beside every line must not grow for ever.
static constexpr size_t CONDITIONS_MAX = 32;

static std::vector<condition> outermost(const std::vector<condition> &stack)
{
  const size_t count = std::min(stack.size(), CONDITIONS_MAX);
  return {stack.begin(), stack.begin() + static_cast<std::ptrdiff_t>(count)};
}

// Follows a line that is a condition's.
static void follow(std::vector<condition> *stack, const form_line &line)
{
  if (line.keyword == "if" || line.keyword == "ifnot") {
    stack->push_back({line.text, line.keyword == "if", line.number});
  } else if (line.keyword == "else" && !stack->empty()) {
    stack->back().holds = !stack->back().holds;
  } else if (line.keyword == "endif" && !stack->empty()) {
    stack->pop_back();
  }
}

// Items come from the parser, their lines and sections from the text.
static void add_items(const repair &work, const pt_body_item *body, form *into)
{
  std::map<int, const pt_body_item *> made; // by the file's line
  for (; body != nullptr; body = body->next) {
    const size_t number = static_cast<size_t>(body->line_number);
    if (number >= 1 && number <= work.copy.size()) {
      made[work.copy[number - 1].number] = body;
    }
  }
  std::vector<condition> stack;
  int table = -1;
  int cells = 0; // that the table still lacks
  for (form_line &line : into->lines) {
    if (line.header) {
      continue;
    }
    const auto item = made.find(line.number);
    if (item != made.end() && !line.continues) {
      const pt_body_item *at = item->second;
      const bool is_table = at->type == PT_TABLE || at->type == PT_FTABLE;
      const auto text = [](const char *s) {
        return std::string(s != nullptr ? s : "");
      };
      follow(&stack, line);
      into->items.push_back({at->type,
                             line.number,
                             text(at->name),
                             text(at->selector),
                             is_table ? at->table.columns : 0,
                             cells > 0 ? table : -1,
                             {},
                             outermost(stack)});
      cells = is_table ? at->table.columns : std::max(cells - 1, 0);
      table = is_table ? static_cast<int>(into->items.size()) - 1 : table;
    }
    line.item = static_cast<int>(into->items.size()) - 1;
    line.conditions = outermost(stack);
  }
  for (const form_line &line : into->lines) {
    if (line.item >= 0) {
      into->items[static_cast<size_t>(line.item)].lines.push_back(&line);
    }
  }
}

// A line that begins with a blank is more text or nothing at all; one that
// begins with a keyword was meant to be something.
static void tell_indented(const repair &work)
{
  std::string keyword;
  std::set<std::string> known = item_keywords;
  known.insert(attribute_keywords.begin(), attribute_keywords.end());
  known.insert(header_keywords.begin(), header_keywords.end());
  for (const copy_line &line : work.copy) {
    if (is_keyword_line(line.text)) {
      keyword = keyword_of(line.text);
      continue;
    }
    const size_t start = text_start(line.text);
    if (start == line.text.size() || line.text[0] == '#' ||
        text_keywords.count(keyword) != 0) {
      continue;
    }
    const std::string word = first_word(line.text.substr(start));
    if (word[0] != '#') {
      tell(work.found, work.file, line.number, static_cast<int>(start) + 1,
           "indented",
           "this line means nothing, since it begins with a blank" +
               (known.count(lower(word)) != 0
                    ? std::string("; a keyword stands at the line's start")
                    : " and " + in_quotes(keyword) + " has one line"));
    }
  }
}

// A "#" ends a text, which is easily forgotten.
static void tell_cut(const repair &work)
{
  for (const copy_line &line : work.copy) {
    if (line.text.empty() || line.text[0] == '#') {
      continue;
    }
    const size_t cut =
        line.text.find('#', text_start(line.text) + text_of(line.text).size());
    if (cut == std::string::npos || cut == 0 ||
        line.text.find("orv-lint:", cut) != std::string::npos) {
      continue;
    }
    const bool apart = strchr(" \t", line.text[cut - 1]) != nullptr &&
                       (cut + 1 == line.text.size() ||
                        strchr(" \t#", line.text[cut + 1]) != nullptr);
    if (!apart) {
      tell(work.found, work.file, line.number, static_cast<int>(cut) + 1,
           "cut-comment",
           "the text ends here, since \"#\" begins a comment; write \"$#$\""
           " for the sign");
    }
  }
}

void read_form(const source_file &file, const std::string &name, form *into,
               findings *found)
{
  into->name = name;
  into->file = &file;
  repair work = {file, name, found, {}, {}};
  tell_lines(work);
  copy_lines(&work);
  tell_indented(work);
  tell_cut(work);
  pt_body_item *body = parse_all(&work);
  add_lines(work, into);
  add_items(work, body, into);
  orv_free_body(body);
}
