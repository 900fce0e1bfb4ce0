// Device utility layer: tuple files, and the closing of inherited descriptors.
//
// Keeps no state; a loaded file belongs to its caller.  Nothing is reported: a
// file that cannot be read to its end counts as missing, and a line that is no
// tuple is skipped.  A NUL byte ends its line there.  There are no escapes in
// a value, no lines that go on, and no comment behind a value.
//
// The closing of descriptors runs between fork and exec, so it allocates
// nothing and takes no lock.

#include "kwtutil.h"

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

constexpr int TUPLES_AT_FIRST = 16; // more than a device's description has
// Where a process may have any number of descriptors, or nothing tells how
// many, a program like ours has opened none beyond this.
constexpr long CLOSE_MAX = 65536;
// Holds 80 entries of /proc/self/fd; more are read in further pieces.
constexpr size_t DIRECTORY_BUFFER_SIZE = 2048;

static const char BLANKS[] = " \t";

// --- tuple files -------------------------------------------------------------

// Takes the blanks and the line end off the end of `text`.
static void strip_end(char *text)
{
  size_t length = strlen(text);
  while (length > 0 && strchr(" \t\n", text[length - 1]) != nullptr) {
    length--;
  }
  text[length] = '\0';
}

// The value without the quotes it may stand in.
static char *unquoted(char *value)
{
  const size_t length = strlen(value);
  const char quote = value[0];
  if (length < 2 || (quote != '"' && quote != '\'') ||
      value[length - 1] != quote) {
    return value;
  }
  value[length - 1] = '\0';
  return value + 1;
}

// Takes `line` apart in place; false when it holds no tuple.
static bool split_line(char *line, kwtutil_cffile_tuple *tuple)
{
  strip_end(line);
  tuple->name = line + strspn(line, BLANKS);
  char *end = tuple->name + strcspn(tuple->name, "= \t");
  if (*tuple->name == '#' || end == tuple->name || *end == '\0') {
    return false;
  }
  char *value = end + strspn(end, BLANKS);
  if (*value == '=') {
    value++;
    value += strspn(value, BLANKS);
  }
  *end = '\0';
  tuple->value = unquoted(value);
  return true;
}

// Makes room for one tuple more; false when memory ran out.
static bool make_room(kwtutil_cffile_t *cfinfo)
{
  if (cfinfo->num < cfinfo->size) {
    return true;
  }
  const int size = cfinfo->size == 0 ? TUPLES_AT_FIRST : cfinfo->size * 2;
  void *tuples = realloc(cfinfo->tuples,
                         static_cast<size_t>(size) * sizeof *cfinfo->tuples);
  if (tuples == nullptr) {
    return false;
  }
  cfinfo->tuples = static_cast<kwtutil_cffile_tuple *>(tuples);
  cfinfo->size = size;
  return true;
}

// Appends a copy of the line's tuple, if any; false when memory ran out.
static bool add_line(kwtutil_cffile_t *cfinfo, char *line)
{
  kwtutil_cffile_tuple found;
  if (!split_line(line, &found)) {
    return true;
  }
  if (!make_room(cfinfo)) {
    return false;
  }
  kwtutil_cffile_tuple *tuple = &cfinfo->tuples[cfinfo->num];
  cfinfo->num++;
  tuple->name = strdup(found.name);
  tuple->value = strdup(found.value);
  return tuple->name != nullptr && tuple->value != nullptr;
}

// Reads every line; false when the file's end was not reached.
static bool read_lines(kwtutil_cffile_t *cfinfo, FILE *file)
{
  char *line = nullptr;
  size_t size = 0;
  bool ok = true;
  while (ok && getline(&line, &size, file) >= 0) {
    ok = add_line(cfinfo, line);
  }
  free(line);
  return ok && feof(file) != 0;
}

kwtutil_cffile_t *kwtutil_cffile_load(const char *path)
{
  FILE *file = fopen(path, "re");
  if (file == nullptr) {
    return nullptr;
  }
  auto *cfinfo =
      static_cast<kwtutil_cffile_t *>(calloc(1, sizeof(kwtutil_cffile_t)));
  if (cfinfo != nullptr && !read_lines(cfinfo, file)) {
    kwtutil_cffile_free(cfinfo);
    cfinfo = nullptr;
  }
  fclose(file);
  return cfinfo;
}

void kwtutil_cffile_free(kwtutil_cffile_t *cfinfo)
{
  if (cfinfo == nullptr) {
    return;
  }
  for (int i = 0; i < cfinfo->num; i++) {
    free(cfinfo->tuples[i].name);
    free(cfinfo->tuples[i].value);
  }
  free(cfinfo->tuples);
  free(cfinfo);
}

kwtutil_cffile_tuple *kwtutil_cffile_find_tuple(kwtutil_cffile_t *cfinfo,
                                                const char *name)
{
  for (int i = 0; i < cfinfo->num; i++) {
    if (strcmp(cfinfo->tuples[i].name, name) == 0) {
      return &cfinfo->tuples[i];
    }
  }
  return nullptr;
}

// --- descriptors -------------------------------------------------------------

// One system call; false where the kernel or its headers are too old for it.
static bool close_range_from(int first)
{
#ifdef SYS_close_range
  return syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0;
#else
  (void)first;
  return false;
#endif
}

// What getdents64 writes; readdir would allocate.
struct directory_entry {
  uint64_t inode;
  int64_t offset;
  uint16_t length;
  uint8_t type;
  char name[1]; // as long as it is, terminated
};

// The number that `text` is, -1 when it is none.
static int descriptor_number(const char *text)
{
  int number = 0;
  for (; *text >= '0' && *text <= '9'; text++) {
    number = number * 10 + (*text - '0');
  }
  return *text == '\0' ? number : -1;
}

// Closes what the kernel lists as open; false when it lists nothing.
static bool close_listed_from(int first)
{
  const int list = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (list < 0) {
    return false;
  }
  alignas(directory_entry) char buf[DIRECTORY_BUFFER_SIZE];
  long got = syscall(SYS_getdents64, list, buf, sizeof buf);
  const bool listed = got > 0;
  while (got > 0) {
    for (long at = 0; at < got;) {
      const auto *entry = reinterpret_cast<const directory_entry *>(buf + at);
      const int fd = descriptor_number(entry->name);
      if (fd >= first && fd != list) {
        close(fd);
      }
      at += entry->length;
    }
    got = syscall(SYS_getdents64, list, buf, sizeof buf);
  }
  close(list);
  return listed;
}

static void close_each_from(int first)
{
  const long limit = sysconf(_SC_OPEN_MAX);
  const long end = limit < 0 || limit > CLOSE_MAX ? CLOSE_MAX : limit;
  for (int fd = first; fd < end; fd++) {
    close(fd);
  }
}

void close_all_file_descriptors(int keep_standard)
{
  const int first = keep_standard != 0 ? STDERR_FILENO + 1 : STDIN_FILENO;
  if (!close_range_from(first) && !close_listed_from(first)) {
    close_each_from(first);
  }
}
