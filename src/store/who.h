// The origin of a request or a command, as far as the environment names it.

#ifndef STORE_WHO_H
#define STORE_WHO_H

#include <stddef.h>

constexpr size_t WHO_USER_SIZE = 51;
constexpr size_t WHO_ADDRESS_SIZE = 41;
constexpr size_t WHO_TEXT_SIZE = WHO_USER_SIZE + WHO_ADDRESS_SIZE + 5;

// Words without blanks: other characters than those of names become "_", and an
// unknown value is "-".
struct store_who {
  char user[WHO_USER_SIZE];       // REMOTE_USER
  char address[WHO_ADDRESS_SIZE]; // REMOTE_ADDR
};

void store_ask_who(store_who *who);

// "admin at 192.168.1.7", or the part that is known; "somebody" if none is.
void store_write_who(const store_who *who, char *text, size_t size);

// A line of the system log: "Port: 80 -> 81 (admin at 192.168.1.7)".  Owned by
// the caller (free), NULL when memory ran out.
char *store_line_with_who(const char *line);

// Whether a request is being served, rather than a command run on the device.
bool store_serves_request(void);

#endif
