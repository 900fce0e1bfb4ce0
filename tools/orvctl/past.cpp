// The last saves, and how to undo them or to reset forms.
//
// A form's scripts read the older settings in a transaction that is never
// stored; what its page shows then is saved like a dump.  So no value bypasses
// a check, and computed values are computed anew.

#include "past.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "dump.h"
#include "fault.h"
#include "history.h"
#include "on_device.h"
#include "orv_guard.h"
#include "report.h"
#include "terminal.h"

constexpr size_t TIME_SIZE = 40;
constexpr size_t FORMS_MAX = 64; // of the saves that are undone at once

// --- showing -----------------------------------------------------------------

static const char *kind_text(const history_entry *entry)
{
  return strcmp(entry->kind, "back") == 0 ? "went back" : entry->kind;
}

// Of user and address one may be unknown: a terminal of the device has no
// address, a web server without a login no user.  If both are, a "-" says so.
static void print_entry(history_entry *entry, const char *when)
{
  const bool is_known = strcmp(entry->user, "-") != 0;
  const bool has_place = strcmp(entry->address, "-") != 0;
  terminal_print(stdout, "%" PRIu64 "  %s  %s%s%s  %s %s\n", entry->number,
                 when, is_known || !has_place ? entry->user : "",
                 has_place ? is_known ? " at " : "at " : "",
                 has_place ? entry->address : "",
                 strcmp(entry->form, "-") == 0 ? "device" : entry->form,
                 kind_text(entry));
  for (const char *line = history_line(&entry->lines, '='); line != nullptr;
       line = history_line(&entry->lines, '=')) {
    terminal_print(stdout, "    %s\n", line);
  }
}

static void entry_object(history_entry *entry, const char *when)
{
  report_open(nullptr, '{');
  report_number("number", static_cast<int64_t>(entry->number));
  report_member("time", when);
  report_member("user", entry->user);
  report_member("address", entry->address);
  report_member("form", entry->form);
  report_member("kind", kind_text(entry));
  report_open("changes", '[');
  for (const char *line = history_line(&entry->lines, '='); line != nullptr;
       line = history_line(&entry->lines, '=')) {
    report_member(nullptr, line);
  }
  report_close(']');
  report_close('}');
}

// The clock of the device for a person; with its offset from UTC for a program,
// which may be elsewhere.
static void tell_entry(history_entry *entry)
{
  const time_t seconds = static_cast<time_t>(entry->seconds);
  struct tm local = {};
  char when[TIME_SIZE];
  localtime_r(&seconds, &local);
  if (report_json) {
    strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S%z", &local);
    entry_object(entry, when);
  } else {
    strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);
    print_entry(entry, when);
  }
}

int past_list(void)
{
  const owned_text text(device_open() ? history_read() : nullptr);
  if (store_fault_text() != nullptr) {
    report_failure("history", store_fault_text());
    return EXIT_FAILURE;
  }
  history_entry entry;
  char *rest = text.get();
  if (report_json) {
    report_open(nullptr, '[');
  }
  while (rest != nullptr && history_next(&rest, &entry)) {
    tell_entry(&entry);
  }
  if (report_json) {
    report_close(']');
  }
  if (store_fault_text() != nullptr) {
    terminal_print(stderr, "orvctl: %s\n", store_fault_text());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

// The entries of one save follow each other, so its number is told once.
void past_each_number(void (*told)(uint64_t number))
{
  const owned_text text(device_open() ? history_read() : nullptr);
  history_entry entry;
  uint64_t before = 0;
  for (char *rest = text.get(); rest != nullptr && history_next(&rest, &entry);
       before = entry.number) {
    if (entry.number != before) {
      told(entry.number);
    }
  }
}

// --- going back --------------------------------------------------------------

// The forms to save; none: all forms of the device.
struct form_list {
  char *names[FORMS_MAX]; // borrowed
  int count;
  bool all;
};

// "-" names no form: it stands for a reset or a migration of the whole device.
static bool add_form(form_list *forms, const char *name)
{
  if (strcmp(name, "-") == 0) {
    forms->all = true;
    return true;
  }
  for (int i = 0; i < forms->count; i++) {
    if (strcmp(forms->names[i], name) == 0) {
      return true;
    }
  }
  if (forms->count == FORMS_MAX) {
    return store_fault("Too many forms have changed");
  }
  forms->names[forms->count] = const_cast<char *>(name);
  forms->count++;
  return true;
}

static bool add_entry(form_list *forms, history_entry *entry)
{
  bool added = add_form(forms, entry->form);
  for (const char *form = history_line(&entry->lines, '&');
       form != nullptr && added; form = history_line(&entry->lines, '&')) {
    added = add_form(forms, form);
  }
  return added;
}

// The forms of the saves from the newest to that of the number, which is among
// them; borrows the text.
static bool find_forms(char *text, uint64_t number, form_list *forms)
{
  history_entry entry;
  bool found = false;
  while (history_next(&text, &entry) && !(found && entry.number != number)) {
    found = entry.number == number;
    if (!add_entry(forms, &entry)) {
      return false;
    }
  }
  return store_fault_text() == nullptr;
}

// Said for every failure, because an undo that stopped half-way would leave the
// reader wondering which forms are old and which are new.
static int nothing_saved(const char *command)
{
  if (store_fault_text() != nullptr) {
    report_failure(command, store_fault_text());
  }
  fputs("orvctl: nothing was saved\n", stderr);
  return EXIT_FAILURE;
}

// Saves what the forms' pages show of the settings that are looked at.  The
// transaction of the look is over before that: what is saved now has one of its
// own.
static int save_looked(const char *command, form_list *forms, bool dry)
{
  char *text = dump_settings(forms->names, forms->all ? 0 : forms->count);
  device_drop();
  return text != nullptr ? apply_settings(text, command, dry)
                         : nothing_saved(command);
}

static int restore(uint64_t number, bool dry)
{
  static const char command[] = "restore";
  form_list forms = {};
  if (!device_look_back(number)) {
    return nothing_saved(command);
  }
  const owned_text text(history_read());
  if (text == nullptr || !find_forms(text.get(), number, &forms)) {
    device_drop();
    return nothing_saved(command);
  }
  return save_looked(command, &forms, dry);
}

static int reset(char *name, bool dry)
{
  static const char command[] = "reset";
  form_list forms = {{name}, 1, name == nullptr};
  return device_look_shipped() ? save_looked(command, &forms, dry)
                               : nothing_saved(command);
}

// The list is opened before anything can fail, so a refusal is an element of
// it, too, and a program reads one kind of value.
static void begin_list()
{
  if (report_json) {
    report_open(nullptr, '[');
  }
}

static int end_list(int status)
{
  if (report_json) {
    report_close(']');
  }
  return status;
}

int past_restore(uint64_t number, bool dry)
{
  begin_list();
  return end_list(restore(number, dry));
}

int past_reset(char *name, bool dry)
{
  begin_list();
  return end_list(reset(name, dry));
}
