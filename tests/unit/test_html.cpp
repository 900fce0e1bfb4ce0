// The output of calls, and an exhaustive test that no text ends a comment
// early.

#include "html.h"

#include "fixture.h"

// The output of `call`.
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
  const char letters[] = "-!><"; // and the NUL, for shorter texts
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

TEST(List, HasItsHeightAndItsGroups)
{
  char a[] = "A", b[] = "b";
  html_form_list_opt options[] = {
    {a, b, 0, 1, &options[1]}, {b, nullptr, 1, 0, &options[2]},
    {a, a, 0, 0, &options[3]}, {a, nullptr, 1, 0, nullptr},
  };
  for (const int rows : {1, 2}) {
    EXPECT_EQ("<select name=\"n\"" + string(rows > 1 ? " size=\"2\"" : "") +
              ">\n<option value=\"b\" selected=\"\">A</option>\n"
              "<optgroup label=\"b\">\n<option value=\"A\">A</option>\n"
              "</optgroup>\n<optgroup label=\"A\">\n</optgroup>\n</select>",
              written([&] {
                html_form_list("n", rows, nullptr, options, nullptr, nullptr);
              }));
  }
}
