#include "platform/stock/bytes.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

std::uint32_t swapped(std::uint32_t value) { return __builtin_bswap32(value); }
std::uint64_t swapped(std::uint64_t value) { return __builtin_bswap64(value); }

/* Both directions are one operation: it reverses the order, or does nothing on a host
 * whose own order is big-endian. */
template <class Word>
void convert(const void *from, void *to, long n) {
  const auto *in = static_cast<const unsigned char *>(from);
  auto *out = static_cast<unsigned char *>(to);
  for (long i = 0; i < n; ++i, in += sizeof(Word), out += sizeof(Word)) {
    Word value;
    std::memcpy(&value, in, sizeof value);
    if constexpr (std::endian::native == std::endian::little) value = swapped(value);
    std::memcpy(out, &value, sizeof value);
  }
}

}  // namespace

void mi2hi(const void *from, void *to, long n) { convert<std::uint32_t>(from, to, n); }
void hi2mi(const void *from, void *to, long n) { convert<std::uint32_t>(from, to, n); }
void md2hd(const void *from, void *to, long n) { convert<std::uint64_t>(from, to, n); }
void hd2md(const void *from, void *to, long n) { convert<std::uint64_t>(from, to, n); }
void mf2hf(const void *from, void *to, long n) { convert<std::uint32_t>(from, to, n); }
void hf2mf(const void *from, void *to, long n) { convert<std::uint32_t>(from, to, n); }
