// How forms lead to each other: menus, navigation bars, the special forms.
//
// What a script prints is known here only as far as it stands in the script as
// it will be printed; the rest shows when the scripts are run.

#include "links.h"

#include <algorithm>

#include "orv_limits.h"
#include "references.h"
#include "flow.h"
#include "rules.h"
#include "tasks.h"
#include "text.h"

// The executable's own part of an address: the usual one.
// A device may have it elsewhere.  With a longer address more links are cut
// than are reported here; with a shorter one, fewer.
static const std::string script_url = "/cgi-bin/orv";

// --- one link ----------------------------------------------------------------

// A "/" as the first character belongs to the form's name, which then is none
// that exists.
link_target split_target(const std::string &target)
{
  const size_t slash = target.find('/', 1);
  return slash == std::string::npos
             ? link_target{target, ""}
             : link_target{target.substr(0, slash), target.substr(slash + 1)};
}

static size_t address_length(const link_target &link)
{
  return script_url.size() + std::string("?form=").size() + link.form.size() +
         (link.subitem.empty() ? 0 : std::string("&subitem=").size()) +
         link.subitem.size();
}

static std::set<std::string> form_names(const device &dev)
{
  std::set<std::string> names;
  for (const auto &entry : dev.forms) {
    names.insert(entry.first);
  }
  return names;
}

// "%" since the word may be the format of printf, whose values are not known.
bool is_inserted(const std::string &text)
{
  return text.find('$') != std::string::npos ||
         text.find('%') != std::string::npos ||
         text.find('`') != std::string::npos;
}

// Whether the step says that the form makes no sense.
// By the library or by hand; orv_msg alone is no refusal, as the page is drawn
// with its message.
static bool is_refusal(const task_step &step)
{
  return first_word(*step.command) == "orv_fatal" ||
         std::any_of(step.command->words.begin(), step.command->words.end(),
                     [](const bash_word &word) {
                       return word.plain.find("error_fatal=") !=
                              std::string::npos;
                     });
}

// Whether the form's read script refuses to go on without one of its list: then
// a link without a sub-item leads nowhere.
// Any refusal on its way counts, certain or not: a script that asks for its
// sub-item mostly compares it with a list that stands nowhere.
static bool names_subitem(const device &dev, const form &f)
{
  const task_run read = follow_task(dev, f, TASK_READ);
  return std::any_of(read.steps.begin(), read.steps.end(), is_refusal);
}

// Whether the script looks at the argument that is the sub-item; where it does
// not, it takes another one for it, and that is reported there.
static bool looks_at_subitem(const task_run &read, const form &f)
{
  const std::vector<std::string> words = split_words(f.scripts[TASK_READ].text);
  // "$@" hands on all arguments, the sub-item among them.
  std::set<std::string> numbers = {"@", "*"};
  for (size_t i = 1; i < words.size(); i++) {
    if (words[i].find("$S$") != std::string::npos) {
      numbers.insert(std::to_string(i));
    }
  }
  const auto named = [&](const bash_word &word) {
    return std::any_of(
        word.expansions.begin(), word.expansions.end(),
        [&](const bash_expansion &e) { return numbers.count(e.name) != 0; });
  };
  return std::any_of(
      read.steps.begin(), read.steps.end(), [&](const task_step &step) {
        const bash_command &command = *step.command;
        return std::any_of(command.words.begin(), command.words.end(), named) ||
               std::any_of(command.assignments.begin(),
                           command.assignments.end(),
                           [&](const bash_assignment &assignment) {
                             return named(assignment.value);
                           });
      });
}

// A certain step is needed here: a refusal that depends on the device's state,
// or on a list that another program makes, says nothing of this sub-item.
// Whether it does so with this one, whatever else holds.
static bool refuses(const device &dev, const form &f,
                    const std::string &subitem)
{
  const task_run read = follow_task(dev, f, TASK_READ, subitem);
  return !read.opaque && looks_at_subitem(read, f) &&
         std::any_of(read.steps.begin(), read.steps.end(),
                     [](const task_step &step) {
                       return step.certain && is_refusal(step);
                     });
}

// Whether a form without a script has files for sub-items.
static bool has_subitems(const device &dev, const std::string &name)
{
  // The names are sorted, so the first that is not less is one of them, if any
  // is.
  const auto file = dev.settings.lower_bound(name + "@");
  return file != dev.settings.end() && starts_with(*file, name + "@");
}

// A link must say which of several things it means, and none that is not there.
// A form that has a file of its own name as well works without a sub-item.
// What a script makes up when it runs cannot be compared with anything.
static void check_subitem(const device &dev, const source_file &file, int line,
                          int column, const link_target &link, findings *found)
{
  const form &f = dev.forms.at(link.form);
  const bool kept = keeps_itself(dev, f);
  const bool several =
      kept ? has_subitems(dev, f.name) && dev.settings.count(f.name) == 0
           : uses_subitem(f) && names_subitem(dev, f);
  if (link.subitem.empty() && several) {
    report(found, file, line, column, "subitem",
           "the form " + in_quotes(link.form) +
               " is for one of several things; the link must name one, as " +
               in_quotes(link.form + "/NAME"));
  } else if (kept && !link.subitem.empty() && !is_inserted(link.subitem) &&
             dev.settings.count(link.form + "@" + link.subitem) == 0) {
    report(found, file, line, column, "subitem",
           "the device has no \"defaults/" + link.form + "@" + link.subitem +
               "\": with this sub-item the form is refused");
  } else if (!kept && !link.subitem.empty() && !is_inserted(link.subitem) &&
             refuses(dev, f, link.subitem)) {
    report(found, file, line, column, "subitem",
           "the script of the form " + in_quotes(link.form) +
               " refuses the sub-item " + in_quotes(link.subitem));
  }
}

// The caller goes on to the sub-item only then: of a form that is not there
// nothing can be said.
// Whether the form is there, and its address short enough.
static bool check_form(const device &dev, const source_file &file, int line,
                       int column, const link_target &link, findings *found)
{
  if (dev.forms.count(link.form) == 0) {
    report(found, file, line, column, "target",
           "no template " + in_quotes(link.form + ".tpl") +
               did_you_mean(link.form, form_names(dev)));
  } else if (address_length(link) > ORV_ADDRESS_MAX) {
    report(found, file, line, column, "link-long",
           "the address of this link is cut after " +
               std::to_string(ORV_ADDRESS_MAX) + " characters");
  } else {
    return true;
  }
  return false;
}

void check_target(const device &dev, const source_file &file, int line,
                  int column, const std::string &target, findings *found)
{
  const link_target link = split_target(target);
  if (!is_inserted(link.form) &&
      check_form(dev, file, line, column, link, found)) {
    check_subitem(dev, file, line, column, link, found);
  }
}

// --- menus -------------------------------------------------------------------

// Its entries are reported by scripts, and are looked at where those are.
// An imenu leads to the form of its name unless an entry says otherwise.
static void check_menu(const device &dev, const form &f, const form_item &item,
                       findings *found)
{
  if (item.type == PT_IMENU) {
    check_form(dev, *f.file, item.line, item.lines.front()->column,
               {item.name, ""}, found);
    return;
  }
  for (const form_line *line : item.lines) {
    if (line->keyword == "choice") {
      check_target(dev, *f.file, line->number, line->column,
                   choice_value(f, *line), found);
    }
  }
}

// --- which forms are reached -------------------------------------------------

// The forms that a text names as a link would.
// A name that is also an ordinary word may come up in any text, so a form is
// sometimes taken for reached that is not.  The other fault, a form that is
// reached and reported, would be worse.
static void add_words(const device &dev, const std::string &text,
                      std::set<std::string> *reached)
{
  std::string word;
  for (const char c : text + " ") {
    if (is_name_char(c) || c == '.' || c == '-') {
      word += c;
    } else {
      if (dev.forms.count(word) != 0) {
        reached->insert(word);
      }
      word.clear();
    }
  }
}

// Entries of a menu may be made anywhere in the form's scripts; those of a bar
// stand in a here-document, in words of commands or in arrays that a loop
// prints.  Comments are left out in all of these.
// Bars are read word by word: whatever a word says, it may be a link.
static void add_links(const device &dev, const form &f,
                      std::set<std::string> *reached)
{
  for (const form_item &item : f.items) {
    if (item.type == PT_IMENU) {
      reached->insert(item.name);
      for (const std::string &name : f.runs) {
        add_words(dev, dev.scripts.at(name).code.code, reached);
      }
    } else if (item.type == PT_FORMS_MENU) {
      for (const form_line *line : item.lines) {
        if (line->keyword == "choice") {
          reached->insert(split_target(choice_value(f, *line)).form);
        }
      }
    }
  }
  const std::string bar = f.scripts[TASK_NAVBAR].script;
  if (dev.bar != nullptr && dev.keepers.count(bar) != 0) {
    add_words(dev, dev.bar->text, reached);
  }
  if (leads_to_pending(dev, bar)) {
    reached->insert("confirm");
  }
  for (const std::string &name : with_sources(dev, bar)) {
    for (const std::vector<bash_word> &lines :
         dev.scripts.at(name).code.documents) {
      for (const bash_word &line : lines) {
        add_words(dev, line.plain, reached);
      }
    }
    for (const bash_command &command : dev.scripts.at(name).code.commands) {
      for (const bash_word &word : command.words) {
        add_words(dev, word.plain, reached);
      }
      for (const bash_assignment &assignment : command.assignments) {
        add_words(dev, assignment.value.plain, reached);
        for (const bash_word &element : assignment.elements) {
          add_words(dev, element.plain, reached);
        }
      }
    }
  }
}

// The special forms are where it starts: the system shows them without a link.
// The set is copied before the loop, which adds to it.
// From the start page on, until nothing new is found.
static void check_reached(const device &dev, findings *found)
{
  std::set<std::string> reached(special_forms.begin(), special_forms.end());
  std::set<std::string> done;
  bool more = true;
  while (more) {
    more = false;
    for (const std::string &name : std::set<std::string>(reached)) {
      const auto f = dev.forms.find(name);
      if (f != dev.forms.end() && done.insert(name).second) {
        add_links(dev, f->second, &reached);
        more = true;
      }
    }
  }
  for (const auto &entry : dev.forms) {
    if (reached.count(entry.first) == 0) {
      report(found, *entry.second.file, 1, 1, "unreachable",
             "no menu and no navigation bar leads to this form");
    }
  }
}

static void check_special(const device &dev, findings *found)
{
  for (const std::string &name : special_forms) {
    if (dev.forms.count(name) == 0) {
      // There is no file to report it in, so the place is where it should be.
      source_file missing;
      missing.path = dev.dir + "/templates/" + name + ".tpl";
      report(found, missing, 1, 1, "special-form",
             "this form is required: the system itself shows it" +
                 did_you_mean(name, form_names(dev)));
    }
  }
}

// --- messages of the page ----------------------------------------------------

// An `if $E$` only asks whether there is a message.  A form without anything to
// enter has no Submit, and so no errors of its own.
static void check_page_message(const form &f, findings *found)
{
  const auto input = std::find_if(f.items.begin(), f.items.end(), is_editable);
  if (input == f.items.end()) {
    return;
  }
  for (const form_line &line : f.lines) {
    if (!line.header && line.keyword != "if" && line.keyword != "ifnot" &&
        (line.text.find("$E$") != std::string::npos ||
         refers_to(line.text, "E", "msg"))) {
      return;
    }
  }
  report(found, *f.file, input->line, 1, "page-message",
         "this form has input items but does not show the page's message; "
         "begin its body with \"error $E$\"");
}

void check_links(const device &dev, findings *found)
{
  check_special(dev, found);
  check_reached(dev, found);
  for (const auto &entry : dev.forms) {
    for (const form_item &item : entry.second.items) {
      if (item.type == PT_IMENU || item.type == PT_FORMS_MENU) {
        check_menu(dev, entry.second, item, found);
      }
    }
    check_page_message(entry.second, found);
  }
}
