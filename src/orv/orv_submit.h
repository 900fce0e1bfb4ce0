// What a Submit does, from a page or a terminal: the checks, the check script,
// the write script, and what is said when one of them refuses.

#ifndef ORV_SUBMIT_H
#define ORV_SUBMIT_H

struct pt_header;
struct pt_body_item;

// A message, static, of a Submit that ends there; NULL: it goes on.  What a
// check or script has recorded stands in err_vars.
using orv_refusal = const char *;

// Before anything is checked: rows marked as deleted are first shown as
// deleted, for the user to submit once more.
orv_refusal orv_submit_rows(void);

// Whether there is something to save.
bool orv_submit_is_due(void);

// Checks the values of `body` and lets the form's check script judge them.
orv_refusal orv_submit_judge(const pt_header *hdr, pt_body_item *body);

// Runs the write script, which runs to its end even if this process dies.  To
// be called only when orv_submit_judge found nothing.
orv_refusal orv_submit_save(const pt_header *hdr);

#endif
