/* fingerprint: gives texts numbers by which a change is noticed without the old text.
 *
 * Equal texts have equal fingerprints.  Two different texts share one by chance only,
 * with a probability of 2^-64, because the multipliers are drawn anew by each process:
 * nobody can prepare texts that agree.  A fingerprint therefore means nothing to another
 * process and must not be stored. */
#ifndef KSUTIL_PLATFORM_STOCK_FINGERPRINT_H
#define KSUTIL_PLATFORM_STOCK_FINGERPRINT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/stock/export.h"

namespace ksutil {

/* The random numbers of this process; from the system, or from the time and the places
 * of the program in memory where the system has none. */
KSUTIL_API const std::array<std::uint64_t, 6> &fingerprint_seeds();

/* Fingerprint: calculates fingerprints.  Safe from any thread.
 * Source: the folded 128-bit product as a mixing step is that of wyhash (Wang Yi, public
 * domain, 2019). */
class Fingerprint {
 public:
  std::uint64_t operator()(std::string_view text) const {
    const char *at = text.data();
    std::size_t left = text.size();
    std::uint64_t a = seeds_[0], b = seeds_[1];
    if (left < kStep) {
      char padded[kStep] = {};
      if (left > 0) std::memcpy(padded, at, left);
      step(padded, a, b);
    } else {
      for (; left > kStep; left -= kStep, at += kStep) step(at, a, b);
      step(at + left - kStep, a, b);  // may overlap the step before
    }
    return mix(a ^ text.size() ^ seeds_[4], b ^ seeds_[5]);
  }

 private:
  static constexpr std::size_t kStep = 32;
  __extension__ using Product = unsigned __int128;

  static std::uint64_t word(const char *at) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
  }
  static std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    const Product product = static_cast<Product>(a) * b;
    return static_cast<std::uint64_t>(product) ^
           static_cast<std::uint64_t>(product >> 64);
  }
  /* Two independent chains, because a multiplication takes several cycles. */
  void step(const char *at, std::uint64_t &a, std::uint64_t &b) const {
    a = mix(word(at) ^ seeds_[2], word(at + 8) ^ a);
    b = mix(word(at + 16) ^ seeds_[3], word(at + 24) ^ b);
  }

  const std::array<std::uint64_t, 6> seeds_ = fingerprint_seeds();
};

}  // namespace ksutil
#endif
