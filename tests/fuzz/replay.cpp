// Passes every file of the given folders to one fuzz entry, for compilers
// without a fuzzer and for measuring coverage.

#include <filesystem>
#include <fstream>
#include <stdint.h>
#include <stdio.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
  for (int i = 1; i < argc; i++) {
    for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string input{std::istreambuf_iterator<char>(file), {}};
      fprintf(stderr, "%s\n", entry.path().c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()),
                             input.size());
    }
  }
}
