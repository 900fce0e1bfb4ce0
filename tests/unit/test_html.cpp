// What calls write, the header of a response, and a proof by trying that no
// text ends a comment early.

#include "html.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "cgi.h"

using std::string;

// What `call` writes.
template <typename Call> static string written(Call call)
{
  char *text = nullptr;
  size_t size = 0;
  cgiOut = open_memstream(&text, &size);
  call();
  fclose(cgiOut);
  cgiOut = stdout;
  string result(text, size);
  free(text);
  return result;
}

TEST(Text, IsEscapedForItsPlace)
{
  // clang-format off
  const struct {
    const char *text;
    const char *as_text;
    const char *as_value;
    const char *why;
  } rows[] = {
    {"",         "",              "",                  "empty"},
    {"a'\\/",    "a'\\/",         "a'\\/",             "nothing to escape"},
    {"<&>",      "&lt;&amp;&gt;", "&lt;&amp;&gt;",     "side by side"},
    {"a<b",      "a&lt;b",        "a&lt;b",            "inside"},
    {"&lt;",     "&amp;lt;",      "&amp;lt;",          "a reference is text"},
    {"\"",       "\"",            "&quot;",            "quote"},
    {"\tb\rc\n", "\tb\rc\n",      "&#9;b&#13;c&#10;",  "line ends"},
    {"\xff\x01", "\xff\x01",      "\xff\x01",          "as it came"},
  };
  // clang-format on
  for (const auto &row : rows) {
    EXPECT_EQ(row.as_text, written([&] { html_escape(row.text); })) << row.why;
    EXPECT_EQ("<a href=\"" + string(row.as_value) + "\">",
              written([&] { html_a_begin(row.text, nullptr, nullptr); }))
        << row.why;
  }
  EXPECT_EQ("a&lt;", written([] { html_escape_data("a<b", 2); }));
  EXPECT_EQ("", written([] { html_escape(nullptr); }));
}

TEST(Comment, CannotBeEndedByItsText)
{
  const char letters[] = "-!><"; // and the end, for the shorter texts
  for (int word = 0; word < 5 * 5 * 5 * 5 * 5; word++) {
    string text;
    for (int place = 1; place < 5 * 5 * 5 * 5 * 5; place *= 5) {
      text += letters[word / place % 5];
    }
    const string comment = written([&] { html_comment("%s", text.c_str()); });
    EXPECT_EQ(0U, comment.find("<!-- ")) << text;
    EXPECT_EQ(comment.size() - 4, comment.find(" -->")) << text;
    EXPECT_EQ(comment.size() - 3, comment.find("--", 4)) << text;
  }
  for (const size_t length : {510U, 511U, 512U, 100000U}) {
    const string text(length, 'x');
    EXPECT_EQ("<!-- 7" + text + " -->",
              written([&] { html_comment("%d%s", 7, text.c_str()); }));
  }
}

static char A[] = "A&";
static char B[] = "b\"";
static html_form_list_opt last = {A, B, 0, 1, nullptr};
static html_form_list_opt second_group = {A, nullptr, 1, 0, &last};
static html_form_list_opt first_group = {B, nullptr, 1, 0, &second_group};
static html_form_list_opt first = {B, A, 0, 0, &first_group};
static const html_navbar_entry links[] = {{A, "?a&b"}, {B, nullptr}, {}};
static html_attribute disabled = {"disabled", "disabled", nullptr};
static html_attribute absent = {"size", nullptr, &disabled};

TEST(Element, HasTheAttributesThatAreGiven)
{
  cgiScriptName = "/orv";
  // clang-format off
  const struct {
    void (*call)();
    const char *text;
  } rows[] = {
    {[] { html_td_begin("c", &absent); html_td_end(); },
     R"(<td class="c" disabled="disabled"></td>)"},
    {[] { html_navbar_simple(nullptr, links, nullptr); },
     "<nav class=\"navbar\" aria-label=\"Navigation\"><ul>\n"
     "<li><a href=\"?a&amp;b\">A&amp;</a></li>\n"
     "<li><span>b\"</span></li>\n</ul>\n</nav>\n"},
    {[] { html_form_begin(nullptr, nullptr, &disabled); },
     "<form action=\"/orv\" method=\"post\" disabled=\"disabled\">\n"},
    {[] { html_form_text_input("n", nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr); },
     R"(<input type="text" name="n">)"},
    {[] { html_form_text_input("n", "", "i", "c", "t", "9", &disabled); },
     R"(<input type="text" name="n" value="" id="i" class="c" title="t" )"
     R"(maxlength="9" disabled="disabled">)"},
    {[] { html_form_checkbox("n", "v", 0, nullptr, nullptr, "c", nullptr);
          html_form_checkbox("n", "v", 2, "i", nullptr, nullptr, nullptr); },
     R"(<input type="checkbox" name="n" value="v" class="c">)"
     R"(<input type="checkbox" name="n" value="v" checked="" id="i">)"},
    {[] { html_form_list("n", 1, "i", &first, "c", nullptr); },
     "<select name=\"n\" id=\"i\" class=\"c\">\n"
     "<option value=\"A&amp;\">b\"</option>\n"
     "<optgroup label=\"b&quot;\">\n</optgroup>\n"
     "<optgroup label=\"A&amp;\">\n"
     "<option value=\"b&quot;\" selected=\"\">A&amp;</option>\n"
     "</optgroup>\n</select>"},
    {[] { html_script_begin(nullptr, nullptr, nullptr); fputs("f();", cgiOut);
          html_script_end(); html_script_include(nullptr, nullptr, "/a.js"); },
     "<script>f();</script>\n<script src=\"/a.js\"></script>\n"},
    {[] { html_form_list("n", 2, nullptr, nullptr, nullptr, nullptr); },
     "<select name=\"n\" size=\"2\">\n</select>"},
  };
  // clang-format on
  for (const auto &row : rows) {
    EXPECT_EQ(row.text, written(row.call));
  }
}

static const char HEAD[] =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
    "<meta name=\"viewport\" content=\"width=device-width, "
    "initial-scale=1\">\n<title>A&amp;</title>\n"
    "<meta name=\"generator\" content=\"b&quot;\">\n"
    "<meta name=\"author\" content=\"W\">\n";

// What stands in front of the head, which is written twice, as after a crash.
static string header_lines(int status, const char *policy)
{
  const string page = written([&] {
    html_content_security_policy(policy);
    html_begin(static_cast<html_http_status>(status), A, B, "W");
    html_begin(html_http_status_ok, A, B, "W");
  });
  const size_t end = page.find(string("\r\n\r\n") + HEAD + HEAD);
  return end < page.size() ? page.substr(0, end + 2) : page;
}

TEST(Response, BeginsWithTheHeaderOfItsStatusOnce)
{
  const char *const texts[] = {"200 OK", "401 Unauthorized", "403 Forbidden",
                               "404 Not Found", "500 Internal Server Error"};
  for (int i = 0; i < 5; i++) {
    const string expected =
        "Status: " + string(texts[i]) +
        "\r\nContent-Type: text/html; charset=utf-8\r\n"
        "Cache-Control: private, no-cache\r\n"
        "X-Content-Type-Options: nosniff\r\nReferrer-Policy: same-origin\r\n"
        "X-Frame-Options: SAMEORIGIN\r\n";
    // A process has one response.
    const auto check = [&] {
      exit(header_lines(i, nullptr) == expected ? 0 : 1);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "") << texts[i];
  }
  EXPECT_NE(string::npos,
            header_lines(0, "base-uri x")
                .find("\r\nContent-Security-Policy: base-uri x\r\n"));
}
