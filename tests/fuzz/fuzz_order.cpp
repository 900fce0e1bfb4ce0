// The order of a save: stored values can be read again, and shown in a page.

#include "commit.h"
#include "orv_limits.h"
#include "save.h"
#include "store.h"

static bool add_problem(int folder, const char *name, void *problems)
{
  settings all = {};
  size_t length;
  char *text = store_read_file(folder, name, &length);
  if (text == nullptr || !settings_parse(name, text, &all)) {
    *static_cast<std::string *>(problems) += name;
  }
  for (size_t i = 0; i < all.count; i++) {
    const setting *one = all.list + i;
    if (strlen(one->name) + strlen(one->value) > ORV_REPORTED_MAX ||
        strpbrk(one->value, "\"\\`\r\n") != nullptr) {
      *static_cast<std::string *>(problems) += one->name;
    }
  }
  settings_free(&all);
  unlinkat(folder, name, 0);
  return true;
}

void fuzz(std::string_view input)
{
  fuzz_folder();
  const bool stored =
      save_order(strdup(fuzz_text(input).c_str()), "none", nullptr);
  assert(stored != fuzz_fault());
  save_forget();
  std::string problems;
  assert(store_finish() &&
         store_each_file(store.fd, ".", add_problem, &problems));
  assert(problems.empty());
}
