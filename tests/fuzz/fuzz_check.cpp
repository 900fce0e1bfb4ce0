// A check with its options, and a value to check.

#include "fuzz.h"
#include "orv_vars.h"
#include "orv_check.h"
#include "orv_parser.h"

// A value that passes is normalised, and a script needs no quotes for it.
static bool is_normal(const std::string &after, std::string value)
{
  std::replace(value.begin(), value.end(), '\t', ' ');
  const size_t first = std::min(value.find_first_not_of(' '), value.size());
  value.erase(0, first).erase(value.find_last_not_of(' ') + 1);
  return value.empty() ||
         (after == value && after.find_first_of("\"$\\`") == after.npos &&
          std::all_of(after.begin(), after.end(),
                      [](char c) { return c >= ' ' && c <= '~'; }));
}

void fuzz(std::string_view rest)
{
  std::string check = fuzz_text(fuzz_part(&rest));
  std::string value = fuzz_text(rest);
  // The cost of an author's pattern is up to libc.
  if (strcasestr(check.c_str(), "regex") != nullptr &&
      (check.size() > 32 || check.find_first_of("{\\") != check.npos)) {
    return;
  }
  char name[] = "v";
  pt_body_item item = {};
  item.type = PT_TEXT_FIELD;
  item.name = name;
  item.field.check = check.data();
  orv_set_var("v", o_user, value.data(), 0);
  const bool passed = orv_check_vars(&item) != 0;
  assert(!passed || err_vars == nullptr);
  assert(!passed || is_normal(orv_get_var(&cfg_vars, "v", o_user), value));
}
