// The lines of a template: a reader that holds one pending line, and the
// substitution of $X$ in what stands behind a keyword.
//
// The reader belongs to the template being read and is set anew by each header
// parse.  The table of codes owns copies of what it inserts and keeps them
// until the next header parse, so that choices added while a page is displayed
// never read what somebody has released since.  Every failure is reported where
// it is found.  What a keyword means is decided elsewhere.

#include "orv_template.h"

#include <algorithm>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "orv.h"
#include "orv_error.h"
#include "orv_expand.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_quote.h"

#ifndef ORV_TEMPLATE_DIR
#define ORV_TEMPLATE_DIR "/usr/share/larkspur/templates/"
#endif

constexpr int LINE_READ = ORV_LINE_MAX + 1; // with its terminator
static const char EXTENSION[] = ".tpl";

// --- state -------------------------------------------------------------------

static char linebuf[LINE_READ + 1]; // the line being looked at
static int linebuf_empty = 1;       // 0 while that line waits to be consumed
static pt_pos location;             // of the line in linebuf
pt_fault orv_parser_fault; // set by what is refused, reset by each parse

// The first three replacements are owned, and set by each header parse; what a
// request can choose is quoted in script lines.
// clang-format off
static orv_tag tags[] = {
  {'F',  true,  nullptr},
  {'S',  true,  nullptr},
  {'T',  false, nullptr},
  {'#',  false, "#"},
  {'|',  false, ""},
  {'\0', false, nullptr},
};
// clang-format on
static const orv_codes codes = {tags, nullptr};

bool tpl_refuse(pt_fault_code code)
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

static char *template_path(const char *name)
{
  const size_t size =
      strlen(ORV_TEMPLATE_DIR) + strlen(name) + strlen(EXTENSION) + 1;
  char *path = static_cast<char *>(must_malloc(size));
  if (path != nullptr) {
    snprintf(path, size, "%s%s%s", ORV_TEMPLATE_DIR, name, EXTENSION);
  }
  return path;
}

FILE *tpl_open(const char *name)
{
  owned_text joined;
  const char *path = name;
  if (name[0] != '/') {
    joined.reset(template_path(name));
    if (joined == nullptr) {
      return nullptr;
    }
    path = joined.get();
  }
  FILE *fp = open_regular(path);
  if (fp == nullptr) {
    orv_fatal("Cannot find/read file %s", path);
    tpl_refuse(PT_NO_FILE);
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

void tpl_line_used(void)
{
  linebuf_empty = 1;
}

// Such a character ends a keyword; a line that begins with one has none.
static bool ends_keyword(char c)
{
  return c == ' ' || c == '\t' || c == '\n' || c == '#';
}

int tpl_next_keyword(pt_header *hdr)
{
  while (next_line(hdr) != 0) {
    if (!ends_keyword(linebuf[0])) {
      return 1;
    }
    tpl_line_used();
  }
  return 0;
}

// The comparison comes first: a line that ends early (a NUL byte ends it, too)
// differs before the character behind the keyword is looked at.
int tpl_match_keyword(const char *key)
{
  if ((linebuf[0] | 0x20) != key[0]) { // as it is with most keywords
    return 0;
  }
  const size_t length = strlen(key);
  return strncasecmp(linebuf, key, length) == 0 && ends_keyword(linebuf[length])
             ? 1
             : 0;
}

int tpl_fast_forward(pt_header *hdr, const char *key, pt_pos *cache)
{
  if (cache->line_number != 0) {
    if (fsetpos(hdr->fp, &cache->offset) != 0) {
      return 0;
    }
    location = *cache;
    location.line_number--;
    tpl_line_used();
    return 1;
  }
  while (tpl_next_keyword(hdr) != 0) {
    if (tpl_match_keyword(key) != 0) {
      *cache = location;
      return 1;
    }
    tpl_line_used();
  }
  return 0;
}

// --- parameters as they stand ------------------------------------------------

static char nothing[] = "";

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

char *tpl_parameter(void)
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

void tpl_two_words(char **one, char **two)
{
  *one = tpl_parameter();
  if (two != nullptr) {
    *two = split_word(*one);
  }
}

// No word is ever followed by spaces alone, since the parameter is trimmed.
void tpl_three_words(char **one, char **two, char **three)
{
  tpl_two_words(one, two);
  *three = *two != nullptr ? split_word(*two) : nullptr;
}

// The number that `text` begins with, 0 without one, cut to what an int holds.
int tpl_leading_number(const char *text)
{
  const long number = strtol(text, nullptr, 10);
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

// --- substitution ------------------------------------------------------------

// Stores a copy.  False when memory ran out; then nothing is inserted.
static bool set_tag(orv_tag *record, const char *value)
{
  char *copy = value != nullptr ? must_strdup(value) : nullptr;
  free(const_cast<char *>(record->replacement));
  record->replacement = copy;
  return copy != nullptr || value == nullptr;
}

bool tpl_set_code(char tag, const char *value, bool of_request)
{
  orv_tag *record = orv_find_tag(&codes, tag);
  record->of_request = of_request;
  return set_tag(record, value);
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
    const orv_piece part = orv_next_piece(&codes, &in);
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

char *tpl_expand(const char *in)
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
char *tpl_expand_command(const char *in)
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
    tpl_refuse(PT_NOT_QUOTABLE);
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
bool tpl_inserts_request_value(const char *in)
{
  while (*in != '\0') {
    if (orv_next_piece(&codes, &in).of_request) {
      return true;
    }
  }
  return false;
}

// --- parameters, expanded ----------------------------------------------------

char *tpl_take_line(void)
{
  char *text = tpl_expand(tpl_parameter());
  tpl_line_used();
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

int tpl_take_text(pt_header *hdr, pt_text *save)
{
  do {
    if (!append_line(save, tpl_parameter())) {
      return 0;
    }
    tpl_line_used();
  } while (next_line(hdr) != 0 && ends_keyword(linebuf[0]));
  return 1;
}

// --- a template from its start -----------------------------------------------

bool tpl_begin(const char *name, const char *subitem)
{
  location.line_number = 0;
  orv_parser_fault = {PT_NO_FAULT, 0};
  tpl_line_used();
  return tpl_set_code('T', nullptr, false) && tpl_set_code('F', name, true) &&
         tpl_set_code('S', subitem, true);
}

const pt_pos *tpl_location(void)
{
  return &location;
}

const char *tpl_line(void)
{
  return linebuf;
}
