// Runtime support.
//
// Owns the request-state globals, which live as long as the process and are
// written by the request intake and the form actions.  The memory helpers
// report their own failure, so that callers only give up; they never end a
// request.  The device variables are set once, before the first script.

#include "orv.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "kwtutil.h"
#include "orv_error.h"
#include "orv_vars.h"

#ifndef ORV_SYSTEM_TYPE_FILE
#define ORV_SYSTEM_TYPE_FILE "/etc/system_type"
#endif

char *orv_form;
char *orv_subitem;
char *orv_action;
char *orv_return;
char *orv_continue;
int orv_expert_mode;

// --- memory ------------------------------------------------------------------

void *must_malloc(size_t size)
{
  void *block = malloc(size);
  if (block == nullptr) {
    orv_fatal("orv: out of memory");
  }
  return block;
}

char *must_strdup(const char *str)
{
  const char *text = str != nullptr ? str : "";
  const size_t size = strlen(text) + 1;
  char *copy = static_cast<char *>(malloc(size));
  if (copy == nullptr) {
    orv_fatal("orv: out of memory for string \"%s\"", text);
    return nullptr;
  }
  memcpy(copy, text, size);
  return copy;
}

int must_realloc(char **buf, size_t size)
{
  char *block = static_cast<char *>(realloc(*buf, size));
  if (block == nullptr) {
    orv_fatal("orv: cannot realloc memory");
    return 0;
  }
  *buf = block;
  return 1;
}

// --- truth -------------------------------------------------------------------

int orv_string_is_true(const char *str)
{
  if (str == nullptr || str[0] == '\0') {
    return 0;
  }
  if (strcmp(str, "0") == 0 || strcasecmp(str, "no") == 0 ||
      strcasecmp(str, "false") == 0 || strcasecmp(str, "off") == 0) {
    return 0;
  }
  return 1;
}

int orv_always_submit_set(void)
{
  return orv_string_is_true(orv_get_var(&cfg_vars, "always_submit", o_best));
}

// --- the device's environment ------------------------------------------------

// The string becomes part of the environment, so it is never freed.
static void set_env(char *name, char *val)
{
  const size_t size = strlen(name) + strlen(val) + 2;
  char *entry = static_cast<char *>(malloc(size));
  if (entry == nullptr) {
    return;
  }
  snprintf(entry, size, "%s=%s", name, val);
  if (putenv(entry) != 0) {
    free(entry);
  }
} // NOLINT(clang-analyzer-unix.Malloc): the environment keeps it

static void set_env_tuple(kwtutil_cffile_t *cfinfo, char *name, char *def)
{
  kwtutil_cffile_tuple *tuple = nullptr;
  if (cfinfo != nullptr) {
    tuple = kwtutil_cffile_find_tuple(cfinfo, name);
  }
  set_env(name, tuple != nullptr ? tuple->value : def);
}

void orv_init_env(void)
{
  // clang-format off
  static struct {
    char name[12];
    char def[4];
  } device_vars[] = {
    {"SYSTEM_TYPE", "KMX"},
    {"HW_VERSION",  "0"},
    {"SW_VERSION",  "0"},
  };
  // clang-format on

  if (getenv("SYSTEM_TYPE") != nullptr) {
    return;
  }
  kwtutil_cffile_t *cfinfo = kwtutil_cffile_load(ORV_SYSTEM_TYPE_FILE);
  for (auto &var : device_vars) {
    set_env_tuple(cfinfo, var.name, var.def);
  }
  if (cfinfo != nullptr) {
    kwtutil_cffile_free(cfinfo);
  }
}
