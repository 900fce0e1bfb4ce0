// Shared by the fuzz entries: inputs with several parts, promises that are
// checked, and a process without output.  Seeds are readable text: a line "%%"
// separates the parts.

#ifndef FUZZ_H
#define FUZZ_H

#undef NDEBUG // promises hold in every build
#include <algorithm>
#include <assert.h>
#include <map>
#include <stdint.h>
#include <string.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include "cgi.h"
#include "orv_error.h"

// An entry's test of one input; entry.cpp calls it.
void fuzz(std::string_view input);

// Takes the first part off the input; the rest is then empty if it was the
// last.
inline std::string_view fuzz_part(std::string_view *input)
{
  static const std::string_view separator = "\n%%\n";
  const size_t end = input->find(separator);
  if (end == std::string_view::npos) {
    return "";
  }
  const std::string_view part = input->substr(0, end);
  input->remove_prefix(end + separator.size());
  return part;
}

// The same up to its first NUL, writable as a C string.
inline std::string fuzz_text(std::string_view text)
{
  return std::string(text.substr(0, text.find('\0')));
}

inline FILE *fuzz_stream(std::string_view text)
{
  return fmemopen(const_cast<char *>(text.data()), text.size(), "r");
}

// A descriptor at the start of a file with that content; the next call reuses
// it.
inline int fuzz_file(std::string_view content)
{
  static const int fd = memfd_create("input", 0);
  assert(ftruncate(fd, 0) == 0 && lseek(fd, 0, SEEK_SET) == 0);
  assert(pwrite(fd, content.data(), content.size(), 0) >= 0);
  return fd;
}

// setenv would leak every value it has ever set.
inline void fuzz_environment(const std::string &name, const std::string &value)
{
  static std::map<std::string, std::string> entries;
  unsetenv(name.c_str());
  entries[name] = name + "=" + value;
  putenv(entries[name].data());
}

#endif
