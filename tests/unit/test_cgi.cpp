// Requests as rows of (environment, body) and the fields, or the fault and its
// line in the system log, that they give.

#include "cgi.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

using std::string;

// These stand in for the C library's; a line of another priority counts 100.
static int log_lines;

extern "C" void syslog(int priority, const char *, ...)
{
  log_lines += priority == LOG_ERR ? 1 : 100;
}

extern "C" void __syslog_chk(int priority, int, const char *, ...);
extern "C" void __syslog_chk(int priority, int, const char *, ...)
{
  log_lines += priority == LOG_ERR ? 1 : 100;
}

static const char FORM[] = "application/x-www-form-urlencoded";

static void set(const char *name, const char *value)
{
  unsetenv(name);
  if (value != nullptr) {
    setenv(name, value, 1);
  }
}

static int get(const string &query, const char *method = "GET")
{
  set("REQUEST_METHOD", method);
  set("QUERY_STRING", query.c_str());
  return cgiInit();
}

// Sends the body in pieces, with a signal before each that interrupts a read.
[[noreturn]] static void send_body(pid_t reader, int out, const string &body)
{
  constexpr size_t PIECES = 4;
  const size_t size = body.size() / PIECES + 1;
  for (size_t at = 0; at < body.size(); at += size) {
    kill(reader, SIGUSR1);
    const string piece = body.substr(at, size);
    if (write(out, piece.data(), piece.size()) < 0) {
      break;
    }
  }
  _exit(0);
}

static int post(const string &body, const char *length, const char *type = FORM)
{
  set("CONTENT_TYPE", type);
  set("CONTENT_LENGTH", length);
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  const pid_t reader = getpid();
  const pid_t writer = fork();
  if (writer == 0) {
    send_body(reader, ends[1], body);
  }
  close(ends[1]);
  dup2(ends[0], STDIN_FILENO);
  close(ends[0]);
  const int result = get("query=1", "POST");
  close(STDIN_FILENO); // ends a writer that still waits
  open("/dev/null", O_RDONLY);
  while (waitpid(writer, nullptr, 0) < 0) {
  }
  return result;
}

// Every field as "name=value" and a line end.
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

TEST(Request, IsDecodedIntoItsFields)
{
  // clang-format off
  const struct {
    const char *query;
    const char *fields;
    const char *why;
  } rows[] = {
    {"",                      "",                "no fields"},
    {"b=1&a",                 "b=1\na=\n",       "request's order; no \"=\""},
    {"a=&b==&=c&&d=1&",       "a=\nb==\nd=1\n",  "empty values, names, pieces"},
    {"a=1;b=2",               "a=1;b=2\n",       "semicolons do not separate"},
    {"a+b=%61%2B%3d%26%C3",   "a b=a+=&\xc3\n",  "blanks and bytes"},
    {"a=%&b%4=1&1=%4",        "a=%\nb%4=1\n1=%4\n", "% where a piece ends"},
    {"a=%4g%g4%%41%2541",     "a=%4g%g4%A%41\n", "no digits; decoded once"},
    {"a=x%00y&a%00b=1&%00=2&c", "a=x\nc=\n",     "NUL ends names and values"},
    {"a=1&b=2&a=3&B=4&%62=5", "a=1\nb=2\nB=4\n", "first place and value"},
  };
  // clang-format on
  for (const auto &row : rows) {
    EXPECT_EQ(CGI_OK, get(row.query)) << row.why;
    EXPECT_EQ(row.fields, fields()) << row.why;
    const string length = std::to_string(strlen(row.query));
    EXPECT_EQ(CGI_OK, post(row.query, length.c_str())) << row.why;
    EXPECT_EQ(row.fields, fields()) << "posted: " << row.why;
  }
  for (const char *method : {"GET", "HEAD", "PUT", "post", ""}) {
    EXPECT_EQ(CGI_OK, get("a=1", method));
    EXPECT_EQ("a=1\n", fields()) << method;
  }
  cgiFreeResources();
  EXPECT_EQ("", fields());
  for (const char *name : {"QUERY_STRING", "REQUEST_METHOD", "SCRIPT_NAME"}) {
    set(name, nullptr);
  }
  EXPECT_EQ(CGI_OK, cgiInit());
  EXPECT_EQ("", fields() + cgiRequestMethod + cgiScriptName);
}

TEST(Request, GivesItsFaultAndOneLogLineAndNoField)
{
  // clang-format off
  const struct {
    const char *length;
    const char *type;
    int error;
    const char *why;
  } rows[] = {
    {"3",           nullptr,               CGI_OK,         "no type"},
    {"0003",        "",                    CGI_OK,         "empty type, zeros"},
    {"3", " Application/X-WWW-Form-Urlencoded ; a=b", CGI_OK, "letter case"},
    {"3",           "multipart/form-data", CGI_BAD_TYPE,   "another type"},
    {"3", "application/x-www-form-urlencoded2", CGI_BAD_TYPE, "longer"},
    {"99999999999", "application/x-www",   CGI_BAD_TYPE,   "before its length"},
    {nullptr,       FORM,                  CGI_BAD_LENGTH, "no length"},
    {"-3",          FORM,                  CGI_BAD_LENGTH, "sign"},
    {" 3",          FORM,                  CGI_BAD_LENGTH, "blank"},
    {"3x",          FORM,                  CGI_BAD_LENGTH, "letter"},
    {"5",           FORM,                  CGI_SHORT_BODY, "ends early"},
    {"4194304",     FORM,                  CGI_SHORT_BODY, "largest length"},
    {"4194305",     FORM,                  CGI_TOO_LARGE,  "one more"},
    {"18446744073709551619", FORM,         CGI_TOO_LARGE,  "2^64 + 3"},
  };
  // clang-format on
  testing::internal::CaptureStderr();
  for (const auto &row : rows) {
    log_lines = 0;
    EXPECT_EQ(row.error, post("a=12", row.length, row.type)) << row.why;
    EXPECT_EQ(row.error == CGI_OK ? 0 : 1, log_lines) << row.why;
    EXPECT_EQ(row.error == CGI_OK ? "a=1\n" : "", fields()) << row.why;
  }
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(Request, MayBeAsLongAsTheLimitsSay)
{
  const string longest = "a=" + string(CGI_MAX_REQUEST - 2, 'x');
  EXPECT_EQ(CGI_OK, get(longest));
  EXPECT_EQ(longest + "\n", fields());
  EXPECT_EQ(CGI_TOO_LARGE, get(longest + "x"));
  EXPECT_EQ(CGI_OK, post(longest, "4194304"));
  EXPECT_EQ(longest + "\n", fields());

  string most = "0";
  for (int i = 1; i < CGI_MAX_FIELDS; i++) {
    most += "&" + std::to_string(i);
  }
  const clock_t start = clock();
  EXPECT_EQ(CGI_OK, get(most));
  // "=" and a line end each, but no separators
  EXPECT_EQ(most.size() + CGI_MAX_FIELDS + 1, fields().size());
  EXPECT_LT((clock() - start) / CLOCKS_PER_SEC, 5) << "quadratic";
  EXPECT_EQ(CGI_OK, get(string(CGI_MAX_FIELDS - 1, '&')));
  EXPECT_EQ(CGI_TOO_MANY_FIELDS, get(string(CGI_MAX_FIELDS, '&')));
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
  int length = 0;
  EXPECT_EQ(cgiFormNotFound, cgiFormString("b", buf, sizeof buf));
  EXPECT_STREQ("", buf);
  EXPECT_EQ(cgiFormNotFound, cgiFormStringSpaceNeeded("b", &length));
  EXPECT_EQ(1, length);
}

TEST(Response, HasNoBodyForHead)
{
  for (const string method : {"GET", "HEAD"}) {
    EXPECT_EQ(CGI_OK, get("", method.c_str()));
    testing::internal::CaptureStdout();
    fputs("A: b\r\n", cgiOut);
    cgiHeaderEnd();
    fputs("<p>", cgiOut);
    EXPECT_EQ(method == "GET" ? "A: b\r\n\r\n<p>" : "A: b\r\n\r\n",
              testing::internal::GetCapturedStdout());
  }
}
