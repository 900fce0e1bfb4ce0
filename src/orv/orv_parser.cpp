// The template parser.
//
// Three layers in one file, since the lower ones serve nobody else: a reader
// that holds one pending line, the substitution of $X$ in parameters, and the
// two parsers, which are tables of keywords and the functions that take their
// parameters.  The reader belongs to the template being read and is set anew
// by each header parse.  The substitution table owns copies of what it inserts
// and keeps them until the next header parse, so that choices added while a
// page is displayed never read what somebody has released since.
//
// Every failure is reported where it is found; a parse then releases all that
// it has built and returns NULL.  Nothing here knows what a form means: names
// are not looked up, conditions not paired, checks not named.

#include "orv_parser.h"

#include <algorithm>
#include <fcntl.h>
#include <iterator>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_keywords.h"
#include "orv_limits.h"
#include "orv_quote.h"

#ifndef ORV_TEMPLATE_DIR
#define ORV_TEMPLATE_DIR "/usr/share/larkspur/templates/"
#endif

constexpr int LINE_READ = ORV_LINE_MAX + 1; // with its terminator

// --- state -------------------------------------------------------------------

static char linebuf[LINE_READ + 1]; // the line being looked at
static int linebuf_empty = 1;       // 0 while that line waits to be consumed
static pt_pos location;             // of the line in linebuf
static bool choice_lost;            // for lack of memory, since iselect_setup
pt_fault orv_parser_fault; // set by what is refused, reset by each parse

struct subs_record {
  char tag;
  bool of_request;   // a request can choose it: quoted in script lines
  char *replacement; // NULL inserts nothing
};

enum { SUBS_FORM, SUBS_SUBITEM, SUBS_TITLE };

static char hash_sign[] = "#";
static char nothing[] = "";
static char the_same[] = "$?$"; // a tag that is not in the table

// The first three replacements are owned, and set by each header parse.
// clang-format off
static subs_record subs[] = {
  {'F',  true,  nullptr},
  {'S',  true,  nullptr},
  {'T',  false, nullptr},
  {'#',  false, hash_sign},
  {'|',  false, nothing},
  {'\0', false, nullptr},
};
// clang-format on

// Keeps why the parse ends; false, so that it can be returned.
static bool refuse(pt_fault_code code)
{
  orv_parser_fault = {code, location.line_number};
  return false;
}

// --- the template file -------------------------------------------------------

// Opened without blocking and only if it is a regular file, so that a name
// that leads to a pipe or a device cannot hold the request.
static FILE *open_regular(const char *path)
{
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    return nullptr;
  }
  struct stat info;
  FILE *fp = nullptr;
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
    fp = fdopen(fd, "r");
  }
  if (fp == nullptr) {
    close(fd);
  }
  return fp;
}

static char *template_path(const char *name, const char *extension)
{
  const size_t size =
      strlen(ORV_TEMPLATE_DIR) + strlen(name) + strlen(extension) + 1;
  char *path = static_cast<char *>(must_malloc(size));
  if (path != nullptr) {
    snprintf(path, size, "%s%s%s", ORV_TEMPLATE_DIR, name, extension);
  }
  return path;
}

static FILE *find_file(const char *name, const char *extension, int is_fatal)
{
  owned_text joined;
  const char *path = name;
  if (name[0] != '/') {
    joined.reset(template_path(name, extension));
    if (joined == nullptr) {
      return nullptr;
    }
    path = joined.get();
  }
  FILE *fp = open_regular(path);
  if (fp == nullptr && is_fatal != 0) {
    orv_fatal("Cannot find/read file %s", path);
    refuse(PT_NO_FILE);
  }
  return fp;
}

// --- lines and keywords ------------------------------------------------------

static int next_line(pt_header *hdr)
{
  if (linebuf_empty == 0) {
    return 1;
  }
  fgetpos(hdr->fp, &location.offset);
  if (fgets(linebuf, LINE_READ, hdr->fp) == nullptr) {
    return 0;
  }
  location.line_number++;
  linebuf_empty = 0;
  return 1;
}

static void line_used(void)
{
  linebuf_empty = 1;
}

// Such a character ends a keyword; a line that begins with one has none.
static bool ends_keyword(char c)
{
  return c == ' ' || c == '\t' || c == '\n' || c == '#';
}

static int next_keyword(pt_header *hdr)
{
  while (next_line(hdr) != 0) {
    if (!ends_keyword(linebuf[0])) {
      return 1;
    }
    line_used();
  }
  return 0;
}

// The comparison comes first: a line that ends early (a NUL byte ends it, too)
// differs before the character behind the keyword is looked at.
static int match_keyword(const char *key)
{
  if ((linebuf[0] | 0x20) != key[0]) { // as it is with most keywords
    return 0;
  }
  const size_t length = strlen(key);
  return strncasecmp(linebuf, key, length) == 0 && ends_keyword(linebuf[length])
             ? 1
             : 0;
}

// The row of the pending line's keyword, NULL when the table has none.
template <typename Row, size_t Rows>
static const Row *find_keyword(const Row (&table)[Rows])
{
  for (const Row &row : table) {
    if (match_keyword(row.keyword) != 0) {
      return &row;
    }
  }
  return nullptr;
}

static int fast_forward(pt_header *hdr, const char *key, pt_pos *cache)
{
  if (cache->line_number != 0) {
    if (fsetpos(hdr->fp, &cache->offset) != 0) {
      return 0;
    }
    location = *cache;
    location.line_number--;
    line_used();
    return 1;
  }
  while (next_keyword(hdr) != 0) {
    if (match_keyword(key) != 0) {
      *cache = location;
      return 1;
    }
    line_used();
  }
  return 0;
}

// --- parameters as they stand ------------------------------------------------

// Cuts the text at the first "#" that is not written "$#$".
static void cut_comment(char *text)
{
  char *mark = strchr(text, '#');
  while (mark != nullptr) {
    const bool written_out = mark > text && mark[-1] == '$' && mark[1] == '$';
    if (!written_out) {
      *mark = '\0';
      return;
    }
    mark = strchr(mark + 1, '#');
  }
}

static char *trim_parameter(void)
{
  std::replace(linebuf, linebuf + strlen(linebuf), '\t', ' ');
  char *text = linebuf + strcspn(linebuf, " #\n");
  text += strspn(text, " ");
  if (*text == '\0' || ends_keyword(*text)) {
    return nothing;
  }
  cut_comment(text);
  size_t length = strlen(text);
  while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == ' ')) {
    length--;
  }
  text[length] = '\0';
  return text;
}

// Ends the word at `text` and returns what follows the spaces behind it, NULL
// when there are none.
static char *split_word(char *text)
{
  char *space = strchr(text, ' ');
  if (space == nullptr) {
    return nullptr;
  }
  *space = '\0';
  return space + 1 + strspn(space + 1, " ");
}

static void find_two_words(char **one, char **two)
{
  *one = trim_parameter();
  if (two != nullptr) {
    *two = split_word(*one);
  }
}

// No word is ever followed by spaces alone, since the parameter is trimmed.
static void find_three_words(char **one, char **two, char **three)
{
  find_two_words(one, two);
  *three = *two != nullptr ? split_word(*two) : nullptr;
}

// The number that `text` begins with, 0 without one, cut to what an int holds.
static int leading_number(const char *text)
{
  const long number = strtol(text, nullptr, 10);
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

// --- substitution ------------------------------------------------------------

// Stores a copy.  False when memory ran out; then nothing is inserted.
static bool set_subs(subs_record *record, const char *value)
{
  char *copy = value != nullptr ? must_strdup(value) : nullptr;
  free(record->replacement);
  record->replacement = copy;
  return copy != nullptr || value == nullptr;
}

// The record of `tag`, or the table's last one.
static const subs_record *find_subs(char tag)
{
  const subs_record *record = subs;
  while (record->tag != '\0' && record->tag != tag) {
    record++;
  }
  return record;
}

static char *locate_subs(char tag)
{
  const subs_record *record = find_subs(tag);
  if (record->tag == '\0') {
    the_same[1] = tag;
    return the_same;
  }
  return record->replacement != nullptr ? record->replacement : nothing;
}

static bool is_tagged(const char *in)
{
  return in[0] == '$' && in[1] != '\0' && in[2] == '$';
}

// A stretch of an expansion: the template's own text or one replacement.
struct piece {
  const char *text; // borrowed until the next piece
  size_t length;
  bool of_request;
};

static piece next_piece(const char **in)
{
  const char *start = *in;
  if (is_tagged(start)) {
    *in += strlen(the_same);
    const char *text = locate_subs(start[1]);
    return {text, strlen(text), find_subs(start[1])->of_request};
  }
  do {
    ++*in;
  } while (**in != '\0' && !is_tagged(*in));
  return {start, static_cast<size_t>(*in - start), false};
}

// Writes `text` behind `length` bytes of `out`; only measures when that is
// NULL.
static void append(char *out, size_t *length, const char *text, size_t more)
{
  if (out != nullptr) {
    memcpy(out + *length, text, more);
  }
  *length += more;
}

// Writes the expansion of `in`, with a NUL behind it, and returns its length;
// only measures when `out` is NULL.  What a request can choose stands between
// two NULs, if that is asked for.
static size_t expand_pieces(char *out, const char *in, bool marked)
{
  size_t length = 0;
  while (*in != '\0') {
    const piece part = next_piece(&in);
    const size_t mark = marked && part.of_request && part.length != 0 ? 1 : 0;
    append(out, &length, "", mark);
    append(out, &length, part.text, part.length);
    append(out, &length, "", mark);
  }
  if (out != nullptr) {
    out[length] = '\0';
  }
  return length;
}

static size_t expand_p(char *out, const char *in)
{
  return expand_pieces(out, in, false);
}

static char *expand_parameter(const char *in)
{
  if (in == nullptr) {
    return nullptr;
  }
  char *text = static_cast<char *>(must_malloc(expand_p(nullptr, in) + 1));
  if (text != nullptr) {
    expand_p(text, in);
  }
  return text;
}

// The expansion of the script command line `in`, with its values quoted, owned
// by the caller; NULL with a report.
static char *expand_command(const char *in)
{
  const size_t length = expand_pieces(nullptr, in, true);
  const owned_text marked(static_cast<char *>(must_malloc(length + 1)));
  if (marked == nullptr) {
    return nullptr;
  }
  expand_pieces(marked.get(), in, true);
  size_t quoted = 0;
  if (!shell_quote(marked.get(), length, nullptr, &quoted)) {
    orv_fatal("Cannot quote a value in script command \"%s\"", in);
    refuse(PT_NOT_QUOTABLE);
    return nullptr;
  }
  char *line = static_cast<char *>(must_malloc(quoted + 1));
  if (line != nullptr) {
    shell_quote(marked.get(), length, line, &quoted);
    line[quoted] = '\0';
  }
  return line;
}

// Whether the expansion of `in` would hold what a request can choose.
static bool inserts_request_value(const char *in)
{
  while (*in != '\0') {
    if (next_piece(&in).of_request) {
      return true;
    }
  }
  return false;
}

// --- parameters, expanded ----------------------------------------------------

static char *save_oneline_parameter(void)
{
  char *text = expand_parameter(trim_parameter());
  line_used();
  return text;
}

// Texts grow by at least this much, so that most are allocated once.
constexpr size_t TEXT_STEP = 250;

// Appends `parameter` as one more line; a line break stands only between two.
static bool append_line(pt_text *save, const char *parameter)
{
  const size_t needed = expand_p(nullptr, parameter) + 2;
  if (save->len + needed > save->buf_len) {
    const size_t size = save->buf_len + std::max(needed, TEXT_STEP);
    if (must_realloc(&save->txt, size) == 0) {
      return false;
    }
    save->buf_len = size;
  }
  if (save->len != 0) {
    save->txt[save->len++] = '\n';
  }
  save->len += expand_p(save->txt + save->len, parameter);
  return true;
}

static int save_multiline_parameter(pt_header *hdr, pt_text *save)
{
  do {
    if (!append_line(save, trim_parameter())) {
      return 0;
    }
    line_used();
  } while (next_line(hdr) != 0 && ends_keyword(linebuf[0]));
  return 1;
}

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
  refuse(PT_SECOND_KEYWORD);
  return true;
}

// From here on the title can be inserted.  A title that shows what a request
// can choose is treated like that itself.
static bool take_title(pt_header *hdr, const header_keyword &row)
{
  if (is_second(hdr, row)) {
    return false;
  }
  subs_record *record = &subs[SUBS_TITLE];
  record->of_request = inserts_request_value(trim_parameter());
  hdr->title = save_oneline_parameter();
  return hdr->title != nullptr && set_subs(record, hdr->title);
}

static bool take_script(pt_header *hdr, const header_keyword &row)
{
  if (is_second(hdr, row)) {
    return false;
  }
  hdr->*row.text = expand_command(trim_parameter());
  line_used();
  return hdr->*row.text != nullptr;
}

static bool take_flag(pt_header *hdr, const header_keyword &row)
{
  row.set(hdr);
  line_used();
  return true;
}

static bool take_body(pt_header *hdr, const header_keyword &)
{
  hdr->start_body = location;
  line_used();
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
    if (next_keyword(hdr) == 0) {
      orv_fatal("orv_parse_header: no body keyword found");
      return refuse(PT_NO_BODY);
    }
    const header_keyword *row = find_keyword(header_keywords);
    if (row == nullptr) {
      orv_fatal("orv_parse_header: unknown keyword line %d \"%s\"",
                location.line_number, linebuf);
      return refuse(PT_UNKNOWN_HEADER_KEYWORD);
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
    hdr->*row.text = expand_command(row.script);
    if (hdr->*row.text == nullptr) {
      return false;
    }
  }
  return true;
}

// Points the reader at a new template and the table at a new request.
static bool reset_reader(const char *name, const char *subitem)
{
  location.line_number = 0;
  orv_parser_fault = {PT_NO_FAULT, 0};
  line_used();
  set_subs(&subs[SUBS_TITLE], nullptr);
  subs[SUBS_TITLE].of_request = false;
  return set_subs(&subs[SUBS_FORM], name) &&
         set_subs(&subs[SUBS_SUBITEM], subitem);
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
  hdr->fp = find_file(name, ".tpl", 1);
  if (hdr->fp == nullptr) {
    return nullptr;
  }
  hdr->name = must_strdup(name);
  if (hdr->name == nullptr || !reset_reader(name, subitem) ||
      !parse_header_lines(hdr.get())) {
    return nullptr;
  }
  if (hdr->title == nullptr) {
    orv_fatal("orv_parse_header: %s contains no title", name);
    refuse(PT_NO_TITLE);
    return nullptr;
  }
  return default_scripts(hdr.get()) ? hdr.release() : nullptr;
}

// --- choices -----------------------------------------------------------------

static int add_choice(pt_choices *choices, const char *value, const char *text)
{
  html_form_list_opt *node =
      static_cast<html_form_list_opt *>(must_malloc(sizeof *node));
  if (node == nullptr) {
    return 0;
  }
  memset(node, 0, sizeof *node);
  node->value = expand_parameter(value);
  node->label = expand_parameter(text);
  if (choices->last != nullptr) {
    choices->last->next = node;
  } else {
    choices->choices = node;
  }
  choices->last = node;
  choices->width = std::max(choices->width, static_cast<int>(strlen(text)));
  return node->value != nullptr && node->label != nullptr ? 1 : 0;
}

static void free_choices(pt_choices *choices)
{
  if (choices == nullptr) {
    return;
  }
  html_form_list_opt *node = choices->choices;
  while (node != nullptr) {
    html_form_list_opt *next = node->next;
    free(node->label);
    free(node->value);
    free(node);
    node = next;
  }
  choices->choices = nullptr;
  choices->last = nullptr;
}

void iselect_setup(pt_body_item *itm)
{
  free_choices(&itm->choices);
  choice_lost = false;
}

// A list that lacks a choice would post another one in its place; an empty one
// posts nothing, and the variable stays as it is.
void iselect_entry(pt_body_item *itm, char *var, char *, char *text)
{
  if (!choice_lost && add_choice(&itm->choices, var, text) == 0) {
    free_choices(&itm->choices);
    choice_lost = true;
  }
}

// --- body items --------------------------------------------------------------

// One parse of a body.
struct body_state {
  pt_header *hdr;
  pt_body_item *first;
  pt_body_item *current;
  bool allow_attributes; // the current item is an input item
  int collecting_table;  // cells that the table still lacks
  int column;            // of the next cell
};

struct item_keyword {
  const char *keyword;
  pt_type type;
  bool cell;         // may, and inside a table must, be a table's cell
  bool attributes;   // attribute lines may follow
  bool input;        // the form has something to submit
  signed char words; // used behind the keyword, or PT_ALL_WORDS
  bool (*take)(body_state *body, pt_body_item *itm);
};

// Reports a fault of the pending line; false, so that it can be returned.
static bool bad_line(pt_fault_code code, const char *fault)
{
  orv_fatal("orv_parse_body: line %d. %s", location.line_number, fault);
  return refuse(code);
}

static bool take_nothing(body_state *, pt_body_item *)
{
  line_used();
  return true;
}

static bool take_text(body_state *body, pt_body_item *itm)
{
  return save_multiline_parameter(body->hdr, &itm->text) != 0;
}

static bool take_oneline(body_state *, pt_body_item *itm)
{
  itm->text.txt = save_oneline_parameter();
  return itm->text.txt != nullptr;
}

static bool set_name(pt_body_item *itm, const char *name)
{
  if (name[0] == '\0') {
    return bad_line(PT_NO_NAME, "Item must have a name");
  }
  itm->name = must_strdup(name);
  return itm->name != nullptr;
}

// Takes the item's name; `*rest` receives what follows it, or NULL.
static bool take_two(pt_body_item *itm, char **rest)
{
  char *name = nullptr;
  find_two_words(&name, rest);
  line_used();
  return set_name(itm, name);
}

static bool take_name(body_state *, pt_body_item *itm)
{
  char *ignored = nullptr;
  return take_two(itm, &ignored);
}

static bool take_field(body_state *, pt_body_item *itm)
{
  char *width = nullptr;
  if (!take_two(itm, &width)) {
    return false;
  }
  if (width == nullptr) {
    return true;
  }
  itm->field.width = leading_number(width);
  return itm->field.width >= 1 || bad_line(PT_BAD_WIDTH, "Bad field width");
}

static bool take_selector(body_state *, pt_body_item *itm)
{
  char *selector = nullptr;
  if (!take_two(itm, &selector)) {
    return false;
  }
  itm->selector = must_strdup(selector != nullptr ? selector : itm->name);
  return itm->selector != nullptr;
}

// Name and columns; `*rows` receives the text of the row count or NULL.
static bool take_columns(body_state *body, pt_body_item *itm, char **rows)
{
  char *name = nullptr;
  char *columns = nullptr;
  find_three_words(&name, &columns, rows);
  line_used();
  if (!set_name(itm, name)) {
    return false;
  }
  const int count = columns != nullptr ? leading_number(columns) : 0;
  if (count < 1 || count > ORV_COLUMNS_MAX) {
    return bad_line(PT_BAD_COLUMNS, "Bad column number");
  }
  itm->table.columns = count;
  body->collecting_table = count;
  body->column = 0;
  return true;
}

static bool take_table(body_state *body, pt_body_item *itm)
{
  char *rows = nullptr;
  if (!take_columns(body, itm, &rows)) {
    return false;
  }
  const int count = rows != nullptr ? leading_number(rows) : 0;
  itm->table.add_rows = count > 0 ? count : 1;
  return true;
}

static bool take_ftable(body_state *body, pt_body_item *itm)
{
  char *rows = nullptr;
  if (!take_columns(body, itm, &rows)) {
    return false;
  }
  const int count = rows != nullptr ? leading_number(rows) : 0;
  if (count < 0) {
    return bad_line(PT_BAD_ROWS, "Bad number of rows");
  }
  itm->table.fixed_rows = count;
  return true;
}

// clang-format off
constexpr signed char ALL = PT_ALL_WORDS;
static const item_keyword item_keywords[] = {
  // keyword    type            cell   attr.  input  words parameter
  {"text",     PT_TEXT,        false, false, false, ALL,take_text},
  {"help",     PT_HELP_TEXT,   false, false, false, ALL,take_text},
  {"error",    PT_ERROR_TEXT,  false, false, false, ALL,take_text},
  {"center",   PT_HEADING_CTR, false, false, false, ALL,take_oneline},
  {"centre",   PT_HEADING_CTR, false, false, false, ALL,take_oneline},
  {"heading",  PT_HEADING_H1,  false, false, false, ALL,take_oneline},
  {"heading2", PT_HEADING_H2,  false, false, false, ALL,take_oneline},
  {"field",    PT_TEXT_FIELD,  true,  true,  true,  2,  take_field},
  {"fixed",    PT_TEXT_FIXED,  true,  true,  true,  2,  take_field},
  {"select",   PT_SELECT,      true,  true,  true,  1,  take_name},
  {"checkbox", PT_CHECKBOX,    true,  true,  true,  1,  take_name},
  {"iselect",  PT_ISELECT,     false, true,  true,  2,  take_selector},
  {"imenu",    PT_IMENU,       false, true,  false, 2,  take_selector},
  {"fmenu",    PT_FORMS_MENU,  false, true,  false, 0,  take_nothing},
  {"table",    PT_TABLE,       false, false, false, 3,  take_table},
  {"ftable",   PT_FTABLE,      false, false, false, 3,  take_ftable},
  {"if",       PT_IF,          false, false, false, ALL,take_oneline},
  {"ifnot",    PT_IFNOT,       false, false, false, ALL,take_oneline},
  {"else",     PT_ELSE,        false, false, false, 0,  take_nothing},
  {"endif",    PT_ENDIF,       false, false, false, 0,  take_nothing},
};
// clang-format on

// A cleared item at the end of the list, NULL when memory ran out.
static pt_body_item *append_item(body_state *body, const item_keyword &row)
{
  pt_body_item *itm = static_cast<pt_body_item *>(must_malloc(sizeof *itm));
  if (itm == nullptr) {
    return nullptr;
  }
  memset(itm, 0, sizeof *itm);
  itm->type = row.type;
  itm->line_number = location.line_number;
  itm->column = -1;
  if (body->current != nullptr) {
    body->current->next = itm;
  } else {
    body->first = itm;
  }
  body->current = itm;
  body->allow_attributes = row.attributes;
  return itm;
}

static bool take_item(body_state *body, const item_keyword &row)
{
  if (!row.cell && body->collecting_table != 0) {
    return bad_line(PT_NOT_IN_TABLE, "Item not allowed in table");
  }
  pt_body_item *itm = append_item(body, row);
  if (itm == nullptr || !row.take(body, itm)) {
    return false;
  }
  if (row.cell && body->collecting_table != 0) {
    itm->column = body->column++;
    body->collecting_table--;
  }
  if (row.input) {
    body->hdr->has_input_fields = 1;
  }
  return true;
}

// --- lines that add to the current item --------------------------------------

struct line_keyword {
  const char *keyword;
  bool (*take)(body_state *body, const line_keyword &row);
  char *pt_body_item::*text;
};

// Reports an attribute that cannot be set; false, so that it can be returned.
static bool bad_attribute(pt_fault_code code, const char *attribute,
                          const char *fault)
{
  orv_fatal("orv_parse_body: line %d. Attribute %s %s", location.line_number,
            attribute, fault);
  return refuse(code);
}

static bool may_have(const body_state *body, const char *attribute)
{
  return body->allow_attributes ||
         bad_attribute(PT_MISPLACED, attribute, "not allowed");
}

static bool is_unset(const char *present, const char *attribute)
{
  return present == nullptr ||
         bad_attribute(PT_SET_TWICE, attribute, "already set");
}

static bool is_field(const body_state *body)
{
  return body->current != nullptr && body->current->type == PT_TEXT_FIELD;
}

static bool take_attribute(body_state *body, const line_keyword &row)
{
  if (!may_have(body, row.keyword) ||
      !is_unset(body->current->*row.text, row.keyword)) {
    return false;
  }
  body->current->*row.text = save_oneline_parameter();
  return body->current->*row.text != nullptr;
}

static bool take_label(body_state *body, const line_keyword &row)
{
  if (!take_attribute(body, row)) {
    return false;
  }
  const int length = static_cast<int>(strlen(body->current->label));
  body->hdr->llabel_max = std::max(body->hdr->llabel_max, length);
  return true;
}

static bool take_item_help(body_state *body, const line_keyword &row)
{
  return may_have(body, row.keyword) &&
         is_unset(body->current->help.txt, row.keyword) &&
         save_multiline_parameter(body->hdr, &body->current->help) != 0;
}

static bool take_check(body_state *body, const line_keyword &row)
{
  if (!is_field(body)) {
    return bad_line(PT_MISPLACED, "Can only set check for text field entries");
  }
  char **check = &body->current->field.check;
  if (!may_have(body, row.keyword) || !is_unset(*check, row.keyword)) {
    return false;
  }
  *check = save_oneline_parameter();
  return *check != nullptr;
}

static bool copy_attribute(const body_state *body, char **to, const char *text,
                           const char *attribute)
{
  if (!may_have(body, attribute) || !is_unset(*to, attribute)) {
    return false;
  }
  *to = must_strdup(text);
  return *to != nullptr;
}

static bool take_check_msg(body_state *body, const line_keyword &)
{
  if (!is_field(body)) {
    return bad_line(PT_MISPLACED,
                    "Can only set check_msg for text field entries");
  }
  char *label = nullptr;
  char *message = nullptr;
  find_two_words(&label, &message);
  line_used();
  pt_field *field = &body->current->field;
  if (!copy_attribute(body, &field->check_label, label, "check_label")) {
    return false;
  }
  return message == nullptr ||
         copy_attribute(body, &field->check_msg, message, "check_message");
}

static bool take_choice(body_state *body, const line_keyword &)
{
  pt_body_item *itm = body->current;
  if (itm == nullptr ||
      (itm->type != PT_SELECT && itm->type != PT_FORMS_MENU)) {
    return bad_line(PT_MISPLACED, "Choice not allowed here");
  }
  char *value = nullptr;
  char *text = nullptr;
  find_two_words(&value, &text);
  line_used();
  if (text == nullptr) {
    return bad_line(PT_NO_CHOICE_TEXT,
                    "Choice requires selector and description");
  }
  return add_choice(&itm->choices, value, text) != 0 ||
         bad_line(PT_NO_MEMORY, "Out of memory adding choice");
}

// A line that older templates carry; it means nothing here.
static bool take_part(body_state *, const line_keyword &)
{
  line_used();
  return true;
}

// clang-format off
static const line_keyword line_keywords[] = {
  {"choice",    take_choice,    nullptr},
  {"label",     take_label,     &pt_body_item::label},
  {"rlabel",    take_attribute, &pt_body_item::rlabel},
  {"prompt",    take_attribute, &pt_body_item::prompt},
  {"value",     take_attribute, &pt_body_item::value},
  {"check",     take_check,     nullptr},
  {"check_msg", take_check_msg, nullptr},
  {"item_help", take_item_help, nullptr},
  {"part",      take_part,      nullptr},
};
// clang-format on

// --- keywords for others
// ------------------------------------------------------

static bool header_row(size_t index, pt_keyword *keyword)
{
  constexpr size_t rows = std::size(header_keywords);
  if (index >= rows) {
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

static bool item_row(size_t index, pt_keyword *keyword)
{
  constexpr size_t rows = std::size(item_keywords);
  if (index >= rows) {
    return false;
  }
  const item_keyword &row = item_keywords[index];
  *keyword = {
      row.keyword, PT_ITEM_LINE,   row.type,  row.words, row.take == take_text,
      row.cell,    row.attributes, row.input, nullptr};
  return true;
}

static bool line_row(size_t index, pt_keyword *keyword)
{
  constexpr size_t rows = std::size(line_keywords);
  if (index >= rows) {
    return false;
  }
  const line_keyword &row = line_keywords[index];
  *keyword = {row.keyword,
              PT_ATTRIBUTE_LINE,
              PT_TEXT,
              PT_ALL_WORDS,
              row.take == take_item_help,
              false,
              false,
              false,
              nullptr};
  return true;
}

bool orv_keyword(size_t index, pt_keyword *keyword)
{
  constexpr size_t headers = std::size(header_keywords);
  constexpr size_t items = std::size(item_keywords);
  return header_row(index, keyword) ||
         (index >= headers && item_row(index - headers, keyword)) ||
         (index >= headers + items &&
          line_row(index - headers - items, keyword));
}

// --- the body ----------------------------------------------------------------

static bool take_line(body_state *body)
{
  const item_keyword *item = find_keyword(item_keywords);
  if (item != nullptr) {
    return take_item(body, *item);
  }
  const line_keyword *line = find_keyword(line_keywords);
  if (line != nullptr) {
    return line->take(body, *line);
  }
  orv_fatal("orv_parse_body: unknown keyword line %d \"%s\"",
            location.line_number, linebuf);
  return refuse(PT_UNKNOWN_BODY_KEYWORD);
}

static bool parse_body_lines(body_state *body)
{
  while (next_keyword(body->hdr) != 0) {
    if (!take_line(body)) {
      return false;
    }
  }
  // The fields behind would be saved without their checks.
  if (ferror(body->hdr->fp) != 0) {
    orv_fatal("orv_parse_body: failed to read the template");
    return refuse(PT_READ_FAILED);
  }
  if (body->collecting_table != 0) {
    orv_fatal("orv_parse_body: Too few items for table."
              "%d remain to be collected",
              body->collecting_table);
    return refuse(PT_TABLE_TOO_SHORT);
  }
  return true;
}

pt_body_item *orv_parse_body(pt_header *hdr)
{
  hdr->has_input_fields = 0;
  orv_parser_fault = {PT_NO_FAULT, 0};
  if (fast_forward(hdr, "body", &hdr->start_body) == 0) {
    orv_fatal("orv_parse_body: failed to locate body keyword");
    refuse(PT_NO_BODY);
    return nullptr;
  }
  if (next_keyword(hdr) == 0 || match_keyword("body") == 0) {
    orv_fatal("orv_parse_body: unexpected keyword for body");
    refuse(PT_NO_BODY);
    return nullptr;
  }
  line_used();
  hdr->llabel_max = 0;
  body_state body = {hdr, nullptr, nullptr, false, 0, 0};
  if (!parse_body_lines(&body)) {
    orv_free_body(body.first);
    return nullptr;
  }
  return body.first;
}

// Releases what the item's kind keeps in the union.
static void free_content(pt_body_item *itm)
{
  switch (itm->type) {
  case PT_TEXT:
  case PT_HELP_TEXT:
  case PT_ERROR_TEXT:
  case PT_HEADING_CTR:
  case PT_HEADING_H1:
  case PT_HEADING_H2:
  case PT_IF:
  case PT_IFNOT:
    free(itm->text.txt);
    break;
  case PT_TEXT_FIELD:
    free(itm->field.check);
    free(itm->field.check_msg);
    free(itm->field.check_label);
    break;
  case PT_CHECKBOX:
  case PT_SELECT:
  case PT_ISELECT:
  case PT_FORMS_MENU:
    free_choices(&itm->choices);
    break;
  default:
    break;
  }
}

void orv_free_body(pt_body_item *list)
{
  while (list != nullptr) {
    pt_body_item *itm = list;
    list = itm->next;
    free(itm->name);
    free(itm->label);
    free(itm->rlabel);
    free(itm->prompt);
    free(itm->help.txt);
    free(itm->value);
    free(itm->selector);
    free_content(itm);
    free(itm);
  }
}
