// Findings: adding them, switching them off, writing them out.

#include "findings.h"

#include <algorithm>
#include <set>
#include <stdio.h>
#include <tuple>
#include <unistd.h>

#include "rules.h"
#include "terminal.h"
#include "text.h"

// What is wrong with a file as a whole is reported with line 0 or 1: the place
// must still be one that an editor can open.
void report(findings *found, const source_file &file, int line, int column,
            const char *rule, const std::string &text,
            const std::vector<note> &notes)
{
  found->push_back(
      {{file.path, std::max(line, 1), std::max(column, 1)}, rule, text, notes});
}

// --- comments that switch a rule off -----------------------------------------

// The same words in templates and scripts, since "#" begins a comment in both.
static const char SWITCH[] = "orv-lint: off";

// The rules that a comment of this line switches off.
// Only behind a "#" does it count: a text that explains the comment to users is
// none.  All words that follow are names of rules, so a reason belongs into a
// comment of its own.
static std::vector<std::string> switched_off(const std::string &line)
{
  const size_t mark = line.find('#');
  const size_t at = line.find(SWITCH, mark == std::string::npos ? 0 : mark);
  if (mark == std::string::npos || at == std::string::npos) {
    return {};
  }
  return split_words(line.substr(at + sizeof SWITCH - 1));
}

static bool is_comment(const std::string &line)
{
  const size_t start = line.find_first_not_of(" \t");
  return start != std::string::npos && line[start] == '#';
}

// Several comments may stand above a line, one a rule.  The search ends at the
// first line that is none, so a comment at the top of a file does not switch a
// rule off for the whole.
// A comment in the line itself counts, and those directly above it.
static bool is_off(const source_file &file, const finding &f)
{
  int number = f.at.line;
  do {
    if (number >= 1 && number <= static_cast<int>(file.lines.size())) {
      const auto off =
          switched_off(file.lines[static_cast<size_t>(number) - 1]);
      if (std::count(off.begin(), off.end(), f.rule) != 0) {
        return true;
      }
    }
    number--;
  } while (number >= 1 && number <= static_cast<int>(file.lines.size()) &&
           is_comment(file.lines[static_cast<size_t>(number) - 1]));
  return false;
}

// A misspelt rule switches nothing off, and whoever wrote it believes that it
// does as soon as the finding has gone for another reason.  This comes before
// findings are dropped, so that it can be switched off like any other.
static void report_unknown_switches(const source_files &files, findings *found)
{
  for (const auto &entry : files) {
    int number = 0;
    for (const std::string &line : entry.second.lines) {
      number++;
      for (const std::string &rule : switched_off(line)) {
        if (find_rule(rule) == nullptr) {
          report(found, entry.second, number,
                 static_cast<int>(line.rfind(rule)) + 1, "lint-comment",
                 "there is no rule " + in_quotes(rule) +
                     did_you_mean(rule, rule_names()));
        }
      }
    }
  }
}

// --- output ------------------------------------------------------------------

// Texts and names of files are somebody else's: a terminal obeys none of it.
static void write_shown(const std::string &text)
{
  for (size_t at = 0; at < text.size();) {
    at += terminal_char(stdout, text.c_str() + at);
  }
}

// Only the path is shown with care: the rest are numbers.
static void write_place(const place &at)
{
  write_shown(at.path);
  printf(":%d:%d: ", at.line, at.column);
}

// How wide a tab is drawn is known to the terminal alone: the same tabs above
// and below keep the mark under its column whatever that is.
// Tabs stay in the line and in the blanks that stand for it.
static void write_line(const std::string &line)
{
  for (size_t at = 0; at < line.size();) {
    if (line[at] == '\t') {
      putchar(line[at++]);
    } else {
      at += terminal_char(stdout, line.c_str() + at);
    }
  }
}

// Columns count bytes, a terminal shows characters: "ß" is two bytes and one
// blank, and what is shown as \x1b is one byte and four.  A column may lie
// behind the line's end, where what is missing was expected.
static std::string blanks_for(const std::string &line, size_t size)
{
  constexpr size_t SHOWN_BYTE = sizeof "\\x1b" - 1;
  std::string blanks;
  for (size_t at = 0; at < size;) {
    const char *text = line.c_str() + std::min(at, line.size());
    const size_t length = std::max(terminal_utf8_length(text), size_t(1));
    if (at < line.size() && *text == '\t') {
      blanks += '\t';
    } else if (at < line.size() && terminal_is_control(text)) {
      blanks.append(length * SHOWN_BYTE, ' ');
    } else {
      blanks += ' ';
    }
    at += length;
  }
  return blanks;
}

// A file that is missing, or that was not read, has no line to show.
static void write_caret(const source_files &files, const place &at)
{
  const auto file = files.find(at.path);
  if (file == files.end() ||
      at.line > static_cast<int>(file->second.lines.size())) {
    return;
  }
  const std::string &line =
      file->second.lines[static_cast<size_t>(at.line) - 1];
  printf("%5d | ", at.line);
  write_line(line);
  printf("\n      | %s^\n",
         blanks_for(line, static_cast<size_t>(at.column) - 1).c_str());
}

// The form of a compiler's messages, which editors can follow.  Notes repeat
// the rule, so that a line that is filtered by its rule keeps them.
static void write_text(const source_files &files, const finding &f,
                       const char *level, bool carets)
{
  write_place(f.at);
  printf("%s: ", level);
  write_shown(f.text);
  printf(" [%s]\n", f.rule.c_str());
  if (carets) {
    write_caret(files, f.at);
  }
  for (const note &more : f.notes) {
    write_place(more.at);
    printf("note: ");
    write_shown(more.text);
    printf(" [%s]\n", f.rule.c_str());
  }
}

// A text that is no UTF-8 is written byte by byte, so that the whole stays
// JSON; what a terminal obeys is written by its number.
static void write_json_text(const std::string &text)
{
  const bool plain = is_utf8(text);
  putchar('"');
  for (size_t at = 0; at < text.size();) {
    const char *c = text.c_str() + at;
    const size_t length =
        plain ? std::max(terminal_utf8_length(c), size_t(1)) : 1;
    // U+0080 to U+009F are written in UTF-8 as \xc2 and a byte of the same
    // number, so the last byte is the number that JSON wants.
    const unsigned char last = static_cast<unsigned char>(c[length - 1]);
    if (*c == '"' || *c == '\\') {
      printf("\\%c", *c);
    } else if (terminal_is_control(c) || (last >= 0x80 && !plain)) {
      printf("\\u%04x", static_cast<unsigned>(last)); // that of a C1 character
    } else {
      fwrite(c, 1, length, stdout);
    }
    at += length;
  }
  putchar('"');
}

static void write_json_place(const place &at)
{
  printf("\"file\": ");
  write_json_text(at.path);
  printf(", \"line\": %d, \"column\": %d", at.line, at.column);
}

// The array is begun and ended by the caller, around the findings of all
// folders.
static void write_json(const finding &f, const char *level, bool first)
{
  printf(first ? "\n{" : ",\n{");
  write_json_place(f.at);
  printf(", \"level\": \"%s\", \"rule\": \"%s\", \"text\": ", level,
         f.rule.c_str());
  write_json_text(f.text);
  printf(", \"notes\": [");
  const char *between = "";
  for (const note &more : f.notes) {
    printf("%s{", between);
    write_json_place(more.at);
    printf(", \"text\": ");
    write_json_text(more.text);
    printf("}");
    between = ", ";
  }
  printf("]}");
}

// Stable, so that of two that differ in their notes alone the first form's is
// kept, whatever machine it runs on.
// Findings of several forms that share a script are one.
static void sort_findings(findings *found)
{
  const auto key = [](const finding &f) {
    return std::tie(f.at.path, f.at.line, f.at.column, f.rule, f.text);
  };
  std::stable_sort(
      found->begin(), found->end(),
      [&](const finding &a, const finding &b) { return key(a) < key(b); });
  found->erase(std::unique(found->begin(), found->end(),
                           [&](const finding &a, const finding &b) {
                             return key(a) == key(b);
                           }),
               found->end());
}

// Where a column was taken for a value, a real number for a whole one or a
// redirection for a comparison, what follows from that is no second mistake.
static void drop_consequences(findings *found)
{
  static const word_set causes = {"column-row", "number-test", "number-text"};
  static const word_set consequences = {"input-number", "input-path", "store"};
  std::set<std::tuple<std::string, int, int>> places;
  const auto place_of = [](const finding &f) {
    return std::make_tuple(f.at.path, f.at.line, f.at.column);
  };
  for (const finding &f : *found) {
    if (causes.count(f.rule) != 0) {
      places.insert(place_of(f));
    }
  }
  found->erase(std::remove_if(found->begin(), found->end(),
                              [&](const finding &f) {
                                return consequences.count(f.rule) != 0 &&
                                       places.count(place_of(f)) != 0;
                              }),
               found->end());
}

// Switched-off findings are dropped last, so that rules need not know.
static void drop_switched_off(const source_files &files, findings *found)
{
  found->erase(std::remove_if(found->begin(), found->end(),
                              [&](const finding &f) {
                                const auto file = files.find(f.at.path);
                                return file != files.end() &&
                                       is_off(file->second, f);
                              }),
               found->end());
}

// A mark under the column is for people: a program that reads a pipe gets one
// line a finding, in the format "text" as well.
void write_findings(const source_files &files, findings *found,
                    finding_output *output)
{
  report_unknown_switches(files, found);
  drop_switched_off(files, found);
  drop_consequences(found);
  sort_findings(found);
  const bool carets =
      output->format == FORMAT_TEXT && isatty(STDOUT_FILENO) != 0;
  for (const finding &f : *found) {
    const bool error = output->warnings_are_errors || is_error(f.rule);
    const char *level = error ? "error" : "warning";
    if (output->format == FORMAT_JSON) {
      write_json(f, level, output->written == 0);
    } else {
      write_text(files, f, level, carets);
    }
    output->written++;
  }
}
