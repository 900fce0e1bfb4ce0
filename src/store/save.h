// A save: what is to be stored, judged, committed and told.

#ifndef STORE_SAVE_H
#define STORE_SAVE_H

#include <stddef.h>
#include <stdio.h>

// What an order makes can be read again: a file has 4 MiB at most.
constexpr size_t SAVE_ORDER_MAX = 3UL * 1024 * 1024;

// Of changes, on the page that confirms.
constexpr size_t SAVE_PAGE_LINES = 12;

// Stores what `order`, lines as orv-store(8) describes them, says as one step.
// The text is taken; with `form` and `subitem` (NULL: none) the save is told
// to others.  False with a fault, and nothing is stored.  Needs the lock; once
// a process, or behind save_forget.
bool save_order(char *order, const char *form, const char *subitem);

// Forgets what came of it and the order.
void save_forget(void);

// Writes what came of it for a script: the guarded change's token, and each
// change for a page and for a log.
void save_answer(FILE *out);

// Writes what changed as a page that confirms takes it.
void save_tell_page(FILE *out);

// Tells the system log what changed, and who did it from where.
void save_log(void);

#endif
