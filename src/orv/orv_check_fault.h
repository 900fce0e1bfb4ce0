// What checks share: how a failure is recorded, and the reading of words and
// numbers.  Only the files of the checks include it.

#ifndef ORV_CHECK_FAULT_H
#define ORV_CHECK_FAULT_H

#define ASCII_ALNUM                                                            \
  "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"

// Counts a failure and records its message in err_vars under `err_name`: the
// template's, or else `def_text` (NULL: none is known) with the column's label
// (NULL: none) in front.  Without memory the failure is counted all the same.
void check_failed(const char *err_name, const char *tpl_text,
                  const char *def_text, const char *var_label);

// Records what a rule has found, if anything (NULL: the value passes).
void check_record(const char *fault, const char *tpl_error,
                  const char *err_name, const char *var_label);

// The word that follows the one at `word`, "" behind the last.
const char *check_next_word(const char *word, const char *blanks);

// The first character of `text` that is not in `allowed`, or its end.
char check_first_other(const char *text, const char *allowed);

// strtol held to 32 bits, whatever the width of a long.
int check_to_int32(const char *text, char **end, int base);

#endif
