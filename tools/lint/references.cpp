// The codes and references between dollars in a text.

#include "references.h"

#include <string.h>
#include <strings.h>

#include <algorithm>

#include "text.h"

// The part that begins with the dollar at `at`.  Like the executable, it looks
// for a code of one letter before it looks for a reference.
// So "$V$:name$" is the code $V$ and a text behind it.
static text_part read_part(const std::string &text, size_t at)
{
  const char type = at + 1 < text.size() ? text[at + 1] : '\0';
  if (at + 2 < text.size() && text[at + 2] == '$') {
    return {PART_TAG, type, "", at, 3};
  }
  if (at + 2 >= text.size() || text[at + 2] != ':' || !is_name_char(type)) {
    // Only the dollar: what stands behind it can begin with a dollar of its
    // own, as in "$5 or $V:price$".
    return {PART_DOLLAR, type, "", at, 1};
  }
  const size_t end = text.find('$', at + 3);
  if (end == std::string::npos) {
    // Nothing closes it, so there is no dollar in the rest of the text, and
    // only the three characters are its own.
    return {PART_OPEN, type, text.substr(at + 3), at, 3};
  }
  return {PART_REFERENCE, type, text.substr(at + 3, end - at - 3), at,
          end - at + 1};
}

std::vector<text_part> scan_text(const std::string &text)
{
  std::vector<text_part> parts;
  size_t at = 0;
  while (at < text.size()) {
    const size_t dollar = std::min(text.find('$', at), text.size());
    if (dollar > at) {
      // Parts follow each other without a gap, so the offset of each is a
      // column of the template.
      parts.push_back({PART_TEXT, '\0', "", at, dollar - at});
    }
    at = dollar;
    if (at < text.size()) {
      parts.push_back(read_part(text, at));
      at += parts.back().length;
    }
  }
  return parts;
}

std::vector<text_part> references_of(const std::string &text)
{
  std::vector<text_part> parts = scan_text(text);
  parts.erase(std::remove_if(parts.begin(), parts.end(),
                             [](const text_part &part) {
                               return part.kind != PART_REFERENCE;
                             }),
              parts.end());
  return parts;
}

bool refers_to(const std::string &text, const char *types,
               const std::string &name)
{
  const std::vector<text_part> parts = references_of(text);
  return std::any_of(parts.begin(), parts.end(), [&](const text_part &part) {
    return strchr(types, part.type) != nullptr &&
           strcasecmp(part.name.c_str(), name.c_str()) == 0;
  });
}
