// What stands between dollars in a text, as the page's expander finds it.

#ifndef LINT_REFERENCES_H
#define LINT_REFERENCES_H

#include <stddef.h>

#include <string>
#include <vector>

enum part_kind {
  PART_TEXT,      // shown as it stands
  PART_TAG,       // $x$
  PART_REFERENCE, // $x:name$
  PART_OPEN,      // "$x:" that no dollar closes
  PART_DOLLAR,    // a dollar that begins nothing
};

struct text_part {
  part_kind kind;
  char type;        // the character behind the dollar, '\0' without one
  std::string name; // of a reference
  size_t offset;
  size_t length;
};

// The whole of a text, in order.
std::vector<text_part> scan_text(const std::string &text);
// Its references alone.
std::vector<text_part> references_of(const std::string &text);
// Whether the text refers to that variable by one of these letters.  Capitals
// do not matter in names.
bool refers_to(const std::string &text, const char *types,
               const std::string &name);

#endif
