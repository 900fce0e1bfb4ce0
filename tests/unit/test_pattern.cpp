// Expressions matched by our own code mean the same as in the C library.

#include <random>
#include <regex.h>

#include "fixture.h"
#include "orv_pattern.h"

static pattern_answer library(const string &pattern, const string &text)
{
  regex_t made;
  if (regcomp(&made, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
    return PATTERN_OTHER;
  }
  const bool fits = regexec(&made, text.c_str(), 0, nullptr, 0) == 0;
  regfree(&made);
  return fits ? PATTERN_FITS : PATTERN_FITS_NOT;
}

// Sequences of these pieces, from none to `most`.
static string pick(std::mt19937 *random, const std::vector<string> &pieces,
                   size_t most)
{
  string made;
  for (size_t count = (*random)() % (most + 1); count > 0; count--) {
    made += pieces[(*random)() % pieces.size()];
  }
  return made;
}

TEST(Pattern, FormsExpressionsAreWalkedThrough)
{
  struct {
    const char *pattern;
    std::vector<string> fit;
    std::vector<string> fit_not;
  } const rows[] = {
    {"^.{1,60}$", {"a", string(60, '\xe4')}, {"", string(61, 'a')}},
    {"^[A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?$",
     {"a", "a-b", string(63, 'x')}, {"", "-a", "a-", string(64, 'x')}},
    {"^[A-Za-z0-9._+-]{1,60}@[A-Za-z0-9.-]{1,60}$", {"a.b+c@d-e.f"},
     {"a", "@", "a@b@c", "a b@c"}},
    {"^[]a^-]+\\.\\$[^]\\]{2,}$", {"]^-a.$ab"}, {"].$a", "].$a]", "b.$ab"}},
    {"^ab?(c(d)?e+)?(x)$", {"ax", "abcex", "acdeex"}, {"abcdx", "abce"}},
    {"^$", {""}, {" "}},
  };
  for (const auto &row : rows) {
    for (const string &text : row.fit) {
      EXPECT_EQ(orv_pattern_match(row.pattern, text.c_str()), PATTERN_FITS)
          << row.pattern << " " << text;
    }
    for (const string &text : row.fit_not) {
      EXPECT_EQ(orv_pattern_match(row.pattern, text.c_str()), PATTERN_FITS_NOT)
          << row.pattern << " " << text;
    }
  }
}

TEST(Pattern, TheLibraryDecidesOnTheRest)
{
  for (const char *pattern :
       {"a$", "^a", "^a|b$", "^(ab)*$", "^(a){2}$", "^[[:alpha:]]$", "^[a$",
        "^[z-a]$", "^a{2,1}$", "^a{300}$", "^a**$", "^()$", "^(a$", "^a)$",
        "^a\\$", "^\\w$", "^^a$", "^a$b$", "^*$", "^[+--]$", ""}) {
    EXPECT_EQ(orv_pattern_match(pattern, "a"), PATTERN_OTHER) << pattern;
  }
  const string hard = "^" + string("a*").append("a*a*a*a*a*a*") + "b$";
  EXPECT_EQ(orv_pattern_match(hard.c_str(), string(2000, 'a').c_str()),
            PATTERN_OTHER)
      << "a text that takes too many attempts";
}

TEST(Pattern, EachMeansTheSameAsInTheLibrary)
{
  const std::vector<string> pieces = {
      "a", "b", "-", ".", "]", "[ab]", "[^a]", "[a-c-]", "[]-]", "[^]b-]",
      "[b\\-c]", "\\.", "\\(", "\\\\", "(", ")", "?", "*", "+", "{2}", "{1,}",
      "{0,2}", "{,1}", "a{2,3}", "\xe4", "[-a]", "$", "|"};
  const std::vector<string> letters = {"a", "b",  "c",  "-", "]",
                                       ".", "(",  "\\", "^", "\xe4"};
  std::mt19937 random(1);
  int decided = 0;
  for (int i = 0; i < 20000; i++) {
    const string pattern = "^" + pick(&random, pieces, 6) + "$";
    const string text = pick(&random, letters, 5);
    const auto answer = orv_pattern_match(pattern.c_str(), text.c_str());
    if (answer != PATTERN_OTHER) {
      ASSERT_EQ(answer, library(pattern, text)) << pattern << " " << text;
      decided++;
    }
  }
  EXPECT_GT(decided, 5000);
}
