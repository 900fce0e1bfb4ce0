// The strict policy: which requests pass, and which of their fields.

#include "cgi_policy.h"

#include "fixture.h"
#include "orv_limits.h"

static bool passes(policy_request request)
{
  return policy_request_fault(&request) == nullptr;
}

static bool takes(bool with_state, const string &name, const string &value)
{
  const policy_request request = {with_state, "", "", "", "", "", ""};
  return policy_field_fault(&request, name.c_str(), value.c_str()) == nullptr;
}

// clang-format off

TEST(StrictPolicy, AcceptsAPagesStateOnlyByPostFromItsOwnHost)
{
  const std::tuple<bool, const char *, const char *, const char *> senders[] = {
    {true,  "POST", "", ""}, // a command line
    {true,  "POST", "none", "null"}, // the user's own act
    {true,  "POST", "same-origin", "http://a"}, // this header takes precedence
    {false, "GET",  "", ""},            {false, "post", "same-origin", ""},
    {false, "POST", "same-site", "http://gw"},
    {false, "POST", "cross-site", ""}, {false, "POST", "Same-Origin", ""},
  };
  for (const auto &[good, method, site, origin] : senders) {
    for (const char *host : {"", "gw"}) {
      EXPECT_EQ(good, passes({true, method, site, origin, host, "", ""})) << site;
      EXPECT_TRUE(passes({false, method, site, origin, host, "", ""}));
    }
  }
  const std::tuple<bool, const char *, const char *, const char *> origins[] = {
    {true,  "http://gw", "gw", ""},  {true,  "https://GW.Lan", "gw.lAN", "80"},
    {true,  "http://gw:8080", "gw:8080", "80"}, {true, "https://gw", "gw:443", ""},
    {true,  "http://[::1]", "[::1]:80", ""}, {true, "http://[::1]:81", "[::1]:81", ""},
    // servers that pass the host without its port, one of them with its own
    {true,  "https://gw:443", "gw", ""}, {true, "https://gw:8443", "gw", "8443"},
    {false, "https://gw:8443", "gw", ""}, {false, "http://gw:81", "gw", "80"},
    {false, "http://gw:443", "gw", "80"}, {false, "http://gw:80", "gw:81", "80"},
    {false, "https://gw", "gw:80", ""}, {false, "http://gw:81", "gw:8", "81"},
    {false, "http://gw", "gw.lan", ""}, {false, "http://gw.evil", "gw", ""},
    {false, "http://gw:80@evil", "gw", ""}, {false, "http://[::1]", "[::2]", ""},
    {false, "null", "null", ""},     {false, "ftp://gw", "gw", ""},
    {false, "gw", "gw", ""}, {false, "http://gw", "", ""}, {false, "http://", "", ""},
  };
  for (const auto &[good, origin, host, port] : origins) {
    EXPECT_EQ(good, passes({true, "POST", "", origin, host, port, ""}))
        << origin << " " << host << " " << port;
  }
}

TEST(StrictPolicy, AnswersForNamesThatNobodyElseCanPointAtTheDevice)
{
  const std::tuple<bool, const char *, std::vector<const char *>> rows[] = {
    // whether it passes, ORV_HOSTS, the header Host
    {true,  "", {"", "gw", "localhost:80", "gw.", "192.168.1.1", "10.0.0.1:8080", "[::1]",
                 "[fe80::1]:81", "[::ffff:10.0.0.1]:80", "gw.local", "a.b.LAN:80",
                 "gw.lan.", "x.localhost", "gw.internal", "gw.Home.Arpa"}},
    {false, "", {"evil.com", "evil.com.", "evil.com:80", "10.0.0.1.evil.com", "1.2.3",
                 "1.2.3.256", "10.0.0.1:80:80", "lan.evil", "notlocal.x", "x.notlan",
                 "home.arpa", "gw.local.evil", "[::1].evil", "[::1.2.3]", "[evil.com]",
                 "gw.lan..", "x::1.2.3.4]", // the next one is too long for an address
                 "a.long.name.of.somebody.else.which.goes.on.and.on.evil.com",
                 "2001:db8:0:0:0:0:0:0:1.2.3.4:80"}},
    {true,  "gw.example.com \tBox.example.net. ", {"gw.example.com", "GW.example.com.:80",
                 "box.EXAMPLE.net:8080", "gw"}},
    {false, "gw.example.com:80 .example.com", {"a.gw.example.com", "x.example.com",
                 "example.com", "gw.example.com", "w.example.com"}},
  };
  for (const auto &[good, own, hosts] : rows) {
    for (const char *host : hosts) {
      EXPECT_EQ(good, passes({false, "GET", "", "", host, "", own})) << host;
    }
  }
}

TEST(StrictPolicy, AcceptsNoFieldThatNoPageOfTheDeviceSends)
{
  const string name(ORV_LINE_MAX + 6, 'n');
  const string value(64UL * 1024, 'v');
  const std::tuple<bool, bool, string, string> rows[] = {
    // without a page's state, with it
    {false, false, "error_", ""},     {false, false, "error_u_x", ""},
    {false, false, "error_O_x", ""},  {false, false, "error_delete_x", ""},
    {false, true,  "delete_", ""},    {false, true,  "delete_u_x", ""},
    {false, true,  "delete_error_x", ""},
    // variables whose names only look similar
    {true,  true,  "u_error_x", ""},  {true,  true,  "O_delete_x_0", ""},
    {true,  true,  "Error_x", ""},    {true,  true,  "DELETE_x_0", ""},
    {true,  true,  "error", ""},      {true,  true,  "u_u_error_x", ""},
    {false, false, "=", ""},          {false, false, "o_x=\"1\"", ""},
    {true,  true,  "x", "="},         {true,  true,  name, value},
    {false, false, name + "n", ""},   {false, false, "x", value + "v"},
  };
  for (const auto &[link, page, field, text] : rows) {
    EXPECT_EQ(link, takes(false, field, text)) << field;
    EXPECT_EQ(page, takes(true, field, text)) << field;
  }
}

TEST(StrictPolicy, AcceptsOnlyHarmlessNames)
{
  const std::tuple<bool, bool, std::vector<string>> rows[] = {
    // as a form's name, as a sub-item
    {true,  true,  {"", "a.B_0-9", "_", "a.."}},
    {false, true,  {"=/b:c,d+@~", "a/.b/-c"}},
    {false, false, {".a", "-a", "..", "/etc/passwd", "a//b", "a/", "a/./b",
                    "a/..", "a/.../b", "a\xc3\xa9"}},
  };
  for (const auto &[form, subitem, values] : rows) {
    for (const string &value : values) {
      for (const char *name : {"form", "return", "continue"}) {
        EXPECT_EQ(form, takes(true, name, value)) << name << ": " << value;
      }
      EXPECT_EQ(subitem, takes(true, "subitem", value)) << value;
      EXPECT_TRUE(takes(true, "o_form", value));
    }
  }
  for (int c = 1; c < 256; c++) {
    const string value = {'a', static_cast<char>(c), 'b'};
    const bool plain = c < 128 && (isalnum(c) != 0 || strchr("._-", c));
    EXPECT_EQ(plain, takes(true, "form", value)) << c;
    EXPECT_EQ(plain || strchr("/:,+@=~", c), takes(true, "subitem", value)) << c;
  }
}
