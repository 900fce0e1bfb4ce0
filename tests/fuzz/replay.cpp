// Gives every file of the folders and files named to one fuzz entry: what a
// compiler without a fuzzer, and a measurement of coverage, need of it.

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz.h"

static int replay(const std::filesystem::path &path)
{
  std::ifstream file(path, std::ios::binary);
  const std::string input{std::istreambuf_iterator<char>(file), {}};
  fprintf(stderr, "%s\n", path.c_str());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()),
                         input.size());
  return 1;
}

int main(int argc, char **argv)
{
  int inputs = 0;
  for (int i = 1; i < argc; i++) {
    if (!std::filesystem::is_directory(argv[i])) {
      inputs += replay(argv[i]);
      continue;
    }
    for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
      inputs += replay(entry.path());
    }
  }
  return inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
