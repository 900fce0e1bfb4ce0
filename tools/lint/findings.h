// What orv-lint has found: places in files and what is wrong there.

#ifndef LINT_FINDINGS_H
#define LINT_FINDINGS_H

#include <stddef.h>

#include <map>
#include <string>
#include <vector>

// A file as it is shown in findings and as it was read.
struct source_file {
  std::string path;
  std::string text;
  std::vector<std::string> lines; // without their line ends
};

// A place in a file; line and column count from 1.
struct place {
  std::string path;
  int line;
  int column;
};

struct note {
  place at;
  std::string text;
};

struct finding {
  place at;
  std::string rule; // a name of the rule table
  std::string text;
  std::vector<note> notes;
};

typedef std::vector<finding> findings;
typedef std::map<std::string, source_file> source_files; // by path

// Adds a finding; a line or column below 1 counts as 1.
void report(findings *found, const source_file &file, int line, int column,
            const char *rule, const std::string &text,
            const std::vector<note> &notes = {});

enum output_format { FORMAT_TEXT, FORMAT_GCC, FORMAT_JSON };

// How findings are written, and what has been written of all folders.
struct finding_output {
  output_format format;
  bool warnings_are_errors;
  size_t written;
};

// Drops what comments in `files` switch off, sorts, and writes to
// standard output.  Findings of several forms that share a script are one.
void write_findings(const source_files &files, findings *found,
                    finding_output *output);

#endif
