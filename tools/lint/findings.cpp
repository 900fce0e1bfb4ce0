// Findings: telling them, switching them off, writing them out.

#include "findings.h"

#include <algorithm>
#include <stdio.h>
#include <tuple>
#include <unistd.h>

#include "rules.h"
#include "text.h"

void tell(findings *found, const source_file &file, int line, int column,
          const char *rule, const std::string &text,
          const std::vector<note> &notes)
{
  found->push_back(
      {{file.path, std::max(line, 1), std::max(column, 1)}, rule, text, notes});
}

// --- comments that switch a rule off -----------------------------------------

static const char SWITCH[] = "orv-lint: off";

// The rules that a comment of this line switches off.
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

static void tell_unknown_switches(const source_files &files, findings *found)
{
  for (const auto &entry : files) {
    int number = 0;
    for (const std::string &line : entry.second.lines) {
      number++;
      for (const std::string &rule : switched_off(line)) {
        if (find_rule(rule) == nullptr) {
          tell(found, entry.second, number,
               static_cast<int>(line.rfind(rule)) + 1, "lint-comment",
               "there is no rule " + in_quotes(rule) +
                   did_you_mean(rule, rule_names()));
        }
      }
    }
  }
}

// --- output ------------------------------------------------------------------

static void write_caret(const source_files &files, const place &at)
{
  const auto file = files.find(at.path);
  if (file == files.end() ||
      at.line > static_cast<int>(file->second.lines.size())) {
    return;
  }
  const std::string &line =
      file->second.lines[static_cast<size_t>(at.line) - 1];
  std::string under;
  for (int i = 0; i + 1 < at.column; i++) {
    const size_t place = static_cast<size_t>(i);
    under += place < line.size() && line[place] == '\t' ? '\t' : ' ';
  }
  printf("%5d | %s\n      | %s^\n", at.line, line.c_str(), under.c_str());
}

static void write_text(const source_files &files, const finding &f,
                       const char *level, bool carets)
{
  printf("%s:%d:%d: %s: %s [%s]\n", f.at.path.c_str(), f.at.line, f.at.column,
         level, f.text.c_str(), f.rule.c_str());
  if (carets) {
    write_caret(files, f.at);
  }
  for (const note &more : f.notes) {
    printf("%s:%d:%d: note: %s [%s]\n", more.at.path.c_str(), more.at.line,
           more.at.column, more.text.c_str(), f.rule.c_str());
  }
}

// A text that is no UTF-8 is written byte by byte, so that the whole stays
// JSON.
static void write_json_text(const std::string &text)
{
  const bool plain = is_utf8(text);
  putchar('"');
  for (const char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      printf("\\%c", c);
    } else if (byte < ' ' || (byte >= 0x80 && !plain)) {
      printf("\\u%04x", static_cast<unsigned>(byte));
    } else {
      putchar(c);
    }
  }
  putchar('"');
}

static void write_json_place(const place &at)
{
  printf("\"file\": ");
  write_json_text(at.path);
  printf(", \"line\": %d, \"column\": %d", at.line, at.column);
}

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

void write_findings(const source_files &files, findings *found,
                    finding_output *output)
{
  tell_unknown_switches(files, found);
  drop_switched_off(files, found);
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
