// Which requests are refused, and what becomes of the line ends in the values
// of the others.
//
// There are two policies.  The open one admits everything.  The strict one is
// for a device in use: it refuses what no page of the device itself would send.
// It is chosen when the program is built, or by ORV_POLICY=strict in the
// environment, which can only make the policy stricter.  ORV_HOSTS in the
// environment lists more host names that the strict policy accepts, besides
// those that nobody else can own.

#ifndef CGI_POLICY_H
#define CGI_POLICY_H

// What the request's headers say, and what is known of the device; "" where
// nothing is known, never NULL.
struct policy_request {
  bool has_page_state; // it carries the state of a page, and so may act
  const char *method;
  const char *fetch_site; // the header Sec-Fetch-Site
  const char *origin;     // the header Origin
  const char *host;       // the header Host
  const char *port;       // the port that the web server was reached at
  const char *own_hosts;  // further names of the device, between blanks
};

// Why the strict policy refuses such a request, NULL when it does not.
const char *policy_request_fault(const policy_request *request);

// The same for one of its fields; `value` as cgi_policy_value gives it.
const char *policy_field_fault(const policy_request *request, const char *name,
                               const char *value);

// Whether the strict policy holds.
bool cgi_policy_is_strict(void);

// Whether the decoded request may be taken in; when it may not, the reason has
// been reported by orv_error.  To be called before the first script, which
// then finds no variable that a request's header has put into its environment.
bool cgi_policy_admits(void);

// The value of the request's field as the policy lets it in, owned by the
// caller; NULL when memory ran out (reported).
char *cgi_policy_value(const char *name);

#endif
