// The state that a page hands to the next request: a hidden field for each
// value of a variable, and the names of those that its conditions read.
// Nothing here fails or reports; names that are too long are cut.

#include "cgi_state.h"

#include <string.h>
#include <strings.h>

#include "html_records.h"
#include "orv.h"
#include "orv_parser.h"
#include "orv_secret.h"
#include "orv_vars.h"

// --- hidden fields -----------------------------------------------------------

void cgiout_state_name(char (&field)[ORV_NAME_SIZE], char type,
                       const char *name)
{
  const size_t length = strnlen(name, sizeof field - 3);
  field[0] = type;
  field[1] = '_';
  memcpy(field + 2, name, length);
  field[2 + length] = '\0';
}

// An unticked box posts nothing, so a check box carries "False" as its user
// value, which a ticked box's own field then replaces.  One of a row that was
// emptied stays empty, or its row would count as used.
static const char *user_value(const orv_var *var)
{
  const bool is_empty = var->u_value != nullptr && var->u_value[0] == '\0';
  return var->is_checkbox && !is_empty ? "False" : var->u_value;
}

void cgiout_variables(void (*put)(const char *name, const char *value))
{
  for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
    const struct {
      char type;
      const char *text;
    } values[] = {
        {'d', var->d_value},
        {'c', var->c_value},
        {'o', var->o_value},
        {'u', user_value(var)},
    };
    for (const auto &value : values) {
      if (value.text != nullptr) {
        char field[ORV_NAME_SIZE];
        cgiout_state_name(field, value.type, var->name);
        put(field, value.text);
      }
    }
  }
}

static bool is_choice_of(const pt_body_item *itm, const char *name)
{
  if (itm->type != PT_CHECKBOX && itm->type != PT_SELECT &&
      itm->type != PT_ISELECT) {
    return false;
  }
  const size_t length = strlen(itm->name);
  return strncasecmp(name, itm->name, length) == 0 &&
         name[length + strspn(name + length, "0123456789")] == '\0';
}

// A row that moves up takes its values along as the user's.
static bool has_secret(const orv_var *var)
{
  if (!orv_is_secret_name(var->name)) {
    return false;
  }
  const char *value = del_vars != nullptr
                          ? orv_get_var(&cfg_vars, var->name, o_undefined)
                          : var->u_value;
  return value != nullptr && value[0] != '\0';
}

bool cgiout_carries_secret(const pt_body_item *body)
{
  for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
    if (!has_secret(var)) {
      continue;
    }
    const pt_body_item *itm = body;
    while (itm != nullptr && !is_choice_of(itm, var->name)) {
      itm = itm->next;
    }
    if (itm == nullptr) {
      return true;
    }
  }
  return false;
}

// --- what is shown -----------------------------------------------------------

bool cgiout_mark_checkbox(const char *name, const char *varname)
{
  const char *value = orv_get_var(&cfg_vars, varname, o_undefined);
  if (value != nullptr) {
    orv_set_var_ischeckbox(varname);
    orv_set_var_ischeckbox(name); // as which it is posted
  }
  return orv_string_is_true(value) != 0;
}

html_form_list_opt *cgiout_mark_choice(pt_body_item *itm, const char *varname)
{
  const char *value = orv_get_var(&cfg_vars, varname, o_undefined);
  html_form_list_opt *chosen = nullptr;
  for (html_form_list_opt *choice = itm->choices.choices; choice != nullptr;
       choice = choice->next) {
    const bool selected = value != nullptr && choice->value != nullptr &&
                          strcmp(value, choice->value) == 0;
    choice->selected = selected ? 1 : 0;
    chosen = selected ? choice : chosen;
  }
  return chosen != nullptr ? chosen : itm->choices.choices;
}

// --- conditions --------------------------------------------------------------
// Far more names than conditions of a form ask for; what does not fit is left
// out, and changes with a button as it does without scripts.
constexpr size_t CONDITIONS_SIZE = 500;

static char conditions[CONDITIONS_SIZE]; // collected once, for the one page

// Names differ by more than capitals.
static bool is_watched(const char *name, size_t length)
{
  const char *at = conditions;
  while (*at != '\0') {
    if (strncasecmp(at, name, length) == 0 && at[length] == ' ') {
      return true;
    }
    at += strcspn(at, " ") + 1;
  }
  return false;
}

static void watch(const char *name, size_t length)
{
  const size_t used = strlen(conditions);
  if (length > 0 && used + length + 2 <= sizeof conditions &&
      !is_watched(name, length)) {
    memcpy(conditions + used, name, length);
    conditions[used + length] = ' ';
  }
}

// Reads the condition as its expansion does.
static void add_condition(const char *text)
{
  text = strchr(text, '$');
  while (text != nullptr && text[1] != '\0') {
    const bool is_reference =
        text[2] == ':' && strchr("CDENOUV", text[1]) != nullptr;
    const char *end = is_reference ? strchr(text + 3, '$') : nullptr;
    if (text[2] == '$') {
      end = text + 2;
    } else if (end != nullptr && strchr("UV", text[1]) != nullptr) {
      watch(text + 3, static_cast<size_t>(end - text) - 3);
    }
    text = strchr(end != nullptr ? end + 1 : text + 1, '$');
  }
}

const char *cgiout_conditions(const pt_body_item *itm)
{
  for (; itm != nullptr; itm = itm->next) {
    if (itm->type == PT_IF || itm->type == PT_IFNOT) {
      add_condition(itm->text.txt);
    }
  }
  return conditions[0] != '\0' ? conditions : nullptr;
}
