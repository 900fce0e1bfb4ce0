// What the commands tell.
//
// Owns the state of the JSON being written: whether a comma is due.  Lines for
// a person go to standard output, messages of a refusal to standard error; JSON
// goes to standard output alone, refusals included.

#include "report.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "orv_guard.h"
#include "orv_vars.h"
#include "terminal.h"

bool report_json;
bool report_quiet;

static bool comma_due; // a value has been written at this level

// --- JSON --------------------------------------------------------------------

void report_string(FILE *out, const char *text)
{
  putc('"', out);
  while (*text != '\0') {
    const unsigned char c = static_cast<unsigned char>(*text);
    const size_t length = terminal_utf8_length(text);
    if (c == '"' || c == '\\') {
      fprintf(out, "\\%c", c);
    } else if (c < ' ' || c == 0x7f) {
      fprintf(out, "\\u%04x", c);
    } else if (length == 0) {
      fputs("\xef\xbf\xbd", out);
    } else if (terminal_is_control(text)) {
      fprintf(out, "\\u%04x", static_cast<unsigned char>(text[1]));
    } else {
      fwrite(text, 1, length, out);
    }
    text += length > 0 ? length : 1;
  }
  putc('"', out);
}

static void begin_value(const char *name)
{
  if (comma_due) {
    putc(',', stdout);
  }
  if (name != nullptr) {
    report_string(stdout, name);
    putc(':', stdout);
  }
  comma_due = true;
}

void report_open(const char *name, char bracket)
{
  begin_value(name);
  putc(bracket, stdout);
  comma_due = false;
}

void report_close(char bracket)
{
  putc(bracket, stdout);
  comma_due = true;
}

void report_member(const char *name, const char *value)
{
  begin_value(name);
  report_string(stdout, value);
}

// --- what has changed --------------------------------------------------------

static bool is_changed(const orv_var *var)
{
  orv_var alone = *var;
  alone.next = nullptr;
  orv_var *list = &alone;
  return orv_vars_changed(&list) != nullptr;
}

static void change_line(const page_field *field, const orv_var *var)
{
  const owned_text label(page_label(field));
  terminal_print(stdout, "%s", label != nullptr ? label.get() : var->name);
  if (field->row >= 0) {
    printf(", row %d", field->row + 1);
  }
  if (page_is_secret(var->name)) {
    printf(": changed\n");
  } else {
    terminal_print(stdout, ": %s \xe2\x86\x92 %s\n",
                   var->o_value != nullptr ? var->o_value : "", var->u_value);
  }
}

static void change_member(const page_field *, const orv_var *var)
{
  report_open(nullptr, '{');
  report_member("name", var->name);
  if (!page_is_secret(var->name)) {
    report_member("from", var->o_value != nullptr ? var->o_value : "");
    report_member("to", var->u_value);
  }
  report_close('}');
}

static void each_change(void (*tell)(const page_field *, const orv_var *))
{
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    const orv_var *var = field->item != nullptr && field->kind != FIELD_DELETE
                             ? orv_find_var(&cfg_vars, field->name, 0)
                             : nullptr;
    if (var != nullptr && is_changed(var)) {
      tell(field, var);
    }
  }
}

// --- what went wrong ---------------------------------------------------------

static void error_line(const char *name, const char *text)
{
  terminal_print(stderr, "%s: %s\n", name, text);
}

// The oldest first: the list begins with the newest.
static void each_error(void (*tell)(const char *name, const char *text))
{
  const orv_var *told = nullptr;
  while (told != err_vars) {
    const orv_var *var = err_vars;
    while (var->next != told) {
      var = var->next;
    }
    told = var;
    const char *text = orv_get_var(&err_vars, var->name, o_undefined);
    if (text != nullptr && strcasecmp(var->name, "msg") != 0) {
      const owned_text plain(page_plain_text(text));
      tell(var->name, plain != nullptr ? plain.get() : text);
    }
  }
}

void report_failure(const char *form, const char *text)
{
  if (report_json) {
    report_open(nullptr, '{');
    report_member("form", form);
    report_member("result", "failed");
    report_member("message", text);
    report_close('}');
  } else {
    terminal_print(stderr, "orvctl: %s: %s\n", form, text);
  }
}

// --- results -----------------------------------------------------------------

static const char *result_word(page_result result, bool dry)
{
  switch (result) {
  case PAGE_SAVED:
    return dry ? "would be saved" : "saved";
  case PAGE_UNCHANGED:
    return "unchanged";
  case PAGE_AGAIN:
  case PAGE_REFUSED:
  default:
    return "refused";
  }
}

static void result_lines(const char *form, page_result result, bool dry,
                         const char *message)
{
  if (result == PAGE_REFUSED || result == PAGE_AGAIN) {
    terminal_print(stderr, "orvctl: %s: %s\n", form, message);
    each_error(error_line);
    return;
  }
  terminal_print(stdout, "%s: %s\n", form, result_word(result, dry));
  if (result == PAGE_SAVED) {
    each_change(change_line);
  }
}

static void result_object(const char *form, page_result result, bool dry,
                          const char *message)
{
  report_open(nullptr, '{');
  report_member("form", form);
  report_member("result", result_word(result, dry));
  if (result == PAGE_SAVED) {
    report_open("changes", '[');
    each_change(change_member);
    report_close(']');
  } else if (result != PAGE_UNCHANGED) {
    report_member("message", message);
    report_open("errors", '{');
    each_error(report_member);
    report_close('}');
  }
  report_close('}');
}

int report_result(const char *form, page_result result, bool dry)
{
  const bool stands = result == PAGE_SAVED || result == PAGE_UNCHANGED;
  if (report_quiet && stands) {
    return 0;
  }
  (report_json ? result_object : result_lines)(form, result, dry,
                                               page_message());
  return stands ? 0 : 1;
}
