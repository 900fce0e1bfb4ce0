// What the fuzz entries share: inputs made of parts, promises that are checked,
// and a quiet process.  A seed is a text that can be read: its parts are
// separated by a line "%%".

#ifndef FUZZ_H
#define FUZZ_H

#include <algorithm>
#include <map>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include "cgi.h"
#include "cgi_main.h"
#include "orv_error.h"
#include "orv_vars.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#define REQUIRE(promise)                                                       \
  do {                                                                         \
    if (!(promise)) {                                                          \
      fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #promise);    \
      abort();                                                                 \
    }                                                                          \
  } while (false)

// Reports return, and none leaves the process.
__attribute__((constructor)) inline void fuzz_quiet()
{
  orv_fatal_no_exit = 1;
  setlogmask(LOG_MASK(LOG_DEBUG));
}

inline std::string_view fuzz_input(const uint8_t *data, size_t size)
{
  return {reinterpret_cast<const char *>(data), size};
}

// Takes the first part off the input; empty when the rest is the last one.
inline std::string fuzz_part(std::string_view *input)
{
  static const std::string_view separator = "\n%%\n";
  const size_t end = input->find(separator);
  if (end == std::string_view::npos) {
    return "";
  }
  std::string part(input->substr(0, end));
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
  FILE *fp = fmemopen(nullptr, text.size() + 1, "w+");
  fwrite(text.data(), 1, text.size(), fp);
  rewind(fp);
  return fp;
}

// A descriptor at the start of a file of that content; the next call reuses it.
inline int fuzz_file(std::string_view content)
{
  static const int fd = memfd_create("input", 0);
  REQUIRE(ftruncate(fd, 0) == 0 && lseek(fd, 0, SEEK_SET) == 0);
  REQUIRE(pwrite(fd, content.data(), content.size(), 0) >= 0);
  return fd;
}

// setenv would keep every value that it has ever seen.
inline void fuzz_environment(const char *name, const std::string &value)
{
  static std::map<std::string, char *> kept;
  char *entry = strdup((std::string(name) + "=" + value).c_str());
  putenv(entry);
  free(kept[name]);
  kept[name] = entry;
}

inline void fuzz_forget()
{
  orv_free_vars(&cfg_vars);
  orv_free_vars(&err_vars);
  orv_free_vars(&del_vars);
}

#endif
