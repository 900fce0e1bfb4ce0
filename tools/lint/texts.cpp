// What stands between dollars in the texts of a template.

#include <string.h>

#include <algorithm>

#include "keywords.h"
#include "references.h"
#include "rules.h"
#include "text.h"

// Where a text is expanded, and what is known there.
enum text_kind {
  KIND_NONE,    // never shown
  KIND_COMMAND, // a script line
  KIND_PLAIN,   // shown as the parser leaves it
  KIND_SHOWN,   // expanded when drawn
  KIND_ITEM,    // the same beside a control, so $V$ and $N$ are its own
  KIND_MARKED,  // expanded, and its markup drawn
};

// The label of a column is a heading, which is drawn as it stands.
// Names and checks are no texts. A condition is one: the page expands it like
// any other before it asks whether it is blank.
static text_kind kind_of(const form &f, const form_line &line)
{
  static const std::map<std::string, text_kind> kinds = {
      {"title", KIND_SHOWN},          {"label", KIND_ITEM},
      {"rlabel", KIND_ITEM},          {"prompt", KIND_ITEM},
      {"check_msg", KIND_MARKED},     {"choice", KIND_PLAIN},
      {"read_script", KIND_COMMAND},  {"check_script", KIND_COMMAND},
      {"write_script", KIND_COMMAND}, {"navbar_script", KIND_COMMAND}};
  const pt_keyword *item = item_keyword(line.keyword);
  if (item != nullptr && item->words == PT_ALL_WORDS) {
    return item->text ? KIND_MARKED : KIND_SHOWN;
  }
  const auto kind = kinds.find(line.keyword);
  if (kind == kinds.end()) {
    return KIND_NONE;
  }
  const bool cell =
      line.item >= 0 && f.items[static_cast<size_t>(line.item)].table >= 0;
  return cell && line.keyword == "label" ? KIND_PLAIN : kind->second;
}

// The parser replaces its own wherever they stand but in a check_msg, the page
// the others while it draws; $V$ and $N$ mean the item that is drawn.
static const char PARSER_TAGS[] = "FST#|";
static const char PAGE_TAGS[] = "EHX";
static const char ITEM_TAGS[] = "VN";
static const char MARKUP[] = "BRLI$";
static const char TYPES[] = "CDENOUV";

static bool is_one_of(char c, const char *set)
{
  return c != '\0' && strchr(set, c) != nullptr;
}

// One text and where its findings go.
struct text_check {
  findings *found;
  const form &f;
  const form_line &line;
  text_kind kind;
};

static void report_at(const text_check &t, size_t at, const char *rule,
                      const std::string &text)
{
  report(t.found, t.f, t.line, at, rule, text);
}

// A tag, one character between two dollars.
static void check_tag(const text_check &t, size_t at)
{
  const char tag = t.line.text[at + 1];
  const std::string written = std::string("\"$") + tag + "$\"";
  const bool in_check_msg = t.line.keyword == "check_msg";
  if (is_one_of(tag, PARSER_TAGS) && !in_check_msg) {
    // The title is what $T$ stands for.
    if (tag == 'T' && t.line.keyword == "title") {
      report_at(t, at, "text-place", written + " is nothing yet in the title");
    }
    return;
  }
  const bool page = is_one_of(tag, PAGE_TAGS) || is_one_of(tag, ITEM_TAGS);
  if (page && t.kind == KIND_PLAIN) {
    report_at(t, at, "text-place",
              written + " is shown as it stands in a " +
                  (t.line.keyword == "choice" ? "choice" : "column's label"));
  } else if (is_one_of(tag, ITEM_TAGS) && t.kind != KIND_ITEM) {
    report_at(t, at, "text-place",
              written +
                  " is empty here; it means the item whose label or prompt"
                  " it stands in");
  } else if (is_one_of(tag, MARKUP) && t.kind != KIND_MARKED &&
             (tag != '$' || t.kind == KIND_PLAIN)) {
    report_at(t, at, "text-place",
              written + " is markup, which only text, help, error and check_msg"
                        " draw; here it is shown as it stands");
  } else if (!page && !is_one_of(tag, MARKUP)) {
    // The other case of a letter, and of a mark something that is no tag.
    const char other = static_cast<char>(tag ^ 0x20);
    const bool small = is_one_of(other, PARSER_TAGS) ||
                       is_one_of(other, PAGE_TAGS) ||
                       is_one_of(other, ITEM_TAGS) || is_one_of(other, MARKUP);
    report_at(
        t, at, "unknown-tag",
        written + " means nothing and is shown as it stands" +
            (small ? std::string(" (did you mean \"$") + other + "$\"?)" : ""));
  }
}

static bool is_variable_name(const std::string &name)
{
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return is_name_char(c) || is_one_of(c, ".-");
  });
}

// The part up to where its name ends.
// A reference that is not closed goes on to the next dollar, or to the end of
// the text; a finding with all of it would hide where the dollar is missing.
static std::string beginning(const text_check &t, const text_part &part)
{
  size_t length = 0;
  while (length < part.name.size() && (is_name_char(part.name[length]) ||
                                       is_one_of(part.name[length], ".-"))) {
    length++;
  }
  return t.line.text.substr(part.offset, 3 + length);
}

// A reference, "$T:name$".
static void check_reference(const text_check &t, const text_part &part)
{
  const std::string written =
      in_quotes(t.line.text.substr(part.offset, part.length));
  // An open one first: with the dollar in its place the letter may be right.
  const char other = static_cast<char>(part.type ^ 0x20);
  if (part.kind == PART_OPEN || !is_variable_name(part.name)) {
    report_at(t, part.offset, "reference",
              in_quotes(beginning(t, part)) +
                  " is not closed: a \"$\" must stand right behind the name");
  } else if (!is_one_of(part.type, TYPES)) {
    report_at(t, part.offset, "reference",
              written +
                  " means nothing: the letter must be one of C, D, E, N, O,"
                  " U, V" +
                  (is_one_of(other, TYPES) ? ", in capitals" : ""));
  } else if (t.kind == KIND_PLAIN) {
    report_at(t, part.offset, "text-place",
              written + " is shown as it stands in a " +
                  (t.line.keyword == "choice" ? "choice" : "column's label"));
  }
}

// "$name$" and "$V.name$" look like references and are plain text.
// A price, $5, is a text like any other and ends at a blank. A single character
// between two dollars is a tag, which has been judged.
static void check_dollar(const text_check &t, size_t at)
{
  const std::string &text = t.line.text;
  size_t end = at + 1;
  while (end < text.size() &&
         (is_name_char(text[end]) || is_one_of(text[end], ".:-{}"))) {
    end++;
  }
  if (text.compare(at, 2, "$$") == 0) {
    report_at(t, at, "unknown-tag",
              "\"$$\" means nothing and is shown as it stands; a dollar is"
              " written $$$");
  } else if (end < text.size() && text[end] == '$' && end > at + 2) {
    report_at(t, at, "unknown-tag",
              in_quotes(text.substr(at, end - at + 1)) +
                  " means nothing and is shown as it stands; a value is written"
                  " $V:name$");
  }
}

// A dollar that closes what only looks like a reference begins nothing.
// "$name$" is a dollar, a text and a dollar: the first is reported, and the
// second would begin another finding of the same mistake.
static void check_text(const text_check &t)
{
  bool closes = false;
  for (const text_part &part : scan_text(t.line.text)) {
    if (part.kind == PART_TAG) {
      check_tag(t, part.offset);
    } else if (part.kind == PART_DOLLAR && !closes) {
      check_dollar(t, part.offset);
    } else if (part.kind == PART_REFERENCE || part.kind == PART_OPEN) {
      check_reference(t, part);
    }
    closes = (part.kind == PART_DOLLAR && !closes) ||
             (closes && part.kind == PART_TEXT);
  }
}

void check_texts(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    for (const form_line &line : entry.second.lines) {
      const text_kind kind = kind_of(entry.second, line);
      if (kind != KIND_NONE && kind != KIND_COMMAND) {
        check_text({found, entry.second, line, kind});
      }
    }
  }
}
