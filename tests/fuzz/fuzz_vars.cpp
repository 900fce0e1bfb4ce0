// A script's output, stored and written out again.

#include "fuzz.h"

static void judge(orv_var **list)
{
  for (const orv_var *var = *list; var != nullptr; var = var->next) {
    // A name that still begins with a prefix means another variable.
    REQUIRE(orv_var_prefix(var->name) != o_undefined ||
            orv_find_var(list, var->name, 0) == var);
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
  FILE *output = fuzz_stream(fuzz_input(data, size));
  orv_load_vars_fp(output);
  fclose(output);
  judge(&cfg_vars);
  judge(&err_vars);
  judge(&del_vars);

  // A script that reads line by line gets one line for each variable.
  char *text = nullptr;
  size_t length = 0;
  FILE *input = open_memstream(&text, &length);
  const int written = orv_save_vars_fp(&cfg_vars, input);
  fclose(input);
  REQUIRE(written >= 0 && (written > 0) == (length > 0));
  for (const char *line = text; *line != '\0'; line = strchr(line, '\n') + 1) {
    REQUIRE(strncmp(line, "new_", 4) == 0 && strchr(line, '\n')[-1] == '"');
  }
  free(text);
  fuzz_forget();
  return 0;
}
