// The function that libFuzzer, or the replay, calls for each input of an entry.

#include "fuzz.h"
#include "orv_vars.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Error reports return and stay within the process.  No variable is left
// behind.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
  orv_fatal_no_exit = 1;
  setlogmask(LOG_MASK(LOG_DEBUG));
  fuzz({reinterpret_cast<const char *>(data), size});
  for (orv_var **list : {&cfg_vars, &err_vars, &del_vars}) {
    orv_free_vars(list);
  }
  return 0;
}
