// Matches the rows of a table before and after a change: rows are equal,
// changed, deleted or added.

#ifndef ORV_ROWS_H
#define ORV_ROWS_H

#include <stddef.h>

constexpr size_t ORV_NO_ROW = static_cast<size_t>(-1);

// A row that holds something.
struct orv_row {
  const char **cells; // borrowed; none is NULL
  size_t columns;     // the same for all rows compared
  int number;         // in its table, from 0
  size_t index;       // among its list's rows
  size_t partner;     // the row of the other list that it is, or ORV_NO_ROW
};

// The rows as one side has them.  Owns both blocks (free).
struct orv_rows {
  const char **cells;
  orv_row *rows;
  size_t count;
};

// Gives each row of `before` its partner in `after`, in the order of both.
// Equal rows are paired as far as their order allows; what lies between two
// pairs is paired so that the fewest cells differ.  What has no partner then
// was deleted; what is nobody's, added.  n log n in the number of rows.  False
// when memory ran out (reported by orv_fatal).
bool orv_pair_rows(orv_rows *before, orv_rows *after);

#endif
