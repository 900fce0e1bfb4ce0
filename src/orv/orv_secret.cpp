// Which values are secrets.  The name alone decides, since nothing else of a
// variable is known everywhere: in a request, on a page, in a script and in a
// template.  Owns nothing and cannot fail.

#include "orv_secret.h"

#include <algorithm>
#include <iterator>
#include <string.h>
#include <string_view>
#include <strings.h>

#include "orv_parser.h"

// The short words are common ends of other words (spin), so they
// count only behind an underscore.
static constexpr std::string_view endings[] = {
    "password", "passwd", "passphrase", "_secret", "_pin", "_psk", "_token"};

static bool ends_with(const char *name, size_t length, std::string_view ending)
{
  // Few names have the last letter in common with any of them.
  return length >= ending.length() &&
         (name[length - 1] | 0x20) == ending.back() &&
         strncasecmp(name + length - ending.length(), ending.data(),
                     ending.length()) == 0;
}

bool orv_is_secret_name(const char *name)
{
  size_t length = strlen(name);
  while (length > 0 && name[length - 1] >= '0' && name[length - 1] <= '9') {
    length--;
  }
  return std::any_of(
      std::begin(endings), std::end(endings),
      [&](std::string_view ending) { return ends_with(name, length, ending); });
}

bool orv_is_secret(const pt_body_item *itm)
{
  return (itm->type == PT_TEXT_FIELD || itm->type == PT_TEXT_FIXED) &&
         orv_is_secret_name(itm->name);
}
