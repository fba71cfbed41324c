#include <fcntl.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/stock/text.h"
#include "platform/trace/waveform.h"

namespace ksutil {
namespace {

template <class Unsigned>
Unsigned loaded(const unsigned char *from, std::endian order) {
  Unsigned value;
  std::memcpy(&value, from, sizeof value);
  if (order == std::endian::native) return value;
  if constexpr (sizeof value == 2) return __builtin_bswap16(value);
  if constexpr (sizeof value == 4) return __builtin_bswap32(value);
  if constexpr (sizeof value == 8) return __builtin_bswap64(value);
}

/* Beyond the range of Sample lies infinity. */
template <class Sample, class Number>
Sample nearest(Number value) {
  if constexpr (sizeof(Sample) < sizeof(Number) && std::is_same_v<Number, double>) {
    constexpr auto kGreatest = static_cast<double>(std::numeric_limits<Sample>::max());
    constexpr Sample kInfinity = std::numeric_limits<Sample>::infinity();
    if (value > kGreatest) return kInfinity;
    if (value < -kGreatest) return -kInfinity;
  }
  return static_cast<Sample>(value);
}

template <class Unsigned, class Number, std::endian kOrder, class Sample>
bool convert(const unsigned char *from, std::size_t count, Sample *to) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto bits = loaded<Unsigned>(from + i * sizeof(Unsigned), kOrder);
    to[i] = nearest<Sample>(std::bit_cast<Number>(bits));
  }
  return true;
}

template <class Sample>
bool convert_24_bits(const unsigned char *from, std::size_t count, Sample *to) {
  for (std::size_t i = 0; i < count; ++i, from += 3) {
    const auto high = static_cast<std::uint32_t>(from[0]) << 24 |
                      static_cast<std::uint32_t>(from[1]) << 16 |
                      static_cast<std::uint32_t>(from[2]) << 8;
    to[i] = static_cast<Sample>(static_cast<std::int32_t>(high) >> 8);
  }
  return true;
}

template <std::size_t kWidth, class Sample>
bool convert_text(const unsigned char *from, std::size_t count, Sample *to) {
  for (std::size_t i = 0; i < count; ++i, from += kWidth) {
    double value;
    if (!parse_real({reinterpret_cast<const char *>(from), kWidth}, value)) {
      return false;
    }
    to[i] = nearest<Sample>(value);
  }
  return true;
}

/* How samples stand in a file.  A conversion gives false for what is no number. */
template <class Sample>
struct Format {
  const char *name;
  int size;  // bytes of a sample
  bool (*convert)(const unsigned char *from, std::size_t count, Sample *to);
};

constexpr auto kBig = std::endian::big;
constexpr auto kLittle = std::endian::little;

template <class Sample>
constexpr Format<Sample> kFormats[] = {
    {"s4", 4, convert<std::uint32_t, std::int32_t, kBig, Sample>},
    {"i4", 4, convert<std::uint32_t, std::int32_t, kLittle, Sample>},
    {"s3", 3, convert_24_bits<Sample>},
    {"s2", 2, convert<std::uint16_t, std::int16_t, kBig, Sample>},
    {"i2", 2, convert<std::uint16_t, std::int16_t, kLittle, Sample>},
    {"t4", 4, convert<std::uint32_t, float, kBig, Sample>},
    {"f4", 4, convert<std::uint32_t, float, kLittle, Sample>},
    {"t8", 8, convert<std::uint64_t, double, kBig, Sample>},
    {"f8", 8, convert<std::uint64_t, double, kLittle, Sample>},
    {"c0", 12, convert_text<12, Sample>},
    {"a0", 15, convert_text<15, Sample>},
    {"b0", 24, convert_text<24, Sample>},
};

template <class Sample>
const Format<Sample> *find_format(std::string_view datatype) {
  for (const Format<Sample> &format : kFormats<Sample>) {
    if (datatype == format.name) return &format;
  }
  return nullptr;
}

/* Opens the file of a segment, whose size is then at least `end`. */
FileHandle open_waveform(const std::string &path, std::int64_t end) {
  /* A fifo would wait here for a writer. */
  FileHandle file = open_file(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    elog_log(1, "read_samples: open(%s) error.\n", path.c_str());
    return FileHandle();
  }
  if (!S_ISREG(status.st_mode)) {
    elog_log(0, "read_samples: %s is no regular file.\n", path.c_str());
    return FileHandle();
  }
  if (status.st_size < end) {
    elog_log(0, "read_samples: %s has %lld bytes, the samples end at byte %lld.\n",
             path.c_str(), static_cast<long long>(status.st_size),
             static_cast<long long>(end));
    return FileHandle();
  }
  return file;
}

template <class Sample>
bool read_converted(const WaveformSegment &segment, std::int64_t first,
                    std::int64_t count, std::vector<Sample> &samples) try {
  const Format<Sample> *const format = find_format<Sample>(segment.datatype);
  if (format == nullptr) {
    elog_log(0, "read_samples: Data type '%s' of %s is not supported.\n",
             segment.datatype.c_str(), segment.path.c_str());
    return false;
  }
  if (first < 0 || count < 0 || first > segment.nsamp ||
      count > segment.nsamp - first) {
    elog_log(0, "read_samples: The segment has no %lld samples from %lld on.\n",
             static_cast<long long>(count), static_cast<long long>(first));
    return false;
  }
  /* Counts and offsets whose bytes no file can have. */
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / 64;
  if (segment.nsamp > kMost || segment.foff < 0 || segment.foff > kMost) {
    elog_log(0, "read_samples: nsamp or foff of %s is out of range.\n",
             segment.path.c_str());
    return false;
  }
  const std::int64_t begin = segment.foff + first * format->size;
  const FileHandle file = open_waveform(segment.path, begin + count * format->size);
  if (!file) return false;

  std::vector<Sample> found(static_cast<std::size_t>(count));
  constexpr std::size_t kChunk = 16384;  // samples; the bytes stay in the cache
  const auto size = static_cast<std::size_t>(format->size);
  std::vector<unsigned char> bytes(std::min(found.size(), kChunk) * size);
  for (std::size_t done = 0; done < found.size();) {
    const std::size_t part = std::min(found.size() - done, kChunk);
    const auto at = static_cast<off_t>(begin) + static_cast<off_t>(done * size);
    const ssize_t got = read_at(file.get(), bytes.data(), part * size, at);
    if (got != static_cast<ssize_t>(part * size)) {
      elog_log(1, "read_samples: read(%s) error.\n", segment.path.c_str());
      return false;
    }
    if (!format->convert(bytes.data(), part, found.data() + done)) {
      elog_log(0, "read_samples: %s holds a sample that is no number.\n",
               segment.path.c_str());
      return false;
    }
    done += part;
  }
  samples = std::move(found);
  return true;
} catch (const std::bad_alloc &) {
  errno = ENOMEM;
  elog_log(1, "read_samples: malloc() error.\n");
  return false;
}

}  // namespace

bool read_samples(const WaveformSegment &segment, std::int64_t first,
                  std::int64_t count, std::vector<float> &samples) {
  return read_converted(segment, first, count, samples);
}

bool read_samples(const WaveformSegment &segment, std::int64_t first,
                  std::int64_t count, std::vector<double> &samples) {
  return read_converted(segment, first, count, samples);
}

std::int64_t samples_between(const WaveformSegment &segment, double tstart, double tend,
                             std::int64_t &first) {
  first = 0;
  constexpr double kSlack = 0.01;
  const auto last = static_cast<double>(segment.nsamp - 1);
  /* In this order max and min keep a NaN, which the comparison then refuses. */
  const double from =
      std::max(std::ceil((tstart - segment.time) * segment.samprate - kSlack), 0.0);
  const double to =
      std::min(std::floor((tend - segment.time) * segment.samprate + kSlack), last);
  if (!(from <= to)) return 0;
  first = static_cast<std::int64_t>(from);
  return static_cast<std::int64_t>(to) - first + 1;
}

int sample_size(std::string_view datatype) {
  const Format<float> *const format = find_format<float>(datatype);
  return format == nullptr ? 0 : format->size;
}

}  // namespace ksutil
