// How a request is handled, from its fields to the page: main, at the bottom,
// is the only place that knows the order of the steps.
//
// One process serves one request.  Owns the page state, which starts zero,
// is written by main and the form actions, and read when the page is written.
// Every fault found before the page starts becomes an error page and exit
// status 1; from the page's first line on, only a crash can end it early.
// Every button of a page is handled here; which values are valid, how an item
// looks and what a script prints is decided elsewhere.

#include "cgi_main.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "cgi.h"
#include "cgi_intake.h"
#include "cgi_navbar.h"
#include "cgi_output.h"
#include "cgi_policy.h"
#include "html.h"
#include "orv.h"
#include "orv_changes.h"
#include "orv_check.h"
#include "orv_error.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_scripts.h"
#include "orv_submit.h"
#include "orv_vars.h"

char *scroll_y;
char *anchor_target;

// Page state.
static pt_header *hdr;                 // owned: the form shown
static pt_body_item *body;             // owned: its items
static int help_request;               // show the help texts
static int is_discard_or_return;       // the page asks about unsaved changes
static int is_continue;                // the page has a single Continue button
static int is_confirmation_form;       // neither scroll scripts nor onclick
static const char *error_msg;          // the page's message, borrowed
static int fatal;                      // a script reported the form as unusable
static html_navbar_entry *navbar_ents; // borrowed
static orv_var *changed_var;           // borrowed: what Home found changed

// --- fixed texts -------------------------------------------------------------

static const char VERSION_TEXT[] = "ORV " ORV_VERSION;
static const char AUTHOR_TEXT[] = "Marovi Systems Limited";
static const char ERROR_TITLE[] = "Configuration system error";
static const char MENU_FORM[] = "orvmenu";

// The inline script and the onclick are the only ones that the page's policy
// lets run, by the hashes of exactly these texts.
static const char ONLOAD_SCRIPT[] = "window.onload = scrollToCoordinates;\n";
static const char ONCLICK[] = "saveScrollCoordinates(document.f1);";
static const char CONTENT_SECURITY_POLICY[] =
    "default-src 'none'; style-src 'self'; img-src 'self'; "
    "connect-src 'self'; script-src 'self' 'unsafe-hashes' "
    "'sha256-NIOeoopEXJAkXnNMzwlo7ljZ1TIx37Hg25to2Ul7C00=' "
    "'sha256-clI5whcTeg/e36AmUh2dVKyCwU9WvLh0FiWf78bXIlY='; "
    "form-action 'self'; frame-ancestors 'self'; base-uri 'none'";

// --- error pages -------------------------------------------------------------

static void begin_document(enum html_http_status status, const char *title)
{
  html_content_security_policy(CONTENT_SECURITY_POLICY);
  html_begin(status, title, VERSION_TEXT, AUTHOR_TEXT);
  html_head_stylesheet(8, "/css/orv.css");
}

// Writes a complete error page and ends the process.
[[noreturn]] static void html_fatal_error(enum html_http_status status,
                                          const char *title, const char *error)
{
  begin_document(status, title);
  html_body_begin("error", nullptr);
  html_main_begin();
  html_heading(0, title, nullptr, "error", nullptr);
  html_p_begin("error", nullptr);
  html_escape(error);
  html_p_end();
  html_main_end();
  html_body_end();
  html_end();
  exit(EXIT_FAILURE);
}

// The recorded message, or `otherwise` where none says more.
static const char *recorded_message(const char *otherwise)
{
  return orv_error_msg != nullptr ? orv_error_msg : otherwise;
}

// --- the crash catcher -------------------------------------------------------

constexpr size_t CRASH_MESSAGE_SIZE = 100;
// The catcher runs on a stack of its own, since a crash may be an overflow.
constexpr size_t CRASH_STACK_SIZE = 64UL * 1024;
// A crash inside the C library may leave a lock held: the page is attempted,
// but not waited for.
constexpr unsigned CRASH_PAGE_SECONDS = 2;

static void segv_trap(int sig, siginfo_t *info, void *locn)
{
  char message[CRASH_MESSAGE_SIZE];
  alarm(CRASH_PAGE_SECONDS);
  snprintf(message, sizeof message, "SegV(%d): addr %p locn %p", sig,
           info->si_addr, locn);
  html_fatal_error(html_http_status_server_error,
                   "Configuration System Error SegV", message);
}

// A signal that the web server left blocked or ignored would end the process
// without a page, or not at all.
static void admit_crash_signals()
{
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGSEGV);
  sigaddset(&signals, SIGALRM);
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);
  signal(SIGALRM, SIG_DFL);
}

static void install_segv_trap()
{
  admit_crash_signals();
  static char stack[CRASH_STACK_SIZE];
  stack_t alternative = {};
  alternative.ss_sp = stack;
  alternative.ss_size = sizeof stack;
  sigaltstack(&alternative, nullptr);

  struct sigaction action = {};
  action.sa_sigaction = segv_trap;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGSEGV, &action, nullptr) != 0) {
    orv_error_msg = "Problem setting the segv catcher.";
  }
}

// --- the request intake ------------------------------------------------------

// Ends a request that the policy refuses, before anything of it is taken in.
static void refuse_forbidden()
{
  if (!cgi_policy_admits()) {
    html_fatal_error(html_http_status_forbidden, ERROR_TITLE,
                     "The request was refused.");
  }
}

static void replace(char **global, char *value)
{
  free(*global);
  *global = value;
}

// --- form actions ------------------------------------------------------------
// Each returns nonzero to keep the variables that came with the request, 0 to
// have the form's variables read afresh.

// Makes the page a confirmation whose Continue button leads to `where`.
static void do_continue_refresh(const char *where)
{
  replace(&orv_continue, must_strdup(where));
  is_continue = 1;
  is_confirmation_form = 1;
}

// Goes to another form, after a question when there are unsaved changes.
static int action_goto(const char *new_form)
{
  changed_var = orv_vars_changed(&cfg_vars);
  if (changed_var == nullptr) {
    replace(&orv_form, must_strdup(new_form));
    return 0;
  }
  replace(&orv_return, orv_form);
  orv_form = must_strdup("discard_or_return");
  replace(&orv_continue, must_strdup(new_form));
  is_discard_or_return = 1;
  is_confirmation_form = 1;
  return 1;
}

static void free_form()
{
  orv_free_body(body);
  body = nullptr;
  orv_free_header(hdr);
  hdr = nullptr;
}

// Shows a confirmation form in place of the form that was submitted.
static int confirm(const char *form)
{
  replace(&orv_form, must_strdup(form));
  do_continue_refresh(MENU_FORM);
  free_form();
  return 1;
}

// Shows the submitted form again, with a message.
static int refuse(const char *message)
{
  error_msg = message;
  return 1;
}

static int action_submit()
{
  orv_refusal refusal = orv_submit_rows();
  if (refusal != nullptr) {
    return refuse(refusal);
  }
  hdr = orv_parse_header(orv_form, orv_subitem);
  if (hdr == nullptr) {
    return 0;
  }
  cgi_get_navbar(hdr, &navbar_ents);
  if (!orv_submit_is_due()) {
    return confirm("no_changes");
  }
  body = orv_parse_body(hdr);
  if (body == nullptr) {
    return 0;
  }
  refusal = orv_submit_judge(hdr, body);
  if (refusal == nullptr) {
    refusal = orv_submit_save(hdr);
  }
  if (refusal != nullptr) {
    return refuse(refusal);
  }
  // A bar shows what the device has; a save that changes that says so.
  if (orv_get_var(&cfg_vars, "saved_navbar", o_user) != nullptr) {
    cgi_get_navbar(hdr, &navbar_ents);
  }
  return confirm("changes_saved");
}

static int action_help()
{
  help_request = 1;
  return 1;
}

static int action_expert()
{
  orv_expert_mode = 1;
  return 1;
}

static int action_simple()
{
  orv_expert_mode = 0;
  return 1;
}

static int action_home()
{
  return action_goto(MENU_FORM);
}

// Leaves a confirmation for the form named by the first global, and clears the
// other one.
static void leave_confirmation(char **taken, char **forgotten)
{
  replace(&orv_form, *taken);
  *taken = nullptr;
  replace(forgotten, nullptr);
}

static int action_continue()
{
  leave_confirmation(&orv_continue, &orv_return);
  return 0;
}

static int action_return()
{
  leave_confirmation(&orv_return, &orv_continue);
  return 1;
}

// --- the buttons -------------------------------------------------------------

enum button_state { SHOWN, DISABLED, ABSENT };

static button_state always()
{
  return SHOWN;
}

static button_state home_state()
{
  return strcmp(orv_form, MENU_FORM) == 0 ? DISABLED : SHOWN;
}

static button_state help_state()
{
  return !hdr->help_mode || help_request != 0 || fatal != 0 ? DISABLED : SHOWN;
}

// Two buttons in one place, by the view that is shown.
static button_state view_state(bool is_for_simple)
{
  const bool is_simple = !hdr->expert_mode || orv_expert_mode == 0;
  if (is_simple != is_for_simple) {
    return ABSENT;
  }
  return !hdr->expert_mode || fatal != 0 ? DISABLED : SHOWN;
}

static button_state expert_state()
{
  return view_state(true);
}

static button_state simple_state()
{
  return view_state(false);
}

static button_state submit_state()
{
  return hdr->has_input_fields ? SHOWN : DISABLED;
}

// The bars: the classes of their elements, of which a page has one.
static const char BOTTOM_BAR[] = "bottombar";
static const char CONTINUE_BAR[] = "continuebar";
static const char DISCARD_BAR[] = "discardbar";

// All buttons, on each bar in this order.  The label is also what a page posts.
// clang-format off
static const struct page_button {
  const char *label;
  int (*act)();
  const char *bar;
  const char *css_class;
  button_state (*state)();
} buttons[] = {
  {"Home",              action_home,     BOTTOM_BAR,   BOTTOM_BAR,  home_state},
  {"Help",              action_help,     BOTTOM_BAR,   BOTTOM_BAR,  help_state},
  {"Simple",            action_simple,   BOTTOM_BAR,   BOTTOM_BAR,  simple_state},
  {"Expert",            action_expert,   BOTTOM_BAR,   BOTTOM_BAR,  expert_state},
  {"Submit",            action_submit,   BOTTOM_BAR,   BOTTOM_BAR,  submit_state},
  {"Continue",          action_continue, CONTINUE_BAR, "continue",  always},
  {"Discard changes",   action_continue, DISCARD_BAR,  DISCARD_BAR, always},
  {"Return to changes", action_return,   DISCARD_BAR,  DISCARD_BAR, always},
};
// clang-format on

static int check_action()
{
  if (orv_action != nullptr) {
    for (const page_button &button : buttons) {
      if (strcmp(orv_action, button.label) == 0) {
        return button.act();
      }
    }
  }
  return 1;
}

// --- the form to show --------------------------------------------------------

static void choose_form()
{
  if (orv_form == nullptr) {
    orv_form = must_strdup(MENU_FORM);
    replace(&orv_subitem, nullptr);
  }
}

static void load_header()
{
  if (hdr == nullptr && orv_form != nullptr) {
    hdr = orv_parse_header(orv_form, orv_subitem);
  }
  if (hdr == nullptr && orv_error_msg == nullptr) {
    orv_error_msg = "Failed to parse template header";
  }
  if (orv_error_msg != nullptr) {
    html_fatal_error(html_http_status_not_found, ERROR_TITLE, orv_error_msg);
  }
}

// Why a read script failed, in its own words where it has any.
static const char *read_fault()
{
  static char *text; // owned, to the end of the process
  const char *said = err_vars != nullptr
                         ? orv_get_var(&err_vars, "msg", o_undefined)
                         : nullptr;
  text = said != nullptr && said[0] != '\0' ? orv_plain_text(said) : nullptr;
  return recorded_message(text != nullptr ? text
                                          : "The form's read script failed.");
}

static void read_configuration()
{
  if (orv_load_vars(hdr->read_script, 0) < 0) {
    html_fatal_error(html_http_status_not_found, ERROR_TITLE, read_fault());
  }
}

// The records "msg" and "fatal" concern the whole page.
static void take_page_errors()
{
  if (err_vars == nullptr) {
    return;
  }
  const char *msg = orv_get_var(&err_vars, "msg", o_undefined);
  if (msg != nullptr) {
    error_msg = msg;
  }
  fatal = orv_get_var(&err_vars, "fatal", o_undefined) != nullptr ? 1 : 0;
}

static void load_body()
{
  if (body == nullptr) {
    body = orv_parse_body(hdr);
  }
  if (body == nullptr) {
    html_fatal_error(html_http_status_server_error, ERROR_TITLE,
                     recorded_message("The form is empty."));
  }
}

// --- the page ----------------------------------------------------------------

static void write_head()
{
  if (cgiout_carries_secret(body)) {
    html_no_store();
  }
  begin_document(html_http_status_ok, orv_out_expand(hdr->title));
  if (is_confirmation_form == 0) {
    html_script_include(nullptr, nullptr, "/js/position.js");
    html_script_include(nullptr, nullptr, "/js/kwt_scroller.js");
    html_script_begin(nullptr, nullptr, nullptr);
    fputs(ONLOAD_SCRIPT, cgiOut);
    html_script_end();
  }
}

// The bar of the form shown; the question about unsaved changes shows that of
// the form which has them.
static void write_navbar()
{
  if (is_discard_or_return != 0) {
    pt_header *tmphdr = orv_parse_header(orv_return, orv_subitem);
    if (tmphdr != nullptr) {
      cgi_get_navbar(tmphdr, &navbar_ents);
      orv_free_header(tmphdr);
    }
  } else if (navbar_ents == nullptr) {
    cgi_get_navbar(hdr, &navbar_ents);
  }
  if (navbar_ents != nullptr) {
    cgi_navbar_mark(navbar_ents, orv_form, orv_subitem);
    html_navbar_simple(nullptr, navbar_ents, nullptr);
  }
}

static void write_button(const page_button &button, bool disabled)
{
  static html_attribute attr_onclick = {"onclick", ONCLICK, nullptr};
  static html_attribute attr_disabled = {"disabled", "disabled", nullptr};
  html_attribute *attrs = is_confirmation_form != 0 ? nullptr : &attr_onclick;
  if (disabled) {
    attr_disabled.next = attrs;
    attrs = &attr_disabled;
  }
  html_form_submit("action", button.label, button.css_class, attrs);
}

static void write_buttons()
{
  const char *bar = is_discard_or_return != 0 ? DISCARD_BAR
                    : is_continue != 0        ? CONTINUE_BAR
                                              : BOTTOM_BAR;
  html_div_begin(bar, nullptr);
  for (const page_button &button : buttons) {
    const button_state state = button.bar == bar ? button.state() : ABSENT;
    if (state != ABSENT) {
      write_button(button, state == DISABLED);
    }
  }
  html_div_end();
}

static const char *text_or_null(const char *text)
{
  return text != nullptr ? text : "(null)";
}

static void write_page()
{
  write_head();
  html_body_begin(nullptr, nullptr);
  cgi_navbar_comments();
  if (changed_var != nullptr) {
    html_comment("Changed var %s, %s -> %s ", changed_var->name,
                 text_or_null(changed_var->o_value),
                 text_or_null(changed_var->u_value));
  }
  write_navbar();
  html_main_begin();
  if (!hdr->no_header) {
    cgi_set_default_heading(hdr->title);
  }
  cgi_body_output(body, help_request, error_msg);
  cgiout_close_table();
  cgiout_start_form();
  write_buttons();
  cgiout_close_form();
  orv_output_cleanup();
  html_main_end();
  html_body_end();
  html_end();
}

static void clean_up()
{
  free(scroll_y);
  free(anchor_target);
  orv_free_vars(&cfg_vars);
  orv_free_vars(&err_vars);
  orv_free_vars(&del_vars);
  orv_free_vars(&failed_cells);
  free_form();
  cgiFreeResources();
}

// --- main --------------------------------------------------------------------

// A descriptor that the web server left closed would be taken by the first
// file or pipe that is opened.
static void open_standard_descriptors()
{
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
    if (fcntl(fd, F_GETFD) < 0) {
      open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
    }
  }
}

int main()
{
  open_standard_descriptors();
  orv_script_signals();
  install_segv_trap();
  const int error = cgiInit();
  if (error != 0) {
    fprintf(stderr, "cgiInit() failed! error %d\n", error);
    return error;
  }
  orv_fatal_no_exit = 1;
  refuse_forbidden();
  orv_init_env();
  unsetenv("ORV_SECRETS");     // by which read scripts know a backup
  unsetenv("ORV_TRANSACTION"); // of orvctl; no request takes part in one
  int vars_loaded = cgi_load_vars();
  if (vars_loaded != 0 && orv_form != nullptr) {
    vars_loaded = check_action();
  }
  choose_form();
  load_header();
  if (vars_loaded == 0) {
    read_configuration();
  }
  take_page_errors();
  load_body();
  orv_mark_cells(body);
  write_page();
  clean_up();
  return EXIT_SUCCESS;
}
