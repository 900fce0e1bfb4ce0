// Changes described in the words of a page.

#include "orv_changes.h"

#include <map>
#include <time.h>

#include "form_fixture.h"
#include "orv.h"

using Changes = Forms;
using Values = std::map<string, string>;

// clang-format off

struct Sides { Values before, after; };

static const char *find(const Values &values, const char *name)
{
  const auto at = values.find(name);
  return at != values.end() ? at->second.c_str() : nullptr;
}

// "port0=80;fast=True": ";" stands between variables.
static Values values(const string &lines)
{
  Values all;
  for (size_t from = 0; from < lines.size();) {
    const size_t end = std::min(lines.find(';', from), lines.size());
    const size_t equals = lines.find('=', from);
    all[lines.substr(from, equals - from)] = lines.substr(equals + 1, end - equals - 1);
    from = end + 1;
  }
  return all;
}

static const orv_change_source SOURCE = {
  [](const char *name, void *data) { return find(static_cast<Sides *>(data)->before, name); },
  [](const char *name, void *data) { return find(static_cast<Sides *>(data)->after, name); },
  [](const char *name, void *) { return strcmp(name, "own") == 0 ? "A label" : nullptr; },
  [](const char *name, void *) { return strcmp(name, "own") == 0; },
  nullptr,
  nullptr,
};

// The words of a line, and the signs that stand for them in what is told below.
static const string WORDS[][2] = {{"Row added: ", "+ "}, {"Row deleted: ", "- "}, {": changed", ": ***"}};

// The changes as "LINE | LINE".
static string told(pt_body_item *body, Sides *sides, size_t label_max = 0, size_t value_max = 0)
{
  orv_change_source source = SOURCE;
  source.data = sides;
  orv_change *changes;
  EXPECT_TRUE(orv_find_changes(body, &source, &changes));
  EXPECT_TRUE(orv_find_change("hash", &source, &changes));
  EXPECT_TRUE(orv_find_change("hash_ann_password", &source, &changes));
  string all;
  for (const orv_change *change = changes; change != nullptr; change = change->next) {
    const owned_text line(orv_change_line(change, "->", label_max, value_max));
    string shown = line.get();
    for (const auto &[words, sign] : WORDS) {
      const size_t at = shown.find(words);
      if (at != string::npos) {
        shown.replace(at, words.size(), sign);
      }
    }
    all += (all.empty() ? "" : " | ") + shown;
  }
  orv_free_changes(changes);
  return all;
}

static const char FORM[] =
  "field name;label $B$Device$R$ name of $V:who$;field a_pin;label PIN;"
  "checkbox on;rlabel Lit;select mode;choice a $B$First$R$;choice b Second;"
  "if $V:never$;field Name;label Twice;field own;endif;fixed state;"
  "iselect net;label Net";

TEST_F(Changes, AreReportedInTheWordsOfThePage)
{
  const Items body = items(FORM);
  orv_set_var("who", o_orig, text("ours"), 0);
  const char *const rows[][3] = { // before, after, the report
    {"name=a;on=True", "name=a;on=yes;mode=", ""}, {"", "name=;on=False", ""},
    {"name=a", "name=b", "Device name of ours: a -> b"},
    {"name=a", "", "Device name of ours: a -> blank"},
    {"a_pin=1;own=2", "a_pin=3;own=4", "PIN: *** | A label: ***"},
    {"mode=a", "mode=b;on=1", "Lit: off -> on | mode: First -> Second"},
    {"mode=a", "mode=c", "mode: First -> c"}, {"state=x", "state=y", "state: x -> y"},
    {"net=x", "net=y;zz=1", "Net: x -> y"}, // a page makes its choices
    {"hash=x;hash_ann_password=x", "hash_ann_password=y",
     "hash: x -> blank | hash_ann_password: ***"},
    {"name=$B$x", "name=$V:who$", "Device name of ours: $B$x -> $V:who$"},
  };
  for (const auto &[before, after, expected] : rows) {
    Sides sides = {values(before), values(after)};
    EXPECT_EQ(told(body.get(), &sides), expected) << before;
  }
  forget();
}

TEST_F(Changes, RowsAreReportedAsRows)
{
  const Items body = items("table t 5;field p;label Port;field ip;select k;label Kind;"
                           "choice u UDP;choice t TCP;checkbox off;label Off;field a_secret");
  const string first = "p0=80;ip0=a;k0=u;off0=True;a_secret0=s";
  const char *const rows[][3] = {
    {"", "p0=80;ip0=a;k0=u;off0=True;a_secret0=s", "+ 80, a, UDP, Off"},
    {"p0=80;ip0=a;k0=u;off0=True;a_secret0=s", "p0=;ip0=;k0=u;off0=False", "- 80, a, UDP, Off"},
    {"p0=1;p1=2;p2=3", "p0=3;p1=;p2=", "- 1 | - 2"},
    {"p0=1;p1=2;p2=3;p3=4", "p0=1;p1=3;p2=5", "- 2 | Port, row 3: 4 -> 5"},
    {"p0=1;ip0=a;p1=2;ip1=b", "p0=2;ip0=c", "- 1, a | ip, row 1: b -> c"},
    {"p0=1;ip0=a;p1=2;ip1=b", "p0=2;ip0=b;p1=3;ip1=c", "- 1, a | + 3, c"},
    {"p0=1;ip0=a;p1=2;ip1=b", "p0=3;ip0=c;p1=2;ip1=b", "Port, row 1: 1 -> 3 | ip, row 1: a -> c"},
    {"p0=1;p1=1;p2=2", "p0=2;p1=1", "- 1 | - 1 | + 1"},
    {"p0=1;p5=2", "p0=1;p1=2", ""}, {"k0=u;off0=False", "k0=t", ""},
    {"p0=1;k0=u;a_secret0=x", "p0=1;k0=t;off0=True", "Kind, row 1: UDP -> TCP | Off, row 1: off -> on | a_secret, row 1: ***"},
    {"p0=5", "p0=1;p1=5;p2=9", "+ 1 | + 9"},
  };
  for (const auto &[before, after, expected] : rows) {
    Sides sides = {values(before), values(after)};
    EXPECT_EQ(told(body.get(), &sides), expected) << before;
  }
  const Items fixed = items("ftable f 1 2;field p;table l 1 2;select k;choice a A");
  Sides sides = {values("p0=1;p1=2;k1=a;p2=3"), values("p1=4;p2=5;k1=b;k2=c")};
  EXPECT_EQ(told(fixed.get(), &sides), "p, row 1: 1 -> blank | p, row 2: 2 -> 4 | k, row 2: A -> b");
}

TEST_F(Changes, TextsAreCutBetweenCharacters)
{
  const std::tuple<const char *, size_t, size_t> rows[] = {
    {"", 0, 0}, {"abc", 3, 3}, {"abc", 2, 2}, {"a\xc3\xa9", 2, 1}, {"a\xc3\xa9", 3, 3},
    {"\xe2\x86\x92", 2, 0}, {"\xf0\x9f\x98\x80z", 4, 4}, {"\x80\x80\x80\x80\x80\x80", 5, 2},
  };
  for (const auto &[text, max, expected] : rows) {
    EXPECT_EQ(orv_cut_length(text, max), expected) << text;
  }
  const Items body = items("field name;label L\xc3\xa9" "on;table t 1;field p");
  Sides sides = {values("name=12\xc3\xa9;p0=" + string(399, 'x') + "\xc3\xa9"), values("name=x")};
  EXPECT_EQ(told(body.get(), &sides, 2, 3), "L: 12 -> x | - xxx");
  EXPECT_EQ(told(body.get(), &sides).size(), strlen("L\xc3\xa9on: 12\xc3\xa9 -> x | - ") + 399);
}

// The limit is far from both the factor of the number and that of its square:
// rows that all moved, rows that all changed, rows in reverse order.
TEST_F(Changes, OfManyRowsTakeTimeProportionalToTheirNumber)
{
  const Items body = items("table t 4;field a;field b;field c;field d");
  const auto row = [](Values *values, int at, int number) {
    for (const char *column : {"a", "b", "c", "d"}) {
      (*values)[column + std::to_string(at)] = column + std::to_string(number);
    }
  };
  for (int kind = 0; kind < 3; kind++) {
    double times[2] = {1e9, 1e9};
    for (int round = 0; round < 6; round++) {
      const int count = round % 2 == 0 ? 500 : 4000;
      Sides sides;
      for (int i = 0; i < count; i++) {
        row(&sides.before, i, i);
        row(&sides.after, i, kind == 0 ? i + 1 : kind == 1 ? -i - 1 : count - i);
      }
      const clock_t start = clock(); // CPU time, so a busy machine does not matter
      const string lines = told(body.get(), &sides);
      times[round % 2] = std::min(times[round % 2], static_cast<double>(clock() - start));
      EXPECT_EQ(lines.substr(0, 4), kind == 0 ? "- a0" : "a, r") << kind;
    }
    EXPECT_LT(times[1], 8 * 3 * times[0]) << kind;
  }
}
