// The parser's keywords, by name.

#ifndef LINT_KEYWORDS_H
#define LINT_KEYWORDS_H

#include <set>
#include <string>

#include "orv_keywords.h"

// The keyword in small letters, NULL when the parser has none of that kind.
const pt_keyword *header_keyword(const std::string &name);
const pt_keyword *item_keyword(const std::string &name);
const pt_keyword *attribute_keyword(const std::string &name);
// Of any kind.
const pt_keyword *any_keyword(const std::string &name);

std::set<std::string> header_keywords(void);
// Of items and attributes.
std::set<std::string> body_keywords(void);

#endif
