// Entries of menus: links that carry a form and a sub-item.  An address that is
// too long ends where there is no more room for a character or its code.

#include "cgi_menu.h"

#include <stdio.h>
#include <string.h>

#include "cgi.h"
#include "cgi_output.h"
#include "html.h"

constexpr size_t CODE_LENGTH = 3; // a character in an address, as "%25"

struct address {
  char text[CGI_HREF_SIZE]; // zeros behind its end
  size_t length;
};

// Adds `part` with a code for each of its `special` characters.  Where there is
// no more room, the address ends.
static void add_part(address *to, const char *part, const char *special)
{
  for (; *part != '\0'; part++) {
    const size_t length = strchr(special, *part) != nullptr ? CODE_LENGTH : 1;
    char *at = to->text + to->length;
    to->length += length;
    if (to->length >= sizeof to->text) {
      to->length = sizeof to->text;
      return;
    }
    *at = *part;
    if (length > 1) {
      snprintf(at, CODE_LENGTH + 1, "%%%02hhX",
               static_cast<unsigned char>(*part));
    }
  }
}

// Adds a name, with codes for what a request would not read as a part of it.
static void add_name_part(address *to, const char *name)
{
  add_part(to, name, "&#%+");
}

void cgi_menu_entry(char *target, const char *form, const char *item_class,
                    const char *link_class, const char *text)
{
  char *slash = strchr(target, '/');
  const char *subitem = form != nullptr ? target : nullptr;
  if (slash != nullptr) {
    *slash = '\0';
    subitem = slash + 1;
  }
  address link = {};
  add_part(&link, cgiScriptName, "");
  add_part(&link, "?form=", "");
  add_name_part(&link, slash != nullptr || form == nullptr ? target : form);
  if (subitem != nullptr) {
    add_part(&link, "&subitem=", "");
    add_name_part(&link, subitem);
  }
  if (slash != nullptr) {
    *slash = '/';
  }
  html_li_begin(item_class, nullptr);
  html_a_begin(link.text, link_class, nullptr);
  html_escape(text);
  html_a_end();
  html_li_end();
}
