// A template as orv-lint reads and repairs it: each finding has a place in it,
// and each item has a line of its own.

#include "device.h"
#include "fuzz.h"
#include "text.h"

void fuzz(std::string_view input)
{
  const std::string text(input);
  const source_file file = {"form.tpl", text, split_lines(text)};
  const int lines = std::max(static_cast<int>(file.lines.size()), 1);
  form read;
  findings found;
  read_form(file, "form", &read, &found);
  for (const finding &f : found) {
    assert(f.at.line >= 1 && f.at.line <= lines && f.at.column >= 1 && !f.text.empty());
  }
  int before = 0;
  for (const form_item &item : read.items) {
    assert(item.line > before && item.line <= lines && !item.lines.empty());
    before = item.line;
  }
}
