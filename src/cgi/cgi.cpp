// Request decoding for a CGI program: one request, decoded once, in place.
//
// Owns the request's text, whose bytes become the names and values, and two
// arrays over it: the fields in the request's order and the same sorted by
// name.  Sorting finds repeated names and searching finds a field, so that no
// choice of names makes a request costly.  All of it lives from cgiInit to
// cgiFreeResources.  Each fault is found before anything has been acted on,
// gives one line to the system log and leaves no field behind; the error
// stream is the program's own.
//
// No uploads, no cookies, no session: a request is a list of form fields.

#include "cgi.h"

#include <algorithm>
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <syslog.h>
#include <unistd.h>

// A pipe to the web server takes no more at once, so a larger buffer would
// save no write.
constexpr size_t OUT_BUFFER_SIZE = 65536;

struct field {
  const char *name; // NULL: a repetition of an earlier field's name
  const char *value;
};

FILE *cgiOut = stdout;
const char *cgiScriptName = "";    // set by cgiInit
const char *cgiRequestMethod = ""; // set by cgiInit

// Set by cgiInit, reset by cgiFreeResources.
static char *request;       // owned: the text that the fields point into
static field *fields;       // owned: in the request's order
static unsigned num_fields; // repetitions included
static unsigned *by_name;   // owned: their numbers by name, no repetitions
static unsigned num_names;

// --- getting the request -----------------------------------------------------

static const char *environment(const char *name)
{
  const char *value = getenv(name);
  return value != nullptr ? value : "";
}

static int no_memory()
{
  syslog(LOG_ERR, "cgi: out of memory for the request");
  return CGI_NO_MEMORY;
}

static int too_large()
{
  syslog(LOG_ERR, "cgi: the request has more than %ld bytes", CGI_MAX_REQUEST);
  return CGI_TOO_LARGE;
}

// Copies the query string, whose place in the environment must stay as it is.
static int take_query(size_t *length)
{
  const char *query = environment("QUERY_STRING");
  *length = strlen(query);
  if (*length > static_cast<size_t>(CGI_MAX_REQUEST)) {
    return too_large();
  }
  request = strdup(query);
  return request != nullptr ? CGI_OK : no_memory();
}

// Whether the content type, parameters aside, is that of form fields.  Servers
// hand on a missing one as an empty one.
static bool is_form_type(const char *type)
{
  static const char form_type[] = "application/x-www-form-urlencoded";
  constexpr size_t length = sizeof form_type - 1;
  type += strspn(type, " \t");
  if (*type == '\0') {
    return true;
  }
  if (strncasecmp(type, form_type, length) != 0) {
    return false;
  }
  type += length;
  type += strspn(type, " \t");
  return *type == '\0' || *type == ';';
}

// The number that `text` is, or any larger than a request may have; -1 when it
// is none.
static long body_length(const char *text)
{
  long length = *text == '\0' ? -1 : 0;
  for (; *text >= '0' && *text <= '9'; text++) {
    length = std::min(length * 10 + (*text - '0'), CGI_MAX_REQUEST + 1);
  }
  return *text == '\0' ? length : -1;
}

// Reads up to `length` bytes of standard input into `buf`; the number read.
static size_t read_input(char *buf, size_t length)
{
  size_t have = 0;
  while (have < length) {
    const ssize_t got = read(STDIN_FILENO, buf + have, length - have);
    if (got == 0 || (got < 0 && errno != EINTR)) {
      break;
    }
    have += got > 0 ? static_cast<size_t>(got) : 0;
  }
  return have;
}

static int take_body(size_t *length)
{
  const char *type = environment("CONTENT_TYPE");
  if (!is_form_type(type)) {
    syslog(LOG_ERR, "cgi: the request's content type is \"%.80s\"", type);
    return CGI_BAD_TYPE;
  }
  const char *length_text = environment("CONTENT_LENGTH");
  const long announced = body_length(length_text);
  if (announced < 0) {
    syslog(LOG_ERR, "cgi: the request's length is \"%.80s\"", length_text);
    return CGI_BAD_LENGTH;
  }
  if (announced > CGI_MAX_REQUEST) {
    return too_large();
  }
  *length = static_cast<size_t>(announced);
  request = static_cast<char *>(malloc(*length + 1));
  if (request == nullptr) {
    return no_memory();
  }
  const size_t got = read_input(request, *length);
  if (got < *length) {
    syslog(LOG_ERR, "cgi: the request ended after %zu of %zu bytes", got,
           *length);
    return CGI_SHORT_BODY;
  }
  return CGI_OK;
}

// --- decoding it -------------------------------------------------------------

static char hex_digit(char c)
{
  return static_cast<char>(isdigit(static_cast<unsigned char>(c)) != 0
                               ? c - '0'
                               : (c | 0x20) - 'a' + 10);
}

static bool is_escape(const char *text, const char *end)
{
  return end - text > 2 && text[0] == '%' &&
         isxdigit(static_cast<unsigned char>(text[1])) != 0 &&
         isxdigit(static_cast<unsigned char>(text[2])) != 0;
}

// Decodes the bytes from `text` up to `end` where they are.  The result is no
// longer and is terminated, at `end` at the latest.
static void decode(char *text, char *end)
{
  char *out = text;
  while (text < end) {
    if (is_escape(text, end)) {
      *out = static_cast<char>(hex_digit(text[1]) << 4 | hex_digit(text[2]));
      text += 3;
    } else {
      *out = *text == '+' ? ' ' : *text;
      text++;
    }
    out++;
  }
  *out = '\0';
}

// The first `c` from `text` up to `end`, or `end`.
static char *find_byte(char *text, char *end, char c)
{
  void *found = memchr(text, c, static_cast<size_t>(end - text));
  return found != nullptr ? static_cast<char *>(found) : end;
}

// Decodes one piece between separators; `end` is writable.
static void take_piece(char *piece, char *end)
{
  char *equals = find_byte(piece, end, '=');
  const char *value = "";
  if (equals != end) {
    decode(equals + 1, end);
    value = equals + 1;
  }
  decode(piece, equals);
  if (*piece != '\0') {
    fields[num_fields] = {piece, value};
    num_fields++;
  }
}

static int split_request(size_t length)
{
  char *const end = request + length;
  const auto pieces = std::count(request, end, '&') + 1;
  if (pieces > CGI_MAX_FIELDS) {
    syslog(LOG_ERR, "cgi: the request has more than %d fields", CGI_MAX_FIELDS);
    return CGI_TOO_MANY_FIELDS;
  }
  fields = static_cast<field *>(
      malloc(static_cast<size_t>(pieces) * sizeof *fields));
  if (fields == nullptr) {
    return no_memory();
  }
  for (char *piece = request; piece <= end;) {
    char *piece_end = find_byte(piece, end, '&');
    take_piece(piece, piece_end);
    piece = piece_end + 1;
  }
  return CGI_OK;
}

// --- finding fields ----------------------------------------------------------

// Orders field numbers by name, and those of one name as they came.
static int compare_fields(const void *left, const void *right)
{
  const unsigned a = *static_cast<const unsigned *>(left);
  const unsigned b = *static_cast<const unsigned *>(right);
  const int order = strcmp(fields[a].name, fields[b].name);
  return order != 0 ? order : (a > b) - (a < b);
}

static int compare_name(const void *name, const void *element)
{
  const field *entry = &fields[*static_cast<const unsigned *>(element)];
  return strcmp(static_cast<const char *>(name), entry->name);
}

static int sort_fields()
{
  by_name = static_cast<unsigned *>(malloc((num_fields + 1) * sizeof *by_name));
  if (by_name == nullptr) {
    return no_memory();
  }
  for (unsigned i = 0; i < num_fields; i++) {
    by_name[i] = i;
  }
  qsort(by_name, num_fields, sizeof *by_name, compare_fields);
  const char *last = nullptr;
  for (unsigned i = 0; i < num_fields; i++) {
    field *entry = &fields[by_name[i]];
    if (last != nullptr && strcmp(last, entry->name) == 0) {
      entry->name = nullptr;
    } else {
      last = entry->name;
      by_name[num_names] = by_name[i];
      num_names++;
    }
  }
  return CGI_OK;
}

// The value of the field, NULL when there is none of that name.
static const char *find_value(const char *name)
{
  if (num_names == 0) {
    return nullptr;
  }
  const void *found =
      bsearch(name, by_name, num_names, sizeof *by_name, compare_name);
  return found != nullptr ? fields[*static_cast<const unsigned *>(found)].value
                          : nullptr;
}

// --- the interface -----------------------------------------------------------

int cgiInit(void)
{
  // Static, since the page of a crash must not have to allocate.
  static char out_buffer[OUT_BUFFER_SIZE];
  setvbuf(stdout, out_buffer, _IOFBF, sizeof out_buffer);

  cgiFreeResources();
  cgiScriptName = environment("SCRIPT_NAME");
  cgiRequestMethod = environment("REQUEST_METHOD");
  const bool post = strcmp(cgiRequestMethod, "POST") == 0;
  size_t length = 0;
  int error = post ? take_body(&length) : take_query(&length);
  if (error == CGI_OK) {
    error = split_request(length);
  }
  if (error == CGI_OK) {
    error = sort_fields();
  }
  if (error != CGI_OK) {
    cgiFreeResources();
  }
  return error;
}

void cgiFreeResources(void)
{
  free(request);
  request = nullptr;
  free(fields);
  fields = nullptr;
  num_fields = 0;
  free(by_name);
  by_name = nullptr;
  num_names = 0;
}

// One block: the array, and behind it the names.
cgiFormResultType cgiFormEntries(char ***names)
{
  size_t size = (num_names + 1) * sizeof **names;
  for (unsigned i = 0; i < num_names; i++) {
    size += strlen(fields[by_name[i]].name) + 1;
  }
  *names = static_cast<char **>(malloc(size));
  if (*names == nullptr) {
    return cgiFormMemory;
  }
  char **entry = *names;
  char *text = reinterpret_cast<char *>(*names + num_names + 1);
  for (unsigned i = 0; i < num_fields; i++) {
    if (fields[i].name != nullptr) {
      const size_t length = strlen(fields[i].name) + 1;
      *entry = static_cast<char *>(memcpy(text, fields[i].name, length));
      entry++;
      text += length;
    }
  }
  *entry = nullptr;
  return cgiFormSuccess;
}

void cgiStringArrayFree(char **names)
{
  free(names);
}

cgiFormResultType cgiFormStringSpaceNeeded(const char *name, int *length)
{
  const char *value = find_value(name);
  *length = value != nullptr ? static_cast<int>(strlen(value)) + 1 : 1;
  return value != nullptr ? cgiFormSuccess : cgiFormNotFound;
}

cgiFormResultType cgiFormString(const char *name, char *buf, int length)
{
  if (length < 1) {
    return cgiFormTruncated;
  }
  buf[0] = '\0';
  const char *value = find_value(name);
  if (value == nullptr) {
    return cgiFormNotFound;
  }
  const size_t needed = strlen(value) + 1;
  const size_t copied = std::min(needed, static_cast<size_t>(length));
  memcpy(buf, value, copied);
  buf[copied - 1] = '\0';
  return copied < needed ? cgiFormTruncated : cgiFormSuccess;
}

// Sends what follows nowhere.  The descriptor is what changes, not the stream,
// which would have to be allocated.  Its number stays taken, so that no file
// opened later receives the page; without /dev/null, a descriptor that cannot
// be written holds it.
static void drop_output()
{
  fflush(cgiOut);
  int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (sink < 0) {
    sink = open("/", O_RDONLY | O_CLOEXEC);
  }
  if (sink < 0) {
    close(STDOUT_FILENO);
    return;
  }
  dup2(sink, STDOUT_FILENO);
  close(sink);
}

void cgiHeaderEnd(void)
{
  fputs("\r\n", cgiOut);
  if (strcmp(cgiRequestMethod, "HEAD") == 0) {
    drop_output();
  }
}
