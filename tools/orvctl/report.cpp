// The output of the commands.
//
// Owns the state of the JSON being written (whether a comma is due) and the
// output held back about forms that are stored together.  Lines for a person go
// to standard output, messages of a refusal to standard error; JSON goes to
// standard output alone, refusals included.

#include "report.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "orv.h"
#include "orv_changes.h"
#include "orv_guard.h"
#include "orv_vars.h"
#include "pending.h"
#include "terminal.h"

bool report_json;
bool report_quiet;
report_place report_at;
bool report_skipped_stay;

static bool comma_due; // a value has been written at this level

// The output about one form.
struct held_text {
  char *text; // owned
  size_t size;
  bool lasts;
  held_text *next;
};

static held_text *held;   // owned; the latest first
static FILE *held_stream; // of the latest; NULL: nothing is held back

static FILE *out()
{
  return held_stream != nullptr ? held_stream : stdout;
}

// --- JSON --------------------------------------------------------------------

// RFC 8259 wants control characters below a blank escaped.  Those up to U+009F
// are escaped for terminals: the second of their two bytes is their number.
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
    putc(',', out());
  }
  if (name != nullptr) {
    report_string(out(), name);
    putc(':', out());
  }
  comma_due = true;
}

void report_open(const char *name, char bracket)
{
  begin_value(name);
  putc(bracket, out());
  comma_due = false;
}

void report_close(char bracket)
{
  putc(bracket, out());
  comma_due = true;
}

void report_member(const char *name, const char *value)
{
  begin_value(name);
  report_string(out(), value);
}

void report_truth(const char *name, bool value)
{
  begin_value(name);
  fputs(value ? "true" : "false", out());
}

void report_number(const char *name, int64_t value)
{
  begin_value(name);
  fprintf(out(), "%" PRId64, value);
}

void report_field(const char *name, const page_field *field)
{
  if (field->kind == FIELD_BOX) {
    report_truth(name, field->value != nullptr);
  } else {
    report_member(name, page_value(field));
  }
}

// --- what has changed --------------------------------------------------------

static owned_text line_of(const orv_change *change)
{
  return owned_text(orv_change_line(change, ORV_ARROW_SHOWN, 0, 0));
}

// Without memory for the words the name still says which value has changed.
static void change_line(const orv_change *change)
{
  const owned_text line = line_of(change);
  terminal_print(out(), "%s\n", line != nullptr ? line.get() : change->name);
}

static const char *kind_word(orv_change_kind kind)
{
  switch (kind) {
  case CHANGE_ROW_DELETED:
    return "row deleted";
  case CHANGE_ROW_ADDED:
    return "row added";
  case CHANGE_CELL:
    return "cell";
  case CHANGE_VALUE:
  default:
    return "value";
  }
}

// A box is a truth value, as in the members that report_field writes.
static void change_side(const char *name, const orv_change *change,
                        const char *text)
{
  if (text == nullptr) {
    return;
  }
  if (change->box) {
    report_truth(name, strcmp(text, "on") == 0);
  } else {
    report_member(name, text);
  }
}

// With the line that a person would read, so that no program has to word it.
static void change_member(const orv_change *change)
{
  report_open(nullptr, '{');
  report_member("kind", kind_word(change->kind));
  report_member("name", change->name);
  if (change->label != nullptr) {
    report_member("label", change->label);
  }
  if (change->row > 0) {
    report_number("row", change->row);
  }
  if (change->secret) {
    report_truth("secret", true);
  }
  change_side("from", change, change->old_text);
  change_side("to", change, change->new_text);
  const owned_text line = line_of(change);
  if (line != nullptr) {
    report_member("text", line.get());
  }
  report_close('}');
}

static void each_change(void (*tell)(const orv_change *))
{
  for (const orv_change *change = page_changes(); change != nullptr;
       change = change->next) {
    tell(change);
  }
}

// --- what went wrong ---------------------------------------------------------

// A message with its place.  On standard error, so that standard output has
// nothing but results.
static void message_line(const char *about, int line, const char *text)
{
  if (report_at.file != nullptr && line > 0) {
    terminal_print(stderr, "%s: %s: line %d: %s\n", about, report_at.file, line,
                   text);
  } else {
    terminal_print(stderr, "%s: %s\n", about, text);
  }
}

// Only a file has lines: with values from the command line the name is enough.
static int line_of_error(const char *name)
{
  return report_at.file != nullptr ? report_at.line_of(name) : 0;
}

static void error_line(const char *name, const char *text)
{
  message_line(name, line_of_error(name), text);
}

// Lines get an object of their own, so that the member of a field stays a text
// whether the values came from a file or not.
static void line_member(const char *name, const char *)
{
  const int line = line_of_error(name);
  if (line > 0) {
    report_number(name, line);
  }
}

static void place_members()
{
  if (report_at.file != nullptr) {
    report_member("file", report_at.file);
    report_number("line", report_at.line);
  }
}

static void failure_line(const char *form, const char *text)
{
  fputs("orvctl: ", stderr);
  message_line(form, report_at.line, text);
}

// The oldest first: the list begins with the newest.  It has no links back, and
// few entries, so it is walked for each.
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
      const owned_text plain(orv_plain_text(text));
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
    report_truth("changed", false);
    report_member("message", text);
    place_members();
    report_close('}');
  } else {
    failure_line(form, text);
  }
}

void report_fault(const char *form, const char *format, ...)
{
  va_list args;
  va_start(args, format);
  char *text = nullptr;
  const int length = vasprintf(&text, format, args);
  va_end(args);
  const owned_text told(length >= 0 ? text : nullptr);
  report_failure(form, told != nullptr ? told.get() : "out of memory");
}

// --- results -----------------------------------------------------------------

// The words are part of the interface: scripts compare them.
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

// The result of a Submit, for both kinds of output.
struct outcome {
  const char *form;
  page_result result;
  bool dry;
  const char *message;
  report_skipped skipped;
};

static void skipped_lines(const outcome *told)
{
  const report_skipped *skipped = &told->skipped;
  if (report_skipped_stay && skipped->count > 0) {
    terminal_print(stderr, "orvctl: %s: secrets stay as they are:", told->form);
  }
  for (size_t i = 0; i < skipped->count; i++) {
    if (report_skipped_stay) {
      terminal_print(stderr, " %s%s", skipped->names[i],
                     i + 1 < skipped->count ? "," : "\n");
    } else {
      terminal_print(stderr, "orvctl: %s: skipped, not in the dump: %s\n",
                     told->form, skipped->names[i]);
    }
  }
}

static void result_lines(const outcome *told)
{
  skipped_lines(told);
  if (told->result == PAGE_REFUSED || told->result == PAGE_AGAIN) {
    failure_line(told->form, told->message);
    each_error(error_line);
    return;
  }
  terminal_print(out(), "%s: %s\n", told->form,
                 result_word(told->result, told->dry));
  if (told->result == PAGE_SAVED) {
    each_change(change_line);
    pending_tell();
  }
}

static void result_object(const outcome *told)
{
  const bool saved = told->result == PAGE_SAVED;
  report_open(nullptr, '{');
  report_member("form", told->form);
  report_member("result", result_word(told->result, told->dry));
  report_truth("changed", saved && page_has_changed());
  if (saved) {
    report_open("changes", '[');
    each_change(change_member);
    report_close(']');
    pending_tell();
  } else if (told->result != PAGE_UNCHANGED) {
    report_member("message", told->message);
    report_open("errors", '{');
    each_error(report_member);
    report_close('}');
    place_members();
    if (report_at.file != nullptr) {
      report_open("lines", '{');
      each_error(line_member);
      report_close('}');
    }
  }
  if (told->skipped.count > 0) {
    report_open("skipped", '[');
    for (size_t i = 0; i < told->skipped.count; i++) {
      report_member(nullptr, told->skipped.names[i]);
    }
    report_close(']');
  }
  report_close('}');
}

// A page that would delete rows and was not submitted again has saved nothing,
// so it counts as refused.
int report_result(const char *form, page_result result, bool dry,
                  report_skipped skipped)
{
  const bool stands = result == PAGE_SAVED || result == PAGE_UNCHANGED;
  if (report_quiet && stands) {
    return 0;
  }
  const outcome told = {form, result, dry, page_message(), skipped};
  (report_json ? result_object : result_lines)(&told);
  return stands ? 0 : 1;
}

// --- of several forms --------------------------------------------------------

// No comma is due in a new text: report_release puts those between texts, as it
// knows which of them are printed.
static bool hold_next()
{
  held_text *next = static_cast<held_text *>(must_malloc(sizeof *next));
  if (next == nullptr) {
    return false;
  }
  *next = {nullptr, 0, false, held};
  held_stream = open_memstream(&next->text, &next->size);
  if (held_stream == nullptr) {
    free(next);
    return false;
  }
  held = next;
  comma_due = false;
  return true;
}

bool report_hold(void)
{
  return hold_next();
}

// What open_memstream(3) has written is complete only once its stream is
// closed.
static void end_held()
{
  if (held_stream != nullptr) {
    fclose(held_stream);
    held_stream = nullptr;
  }
}

void report_settle(bool lasts)
{
  end_held();
  held->lasts = lasts;
  hold_next(); // without memory, output is printed at once
}

// The list in the order of the output, the latest form last.
static held_text *turn_around(held_text *list)
{
  held_text *turned = nullptr;
  while (list != nullptr) {
    held_text *next = list->next;
    list->next = turned;
    turned = list;
    list = next;
  }
  return turned;
}

// A form without output has an empty text, and gets no comma.
void report_release(bool whole)
{
  end_held();
  held_text *list = turn_around(held);
  held = nullptr;
  comma_due = false;
  while (list != nullptr) {
    held_text *next = list->next;
    if (list->size > 0 && (whole || list->lasts)) {
      if (report_json && comma_due) {
        putc(',', stdout);
      }
      fwrite(list->text, 1, list->size, stdout);
      comma_due = true;
    }
    free(list->text);
    free(list);
    list = next;
  }
}
