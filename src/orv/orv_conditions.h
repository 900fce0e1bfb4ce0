// The conditional sections of a walk over a body: "if", "ifnot", "else" and
// "endif".  Drawing and checking follow the same rules, so that what is not
// shown is not required; each has a stack of its own and reports in its own
// way.

#ifndef ORV_CONDITIONS_H
#define ORV_CONDITIONS_H

#include "orv_limits.h"

struct pt_body_item;

// The sections around the walk's present item; `hidden` counts those whose
// condition is false.
struct orv_conditions {
  // Takes what is wrong, borrowed; NULL: memory ran out while a condition was
  // expanded, which has been reported.
  void (*report)(const char *problem);
  int depth;
  int hidden;
  bool values[ORV_CONDITIONS_MAX]; // outermost section first
};

// Leaves all sections, as at the start of a walk.
void orv_conditions_reset(orv_conditions *of);

// Enters, turns or leaves a section when `itm` is a conditional item.
void orv_conditions_follow(orv_conditions *of, const pt_body_item *itm);

// Whether the present item is shown.
inline bool orv_conditions_hold(const orv_conditions *of)
{
  return of->hidden == 0;
}

#endif
