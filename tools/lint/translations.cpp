// Trees of the same device in several languages: their forms have the same
// fields and the same choices, and texts of their own.

#include "translations.h"

#include <algorithm>

#include "rules.h"
#include "text.h"

// Beside the forms that every device has.
// They have the same names on all devices, and say nothing about whether two
// folders belong together.
static bool is_own_form(const std::string &name)
{
  return !is_special(name) && name != "confirm";
}

static size_t count_own(const device &dev)
{
  return static_cast<size_t>(
      std::count_if(dev.forms.begin(), dev.forms.end(), [](const auto &entry) {
        return is_own_form(entry.first);
      }));
}

// Two devices may share a form; the same device in two languages shares most.
// Half of the larger one: with a lower bound a small device whose forms all
// stand in a large one, too, would lack all the others of that.
static bool are_translations(const device &a, const device &b)
{
  size_t shared = 0;
  for (const auto &entry : a.forms) {
    shared += is_own_form(entry.first) ? b.forms.count(entry.first) : 0;
  }
  return shared > 0 && shared * 2 >= std::max(count_own(a), count_own(b));
}

// A field and a table can have one name. What is submitted is compared with
// what is submitted.
static const form_item *find_item(const form &f, const form_item &like)
{
  const auto at =
      std::find_if(f.items.begin(), f.items.end(), [&](const form_item &item) {
        return item.input == like.input && lower(item.name) == lower(like.name);
      });
  return at != f.items.end() ? &*at : nullptr;
}

// Where the item would stand: behind the one that both have before it.
// Items stand in the same order in both, as a rule. The first line is the place
// where nothing of the other tree stands before it.
static int place_of(const form &f, const form &other, const form_item &missing)
{
  int line = 1;
  for (const form_item &item : other.items) {
    if (&item == &missing) {
      break;
    }
    const form_item *own = item.input ? find_item(f, item) : nullptr;
    line = own != nullptr ? own->lines.back()->number : line;
  }
  return line;
}

static note seen_at(const form &other, int line)
{
  return {{other.file->path, line, 1}, "it stands here"};
}

// A choice whose value was translated as well.
// False when the lists differ in length: then one lacks a choice, and that is
// another message. The values go to the scripts, which are the same for all
// languages; only the words behind them are translated.
static bool check_translated(const form &f, const form_item &own,
                             const form &other, const form_item &theirs,
                             bool first, findings *found)
{
  const std::set<std::string> choices = choices_of(other, theirs);
  if (choices_of(f, own).size() != choices.size()) {
    return false;
  }
  for (const form_line *line : own.lines) {
    const std::string value = choice_value(f, *line);
    if (!first && line->keyword == "choice" && choices.count(value) == 0) {
      report(found, f, *line, 0, "translation",
             in_quotes(own.name) + " has no choice " + in_quotes(value) +
                 " in the other tree: a value is the same in each language" +
                 did_you_mean(value, choices),
             {seen_at(other, theirs.line)});
    }
  }
  return true;
}

static void check_choices(const form &f, const form_item &own,
                          const form &other, const form_item &theirs,
                          bool first, findings *found)
{
  // Judged in both trees: each can lack what the other has.
  const std::set<std::string> choices = choices_of(f, own);
  if (check_translated(f, own, other, theirs, first, found)) {
    return;
  }
  for (const form_line *line : theirs.lines) {
    const std::string value = choice_value(other, *line);
    if (line->keyword == "choice" && choices.count(value) == 0) {
      report(found, f, *own.lines.front(), 0, "translation",
             in_quotes(own.name) + " has no choice " + in_quotes(value) +
                 ", which it has in the other tree" +
                 did_you_mean(value, choices),
             {seen_at(other, line->number)});
    }
  }
}

// The same check, whatever the language.
// What the page lets pass must not depend on the language, since the settings
// and scripts are shared. Blanks between the words mean nothing.
static void check_same_check(const form &f, const form_item &own,
                             const form &other, const form_item &theirs,
                             findings *found)
{
  const form_line *check = attribute(own, "check");
  const form_line *other_check = attribute(theirs, "check");
  const std::string text = check != nullptr ? check->text : "";
  const std::string other_text =
      other_check != nullptr ? other_check->text : "";
  if (split_words(text) != split_words(other_text)) {
    report(found, f, check != nullptr ? *check : *own.lines.front(), 0,
           "translation",
           in_quotes(own.name) +
               " has another check in the other tree: " + in_quotes(other_text),
           {seen_at(other, other_check != nullptr ? other_check->number
                                                  : theirs.line)});
  }
}

// The rows of two tables of the same name.
// The words behind the keyword, and not the columns alone: the number of rows
// stands there as well.
static void check_tables(const form &f, const form &other, findings *found)
{
  for (const form_item &own : f.items) {
    for (const form_item &theirs : other.items) {
      if ((own.type == PT_TABLE || own.type == PT_FTABLE) &&
          theirs.type == own.type && own.name == theirs.name &&
          split_words(own.lines.front()->text) !=
              split_words(theirs.lines.front()->text)) {
        report(found, f, *own.lines.front(), 0, "translation",
               in_quotes(own.name) +
                   " has other columns or rows in the other tree",
               {seen_at(other, theirs.line)});
      }
    }
  }
}

// Whether both are drawn under the same conditions.
// In the same order, since the order of nested sections is that of the
// template.
static bool is_drawn_alike(const form_item &own, const form_item &theirs)
{
  return std::equal(
      own.conditions.begin(), own.conditions.end(), theirs.conditions.begin(),
      theirs.conditions.end(), [](const condition &a, const condition &b) {
        return a.holds == b.holds && split_words(a.text) == split_words(b.text);
      });
}

// A condition that one tree lacks changes what the scripts get.
static void check_conditions(const form &f, const form &other, findings *found)
{
  for (const form_item &own : f.items) {
    const form_item *theirs =
        own.input && !own.name.empty() ? find_item(other, own) : nullptr;
    if (theirs != nullptr && !is_drawn_alike(own, *theirs)) {
      report(found, f, *own.lines.front(), 0, "translation",
             in_quotes(own.name) +
                 " is drawn under other conditions in the other tree",
             {seen_at(other, theirs->line)});
      return; // all that stands in the same section
    }
  }
}

// Those differences that both trees show are reported in one of them alone; a
// missing item is reported in the tree that lacks it, whichever that is.
static void check_form(const form &f, const form &other, bool first,
                       findings *found)
{
  if (!first) {
    check_tables(f, other, found);
    check_conditions(f, other, found);
  }
  for (const form_item &theirs : other.items) {
    // Texts and headings are what a translation changes.
    if (!theirs.input || theirs.name.empty()) {
      continue;
    }
    const form_item *own = find_item(f, theirs);
    if (own == nullptr) {
      report(found, *f.file, place_of(f, other, theirs), 1, "translation",
             "this form has no " + in_quotes(theirs.name) +
                 ", which it has in the other tree",
             {seen_at(other, theirs.line)});
    } else if (own->type != theirs.type || own->columns != theirs.columns) {
      report(found, f, *own->lines.front(), 0, "translation",
             in_quotes(own->name) + " is of another kind in the other tree",
             {seen_at(other, theirs.line)});
    } else if (own->type == PT_SELECT) {
      check_choices(f, *own, other, theirs, first, found);
    } else if (!first) {
      check_same_check(f, *own, other, theirs, found);
    }
  }
}

void check_translation(const device &dev, const device &other, bool first,
                       findings *found)
{
  if (!are_translations(dev, other)) {
    return;
  }
  for (const auto &entry : other.forms) {
    const auto own = dev.forms.find(entry.first);
    if (own != dev.forms.end()) {
      check_form(own->second, entry.second, first, found);
    } else {
      // There is no such file; its name is where it has to be made.
      report(found, {dev.dir + "/templates/" + entry.first + ".tpl", "", {}}, 1,
             1, "translation",
             "the other tree has this form, and this one lacks it",
             {seen_at(entry.second, 1)});
    }
  }
}
