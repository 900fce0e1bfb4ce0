// The header of a template: its title, the scripts and what its page has.
//
// Every failure is reported where it is found; the parse then releases all
// that it has built and returns NULL.

#include "orv_parser.h"

#include <iterator>
#include <memory>
#include <stdlib.h>
#include <string.h>

#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_template.h"

// --- header keywords ---------------------------------------------------------

struct header_keyword {
  const char *keyword;
  bool (*take)(pt_header *hdr, const header_keyword &row);
  char *pt_header::*text;      // where a parameter is stored, else NULL
  const char *script;          // default of a script's command line
  void (*set)(pt_header *hdr); // sets a flag
};

static bool is_second(const pt_header *hdr, const header_keyword &row)
{
  if (hdr->*row.text == nullptr) {
    return false;
  }
  orv_fatal("orv_parse_header: Second %s keyword found", row.keyword);
  tpl_refuse(PT_SECOND_KEYWORD);
  return true;
}

// From here on the title can be inserted.  A title that shows what a request
// can choose is treated like that itself.
static bool take_title(pt_header *hdr, const header_keyword &row)
{
  if (is_second(hdr, row)) {
    return false;
  }
  const bool of_request = tpl_inserts_request_value(tpl_parameter());
  hdr->title = tpl_take_line();
  return hdr->title != nullptr && tpl_set_code('T', hdr->title, of_request);
}

static bool take_script(pt_header *hdr, const header_keyword &row)
{
  if (is_second(hdr, row)) {
    return false;
  }
  hdr->*row.text = tpl_expand_command(tpl_parameter());
  tpl_line_used();
  return hdr->*row.text != nullptr;
}

static bool take_flag(pt_header *hdr, const header_keyword &row)
{
  row.set(hdr);
  tpl_line_used();
  return true;
}

static bool take_body(pt_header *hdr, const header_keyword &)
{
  hdr->start_body = *tpl_location();
  tpl_line_used();
  return true;
}

// clang-format off
static const header_keyword header_keywords[] = {
  {"title", take_title, &pt_header::title, nullptr, nullptr},
  {"read_script", take_script, &pt_header::read_script,
   "$F$.sh --read $F$ $S$", nullptr},
  {"check_script", take_script, &pt_header::check_script,
   "$F$.sh --check $F$ $S$", nullptr},
  {"write_script", take_script, &pt_header::write_script,
   "$F$.sh --write $F$ $S$", nullptr},
  {"navbar_script", take_script, &pt_header::navbar_script,
   "$F$.sh --navbar $F$ $S$", nullptr},
  {"expert_mode", take_flag, nullptr, nullptr,
   [](pt_header *hdr) { hdr->expert_mode = 1; }},
  {"help_mode", take_flag, nullptr, nullptr,
   [](pt_header *hdr) { hdr->help_mode = 1; }},
  {"no_header", take_flag, nullptr, nullptr,
   [](pt_header *hdr) { hdr->no_header = 1; }},
  {"no_footer", take_flag, nullptr, nullptr,
   [](pt_header *hdr) { hdr->no_footer = 1; }},
  {"body", take_body, nullptr, nullptr, nullptr},
};
// clang-format on

// --- the header --------------------------------------------------------------

static bool parse_header_lines(pt_header *hdr)
{
  while (hdr->start_body.line_number == 0) {
    if (tpl_next_keyword(hdr) == 0) {
      orv_fatal("orv_parse_header: no body keyword found");
      return tpl_refuse(PT_NO_BODY);
    }
    const header_keyword *row = tpl_find_keyword(header_keywords);
    if (row == nullptr) {
      orv_fatal("orv_parse_header: unknown keyword line %d \"%s\"",
                tpl_location()->line_number, tpl_line());
      return tpl_refuse(PT_UNKNOWN_HEADER_KEYWORD);
    }
    if (!row->take(hdr, *row)) {
      return false;
    }
  }
  return true;
}

static bool default_scripts(pt_header *hdr)
{
  for (const header_keyword &row : header_keywords) {
    if (row.script == nullptr || hdr->*row.text != nullptr) {
      continue;
    }
    hdr->*row.text = tpl_expand_command(row.script);
    if (hdr->*row.text == nullptr) {
      return false;
    }
  }
  return true;
}

void orv_free_header(pt_header *hdr)
{
  if (hdr == nullptr) {
    return;
  }
  if (hdr->fp != nullptr) {
    fclose(hdr->fp);
  }
  free(hdr->name);
  for (const header_keyword &row : header_keywords) {
    if (row.text != nullptr) {
      free(hdr->*row.text);
    }
  }
  free(hdr);
}

pt_header *orv_parse_header(char *name, char *subitem)
{
  std::unique_ptr<pt_header, orv_releaser<orv_free_header>> hdr(
      static_cast<pt_header *>(must_malloc(sizeof(pt_header))));
  if (hdr == nullptr) {
    return nullptr;
  }
  memset(hdr.get(), 0, sizeof(pt_header));
  hdr->fp = tpl_open(name);
  if (hdr->fp == nullptr) {
    return nullptr;
  }
  hdr->name = must_strdup(name);
  if (hdr->name == nullptr || !tpl_begin(name, subitem) ||
      !parse_header_lines(hdr.get())) {
    return nullptr;
  }
  if (hdr->title == nullptr) {
    orv_fatal("orv_parse_header: %s contains no title", name);
    tpl_refuse(PT_NO_TITLE);
    return nullptr;
  }
  return default_scripts(hdr.get()) ? hdr.release() : nullptr;
}

// --- keywords for others -----------------------------------------------------

bool pt_header_keyword(size_t index, pt_keyword *keyword)
{
  if (index >= std::size(header_keywords)) {
    return false;
  }
  const header_keyword &row = header_keywords[index];
  *keyword = {row.keyword, PT_HEADER_LINE,
              PT_TEXT,     row.text != nullptr ? PT_ALL_WORDS : 0,
              false,       false,
              false,       false,
              row.script};
  return true;
}

size_t pt_count_header_keywords(void)
{
  return std::size(header_keywords);
}
