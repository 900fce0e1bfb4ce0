// The variable store and its exchange with scripts.
//
// Owns the process-wide lists, which are filled by the request intake, scripts
// and checks and freed at the end of the request.  The lists are the
// truth; beside each stands a search tree that is only an index of it, made
// once the list is long and dropped whenever it no longer fits.  Faults of the
// store itself are reported by orv_fatal, bad script output by orv_error;
// neither stops the parse of the lines that follow.

#include "orv_vars.h"

#include <limits.h>
#include <search.h>
#include <string.h>
#include <strings.h>

#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_scripts.h"

orv_var *cfg_vars;
orv_var *err_vars;
orv_var *del_vars;
orv_var *failed_cells;

// --- the index ---------------------------------------------------------------
// A request of
// 10,000 fields looks each of them up several times, which a walk of the list
// would make quadratic.  The tree is balanced (tsearch), so that no choice of
// names can degrade it.  It holds exactly the records of its list as long as
// the list's head is the record that was entered last: that reveals a record
// put in front by hand, or an emptied list.  A change further down a long list
// could only be noticed at the cost of the walk.

struct var_index {
  orv_var **list;
  orv_var *head; // the list's head when the tree was last touched
  void *tree;    // NULL: there is no index at present
};

// Shorter lists are walked: that is as fast, and true whatever happened to
// the list.
constexpr int INDEX_FROM = 100;

// Set when a value was lost for lack of memory, and never reset: the lists are
// incomplete from then on, and no script gets an incomplete input.
static bool value_lost;

static var_index indexes[] = {
    {&cfg_vars, nullptr, nullptr},
    {&err_vars, nullptr, nullptr},
    {&del_vars, nullptr, nullptr},
    {&failed_cells, nullptr, nullptr},
};

static int compare_names(const void *a, const void *b)
{
  return strcasecmp(static_cast<const orv_var *>(a)->name,
                    static_cast<const orv_var *>(b)->name);
}

static void keep_record(void *)
{
}

static void index_drop(var_index *index)
{
  tdestroy(index->tree, keep_record);
  index->tree = nullptr;
}

// A record without room in the tree makes the tree useless, no more.
static void index_enter(var_index *index, orv_var *var)
{
  if (tsearch(var, &index->tree, compare_names) == nullptr) {
    index_drop(index);
  }
}

// The index of `list` when it has one that fits, else NULL.
static var_index *index_of(orv_var **list)
{
  for (var_index &index : indexes) {
    if (index.list != list || index.tree == nullptr) {
      continue;
    }
    if (index.head == *list) {
      return &index;
    }
    index_drop(&index);
  }
  return nullptr;
}

static void index_build(orv_var **list)
{
  for (var_index &index : indexes) {
    if (index.list != list) {
      continue;
    }
    // Of two records of one name, the first is the one that a walk finds, and
    // entering a second one leaves the first in place.
    orv_var *var = *list;
    do {
      index_enter(&index, var);
      var = var->next;
    } while (var != nullptr && index.tree != nullptr);
    index.head = *list;
  }
}

// --- names -------------------------------------------------------------------

v_origin orv_var_prefix(const char *name)
{
  if (name[0] == '\0' || name[1] != '_') {
    return o_undefined;
  }
  switch (name[0]) {
  case 'd':
  case 'D':
    return o_default;
  case 'u':
  case 'U':
    return o_user;
  case 'c':
  case 'C':
    return o_calc;
  case 'o':
  case 'O':
    return o_orig;
  default:
    return o_undefined;
  }
}

constexpr size_t ORIGIN_PREFIX_LENGTH = 2;

// Without snprintf, since a save of a small table makes hundreds of these
// names.
void orv_cell_name(char (&name)[ORV_NAME_SIZE], const char *column, int row)
{
  char digits[orv_digits(INT_MAX)];
  size_t count = 0;
  do {
    digits[count] = static_cast<char>('0' + row % 10);
    count++;
    row /= 10;
  } while (row > 0);
  size_t length = strnlen(column, ORV_NAME_MAX);
  memcpy(name, column, length);
  for (; count > 0 && length < ORV_NAME_MAX; length++) {
    count--;
    name[length] = digits[count];
  }
  name[length] = '\0';
}

orv_var **orv_var_list(const char **name)
{
  // clang-format off
  static const struct {
    const char *prefix;
    orv_var **list;
  } prefixes[] = {
    {"error_",  &err_vars},
    {"delete_", &del_vars},
  };
  // clang-format on
  for (const auto &row : prefixes) {
    const size_t length = strlen(row.prefix);
    if (strncmp(*name, row.prefix, length) == 0) {
      *name += length;
      return row.list;
    }
  }
  return &cfg_vars;
}

// --- records -----------------------------------------------------------------

static void free_var(orv_var *var)
{
  free(var->name);
  free(var->d_value);
  free(var->u_value);
  free(var->c_value);
  free(var->o_value);
  free(var);
}

// A cleared record of that name, in no list; NULL when memory ran out.
static orv_var *new_var(const char *name)
{
  orv_var *var = static_cast<orv_var *>(must_malloc(sizeof *var));
  if (var == nullptr) {
    return nullptr;
  }
  memset(var, 0, sizeof *var);
  var->name = must_strdup(name);
  if (var->name == nullptr) {
    free_var(var);
    return nullptr;
  }
  return var;
}

static orv_var *create_var(orv_var **list, const char *name)
{
  orv_var *var = new_var(name);
  if (var == nullptr) {
    value_lost = true;
    return nullptr;
  }
  var_index *index = index_of(list);
  var->next = *list;
  *list = var;
  if (index != nullptr) {
    index_enter(index, var);
    index->head = var;
  }
  return var;
}

// Most names differ in their first letter, in whatever case it is.
static bool is_named(const orv_var *var, const char *name)
{
  return (var->name[0] | 0x20) == (name[0] | 0x20) &&
         strcasecmp(var->name, name) == 0;
}

static orv_var *search(orv_var **list, const char *name)
{
  const var_index *index = index_of(list);
  if (index != nullptr) {
    orv_var key = {};
    key.name = const_cast<char *>(name);
    void *found = tfind(&key, &index->tree, compare_names);
    return found != nullptr ? *static_cast<orv_var **>(found) : nullptr;
  }
  int steps = 0;
  orv_var *var = *list;
  while (var != nullptr && !is_named(var, name)) {
    var = var->next;
    steps++;
  }
  if (steps >= INDEX_FROM) {
    index_build(list);
  }
  return var;
}

orv_var *orv_find_var(orv_var **list, const char *name, int create)
{
  if (orv_var_prefix(name) != o_undefined) {
    name += ORIGIN_PREFIX_LENGTH;
  }
  orv_var *var = search(list, name);
  if (var == nullptr && create != 0) {
    var = create_var(list, name);
  }
  return var;
}

void orv_free_vars(orv_var **list)
{
  for (var_index &index : indexes) {
    if (index.list == list) {
      index_drop(&index);
    }
  }
  while (*list != nullptr) {
    orv_var *var = *list;
    *list = var->next;
    free_var(var);
  }
}

// --- values ------------------------------------------------------------------

static char *best_value(const orv_var *var)
{
  char *const by_rank[] = {var->u_value, var->c_value, var->o_value};
  for (char *value : by_rank) {
    if (value != nullptr) {
      return value;
    }
  }
  return var->d_value;
}

// The slot of an origin that has one of its own, else NULL.
static char **slot_of(orv_var *var, v_origin origin)
{
  switch (origin) {
  case o_default:
    return &var->d_value;
  case o_user:
    return &var->u_value;
  case o_calc:
    return &var->c_value;
  case o_orig:
    return &var->o_value;
  case o_undefined:
  case o_best:
  default:
    return nullptr;
  }
}

// Table cells and error texts are written again and again: a value that fits
// into the old one's buffer reuses it.
static int store_copy(char **slot, const char *value)
{
  const char *src = value != nullptr ? value : "";
  const size_t length = strlen(src);
  if (*slot != nullptr && strlen(*slot) >= length) {
    memmove(*slot, src, length + 1);
    return 1;
  }
  char *copy = must_strdup(src);
  free(*slot);
  *slot = copy;
  value_lost |= copy == nullptr;
  return copy != nullptr ? 1 : 0;
}

int orv_set_var(const char *name, v_origin origin, char *value, int malloced)
{
  owned_text owned(malloced != 0 ? value : nullptr);
  orv_var **list = orv_var_list(&name);
  const v_origin prefix = orv_var_prefix(name);
  if (prefix == o_undefined) {
    origin = origin == o_undefined ? o_orig : origin;
  } else if (origin == o_undefined || origin == prefix) {
    origin = prefix;
    name += ORIGIN_PREFIX_LENGTH;
  } else {
    orv_fatal("Variable origin mismatch (%c vs %c) setting %s", origin, prefix,
              name);
    return 0;
  }
  orv_var *var = orv_find_var(list, name, 1);
  if (var == nullptr) {
    return 0;
  }
  if (origin == o_best) {
    const char *best = best_value(var);
    if (best != nullptr && value != nullptr && strcmp(best, value) == 0) {
      return 1;
    }
    origin = o_user;
  }
  char **slot = slot_of(var, origin);
  if (slot == nullptr) {
    orv_fatal("Logic bomb setting %s origin %d", name, origin);
    return 0;
  }
  if (owned == nullptr) {
    return store_copy(slot, value);
  }
  free(*slot);
  *slot = owned.release();
  return 1;
}

void orv_set_var_ischeckbox(const char *name)
{
  orv_var *var = orv_find_var(&cfg_vars, name, 1);
  if (var != nullptr) {
    var->is_checkbox = 1;
  }
}

char *orv_get_var(orv_var **list, const char *name, v_origin origin)
{
  const v_origin prefix = orv_var_prefix(name);
  if (prefix == o_undefined) {
    origin = origin == o_undefined ? o_best : origin;
  } else {
    if (origin != o_undefined && origin != prefix) {
      orv_fatal("Variable origin mismatch (%c vs %c) getting %s", origin,
                prefix, name);
    }
    origin = prefix;
    name += ORIGIN_PREFIX_LENGTH;
  }
  orv_var *var = orv_find_var(list, name, 0);
  if (var == nullptr) {
    return nullptr;
  }
  if (origin == o_best) {
    return best_value(var);
  }
  char **slot = slot_of(var, origin);
  if (slot == nullptr) {
    orv_fatal("Logic bomb getting %s origin %d", name, origin);
    return nullptr;
  }
  return *slot;
}

// A user value that repeats the reported one is no change, and neither is an
// empty field, or the default left standing, where nothing was reported.
static bool is_changed(const orv_var *var)
{
  if (var->u_value == nullptr) {
    return false;
  }
  if (var->o_value != nullptr) {
    return strcmp(var->u_value, var->o_value) != 0;
  }
  return var->u_value[0] != '\0' &&
         (var->d_value == nullptr || strcmp(var->u_value, var->d_value) != 0);
}

orv_var *orv_vars_changed(orv_var **list)
{
  orv_var *var = *list;
  while (var != nullptr && !is_changed(var)) {
    var = var->next;
  }
  return var;
}

// --- the exchange with scripts -----------------------------------------------

static bool is_blank(char c)
{
  return c == ' ' || c == '\t' || c == '\n';
}

// Takes off the blanks around the line and returns its start.
static char *strip_line(char *line)
{
  size_t length = strlen(line);
  while (length > 0 && is_blank(line[length - 1])) {
    length--;
  }
  line[length] = '\0';
  return line + strspn(line, " \t");
}

// Removes a pair of quotes around the whole value.
static char *strip_quotes(char *value)
{
  const size_t length = strlen(value);
  const char quote = value[0];
  if (length == 0 || (quote != '"' && quote != '\'') ||
      value[length - 1] != quote) {
    return value;
  }
  value[length - 1] = '\0';
  return length > 1 ? value + 1 : value;
}

// Stores one stripped line of script output; false when it is malformed or the
// store refuses it, both of which have been reported.
static bool store_line(char *line)
{
  char *equals = strchr(line, '=');
  if (equals == nullptr) {
    orv_error("Bad format script output \"%s\"", line);
    return false;
  }
  *equals = '\0';
  return orv_set_var(line, o_undefined, strip_quotes(equals + 1), 0) != 0;
}

int orv_load_vars_fp(FILE *fp)
{
  char buf[ORV_LINE_MAX + 1];
  int count = 0;
  bool failed = false;
  while (fgets(buf, sizeof buf, fp) != nullptr) {
    char *line = strip_line(buf);
    if (line[0] == '\0') {
      continue;
    }
    if (store_line(line)) {
      count++;
    } else {
      failed = true;
    }
  }
  return failed || ferror(fp) != 0 ? -1 : count;
}

int orv_save_vars_fp(orv_var **list, FILE *fp)
{
  int result = 0;
  for (const orv_var *var = *list; var != nullptr; var = var->next) {
    const char *value = best_value(var);
    if (value == nullptr) {
      continue;
    }
    result = fprintf(fp, "new_%s=\"%s\"\n", var->name, value);
    if (result < 0) {
      break;
    }
  }
  return result;
}

int orv_load_vars(const char *script, int merge)
{
  if (merge == 0) {
    orv_free_vars(&cfg_vars);
  }
  if (orv_script_does_nothing(script)) {
    return 0;
  }
  pid_t pid;
  owned_stream output(orv_script_exchange(script, nullptr, 0, &pid));
  if (output == nullptr) {
    return -1;
  }
  const int count = orv_load_vars_fp(output.get());
  output.reset();
  return orv_script_wait(pid) == 0 ? count : -1;
}

// The bytes of a script's input.
static size_t input_length(orv_var **list)
{
  size_t length = 0;
  for (const orv_var *var = *list; var != nullptr; var = var->next) {
    const char *value = best_value(var);
    if (value != nullptr) {
      length += sizeof "new_=\"\"\n" - 1 + strlen(var->name) + strlen(value);
    }
  }
  return length;
}

// Makes a script's input in memory, so that it can be written while the
// script's output is read.  A stream into memory may lose what it has no room
// for in silence, so the length is held against what it must be.  Owned by the
// caller; NULL with a report.
static char *make_input(orv_var **list, size_t *length)
{
  char *text = nullptr;
  FILE *fp = open_memstream(&text, length);
  if (fp != nullptr) {
    const int written = orv_save_vars_fp(list, fp);
    if (fclose(fp) == 0 && written >= 0 && *length == input_length(list)) {
      return text;
    }
    free(text);
  }
  orv_fatal("orv: out of memory");
  return nullptr;
}

bool orv_vars_lost(void)
{
  return value_lost;
}

// Stores the answer of a script that has been started; false when the script
// has not taken its whole input (NULL), or the answer cannot be taken in whole.
// The stream is taken.
static bool take_answer(FILE *stream)
{
  const owned_stream answer(stream);
  if (answer == nullptr) {
    return false;
  }
  orv_load_vars_fp(answer.get());
  return !value_lost && ferror(answer.get()) == 0;
}

// The input is complete before the script starts: one that saw a part of it
// might save a part of it.
int orv_save_vars(orv_var **list, const char *script)
{
  if (!value_lost && orv_script_does_nothing(script)) {
    orv_free_vars(&err_vars);
    return 1;
  }
  size_t length = 0;
  const owned_text input(value_lost ? nullptr : make_input(list, &length));
  if (input == nullptr) {
    return 0;
  }
  pid_t pid;
  FILE *answer = orv_script_exchange(script, input.get(), length, &pid);
  if (pid < 1) {
    return 0;
  }
  orv_free_vars(&err_vars);
  const bool answered = take_answer(answer);
  if (orv_script_wait(pid) != 0 || !answered) {
    return 0;
  }
  return err_vars == nullptr ? 1 : 0;
}
