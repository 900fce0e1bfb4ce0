// Which values are secrets.  The name alone decides, since nothing else of a
// variable is known everywhere: in a request, on a page, in a script and in a
// template.  Owns nothing and cannot fail.

#include "orv_secret.h"

#include <string.h>
#include <strings.h>

#include "orv_parser.h"

// The short words are common ends of other words (spin), so they
// count only behind an underscore.
static const char *const endings[] = {
    "password", "passwd", "passphrase", "_secret", "_pin", "_psk", "_token"};

bool orv_is_secret_name(const char *name)
{
  size_t length = strlen(name);
  while (length > 0 && name[length - 1] >= '0' && name[length - 1] <= '9') {
    length--;
  }
  for (const char *ending : endings) {
    const size_t size = strlen(ending);
    if (length >= size &&
        strncasecmp(name + length - size, ending, size) == 0) {
      return true;
    }
  }
  return false;
}

bool orv_is_secret(const pt_body_item *itm)
{
  return (itm->type == PT_TEXT_FIELD || itm->type == PT_TEXT_FIXED) &&
         orv_is_secret_name(itm->name);
}
