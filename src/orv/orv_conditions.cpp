// The stack of conditional sections; it owns nothing, and a walk that meets a
// fault in it goes on without that item.

#include "orv_conditions.h"

#include "orv.h"
#include "orv_output.h"
#include "orv_parser.h"

static void push(orv_conditions *of, bool negate, char *condition)
{
  if (of->depth == ORV_CONDITIONS_MAX) {
    of->report("Condition stack overflow");
    return;
  }
  const char *text = orv_out_expand(condition);
  if (text == nullptr) {
    of->report(nullptr);
  }
  const bool value = (orv_string_is_true(text) != 0) != negate;
  of->values[of->depth] = value;
  of->depth++;
  of->hidden += value ? 0 : 1;
}

// False, after a report, when there is no section to turn or leave.
static bool is_inside(const orv_conditions *of)
{
  if (of->depth == 0) {
    of->report("Condition stack underflow");
  }
  return of->depth != 0;
}

static void flip(orv_conditions *of)
{
  if (is_inside(of)) {
    bool *value = of->values + of->depth - 1;
    of->hidden += *value ? 1 : -1;
    *value = !*value;
  }
}

static void pop(orv_conditions *of)
{
  if (is_inside(of)) {
    of->depth--;
    of->hidden -= of->values[of->depth] ? 0 : 1;
  }
}

void orv_conditions_reset(orv_conditions *of)
{
  of->depth = 0;
  of->hidden = 0;
}

void orv_conditions_follow(orv_conditions *of, const pt_body_item *itm)
{
  switch (itm->type) {
  case PT_IF:
    push(of, false, itm->text.txt);
    break;
  case PT_IFNOT:
    push(of, true, itm->text.txt);
    break;
  case PT_ELSE:
    flip(of);
    break;
  case PT_ENDIF:
    pop(of);
    break;
  default:
    break;
  }
}
