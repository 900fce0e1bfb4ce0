// Request decoding for a CGI program (RFC 3875), one request per process.
//
// Method POST reads an application/x-www-form-urlencoded body, every other
// method the query string.  "&" separates fields, "+" is a blank, "%xx" one
// byte; a "%" without two hexadecimal digits stays as it is.  A name that
// comes more than once is listed once, at its first place, with its first
// value.

#ifndef CGI_H
#define CGI_H

#include <stdio.h>

// A whole request, inclusive: a table of 5,000 rows with its hidden state must
// fit, and a small device must not be filled by one request.
constexpr long CGI_MAX_REQUEST = 4L * 1024 * 1024;
// Pieces between separators, empty ones included, for the same reason.
constexpr int CGI_MAX_FIELDS = 100000;

// What cgiInit found wrong; the value is the process' exit status.
enum cgi_error {
  CGI_OK = 0,
  CGI_BAD_TYPE = 1,        // POST with another content type than form fields
  CGI_BAD_LENGTH = 2,      // POST with no length, or one that is no number
  CGI_TOO_LARGE = 3,       // more than CGI_MAX_REQUEST bytes
  CGI_SHORT_BODY = 4,      // the body ended (or failed) before its length
  CGI_TOO_MANY_FIELDS = 5, // more than CGI_MAX_FIELDS pieces
  CGI_NO_MEMORY = 6,
};

enum cgiFormResultType {
  cgiFormSuccess = 0,
  cgiFormTruncated = 1, // the buffer was too short, the value was cut
  cgiFormMemory = 4,    // memory ran out
  cgiFormNotFound = 7,  // the request has no field of that name
};

// The response stream, fully buffered; usable before cgiInit and after it.
extern FILE *cgiOut;
// The program's own URL path (SCRIPT_NAME), never NULL; borrowed.
extern const char *cgiScriptName;
// The request's method (REQUEST_METHOD), never NULL, "" when there is none.
extern const char *cgiRequestMethod;

// Decodes the request.  CGI_OK, or the fault found, whose reason then stands
// in the system log; nothing has been decoded in that case.
int cgiInit(void);

// The names of all fields, in the request's order, as a NULL-terminated array
// owned by the caller (cgiStringArrayFree).  cgiFormSuccess or cgiFormMemory,
// in which case `*names` is NULL.
cgiFormResultType cgiFormEntries(char ***names);

// The bytes that the value of `name` needs, its terminator included; 1 with
// cgiFormNotFound when there is no such field.
cgiFormResultType cgiFormStringSpaceNeeded(const char *name, int *length);

// Copies the value of `name` into `buf` of `length` bytes, always terminated;
// the empty string with cgiFormNotFound when there is no such field.
cgiFormResultType cgiFormString(const char *name, char *buf, int length);

// Releases an array of cgiFormEntries; NULL is allowed.
void cgiStringArrayFree(char **names);

// Ends the response's header lines.  For a HEAD request whatever follows on
// cgiOut is dropped (RFC 9110, 9.3.2).
void cgiHeaderEnd(void);

// Releases the request's data; cgiScriptName and cgiRequestMethod stay valid.
void cgiFreeResources(void);

#endif
