// The checks of network addresses and services.  Nothing is asked of the
// network: a name is judged by its form alone.

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>

#include "orv.h"
#include "orv_check.h"
#include "orv_check_fault.h"
#include "orv_guard.h"

constexpr unsigned ALLOW_IPV4 = 1;
constexpr unsigned ALLOW_IPV6 = 2;
constexpr unsigned ALLOW_HOSTNAME = 4;
constexpr unsigned ALLOW_BITS = 8;    // "/number of bits" may follow
constexpr unsigned REQUIRE_BITS = 16; // it must
constexpr unsigned ALLOW_ADDRESS = ALLOW_IPV4 | ALLOW_IPV6 | ALLOW_HOSTNAME;

constexpr int IPV4_BITS = 32;
constexpr int BITS_MAX = 128; // an IPv6 address, or what a name stands for
constexpr size_t HOSTNAME_MAX = 67; // a DNS label of 63 and a short domain
constexpr int PORT_MAX = 65535;

// What the options allow.  A word is known by its beginning; unknown words are
// ignored.
static unsigned read_address_options(const char *options)
{
  // clang-format off
  static const struct {
    const char *word;
    unsigned flag;
  } words[] = {
    {"ipv4",     ALLOW_IPV4},
    {"ipv6",     ALLOW_IPV6},
    {"hostname", ALLOW_HOSTNAME},
    {"optcidr",  ALLOW_BITS},
    {"cidr",     REQUIRE_BITS},
  };
  // clang-format on
  static const char blanks[] = " \t\n\v\f\r";

  unsigned flags = 0;
  for (const char *word = options + strspn(options, blanks); *word != '\0';
       word = check_next_word(word, blanks)) {
    for (const auto &row : words) {
      if (strncmp(word, row.word, strlen(row.word)) == 0) {
        flags |= row.flag;
      }
    }
  }
  return flags;
}

// Cuts the number of bits off `address`, where the options ask for one.
static const char *take_bits(char *address, unsigned flags, int *bits)
{
  char *slash = strchr(address, '/');
  *bits = 0;
  if ((flags & REQUIRE_BITS) == 0 &&
      ((flags & ALLOW_BITS) == 0 || slash == nullptr)) {
    return nullptr;
  }
  if (slash == nullptr) {
    return "Missing CIDR label or netmask length.  "
           "Add trailing /number of bits ?";
  }
  *slash = '\0';
  char *end;
  *bits = check_to_int32(slash + 1, &end, 10);
  if (*bits < 0 || *end != '\0') {
    return "Bad format number for CIDR label or netmask length after the /";
  }
  return nullptr;
}

static bool is_host_name(const char *text)
{
  return text[0] != '-' && strlen(text) <= HOSTNAME_MAX &&
         check_first_other(text, ASCII_ALNUM ".-") == '\0';
}

// An address that is IPv4 where that is allowed has the fewest bits, even if a
// host name, too, would do.
static const char *address_fault(const char *address, unsigned flags, int bits)
{
  in6_addr binary; // large enough for either family
  const bool is_ipv4 =
      (flags & ALLOW_IPV4) != 0 && inet_pton(AF_INET, address, &binary) == 1;
  const bool is_other =
      ((flags & ALLOW_IPV6) != 0 &&
       inet_pton(AF_INET6, address, &binary) == 1) ||
      ((flags & ALLOW_HOSTNAME) != 0 && is_host_name(address));
  if (!is_ipv4 && !is_other) {
    return "Invalid address";
  }
  return bits <= (is_ipv4 ? IPV4_BITS : BITS_MAX)
             ? nullptr
             : "Invalid CIDR label or number of bits after /";
}

void chk_ipaddr(char *value, const char *options, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  const unsigned flags = read_address_options(options);
  if ((flags & ALLOW_ADDRESS) == 0) {
    check_failed(err_name, nullptr,
                 "Check options don't allow any type of address", var_label);
    return;
  }
  const owned_text address(must_strdup(value));
  if (address == nullptr) {
    check_failed(err_name, nullptr, nullptr, var_label);
    return;
  }
  int bits;
  const char *fault = take_bits(address.get(), flags, &bits);
  if (fault == nullptr) {
    fault = address_fault(address.get(), flags, bits);
  }
  check_record(fault, tpl_error, err_name, var_label);
}

void chk_ipservice(char *value, const char *, const char *tpl_error,
                   const char *err_name, const char *var_label)
{
  char *end;
  const int port = check_to_int32(value, &end, 10);
  if (*end == '\0' && port >= 0 && port <= PORT_MAX) {
    return;
  }
  if (getservbyname(value, nullptr) == nullptr) {
    check_failed(err_name, tpl_error, "Not a valid port number or service name",
                 var_label);
  }
}
