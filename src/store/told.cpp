// The changes of a save in words.
//
// Owns the texts from told_make to told_free.  They are made before the save
// begins, so that reporting it afterwards needs no memory.

#include "told.h"

#include <stdlib.h>

#include "orv.h"
#include "orv_changes.h"
#include "save.h"

constexpr size_t PAGE_LINE_MAX = 210; // bytes of one, a dollar counting three
constexpr size_t LABEL_TEXT_MAX = 50;
constexpr size_t VALUE_TEXT_MAX = 60;

// A change as worded for pages and for logs; both texts owned.
struct told_change {
  char *page;
  char *log;
};

static told_change *told; // owned: NULL before told_make
static size_t count;      // of those that have been made

static size_t count_changes(const orv_change *changes)
{
  size_t found = 0;
  for (const orv_change *one = changes; one != nullptr; one = one->next) {
    found++;
  }
  return found;
}

bool told_make(const orv_change *changes)
{
  told = static_cast<told_change *>(
      must_malloc((count_changes(changes) + 1) * sizeof *told));
  if (told == nullptr) {
    return false;
  }
  for (const orv_change *one = changes; one != nullptr; one = one->next) {
    told_change *words = told + count;
    words->page =
        orv_change_line(one, ORV_ARROW_SHOWN, LABEL_TEXT_MAX, VALUE_TEXT_MAX);
    words->log =
        orv_change_line(one, ORV_ARROW_PLAIN, LABEL_TEXT_MAX, VALUE_TEXT_MAX);
    count++;
    if (words->page == nullptr || words->log == nullptr) {
      return false;
    }
  }
  return true;
}

void told_free(void)
{
  for (size_t i = 0; i < count; i++) {
    free(told[i].page);
    free(told[i].log);
  }
  free(told);
  told = nullptr;
  count = 0;
}

size_t told_count(void)
{
  return count;
}

const char *told_log(size_t place)
{
  return told[place].log;
}

// Writes a text with each "$" as "$$$", which a page shows as "$".  A code is
// written whole or not at all.
static void write_shown(FILE *out, const char *line)
{
  size_t room = PAGE_LINE_MAX;
  const size_t length = orv_cut_length(line, room);
  for (size_t i = 0; i < length && room >= 3; i++) {
    if (line[i] == '$') {
      fputs("$$$", out);
      room -= 3;
    } else {
      putc(static_cast<unsigned char>(line[i]) < ' ' ? ' ' : line[i], out);
      room--;
    }
  }
}

void told_write_lines(FILE *out)
{
  for (size_t i = 0; i < count; i++) {
    fputs("page ", out);
    write_shown(out, told[i].page);
    fprintf(out, "$L$\nline %s\n", told[i].log);
  }
}

// All places are written, the unused ones empty: a page carries what it once
// got, and would show the lines of the save before.
void told_write_places(FILE *out)
{
  for (size_t place = 0; place < SAVE_PAGE_LINES; place++) {
    fprintf(out, "u_saved_change%zu=\"", place);
    if (place + 1 == SAVE_PAGE_LINES && count > SAVE_PAGE_LINES) {
      fprintf(out, "and %zu more$L$", count - place);
    } else if (place < count) {
      write_shown(out, told[place].page);
      fputs("$L$", out);
    }
    fputs("\"\n", out);
  }
}
