// Taking in a request: its navigation fields go into globals, the state that
// its page carried and what the user entered into the variables.

#include "cgi_intake.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "cgi.h"
#include "cgi_main.h"
#include "cgi_policy.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_vars.h"

// The navigation field that is kept in a global, NULL for every other name.
static char **navigation_field(const char *name)
{
  // clang-format off
  static const struct {
    const char *name;
    char **global;
  } fields[] = {
    {"form",          &orv_form},
    {"subitem",       &orv_subitem},
    {"action",        &orv_action},
    {"return",        &orv_return},
    {"continue",      &orv_continue},
    {"scroll_y",      &scroll_y},
    {"anchor_target", &anchor_target},
  };
  // clang-format on
  for (const auto &field : fields) {
    if (strcmp(name, field.name) == 0) {
      return field.global;
    }
  }
  return nullptr;
}

// Takes in a field that carries no origin; `value` is taken.
static void take_field(const char *name, char *value)
{
  char **global = navigation_field(name);
  if (global != nullptr) {
    free(*global);
    *global = value;
  } else if (strcmp(name, "expert_mode") == 0) {
    orv_expert_mode = orv_string_is_true(value);
    free(value);
  } else {
    orv_set_var(name, o_best, value, 1);
  }
}

// Takes in the fields with or without an origin; 0 when memory ran out.
static int take_fields(char **names, bool tagged, int *vars_loaded)
{
  for (; *names != nullptr; names++) {
    if ((orv_var_prefix(*names) != o_undefined) != tagged) {
      continue;
    }
    if (strcmp(*names, "cgi_vars_loaded") == 0) {
      *vars_loaded = 1;
      continue;
    }
    char *value = cgi_policy_value(*names);
    if (value == nullptr) {
      orv_fatal("load_vars: Out of memory for variables");
      return 0;
    }
    if (tagged) {
      orv_set_var(*names, o_undefined, value, 1);
    } else {
      take_field(*names, value);
    }
  }
  return 1;
}

int cgi_load_vars(void)
{
  char **names = nullptr;
  int vars_loaded = 0;
  if (cgiFormEntries(&names) != cgiFormSuccess) {
    return 0;
  }
  if (take_fields(names, true, &vars_loaded) == 0 ||
      take_fields(names, false, &vars_loaded) == 0) {
    vars_loaded = 0;
  }
  cgiStringArrayFree(names);
  fflush(stdout);
  return vars_loaded;
}
