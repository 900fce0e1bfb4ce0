// Matches the rows of a table before and after a change.
//
// Keeps nothing.  Equal rows are found by sorting both lists, of the pairs the
// longest run in order stays, and what lies between is aligned by a table of
// costs.

#include "orv_rows.h"

#include <algorithm>
#include <stdlib.h>
#include <string.h>

#include "orv.h"
#include "orv_guard.h"

// Rows between two equal ones are aligned by a table of costs up to this size,
// which a person's changes never reach; larger runs are paired as they stand.
constexpr size_t COSTS_MAX = 65536;

// Owned by the caller (free), NULL without memory.
template <typename T> static T *make_list(size_t count)
{
  return static_cast<T *>(must_malloc(std::max<size_t>(count, 1) * sizeof(T)));
}

static int compare_rows(const orv_row *a, const orv_row *b)
{
  for (size_t i = 0; i < a->columns; i++) {
    const int order = strcmp(a->cells[i], b->cells[i]);
    if (order != 0) {
      return order;
    }
  }
  return 0;
}

// For qsort: by content, equal rows in their order.
static int compare_row_places(const void *a, const void *b)
{
  const orv_row *left = *static_cast<orv_row *const *>(a);
  const orv_row *right = *static_cast<orv_row *const *>(b);
  const int order = compare_rows(left, right);
  if (order != 0) {
    return order;
  }
  return left->index < right->index ? -1 : left->index > right->index;
}

// The list's rows sorted by content; owned by the caller (free), NULL without
// memory.
static orv_row **sort_rows(const orv_rows *rows)
{
  orv_row **sorted = make_list<orv_row *>(rows->count);
  for (size_t i = 0; sorted != nullptr && i < rows->count; i++) {
    sorted[i] = rows->rows + i;
  }
  if (sorted != nullptr) {
    qsort(sorted, rows->count, sizeof *sorted, compare_row_places);
  }
  return sorted;
}

using owned_block = std::unique_ptr<void, orv_releaser<free>>;

// Makes each row the partner of its equal, the first of the first and so on,
// whatever their order.  False without memory.
static bool pair_equals(orv_rows *before, orv_rows *after)
{
  orv_row **olds = sort_rows(before);
  const owned_block olds_owned(olds);
  orv_row **news = sort_rows(after);
  const owned_block news_owned(news);
  if (olds == nullptr || news == nullptr) {
    return false;
  }
  for (size_t i = 0, j = 0; i < before->count && j < after->count;) {
    const int order = compare_rows(olds[i], news[j]);
    if (order == 0) {
      olds[i]->partner = news[j]->index;
    }
    i += order <= 0 ? 1 : 0;
    j += order >= 0 ? 1 : 0;
  }
  return true;
}

// Keeps the most pairs that do not cross: the longest ascending run of the
// partners.  `tails[n]` ends the best run of n + 1 rows so far, `previous` is
// the row before each.  False without memory.
static bool keep_order(orv_rows *before)
{
  size_t *tails = make_list<size_t>(2 * before->count);
  const owned_block owned(tails);
  if (tails == nullptr) {
    return false;
  }
  size_t *previous = tails + before->count;
  orv_row *rows = before->rows;
  size_t length = 0;
  for (size_t i = 0; i < before->count; i++) {
    if (rows[i].partner == ORV_NO_ROW) {
      continue;
    }
    const size_t at = static_cast<size_t>(
        std::lower_bound(tails, tails + length, rows[i].partner,
                         [rows](size_t tail, size_t partner) {
                           return rows[tail].partner < partner;
                         }) -
        tails);
    previous[i] = at > 0 ? tails[at - 1] : ORV_NO_ROW;
    tails[at] = i;
    length = std::max(length, at + 1);
  }
  size_t kept = length > 0 ? tails[length - 1] : ORV_NO_ROW;
  for (size_t i = before->count; i > 0; i--) {
    if (i - 1 == kept) {
      kept = previous[kept];
    } else {
      rows[i - 1].partner = ORV_NO_ROW;
    }
  }
  return true;
}

static unsigned count_differences(const orv_row *a, const orv_row *b)
{
  unsigned count = 0;
  for (size_t i = 0; i < a->columns; i++) {
    count += strcmp(a->cells[i], b->cells[i]) != 0 ? 1 : 0;
  }
  return count;
}

// Pairs `m` rows with `n` so that the fewest cells differ, a row without a
// partner counting as half of its cells; a single row so remains the one that
// it was, however much of it differs.  `costs` has (m + 1) * (n + 1) entries:
// the least cost of what lies behind each place.
static void align(orv_row *olds, size_t m, const orv_row *news, size_t n,
                  unsigned *costs)
{
  const unsigned alone = static_cast<unsigned>(olds->columns / 2 + 1);
  const size_t width = n + 1;
  for (size_t i = m + 1; i-- > 0;) {
    for (size_t j = n + 1; j-- > 0;) {
      unsigned *cost = costs + i * width + j;
      if (i == m || j == n) {
        *cost = static_cast<unsigned>(m - i + n - j) * alone;
        continue;
      }
      *cost = std::min(cost[width + 1] + count_differences(olds + i, news + j),
                       std::min(cost[width], cost[1]) + alone);
    }
  }
  for (size_t i = 0, j = 0; i < m && j < n;) {
    const unsigned *cost = costs + i * width + j;
    if (*cost == cost[width + 1] + count_differences(olds + i, news + j)) {
      olds[i].partner = news[j].index;
      i++;
      j++;
    } else if (*cost == cost[width] + alone) {
      i++;
    } else {
      j++;
    }
  }
}

// Pairs the rows from `i` and `j` on, up to the next pair of equals.  False
// without memory.
static bool pair_run(orv_row *olds, size_t m, const orv_row *news, size_t n)
{
  if (m == 0 || n == 0) {
    return true;
  }
  if (m >= COSTS_MAX || (m + 1) * (n + 1) > COSTS_MAX) {
    for (size_t i = 0; i < std::min(m, n); i++) {
      olds[i].partner = news[i].index;
    }
    return true;
  }
  unsigned *costs = make_list<unsigned>((m + 1) * (n + 1));
  if (costs == nullptr) {
    return false;
  }
  align(olds, m, news, n, costs);
  free(costs);
  return true;
}

bool orv_pair_rows(orv_rows *before, orv_rows *after)
{
  if (!pair_equals(before, after) || !keep_order(before)) {
    return false;
  }
  size_t old_from = 0;
  size_t new_from = 0;
  for (size_t i = 0; i <= before->count; i++) {
    const bool is_end = i == before->count;
    const size_t partner = is_end ? after->count : before->rows[i].partner;
    if (partner == ORV_NO_ROW) {
      continue;
    }
    if (!pair_run(before->rows + old_from, i - old_from, after->rows + new_from,
                  partner - new_from)) {
      return false;
    }
    old_from = i + 1;
    new_from = partner + 1;
  }
  return true;
}
