// Validation of submitted values: the walk over a form's body and the table
// of named checks.

#ifndef ORV_CHECK_H
#define ORV_CHECK_H

struct pt_body_item;

// A check.  `value` is normalised and not blank; `options` is the text behind
// the check's name, "" when there is none; `tpl_error` the template's message
// and `var_label` the column's label, either may be NULL; `err_name` the error
// record to write.  A failure is recorded in err_vars.
using orv_check_function = void(char *value, const char *options,
                                const char *tpl_error, const char *err_name,
                                const char *var_label);

struct checks_info {
  const char *name;
  int name_len;
  orv_check_function *func;
};

// All checks, ended by a row without a name.
extern const checks_info chk_list[];

orv_check_function chk_text;
orv_check_function chk_word;
orv_check_function chk_keyword;
orv_check_function chk_decimal;
orv_check_function chk_number;
orv_check_function chk_signed;
orv_check_function chk_real;
orv_check_function chk_file;
orv_check_function chk_path;
orv_check_function chk_ipaddr;
orv_check_function chk_ipservice;
orv_check_function chk_email;
orv_check_function chk_socket;
orv_check_function chk_script;
orv_check_function chk_directory;
orv_check_function chk_regex;
orv_check_function chk_iregex;
orv_check_function chk_username;
orv_check_function chk_groupname;
orv_check_function chk_command;

// The check that a field's check attribute names ("nullok" may stand before it;
// NULL counts as "nullok text"), NULL when there is none of that name.
// `*nullok` becomes 1 when blank input passes, `*options` what stands behind
// the name, borrowed from `check`.
const checks_info *orv_find_check(const char *check, int *nullok,
                                  const char **options);

// Checks every input item of the body `itm` (may be NULL) against its value in
// cfg_vars, which is normalised in place.  err_vars is emptied and receives a
// message for each failure; the table cells that failed stand in failed_cells.
// 1 when there was none, else 0.
int orv_check_vars(pt_body_item *itm);

// Takes what a script recorded under the name of a cell (the column's and the
// row's number) as a mark of that cell, entered in failed_cells, and as the
// column's message in err_vars, unless it has one: of several cells the first
// one's.  Does nothing after checks that failed.
void orv_mark_cells(pt_body_item *itm);

// Whether the column's message is about those of its cells alone that stand in
// failed_cells; a script's message for the column is about all of them.
bool orv_column_is_marked(const pt_body_item *column);

#endif
