// Validation of submitted values.
//
// orv_check_vars walks a body in template order, follows its conditional
// sections, and checks every input item: first the rules that hold for all
// text fields, then the check that the template names for this one.  A failure
// is a message in err_vars under the field's name; every failure is recorded
// and none ends the walk.  Values are normalised where they lie in cfg_vars,
// so that scripts receive what was checked.
//
// The state below belongs to one walk, which resets it at its start.  Mistakes
// of the template (an unknown check, bad options) are told in our own words,
// because the template's message speaks of the user's value.  When memory runs
// out the report that the memory helpers have made turns the request into an
// error page, so a check then only gives up.
//
// Nothing here draws, and a check of the file system only looks: what is named
// may have changed by the time a script uses it.

#include "orv_check.h"

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <grp.h>
#include <limits.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pwd.h>
#include <regex.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "orv.h"
#include "orv_guard.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_vars.h"

static int error_count;                    // failures recorded in this walk
static int is_displayed;                   // 1 unless inside a false section
static int cond_stack[ORV_CONDITIONS_MAX]; // 1 or 0, outermost section first
static int *cond_sp = cond_stack;          // next free entry

// --- recording failures ------------------------------------------------------

// Messages are short lines on the page; what is composed here is cut there.
constexpr size_t LABELLED_SIZE = ORV_LABELLED_MAX + 1;
constexpr size_t SUMMARY_SIZE = 80; // the number of errors
constexpr size_t INT_RANGE_SIZE = 40;
constexpr size_t REAL_RANGE_SIZE = 100;
constexpr size_t ROW_SIZE = 24; // a long in decimal, terminated

// Replaces the user value, in its own buffer where the text fits.  A record
// that gets no copy stays without a message, and the failure is counted.
static void store_message(orv_var *record, const char *text)
{
  const size_t size = strlen(text) + 1;
  if (record->u_value != nullptr && strlen(record->u_value) + 1 >= size) {
    memcpy(record->u_value, text, size);
    return;
  }
  free(record->u_value);
  record->u_value = must_strdup(text);
}

static void set_error(const char *err_name, const char *tpl_text,
                      const char *def_text, const char *var_label)
{
  error_count++;
  orv_var *record = orv_find_var(&err_vars, err_name, 1);
  if (record == nullptr) {
    return;
  }
  if (tpl_text != nullptr) {
    store_message(record, tpl_text);
    return;
  }
  const char *text = def_text != nullptr ? def_text : "Unspecified error";
  if (var_label == nullptr) {
    store_message(record, text);
    return;
  }
  char labelled[LABELLED_SIZE];
  snprintf(labelled, sizeof labelled, "%s: %s", var_label, text);
  store_message(record, labelled);
}

// Records what a rule has found, if anything (NULL: the value passes).
static void record_fault(const char *fault, const char *tpl_error,
                         const char *err_name, const char *var_label)
{
  if (fault != nullptr) {
    set_error(err_name, tpl_error, fault, var_label);
  }
}

// --- text --------------------------------------------------------------------

#define ASCII_ALNUM                                                            \
  "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"

// The word that follows the one at `word`, "" behind the last.
static const char *next_word(const char *word, const char *blanks)
{
  word += strcspn(word, blanks);
  return word + strspn(word, blanks);
}

// The first character of `text` that is not in `allowed`, or its end.
static char first_other(const char *text, const char *allowed)
{
  return text[strspn(text, allowed)];
}

void chk_text(char *, const char *, const char *, const char *, const char *)
{
}

void chk_word(char *value, const char *, const char *tpl_error,
              const char *err_name, const char *var_label)
{
  const char other = first_other(value, ASCII_ALNUM "-_");
  if (other != '\0') {
    set_error(err_name, tpl_error,
              other == ' ' ? "Single word is required"
                           : "Illegal character in word",
              var_label);
  }
}

void chk_keyword(char *value, const char *options, const char *tpl_error,
                 const char *err_name, const char *var_label)
{
  const size_t length = strlen(value);
  for (const char *word = options; *word != '\0'; word = next_word(word, " ")) {
    if (strcspn(word, " ") == length && strncasecmp(word, value, length) == 0) {
      return;
    }
  }
  set_error(err_name, tpl_error, "Unknown keyword entered", var_label);
}

void chk_email(char *value, const char *, const char *tpl_error,
               const char *err_name, const char *var_label)
{
  const char *fault = nullptr;
  const char *at = strchr(value, '@');
  if (first_other(value, ASCII_ALNUM "_.-+@") != '\0') {
    fault = "Illegal character in email address";
  } else if (at == nullptr) {
    fault = "Missing @ in email address";
  } else if (strchr(at + 1, '@') != nullptr) {
    fault = "Too many @s in email address";
  }
  record_fault(fault, tpl_error, err_name, var_label);
}

// --- numbers -----------------------------------------------------------------

// strtol held to 32 bits, whatever the width of a long.
static int to_int32(const char *text, char **end, int base)
{
  const long number = strtol(text, end, base);
  return static_cast<int>(
      std::max<long>(INT_MIN, std::min<long>(number, INT_MAX)));
}

// A range's limit: decimal, hexadecimal behind 0x or octal behind 0.
static int to_limit(const char *text, char **end)
{
  return to_int32(text, end, 0);
}

enum range_kind {
  RANGE_NONE,   // no number: every value is in range
  RANGE_UPPER,  // one number, the upper limit; the lower is 0
  RANGE_BOTH,   // two numbers, in either order
  RANGE_EXTRAS, // something stands directly behind the second number
};

static const char RANGE_EXTRAS_TEXT[] = "Extras after template range options ?";

// Reads the range from a check's options.  `convert` works as strtod does; it
// is preferred to sscanf because it says what a number too large becomes.
template <typename T>
static range_kind read_range(const char *options,
                             T (*convert)(const char *, char **), T *low,
                             T *high)
{
  char *end;
  const T first = convert(options, &end);
  if (end == options) {
    return RANGE_NONE;
  }
  const char *rest = end;
  const T second = convert(rest, &end);
  if (end == rest) {
    *low = 0;
    *high = first;
    return RANGE_UPPER;
  }
  *low = std::min(first, second);
  *high = std::max(first, second);
  return *end == '\0' ? RANGE_BOTH : RANGE_EXTRAS;
}

// Base 0 means decimal, or hexadecimal behind 0x; a leading 0 is no octal,
// because users fill up numbers with zeros.
static void chk_num(const char *value, const char *options,
                    const char *tpl_error, const char *err_name,
                    const char *var_label, int base, int sign_allowed)
{
  if (sign_allowed == 0 && (value[0] == '-' || value[0] == '+')) {
    set_error(err_name, tpl_error, "Number is not allowed to be signed",
              var_label);
    return;
  }
  if (base == 0) {
    base = strncasecmp(value, "0x", 2) == 0 ? 16 : 10;
  }
  char *end;
  const int number = to_int32(value, &end, base);
  if (*end != '\0') {
    set_error(err_name, tpl_error, "Badly formed number", var_label);
    return;
  }
  int low;
  int high;
  const range_kind kind = read_range(options, to_limit, &low, &high);
  if (kind == RANGE_EXTRAS) {
    set_error(err_name, nullptr, RANGE_EXTRAS_TEXT, var_label);
  } else if (kind != RANGE_NONE && (number < low || number > high)) {
    char text[INT_RANGE_SIZE];
    snprintf(text, sizeof text, "Number out of range %d..%d", low, high);
    set_error(err_name, tpl_error, text, var_label);
  }
}

void chk_decimal(char *value, const char *options, const char *tpl_error,
                 const char *err_name, const char *var_label)
{
  chk_num(value, options, tpl_error, err_name, var_label, 10, 0);
}

void chk_number(char *value, const char *options, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  chk_num(value, options, tpl_error, err_name, var_label, 0, 0);
}

void chk_signed(char *value, const char *options, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  chk_num(value, options, tpl_error, err_name, var_label, 10, 1);
}

// With one limit given, values below 0 are let through, whatever the message
// says.  A value that is not a number compares with nothing, so it passes.
void chk_real(char *value, const char *options, const char *tpl_error,
              const char *err_name, const char *var_label)
{
  char *end;
  errno = 0;
  const double number = strtod(value, &end);
  if (*end != '\0' || errno == ERANGE) {
    set_error(err_name, tpl_error, "Invalid real number", var_label);
    return;
  }
  double low;
  double high;
  const range_kind kind = read_range(options, strtod, &low, &high);
  if (kind == RANGE_EXTRAS) {
    set_error(err_name, nullptr, RANGE_EXTRAS_TEXT, var_label);
  } else if ((kind == RANGE_BOTH && number < low) ||
             (kind != RANGE_NONE && number > high)) {
    char text[REAL_RANGE_SIZE];
    snprintf(text, sizeof text, "Number out of range %f..%f", low, high);
    set_error(err_name, tpl_error, text, var_label);
  }
}

// --- patterns ----------------------------------------------------------------

static void chk_Xregex(const char *value, const char *options,
                       const char *tpl_error, const char *err_name,
                       const char *var_label, int flags)
{
  regex_t pattern;
  if (regcomp(&pattern, options, flags | REG_NOSUB) != 0) {
    set_error(err_name, nullptr, "Bad regular expression in check options",
              var_label);
    return;
  }
  if (regexec(&pattern, value, 0, nullptr, 0) != 0) {
    set_error(err_name, tpl_error, "Incorrect format", var_label);
  }
  regfree(&pattern);
}

void chk_regex(char *value, const char *options, const char *tpl_error,
               const char *err_name, const char *var_label)
{
  chk_Xregex(value, options, tpl_error, err_name, var_label, REG_EXTENDED);
}

void chk_iregex(char *value, const char *options, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  chk_Xregex(value, options, tpl_error, err_name, var_label,
             REG_EXTENDED | REG_ICASE);
}

// --- network addresses -------------------------------------------------------

constexpr unsigned ALLOW_IPV4 = 1;
constexpr unsigned ALLOW_IPV6 = 2;
constexpr unsigned ALLOW_HOSTNAME = 4;
constexpr unsigned ALLOW_BITS = 8;    // "/number of bits" may follow
constexpr unsigned REQUIRE_BITS = 16; // it must
constexpr unsigned ALLOW_ADDRESS = ALLOW_IPV4 | ALLOW_IPV6 | ALLOW_HOSTNAME;

constexpr int IPV4_BITS = 32;
constexpr int BITS_MAX = 128; // an IPv6 address, or what a name stands for
constexpr size_t HOSTNAME_MAX = 67; // a DNS label of 63 and a short domain
constexpr int PORT_MAX = 65535;

// What the options allow.  A word is known by its beginning; unknown words are
// ignored.
static unsigned read_address_options(const char *options)
{
  // clang-format off
  static const struct {
    const char *word;
    unsigned flag;
  } words[] = {
    {"ipv4",     ALLOW_IPV4},
    {"ipv6",     ALLOW_IPV6},
    {"hostname", ALLOW_HOSTNAME},
    {"optcidr",  ALLOW_BITS},
    {"cidr",     REQUIRE_BITS},
  };
  // clang-format on
  static const char blanks[] = " \t\n\v\f\r";

  unsigned flags = 0;
  for (const char *word = options + strspn(options, blanks); *word != '\0';
       word = next_word(word, blanks)) {
    for (const auto &row : words) {
      if (strncmp(word, row.word, strlen(row.word)) == 0) {
        flags |= row.flag;
      }
    }
  }
  return flags;
}

// Cuts the number of bits off `address`, where the options ask for one.
static const char *take_bits(char *address, unsigned flags, int *bits)
{
  char *slash = strchr(address, '/');
  *bits = 0;
  if ((flags & REQUIRE_BITS) == 0 &&
      ((flags & ALLOW_BITS) == 0 || slash == nullptr)) {
    return nullptr;
  }
  if (slash == nullptr) {
    return "Missing CIDR label or netmask length.  "
           "Add trailing /number of bits ?";
  }
  *slash = '\0';
  char *end;
  *bits = to_int32(slash + 1, &end, 10);
  if (*bits < 0 || *end != '\0') {
    return "Bad format number for CIDR label or netmask length after the /";
  }
  return nullptr;
}

static bool is_host_name(const char *text)
{
  return text[0] != '-' && strlen(text) <= HOSTNAME_MAX &&
         first_other(text, ASCII_ALNUM ".-") == '\0';
}

// An address that is IPv4 where that is allowed has the fewest bits, even if a
// host name, too, would do.
static const char *address_fault(const char *address, unsigned flags, int bits)
{
  in6_addr binary; // large enough for either family
  const bool is_ipv4 =
      (flags & ALLOW_IPV4) != 0 && inet_pton(AF_INET, address, &binary) == 1;
  const bool is_other =
      ((flags & ALLOW_IPV6) != 0 &&
       inet_pton(AF_INET6, address, &binary) == 1) ||
      ((flags & ALLOW_HOSTNAME) != 0 && is_host_name(address));
  if (!is_ipv4 && !is_other) {
    return "Invalid address";
  }
  return bits <= (is_ipv4 ? IPV4_BITS : BITS_MAX)
             ? nullptr
             : "Invalid CIDR label or number of bits after /";
}

void chk_ipaddr(char *value, const char *options, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  const unsigned flags = read_address_options(options);
  if ((flags & ALLOW_ADDRESS) == 0) {
    set_error(err_name, nullptr,
              "Check options don't allow any type of address", var_label);
    return;
  }
  const owned_text address(must_strdup(value));
  if (address == nullptr) {
    set_error(err_name, nullptr, nullptr, var_label);
    return;
  }
  int bits;
  const char *fault = take_bits(address.get(), flags, &bits);
  if (fault == nullptr) {
    fault = address_fault(address.get(), flags, bits);
  }
  record_fault(fault, tpl_error, err_name, var_label);
}

void chk_ipservice(char *value, const char *, const char *tpl_error,
                   const char *err_name, const char *var_label)
{
  char *end;
  const int port = to_int32(value, &end, 10);
  if (*end == '\0' && port >= 0 && port <= PORT_MAX) {
    return;
  }
  if (getservbyname(value, nullptr) == nullptr) {
    set_error(err_name, tpl_error, "Not a valid port number or service name",
              var_label);
  }
}

// --- files -------------------------------------------------------------------

constexpr size_t PATH_LENGTH_MIN = 2;    // "/" alone names nothing to create
constexpr size_t PATH_LENGTH_MAX = 4096; // the kernel's PATH_MAX

static const char UNKNOWN_OPTION[] = "Unknown option in file check";

// Tests that `path` names an object of the type `type` (of S_IFMT).
static const char *object_fault(const char *path, mode_t type,
                                const char *missing, const char *wrong)
{
  struct stat info;
  if (stat(path, &info) != 0) {
    return missing;
  }
  return (info.st_mode & S_IFMT) == type ? nullptr : wrong;
}

// Tests that the first `length` characters of `path` name a directory.  The
// rest is cut off in place meanwhile, so that a long value needs no memory.
static const char *parent_fault(char *path, size_t length, const char *missing,
                                const char *wrong)
{
  const char cut = path[length];
  path[length] = '\0';
  const char *fault = object_fault(path, S_IFDIR, missing, wrong);
  path[length] = cut;
  return fault;
}

// The place of the last "/" in the first `length` characters of an absolute
// path: the length of what holds the entry; 0 stands for the root directory.
static size_t parent_length(const char *path, size_t length)
{
  while (length > 0 && path[length - 1] != '/') {
    length--;
  }
  return length > 0 ? length - 1 : 0;
}

void chk_socket(char *value, const char *, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  record_fault(object_fault(value, S_IFSOCK, "Socket does not exist",
                            "File is not a socket"),
               tpl_error, err_name, var_label);
}

void chk_directory(char *value, const char *, const char *tpl_error,
                   const char *err_name, const char *var_label)
{
  record_fault(object_fault(value, S_IFDIR, "Directory does not exist",
                            "File is not a directory"),
               tpl_error, err_name, var_label);
}

void chk_script(char *value, const char *, const char *tpl_error,
                const char *err_name, const char *var_label)
{
  if (access(value, X_OK) != 0) {
    set_error(err_name, tpl_error, "Script is not executable", var_label);
  }
}

static const char *file_name_fault(const char *value)
{
  if (value[0] != '/') {
    return "File path must start with a /";
  }
  if (strstr(value, "/.") != nullptr) {
    return "/. not allowed in file name";
  }
  if (strstr(value, "//") != nullptr) {
    return "Please remove // from file name";
  }
  return nullptr;
}

// Whether an existing file is what the option asks for.
static const char *file_type_fault(mode_t mode, char option)
{
  // clang-format off
  static const struct {
    char option;
    mode_t type;
    mode_t bits; // permissions that must be set, too
    const char *fault;
  } types[] = {
    {'d', S_IFDIR,  0,       "Path is not a directory"},
    {'f', S_IFREG,  0,       "File is not a regular file"},
    {'x', S_IFREG,  S_IXUSR, "File is not an executable"},
    {'S', S_IFSOCK, 0,       "File is not a socket"},
  };
  // clang-format on

  if (option == '\0') {
    return nullptr;
  }
  for (const auto &row : types) {
    if (row.option == option) {
      const mode_t wanted = row.type | row.bits;
      return (mode & (S_IFMT | row.bits)) == wanted ? nullptr : row.fault;
    }
  }
  return UNKNOWN_OPTION;
}

// Whether a file that does not exist could be made where it is wanted.
static const char *new_file_fault(char *value, bool is_directory)
{
  const size_t length = strlen(value);
  size_t parent = parent_length(value, length);
  if (parent == 0) {
    return "Missing / in file name";
  }
  if (parent == length - 1) {
    if (!is_directory) {
      return "File cannot be a directory";
    }
    parent = parent_length(value, parent);
  }
  return parent_fault(value, parent, "Parent directory does not exist",
                      "Bad directory in file name");
}

void chk_file(char *value, const char *options, const char *tpl_error,
              const char *err_name, const char *var_label)
{
  const char option = options[0];
  const char *fault = file_name_fault(value);
  struct stat info;
  if (fault == nullptr) {
    fault = stat(value, &info) == 0 ? file_type_fault(info.st_mode, option)
                                    : new_file_fault(value, option == 'd');
  }
  record_fault(fault, fault == UNKNOWN_OPTION ? nullptr : tpl_error, err_name,
               var_label);
}

static const char *path_name_fault(const char *value)
{
  if (value[0] != '/') {
    return "Path must start with a /";
  }
  const size_t length = strlen(value);
  if (length < PATH_LENGTH_MIN || length > PATH_LENGTH_MAX) {
    return "Path name too short/long";
  }
  if (strstr(value, "/.") != nullptr) {
    return "/. not allowed in path name";
  }
  if (strstr(value, "//") != nullptr) {
    return "// not allowed in path name";
  }
  return nullptr;
}

// Tests the directory `levels` above `value`; at the root there is no need.
static const char *ancestor_fault(char *value, int levels)
{
  size_t length = strlen(value);
  for (int level = 0; level < levels; level++) {
    length = parent_length(value, length);
    if (length == 0) {
      return nullptr;
    }
  }
  return parent_fault(
      value, length, "Parent directory does not exist",
      "An existing file stops parent directory from being created");
}

void chk_path(char *value, const char *options, const char *tpl_error,
              const char *err_name, const char *var_label)
{
  const char *fault = path_name_fault(value);
  if (fault == nullptr && options[0] != '\0') {
    if (strcmp(options, "parent_exists") == 0) {
      fault = ancestor_fault(value, 1);
    } else if (strcmp(options, "grandparent_exists") == 0) {
      fault = ancestor_fault(value, 2);
    } else {
      fault = UNKNOWN_OPTION;
      tpl_error = nullptr;
    }
  }
  record_fault(fault, tpl_error, err_name, var_label);
}

// --- users and commands ------------------------------------------------------

// No name is longer; what a database's module does with one of a megabyte, on
// how large a stack, is not ours to find out.
constexpr size_t ACCOUNT_NAME_MAX = 256;

static bool is_account_name(const char *value)
{
  return strlen(value) <= ACCOUNT_NAME_MAX;
}

void chk_username(char *value, const char *, const char *tpl_error,
                  const char *err_name, const char *var_label)
{
  if (!is_account_name(value) || getpwnam(value) == nullptr) {
    set_error(err_name, tpl_error, "Unknown username", var_label);
  }
}

void chk_groupname(char *value, const char *, const char *tpl_error,
                   const char *err_name, const char *var_label)
{
  if (!is_account_name(value) || getgrnam(value) == nullptr) {
    set_error(err_name, tpl_error, "Unknown groupname", var_label);
  }
}

// Where commands without a path are looked for; PATH is the web server's and
// says nothing about the device.
static const char *const dirs[] = {"/bin", "/usr/bin", "/sbin", "/usr/sbin",
                                   nullptr};
// A directory and a command's name; longer ones are cut.
constexpr size_t CANDIDATE_SIZE = 100;

static const char *command_fault(const char *command)
{
  if (command[0] == '/') {
    return access(command, X_OK) == 0 ? nullptr : "Command is not executable";
  }
  if (strchr(command, '/') != nullptr) {
    return "Relative command paths not allowed";
  }
  for (const char *const *dir = dirs; *dir != nullptr; dir++) {
    char candidate[CANDIDATE_SIZE];
    snprintf(candidate, sizeof candidate, "%s/%s", *dir, command);
    if (access(candidate, X_OK) == 0) {
      return nullptr;
    }
  }
  return "Command not found";
}

// The arguments are cut off in place while the command is looked for.
void chk_command(char *value, const char *, const char *tpl_error,
                 const char *err_name, const char *var_label)
{
  char *end = value + strcspn(value, " ");
  const char cut = *end;
  *end = '\0';
  const char *fault = command_fault(value);
  *end = cut;
  record_fault(fault, tpl_error, err_name, var_label);
}

// --- conditional sections ----------------------------------------------------
// The same rules as for the page, so that what is not shown is not required.
// A condition that cannot be expanded for lack of memory fails the walk.

static void set_display(void)
{
  is_displayed = std::find(cond_stack, cond_sp, 0) == cond_sp ? 1 : 0;
}

static void push_cond(int if_not, char *cond)
{
  if (cond_sp == cond_stack + ORV_CONDITIONS_MAX) {
    set_error("fatal", nullptr, "Condition stack overflow", nullptr);
    return;
  }
  const char *text = orv_out_expand(cond);
  if (text == nullptr) {
    set_error("fatal", nullptr, nullptr, nullptr);
  }
  int value = orv_string_is_true(text);
  if (if_not != 0) {
    value = !value;
  }
  *cond_sp++ = value;
  if (value == 0) {
    is_displayed = 0;
  }
}

// True, after a report, when there is no section to change.
static bool cond_underflow(void)
{
  if (cond_sp != cond_stack) {
    return false;
  }
  set_error("fatal", nullptr, "Condition stack underflow", nullptr);
  return true;
}

static void flip_cond(void)
{
  if (cond_underflow()) {
    return;
  }
  cond_sp[-1] = !cond_sp[-1];
  set_display();
}

static void pop_cond(void)
{
  if (cond_underflow()) {
    return;
  }
  cond_sp--;
  set_display();
}

// --- values ------------------------------------------------------------------

static const char *skip_spaces(const char *text)
{
  return text + strspn(text, " ");
}

// Skips "nullok" at the start of `*check`; true when it was there.
static bool take_nullok(const char **check)
{
  static const char word[] = "nullok";
  constexpr size_t length = sizeof word - 1;
  const char *text = *check;
  if (strncmp(text, word, length) != 0 ||
      (text[length] != ' ' && text[length] != '\0')) {
    return false;
  }
  *check = text + length;
  return true;
}

// Holds values to what scripts can handle without quoting; tabs become spaces.
static const char *screen_value(char *value)
{
  for (char *at = value; *at != '\0'; at++) {
    if (strchr("\"$\\`", *at) != nullptr) {
      return "Characters \"$\\` not allowed in input";
    }
    if (*at == '\t') {
      *at = ' ';
    } else if (*at < ' ' || *at > '~') {
      return "Only printable characters allowed in input";
    }
  }
  return nullptr;
}

static void trim_spaces(char *value)
{
  size_t length = strlen(value);
  while (length > 0 && value[length - 1] == ' ') {
    length--;
  }
  value[length] = '\0';
  const size_t leading = strspn(value, " ");
  memmove(value, value + leading, length - leading + 1);
}

const checks_info *orv_find_check(const char *check, int *nullok,
                                  const char **options)
{
  const char *name = skip_spaces(check != nullptr ? check : "nullok text");
  *nullok = take_nullok(&name) ? 1 : 0;
  name = skip_spaces(name);
  const size_t length = strcspn(name, " ");
  *options = skip_spaces(name + length);
  for (const checks_info *row = chk_list; row->name != nullptr; row++) {
    if (static_cast<size_t>(row->name_len) == length &&
        strncasecmp(row->name, name, length) == 0) {
      return row;
    }
  }
  return nullptr;
}

static void do_check(const char *name, const char *check, const char *tpl_error,
                     const char *err_name, const char *var_label)
{
  if (err_name == nullptr) {
    err_name = "msg";
  }
  int nullok;
  const char *options;
  const checks_info *row = orv_find_check(check, &nullok, &options);
  char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if (value == nullptr || value[strspn(value, " \t")] == '\0') {
    if (nullok == 0 && is_displayed != 0) {
      set_error(err_name, tpl_error, "Empty input where parameter is required",
                var_label);
    }
    return;
  }
  const char *fault = screen_value(value);
  if (fault != nullptr) {
    set_error(err_name, tpl_error, fault, var_label);
    return;
  }
  trim_spaces(value);
  if (row == nullptr) {
    set_error(err_name, nullptr, "Bad check name in template", var_label);
    return;
  }
  row->func(value, options, tpl_error, err_name, var_label);
}

// --- items -------------------------------------------------------------------

// Messages name the column in a table alone: elsewhere they stand beside their
// field.
static const char *message_label(const pt_body_item *itm, int is_table)
{
  return is_table != 0 ? itm->label : nullptr;
}

static void itm_check_text_field(const pt_body_item *itm, const char *name,
                                 int is_table)
{
  const pt_field &field = itm->field;
  do_check(name, field.check, field.check_msg,
           field.check_label != nullptr ? field.check_label : itm->name,
           message_label(itm, is_table));
}

static void itm_check_checkbox(const pt_body_item *itm, const char *name,
                               int is_table)
{
  const char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if (value == nullptr || value[0] == '\0' || strcasecmp(value, "true") == 0 ||
      strcasecmp(value, "false") == 0 || strcmp(value, "1") == 0 ||
      strcmp(value, "0") == 0) {
    return;
  }
  set_error(itm->name, nullptr, "Checkbox must be True or False",
            message_label(itm, is_table));
}

static void itm_check_select(const pt_body_item *itm, const char *name,
                             int is_table)
{
  const char *label = message_label(itm, is_table);
  const char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if (value == nullptr || value[0] == '\0') {
    if (is_displayed != 0) {
      set_error(itm->name, nullptr, "Select returned a null value ?", label);
    }
    return;
  }
  const html_form_list_opt *choice = itm->choices.choices;
  while (choice != nullptr && strcmp(choice->value, value) != 0) {
    choice = choice->next;
  }
  if (choice == nullptr) {
    set_error(itm->name, nullptr, "Select value failed to match choices",
              label);
  }
}

// The choices exist only while the page is drawn, so any value will do.
static void itm_check_iselect(const pt_body_item *itm, const char *name)
{
  const char *value = orv_get_var(&cfg_vars, name, o_undefined);
  if ((value == nullptr || value[0] == '\0') && is_displayed != 0) {
    set_error(itm->name, nullptr, "iSelect returned a null value ?", nullptr);
  }
}

// --- tables ------------------------------------------------------------------

static void make_row_name(char (&name)[ORV_NAME_SIZE], const pt_body_item *cell,
                          int row)
{
  snprintf(name, sizeof name, "%s%d", cell->name, row);
}

// Selections always have a value, so they do not make a row.
static bool row_has_values(const pt_body_item *itm, int row)
{
  const pt_body_item *cell = itm->next;
  for (int column = 0; column < itm->table.columns && cell != nullptr;
       column++, cell = cell->next) {
    if (cell->type == PT_SELECT) {
      continue;
    }
    char name[ORV_NAME_SIZE];
    make_row_name(name, cell, row);
    const char *value = orv_get_var(&cfg_vars, name, o_undefined);
    if (value != nullptr && value[0] != '\0') {
      return true;
    }
  }
  return false;
}

static bool row_exists(const pt_body_item *itm, int row)
{
  const int fixed_rows = itm->table.fixed_rows;
  return fixed_rows != 0 ? row < fixed_rows : row_has_values(itm, row);
}

// The error is recorded by column, so the cell itself is marked.  It need not
// have a variable, and gets none.
static void mark_failed(const char *cell)
{
  orv_find_var(&failed_cells, cell, 1);
}

static void check_row(const pt_body_item *itm, int row)
{
  const pt_body_item *cell = itm->next;
  for (int column = 0; column < itm->table.columns && cell != nullptr;
       column++, cell = cell->next) {
    char name[ORV_NAME_SIZE];
    make_row_name(name, cell, row);
    const int errors = error_count;
    switch (cell->type) {
    case PT_TEXT_FIELD:
      itm_check_text_field(cell, name, 1);
      break;
    case PT_CHECKBOX:
      itm_check_checkbox(cell, name, 1);
      break;
    case PT_SELECT:
      itm_check_select(cell, name, 1);
      break;
    default:
      break;
    }
    if (error_count != errors) {
      mark_failed(name);
    }
  }
}

static void do_table_iter(const pt_body_item *itm)
{
  for (int row = 0; row < ORV_ROWS_MAX && row_exists(itm, row); row++) {
    check_row(itm, row);
  }
}

// --- the walk ----------------------------------------------------------------

static void check_item(const pt_body_item *itm)
{
  switch (itm->type) {
  case PT_TEXT_FIELD:
    itm_check_text_field(itm, itm->name, 0);
    break;
  case PT_CHECKBOX:
    itm_check_checkbox(itm, itm->name, 0);
    break;
  case PT_SELECT:
    itm_check_select(itm, itm->name, 0);
    break;
  case PT_ISELECT:
    itm_check_iselect(itm, itm->name);
    break;
  case PT_TABLE:
  case PT_FTABLE:
    do_table_iter(itm);
    break;
  case PT_IF:
    push_cond(0, itm->text.txt);
    break;
  case PT_IFNOT:
    push_cond(1, itm->text.txt);
    break;
  case PT_ELSE:
    flip_cond();
    break;
  case PT_ENDIF:
    pop_cond();
    break;
  default:
    break;
  }
}

// The item behind `itm` and, if it is a table, behind its cells.
static const pt_body_item *next_item(const pt_body_item *itm)
{
  const bool is_table = itm->type == PT_TABLE || itm->type == PT_FTABLE;
  int cells = is_table ? itm->table.columns : 0;
  const pt_body_item *next = itm->next;
  while (cells > 0 && next != nullptr) {
    next = next->next;
    cells--;
  }
  return next;
}

int orv_check_vars(pt_body_item *itm)
{
  orv_free_vars(&err_vars);
  orv_free_vars(&failed_cells);
  cond_sp = cond_stack;
  error_count = 0;
  is_displayed = 1;

  for (const pt_body_item *at = itm; at != nullptr; at = next_item(at)) {
    check_item(at);
  }
  if (error_count != 0 && orv_find_var(&err_vars, "msg", 0) == nullptr) {
    char text[SUMMARY_SIZE];
    snprintf(text, sizeof text, "%d errors found", error_count);
    set_error("msg", nullptr, text, nullptr);
  }
  return error_count == 0 ? 1 : 0;
}

// --- cells that scripts mark -------------------------------------------------

// The row of the column's cell called `name`, -1 when it is none.
static int row_of(const pt_body_item *column, const char *name)
{
  const size_t length = strlen(column->name);
  if (strncasecmp(name, column->name, length) != 0) {
    return -1;
  }
  const char *number = name + length;
  char *end;
  const long row = strtol(number, &end, 10);
  char written[ROW_SIZE];
  snprintf(written, sizeof written, "%ld", row);
  const bool is_row =
      row >= 0 && row < ORV_ROWS_MAX && strcmp(number, written) == 0;
  return is_row ? static_cast<int>(row) : -1;
}

static bool is_blank(const char *text)
{
  return text == nullptr || text[strspn(text, " \t")] == '\0';
}

// The column's message is its own or that of its first marked cell.  It takes
// the place of a calculated value, which tells the two kinds apart: a message
// of the script that marks no cell is about all of them.
static void mark_column(const pt_body_item *column)
{
  const char *message = orv_get_var(&err_vars, column->name, o_undefined);
  const bool has_own = !is_blank(message);
  int first = ORV_ROWS_MAX;
  for (const orv_var *var = err_vars; var != nullptr; var = var->next) {
    const int row = row_of(column, var->name);
    const char *text = orv_get_var(&err_vars, var->name, o_undefined);
    if (row < 0 || is_blank(text)) {
      continue;
    }
    mark_failed(var->name);
    message = row < first && !has_own ? text : message;
    first = std::min(first, row);
  }
  orv_var *record =
      first < ORV_ROWS_MAX ? orv_find_var(&err_vars, column->name, 1) : nullptr;
  if (record != nullptr) {
    char *copy = must_strdup(message);
    free(record->c_value);
    record->c_value = copy;
  }
}

void orv_mark_cells(pt_body_item *itm)
{
  if (error_count != 0) { // the errors are those of checks
    return;
  }
  for (; itm != nullptr && err_vars != nullptr; itm = itm->next) {
    if (itm->column >= 0) {
      mark_column(itm);
    }
  }
}

bool orv_column_is_marked(const pt_body_item *column)
{
  const orv_var *record = orv_find_var(&err_vars, column->name, 0);
  return error_count != 0 || (record != nullptr && record->c_value != nullptr);
}

// --- the table of checks -----------------------------------------------------

// clang-format off
#define CHECK_ROW(name, func) {name, sizeof(name) - 1, func}

const checks_info chk_list[] = {
  CHECK_ROW("text",      chk_text),
  CHECK_ROW("word",      chk_word),
  CHECK_ROW("keyword",   chk_keyword),
  CHECK_ROW("decimal",   chk_decimal),
  CHECK_ROW("number",    chk_number),
  CHECK_ROW("signed",    chk_signed),
  CHECK_ROW("real",      chk_real),
  CHECK_ROW("file",      chk_file),
  CHECK_ROW("path",      chk_path),
  CHECK_ROW("ipaddr",    chk_ipaddr),
  CHECK_ROW("ipservice", chk_ipservice),
  CHECK_ROW("email",     chk_email),
  CHECK_ROW("socket",    chk_socket),
  CHECK_ROW("script",    chk_script),
  CHECK_ROW("directory", chk_directory),
  CHECK_ROW("regex",     chk_regex),
  CHECK_ROW("iregex",    chk_iregex),
  CHECK_ROW("username",  chk_username),
  CHECK_ROW("groupname", chk_groupname),
  CHECK_ROW("command",   chk_command),
  {nullptr, 0, nullptr},
};
// clang-format on

static_assert(sizeof chk_list / sizeof chk_list[0] == 20 + 1,
              "every check and the end");
