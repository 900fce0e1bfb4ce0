// The parser's keywords, by name.

#include "keywords.h"

#include <map>

// The rows are the parser's own and not a list that is kept here: a keyword
// that the parser gains or loses is known at once, and no rule judges a
// template by what an older parser took.
typedef std::map<std::string, pt_keyword> keyword_map;

static keyword_map read_keywords(pt_line_kind kind)
{
  keyword_map all;
  pt_keyword row;
  for (size_t i = 0; orv_keyword(i, &row); i++) {
    if (row.kind == kind) {
      all.insert({row.keyword, row});
    }
  }
  return all;
}

// Asked for every line of every template, so the parser's table is turned into
// maps once.  They stand in the order of pt_line_kind, by which they are found,
// and live as long as the program: pointers into them are never stale.
static const keyword_map &keywords_of(pt_line_kind kind)
{
  static const keyword_map maps[] = {read_keywords(PT_HEADER_LINE),
                                     read_keywords(PT_ITEM_LINE),
                                     read_keywords(PT_ATTRIBUTE_LINE)};
  return maps[kind];
}

// A name is of one kind for one place: "title" is no item, so that a header's
// line in the body is not taken for one that the parser knows there.
static const pt_keyword *find(pt_line_kind kind, const std::string &name)
{
  const keyword_map &all = keywords_of(kind);
  const auto row = all.find(name);
  return row != all.end() ? &row->second : nullptr;
}

const pt_keyword *header_keyword(const std::string &name)
{
  return find(PT_HEADER_LINE, name);
}

const pt_keyword *item_keyword(const std::string &name)
{
  return find(PT_ITEM_LINE, name);
}

const pt_keyword *attribute_keyword(const std::string &name)
{
  return find(PT_ATTRIBUTE_LINE, name);
}

// For lines whose place does not matter.  No name is a keyword of two kinds, so
// the order of the search decides nothing.
const pt_keyword *any_keyword(const std::string &name)
{
  for (const pt_line_kind kind :
       {PT_HEADER_LINE, PT_ITEM_LINE, PT_ATTRIBUTE_LINE}) {
    const pt_keyword *row = find(kind, name);
    if (row != nullptr) {
      return row;
    }
  }
  return nullptr;
}

static void add_names(pt_line_kind kind, std::set<std::string> *names)
{
  for (const auto &row : keywords_of(kind)) {
    names->insert(row.first);
  }
}

// What was misspelt in a header is compared with keywords of the header alone:
// "did you mean" must not propose what would be refused there as well.
std::set<std::string> header_keywords(void)
{
  std::set<std::string> names;
  add_names(PT_HEADER_LINE, &names);
  return names;
}

std::set<std::string> body_keywords(void)
{
  std::set<std::string> names;
  add_names(PT_ITEM_LINE, &names);
  add_names(PT_ATTRIBUTE_LINE, &names);
  return names;
}
