// Why a command fails: one text for the user.

#include "fault.h"

#include <errno.h>
#include <pwd.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "folder.h"

// The length of a message that a page accepts.
constexpr size_t TEXT_SIZE = 240;

static char text[TEXT_SIZE]; // "": none yet

// The first fault is the cause, and what fails behind it follows from it.  An
// answer is one line, so a name in the text must not bring a line end.
bool store_fault(const char *fmt, ...)
{
  if (text[0] != '\0') {
    return false;
  }
  va_list args;
  va_start(args, fmt);
  vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  for (char *c = text; *c != '\0'; c++) {
    if (static_cast<unsigned char>(*c) < ' ' || *c == 0x7f) {
      *c = '?';
    }
  }
  return false;
}

// A user's name helps more than a number.
static const char *user_name()
{
  static char number[24];
  const struct passwd *entry = getpwuid(geteuid());
  if (entry != nullptr) {
    return entry->pw_name;
  }
  snprintf(number, sizeof number, "number %u", geteuid());
  return number;
}

// errno is taken at once: looking up the user changes it.
bool store_fault_errno(const char *what)
{
  const int error = errno;
  return store_fault("%s: %s (folder %s, user %s)", what, strerror(error),
                     store.path, user_name());
}

const char *store_fault_text(void)
{
  return text[0] != '\0' ? text : nullptr;
}

void store_forget_fault(void)
{
  text[0] = '\0';
}
