// A save: checking, committing and reporting an order.

#ifndef STORE_SAVE_H
#define STORE_SAVE_H

#include <stddef.h>
#include <stdio.h>

// Below the 4 MiB that a file may have, so the result can always be read again.
constexpr size_t SAVE_ORDER_MAX = 3UL * 1024 * 1024;

// At most that many changes appear on the confirmation page.
constexpr size_t SAVE_PAGE_LINES = 12;

// Carries out `order`, lines as orv-store(8) describes them, as one step.  The
// text is taken; `form` and `subitem` (NULL: none) name the save in the log and
// the history.  False with a fault, and nothing is stored.  Needs the lock.  To
// be called once per process, or again after save_forget.
bool save_order(char *order, const char *form, const char *subitem);

// Clears the order and its result.
void save_forget(void);

// Writes the result for a script: the guarded change's token, and each change
// for a page and for a log.
void save_answer(FILE *out);

// Writes the changes for the confirmation page.
void save_tell_page(FILE *out);

// Writes to the system log what changed, and who did it from where.
void save_log(void);

#endif
