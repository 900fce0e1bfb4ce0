// A pending change, which goes back unless it is kept, at a terminal.
//
// Owns the token of the change that was pending before the command, for the
// life of the process: a change that somebody else has made is not reported as
// ours.

#include "pending.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "fault.h"
#include "guard.h"
#include "on_device.h"
#include "orv_guard.h"
#include "report.h"
#include "terminal.h"

static const char KEEP[] = "orvctl confirm";
constexpr size_t TIME_SIZE = 40;

static char noted[STORE_TOKEN_SIZE]; // "": none

// Reads the pending change.  A failure does not make the save fail, which is
// already stored.
static bool read_pending(pending_change *pending)
{
  const bool is_any = device_open() && guard_read(pending);
  store_forget_fault();
  return is_any;
}

void pending_note(void)
{
  pending_change pending;
  noted[0] = '\0';
  if (read_pending(&pending)) {
    snprintf(noted, sizeof noted, "%s", pending.token);
    free(pending.text);
  }
}

// The clock time for a user, or for a program.
static void write_clock(int64_t clock, char (&text)[TIME_SIZE])
{
  const time_t seconds = static_cast<time_t>(clock);
  struct tm local;
  text[0] = '\0';
  if (localtime_r(&seconds, &local) == nullptr) {
    return;
  }
  if (report_json) {
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
  } else {
    strftime(text, sizeof text, "%H:%M:%S", &local);
  }
}

// On standard error, so that scripts which read the output are not disturbed.
static void pending_line(const pending_change *pending)
{
  char clock[TIME_SIZE];
  write_clock(pending->clock, clock);
  if (pending->armed) {
    terminal_print(
        stderr,
        "orvctl: this goes back at %s, in %d seconds, unless it is kept by "
        "then: %s\n",
        clock, static_cast<int>(pending->left), KEEP);
  } else {
    terminal_print(
        stderr,
        "orvctl: this goes back %u seconds after the device uses it, unless "
        "it is kept by then: %s\n",
        pending->seconds, KEEP);
  }
}

static void pending_member(const pending_change *pending)
{
  char clock[TIME_SIZE];
  write_clock(pending->clock, clock);
  report_open("pending", '{');
  report_number("seconds", pending->seconds);
  report_truth("in_use", pending->armed);
  if (pending->armed) {
    report_number("left", pending->left);
    report_member("until", clock);
  }
  report_member("keep", KEEP);
  report_close('}');
}

// A change that was pending before the command is not this command's.  Behind
// several forms no object is open that could take a member, so it gets one of
// its own.
static void tell(bool is_object)
{
  pending_change pending;
  if (!read_pending(&pending)) {
    return;
  }
  const owned_text text(pending.text);
  if (strcmp(noted, pending.token) == 0) {
    return;
  }
  if (!report_json) {
    pending_line(&pending);
    return;
  }
  if (is_object) {
    report_open(nullptr, '{');
  }
  pending_member(&pending);
  if (is_object) {
    report_close('}');
  }
}

void pending_tell(void)
{
  tell(false);
}

void pending_tell_all(void)
{
  tell(true);
}

// --- keeping -----------------------------------------------------------------

// Calls `told` for each line that describes the change.
static void each_change(char *text, void (*told)(const char *line))
{
  static const char key[] = "change=";
  while (*text != '\0') {
    const size_t length = strcspn(text, "\n");
    const bool is_last = text[length] == '\0';
    text[length] = '\0';
    if (strncmp(text, key, strlen(key)) == 0) {
      told(text + strlen(key));
    }
    text += length + (is_last ? 0 : 1);
  }
}

static void change_line(const char *line)
{
  terminal_print(stdout, "%s\n", line);
}

static void change_member(const char *line)
{
  report_member(nullptr, line);
}

static void tell_kept(char *text)
{
  if (!report_json) {
    terminal_print(stdout, "The change is kept.\n");
    each_change(text, change_line);
    return;
  }
  report_open(nullptr, '{');
  report_member("result", "kept");
  report_open("changes", '[');
  each_change(text, change_member);
  report_close(']');
  report_close('}');
}

// Read under the lock, so that what is told as kept is what was kept.
int pending_confirm(void)
{
  pending_change pending = {};
  const bool kept = device_open()
                        ? device_lock() &&
                              (guard_read(&pending) ||
                               store_fault("No change waits to be kept.")) &&
                              guard_settle(pending.token)
                        : store_fault("No change waits to be kept.");
  const owned_text text(pending.text);
  if (!kept) {
    report_failure("confirm", store_fault_text());
    return EXIT_FAILURE;
  }
  tell_kept(text.get());
  return EXIT_SUCCESS;
}
