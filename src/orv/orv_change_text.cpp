// Texts of a form for people who read them elsewhere than on its page, and a
// change as one line of such a text.  Owns nothing.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orv.h"
#include "orv_changes.h"
#include "orv_guard.h"
#include "orv_output.h"
#include "orv_parser.h"

// --- texts -------------------------------------------------------------------

// Takes the codes of markup out in place: line breaks and indents are blanks,
// emphasis is nothing.
static void strip_markup(char *text)
{
  char *out = text;
  for (const char *in = text; *in != '\0';) {
    if (in[0] == '$' && in[1] != '\0' && in[2] == '$' &&
        strchr("BRLI$", in[1]) != nullptr) {
      if (strchr("LI$", in[1]) != nullptr) {
        *out = in[1] == '$' ? '$' : ' ';
        out++;
      }
      in += 3;
    } else {
      *out = *in == '\n' ? ' ' : *in;
      out++;
      in++;
    }
  }
  *out = '\0';
}

char *orv_plain_text(const char *text)
{
  const owned_text copy(must_strdup(text)); // written to while it is expanded
  const char *shown = copy != nullptr ? orv_out_expand(copy.get()) : nullptr;
  char *plain = shown != nullptr ? must_strdup(shown) : nullptr;
  if (plain != nullptr) {
    strip_markup(plain);
  }
  return plain;
}

char *orv_item_label(const pt_body_item *itm)
{
  const char *by_rank[] = {itm->label, itm->rlabel, itm->prompt};
  for (const char *label : by_rank) {
    if (label != nullptr && label[0] != '\0') {
      return orv_plain_text(label);
    }
  }
  return must_strdup(itm->name);
}

size_t orv_cut_length(const char *text, size_t max)
{
  size_t length = strnlen(text, max + 1);
  if (length <= max) {
    return length;
  }
  length = max;
  // Bytes 10xxxxxx continue a character; text of another encoding may have
  // more of them than a character has.
  const size_t least = max > 3 ? max - 3 : 0;
  while (length > least && (text[length] & 0xc0) == 0x80) {
    length--;
  }
  return length;
}

// --- a line ------------------------------------------------------------------

// How many bytes of the text are shown; "blank" stands for none.
struct shown_text {
  const char *text;
  int length;
};

static shown_text show(const char *text, size_t max)
{
  if (text[0] == '\0') {
    text = "blank";
  }
  const size_t length = max > 0 ? orv_cut_length(text, max) : strlen(text);
  return {text, static_cast<int>(length)};
}

static bool write_line(FILE *out, const orv_change *change, const char *arrow,
                       size_t label_max, size_t value_max)
{
  if (change->kind == CHANGE_ROW_DELETED || change->kind == CHANGE_ROW_ADDED) {
    const bool deleted = change->kind == CHANGE_ROW_DELETED;
    const shown_text told =
        show(deleted ? change->old_text : change->new_text, value_max);
    return fprintf(out, "Row %s: %.*s", deleted ? "deleted" : "added",
                   told.length, told.text) > 0;
  }
  const shown_text label = show(change->label, label_max);
  fprintf(out, "%.*s", label.length, label.text);
  if (change->row > 0) {
    fprintf(out, ", row %d", change->row);
  }
  if (change->secret) {
    return fputs(": changed", out) >= 0;
  }
  const shown_text before = show(change->old_text, value_max);
  const shown_text after = show(change->new_text, value_max);
  return fprintf(out, ": %.*s %s %.*s", before.length, before.text, arrow,
                 after.length, after.text) > 0;
}

char *orv_change_line(const orv_change *change, const char *arrow,
                      size_t label_max, size_t value_max)
{
  char *line = nullptr;
  size_t length = 0;
  FILE *out = open_memstream(&line, &length);
  if (out == nullptr) {
    return nullptr;
  }
  const bool whole = write_line(out, change, arrow, label_max, value_max);
  if (fclose(out) == 0 && whole) {
    return line;
  }
  free(line);
  return nullptr;
}
