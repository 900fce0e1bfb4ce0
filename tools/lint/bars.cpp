// Navigation bars, as far as they stand in the scripts that print them.
//
// What a loop or a file adds to a bar is known to the run alone, and is not
// judged here.

#include <algorithm>

#include "links.h"
#include "orv_limits.h"
#include "rules.h"
#include "text.h"

// The words that a command prints as lines of their own, if it is one that
// prints lines as they stand. Another format, or several words behind echo,
// make a line that is no word of the script any more, and a finding has to
// stand at a word.
static std::vector<const bash_word *> printed_lines(const bash_command &command)
{
  std::vector<const bash_word *> lines;
  const std::vector<bash_word> &words = command.words;
  if (command.kind != BASH_SIMPLE || words.size() < 2) {
    return lines;
  }
  if (words[0].plain == "echo" && words.size() == 2) {
    lines.push_back(&words[1]);
  } else if (words[0].plain == "printf" && words[1].plain == "%s\\n") {
    for (size_t i = 2; i < words.size(); i++) {
      lines.push_back(&words[i]);
    }
  }
  return lines;
}

static void check_entry(const device &dev, const source_file &file,
                        const bash_word &word, findings *found)
{
  const std::string &text = word.plain;
  const size_t gap = text.find_first_of(" \t");
  if (gap == std::string::npos) {
    report(found, file, word.line, word.column, "nav-line",
           "a link is a form, a blank and a label: \"navbar: Premature end of"
           " line\"");
    return;
  }
  const std::string target = text.substr(0, gap);
  const std::string label = text.substr(gap + 1);
  if (label.empty()) {
    report(found, file, word.line, word.column, "nav-line",
           "navbar: Missing a label");
  } else if (label.size() > ORV_BAR_LABEL_MAX && !is_inserted(label)) {
    report(found, file, word.line, word.column, "nav-label",
           "the label has " + std::to_string(label.size()) +
               " bytes and is cut after " + std::to_string(ORV_BAR_LABEL_MAX));
  }
  if (target != "-") {
    check_target(dev, file, word.line, word.column, target, found);
  }
}

// The lines that a command prints, or those of a here-document, are taken for a
// whole bar. Each by itself: two commands may stand in two arms of a case, for
// two forms, and their sum would be the bar of neither.
static void check_bar(const device &dev, const source_file &file,
                      const std::vector<const bash_word *> &lines,
                      findings *found)
{
  size_t entries = 1; // the fixed one
  bool first = true;
  for (const bash_word *word : lines) {
    // Only a first line "--" takes away the entry that the page itself puts in
    // front; further down it is a link that lacks its label.
    const bool fixed_off = first && word->plain == "--";
    first = false;
    if (fixed_off) {
      entries = 0;
      continue;
    }
    // "$entry" may be a whole entry or nothing, so it neither counts as one nor
    // lacks a label.
    if (is_inserted(word->plain) &&
        word->plain.find(' ') == std::string::npos) {
      continue;
    }
    if (++entries == ORV_BAR_MAX + 1) {
      report(found, file, word->line, word->column, "nav-full",
             "a bar has room for " + std::to_string(ORV_BAR_MAX) +
                 " links, \"Configuration\" included; this one"
                 " and those behind it are left out");
    }
    check_entry(dev, file, *word, found);
  }
}

// A bar that is full loses its last entry, so a change that waits comes first.
// A function or a substitution prints where it is used, which may be further
// down, so neither decides here. A line "--" must be the very first and is no
// entry.
static void check_pending(const script &s, findings *found)
{
  bool entries = false;
  for (const bash_command &command : s.code.commands) {
    const std::vector<const bash_word *> lines = printed_lines(command);
    entries |=
        command.substitution == 0 && command.function.empty() &&
        std::any_of(lines.begin(), lines.end(),
                    [](const bash_word *line) { return line->plain != "--"; });
    const bool reads =
        command.kind == BASH_SIMPLE && command.words.size() > 1 &&
        (command.words[0].plain == "." || command.words[0].plain == "source") &&
        ends_with(command.words[1].plain, "orv_navbar.sh");
    if (reads && entries) {
      report(found, *s.file, command.line, command.column, "guard-way",
             "read orv_navbar.sh before the script's own entries: a bar that is"
             " full leaves out its last one");
    }
  }
}

// Whether the script runs for nothing but bars. A script that has another task
// as well prints NAME=VALUE there, and none of these lines is a link.
static bool is_bar_only(const device &dev, const std::string &name)
{
  bool bar = false;
  for (const auto &entry : dev.forms) {
    if (entry.second.runs.count(name) != 0) {
      return false;
    }
    bar |= entry.second.scripts[TASK_NAVBAR].script == name;
  }
  return bar;
}

// The file that orv-store prints for forms without a script. Its lines become
// words, so that both kinds of bars are judged by the same code.
static void check_file(const device &dev, findings *found)
{
  std::vector<bash_word> words;
  for (size_t i = 0; i < dev.bar->lines.size(); i++) {
    bash_word word;
    word.plain = word.text = dev.bar->lines[i];
    word.line = static_cast<int>(i) + 1;
    word.column = 1;
    words.push_back(word);
  }
  std::vector<const bash_word *> lines;
  // In a second loop, since a vector that grows moves its words, and pointers
  // to them would be lost.
  for (const bash_word &word : words) {
    if (!word.plain.empty()) {
      lines.push_back(&word);
    }
  }
  check_bar(dev, *dev.bar, lines, found);
}

void check_bars(const device &dev, findings *found)
{
  if (dev.bar != nullptr) {
    check_file(dev, found);
  }
  for (const auto &entry : dev.scripts) {
    if (!is_bar_only(dev, entry.first)) {
      continue;
    }
    check_pending(entry.second, found);
    for (const bash_command &command : entry.second.code.commands) {
      // What $(...) prints is a value, and no line of the bar.
      if (command.substitution == 0) {
        check_bar(dev, *entry.second.file, printed_lines(command), found);
      }
    }
    // Which command reads a here-document is not known; a script that has no
    // task but the bar can hardly mean it for anything else.
    for (const std::vector<bash_word> &document : entry.second.code.documents) {
      std::vector<const bash_word *> lines;
      for (const bash_word &line : document) {
        if (!line.plain.empty()) {
          lines.push_back(&line);
        }
      }
      check_bar(dev, *entry.second.file, lines, found);
    }
  }
}
