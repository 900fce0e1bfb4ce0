// The checks that fields name, their options and messages.

#include <algorithm>
#include <regex.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "expressions.h"
#include "orv_check.h"
#include "references.h"
#include "rules.h"
#include "text.h"

// What is wrong with options, "" when nothing is.
typedef std::string (*options_check)(const std::string &options);

// The executable ignores them, so "ipservice nullok" refuses blank values.
static std::string takes_none(const std::string &options)
{
  const std::vector<std::string> words = split_words(options);
  if (words.empty()) {
    return "";
  }
  return words[0] == "nullok" ? "nullok must come before the check's name"
                              : "this check takes no options, and " +
                                    in_quotes(options) + " changes nothing";
}

// Limits are read as in C, where 010 is 8; the values that users type are not,
// and 010 is 10 there.
static bool is_octal(const char *start, const char *end)
{
  start += strspn(start, "+-");
  return end - start > 1 && *start == '0' && strchr("xX", start[1]) == nullptr;
}

// A single number is the upper limit, and 0 the lower one.
static std::string range_fault(int count, const double *values)
{
  return count == 2 && values[0] == values[1]
             ? "the range allows one value only"
             : "";
}

// Whole numbers or, with `real`, any; at most two. As the executable reads
// them: at the first word that is no number it stops, and without a number
// every value is in range.
static std::string numbers(const std::string &options, bool real)
{
  const char *at = options.c_str();
  int count = 0;
  double values[2] = {0, 0};
  for (; *at != '\0'; count++) {
    char *end;
    const double value =
        real ? strtod(at, &end) : static_cast<double>(strtol(at, &end, 0));
    if (end == at || (*end != ' ' && *end != '\0')) {
      return in_quotes(std::string(at)) +
             " is not a number, so there is no range";
    }
    if (count == 2) {
      return "Extras after template range options ?";
    }
    if (!real && is_octal(at, end)) {
      return in_quotes(first_word(at)) +
             " begins with 0 and is read as octal here";
    }
    values[count] = value;
    at = end + strspn(end, " ");
  }
  return range_fault(count, values);
}

static std::string takes_numbers(const std::string &options)
{
  return numbers(options, false);
}

// What takes no sign has no number below 0. A "-" elsewhere, as in 1-65535, was
// reported as no number.
static std::string takes_unsigned(const std::string &options)
{
  const size_t sign = options.find('-');
  const bool starts =
      sign == 0 || (sign != std::string::npos && options[sign - 1] == ' ');
  const std::string fault = numbers(options, false);
  return fault.empty() && starts ? "this check accepts no sign, so no value is "
                                   "below 0; use \"signed\""
                                 : fault;
}

static std::string takes_reals(const std::string &options)
{
  return numbers(options, true);
}

// Words are free; none at all is a mistake. check keyword on, off knows "on,"
// and refuses "on".
static std::string takes_words(const std::string &options)
{
  if (options.find(',') != std::string::npos) {
    return "the comma is part of the word; separate words by blanks";
  }
  return options.empty() ? "without words every value is refused: \"Unknown"
                           " keyword entered\""
                         : "";
}

// The check knows a word by its beginning and ignores others: reported as
// unknown. cidr and optcidr say what may follow an address, and allow none by
// themselves.
static std::string takes_addresses(const std::string &options)
{
  static const std::set<std::string> known = {"ipv4", "ipv6", "hostname",
                                              "optcidr", "cidr"};
  bool any = false;
  for (const std::string &word : split_words(options)) {
    if (known.count(word) == 0) {
      return "unknown option " + in_quotes(word) + did_you_mean(word, known);
    }
    any |= word[0] == 'i' || word[0] == 'h';
  }
  return any ? "" : "Check options don't allow any type of address";
}

static std::string takes_file_type(const std::string &options)
{
  const bool known = options.empty() || (options.size() == 1 &&
                                         strchr("dfxS", options[0]) != nullptr);
  return known ? ""
               : "Unknown option in file check: " + in_quotes(options) +
                     "; it is one of d, f, x, S";
}

static std::string takes_parent(const std::string &options)
{
  static const std::set<std::string> known = {"parent_exists",
                                              "grandparent_exists"};
  return options.empty() || known.count(options) != 0
             ? ""
             : "Unknown option in file check: " + in_quotes(options) +
                   did_you_mean(options, known);
}

// Those of a check that has no row are not judged; expressions have a rule of
// their own.
// clang-format off
static const std::map<std::string, options_check> option_checks = {
  {"keyword", takes_words},      {"decimal", takes_unsigned},
  {"number", takes_unsigned},    {"signed", takes_numbers},
  {"real", takes_reals},         {"ipaddr", takes_addresses},
  {"file", takes_file_type},     {"path", takes_parent},
};
// clang-format on

// The row of the check says whether it looks at options at all; what they must
// be is known to its function alone, and repeated above.
static std::string option_fault(const checks_info &check,
                                const std::string &options)
{
  if ((orv_check_traits(&check) & CHECK_OPTIONS) == 0) {
    return takes_none(options);
  }
  const auto row = option_checks.find(check.name);
  return row != option_checks.end() ? row->second(options) : "";
}

// Of options without a fault.
static bool is_turned_range(const checks_info &check, const char *options)
{
  static const word_set ranges = {"decimal", "number", "signed", "real"};
  double values[2];
  return ranges.count(check.name) != 0 &&
         sscanf(options, "%lf %lf", &values[0], &values[1]) == 2 &&
         values[0] > values[1];
}

static bool is_expression(const std::string &name)
{
  return name == "regex" || name == "iregex";
}

// Whether it matches from the first character to the last. A "\$" at the end is
// a character.
static bool is_anchored(const std::string &expression)
{
  return !expression.empty() && expression.front() == '^' &&
         expression.back() == '$' &&
         !(expression.size() > 1 && expression[expression.size() - 2] == '\\');
}

// A beginning that ends where a part of the value does, such as ^https?://.
// Whoever writes that leaves the rest open on purpose.
static bool is_prefix(const std::string &expression)
{
  return expression.size() > 2 && expression.front() == '^' &&
         strchr("/:=-", expression.back()) != nullptr;
}

// By the library that the executable uses, so that both agree. What it means
// comes before whether it is anchored: an expression that is wrong has to be
// written anew anyway.
static void check_expression(const form &f, const form_line &line,
                             size_t offset, const std::string &expression,
                             findings *found)
{
  regex_t compiled;
  // Whether letters have a case makes no difference to what is looked for, so
  // iregex is compiled alike.
  const int code =
      regcomp(&compiled, expression.c_str(), REG_EXTENDED | REG_NOSUB);
  if (code != 0) {
    char text[200];
    regerror(code, &compiled, text, sizeof text);
    report(found, f, line, offset, "check-regex",
           std::string("Bad regular expression in check options: ") + text);
    return;
  }
  regfree(&compiled);
  const expression_fault fault = expression_fault_of(expression);
  if (!fault.text.empty()) {
    report(found, f, line, offset + fault.offset, "regex-meaning", fault.text);
    return;
  }
  if (!is_anchored(expression) && !is_prefix(expression)) {
    report(found, f, line, offset, "regex-anchor",
           "the expression may match anywhere in the value; use ^ and $ to "
           "match the whole value");
  }
}

static std::set<std::string> check_names_known()
{
  std::set<std::string> names;
  for (const checks_info *row = chk_list; row->name != nullptr; row++) {
    names.insert(row->name);
  }
  return names;
}

// Found by the executable's own look-up. It sets `options` behind the name also
// where it knows no such check, so the name is what stands in front; "nullok"
// without a check behind it is such a name, too.
static void check_one(const form &f, const form_line &line, findings *found)
{
  int nullok;
  const char *options;
  const checks_info *check =
      orv_find_check(line.text.c_str(), &nullok, &options);
  const size_t offset = static_cast<size_t>(options - line.text.c_str());
  if (check == nullptr) {
    std::string name = line.text.substr(0, offset);
    if (nullok != 0) {
      name.erase(0, name.find_first_not_of(' ', strlen("nullok")));
    }
    name.erase(name.find_last_not_of(' ') + 1);
    std::set<std::string> known = check_names_known();
    known.insert("nullok");
    report(found, f, line, line.text.find(name), "check-name",
           "Bad check name in template: " +
               (name.empty()
                    ? std::string("nullok must be followed by a check's name")
                    : in_quotes(name) + did_you_mean(name, known)));
    return;
  }
  if (is_expression(check->name)) {
    check_expression(f, line, offset, options, found);
    return;
  }
  const std::string fault = option_fault(*check, options);
  if (!fault.empty()) {
    report(found, f, line, offset, "check-option", fault);
  } else if (is_turned_range(*check, options)) {
    report(found, f, line, offset, "range-order",
           "the lower limit of a range comes first");
  }
}

// --- messages ----------------------------------------------------------------

// Where a message is shown: beside an item, or where a text asks for it.
static std::set<std::string> shown_messages(const form &f)
{
  std::set<std::string> names = {"msg"};
  for (const form_item &item : f.items) {
    names.insert(lower(item.name));
  }
  for (const form_line &line : f.lines) {
    for (const text_part &part : references_of(line.text)) {
      if (part.type == 'E') {
        names.insert(lower(part.name));
      }
    }
  }
  return names;
}

// What the check_msg lines of a form are compared with.
struct message_places {
  std::set<std::string> shown;  // names that have a place
  std::set<std::string> inputs; // those of its input items
};

static message_places places_of(const form &f)
{
  message_places places = {shown_messages(f), {}};
  for (const form_item &item : f.items) {
    if (is_input(item)) {
      places.inputs.insert(lower(item.name));
    }
  }
  return places;
}

// A message that is shown, but beside another field, may be on purpose: of two
// fields that belong together one may speak for both. So that is another rule,
// and a warning.
static void check_message(const form &f, const form_line &line,
                          const message_places &places, findings *found)
{
  const std::string name = first_word(line.text);
  const form_item &own = f.items[static_cast<size_t>(line.item)];
  if (places.shown.count(lower(name)) == 0) {
    report(found, f, line, 0, "check-message",
           "the message goes to " + in_quotes(name) +
               ", which is not shown anywhere; the first word is the name of a "
               "field" +
               did_you_mean(name, places.shown));
  } else if (lower(own.name) != lower(name) &&
             places.inputs.count(lower(name)) != 0) {
    report(found, f, line, 0, "check-elsewhere",
           "the message goes to the field " + in_quotes(name) +
               ", not to the checked one");
  }
}

void check_checks(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const message_places places = places_of(entry.second);
    for (const form_line &line : entry.second.lines) {
      // The parser refuses an attribute that has no item, and that is reported.
      if (line.header || line.item < 0) {
        continue;
      }
      if (line.keyword == "check") {
        check_one(entry.second, line, found);
      } else if (line.keyword == "check_msg") {
        check_message(entry.second, line, places, found);
      }
    }
  }
}
