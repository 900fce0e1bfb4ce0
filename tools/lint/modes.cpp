// What a header switches on, and words that a line takes without using them.

#include <algorithm>

#include "keywords.h"
#include "rules.h"
#include "text.h"

// --- the views ---------------------------------------------------------------

static const form_line *header_line(const form &f, const char *keyword)
{
  const auto at =
      std::find_if(f.lines.begin(), f.lines.end(), [&](const form_line &line) {
        return line.header && line.keyword == keyword;
      });
  return at != f.lines.end() ? &*at : nullptr;
}

// The first line that shows something in that view alone.
// One line is enough to report, and the first is where a reader looks.  A tag
// counts in any text, not in conditions alone: "if $X$" and a text that says
// $X$ both change with the button.
static const form_line *first_use(const form &f, const std::string &tag,
                                  const char *keyword)
{
  const auto at =
      std::find_if(f.lines.begin(), f.lines.end(), [&](const form_line &line) {
        return !line.header &&
               ((keyword != nullptr && line.keyword == keyword) ||
                line.text.find(tag) != std::string::npos);
      });
  return at != f.lines.end() ? &*at : nullptr;
}

// A button that does nothing is tried again and again by users; a text that no
// button shows was written for nobody.
// A button and what it shows belong together.
static void check_view(const form &f, const char *mode, const form_line *use,
                       const std::string &button, findings *found)
{
  const form_line *on = header_line(f, mode);
  if (on == nullptr && use != nullptr) {
    report(found, *f.file, use->number, 1, "mode",
           "nobody sees this: the button " + button + " is grey without " +
               in_quotes(mode) + " in the header");
  } else if (on != nullptr && use == nullptr) {
    report(found, *f.file, on->number, 1, "mode",
           "the button " + button + " changes nothing on this page");
  }
}

// --- words that mean nothing -------------------------------------------------

static bool is_number(const std::string &word)
{
  const size_t start = word[0] == '-' ? 1 : 0;
  return word.size() > start &&
         word.find_first_not_of("0123456789", start) == std::string::npos;
}

// Lists and menus of entries are let out: their second word is a name, not a
// number.  Of all others the words behind the first are numbers.
// The parser takes these lines and drops the words without a report.
static void check_words(const form &f, const form_line &line, findings *found)
{
  const pt_keyword *row = any_keyword(line.keyword);
  if (row == nullptr || row->words == PT_ALL_WORDS || line.continues ||
      row->type == PT_ISELECT || row->type == PT_IMENU) {
    return;
  }
  const size_t used = static_cast<size_t>(row->words);
  const std::vector<std::string> words = split_words(line.text);
  for (size_t i = 0; i < words.size(); i++) {
    // The first place where the word stands, which is only the column of the
    // finding.
    const size_t at = line.text.find(words[i]);
    if (i >= used) {
      const bool else_if = line.keyword == "else" && words[0] == "if";
      report(found, f, line, at, "extra-words",
             in_quotes(words[i]) + " means nothing here" +
                 (else_if ? "; there is no else if: write if and its endif on"
                            " lines of their own"
                          : ""));
      return;
    }
    if (i > 0 && !is_number(words[i])) {
      report(found, f, line, at, "extra-words",
             in_quotes(words[i]) + " is no number");
      return;
    }
  }
}

// --- values of choices -------------------------------------------------------

// A value goes to scripts between double quotes, with nothing escaped in it: a
// quote of its own would end it there for whoever takes them off.  Values of
// menus are links, and their names are judged with forms.
static void check_choice_value(const form &f, const form_line &line,
                               findings *found)
{
  const std::string value = choice_value(f, line);
  const size_t bad = value.find_first_of("\"\\`'");
  if (line.item >= 0 && bad != std::string::npos &&
      f.items[static_cast<size_t>(line.item)].type == PT_SELECT) {
    report(found, f, line, bad, "choice-value",
           "the value " + in_quotes(value) +
               " contains quotes or a backslash, which no script treats as "
               "text; a value is one word and needs none");
  }
}

void check_modes(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    check_view(f, "help_mode", first_use(f, "$H$", "help"), "Help", found);
    check_view(f, "expert_mode", first_use(f, "$X$", nullptr), "Expert", found);
    for (const form_line &line : f.lines) {
      check_words(f, line, found);
      if (line.keyword == "choice") {
        check_choice_value(f, line, found);
      }
    }
  }
}
