// The parser of the executable, and what it would misread.

#include "template_copy.h"

#include <algorithm>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "orv_error.h"
#include "text.h"

// --- one parse ---------------------------------------------------------------

static std::string first_message;

// The first message is the cause; those behind it are its consequences.
static void keep_message(const char *message)
{
  if (first_message.empty()) {
    first_message = message;
  }
}

// What the parser needs: a file of its own.  -1 when there is no memory.
static int make_file(const std::string &text)
{
  const int fd = memfd_create("template", MFD_CLOEXEC);
  if (fd < 0) {
    return -1;
  }
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t put = write(fd, text.data() + done, text.size() - done);
    if (put <= 0) {
      close(fd);
      return -1;
    }
    done += static_cast<size_t>(put);
  }
  return fd;
}

// Parses `text`; the parser's first message, "" without one.  The body goes to
// `body` where that is given.
std::string parse(const std::string &text, const std::string &name,
                  pt_body_item **body)
{
  first_message.clear();
  orv_fatal_no_exit = 1;
  orv_fatal_alt_report = keep_message;
  const int fd = make_file(text);
  if (fd < 0) {
    return "no memory for a template";
  }
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  pt_header *hdr = orv_parse_header(path.data(), nullptr);
  if (hdr != nullptr) {
    pt_body_item *items = orv_parse_body(hdr);
    if (body != nullptr) {
      *body = items;
    } else {
      orv_free_body(items);
    }
  }
  orv_free_header(hdr);
  close(fd);
  const size_t at = first_message.find(path);
  if (at != std::string::npos) {
    first_message.replace(at, path.size(), name);
  }
  return first_message;
}

// The number that the message names, 0 without one.
int line_in(const std::string &message)
{
  const size_t at = message.find("line ");
  return at == std::string::npos ? 0 : atoi(message.c_str() + at + 5);
}

// --- what the parser would misread -------------------------------------------

static std::string without_mark(const std::string &line)
{
  return starts_with(line, BYTE_ORDER_MARK)
             ? line.substr(sizeof BYTE_ORDER_MARK - 1)
             : line;
}

// The copy has a line for each of the file's, so that numbers stay true.
void copy_lines(repair *work)
{
  int number = 0;
  for (const std::string &line : work->file.lines) {
    number++;
    std::string text = number == 1 ? without_mark(line) : line;
    std::replace(text.begin(), text.end(), '\0', ' ');
    if (!text.empty() && text.back() == '\r') {
      text.pop_back();
    }
    work->copy.push_back({text.substr(0, LINE_MAX_LENGTH - 1), number});
  }
}

// What the parser says of the file as it is, as a note for the line that it
// names.
static std::vector<note> parser_note(const repair &work,
                                     const std::string &message, int line)
{
  const bool last = line == static_cast<int>(work.file.lines.size());
  const int named = line_in(message);
  if (message.empty() ||
      (named != line && named != line + 1 && !(named == 0 && last))) {
    return {};
  }
  std::string text = "the page would say: " + message;
  for (const char *end : {"\n", "\r"}) {
    for (size_t at = text.find(end); at != std::string::npos;
         at = text.find(end)) {
      text.erase(at, 1);
    }
  }
  return {{{work.file.path, line, 1}, text}};
}

// What makes the parser talk of something else is told once, by its own
// name.
void tell_lines(const repair &work)
{
  const source_file &file = work.file;
  const std::string message = parse(file.text, work.name, nullptr);
  bool told_cr = false;
  int number = 0;
  for (const std::string &line : file.lines) {
    number++;
    const std::vector<note> notes = parser_note(work, message, number);
    if (number == 1 && starts_with(line, BYTE_ORDER_MARK)) {
      tell(work.found, file, 1, 1, "byte-order-mark",
           "the file begins with a byte order mark, which counts as text",
           notes);
    }
    if (!line.empty() && line.back() == '\r' && !told_cr) {
      told_cr = true;
      tell(work.found, file, number, static_cast<int>(line.size()), "crlf",
           "lines end in CR LF; the CR counts as text, so a keyword is not"
           " known and a value is another one",
           notes);
    }
    if (line.size() >= LINE_MAX_LENGTH) {
      tell(work.found, file, number, static_cast<int>(LINE_MAX_LENGTH),
           "long-line",
           "this line has " + std::to_string(line.size()) +
               " characters; what stands behind the 249th is read as another"
               " line",
           notes);
    }
    if (line.find('\0') != std::string::npos) {
      tell(work.found, file, number, static_cast<int>(line.find('\0')) + 1,
           "nul-byte", "a NUL byte ends this line for the parser", notes);
    }
  }
  if (!file.text.empty() && file.text.back() != '\n') {
    tell(work.found, file, number,
         static_cast<int>(file.lines.back().size()) + 1, "last-line",
         "the last line has no line end, so its keyword is not known",
         parser_note(work, message, number));
  }
}
