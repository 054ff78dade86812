// Runs a fuzzer over files instead of inventing inputs: every file of the folders that are named.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
  int files = 0;
  for (int k = 1; k < argc; ++k) {
    for (const auto &file : std::filesystem::directory_iterator(argv[k])) {
      std::ifstream stream(file.path(), std::ios::binary);
      const std::string text{std::istreambuf_iterator<char>(stream), {}};
      // A block of exactly that size, so that a sanitizer sees the end of it.
      const auto data = std::make_unique<uint8_t[]>(text.size());
      std::copy(text.begin(), text.end(), data.get());
      printf("%s\n", file.path().c_str());
      fflush(stdout);
      LLVMFuzzerTestOneInput(data.get(), text.size());
      ++files;
    }
  }
  return files > 0 ? 0 : 1;
}
