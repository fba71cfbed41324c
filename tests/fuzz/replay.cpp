/* Stands in for the fuzzer: reads the files of the folders given, each as one input. */
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/stock/files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
  int inputs = 0;
  for (int i = 1; i < argc; i++) {
    for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
      std::string input;
      if (!ksutil::read_file(entry.path(), std::size_t{1} << 24, input)) {
        std::fprintf(stderr, "cannot read %s\n", entry.path().c_str());
        return 1;
      }
      std::printf("%s\n", entry.path().c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()),
                             input.size());
      inputs++;
    }
  }
  std::printf("%d inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
