// Texts: HTML, which has no meaning in them, emphasis that is not ended, and
// bytes that are not valid UTF-8.

#include <ctype.h>

#include <algorithm>

#include "keywords.h"
#include "references.h"
#include "rules.h"
#include "text.h"

// Of items the parser's row says it; attributes and the title have no such
// mark.  A condition is a text that nobody sees.
static bool is_text(const std::string &keyword)
{
  static const std::set<std::string> words = {"title",  "label",  "rlabel",
                                              "prompt", "choice", "check_msg"};
  const pt_keyword *item = item_keyword(keyword);
  return item != nullptr ? item->words == PT_ALL_WORDS && item->type != PT_IF &&
                               item->type != PT_IFNOT
                         : words.count(keyword) != 0;
}

// --- HTML --------------------------------------------------------------------

// The length of a tag such as <b>, </p> or <br/> at `at`, 0 without one.  Only
// known names count: texts such as <name> or a<b are meant literally.
static size_t tag_length(const std::string &text, size_t at)
{
  static const word_set tags = {
      "a",  "b",   "br",    "center", "code",   "div", "em",  "font",
      "h1", "h2",  "h3",    "hr",     "i",      "img", "li",  "ol",
      "p",  "pre", "small", "span",   "strong", "sub", "sup", "table",
      "td", "th",  "tr",    "tt",     "u",      "ul"};
  size_t end = at + 1;
  end += end < text.size() && text[end] == '/' ? 1 : 0;
  const size_t start = end;
  while (end < text.size() &&
         isalnum(static_cast<unsigned char>(text[end])) != 0) {
    end++;
  }
  // An address such as <a.b@example.org> is none: behind the name comes a
  // blank, "/" or ">".
  const bool known = tags.count(lower(text.substr(start, end - start))) != 0;
  const size_t close = text.find('>', end);
  return known && close != std::string::npos &&
                 (close == end || text[end] == ' ' || text[end] == '/')
             ? close + 1 - at
             : 0;
}

// The length of a character reference such as &nbsp; at `at`, 0 without one.
// The shortest have two letters, as &lt;.
static size_t entity_length(const std::string &text, size_t at)
{
  const size_t end = text.find_first_not_of(
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789#",
      at + 1);
  return end != std::string::npos && text[end] == ';' && end > at + 2
             ? end + 1 - at
             : 0;
}

// One finding a line: where one tag stands, its end does as well.
static void check_html(const form &f, const form_line &line, findings *found)
{
  for (size_t at = line.text.find_first_of("<&"); at != std::string::npos;
       at = line.text.find_first_of("<&", at + 1)) {
    const size_t length = line.text[at] == '<' ? tag_length(line.text, at)
                                               : entity_length(line.text, at);
    if (length != 0) {
      report(found, f, line, at, "html",
             in_quotes(line.text.substr(at, length)) +
                 " is shown literally: HTML has no meaning in texts" +
                 (line.text[at] == '<'
                      ? "; for emphasis use $B$ ... $R$, for a line break $L$"
                      : ""));
      return;
    }
  }
}

// --- emphasis ----------------------------------------------------------------

// Where emphasis began; it ends with its paragraph, which may have several
// lines.
struct emphasis {
  const form_line *line;
  size_t offset;
};

static void report_open(const form &f, const emphasis &open, findings *found)
{
  if (open.line != nullptr) {
    report(found, f, *open.line, open.offset, "emphasis",
           "this emphasis is not ended; add $R$ after its last word");
  }
}

// A second $B$ within emphasis changes nothing and is left alone.  What a value
// brings in is not seen here.
static void check_emphasis(const form &f, findings *found)
{
  emphasis open = {nullptr, 0};
  for (const form_line &line : f.lines) {
    const pt_keyword *row = any_keyword(line.keyword);
    if (!line.continues) {
      report_open(f, open, found);
      open.line = nullptr;
    }
    // Elsewhere $B$ is no markup; that is reported by itself.
    if (row == nullptr || !row->text) {
      continue;
    }
    for (const text_part &part : scan_text(line.text)) {
      if (part.kind == PART_TAG && part.type == 'B' && open.line == nullptr) {
        open = {&line, part.offset};
      } else if (part.kind == PART_TAG && part.type == 'R') {
        open.line = nullptr;
      }
    }
  }
  report_open(f, open, found);
}

// --- bytes -------------------------------------------------------------------

// Comments are let out: no page shows them.
static void check_bytes(const form &f, findings *found)
{
  int number = 0;
  for (const std::string &line : f.file->lines) {
    number++;
    if (!is_utf8(line) && line[0] != '#') {
      report(found, *f.file, number, 1, "utf8",
             "this line is not valid UTF-8; save the file as UTF-8");
      return; // the file has another encoding: one finding is enough
    }
  }
}

void check_markup(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    check_emphasis(entry.second, found);
    check_bytes(entry.second, found);
    for (const form_line &line : entry.second.lines) {
      if (is_text(line.keyword)) {
        check_html(entry.second, line, found);
      }
    }
  }
}
