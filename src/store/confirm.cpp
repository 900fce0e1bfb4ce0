// The form that keeps a guarded change.
//
// It has no fields; its Submit keeps the change.  The page carries the change's
// token, so that no other change is kept in its place.

#include "confirm.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "guard.h"
#include "intake.h"
#include "orv.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "script_lines.h"
#include "save.h"
#include "who.h"

constexpr size_t LINE_SIZE = ORV_LINE_MAX + 1;

// --- what is pending ---------------------------------------------------------

// Copies the value of a line NAME=VALUE of the information; "" without one.
static void take_value(const char *info, const char *name,
                       char (&value)[LINE_SIZE])
{
  const size_t length = strlen(name);
  value[0] = '\0';
  for (const char *line = info; line != nullptr;) {
    if (strncmp(line, name, length) == 0 && line[length] == '=') {
      snprintf(value, sizeof value, "%.*s",
               static_cast<int>(strcspn(line + length + 1, "\n")),
               line + length + 1);
      return;
    }
    line = strchr(line, '\n');
    line = line != nullptr ? line + 1 : nullptr;
  }
}

// Cut to the fields' sizes, since the file may hold anything.
static void take_who(const char *info, char (&text)[LINE_SIZE])
{
  store_who who = {};
  char value[LINE_SIZE];
  take_value(info, "user", value);
  snprintf(who.user, sizeof who.user, "%.50s", value[0] != '\0' ? value : "-");
  take_value(info, "address", value);
  snprintf(who.address, sizeof who.address, "%.40s",
           value[0] != '\0' ? value : "-");
  store_write_who(&who, text, sizeof text);
}

// The clock time at which the change goes back; "" while it is not known.
static void take_clock(const pending_change *pending, char (&text)[LINE_SIZE])
{
  const time_t clock = static_cast<time_t>(pending->clock);
  struct tm local;
  text[0] = '\0';
  if (pending->armed && localtime_r(&clock, &local) != nullptr) {
    strftime(text, sizeof text, "%H:%M:%S", &local);
  }
}

void confirm_sentence(char *text, size_t size)
{
  pending_change pending;
  text[0] = '\0';
  if (store.fd < 0 || !guard_read(&pending)) {
    return;
  }
  char who[LINE_SIZE];
  char clock[LINE_SIZE];
  take_who(pending.text, who);
  take_clock(&pending, clock);
  if (clock[0] == '\0') {
    snprintf(clock, sizeof clock, "%u seconds from now", pending.seconds);
  }
  snprintf(text, size,
           "A change by %.90s waits to be kept. If nobody kept it "
           "by %.40s, the old settings are back.",
           who, clock);
  free(pending.text);
}

// As many as the template has places for; more would be names that nothing
// shows.
static void read_changes(const char *info)
{
  size_t place = 0;
  for (const char *line = info; line != nullptr && place < SAVE_PAGE_LINES;) {
    if (strncmp(line, "change=", strlen("change=")) == 0) {
      char name[32];
      char text[LINE_SIZE];
      line += strlen("change=");
      snprintf(text, sizeof text, "%.200s", line);
      text[strcspn(text, "\n")] = '\0';
      snprintf(name, sizeof name, "confirm_change%zu", place);
      report_shown_line(name, text);
      place++;
    }
    line = strchr(line, '\n');
    line = line != nullptr ? line + 1 : nullptr;
  }
}

static void read_end(const pending_change *pending)
{
  char text[LINE_SIZE];
  snprintf(text, sizeof text, "%" PRId64, pending->left);
  report_value("confirm_left", pending->armed ? text : "");
  take_clock(pending, text);
  report_value("confirm_clock", text);
}

// Whether the latest save put back a change that nobody kept.
static bool went_back()
{
  static const char kind[] = " back";
  size_t length = 0;
  const owned_text saves(store_read_file(store.fd, HISTORY_FILE, &length));
  const size_t end = saves != nullptr ? strcspn(saves.get(), "\n") : 0;
  return end >= sizeof kind - 1 &&
         strncmp(saves.get() + end - (sizeof kind - 1), kind,
                 sizeof kind - 1) == 0;
}

static bool read_nothing()
{
  report_value("confirm_token", "");
  if (store.fd >= 0 && store_fault_text() == nullptr && went_back()) {
    report_value("confirm_back", "True");
  }
  return store_fault_text() == nullptr;
}

bool confirm_read(void)
{
  pending_change pending;
  if (store.fd < 0 || !guard_read(&pending)) {
    return read_nothing();
  }
  // This page is to be submitted although it has no fields.
  report_value("always_submit", "True");
  report_value("confirm_token", pending.token);
  char who[LINE_SIZE];
  take_who(pending.text, who);
  report_value("confirm_who", who);
  read_end(&pending);
  read_changes(pending.text);
  free(pending.text);
  return true;
}

// The token of the page decides: since the page was drawn, another change may
// have replaced the one that its user has looked at.
bool confirm_write(void)
{
  const char *token = intake_get("confirm_token");
  pending_change pending;
  if (guard_read(&pending)) { // a refused page continues its countdown
    read_end(&pending);
    free(pending.text);
  }
  if (!guard_settle(token != nullptr ? token : "")) {
    return false;
  }
  report_value("u_saved_note", "The change is kept.");
  report_value("u_saved_navbar", "True"); // its link to this page is gone now
  return true;
}

// --- the bar -----------------------------------------------------------------

// The file "navbar" of the folder, the first `length` bytes of `path`; NULL
// when there is none.
static FILE *open_bar(const char *folder, int length)
{
  char *name = nullptr;
  if (asprintf(&name, "%.*s/navbar", length, folder) < 0) {
    return nullptr;
  }
  const owned_text owned(name);
  return fopen(name, "re");
}

// The file of the templates is in their language.
static FILE *find_bar(const char *path)
{
  const char *slash = strrchr(path, '/');
  FILE *bar =
      open_bar(store.templates, static_cast<int>(strlen(store.templates)));
  return bar != nullptr     ? bar
         : slash != nullptr ? open_bar(path, static_cast<int>(slash - path))
                            : open_bar(".", 1);
}

// A line for that form is its entry, shown only while a change is pending.
static bool is_confirm(const char *line)
{
  static const char key[] = CONFIRM_FORM " ";
  return strncmp(line, key, sizeof key - 1) == 0;
}

static void print_confirm(FILE *bar)
{
  static const char entry[] = CONFIRM_FORM " Keep the change?\n";
  char line[LINE_SIZE];
  bool found = false;
  while (!found && bar != nullptr && fgets(line, sizeof line, bar) != nullptr) {
    found = is_confirm(line);
  }
  fputs(found ? line : entry, stdout);
  if (bar != nullptr) {
    rewind(bar);
  }
}

// A first line "--" drops the fixed entry at the front, so it must stay the
// first.
bool navbar_print(const char *path)
{
  const bool pending =
      store_open(false) && store.fd >= 0 && guard_is_pending(nullptr);
  store_forget_fault(); // a navigation bar cannot show a fault
  const owned_stream bar(find_bar(path));
  char line[LINE_SIZE];
  const bool bare = bar != nullptr &&
                    fgets(line, sizeof line, bar.get()) != nullptr &&
                    strcmp(line, "--\n") == 0;
  if (bare) {
    fputs(line, stdout);
  }
  if (bar != nullptr) {
    rewind(bar.get());
  }
  if (pending) {
    print_confirm(bar.get());
  }
  bool is_out = bare; // the line that follows
  while (bar != nullptr && fgets(line, sizeof line, bar.get()) != nullptr) {
    if (!is_out && !is_confirm(line)) {
      fputs(line, stdout);
    }
    is_out = false;
  }
  return true;
}
