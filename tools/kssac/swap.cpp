/* swap: kssac swap. */
#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "platform/stock/files.h"
#include "tools/common/write_safely.h"
#include "tools/kssac/commands.h"
#include "tools/kssac/raw_file.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {
namespace {

struct SwapOptions {
  std::string input, output;
};

constexpr std::size_t kVersionAt = 304;

/* Whether a regular file has a header of version 6, in either byte order. */
bool is_sac_file(const std::string &path) {
  const FileHandle file = open_file(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  std::uint32_t version = 0;
  return file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size >= KSSAC_HEADER_SIZE &&
         read_at(file.get(), &version, sizeof version, kVersionAt) == sizeof version &&
         (version == 6 || __builtin_bswap32(version) == 6);
}

int swap(const SwapOptions &options) {
  if (!is_sac_file(options.input)) {
    complain(options.input + " is not a SAC file of version 6");
    return kFailure;
  }
  const auto write = [&](const std::string &path) {
    return copy_changed(options.input, path, reverse_words);
  };
  return write_safely(options.output, write) ? kOk : kFailure;
}

void describe_swap(CLI::App &command, SwapOptions &options) {
  command.add_option("input", options.input, "SAC file of either byte order")
      ->required();
  command.add_option("output", options.output, "The new file; may be the same")
      ->required();
}

}  // namespace

Command swap_command() {
  return make_command<SwapOptions>(
      "swap", "Writes a file in the other byte order",
      {"kssac swap MLR.BHZ.2010140.000000.019.sac elsewhere.sac"}, describe_swap, swap);
}

}  // namespace ksutil::tools
