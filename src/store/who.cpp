// The origin of a request or a command: its user and address.

#include "who.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// The words go into lines of the log and of the history, where a blank or a
// line end would begin another word or entry.
static void take_word(const char *variable, const char *allowed, char *word,
                      size_t size)
{
  const char *value = getenv(variable);
  snprintf(word, size, "%s",
           value != nullptr && value[0] != '\0' ? value : "-");
  for (char *c = word; *c != '\0'; c++) {
    const bool plain = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z') ||
                       (*c >= '0' && *c <= '9') ||
                       strchr(allowed, *c) != nullptr;
    if (!plain) {
      *c = '_';
    }
  }
}

void store_ask_who(store_who *who)
{
  take_word("REMOTE_USER", "_.@-", who->user, sizeof who->user);
  take_word("REMOTE_ADDR", ".:-", who->address, sizeof who->address);
}

void store_write_who(const store_who *who, char *text, size_t size)
{
  const bool named = strcmp(who->user, "-") != 0;
  const bool placed = strcmp(who->address, "-") != 0;
  snprintf(text, size, "%s%s%s", named ? who->user : "somebody",
           placed ? " at " : "", placed ? who->address : "");
}

char *store_line_with_who(const char *line)
{
  store_who who;
  char text[WHO_TEXT_SIZE];
  char *whole = nullptr;
  store_ask_who(&who);
  store_write_who(&who, text, sizeof text);
  return asprintf(&whole, "%s (%s)", line, text) >= 0 ? whole : nullptr;
}

// A web server sets both (RFC 3875); either is enough, so that a command must
// be free of both.
bool store_serves_request(void)
{
  return getenv("REQUEST_METHOD") != nullptr ||
         getenv("GATEWAY_INTERFACE") != nullptr;
}
