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

Progress::Progress(std::string what, long total, bool quiet, std::string unit)
    : what_(std::move(what)),
      total_(total),
      shown_(!quiet && isatty(STDERR_FILENO)),
      unit_(std::move(unit)),
      drawn_(std::chrono::steady_clock::now()) {
  if (shown_) draw(0);
}

void Progress::wipe() {
  if (!shown_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

void Progress::reach(long done) {
  if (!shown_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - drawn_ < kBetween && (done < total_ || total_ <= 0)) return;
  drawn_ = now;
  draw(done);
}

void Progress::draw(long done) const {
  const char *space = unit_.empty() ? "" : " ";
  if (total_ <= 0) {
    std::fprintf(stderr, "\r%s: %ld%s%s", what_.c_str(), done, space, unit_.c_str());
  } else {
    const long filled = std::clamp(kWidth * done / total_, 0L, kWidth);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(kWidth, '.');
    std::fprintf(stderr, "\r%s [%s] %ld of %ld%s%s", what_.c_str(), bar.c_str(), done,
                 total_, space, unit_.c_str());
  }
  std::fflush(stderr);
}

}  // namespace ksutil::tools
