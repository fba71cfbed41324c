/* SAC files made by hand: the layout by the word numbers under which it was published, and
 * either byte order, so that nothing here depends on the code under test. */
#ifndef KSUTIL_TESTS_FORMATS_SAC_BYTES_H
#define KSUTIL_TESTS_FORMATS_SAC_BYTES_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "formats/kssac.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace ksutil::sac::test {

/* Word numbers of the published layout. */
// clang-format off
enum Word {
  kDelta = 0, kDepmin = 1, kDepmax = 2, kScale = 3, kB = 5, kE = 6, kO = 7, kA = 8,
  kT0 = 10, kF = 20, kStla = 31, kStlo = 32, kStel = 33, kStdp = 34, kEvla = 35,
  kEvlo = 36, kEvdp = 38, kMag = 39, kUser0 = 40, kDist = 50, kAz = 51, kBaz = 52,
  kGcarc = 53, kDepmen = 56, kCmpaz = 57, kCmpinc = 58, kNzyear = 70, kNzjday = 71,
  kNzhour = 72, kNzmin = 73, kNzsec = 74, kNzmsec = 75, kNvhdr = 76, kNorid = 77,
  kNevid = 78, kNpts = 79, kNwfid = 81, kIftype = 85, kIdep = 86, kIztype = 87,
  kImagsrc = 96, kLeven = 105, kLcalda = 108, kKstnm = 110, kKevnm = 112, kKhole = 116,
  kKo = 118, kKa = 120, kKt0 = 122, kKf = 142, kKuser0 = 144, kKcmpnm = 150,
  kKnetwk = 152, kKdatrd = 154, kKinst = 156, kData = 158
};
// clang-format on

class SacBytes {
 public:
  explicit SacBytes(std::endian order = std::endian::native) : order_(order) {
    for (int word = 0; word < 70; ++word) real(word, -12345.0F);
    for (int word = 70; word < 105; ++word) integer(word, -12345);
    for (int word = 105; word < 110; ++word) integer(word, 0);
    for (int word = kKstnm; word < kData; word += 2) text(word, "-12345  ");
    text(kKevnm, "-12345          ");
    integer(kNvhdr, 6);
  }
  /* A series of 1, 2, ... at `delta` seconds from 2009-09-04 01:02:03.004 on. */
  SacBytes &series(int npts, float delta = 0.5F) {
    integer(kNzyear, 2009).integer(kNzjday, 247).integer(kNzhour, 1).integer(kNzmin, 2);
    integer(kNzsec, 3).integer(kNzmsec, 4).integer(kNpts, npts).integer(kIftype, 1);
    integer(kIztype, 9).integer(kLeven, 1).real(kDelta, delta).real(kB, 0.0F);
    for (int i = 0; i < npts; ++i) real(kData + i, static_cast<float>(i + 1));
    return *this;
  }
  SacBytes &real(int word, float value) {
    return integer(word, std::bit_cast<std::int32_t>(value));
  }
  SacBytes &integer(int word, std::int32_t value) {
    auto bits = static_cast<std::uint32_t>(value);
    if (order_ != std::endian::native) bits = __builtin_bswap32(bits);
    char raw[4];
    std::memcpy(raw, &bits, 4);
    return text(word, std::string(raw, 4));
  }
  SacBytes &text(int word, const std::string &value) {
    const auto at = static_cast<std::size_t>(word) * 4;
    if (bytes_.size() < at + value.size()) bytes_.resize(at + value.size());
    bytes_.replace(at, value.size(), value);
    return *this;
  }
  const std::string &str() const { return bytes_; }

 private:
  std::endian order_;
  std::string bytes_;
};

/* 2009-09-04 01:02:03.004 UTC. */
inline constexpr double kSeriesTime = 1252026123.004;

using TempDirectory = ksutil::test::TempFolder;

using ksutil::test::write_file;

inline std::string file_bytes(const std::string &path) {
  return ksutil::test::read_file(path);
}

inline std::string messages() { return ksutil::test::taken_messages(); }

struct FreeKssac {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};
using KSSacPtr = std::unique_ptr<KSSac, FreeKssac>;

inline KSSacPtr new_sac() { return KSSacPtr(kssac_create(nullptr, nullptr)); }

inline KSSacPtr read_sac(const std::string &path) {
  return KSSacPtr(kssac_read_from_file_kssac(path.c_str(), nullptr, nullptr));
}

/* One word of a header, by its published number. */
inline float real_at(const KSSac &kssac, int word) {
  float value;
  std::memcpy(&value, kssac.image->header + 4 * word, 4);
  return value;
}
inline std::int32_t integer_at(const KSSac &kssac, int word) {
  std::int32_t value;
  std::memcpy(&value, kssac.image->header + 4 * word, 4);
  return value;
}
inline std::string text_at(const KSSac &kssac, int word, std::size_t width = 8) {
  return {kssac.image->header + 4 * word, width};
}

}  // namespace ksutil::sac::test
#endif
