// Setting the fields of a page, within the limits of a browser and the strict
// policy: a script must not get from a terminal what no page would send.  Owns
// the text about an unknown choice.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "cgi_policy.h"
#include "cgi_state.h"
#include "html_records.h"
#include "orv.h"
#include "orv_guard.h"
#include "page.h"
#include "page_draw.h"
#include "suggest.h"

static char *refusal; // owned

const char *page_field_fault(const char *name, const char *value)
{
  static const policy_request page = {true, "POST", "", "", "", "", ""};
  return policy_field_fault(&page, name, value);
}

// The old value stays when there is no memory for the new one.
static const char *set_value(page_field *field, const char *value)
{
  char *copy = value != nullptr ? must_strdup(value) : nullptr;
  if (value != nullptr && copy == nullptr) {
    return "out of memory";
  }
  free(field->value);
  field->value = copy;
  return nullptr;
}

// Like a browser, which sends "True" for a ticked box and nothing for another.
// Any other word is refused, since it would silently clear the box.
static const char *choose_box(page_field *field, const char *value)
{
  static const char *const words[] = {"1", "true",  "yes", "on", "0",
                                      "",  "false", "no",  "off"};
  for (const char *word : words) {
    if (strcasecmp(word, value) == 0) {
      return set_value(field,
                       orv_string_is_true(value) != 0 ? "True" : nullptr);
    }
  }
  return "is a check box: True or False";
}

// The message for a value that is not in the list; borrowed until the next
// call.
static const char *no_choice(const html_form_list_opt *choice,
                             const char *value)
{
  suggestion of;
  suggest_begin(&of, value);
  for (; choice != nullptr; choice = choice->next) {
    if (choice->value != nullptr) {
      suggest_name(&of, choice->value);
    }
  }
  const owned_text there(suggest_end(&of, "it takes one of"));
  free(refusal);
  refusal = nullptr;
  const bool made =
      there != nullptr &&
      asprintf(&refusal, "has no such choice%s", there.get()) >= 0;
  return made ? refusal : "has no such choice";
}

// By what is posted, not by the text shown, which may change with the language
// of the device.
static const char *choose_entry(page_field *field, const char *value)
{
  for (const html_form_list_opt *choice = field->item->choices.choices;
       choice != nullptr; choice = choice->next) {
    if (choice->value != nullptr && strcmp(choice->value, value) == 0) {
      return set_value(field, value);
    }
  }
  return no_choice(field->item->choices.choices, value);
}

// A browser removes line ends from a text, so a value with one is a mistake
// rather than a setting.
const char *page_choose(page_field *field, const char *value)
{
  if (strpbrk(value, "\r\n") != nullptr) {
    return "must be one line of text";
  }
  const char *fault = page_field_fault(field->name, value);
  if (fault != nullptr) {
    return fault;
  }
  switch (field->kind) {
  case FIELD_TEXT:
    return set_value(field, value);
  case FIELD_BOX:
    return choose_box(field, value);
  case FIELD_LIST:
    return choose_entry(field, value);
  case FIELD_DELETE:
    return set_value(field, "True");
  case FIELD_FIXED:
  case FIELD_STATE:
  default:
    return "is read-only";
  }
}

static bool is_state_of(const page_field *field, const char *name)
{
  return field->kind == FIELD_STATE && strcasecmp(field->name, name) == 0;
}

// A secret has no visible value on a page: it is put into the page's state, as
// if the user had entered it on an earlier page.
const char *page_put_secret(const char *name, const char *value)
{
  const char *fault = page_field_fault(name, value);
  if (fault != nullptr || strpbrk(value, "\r\n") != nullptr) {
    return fault != nullptr ? fault : "must be one line of text";
  }
  char state[ORV_NAME_SIZE];
  cgiout_state_name(state, 'u', name);
  if (strcmp(state + strlen("u_"), name) != 0) { // cut: another variable's name
    return "is too long";
  }
  page_field *field = page_fields();
  while (field != nullptr && !is_state_of(field, state)) {
    field = field->next;
  }
  if (field != nullptr) {
    return set_value(field, value);
  }
  field = page_add_field(FIELD_STATE, state, value, nullptr);
  return field != nullptr && field->name != nullptr && field->value != nullptr
             ? nullptr
             : "out of memory";
}

void page_free_refusal(void)
{
  free(refusal);
  refusal = nullptr;
}
