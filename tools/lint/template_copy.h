// A template on its way to a form: the copy that is mended line by line.

#ifndef LINT_TEMPLATE_COPY_H
#define LINT_TEMPLATE_COPY_H

#include <set>
#include <string>
#include <vector>

#include "device.h"
#include "keywords.h"

// A line of the copy and its number in the file.
struct copy_line {
  std::string text;
  int number;
};

// The work on one template.
struct repair {
  const source_file &file;
  const std::string &name;
  findings *found;
  std::vector<copy_line> copy;
  std::set<int> orphans; // attributes of an item that nobody can make out
};

// --- lines as the parser sees them -------------------------------------------

bool is_keyword_line(const std::string &line);
// In small letters; "" for a line that has none.
std::string keyword_of(const std::string &line);
// Where the text behind the keyword, or behind the blanks, begins.
size_t text_start(const std::string &line);
std::string text_of(const std::string &line);

// --- the parser --------------------------------------------------------------

// Why the parser stopped.
struct refusal {
  pt_fault_code code;
  int line; // that was read then
  std::string message;
};

// Parses `text`.  The body goes to `body` where that is given (owned by the
// caller, orv_free_body).
refusal parse(const std::string &text, const std::string &name,
              pt_body_item **body);
// What makes the parser talk of something else is reported by its own name.
void report_lines(const repair &work);
// A line for each of the file's, so that numbers stay true.
void copy_lines(repair *work);
// Parses and mends until nothing is refused; the body's items, owned by the
// caller (orv_free_body), NULL without any.
pt_body_item *parse_all(repair *work);

#endif
