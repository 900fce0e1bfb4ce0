// Values of a request in script lines, as the real shell reads them.

#include "orv_quote.h"

#include <random>

#include "fixture.h"

static const char FORM[] = "f '\"$`\\;\x81";

// `line` with each "@" replaced by `value`, and each "#" by `hash`.
static string with(const string &line, const string &value,
                   const string &hash = "#")
{
  string out;
  for (const char c : line) {
    out += c == '@' ? value : c == '#' ? hash : string(1, c);
  }
  return out;
}

// The line as a template has it, with its sub-item for each "@".
static string in_template(const string &line)
{
  return with(line, "$S$", "$#$");
}

class Quote : public Scratch
{
protected:
  // The script line, or the message that the header fails with.
  string insert(const string &line, const string &value) const
  {
    const Header hdr =
        parse("title t $S$\nread_script " + in_template(line) + "\nbody\n",
              FORM, value.c_str());
    return hdr != nullptr ? hdr->read_script : message();
  }
};

// clang-format off

TEST_F(Quote, LetsTheShellHandOverExactlyTheValueWhereverItStands)
{
  const string form = dir + "/" + FORM;
  const std::pair<const char *, std::vector<string>> places[] = {
    {"p @ '@' \"@\" a@b 'a'@'b'\"@\" x=@ \\\\@ @#@ $#@ [ @ ]",
     {"@", "@", "@", "a@b", "a@b@", "x=@", "\\@", "@#@", "0@", "[", "@", "]"}},
    {"p \\\"@ '\\'@ $\"a@\" \"\\\"@\\\\\" \"'@'\" '\"@\"' a\\ @",
     {"\"@", "\\@", "a@", "\"@\\", "'@'", "\"@\"", "a @"}},
    {"y=@; (p \"$y\"; p @) && p 2>&1 @ 2>&1;p @ $F$\"$T$\"",
     {"@", "@", "@", "@", form + "t @"}},
    {"IFS= read -rd '' y <<<@; p \"$y\" '$F$' $T$", {"@\n", form, "t @"}},
  };
  std::vector<string> values;
  for (int c = 1; c < 256; c++) {
    values.emplace_back(1, static_cast<char>(c));
  }
  const string alphabets[] = {
    "'\"\\$`", "a \t\n'\"\\$`(){}[]<>|&;#*?!~^=%", "$(id)`'\n",
    "\xc3\xa9\xff\x81\xa0'\\\"$` a"};
  std::mt19937 random(20240611);
  while (values.size() < 400) {
    const string &alphabet = alphabets[random() % std::size(alphabets)];
    string value(2 + random() % 11, ' ');
    for (char &c : value) {
      c = alphabet[random() % alphabet.size()];
    }
    values.push_back(value);
  }
  string script = "p() { printf '%s\\0' \"$@\"; }\n";
  std::vector<std::pair<string, string>> expected; // of each line
  for (const string &value : values) {
    for (const auto &[place, words] : places) {
      const string line = insert(place, value);
      script += line + "\n";
      expected.emplace_back(line, "");
      for (const string &word : words) {
        expected.back().second += with(word, value) + '\0';
      }
    }
  }
  write_file("script", script);
  ASSERT_EQ(system("LC_ALL=C bash script >words 2>/dev/null"), 0);
  const string given = read_file("words");
  size_t at = 0;
  for (const auto &[line, words] : expected) {
    ASSERT_EQ(given.substr(at, words.size()), words) << line;
    at += words.size();
  }
  EXPECT_EQ(given.size(), at);
}

TEST_F(Quote, IsRefusedWhereNoneIsSafeAndLeftOutWhereNoneIsNeeded)
{
  const string message = "Cannot quote a value in script command \"";
  const char *const unsafe[] = {
    // quotes and substitutions, whose end only a parser finds
    "x \\@", "x \"\\@", "x $@", "x \"$@", "x $'a@'", "x $'' @", "x $(y @)",
    "x \"$(y '@')\"", "x `y @`", "x \"`y @`\"", "x ${y:-@}", "x \"${y:-@}\"",
    "x ${y#@}", "x <(y @) @", "x >(y @)", "x <<E @", "x <<@", "x <<<<<@",
    "x # @", "x;# @", "# @",
    // file names that bash expands twice
    "x >&@", "x >& '@'", "x >&1@", "x >&1y @"};
  const string plain = "az/AZ_09.:@%+,=-\xc3\xa9";
  for (const string line : unsafe) {
    EXPECT_EQ(insert(line, "a[$(id)]"), message + in_template(line) + '"');
    EXPECT_EQ(insert(line, plain), with(line, plain));
  }
  // in a number, a name is evaluated to its value
  const char *const numbers[] = {
    "x $[1+@]", "x \"$[1+@]\"", "x $((@))", "x \"$((1+@))\"", "((@))", "y[@]=1",
    "x $(y $((@)))", "x $([[ @ -eq 1 ]])", "[[ @ -eq 1 ]]", "x `y ${z[@]}`",
    "y=([@]=1)", "y=([ @ ]=1)", "x ${y:@}", "x \"${!@:@}\""};
  for (const string line : numbers) {
    EXPECT_EQ(insert(line, "PATH"), message + in_template(line) + '"');
    EXPECT_EQ(insert(line, "17"), with(line, "17"));
  }
  const char *const rows[][3] = {
    {"x @ '@'", "", "x  ''"}, {"x $@'y", "", "x $'y"}, {"x \\@'@", "", "x \\'"},
    // in some charsets the byte would swallow what stands behind it
    {"x @", "\x81\";'\\", "x $'\\201\";\\'\\\\'"},
    {"x \"@\"", "\x81\"", "x \"\"$'\\201\"'\"\""},
    {"x <<<@ <@ >>@", "*", "x <<<'*' <'*' >>'*'"},
    {"x $yy@ \"$yy@\"", "*", "x $yy'*' \"$yy\"'*'\"\""},
    {"x 2>&1 @|y >&-;z @", "*", "x 2>&1 '*'|y >&-;z '*'"},
  };
  for (const auto &[line, value, expected] : rows) {
    EXPECT_EQ(insert(line, value), expected);
  }
}
