// The parser's keywords, by name.

#include "keywords.h"

#include <map>

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

static const keyword_map &keywords_of(pt_line_kind kind)
{
  static const keyword_map maps[] = {read_keywords(PT_HEADER_LINE),
                                     read_keywords(PT_ITEM_LINE),
                                     read_keywords(PT_ATTRIBUTE_LINE)};
  return maps[kind];
}

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
