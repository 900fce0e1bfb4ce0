// The strict policy as rows of a request, or a field of it, and whether it
// passes.

#include "cgi_policy.h"

#include <cctype>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

TEST(StrictPolicy, LetsAPagesStateInByPostFromItsOwnHostOnly)
{
  const char *const none = nullptr;
  // clang-format off
  const struct {
    bool passes;
    const char *method;
    const char *fetch_site;
    const char *origin;
    const char *host;
    const char *why;
  } rows[] = {
    {true,  "POST", none, none,                "gw",      "a command line"},
    {true,  "POST", "",   "",                  none,      "empty is not said"},
    {false, "GET",  none, none,                "gw",      "a link"},
    {false, "post", "same-origin", none,       "gw",      "methods have case"},
    {true,  "POST", "same-origin", "http://a", "gw",      "it is asked first"},
    {true,  "POST", "none", "null",            none,      "the user's own act"},
    {false, "POST", "same-site", "http://gw",  "gw",      "a sister's page"},
    {false, "POST", "cross-site", none,        "gw",      "a stranger's page"},
    {false, "POST", "Same-Origin", none,       "gw",      "words have case"},
    {true,  "POST", none, "http://gw",         "gw",      "no port at all"},
    {true,  "POST", "",   "https://GW.Lan",    "gw.lAN",  "letter case"},
    {true,  "POST", none, "http://gw:8080",    "gw:8080", "the same port"},
    {true,  "POST", none, "https://gw:8443",   "gw",      "Host without it"},
    {true,  "POST", none, "https://gw",        "gw:443",  "a default port"},
    {true,  "POST", none, "http://[::1]:81",   "[::1]:81", "an IPv6 address"},
    {true,  "POST", none, "http://[::1]",      "[::1]:80", "its default port"},
    {false, "POST", none, "https://gw",        "gw:80",   "another default"},
    {false, "POST", none, "http://gw:81",      "gw:8",    "another port"},
    {false, "POST", none, "http://gw",         "gw.lan",  "a longer host"},
    {false, "POST", none, "http://gw.evil",    "gw",      "a shorter one"},
    {false, "POST", none, "http://gw:80@evil", "gw",      "no port is a name"},
    {false, "POST", none, "http://[::1]",      "[::2]",   "another address"},
    {false, "POST", none, "null",              "null",    "hidden: foreign"},
    {false, "POST", none, "ftp://gw",          "gw",      "another scheme"},
    {false, "POST", none, "gw",                "gw",      "no scheme"},
    {false, "POST", none, "http://gw",         none,      "no host was asked"},
    {false, "POST", none, "http://",           "",        "an empty one"},
  };
  // clang-format on
  for (const auto &row : rows) {
    policy_request request = {true, row.method, row.fetch_site, row.origin,
                              row.host};
    EXPECT_EQ(row.passes, policy_request_fault(&request) == nullptr) << row.why;
    request.has_page_state = false;
    EXPECT_EQ(nullptr, policy_request_fault(&request)) << row.why;
  }
}

TEST(StrictPolicy, LetsOnlyHarmlessNamesIn)
{
  // clang-format off
  const struct {
    const char *value;
    bool form;    // whether it passes as a form's name
    bool subitem; // ... as a sub-item
    const char *why;
  } rows[] = {
    {"",             true,  true,  "nothing is named"},
    {"a.B_0-9",      true,  true,  "every kind of character"},
    {"_",            true,  true,  "a single one"},
    {"a..",          true,  true,  "dots behind a letter"},
    {"=/b:c,d+@~",   false, true,  "what only a sub-item may hold"},
    {"a/.b/-c",      false, true,  "components begin as they like"},
    {".a",           false, false, "a hidden file"},
    {"-a",           false, false, "an option"},
    {"..",           false, false, "the folder above"},
    {"/etc/passwd",  false, false, "an empty component, at the start"},
    {"a//b",         false, false, "in the middle"},
    {"a/",           false, false, "at the end"},
    {"a/./b",        false, false, "a component of one dot"},
    {"a/..",         false, false, "of two"},
    {"a/.../b",      false, false, "of three"},
    {"a\xc3\xa9",    false, false, "beyond ASCII"},
  };
  // clang-format on
  for (const auto &row : rows) {
    for (const char *name : {"form", "return", "continue"}) {
      EXPECT_EQ(row.form, policy_field_fault(name, row.value) == nullptr)
          << name << ": " << row.why;
    }
    EXPECT_EQ(row.subitem, policy_field_fault("subitem", row.value) == nullptr)
        << row.why;
    EXPECT_EQ(nullptr, policy_field_fault("o_form", row.value)) << row.why;
  }
  for (int c = 1; c < 256; c++) {
    const char text[] = {'a', static_cast<char>(c), 'b', '\0'};
    const bool plain = c < 128 && (isalnum(c) != 0 || strchr("._-", c));
    EXPECT_EQ(plain, policy_field_fault("form", text) == nullptr) << c;
    EXPECT_EQ(plain || strchr("/:,+@=~", c),
              policy_field_fault("subitem", text) == nullptr)
        << c;
  }
}
