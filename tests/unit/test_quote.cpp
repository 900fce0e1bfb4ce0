// Quoting of values in shell command lines: a table of places, and the real
// shell as the judge of random values.

#include "orv_quote.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{
// `line` with each "@" replaced by the value as it must stand there, or
// "refused" when there is a place where it cannot stand.
std::string insert(const std::string &line, const std::string &value)
{
  shell_scan scan = {};
  std::string out;
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
    std::string quoted(length, '?');
    size_t written = 0;
    scan = before;
    EXPECT_TRUE(shell_quote(&scan, value.c_str(), quoted.data(), &written));
    EXPECT_EQ(length, written) << line;
    out += quoted;
  }
  return out;
}

// The arguments that `command`, run by the shell, hands to printf.
std::vector<std::string> shell_words(const std::string &command)
{
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(ends[1], STDOUT_FILENO);
    execl("/bin/bash", "bash", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  std::vector<std::string> words(1);
  char c = 0;
  while (read(ends[0], &c, 1) == 1) {
    if (c == '\0') {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  close(ends[0]);
  int status = 0;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_EQ(0, status) << command;
  words.pop_back();
  return words;
}
} // namespace

TEST(Quote, StandsAsThePlaceRequiresOrIsRefused)
{
  static const char refused[] = "refused";
  // clang-format off
  static const struct {
    const char *line;
    const char *value;
    const char *expected;
    const char *why;
  } cases[] = {
      {"x @", "az/AZ_09.:@%+,=-\xc3\xa9", "x az/AZ_09.:@%+,=-\xc3\xa9", ""},
      {"x @ @", "", "x  ", "an empty value stays empty"},
      {"x @.sh", "a b", "x 'a b'.sh", "bare"},
      {"x @", "it's", "x 'it'\\''s'", "the quotes' own character"},
      {"x '@'", "it's \"", "x '''it'\\''s \"'''", "single quotes"},
      {"x \"@\"", "\\\"$`!", "x \"\"'\\\"$`!'\"\"", "double quotes"},
      {"x @", "\x81\";'\\", "x $'\\201\";\\'\\\\'", "a byte that swallows"},
      {"x \"@\"", "\x81\"", "x \"\"$'\\201\"'\"\"", "the same inside quotes"},
      {"x $\"@\" @", "$(", "x $\"\"'$('\"\" '$('", "a translated string"},
      {"x \"'@'\" '\"@\"'", "`", "x \"'\"'`'\"'\" '\"''`''\"'", "no nesting"},
      {"x \"\\\"@\" \\\"@", "*", "x \"\\\"\"'*'\"\" \\\"'*'", "escaped quotes"},
      {"x $((@)) $(y @)", "7", "x $((7)) $(y 7)", "a number"},
      {"x $(y @) `y @`", "PATH", "x $(y PATH) `y PATH`", "a plain word"},
      {"x $((@))", "PATH", refused, "a name, whose value is evaluated, too"},
      {"x \"$((1+@))\"", "PATH", refused, "the same inside double quotes"},
      {"((@))", "PATH", refused, "the same as a command"},
      {"y[@]=1", "PATH", refused, "the same as a subscript"},
      {"x 'a'\"b\"@'c'@", "; ", "x 'a'\"b\"'; ''c''; '", "quotes end"},
      {"x '\\'@", "*", "x '\\''*'", "no backslash inside single quotes"},
      {"x \\\\@", "*", "x \\\\'*'", "an escaped backslash"},
      {"x @#@ $#@", "*", "x '*'#'*' $#'*'", "no comment inside a word"},
      {"x <<<@ <@ >>@", "*", "x <<<'*' <'*' >>'*'", "a here-string is a word"},
      {"x 2>&1 @|y >&-;z @", "*", "x 2>&1 '*'|y >&-;z '*'", "known streams"},
      {"(x @; x2) | x3 @", "*", "(x '*'; x2) | x3 '*'", "a subshell"},
      {"[ @ ] && $y@ ${#", "*", "[ '*' ] && $y'*' ${#", "refusal is local"},
      {"x \\@", "*", refused, "behind a backslash"},
      {"x \"\\@", "*", refused, "behind a backslash in double quotes"},
      {"x $@", "*", refused, "behind a dollar"},
      {"x \"$@", "(id)", refused, "behind a dollar in double quotes"},
      {"x $'@'", "*", refused, "a string with escapes"},
      {"x $'' @", "*", refused, "behind such a string"},
      {"x $(y @)", "*", refused, "command substitution"},
      {"x \"$(y '@')\"", "*", refused, "the same inside double quotes"},
      {"x `y @`", "*", refused, "backticks"},
      {"x \"`y @`\"", "*", refused, "backticks inside double quotes"},
      {"x ${y:-@}", "*", refused, "parameter expansion"},
      {"x \"${y:-@}\"", "*", refused, "the same inside double quotes"},
      {"x $[@]", "a[$(id)]", refused, "arithmetic"},
      {"x \"$[@]\"", "a[$(id)]", refused, "the same inside double quotes"},
      {"((@))", "a[$(id)]", refused, "an arithmetic command"},
      {"x $((@))", "a[$(id)]", refused, "arithmetic expansion"},
      {"[[ @ -eq 1 ]]", "a[$(id)]", refused, "a conditional's arithmetic"},
      {"y[@]=1", "$(id)", refused, "a subscript"},
      {"y=([@]=1)", "$(id)", refused, "a subscript in a list"},
      {"x <(y @) @", "*", refused, "process substitution"},
      {"x >(y @)", "*", refused, "process substitution"},
      {"x <<E @", "*", refused, "behind a here-document mark"},
      {"x <<@", "*", refused, "a here-document's mark"},
      {"x <<<<<@", "*", refused, "a here-document behind a here-string"},
      {"x >&@", "`id`", refused, "a file name that bash expands twice"},
      {"x >& '@'", "`id`", refused, "the same behind a blank"},
      {"x >&1@", "`id`", refused, "the same behind a number"},
      {"x >&1y @", "`id`", refused, "the same behind more than a number"},
      {"x # @", "\nid", refused, "a comment"},
      {"x;# @", "\nid", refused, "a comment behind a separator"},
      {"# @", "\nid", refused, "a comment from the start"},
      {"x `y @` $@ \\@", "a-b", "x `y a-b` $a-b \\a-b", "plain anywhere"},
      {"x $@'y @'", "", "x $'y '", "nothing inserted joins its neighbours"},
      {"x \\@'@", "", "x \\'", "nothing inserted joins its neighbours"},
  };
  // clang-format on
  for (const auto &row : cases) {
    EXPECT_EQ(row.expected, insert(row.line, row.value)) << row.why;
  }
}

TEST(Quote, TheShellHandsTheScriptExactlyTheValue)
{
  static const std::string alphabets[] = {
      "'\"\\$`", "a \t\n'\"\\$`(){}[]<>|&;#*?!~^=%",
      std::string("\xc3\xa9\xff\x81\xa0'\\\"$` a"), "$(id)`'\n"};
  std::mt19937 random(20240611);
  for (int round = 0; round < 300; round++) {
    const std::string &alphabet = alphabets[random() % std::size(alphabets)];
    std::string value(1 + random() % 12, ' ');
    for (char &c : value) {
      c = alphabet[random() % alphabet.size()];
    }
    const std::string command =
        insert("printf '%s\\0' @ '@' \"@\" a@b 'a'@'b'\"@\" x=@ <<<@", value);
    const std::vector<std::string> expected = {
        value,       value, value, "a" + value + "b", "a" + value + "b" + value,
        "x=" + value};
    EXPECT_EQ(expected, shell_words(command)) << command;
  }
}
