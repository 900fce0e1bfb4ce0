// Draws a part of a page and checks only its structure: data that breaks out of
// its place appears as an unexpected element, attribute or comment.

#ifndef PAGE_H
#define PAGE_H

#include <vector>

#include "cgi_output.h"
#include "fuzz.h"
#include "orv_parser.h"

// Belongs to the page frame, which is not linked.
char *scroll_y;
char *anchor_target;

// Collects the output of `work` on the response stream.
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

// Draws a body as a page of its own, then resets the renderer: a real process
// draws only one page.
inline std::string form_page(pt_body_item *body, char *title, const char *error)
{
  const std::string page = page_of([&] {
    cgi_set_default_heading(title);
    cgi_body_output(body, 1, error);
    cgiout_close_table();
    cgiout_close_form();
  });
  static char name[] = "="; // no variable has this one
  static pt_body_item last;
  last.type = PT_CHECKBOX;
  last.name = name;
  page_of([] {
    cgi_body_output(&last, 0, nullptr);
    cgiout_close_form();
  });
  return page;
}

// Every tag ends before the next begins, its quotes are paired, its element is
// one of ours, and the elements are nested.  A text may end more emphasis than
// it begins; emphasis left open ends with its paragraph.
inline bool page_is_whole(const std::string &page)
{
  static const std::string blocks =
      " a div form h1 h2 label li nav optgroup option p select span table td "
      "th thead tr ul ";
  static const std::string without_end = " br em input ";
  std::vector<std::string> open;
  int emphases = 0;
  size_t end = 0;
  for (size_t at = page.find('<'); at < page.size(); at = page.find('<', end)) {
    const bool is_comment = page.compare(at, 4, "<!--") == 0;
    end = is_comment ? page.find("-->", at + 4) : page.find('>', at);
    const std::string tag = page.substr(at + 1, end - at - 1);
    const bool runs_on =
        is_comment ? tag.find("--", 3) != tag.npos
                   : tag.find('<') != tag.npos ||
                         std::count(tag.begin(), tag.end(), '"') % 2 != 0;
    const size_t from = tag[0] == '/' ? 1 : 0;
    const size_t length = tag.find_first_of(" \n", from) - from;
    const std::string name = " " + tag.substr(from, length) + " ";
    if (name == " em ") {
      emphases = from == 0 ? emphases + 1 : std::max(emphases - 1, 0);
    }
    if (end == page.npos || runs_on || (name == " p " && emphases > 0)) {
      return false;
    }
    if (is_comment || without_end.find(name) != name.npos) {
      continue;
    }
    if (from == 0 && blocks.find(name) != name.npos) {
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
