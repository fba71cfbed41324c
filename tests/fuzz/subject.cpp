#include "tests/fuzz/subject.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"

namespace ksutil::fuzz {

void require(bool kept, const char *promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

const char *file_of(std::string_view input) {
  static FileHandle file(memfd_create("input", MFD_CLOEXEC));
  static const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  require(file && truncate_file(file.get(), 0) == 0 &&
              write_at(file.get(), input.data(), input.size(), 0) ==
                  static_cast<ssize_t>(input.size()),
          "the input can be put into a file");
  return path.c_str();
}

}  // namespace ksutil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ksutil::fuzz::read_input({reinterpret_cast<const char *>(data), size});
  elog_clear_register(0);
  return 0;
}
