#include "tools/common/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace ksutil::tools {
namespace {

constexpr long kWidth = 40;
constexpr std::chrono::milliseconds kBetween{100};

}  // namespace

Progress::Progress(std::string what, long total, bool quiet)
    : what_(std::move(what)), total_(total), shown_(!quiet && isatty(STDERR_FILENO)) {}

Progress::~Progress() {
  if (shown_) std::fputs("\r\033[K", stderr);
}

void Progress::reach(long done) {
  if (!shown_ || total_ <= 0) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - drawn_ < kBetween && done < total_) return;
  drawn_ = now;
  const long filled = std::clamp(kWidth * done / total_, 0L, kWidth);
  std::string bar(static_cast<std::size_t>(filled), '#');
  bar.resize(kWidth, '.');
  std::fprintf(stderr, "\r%s [%s] %ld of %ld", what_.c_str(), bar.c_str(), done,
               total_);
  std::fflush(stderr);
}

}  // namespace ksutil::tools
