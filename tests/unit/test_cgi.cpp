// Requests as rows of (environment, body) with the resulting fields, or the
// fault and its line in the system log.

#include "cgi.h"

#include <signal.h>

#include "fixture.h"

using Request = Scratch;

static const char FORM[] = "application/x-www-form-urlencoded";

static int get(const string &query, const char *method = "GET")
{
  setenv("REQUEST_METHOD", method, 1);
  setenv("QUERY_STRING", query.c_str(), 1);
  return cgiInit();
}

static int post(const string &body, const char *length, const char *type = FORM)
{
  for (const auto &[name, value] :
       {std::pair("CONTENT_TYPE", type), std::pair("CONTENT_LENGTH", length)}) {
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  }
  std::ofstream("request") << body;
  EXPECT_NE(nullptr, freopen("request", "r", stdin));
  return get("query=1", "POST");
}

static string fields()
{
  string all;
  char **names = nullptr;
  EXPECT_EQ(cgiFormSuccess, cgiFormEntries(&names));
  for (char **name = names; *name != nullptr; name++) {
    int length = 0;
    EXPECT_EQ(cgiFormSuccess, cgiFormStringSpaceNeeded(*name, &length));
    string value(static_cast<size_t>(length), '?');
    EXPECT_EQ(cgiFormSuccess, cgiFormString(*name, value.data(), length));
    all += string(*name) + "=" + value.c_str() + "\n";
  }
  cgiStringArrayFree(names);
  return all;
}

// clang-format off

TEST_F(Request, IsDecodedIntoItsFields)
{
  const std::pair<const char *, const char *> rows[] = {
    {"", ""}, {"b=1&a", "b=1\na=\n"}, {"a=&b==&=c&&d=1&", "a=\nb==\nd=1\n"},
    {"a=1;b=2", "a=1;b=2\n"}, {"a+b=%61%2B%3d%26%C3", "a b=a+=&\xc3\n"},
    {"a=%&b%4=1&1=%4", "a=%\nb%4=1\n1=%4\n"},
    {"a=%4g%g4%%41%2541", "a=%4g%g4%A%41\n"},
    {"a=x%00y&a%00b=1&%00=2&c", "a=x\nc=\n"},
    {"a=1&b=2&a=3&B=4&%62=5", "a=1\nb=2\nB=4\n"},
  };
  for (const auto &[query, expected] : rows) {
    EXPECT_EQ(CGI_OK, get(query));
    EXPECT_EQ(expected, fields());
    EXPECT_EQ(CGI_OK, post(query, std::to_string(strlen(query)).c_str()));
    EXPECT_EQ(expected, fields()) << "posted";
  }
  clearenv();
  EXPECT_EQ(CGI_OK, cgiInit());
  EXPECT_EQ("", fields() + cgiRequestMethod + cgiScriptName);
}

TEST_F(Request, GivesItsFaultAndOneLogLineAndNoField)
{
  const std::tuple<const char *, const char *, int> rows[] = {
    {"3", nullptr, CGI_OK}, {"0003", "", CGI_OK},
    {"3", " Application/X-WWW-Form-Urlencoded ; a=b", CGI_OK},
    {"3", "multipart/form-data", CGI_BAD_TYPE},
    {"3", "application/x-www-form-urlencoded2", CGI_BAD_TYPE},
    {nullptr, FORM, CGI_BAD_LENGTH}, {"-3", FORM, CGI_BAD_LENGTH},
    {" 3", FORM, CGI_BAD_LENGTH}, {"3x", FORM, CGI_BAD_LENGTH},
    {"5", FORM, CGI_SHORT_BODY}, {"4194304", FORM, CGI_SHORT_BODY},
    {"4194305", FORM, CGI_TOO_LARGE},
    {"18446744073709551619", FORM, CGI_TOO_LARGE}, // 2^64 + 3
  };
  for (const auto &[length, type, error] : rows) {
    int found = 0;
    const string log = logged(LOG_ERR, [&, size = length, form = type] {
      found = post("a=12", size, form);
    });
    EXPECT_EQ(error, found);
    EXPECT_EQ(error == CGI_OK ? 0 : 1,
              std::count(log.begin(), log.end(), '\n')) << log;
    EXPECT_EQ(error == CGI_OK ? "a=1\n" : "", fields()) << error;
  }
}

TEST_F(Request, ArrivesInPiecesAndWhateverInterruptsIt)
{
  FILE *slow = popen("for c in a = 1 2; do sleep 0.005; printf $c; done", "r");
  ASSERT_EQ(STDIN_FILENO, dup2(fileno(slow), STDIN_FILENO));
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  ualarm(1000, 1000);
  setenv("CONTENT_LENGTH", "4", 1);
  EXPECT_EQ(CGI_OK, get("", "POST"));
  EXPECT_EQ("a=12\n", fields());
}

TEST_F(Request, MayBeAsLongAsTheLimitsSay)
{
  for (const size_t over : {0U, 1U, 2U}) {
    const string query = "a=" + string(4194301 + over, 'x');
    EXPECT_EQ(over > 1 ? CGI_TOO_LARGE : CGI_OK, get(query));
    EXPECT_EQ(over > 1 ? "" : query + "\n", fields());
    EXPECT_EQ(over > 1 ? CGI_TOO_MANY_FIELDS : CGI_OK,
              get(string(99998 + over, '&')));
  }
}

TEST(Value, IsCutToItsBufferAndTerminated)
{
  get("a=123");
  const char *const cut[] = {"????", "", "1", "12", "123", "123"};
  for (int length = 0; length < 6; length++) {
    char buf[] = "????";
    EXPECT_EQ(length < 4 ? cgiFormTruncated : cgiFormSuccess,
              cgiFormString("a", buf, length));
    EXPECT_STREQ(cut[length], buf);
  }
  char buf[] = "????";
  EXPECT_EQ(cgiFormNotFound, cgiFormString("b", buf, sizeof buf));
  cgiFreeResources();
  EXPECT_EQ(cgiFormNotFound, cgiFormString("a", buf, sizeof buf));
  EXPECT_STREQ("", buf);
}
