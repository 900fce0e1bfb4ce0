// The checks of numbers: whether a value is one, and in the range that the
// template gives.  Values are held to 32 bits on every device.

#include <algorithm>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>

#include "orv_check.h"
#include "orv_check_fault.h"

// What is composed here is cut there.
constexpr size_t INT_RANGE_SIZE = 40;
constexpr size_t REAL_RANGE_SIZE = 100;

int check_to_int32(const char *text, char **end, int base)
{
  const long number = strtol(text, end, base);
  return static_cast<int>(
      std::max<long>(INT_MIN, std::min<long>(number, INT_MAX)));
}

// A range's limit: decimal, hexadecimal behind 0x or octal behind 0.
static int to_limit(const char *text, char **end)
{
  return check_to_int32(text, end, 0);
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
    check_failed(err_name, tpl_error, "Number is not allowed to be signed",
                 var_label);
    return;
  }
  if (base == 0) {
    base = strncasecmp(value, "0x", 2) == 0 ? 16 : 10;
  }
  char *end;
  const int number = check_to_int32(value, &end, base);
  if (*end != '\0') {
    check_failed(err_name, tpl_error, "Badly formed number", var_label);
    return;
  }
  int low;
  int high;
  const range_kind kind = read_range(options, to_limit, &low, &high);
  if (kind == RANGE_EXTRAS) {
    check_failed(err_name, nullptr, RANGE_EXTRAS_TEXT, var_label);
  } else if (kind != RANGE_NONE && (number < low || number > high)) {
    char text[INT_RANGE_SIZE];
    snprintf(text, sizeof text, "Number out of range %d..%d", low, high);
    check_failed(err_name, tpl_error, text, var_label);
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
    check_failed(err_name, tpl_error, "Invalid real number", var_label);
    return;
  }
  double low;
  double high;
  const range_kind kind = read_range(options, strtod, &low, &high);
  if (kind == RANGE_EXTRAS) {
    check_failed(err_name, nullptr, RANGE_EXTRAS_TEXT, var_label);
  } else if ((kind == RANGE_BOTH && number < low) ||
             (kind != RANGE_NONE && number > high)) {
    char text[REAL_RANGE_SIZE];
    snprintf(text, sizeof text, "Number out of range %f..%f", low, high);
    check_failed(err_name, tpl_error, text, var_label);
  }
}
