// Runtime support: memory that reports its own failure, truth values, the
// device's environment variables, and the state that a request carries.

#ifndef ORV_H
#define ORV_H

#include <stddef.h>

// --- request state -----------------------------------------------------------
// Each string is a heap copy owned by its global, NULL when absent.

extern char *orv_form;      // the form (template) that the page shows
extern char *orv_subitem;   // sub-item of that form
extern char *orv_action;    // label of the button that sent the request
extern char *orv_return;    // form to go back to from a confirmation
extern char *orv_continue;  // form to go on to from a confirmation
extern int orv_expert_mode; // 1: expert view, 0: simple view

// --- memory ------------------------------------------------------------------
// A failure is reported by orv_fatal, which returns during a request: callers
// check the result and give up on their own work.

// `size` bytes owned by the caller (free), or NULL.
void *must_malloc(size_t size);
// A heap copy of `str`, NULL counting as "", owned by the caller; or NULL.
char *must_strdup(const char *str);
// Resizes the block `*buf`.  1, or 0 with `*buf` as it was and still valid.
int must_realloc(char **buf, size_t size);

// --- truth and environment ---------------------------------------------------

// 0 for NULL, "", "0" and, in any letter case, "no", "false" and "off"; else 1.
int orv_string_is_true(const char *str);

// Whether the form's variable "always_submit" has a true best value.
int orv_always_submit_set(void);

// Sets SYSTEM_TYPE, HW_VERSION and SW_VERSION in the environment from the
// device's description file, or to their defaults; does nothing when
// SYSTEM_TYPE is already set.  Nothing is reported.
void orv_init_env(void);

#endif
