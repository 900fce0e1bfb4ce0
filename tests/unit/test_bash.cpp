// The reader of bash: which parts of a script are commands, words, expansions.

#include "bash.h"
#include <gtest/gtest.h>

using std::string;

static string shown(const bash_expansion &e)
{
  return string(e.quoted ? "\"" : "") + (e.arithmetic ? "=" : "") + (e.indirect ? "!" : "") + (e.length ? "#" : "") +
         (e.based ? "10" : "") + e.name + (e.subscript.empty() ? "" : "[" + e.subscript + "]") + e.rest;
}

static string shown(const bash_word &word)
{
  string text = word.plain;
  for (const bash_expansion &expansion : word.expansions) {
    text += "<" + shown(expansion) + ">";
  }
  return text;
}

// Line, function, assignments, words, redirections, patterns, then the
// command's context: ? its status decides, & in the background, | into and out
// of a pipe, $ in $( ).
static string shown(const bash_command &c)
{
  string text = std::to_string(c.line) + (c.function.empty() ? "" : " " + c.function + "()");
  for (const bash_assignment &a : c.assignments) {
    text += " " + a.name + (a.subscript.empty() ? "" : "[" + a.subscript + "]") + "=" + shown(a.value);
    for (const bash_word &element : a.elements) {
      text += "," + shown(element);
    }
  }
  for (const bash_word &word : c.words) {
    text += " " + shown(word);
  }
  for (const bash_redirect &redirect : c.redirects) {
    text += " " + redirect.op + shown(redirect.target);
  }
  for (const string &pattern : c.patterns) {
    text += " {" + pattern + "}";
  }
  return text + string(c.condition ? " ?" : "") + (c.background ? " &" : "") + (c.piped_in ? " |<" : "") +
         (c.piped ? " |>" : "") + string(static_cast<size_t>(c.substitution), '$');
}

static string shown(const string &script)
{
  string text;
  for (const bash_command &command : read_bash(script).commands) {
    text += (text.empty() ? "" : "; ") + shown(command);
  }
  return text;
}

TEST(Bash, ReadsCommandsWithWhatTheyExpand)
{
  const std::pair<string, string> cases[] = {
    {"echo a 'b c' \"d $e\" # f", "1 echo a b c d $e<\"e>"},
    {"a=$1 b[$i]=x c+=(1 \"$2\") d", "1 a=$1<1> b[$i]=x c=,1,$2<\"2> d"},
    {"echo ${!a} ${#b} ${c[1]} ${d%%=*} ${e:-$f} $@", "1 echo ${!a}<!a> ${#b}<#b> ${c[1]}<c[1]> ${d%%=*}<d%%=*>"
     " ${e:-$f}<e:-$f><f> $@<@>"},
    {"echo \\$a '$b' $'\\t$c' \"\\$d\\n\"", "1 echo $a $b \\t$c $d\\n"},
    {"echo $((a + $b + 10#$c + 08)) $((d[e]))", "1 echo $((a + $b + 10#$c + 08))"
     "<\"=a><\"=b><\"=10c> $((d[e]))<\"=d[e]><\"=e>"},
    {"echo $[a[1] + $b] c", "1 echo $[a[1] + $b]<\"=a[1]><\"=b> c"},
    {"[[ 10#$a -gt 16#\"${b:-$c}\" ]] || d=${e[0x$f]}$((1$g))", "1 10#$a<10a> -gt 16#${b:-$c}<\"10b:-$c><\"10c> ?;"
     " 1 d=${e[0x$f]}$((1$g))<e[0x$f]><10f><\"=g>"},
    {"((a > 1)) && let b=1", "1 <\"=a> ?; 1 let b=1"},
    {"if [[ $a == b* ]]; then c; fi", "1 $a<a> == b* ?; 1 c; 1"},
    {"f() {\n local x=1\n}\nf", "2 f() x=1 local; 3; 4 f"},
    {"function g { h; }", "1 g() h; 1"},
    {"case $a in b | c) d ;; *) e;; esac", "1 $a<a> {b | c} {*}; 1 d; 1 e; 1"},
    {"for i in a $b; do c; done <d", "1 i a $b<b>; 1 c; 1 <d"},
    {"a | b |& c &\nd || e", "1 a |>; 1 b |< |>; 1 c & |<; 2 d ?; 2 e"},
    {"a 2>&1 >b <<<\"$c\" &>d", "1 a >&1 >b <<<$c<\"c> &>d"},
    {"a=$(b `c $d`)\ne", "1 c $d<d>$$; 1 b $; 1 a=$(b `c $d`); 2 e"},
    {"cat <<X; a\nb $c\nX\nd", "1 cat <<X; 1 a; 4 d"},
    {"case $1 in a) cat <<X ;;\nb\nX\nc) d;; esac", "1 $1<1> {a} {c}; 1 cat <<X; 4 d; 4"},
    {"cat <<-'X'\n\tb\n\tX\na=(\n 1 # b\n 2\n)\nc", "1 cat <<-X; 4 a=,1,2; 8 c"},
    {"a $(b <<X\nc\nX\n) d", "1 b <<X$; 1 a $(b <<X\nc\nX\n) d"},
    {"a \\\n b\nc", "1 a b; 3 c"},
  };
  for (const auto &[script, expected] : cases) {
    EXPECT_EQ(shown(script), expected) << script;
  }
}

TEST(Bash, ReportsOpenConstructsAndReadsHereDocuments)
{
  const bash_script left = read_bash("if a; then\n while b; do\n");
  ASSERT_EQ(left.open.size(), 2U);
  EXPECT_EQ(left.open[0].word + " " + left.open[1].word, "if while");
  EXPECT_EQ(left.open[1].line, 2);
  const bash_script script = read_bash("# a\nf() { cat <<X <<Y; } # b\n1\n2\nX\n3\nY\ng # c");
  ASSERT_EQ(script.documents.size(), 2U);
  EXPECT_EQ(script.documents[0].size(), 2U);
  EXPECT_EQ(script.documents[1][0].line, 6);
  EXPECT_EQ(script.functions, std::set<string>{"f"});
  EXPECT_EQ(script.code, "   \nf() { cat <<X <<Y; }    \n1\n2\nX\n3\nY\ng    ");
}
