// Quoting of values in shell command lines, as a table of places.

#include "orv_quote.h"

#include <gtest/gtest.h>
#include <string>

namespace
{

using std::string;

// `line` with each "@" replaced by the value as it must stand there, or
// "refused" when there is a place where it cannot stand.
string insert(const string &line, const string &value)
{
  shell_scan scan = {};
  string out;
  for (char c : line) {
    if (c != '@') {
      shell_scan_text(&scan, &c, 1);
      out += c;
      continue;
    }
    const shell_scan before = scan;
    size_t length = 0;
    if (!shell_quote(&scan, value.c_str(), nullptr, &length)) {
      return "refused";
    }
    string quoted(length, '?');
    size_t written = 0;
    scan = before;
    EXPECT_TRUE(shell_quote(&scan, value.c_str(), quoted.data(), &written));
    EXPECT_EQ(length, written) << line;
    out += quoted;
  }
  return out;
}

// clang-format off

TEST(Quote, StandsAsThePlaceRequiresOrIsRefused)
{
  const char *const cases[][3] = {
    {"x @", "az/AZ_09.:@%+,=-\xc3\xa9", "x az/AZ_09.:@%+,=-\xc3\xa9"},
    {"x @ @", "", "x  "}, {"x @.sh", "a b", "x 'a b'.sh"},
    {"x @", "it's", "x 'it'\\''s'"},
    {"x '@'", "it's \"", "x '''it'\\''s \"'''"},
    {"x \"@\"", "\\\"$`!", "x \"\"'\\\"$`!'\"\""},
    {"x @", "\x81\";'\\", "x $'\\201\";\\'\\\\'"},
    {"x \"@\"", "\x81\"", "x \"\"$'\\201\"'\"\""},
    {"x $\"@\" @", "$(", "x $\"\"'$('\"\" '$('"},
    {"x \"'@'\" '\"@\"'", "`", "x \"'\"'`'\"'\" '\"''`''\"'"},
    {"x \"\\\"@\" \\\"@", "*", "x \"\\\"\"'*'\"\" \\\"'*'"},
    {"x $((@)) $(y @)", "7", "x $((7)) $(y 7)"},
    {"x $(y @) `y @`", "PATH", "x $(y PATH) `y PATH`"},
    {"x ${y:-@} ${y#@}", "lan1", "x ${y:-lan1} ${y#lan1}"},
    {"x 'a'\"b\"@'c'@", "; ", "x 'a'\"b\"'; ''c''; '"},
    {"x '\\'@", "*", "x '\\''*'"}, {"x \\\\@", "*", "x \\\\'*'"},
    {"x @#@ $#@", "*", "x '*'#'*' $#'*'"},
    {"x <<<@ <@ >>@", "*", "x <<<'*' <'*' >>'*'"},
    {"x 2>&1 @|y >&-;z @", "*", "x 2>&1 '*'|y >&-;z '*'"},
    {"(x @; x2) | x3 @", "*", "(x '*'; x2) | x3 '*'"},
    {"[ @ ] && $y@ ${#", "*", "[ '*' ] && $y'*' ${#"},
    {"x `y @` $@ \\@", "a-b", "x `y a-b` $a-b \\a-b"},
    {"x $@'y @'", "", "x $'y '"}, {"x \\@'@", "", "x \\'"},
  };
  for (const auto &[line, value, expected] : cases) {
    EXPECT_EQ(expected, insert(line, value));
  }
  for (const char *line : {
    // quotes and substitutions, whose end only a parser finds
    "x \\@", "x \"\\@", "x $@", "x \"$@", "x $'@'", "x $'' @", "x $(y @)",
    "x \"$(y '@')\"", "x `y @`", "x \"`y @`\"", "x ${y:-@}", "x \"${y:-@}\"",
    "x <(y @) @", "x >(y @)", "x <<E @", "x <<@", "x <<<<<@", "x # @",
    "x;# @", "# @",
    // what is evaluated as a number, and file names that bash expands twice
    "x $[@]", "x \"$[@]\"", "[[ @ -eq 1 ]]", "y=([@]=1)", "x >&@", "x >& '@'",
    "x >&1@", "x >&1y @",
  }) {
    EXPECT_EQ("refused", insert(line, "a[$(id)]")) << line;
  }
  // in a number, a name is evaluated to its value
  for (const char *line : {
    "x $((@))", "x \"$((1+@))\"", "((@))", "y[@]=1", "x $(y $((@)))",
    "x $([[ @ -eq 1 ]])", "x `y ${z[@]}`", "y=([ @ ]=1)", "x ${y:@}",
    "x \"${@:@}\"",
  }) {
    EXPECT_EQ("refused", insert(line, "PATH")) << line;
  }
}

// clang-format on

} // namespace
