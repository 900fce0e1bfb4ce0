// Which requests are refused.
//
// The strict policy stands between the web and programs that trust their input:
// a template's name becomes a path, a sub-item a word of a command line, a
// value one line of a script's input, and a post can do whatever the user may
// do.  So names hold harmless characters only, a value never makes a second
// line, only the device's own pages may post, and messages come from the device
// alone.  The rules are two tables, one for the request and one for each of its
// fields; the functions that they call stand above them.
//
// Owns whether the strict policy holds, which is decided once, when the request
// is judged.  A request that cannot be judged for lack of memory is refused.
// Nothing here writes a page, or knows who the user is: that is the web
// server's business.

#include "cgi_policy.h"

#include <arpa/inet.h>
#include <initializer_list>
#include <stdlib.h>
#include <string.h>
#include <string_view>
#include <strings.h>

#include "cgi.h"
#include "orv.h"
#include "orv_error.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_vars.h"

#ifndef ORV_POLICY_STRICT
#define ORV_POLICY_STRICT 0
#endif

static bool strict; // set by cgi_policy_admits

static bool is(const char *text, const char *other)
{
  return strcmp(text, other) == 0;
}

// --- fields ------------------------------------------------------------------

// A little more than a script's line holds, with an origin's mark before it.
constexpr size_t MAX_NAME = ORV_LINE_MAX + 6;
// What the buffer of a pipe to a script holds.
constexpr size_t MAX_VALUE = 64UL * 1024;

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

static bool is_form_name(const char *value)
{
  return is_harmless_name(value, FORM_CHARACTERS);
}

static bool is_subitem_name(const char *value)
{
  return is_harmless_name(value, SUBITEM_CHARACTERS);
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

// --- hosts -------------------------------------------------------------------

struct authority {
  std::string_view host;
  const char *port; // "" when it has none
};

// The colons of an address in brackets are no port's.
static authority split_authority(const char *text)
{
  const char *colon = strrchr(text, ':');
  if (colon == nullptr || strchr(colon, ']') != nullptr) {
    return {text, ""};
  }
  return {{text, static_cast<size_t>(colon - text)}, colon + 1};
}

static bool ends_with(std::string_view text, std::string_view end)
{
  return text.length() >= end.length() &&
         strncasecmp(text.data() + text.length() - end.length(), end.data(),
                     end.length()) == 0;
}

static bool is_same(std::string_view a, std::string_view b)
{
  return a.length() == b.length() && ends_with(a, b);
}

// A name means the same with a closing dot.
static std::string_view without_dot(std::string_view name)
{
  if (ends_with(name, ".")) {
    name.remove_suffix(1);
  }
  return name;
}

// Whether the host fits one of the words, which stand between blanks.
static bool fits_one(bool (*fits)(std::string_view, std::string_view),
                     std::string_view host, const char *words)
{
  for (;;) {
    words += strspn(words, " \t");
    const size_t length = strcspn(words, " \t");
    if (length == 0) {
      return false;
    }
    if (fits(host, without_dot({words, length}))) {
      return true;
    }
    words += length;
  }
}

static bool is_address(std::string_view host)
{
  char text[sizeof "[]" + INET6_ADDRSTRLEN];
  in6_addr binary;
  if (host.length() >= sizeof text) {
    return false;
  }
  *stpncpy(text, host.data(), host.length()) = '\0';
  if (text[0] != '[' || !ends_with(host, "]")) {
    return inet_pton(AF_INET, text, &binary) == 1;
  }
  text[host.length() - 1] = '\0';
  return inet_pton(AF_INET6, text + 1, &binary) == 1;
}

// Whether the Host header names the device.  This stops DNS rebinding: anybody
// can point a domain of theirs at the device's address, and the browser then
// takes the device's pages for the same origin as the attacker's.  Nobody can
// do that to an address, to a name without a dot, or to a name in these
// domains.
static bool is_device_host(const policy_request *request)
{
  const std::string_view host =
      without_dot(split_authority(request->host).host);
  return memchr(host.data(), '.', host.length()) == nullptr ||
         is_address(host) ||
         fits_one(ends_with, host,
                  ".local .lan .localhost .internal .home.arpa") ||
         fits_one(is_same, host, request->own_hosts);
}

// --- where a request comes from ----------------------------------------------

// Some servers remove the port from the Host header: then it is the default of
// the scheme, or SERVER_PORT.
static bool is_port_asked(const char *port, const char *asked,
                          const char *scheme_port, const char *server_port)
{
  if (asked[0] != '\0') {
    return is(port, asked);
  }
  return is(port, scheme_port) || is(port, server_port);
}

static bool is_own_origin(const policy_request *request)
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
    if (strncasecmp(request->origin, scheme.prefix, length) == 0) {
      const authority from = split_authority(request->origin + length);
      const authority asked = split_authority(request->host);
      return !from.host.empty() && is_same(from.host, asked.host) &&
             is_port_asked(from.port[0] != '\0' ? from.port : scheme.port,
                           asked.port, scheme.port, request->port);
    }
  }
  return false;
}

// Browsers say Sec-Fetch-Site to servers that they reach by HTTPS or on the
// same machine, and Origin to any server they post to.  A request without
// either is an old browser's or a command line's.
static bool is_own_page(const policy_request *request)
{
  if (request->fetch_site[0] != '\0') {
    return is(request->fetch_site, "same-origin") ||
           is(request->fetch_site, "none");
  }
  return request->origin[0] == '\0' || is_own_origin(request);
}

// --- the rules ---------------------------------------------------------------
// A row each; the first that is broken is the one reported.

// clang-format off
const char *policy_request_fault(const policy_request *request)
{
  const bool acts = request->has_page_state;
  const bool posts = is(request->method, "POST");
  return
    !is_device_host(request)        ? "the host asked is not in ORV_HOSTS" :
    acts && !posts                  ? "a page's state was not posted" :
    acts && !is_own_page(request)   ? "a page's state came from another site" :
    nullptr;
}

const char *policy_field_fault(const policy_request *request, const char *name,
                               const char *value)
{
  const bool acts = request->has_page_state;
  const char *bare = name;
  orv_var **const list = orv_var_list(&bare);
  return
    is(name, "form") && !is_form_name(value)       ? "\"form\" is not a form name" :
    is(name, "return") && !is_form_name(value)     ? "\"return\" is not a form name" :
    is(name, "continue") && !is_form_name(value)   ? "\"continue\" is not a form name" :
    is(name, "subitem") && !is_subitem_name(value) ? "\"subitem\" is not a sub-item name" :
    list == &err_vars               ? "a field is a message" :
    list == &del_vars && !acts      ? "a deletion came without a page's state" :
    strchr(name, '=') != nullptr    ? "a field name holds \"=\"" :
    strlen(name) > MAX_NAME         ? "a field name is too long" :
    has_control_character(name)     ? "a field name holds a control character" :
    strlen(value) > MAX_VALUE       ? "a field value is too long" :
    strchr(value, '\n') != nullptr  ? "a field value holds a line end" :
    nullptr;
}
// clang-format on

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

// The fault of the first field that has one.
static const char *find_field_fault(const policy_request *request, char **names)
{
  const char *fault = nullptr;
  for (; *names != nullptr && fault == nullptr; names++) {
    const owned_text value(cgi_policy_value(*names));
    fault = value != nullptr ? policy_field_fault(request, *names, value.get())
                             : "out of memory";
  }
  return fault;
}

// A variable of the environment, "" when there is none; borrowed.
static const char *environment(const char *name)
{
  const char *value = getenv(name);
  return value != nullptr ? value : "";
}

static const char *find_fault()
{
  int length = 0;
  const policy_request request = {
      cgiFormStringSpaceNeeded("cgi_vars_loaded", &length) == cgiFormSuccess,
      cgiRequestMethod,
      environment("HTTP_SEC_FETCH_SITE"),
      environment("HTTP_ORIGIN"),
      environment("HTTP_HOST"),
      environment("SERVER_PORT"),
      environment("ORV_HOSTS")};
  const char *fault = policy_request_fault(&request);
  if (fault != nullptr) {
    return fault;
  }
  char **names = nullptr;
  if (cgiFormEntries(&names) != cgiFormSuccess) {
    return "out of memory";
  }
  fault = find_field_fault(&request, names);
  cgiStringArrayFree(names);
  return fault;
}

static bool is_raised()
{
  return is(environment("ORV_POLICY"), "strict");
}

bool cgi_policy_is_strict(void)
{
  return ORV_POLICY_STRICT != 0 || is_raised();
}

bool cgi_policy_admits(void)
{
  strict = cgi_policy_is_strict();
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
