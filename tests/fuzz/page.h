// Judges a piece of page by its structure alone: data that gets out of its
// place shows as an element, an attribute or a comment that does not fit.

#ifndef PAGE_H
#define PAGE_H

#include <string>
#include <vector>

#include "fuzz.h"

// Collects what `work` writes on the response stream.
template <typename Work> std::string page_of(Work work)
{
  static char *text;
  static size_t size;
  static FILE *const stream = open_memstream(&text, &size);
  rewind(stream);
  cgiOut = stream;
  work();
  fflush(stream);
  cgiOut = stdout;
  return {text, size};
}

// Every tag ends before the next begins, its quotes are paired, its element is
// one of ours, and the elements are nested.  Of emphasis a text may end more
// than it has begun, and what it leaves open ends with its paragraph.
inline bool page_is_whole(const std::string &page)
{
  static const std::string blocks =
      " a div form h1 h2 label li nav optgroup option p select span table td "
      "th thead tr ul ";
  static const std::string without_end = " br em input ";
  std::vector<std::string> open;
  int emphases = 0;
  size_t at = page.find('<');
  for (; at != std::string::npos; at = page.find('<', at)) {
    if (page.compare(at, 4, "<!--") == 0) {
      const size_t end = page.find("--", at + 4);
      if (end == std::string::npos || page[end + 2] != '>') {
        return false;
      }
      at = end + 3;
      continue;
    }
    const size_t end = std::min(page.find('>', at), page.size());
    const std::string tag = page.substr(at + 1, end - at - 1);
    const size_t from = tag[0] == '/' ? 1 : 0;
    const size_t length = tag.find_first_of(" \n", from) - from;
    const std::string name = " " + tag.substr(from, length) + " ";
    at = end;
    if (end == page.size() || tag.find('<') != std::string::npos ||
        std::count(tag.begin(), tag.end(), '"') % 2 != 0) {
      return false;
    }
    if (name == " em ") {
      emphases = from == 0 ? emphases + 1 : std::max(emphases - 1, 0);
    }
    if (name == " p " && emphases > 0) {
      return false;
    }
    if (without_end.find(name) != std::string::npos) {
      continue;
    }
    if (from == 0 && blocks.find(name) != std::string::npos) {
      open.push_back(name);
    } else if (from == 1 && !open.empty() && open.back() == name) {
      open.pop_back();
    } else {
      return false;
    }
  }
  return open.empty();
}

#endif
