// Taking texts apart at their codes.  Writes nothing and keeps nothing: how
// pieces are put together, and how much of them, is the callers' business.

#include "orv_expand.h"

#include <string.h>

constexpr size_t TAG_LENGTH = 3; // "$X$"

orv_tag *orv_find_tag(const orv_codes *codes, char tag)
{
  orv_tag *record = codes->tags;
  while (record->tag != '\0' && record->tag != tag) {
    record++;
  }
  return record;
}

static orv_piece replacement_of(const orv_codes *codes, const char *in)
{
  const orv_tag *record = orv_find_tag(codes, in[1]);
  if (record->tag == '\0') {
    return {in, TAG_LENGTH, false};
  }
  const char *text = record->replacement != nullptr ? record->replacement : "";
  return {text, strlen(text), record->of_request};
}

orv_piece orv_next_piece(const orv_codes *codes, const char **in)
{
  const char *start = *in;
  if (start[0] == '$' && start[1] != '\0') {
    if (start[2] == '$') {
      *in = start + TAG_LENGTH;
      return replacement_of(codes, start);
    }
    const char *value = start[2] == ':' && codes->reference != nullptr
                            ? codes->reference(start, in)
                            : nullptr;
    if (value != nullptr) {
      return {value, strlen(value), false};
    }
  }
  const size_t length = 1 + strcspn(start + 1, "$");
  *in = start + length;
  return {start, length, false};
}
