#include "tools/kssac/raw_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "formats/kssac.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"

namespace ksutil::tools {

void reverse_words(char *bytes, std::size_t count, std::size_t at) {
  constexpr std::size_t kTexts = 440;  // where the texts of the header begin
  for (std::size_t i = 0; i + 4 <= count; i += 4) {
    if (at + i >= kTexts && at + i < KSSAC_HEADER_SIZE) continue;
    std::reverse(bytes + i, bytes + i + 4);
  }
}

bool copy_changed(const std::string &from, const std::string &to,
                  const Change &change) {
  const FileHandle input = open_file(from, O_RDONLY);
  const FileHandle output = open_file(to, O_WRONLY | O_TRUNC);
  if (!input || !output) {
    elog_log(1, "open(%s) error.\n", (!input ? from : to).c_str());
    return false;
  }
  std::vector<char> bytes(1 << 20);
  for (std::size_t at = 0;;) {
    errno = 0;
    const ssize_t got = read_all(input.get(), bytes.data(), bytes.size());
    if (got < 0 || (got < static_cast<ssize_t>(bytes.size()) && errno != 0)) {
      elog_log(1, "read(%s) error.\n", from.c_str());
      return false;
    }
    const auto count = static_cast<std::size_t>(got);
    change(bytes.data(), count, at);
    if (write_all(output.get(), bytes.data(), count) != got) {
      elog_log(1, "write(%s) error.\n", to.c_str());
      return false;
    }
    at += count;
    if (count < bytes.size()) return true;
  }
}

}  // namespace ksutil::tools
