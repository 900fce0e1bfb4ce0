// HTML elements on the response stream (cgiOut), in the WHATWG's HTML.
//
// Every text and attribute value that a caller passes is written escaped for
// its context; nothing else in the program writes foreign bytes into a page.
// An argument that is NULL is left out.  `css_class` is the class attribute,
// `attrs` a chain of further attributes.  All arguments are borrowed for the
// call.  Nothing here fails: a broken response stream is the web server's
// business, and its error stays readable by ferror(cgiOut).

#ifndef HTML_H
#define HTML_H

#include <stddef.h>

#include "html_records.h"

// What the status line says of a page; the values index its texts.
enum html_http_status {
  html_http_status_ok = 0,
  html_http_status_unauthorised = 1,
  html_http_status_forbidden = 2,
  html_http_status_not_found = 3,
  html_http_status_server_error = 4,
};

// --- the document ------------------------------------------------------------

// The Content-Security-Policy of the page that html_begin starts next;
// borrowed.  Without a call no such header line is written.
void html_content_security_policy(const char *policy);

// The page that html_begin starts next is not to be stored by the browser.
void html_no_store(void);

// Writes the header lines (unless the response has already begun) and opens
// the page's head.  `version` goes into the generator, `author` into the
// author meta element.
void html_begin(enum html_http_status status, const char *title,
                const char *version, const char *author);
void html_end(void);

// Links the style sheet `url`; `flags` is reserved and has no effect.
void html_head_stylesheet(int flags, const char *url);
// Includes the script file `url`, run before anything behind it is parsed.
void html_script_include(const char *type, const char *charset,
                         const char *url);
// An inline script: between the two the caller writes its lines on cgiOut.
void html_script_begin(const char *type, const char *charset,
                       const html_attribute *attrs);
void html_script_end(void);

void html_body_begin(const char *css_class, const html_attribute *attrs);
void html_body_end(void);

// The landmark around all that a page shows but its navigation bar.
void html_main_begin(void);
void html_main_end(void);

// A navigation bar from a list ended by an entry whose label is NULL; `label`
// names the landmark ("Navigation" when NULL).
void html_navbar_simple(const char *label, const html_navbar_entry *entries,
                        const html_attribute *attrs);

// --- text --------------------------------------------------------------------

// A comment that its text cannot end early.
void html_comment(const char *format, ...)
    __attribute__((format(printf, 1, 2)));

// Heading of `level` 0 (h1) or 1 (h2).
void html_heading(int level, const char *text, const char *id,
                  const char *css_class, const html_attribute *attrs);

// Text between tags, escaped; the second for a part of a text, up to the code
// of a value or of markup in it.
void html_escape(const char *text);
void html_escape_data(const char *text, size_t length);

void html_p_begin(const char *css_class, const html_attribute *attrs);
void html_p_end(void);
void html_div_begin(const char *css_class, const html_attribute *attrs);
void html_div_end(void);
void html_span_begin(const char *css_class, const html_attribute *attrs);
void html_span_end(void);
void html_em_begin(const char *css_class, const html_attribute *attrs);
void html_em_end(void);
void html_label_begin(const char *control_id, const char *css_class,
                      const html_attribute *attrs);
void html_label_end(void);
void html_ul_begin(const char *css_class, const html_attribute *attrs);
void html_ul_end(void);
void html_li_begin(const char *css_class, const html_attribute *attrs);
void html_li_end(void);
void html_a_begin(const char *url, const char *css_class,
                  const html_attribute *attrs);
void html_a_end(void);
void html_br(const char *css_class, const html_attribute *attrs);

// --- tables ------------------------------------------------------------------

void html_table_begin(const char *id, const char *css_class,
                      const html_attribute *attrs);
void html_table_end(void);
void html_thead_begin(const char *css_class, const html_attribute *attrs);
void html_thead_end(void);
void html_tr_begin(const char *css_class, const html_attribute *attrs);
void html_tr_end(void);
void html_th_begin(const char *css_class, const html_attribute *attrs);
void html_th_end(void);
void html_td_begin(const char *css_class, const html_attribute *attrs);
void html_td_end(void);

// --- forms -------------------------------------------------------------------

// `action` NULL: the executable's own URL; `method` NULL: "post".
void html_form_begin(const char *action, const char *method,
                     const html_attribute *attrs);
void html_form_end(void);
void html_form_hidden(const char *name, const char *value, const char *id,
                      const html_attribute *attrs);
// A one-line text input; without a value it has no value attribute.
void html_form_text_input(const char *name, const char *value, const char *id,
                          const char *css_class, const char *title,
                          const char *maxlength, const html_attribute *attrs);
// The same for a value that nobody else should see.
void html_form_password_input(const char *name, const char *value,
                              const html_attribute *attrs);
// A browser posts `value` for a ticked box, and nothing at all for any other.
void html_form_checkbox(const char *name, const char *value, int checked,
                        const char *id, const char *title,
                        const char *css_class, const html_attribute *attrs);
// A selection list that shows `rows` options at a time.
void html_form_list(const char *name, int rows, const char *id,
                    const html_form_list_opt *options, const char *css_class,
                    const html_attribute *attrs);
void html_form_submit(const char *name, const char *label,
                      const char *css_class, const html_attribute *attrs);

#endif
