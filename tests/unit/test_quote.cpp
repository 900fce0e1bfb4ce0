// Values of a request in script lines, as the real shell reads them.

#include <random>

#include "form_fixture.h"

static const char FORM[] = "f '\"$`\\;\x81";

// `line` with each "@" replaced by `value`, and each "#" by `hash`.
static string with(const string &line, const string &value,
                   const char *hash = "#")
{
  string out;
  for (const char c : line) {
    out += c == '@' ? value : c == '#' ? hash : string(1, c);
  }
  return out;
}

// The line as a template has it, with the sub-item's code for each "@".
static string in_template(const string &line)
{
  return with(line, "$S$", "$#$");
}

class Quote : public Forms
{
protected:
  // The script line, or the header's error message.
  string insert(const string &line, const string &value) const
  {
    std::filesystem::remove(dir + "/" + FORM); // a new file is written faster
    const Header hdr =
        parse("title t $S$\nread_script " + in_template(line) + "\nbody\n",
              FORM, value.c_str());
    return hdr != nullptr ? hdr->read_script : message();
  }
};

// clang-format off

TEST_F(Quote, MakesTheShellPassExactlyTheValueInEveryPlace)
{
  const string form = dir + "/" + FORM;
  const std::pair<const char *, std::vector<string>> places[] = {
    {"p @ '@' \"@\" a@b 'a'@'b'\"@\" x=@ \\\\@ @#@ $#@ [ @ ]",
     {"@", "@", "@", "a@b", "a@b@", "x=@", "\\@", "@#@", "0@", "[", "@", "]"}},
    {"p \\\"@ '\\'@ $\"a@\" \"\\\"@\\\\\" \"'@'\" '\"@\"' a\\ @",
     {"\"@", "\\@", "a@", "\"@\\", "'@'", "\"@\"", "a @"}},
    {"y=@; (p \"$y\"; p @) && p 2>&1 @ 2>&1;IFS= read -rd '' y <<<@;"
     "p \"$y\" @ $F$\"$T$\" '$F$' $T$",
     {"@", "@", "@", "@\n", "@", form + "t @", form, "t @"}},
    // next to text that would swallow the value, or change its meaning with it
    {"p $TZ@ \"$TZ@\" \"$TZ/@\" $TZ/@ ${TZ}@ @$TZ \"@${TZ}\" @@ @/@",
     {"z@", "z@", "z/@", "z/@", "z@", "@z", "@z", "@@", "@/@"}},
    {"p ~@ @~ a@:~ @=~ y=@:~ :@\"\":~ @\\~; y=@~; p \"$y\"",
     {"~@", "@~", "a@:~", "@=~", "y=@:/h", ":@:~", "@~", "@~"}},
    {"p @>&1;p 2@>&1 2@<&0 @</dev/null @2>&1", {"@", "2@", "2@", "@", "@2"}},
    {"set -f;p *@ @\"\"* @\\ b !@ ^@ {x @ {} @ @=x y[1]@;set +f",
     {"*@", "@*", "@ b", "!@", "^@", "{x", "@", "{}", "@", "@=x", "y[1]@"}},
    {":;>&1 x@=2 y;x=1 x=2@ x@+=3;y=@:@;p \"$y\" 2>&1",
     {"command", "x@=2", "y", "command", "x@+=3", "@:@"}},
    // after a construct that has clearly ended
    {"p --match=^[a-z]+ @ x[1] @ [!a]* @ x[1]@",
     {"--match=^[a-z]+", "@", "x[1]", "@", "[!a]*", "@", "x[1]@"}},
    {"p $((1+1)) @ $[2+3] \"$((1<<2))@\"; ((1<2)) && [[ a < b ]] && p @",
     {"2", "@", "5", "4@", "@"}},
    {"p \"$(echo h)\" \"@\" `echo h` @ \"`echo h`@\" $(echo h)@",
     {"h", "@", "h", "@", "h@", "h@"}},
    {"p \"${TZ}\" @ ${u:-a b} @ \"${TZ#y}@\" ${TZ:0:1}@ $'a b'@ $(:)@",
     {"z", "@", "a", "b", "@", "z@", "z@", "a b@", "@"}},
  };
  std::vector<string> values = {"FOO=bar", "12", "if", "X", "a=", "a,b", "]"};
  for (int c = 1; c < 256; c++) {
    values.emplace_back(1, static_cast<char>(c));
  }
  const string alphabets[] = {
    "'\"\\$`", "a \t\n'\"\\$`(){}[]<>|&;#*?!~^=%", "$(>no)`'\n", "12",
    "aZ_2.:%@/+=,-", "\xc3\xa9\xff\x81\xa0'\\\"$` a"};
  std::mt19937 random(20240611);
  while (values.size() < 10000) {
    const string &alphabet = alphabets[random() % std::size(alphabets)];
    string value(1 + random() % 12, ' ');
    for (char &c : value) {
      c = alphabet[random() % alphabet.size()];
    }
    values.push_back(value);
  }
  string script = "p() { printf '%s\\0' \"$@\"; }\ncd empty\n"
                  "command_not_found_handle() { p command \"$@\"; }\n";
  std::vector<std::pair<string, string>> expected; // for each line
  for (size_t i = 0; i < values.size(); i++) {
    for (size_t j = 0; j < std::size(places); j++) {
      const auto &[place, words] = places[j];
      // some in all places, the others in one; "/" would be a path
      if ((i < 7 || (i < 270 && j < 3) || i % std::size(places) == j) &&
          (place[0] != ':' || values[i].find('/') == string::npos)) {
        expected.emplace_back(insert(place, values[i]) + "\n", "");
        script += expected.back().first;
        for (const string &word : words) {
          expected.back().second += with(word, values[i]) + '\0';
        }
      }
    }
  }
  write_file("script", script);
  std::filesystem::create_directory("empty");
  ASSERT_EQ(system("HOME=/h TZ=z LC_ALL=C bash script >words 2>err"), 0);
  const string given = read_file("words");
  size_t at = 0;
  for (const auto &[line, words] : expected) {
    ASSERT_EQ(given.substr(at, words.size()), words) << line;
    at += words.size();
  }
  EXPECT_EQ(given.size(), at);
  EXPECT_TRUE(std::filesystem::is_empty("empty")); // nothing ran
}

TEST_F(Quote, IsRefusedWhereUnsafeAndLeftOutWhereNotNeeded)
{
  const string message = "Cannot quote a value in script command \"";
  const char *const unsafe[] = { // inside, or where the end is not clear
    "x \"\\@", "x $'a@'", "x $'\\'' @", "x $(y @)", "x \"$(y '@')\"", "x `y @`",
    "x \"`y @`\"", "x ${y:-@}", "x \"${y:-@}\"", "x \"$(y \"$z/@\")\"",
    "x \"$(y \"${z%.*}/@\" b)\" @", "x `y 'a'` @", "x <(y @)", "x >(y @)",
    "x <<E @", "x >& '@'", "x # @", "# @", "y=(@)", "x $(y <<E) @",
    "x $(y \"a\" | z @) @", "x $(y # ) @"};
  const string plain = "az/AZ_09.:@%+,=-\xc3\xa9";
  for (const string line : unsafe) {
    EXPECT_EQ(insert(line, "a[$(id)]"), message + in_template(line) + '"');
    EXPECT_EQ(insert(line, plain), with(line, plain));
  }
  const char *const numbers[] = { // a name is evaluated to its value
    "x $[1+@]", "x \"$[1+@]\"", "x $((@))", "x \"$((1+@))\"", "((@))", "y[@]=1",
    "x $(y $((@)))", "x $([[ @ -eq 1 ]])", "[[ @ -eq 1 ]]", "x `y ${z[@]}`",
    "y=([@]=1)", "y=([ @ ]=1)", "x ${y:@}", "for ((i=0;i<@;i++))",
    "[[ a]] && @ -eq 1 ]]", "[[ \"@\" -eq 1 ]]", "x y[\"a\"] @"};
  for (const string line : numbers) {
    for (const char *value : {"PATH", "08", "1a", "-1", "16#f"}) {
      EXPECT_EQ(insert(line, value), message + in_template(line) + '"');
    }
    for (const char *value : {"17", "0", "007", "99999999999999999999"}) {
      EXPECT_EQ(insert(line, value), with(line, value));
    }
  }
  const char *const never[] = { // it would be more than part of a word
    "x \\@", "x $@", "x \"$@", "x ${!@:2}", "x ${y%@}", "x $((y@))",
    "x $((1@))", "x y[\"a\"]@>z", "x y[\"a\"]<@", "x $(y ~@)", "x $(y $zz@)",
    "x $(y 2@>z)", "x $( @)", "x $(y;@ z)", "x $(if @ z)", "x `@`", "x $(>y @)",
    "x $(case a in @) y;; esac)", "x \"$(case a in a) y @;; esac)\"",
    "x $'\\x@'", "x $(y {a,@})", "x {a,@}", "x {1..@}", "x @{a,b}",
    "x \"@\"{a,b}", "x $${a,b}@", "{@}>y", "x [@]*", "x >&1@", "x <<@"};
  for (const string line : never) {
    for (const char *value : {"2", "X", "a;b"}) {
      EXPECT_EQ(insert(line, value), message + in_template(line) + '"');
    }
  }
  const char *const rows[][3] = {
    {"x @ '@' \\@'@ca@se <@<y $@'", "", "x  '' \\'case <<y $'"},
    {"@.sh[1] @; y.sh @/@; if @", "if", "'if'.sh[1] if; y.sh if/if; if 'if'"},
    {"@ x; @ y; z @", "A=b", "'A=b' x; 'A=b' y; z A=b"},
    // in some charsets the byte would swallow the next one
    {"x @", "\x81\";'\\", "x $'\\201\";\\'\\\\'"},
    {"x \"@\"", "\x81\"", "x \"\"$'\\201\"'\"\""},
    {"x <<<@ <@ >>@ >&1y @", "*", "x <<<'*' <'*' >>'*' >&1y '*'"},
    {"x $yy@ \"$yy@\"", "*", "x $yy'*' \"$yy\"'*'\"\""},
    {"x 2>&1 @|y >&-;z @", "*", "x 2>&1 '*'|y >&-;z '*'"}};
  for (const auto &[line, value, expected] : rows) {
    EXPECT_EQ(insert(line, value), expected);
  }
}
