// HTML elements on the response stream.
//
// Foreign bytes reach a page through the three functions under "escaping"
// alone, one for each context in which they can stand.  Element and attribute
// names come from the program and are written as they are, and so are bytes
// that are no UTF-8.  Owns whether the response has begun and the policy for
// its header.
//
// Line ends stand between elements where no reader sees them, never inside
// running text.  Nothing here fails, checks that elements are closed in order,
// or knows what a page is about.

#include "html.h"

#include <initializer_list>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "cgi.h"

// Nearly every comment fits; a longer one is formatted on the heap.
constexpr size_t COMMENT_SIZE = 512;
// Of a language's tag; language() says why.
constexpr size_t LANGUAGE_MIN = 2;
constexpr size_t LANGUAGE_MAX = 20;
constexpr size_t NUMBER_SIZE = 12; // an int in decimal, terminated

static const char *security_policy; // borrowed, set by the caller
static const char *cache_control = "private, no-cache";
static bool response_begun; // the header lines have been written

// A page is made of thousands of small pieces by one thread: a short one is
// copied into the stream's buffer at once, without a call and its lock.
constexpr size_t SHORT_PIECE = 32;

static void put_char(char c)
{
  putc_unlocked(c, cgiOut);
}

static void put(const char *text)
{
  for (; *text != '\0'; text++) {
    put_char(*text);
  }
}

static void put_bytes(const char *text, size_t length)
{
  if (length > SHORT_PIECE) {
    fwrite_unlocked(text, 1, length, cgiOut);
    return;
  }
  for (size_t i = 0; i < length; i++) {
    put_char(text[i]);
  }
}

// --- escaping ----------------------------------------------------------------

// What stands for a character of a text; NULL: itself.  Without a reference for
// "&", a text such as "&lt;" would be read as the sign that it names.
static const char *text_reference(char c)
{
  switch (c) {
  case '&':
    return "&amp;";
  case '<':
    return "&lt;";
  case '>':
    return "&gt;";
  default:
    return nullptr;
  }
}

// What stands for a character of an attribute value in double quotes.  A
// parser reads line ends back only when they are references.
static const char *value_reference(char c)
{
  switch (c) {
  case '"':
    return "&quot;";
  case '\t':
    return "&#9;";
  case '\n':
    return "&#10;";
  case '\r':
    return "&#13;";
  default:
    return text_reference(c);
  }
}

// Writes the text with the references of its context.
template <const char *(*reference)(char)>
static void put_escaped(const char *text, size_t length)
{
  size_t written = 0;
  for (size_t i = 0; i < length; i++) {
    // Most characters are letters, which need none in any context.  Bytes of
    // UTF-8 sequences may count as negative here, and need none either.
    const char *instead = text[i] > '>' ? nullptr : reference(text[i]);
    if (instead != nullptr) {
      put_bytes(text + written, i - written);
      put(instead);
      written = i + 1;
    }
  }
  put_bytes(text + written, length - written);
}

// A comment ends at "-->" or "--!>", and at once when it starts with ">" or
// "->".  No two "-" meet here, and blanks keep the text off the marks.
static void put_comment(const char *text)
{
  put("<!-- ");
  char last = '\0';
  for (; *text != '\0'; text++) {
    if (*text == '-' && last == '-') {
      put_char(' ');
    }
    put_char(*text);
    last = *text;
  }
  put(" -->");
}

void html_escape_data(const char *text, size_t length)
{
  put_escaped<text_reference>(text, length);
}

void html_escape(const char *text)
{
  if (text != nullptr) {
    html_escape_data(text, strlen(text));
  }
}

// The arguments are started twice: vsnprintf leaves a va_list without a value.
void html_comment(const char *format, ...)
{
  char small[COMMENT_SIZE] = "";
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(small, sizeof small, format, args);
  va_end(args);

  char *large = nullptr;
  const size_t size = length < 0 ? 0 : static_cast<size_t>(length) + 1;
  if (size > sizeof small) {
    large = static_cast<char *>(malloc(size));
  }
  if (large != nullptr) {
    va_start(args, format);
    vsnprintf(large, size, format, args);
    va_end(args);
  }
  put_comment(large != nullptr ? large : small); // cut when memory ran out
  free(large);
}

// --- tags --------------------------------------------------------------------

struct attribute {
  const char *name;
  const char *value;
};

static void put_attribute(const char *name, const char *value)
{
  if (value != nullptr) {
    put_char(' ');
    put(name);
    put("=\"");
    put_escaped<value_reference>(value, strlen(value));
    put_char('"');
  }
}

// Writes a start tag with the attributes that are not NULL.
static void open_tag(const char *element,
                     std::initializer_list<attribute> attributes,
                     const html_attribute *more = nullptr)
{
  put_char('<');
  put(element);
  for (const attribute &one : attributes) {
    put_attribute(one.name, one.value);
  }
  for (; more != nullptr; more = more->next) {
    put_attribute(more->name, more->value);
  }
  put_char('>');
}

static void close_tag(const char *element)
{
  put("</");
  put(element);
  put_char('>');
}

// The value of an attribute that counts by being there.  HTML looks only for
// its name: checked="false" ticks a box, too.
static const char *flag(bool set)
{
  return set ? "" : nullptr;
}

// --- plain elements ----------------------------------------------------------

// The functions html_NAME_begin(css_class, attrs) and html_NAME_end() of an
// element, with what follows its start tag and its end tag.
#define ELEMENT(name, behind_begin, behind_end)                                \
  void html_##name##_begin(const char *css_class, const html_attribute *attrs) \
  {                                                                            \
    open_tag(#name, {{"class", css_class}}, attrs);                            \
    put(behind_begin);                                                         \
  }                                                                            \
  ELEMENT_END(name, behind_end)

#define ELEMENT_END(name, behind_end)                                          \
  void html_##name##_end(void)                                                 \
  {                                                                            \
    close_tag(#name);                                                          \
    put(behind_end);                                                           \
  }

// clang-format off
ELEMENT(p,     "",   "\n")
ELEMENT(div,   "\n", "\n")
ELEMENT(span,  "",   "")
ELEMENT(em,    "",   "")
ELEMENT(ul,    "\n", "\n")
ELEMENT(li,    "",   "\n")
ELEMENT(thead, "\n", "\n")
ELEMENT(tr,    "",   "\n")
ELEMENT(th,    "",   "")
ELEMENT(td,    "",   "")

ELEMENT_END(label,  "")
ELEMENT_END(a,      "")
ELEMENT_END(table,  "\n")
ELEMENT_END(form,   "\n")
ELEMENT_END(main,   "\n")
ELEMENT_END(script, "\n")
ELEMENT_END(body,   "\n")
// clang-format on

void html_label_begin(const char *control_id, const char *css_class,
                      const html_attribute *attrs)
{
  open_tag("label", {{"for", control_id}, {"class", css_class}}, attrs);
}

void html_a_begin(const char *url, const char *css_class,
                  const html_attribute *attrs)
{
  open_tag("a", {{"href", url}, {"class", css_class}}, attrs);
}

void html_table_begin(const char *id, const char *css_class,
                      const html_attribute *attrs)
{
  open_tag("table", {{"id", id}, {"class", css_class}}, attrs);
  put("\n");
}

// A screen reader jumps to this landmark, past the bar that all pages have.
void html_main_begin(void)
{
  put("<main>\n");
}

void html_br(const char *css_class, const html_attribute *attrs)
{
  open_tag("br", {{"class", css_class}}, attrs);
}

void html_heading(int level, const char *text, const char *id,
                  const char *css_class, const html_attribute *attrs)
{
  const char *element = level == 0 ? "h1" : "h2";
  open_tag(element, {{"id", id}, {"class", css_class}}, attrs);
  html_escape(text);
  close_tag(element);
  put("\n");
}

// --- the document ------------------------------------------------------------

void html_content_security_policy(const char *policy)
{
  security_policy = policy;
}

void html_no_store(void)
{
  cache_control = "private, no-store";
}

// A page may hold a user's settings: it is private, but kept for the browser's
// Back, which would else lose what was typed.  The referrer stays on, since
// without it a post's origin would be hidden as well.  A browser must not guess
// another type from what a user typed (nosniff), and one that does not know the
// policy's frame-ancestors may know X-Frame-Options.
static void put_header_lines(enum html_http_status status)
{
  static const char *const texts[] = {
      "200 OK",        "401 Unauthorized",          "403 Forbidden",
      "404 Not Found", "500 Internal Server Error",
  };
  static_assert(sizeof texts / sizeof *texts ==
                    html_http_status_server_error + 1,
                "every status has its text");
  fprintf(cgiOut,
          "Status: %s\r\n"
          "Content-Type: text/html; charset=utf-8\r\n"
          "Cache-Control: %s\r\n"
          "X-Content-Type-Options: nosniff\r\n"
          "Referrer-Policy: same-origin\r\n"
          "X-Frame-Options: SAMEORIGIN\r\n",
          texts[status], cache_control);
  if (security_policy != nullptr) {
    fprintf(cgiOut, "Content-Security-Policy: %s\r\n", security_policy);
  }
  cgiHeaderEnd();
}

static void put_meta(const char *name, const char *content)
{
  if (content != nullptr) {
    open_tag("meta", {{"name", name}, {"content", content}});
    put("\n");
  }
}

// The language of the pages, as the device's environment names it.  Only what a
// language tag consists of (RFC 5646) is taken: the shortest has two letters,
// and larkspur-language chooses none of more than 20 characters.
static const char *language()
{
  static const char signs[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                              "abcdefghijklmnopqrstuvwxyz0123456789-";
  const char *named = getenv("ORV_LANG");
  const size_t length = named != nullptr ? strlen(named) : 0;
  return length >= LANGUAGE_MIN && length <= LANGUAGE_MAX &&
                 strspn(named, signs) == length
             ? named
             : "en";
}

void html_begin(enum html_http_status status, const char *title,
                const char *version, const char *author)
{
  // The page of a crash may follow a page that had already begun.
  if (!response_begun) {
    put_header_lines(status);
    response_begun = true;
  }
  put("<!DOCTYPE html>\n");
  open_tag("html", {{"lang", language()}});
  // The charset is in the header lines, too, which a saved file has lost.
  // Without the viewport a phone draws a page as wide as a desk's, and shrinks
  // it.
  put("\n<head>\n"
      "<meta charset=\"utf-8\">\n");
  put_meta("viewport", "width=device-width, initial-scale=1");
  put("<title>");
  html_escape(title);
  put("</title>\n");
  put_meta("generator", version);
  put_meta("author", author);
}

void html_end(void)
{
  put("</html>\n");
}

void html_head_stylesheet(int, const char *url)
{
  open_tag("link", {{"rel", "stylesheet"}, {"href", url}});
  put("\n");
}

void html_script_include(const char *type, const char *charset, const char *url)
{
  open_tag("script", {{"type", type}, {"charset", charset}, {"src", url}});
  html_script_end();
}

// No line end follows: a policy may name the script's text by its hash.
void html_script_begin(const char *type, const char *charset,
                       const html_attribute *attrs)
{
  open_tag("script", {{"type", type}, {"charset", charset}}, attrs);
}

void html_body_begin(const char *css_class, const html_attribute *attrs)
{
  put("</head>\n");
  open_tag("body", {{"class", css_class}}, attrs);
  put("\n");
}

// aria-current tells a screen reader where the user is; the style sheet marks
// the same entry by it.
static void put_navbar_entry(const html_navbar_entry *entry)
{
  static html_attribute current = {"aria-current", "page", nullptr};
  html_li_begin(nullptr, nullptr);
  if (entry->url != nullptr) {
    html_a_begin(entry->url, nullptr, entry->current ? &current : nullptr);
    html_escape(entry->label);
    html_a_end();
  } else {
    html_span_begin(nullptr, nullptr);
    html_escape(entry->label);
    html_span_end();
  }
  html_li_end();
}

void html_navbar_simple(const char *label, const html_navbar_entry *entries,
                        const html_attribute *attrs)
{
  const char *landmark = label != nullptr ? label : "Navigation";
  open_tag("nav", {{"class", "navbar"}, {"aria-label", landmark}}, attrs);
  html_ul_begin(nullptr, nullptr);
  for (; entries->label != nullptr; entries++) {
    put_navbar_entry(entries);
  }
  html_ul_end();
  close_tag("nav");
  put("\n");
}

// --- forms -------------------------------------------------------------------

// Without an action, a browser would post to the page's own address, whose
// query may name another form than the page shows.
void html_form_begin(const char *action, const char *method,
                     const html_attribute *attrs)
{
  open_tag("form",
           {{"action", action != nullptr ? action : cgiScriptName},
            {"method", method != nullptr ? method : "post"}},
           attrs);
  put("\n");
}

// A line for each, which no reader sees.  The controls below have no line end:
// it would show as a blank beside them.
void html_form_hidden(const char *name, const char *value, const char *id,
                      const html_attribute *attrs)
{
  open_tag("input",
           {{"type", "hidden"}, {"name", name}, {"value", value}, {"id", id}},
           attrs);
  put("\n");
}

void html_form_text_input(const char *name, const char *value, const char *id,
                          const char *css_class, const char *title,
                          const char *maxlength, const html_attribute *attrs)
{
  open_tag("input",
           {{"type", "text"},
            {"name", name},
            {"value", value},
            {"id", id},
            {"class", css_class},
            {"title", title},
            {"maxlength", maxlength}},
           attrs);
}

void html_form_password_input(const char *name, const char *value,
                              const html_attribute *attrs)
{
  open_tag("input", {{"type", "password"}, {"name", name}, {"value", value}},
           attrs);
}

void html_form_checkbox(const char *name, const char *value, int checked,
                        const char *id, const char *title,
                        const char *css_class, const html_attribute *attrs)
{
  open_tag("input",
           {{"type", "checkbox"},
            {"name", name},
            {"value", value},
            {"checked", flag(checked != 0)},
            {"id", id},
            {"title", title},
            {"class", css_class}},
           attrs);
}

void html_form_submit(const char *name, const char *label,
                      const char *css_class, const html_attribute *attrs)
{
  open_tag("input",
           {{"type", "submit"},
            {"name", name},
            {"value", label},
            {"class", css_class}},
           attrs);
}

static void put_option(const html_form_list_opt *option)
{
  open_tag("option", {{"value", option->value},
                      {"selected", flag(option->selected != 0)}});
  html_escape(option->label);
  close_tag("option");
  put("\n");
}

// The options with their groups, each of which ends where the next one begins.
static void put_options(const html_form_list_opt *option)
{
  bool in_group = false;
  for (; option != nullptr; option = option->next) {
    if (option->optgroup == 0) {
      put_option(option);
      continue;
    }
    put(in_group ? "</optgroup>\n" : "");
    open_tag("optgroup", {{"label", option->label}});
    put("\n");
    in_group = true;
  }
  put(in_group ? "</optgroup>\n" : "");
}

// One row is HTML's default, and makes it a list that drops down.
void html_form_list(const char *name, int rows, const char *id,
                    const html_form_list_opt *options, const char *css_class,
                    const html_attribute *attrs)
{
  char size[NUMBER_SIZE];
  snprintf(size, sizeof size, "%d", rows);
  open_tag("select",
           {{"name", name},
            {"size", rows > 1 ? size : nullptr},
            {"id", id},
            {"class", css_class}},
           attrs);
  put("\n");
  put_options(options);
  close_tag("select");
}
