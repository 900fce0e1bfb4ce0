// The strict policy: which requests, and which of their fields, pass.

#include "cgi_policy.h"

#include "fixture.h"

static bool passes(policy_request request)
{
  return policy_request_fault(&request) == nullptr;
}

// clang-format off

TEST(StrictPolicy, LetsAPagesStateInByPostFromItsOwnHostOnly)
{
  const char *const none = nullptr;
  const std::tuple<bool, const char *, const char *, const char *> senders[] = {
    {true,  "POST", none,   none},   {true,  "POST", "", ""}, // a command line
    {true,  "POST", "none", "null"}, // the user's own act
    {true,  "POST", "same-origin", "http://a"}, // it is asked first
    {false, "GET",  none,   none},   {false, "post", "same-origin", none},
    {false, "POST", "same-site", "http://gw"},
    {false, "POST", "cross-site",  none}, {false, "POST", "Same-Origin", none},
  };
  for (const auto &[good, method, site, origin] : senders) {
    for (const char *host : {none, "gw"}) {
      EXPECT_EQ(good, passes({true, method, site, origin, host})) << site;
      EXPECT_TRUE(passes({false, method, site, origin, host}));
    }
  }
  const std::tuple<bool, const char *, const char *> hosts[] = {
    {true,  "http://gw", "gw"},         {true,  "https://GW.Lan", "gw.lAN"},
    {true,  "http://gw:8080", "gw:8080"},
    {true,  "https://gw:8443", "gw"},   // a server that does not tell its port
    {true,  "https://gw", "gw:443"},    {true,  "http://[::1]", "[::1]:80"},
    {true,  "http://[::1]:81", "[::1]:81"},
    {false, "https://gw", "gw:80"},     {false, "http://gw:81", "gw:8"},
    {false, "http://gw", "gw.lan"},     {false, "http://gw.evil", "gw"},
    {false, "http://gw:80@evil", "gw"}, {false, "http://[::1]", "[::2]"},
    {false, "null", "null"},            {false, "ftp://gw", "gw"},
    {false, "gw", "gw"}, {false, "http://gw", none}, {false, "http://", ""},
  };
  for (const auto &[good, origin, host] : hosts) {
    EXPECT_EQ(good, passes({true, "POST", "", origin, host})) << origin << host;
  }
}

TEST(StrictPolicy, LetsOnlyHarmlessNamesIn)
{
  const std::tuple<bool, bool, std::vector<string>> rows[] = {
    // as a form's name, as a sub-item
    {true,  true,  {"", "a.B_0-9", "_", "a.."}},
    {false, true,  {"=/b:c,d+@~", "a/.b/-c"}},
    {false, false, {".a", "-a", "..", "/etc/passwd", "a//b", "a/", "a/./b",
                    "a/..", "a/.../b", "a\xc3\xa9"}},
  };
  const auto taken = [](const char *field, const string &value) {
    return policy_field_fault(field, value.c_str()) == nullptr;
  };
  for (const auto &[form, subitem, values] : rows) {
    for (const string &value : values) {
      for (const char *name : {"form", "return", "continue"}) {
        EXPECT_EQ(form, taken(name, value)) << name << ": " << value;
      }
      EXPECT_EQ(subitem, taken("subitem", value)) << value;
      EXPECT_TRUE(taken("o_form", value));
    }
  }
  for (int c = 1; c < 256; c++) {
    const string value = {'a', static_cast<char>(c), 'b'};
    const bool plain = c < 128 && (isalnum(c) != 0 || strchr("._-", c));
    EXPECT_EQ(plain, taken("form", value)) << c;
    EXPECT_EQ(plain || strchr("/:,+@=~", c), taken("subitem", value)) << c;
  }
}
