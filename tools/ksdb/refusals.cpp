#include "tools/ksdb/refusals.h"

#include "tools/common/cli.h"

namespace ksutil::tools {

void Refusals::add(std::int64_t line, const std::string &reason) {
  if (++count_ > kMost) return;
  const std::string place = line > 0 ? ":" + std::to_string(line) : "";
  complain(file_ + place + ": " + reason);
}

void Refusals::finish() const {
  if (count_ > kMost) complain(std::to_string(count_ - kMost) + " more lines refused");
}

}  // namespace ksutil::tools
