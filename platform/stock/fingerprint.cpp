#include "platform/stock/fingerprint.h"

#include <sys/random.h>
#include <time.h>

namespace ksutil {
namespace {

std::array<std::uint64_t, 6> drawn_seeds() {
  std::array<std::uint64_t, 6> seeds;
  if (::getrandom(seeds.data(), sizeof seeds, GRND_NONBLOCK) ==
      static_cast<ssize_t>(sizeof seeds)) {
    return seeds;
  }
  struct timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  std::uint64_t state = reinterpret_cast<std::uintptr_t>(&seeds) ^
                        static_cast<std::uint64_t>(now.tv_nsec) << 20 ^
                        static_cast<std::uint64_t>(now.tv_sec);
  for (std::uint64_t &seed : seeds) {
    state += 0x9e3779b97f4a7c15U;
    seed = (state ^ state >> 30) * 0xbf58476d1ce4e5b9U;
    seed = (seed ^ seed >> 27) * 0x94d049bb133111ebU;
    seed ^= seed >> 31;
  }
  return seeds;
}

}  // namespace

const std::array<std::uint64_t, 6> &fingerprint_seeds() {
  static const std::array<std::uint64_t, 6> seeds = drawn_seeds();
  return seeds;
}

}  // namespace ksutil
