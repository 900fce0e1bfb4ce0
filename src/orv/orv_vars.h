// The variable store and its exchange with scripts.
//
// A variable has up to four values, one per origin; readers normally ask for
// the best of them: the user's, else the calculated, else the reported, else
// the default value.  A name may carry a list prefix ("error_", "delete_")
// and behind it an origin prefix (one of d, u, c, o in either case, and "_");
// the rest is the bare name.  Bare names are compared without regard to ASCII
// letter case.

#ifndef ORV_VARS_H
#define ORV_VARS_H

#include <stdio.h>

#include "orv_limits.h"

// Which value of a variable is meant; the characters are those of the prefixes
// and of messages.
enum v_origin {
  o_undefined = 0, // by the name's prefix, else the operation's default
  o_default = 'd',
  o_user = 'u',
  o_calc = 'c',
  o_orig = 'o', // as a script reported it
  o_best = 'v', // best value on reading, the user's on writing
};

// One variable.  Every string is owned by the record and freed with it.
struct orv_var {
  char *name; // bare, spelled as on the store that created the record
  orv_var *next;
  char *d_value;
  char *u_value;
  char *c_value;
  char *o_value;
  unsigned is_checkbox : 1; // drawn as a check box in this request
};

// Newest record first; a bare name occurs at most once in each.
extern orv_var *cfg_vars; // the form's configuration variables
extern orv_var *err_vars; // error messages by the failing variable's name
extern orv_var *del_vars; // table rows marked for deletion
// Names without values: the cells of tables that the page marks as wrong.
extern orv_var *failed_cells;

// The origin that the prefix of `name` stands for, or o_undefined.
v_origin orv_var_prefix(const char *name);

// The variable of a table's cell: the column's name and the row's number from 0
// on, cut to what `name` holds.
void orv_cell_name(char (&name)[ORV_NAME_SIZE], const char *column, int row);

// The list that `*name` selects, cfg_vars without a list prefix; the prefix is
// skipped.
orv_var **orv_var_list(const char **name);

// The record called `name` (an origin prefix is skipped), borrowed from the
// list; NULL when there is none.  `malloc` nonzero creates a missing one at
// the head, and NULL then means that memory ran out (reported).
orv_var *orv_find_var(orv_var **list, const char *name, int malloc);

// Stores `value` (NULL counts as "", except with o_best) in the list and slot
// given by `name` and `origin`.  `malloced` nonzero: `value` is taken, in
// every outcome; zero: it is copied.  With o_best a value equal to the best
// one is not stored.  1 when the store holds the value, else 0 (reported).
int orv_set_var(const char *name, v_origin origin, char *value, int malloced);

// Marks `name` in cfg_vars, created when missing, as drawn as a check box.
void orv_set_var_ischeckbox(const char *name);

// The value of that origin, borrowed: it may be shortened in place, never
// freed.  NULL when there is none.  A contradiction between `origin` and the
// name's prefix is reported, and the prefix holds.
char *orv_get_var(orv_var **list, const char *name, v_origin origin);

// Frees every record of the list and empties it.
void orv_free_vars(orv_var **list);

// The first record whose user value differs from what the page was made of;
// NULL when nothing has changed.
orv_var *orv_vars_changed(orv_var **list);

// Runs the read script `script` and stores what it prints in the lists; with
// `merge` zero cfg_vars is emptied first.  The number of lines stored, or -1
// when the script failed or a line was bad (values stored so far stay).
int orv_load_vars(const char *script, int merge);

// Starts the script `script`, empties err_vars, writes every variable of `list`
// to it and stores its answer.  1 when it took and answered all, exited with
// status 0 and reported no error, else 0; a script that could not be started,
// and lack of memory, have been reported.  Once a value has been lost, it
// starts no script and gives 0.
int orv_save_vars(orv_var **list, const char *script);

// Whether lack of memory has lost a value: the lists then hold a part of what
// they were given.
bool orv_vars_lost(void);

// Stores a script's output: the number of lines stored, or -1 when a line was
// malformed (reported by orv_error), refused, or could not be read.
int orv_load_vars_fp(FILE *fp);

// Writes a script's input, a line for each variable with a value.  Negative
// when a write failed, 0 when there was nothing to write.
int orv_save_vars_fp(orv_var **list, FILE *fp);

#endif
