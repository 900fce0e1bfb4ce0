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

// What else is known of a check.
enum check_traits {
  CHECK_PLAIN = 0,
  CHECK_OPTIONS = 1, // words may stand behind its name
  CHECK_DEVICE = 2,  // asks the device that it runs on
};

// All checks with their traits: `word` is the function chk_word.
// clang-format off
#define ORV_CHECKS(check)                                                      \
  check(text,      CHECK_PLAIN)                                                \
  check(word,      CHECK_PLAIN)                                                \
  check(keyword,   CHECK_OPTIONS)                                              \
  check(decimal,   CHECK_OPTIONS)                                              \
  check(number,    CHECK_OPTIONS)                                              \
  check(signed,    CHECK_OPTIONS)                                              \
  check(real,      CHECK_OPTIONS)                                              \
  check(file,      CHECK_OPTIONS | CHECK_DEVICE)                               \
  check(path,      CHECK_OPTIONS | CHECK_DEVICE)                               \
  check(ipaddr,    CHECK_OPTIONS)                                              \
  check(ipservice, CHECK_DEVICE)                                               \
  check(email,     CHECK_PLAIN)                                                \
  check(socket,    CHECK_DEVICE)                                               \
  check(script,    CHECK_DEVICE)                                               \
  check(directory, CHECK_DEVICE)                                               \
  check(regex,     CHECK_OPTIONS)                                              \
  check(iregex,    CHECK_OPTIONS)                                              \
  check(username,  CHECK_DEVICE)                                               \
  check(groupname, CHECK_DEVICE)                                               \
  check(command,   CHECK_DEVICE)
// clang-format on

#define ORV_DECLARE_CHECK(name, traits) orv_check_function chk_##name;
ORV_CHECKS(ORV_DECLARE_CHECK)
#undef ORV_DECLARE_CHECK

// The same as rows, ended by one without a name.
extern const checks_info chk_list[];

// The traits of a row of that table, combined.
inline int orv_check_traits(const checks_info *row)
{
#define ORV_CHECK_TRAITS(name, traits) (traits),
  static constexpr unsigned char all[] = {ORV_CHECKS(ORV_CHECK_TRAITS)};
#undef ORV_CHECK_TRAITS
  return all[row - chk_list];
}

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
