// A dump: whatever it contains, the values read can be written and read again.

#include "change.h"
#include "dump_file.h"
#include "fuzz.h"

static std::string written(const char *value)
{
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  dump_put_value(out, value);
  fclose(out);
  const std::string result(text, size);
  free(text);
  return result;
}

static void check_value(const wanted_value &value)
{
  const std::string text = std::string("form a\nx=") + written(value.value);
  dump_file again = {};
  again.text = strdup(text.c_str());
  int number;
  assert(dump_parse(&again, &number) == nullptr && again.part_count == 1);
  assert(again.parts[0].value_count == 1 && number == 4);
  assert(strcmp(again.parts[0].values[0].value, value.value) == 0);
  dump_free(&again);
}

void fuzz(std::string_view input)
{
  dump_file dump = {};
  FILE *in = fuzz_stream(input);
  const bool is_text = in == nullptr || dump_read(in, &dump.text);
  assert(is_text == (input.find('\0') == std::string_view::npos));
  const auto lines = std::count(input.begin(), input.end(), '\n') + 1;
  int number;
  if (is_text && dump_parse(&dump, &number) != nullptr) {
    assert(number <= lines);
  }
  for (size_t i = 0; i < dump.part_count; i++) {
    for (size_t j = 0; j < dump.parts[i].value_count; j++) {
      check_value(dump.parts[i].values[j]);
    }
  }
  dump_free(&dump);
  if (in != nullptr) {
    fclose(in);
  }
}
