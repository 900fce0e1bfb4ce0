// A script's output, stored and written out again.

#include "fuzz.h"
#include "orv_vars.h"

void fuzz(std::string_view input)
{
  // Half of the inputs use a list that is long enough for an index.
  for (int i = 0; i < 130 && input.size() % 2 != 0; i++) {
    orv_find_var(&cfg_vars, std::to_string(i).c_str(), 1);
  }
  FILE *script = fuzz_stream(input);
  orv_load_vars_fp(script);
  fclose(script);
  for (orv_var **list : {&cfg_vars, &err_vars, &del_vars}) {
    for (const orv_var *var = *list; var != nullptr; var = var->next) {
      // A name that still begins with a prefix means another variable.
      assert(orv_var_prefix(var->name) != o_undefined ||
             orv_find_var(list, var->name, 0) == var);
    }
  }

  // A script that reads line by line gets one line for each variable.
  char *text = nullptr;
  size_t length = 0;
  FILE *output = open_memstream(&text, &length);
  const int written = orv_save_vars_fp(&cfg_vars, output);
  fclose(output);
  assert(written >= 0 && (written > 0) == (length > 0));
  for (const char *line = text; *line != '\0'; line = strchr(line, '\n') + 1) {
    assert(strncmp(line, "new_", 4) == 0 && strchr(line, '\n')[-1] == '"');
  }
  free(text);
}
