// Reading a template with the parser of the executable.
//
// Faults that it would report as something else (CR LF, a last line without its
// end, a line longer than its buffer) are mended first; what the parser would
// have said of them goes along as a note.

#include "template_copy.h"

#include <algorithm>
#include <ctype.h>
#include <map>
#include <string.h>

#include "text.h"

// --- lines as the parser sees them -------------------------------------------

// A comment is no keyword line, and a blank makes a line go on.
bool is_keyword_line(const std::string &line)
{
  return !line.empty() && strchr(" \t#", line[0]) == nullptr;
}

// The same characters end a keyword as for the parser.
std::string keyword_of(const std::string &line)
{
  return is_keyword_line(line)
             ? lower(line.substr(0, line.find_first_of(" \t#")))
             : "";
}

// Where the text behind the keyword, or behind the blanks, begins.
// A line that is all keyword, or all blanks, has its text behind its end.
size_t text_start(const std::string &line)
{
  const size_t behind =
      is_keyword_line(line) ? line.find_first_of(" \t#") : size_t(0);
  const size_t start = line.find_first_not_of(" \t", behind);
  return behind == std::string::npos || start == std::string::npos ? line.size()
                                                                   : start;
}

// "$#$" is a "#" of the text and not the beginning of a comment, however many
// stand there. Tabs are blanks for the page; one character for one, so that
// offsets in the text stay columns of the line.
std::string text_of(const std::string &line)
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

// Whether lines that begin with a blank go on its text.
static bool goes_on(const std::string &keyword)
{
  const pt_keyword *row = any_keyword(keyword);
  return row != nullptr && row->text;
}

// --- the form ----------------------------------------------------------------

// Lines that the parser skips are left out, so a rule sees what counts.
// The line "body" still belongs to the header. Nothing in a header goes on in
// another line.
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
               !goes_on(keyword)) {
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
// else and endif without an if are reported elsewhere, and change nothing here.
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
// The parser has the names and numbers as the page will have them, and the text
// has the comments' and lines' places. Cells come right behind their table, as
// many as it has columns, since the copy has been mended to that.
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
                             item_keyword(line.keyword)->input,
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
// Of the copy before it is mended, as mending may empty a line that others go
// on.
static void report_indented(const repair &work)
{
  std::string keyword;
  for (const copy_line &line : work.copy) {
    if (is_keyword_line(line.text)) {
      keyword = keyword_of(line.text);
      continue;
    }
    const size_t start = text_start(line.text);
    if (start == line.text.size() || line.text[0] == '#' || goes_on(keyword)) {
      continue;
    }
    const std::string word = first_word(line.text.substr(start));
    if (word[0] != '#') {
      report(work.found, work.file, line.number, static_cast<int>(start) + 1,
             "indented",
             "this line means nothing, since it begins with a blank" +
                 (any_keyword(lower(word)) != nullptr
                      ? std::string("; a keyword stands at the line's start")
                      : " and " + in_quotes(keyword) + " has one line"));
    }
  }
}

// A "#" ends a text, which is easily forgotten.
// "Printer #2" and "color #fff" were meant to have the rest. A comment on
// purpose stands apart; one that switches off a rule is never a mistake.
static void report_cut(const repair &work)
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
    const size_t comment = line.text.find_first_not_of(" \t", cut + 1);
    const bool number =
        comment != std::string::npos &&
        (isdigit(static_cast<unsigned char>(line.text[comment])) ||
         line.text.compare(comment, strlen("of "), "of ") == 0);
    if (!apart || number) { // "Printer # 1", "# of printers"
      report(work.found, work.file, line.number, static_cast<int>(cut) + 1,
             "cut-comment",
             "the text ends here, since \"#\" begins a comment; write \"$#$\" "
             "for a \"#\"");
    }
  }
}

// Lines are reported from the file and the copy before the parser has its say:
// what they explain is mended by then and not refused once more. The lines must
// not move afterwards, since items point to them.
void read_form(const source_file &file, const std::string &name, form *into,
               findings *found)
{
  into->name = name;
  into->file = &file;
  repair work = {file, name, found, {}, {}};
  report_lines(work);
  copy_lines(&work);
  report_indented(work);
  report_cut(work);
  pt_body_item *body = parse_all(&work);
  add_lines(work, into);
  add_items(work, body, into);
  orv_free_body(body);
}
