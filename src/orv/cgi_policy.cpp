// Which requests are refused.
//
// The strict policy stands between the web and programs that trust what they
// are told: a template's name becomes a path, a sub-item a word of a command
// line, a value one line of a script's input, and a post whatever the user at
// the browser may do.  So names hold harmless characters alone, a value never
// makes a second line, and only pages of the device's own may post.
//
// Owns whether the strict policy holds, which is decided once, when the request
// is judged.  A request that cannot be judged for lack of memory is refused.
// Nothing here writes a page, or knows who the user is: that is the web
// server's business.

#include "cgi_policy.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "cgi.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"

#ifndef ORV_POLICY_STRICT
#define ORV_POLICY_STRICT 0
#endif

static bool strict; // set by cgi_policy_admits

// --- fields ------------------------------------------------------------------

#define FORM_CHARACTERS                                                        \
  "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-"
#define SUBITEM_CHARACTERS FORM_CHARACTERS "/:,+@=~"

// Whether a component of the path is empty or a way up or around in folders.
static bool has_bad_component(const char *path)
{
  for (;;) {
    path += strspn(path, ".");
    if (*path == '/' || *path == '\0') {
      return true;
    }
    path += strcspn(path, "/");
    if (*path == '\0') {
      return false;
    }
    path++;
  }
}

// Whether the value can be a file's name and a script's argument.  A leading
// "." would hide a file, a leading "-" make an argument an option; an empty
// value is neither.
static bool is_harmless_name(const char *value, const char *characters)
{
  if (value[0] == '\0') {
    return true;
  }
  return value[strspn(value, characters)] == '\0' && value[0] != '.' &&
         value[0] != '-' && !has_bad_component(value);
}

static bool has_control_character(const char *name)
{
  for (; *name != '\0'; name++) {
    const unsigned char c = static_cast<unsigned char>(*name);
    if (c < ' ' || c == 0x7f) {
      return true;
    }
  }
  return false;
}

const char *policy_field_fault(const char *name, const char *value)
{
  // clang-format off
  static const struct {
    const char *name;
    const char *characters;
    const char *fault;
  } names[] = {
    {"form",     FORM_CHARACTERS,    "\"form\" is no name of a form"},
    {"return",   FORM_CHARACTERS,    "\"return\" is no name of a form"},
    {"continue", FORM_CHARACTERS,    "\"continue\" is no name of a form"},
    {"subitem",  SUBITEM_CHARACTERS, "\"subitem\" is no name of a sub-item"},
  };
  // clang-format on
  for (const auto &row : names) {
    if (strcmp(name, row.name) == 0 &&
        !is_harmless_name(value, row.characters)) {
      return row.fault;
    }
  }
  if (has_control_character(name)) {
    return "a field's name holds a control character";
  }
  if (strchr(value, '\n') != nullptr) {
    return "a field's value holds a line end";
  }
  return nullptr;
}

// --- where a request comes from ----------------------------------------------

struct authority {
  const char *host;
  size_t length;    // of the host
  const char *port; // "" when it has none
};

// The colons of an address in brackets are no port's.
static authority split_authority(const char *text)
{
  const char *colon = strrchr(text, ':');
  if (colon == nullptr || strchr(colon, ']') != nullptr) {
    const size_t length = strlen(text);
    return {text, length, text + length};
  }
  return {text, static_cast<size_t>(colon - text), colon + 1};
}

// Whether `from`, of a scheme with that port, names the host asked.  Some
// servers take the port off the header Host.
static bool is_same_authority(const authority &from, const authority &asked,
                              const char *scheme_port)
{
  if (from.length == 0 || from.length != asked.length ||
      strncasecmp(from.host, asked.host, from.length) != 0 ||
      from.port[strspn(from.port, "0123456789")] != '\0') {
    return false;
  }
  const char *port = from.port[0] != '\0' ? from.port : scheme_port;
  return asked.port[0] == '\0' || strcmp(port, asked.port) == 0;
}

static bool is_own_origin(const char *origin, const char *host)
{
  // clang-format off
  static const struct {
    const char *prefix;
    const char *port;
  } schemes[] = {
    {"http://",  "80"},
    {"https://", "443"},
  };
  // clang-format on
  for (const auto &scheme : schemes) {
    const size_t length = strlen(scheme.prefix);
    if (host != nullptr && strncasecmp(origin, scheme.prefix, length) == 0) {
      return is_same_authority(split_authority(origin + length),
                               split_authority(host), scheme.port);
    }
  }
  return false;
}

static bool is_said(const char *header)
{
  return header != nullptr && header[0] != '\0';
}

// Browsers say Sec-Fetch-Site to servers that they reach by HTTPS or on the
// same machine, and Origin to any server they post to.  A request without
// either is an old browser's or a command line's.
static bool is_from_own_page(const policy_request *request)
{
  if (is_said(request->fetch_site)) {
    return strcmp(request->fetch_site, "same-origin") == 0 ||
           strcmp(request->fetch_site, "none") == 0;
  }
  return !is_said(request->origin) ||
         is_own_origin(request->origin, request->host);
}

const char *policy_request_fault(const policy_request *request)
{
  if (!request->has_page_state) {
    return nullptr;
  }
  if (strcmp(request->method, "POST") != 0) {
    return "a page's state came by another method than POST";
  }
  return is_from_own_page(request) ? nullptr
                                   : "a page's state came from another site";
}

// --- the request at hand -----------------------------------------------------

// A browser posts a lone CR, which a page may have carried, as CR LF.
static void join_line_ends(char *value)
{
  char *out = value;
  char last = '\0';
  for (const char *in = value; *in != '\0'; in++) {
    if (*in != '\n' || last != '\r') {
      *out = *in;
      out++;
    }
    last = *in;
  }
  *out = '\0';
}

char *cgi_policy_value(const char *name)
{
  int length = 0;
  cgiFormStringSpaceNeeded(name, &length);
  char *value = static_cast<char *>(must_malloc(static_cast<size_t>(length)));
  if (value != nullptr) {
    cgiFormString(name, value, length);
    if (strict) {
      join_line_ends(value);
    }
  }
  return value;
}

// The fault of the first field that has one; whether a page's state is among
// the fields is stored.
static const char *find_field_fault(char **names, bool *has_page_state)
{
  const char *fault = nullptr;
  for (; *names != nullptr && fault == nullptr; names++) {
    const owned_text value(cgi_policy_value(*names));
    if (value == nullptr) {
      return "out of memory";
    }
    fault = policy_field_fault(*names, value.get());
    *has_page_state |= strcmp(*names, "cgi_vars_loaded") == 0;
  }
  return fault;
}

static const char *find_fault()
{
  policy_request request = {false, cgiRequestMethod,
                            getenv("HTTP_SEC_FETCH_SITE"),
                            getenv("HTTP_ORIGIN"), getenv("HTTP_HOST")};
  char **names = nullptr;
  if (cgiFormEntries(&names) != cgiFormSuccess) {
    return "out of memory";
  }
  const char *fault = find_field_fault(names, &request.has_page_state);
  cgiStringArrayFree(names);
  return fault != nullptr ? fault : policy_request_fault(&request);
}

static bool is_raised()
{
  const char *policy = getenv("ORV_POLICY");
  return policy != nullptr && strcmp(policy, "strict") == 0;
}

bool cgi_policy_admits(void)
{
  strict = ORV_POLICY_STRICT != 0 || is_raised();
  if (!strict) {
    return true;
  }
  // Web servers make it of a header "Proxy", and programs that a script calls
  // would send their own requests there.
  unsetenv("HTTP_PROXY");
  const char *fault = find_fault();
  if (fault != nullptr) {
    orv_error("Request refused: %s", fault);
  }
  return fault == nullptr;
}
