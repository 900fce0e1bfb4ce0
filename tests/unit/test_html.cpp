// What calls write, and a proof by trying that no text ends a comment early.

#include "html.h"

#include "fixture.h"

// What `call` writes.
template <typename Call> static string written(Call call)
{
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

// clang-format off

TEST(Text, IsEscapedForItsPlace)
{
  const string rows[][3] = {
    {"", "", ""}, {"a'\\/", "a'\\/", "a'\\/"}, {"a<b", "a&lt;b", "a&lt;b"},
    {"<&>", "&lt;&amp;&gt;", "&lt;&amp;&gt;"}, {"\"", "\"", "&quot;"},
    {"&lt;", "&amp;lt;", "&amp;lt;"}, {"\xff\x01", "\xff\x01", "\xff\x01"},
    {"\tb\rc\n", "\tb\rc\n", "&#9;b&#13;c&#10;"},
  };
  for (const string (&row)[3] : rows) {
    EXPECT_EQ(row[1], written([&] { html_escape(row[0].c_str()); }));
    EXPECT_EQ("<a href=\"" + row[2] + "\">", written([&] {
      html_a_begin(row[0].c_str(), nullptr, nullptr);
    }));
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

static char A[] = "A&", B[] = "b\"";
static html_form_list_opt last = {A, B, 0, 1, nullptr};
static html_form_list_opt second_group = {A, nullptr, 1, 0, &last};
static html_form_list_opt first_group = {B, nullptr, 1, 0, &second_group};
static html_form_list_opt first = {B, A, 0, 0, &first_group};
static html_attribute disabled = {"disabled", "disabled", nullptr};
static html_attribute absent = {"size", nullptr, &disabled};

// Here stands what no page has at present.
TEST(Element, HasTheAttributesThatAreGiven)
{
  const std::pair<void (*)(), const char *> rows[] = {
    {[] { html_td_begin("c", &absent); html_td_end(); },
     R"(<td class="c" disabled="disabled"></td>)"},
    {[] { html_form_text_input("n", "", "i", "c", "t", "9", &disabled); },
     R"(<input type="text" name="n" value="" id="i" class="c" title="t" )"
     R"(maxlength="9" disabled="disabled">)"},
    {[] { html_form_list("n", 1, "i", &first, "c", nullptr); },
     "<select name=\"n\" id=\"i\" class=\"c\">\n"
     "<option value=\"A&amp;\">b\"</option>\n"
     "<optgroup label=\"b&quot;\">\n</optgroup>\n"
     "<optgroup label=\"A&amp;\">\n"
     "<option value=\"b&quot;\" selected=\"\">A&amp;</option>\n"
     "</optgroup>\n</select>"},
    {[] { html_form_list("n", 2, nullptr, nullptr, nullptr, nullptr); },
     "<select name=\"n\" size=\"2\">\n</select>"},
  };
  for (const auto &[call, text] : rows) {
    EXPECT_EQ(text, written(call));
  }
  const string page = written([] {
    html_begin(html_http_status_unauthorised, "t", "v", nullptr);
    html_begin(html_http_status_ok, "t", nullptr, nullptr);
  });
  EXPECT_EQ(0U, page.find("Status: 401 Unauthorized\r\nContent-Type: "));
  EXPECT_EQ(string::npos, page.find("Status", 1)) << "a response has one";
  EXPECT_EQ(string::npos, page.find("Content-Security-Policy"));
}
