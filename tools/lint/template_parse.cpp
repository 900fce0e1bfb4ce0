// The parser of the executable, and what it would misread.

#include "template_copy.h"

#include <algorithm>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "orv_error.h"
#include "orv_limits.h"
#include "text.h"

// --- one parse ---------------------------------------------------------------

// What the parser needs: a file of its own.  -1 when there is no memory.
// A file in memory has no name that another process could take or that would be
// left behind, and the parser reads it like any other.
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

// The parser reports in the log and keeps its message; it knows the file by a
// name that nobody else does.
// A message without a fault of the template is one of the parser's own, and no
// mending helps then.
static refusal why_refused(const std::string &path, const std::string &name)
{
  refusal why = {orv_parser_fault.code, orv_parser_fault.line, ""};
  if (orv_error_msg != nullptr) {
    why.message = orv_error_msg;
    why.code = why.code == PT_NO_FAULT ? PT_NO_MEMORY : why.code;
  }
  const size_t at = why.message.find(path);
  if (at != std::string::npos) {
    why.message.replace(at, path.size(), name);
  }
  return why;
}

refusal parse(const std::string &text, const std::string &name,
              pt_body_item **body)
{
  // The parser is made for one page, and ends its process at a fault otherwise.
  // Its last message stays until the next one, so it is forgotten first.
  orv_fatal_no_exit = 1;
  orv_error_msg = nullptr;
  const int fd = make_file(text);
  if (fd < 0) {
    return {PT_NO_MEMORY, 0, "no memory for a template"};
  }
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  pt_header *hdr = orv_parse_header(path.data(), nullptr);
  pt_body_item *items = hdr != nullptr ? orv_parse_body(hdr) : nullptr;
  refusal why = why_refused(path, name);
  // After a fault the body holds what was read up to there, or nothing.
  if (body != nullptr) {
    *body = items;
  } else {
    orv_free_body(items);
  }
  orv_free_header(hdr);
  close(fd);
  return why;
}

// --- what the parser would misread -------------------------------------------

static std::string without_mark(const std::string &line)
{
  return starts_with(line, BYTE_ORDER_MARK)
             ? line.substr(sizeof BYTE_ORDER_MARK - 1)
             : line;
}

static constexpr size_t LINE_TEXT = ORV_LINE_MAX - 1; // without its end

// The copy has a line for each of the file's, so that numbers stay true.
// What report_lines has named is mended here: a CR at the end, a NUL byte, what
// is beyond the parser's buffer. A rule sees the line as it was meant.
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
    work->copy.push_back({text.substr(0, LINE_TEXT), number});
  }
}

// What the parser says of the file as it is, as a note for the line that it
// stopped at.
// A line that is too long is refused as the next one, so its number can be one
// more.
static std::vector<note> parser_note(const repair &work, const refusal &why,
                                     int line)
{
  if (why.code == PT_NO_FAULT || (why.line != line && why.line != line + 1)) {
    return {};
  }
  std::string text = "the page would say: " + why.message;
  for (const char end : {'\n', '\r'}) {
    text.erase(std::remove(text.begin(), text.end(), end), text.end());
  }
  return {{{work.file.path, line, 1}, text}};
}

// What makes the parser talk of something else is reported once, by its own
// name.
// Parses the file as it is, unlike parse_all: what the page would say of it
// goes to the line as a note, since the message alone ("Unknown keyword") hides
// the cause. CR LF is told once, as all lines have it.
void report_lines(const repair &work)
{
  const source_file &file = work.file;
  const refusal why = parse(file.text, work.name, nullptr);
  bool told_cr = false;
  int number = 0;
  for (const std::string &line : file.lines) {
    number++;
    const std::vector<note> notes = parser_note(work, why, number);
    if (number == 1 && starts_with(line, BYTE_ORDER_MARK)) {
      report(work.found, file, 1, 1, "byte-order-mark",
             "the file begins with a byte order mark, which counts as text",
             notes);
    }
    if (!line.empty() && line.back() == '\r' && !told_cr) {
      told_cr = true;
      report(work.found, file, number, static_cast<int>(line.size()), "crlf",
             "lines end in CR LF; the CR counts as text, so a keyword is not"
             " known and a value is another one",
             notes);
    }
    if (line.size() > LINE_TEXT) {
      report(work.found, file, number, ORV_LINE_MAX, "long-line",
             "this line has " + std::to_string(line.size()) +
                 " characters; what stands behind the " +
                 std::to_string(ORV_LINE_MAX) +
                 "th is read as another"
                 " line",
             notes);
    }
    if (line.find('\0') != std::string::npos) {
      report(work.found, file, number, static_cast<int>(line.find('\0')) + 1,
             "nul-byte", "a NUL byte ends this line for the parser", notes);
    }
  }
  if (!file.text.empty() && file.text.back() != '\n') {
    report(work.found, file, number,
           static_cast<int>(file.lines.back().size()) + 1, "last-line",
           "the last line has no line end, so its keyword is not known",
           parser_note(work, why, number));
  }
}
