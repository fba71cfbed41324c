#include "platform/trace/shared/waveform_samples.h"

#include <fcntl.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "platform/elog/failure.h"
#include "platform/stock/files.h"
#include "platform/stock/text.h"
#include "platform/trace/internal/miniseed_reader.h"
#include "platform/trace/internal/nearest_sample.h"

namespace ksutil {
namespace {

constexpr char kReadSamples[] = "read_samples";

template <class Unsigned>
Unsigned loaded(const unsigned char *from, std::endian order) {
  Unsigned value;
  std::memcpy(&value, from, sizeof value);
  if (order == std::endian::native) return value;
  if constexpr (sizeof value == 2) return __builtin_bswap16(value);
  if constexpr (sizeof value == 4) return __builtin_bswap32(value);
  if constexpr (sizeof value == 8) return __builtin_bswap64(value);
}

template <class Unsigned, class Number, std::endian kOrder, class Sample>
bool convert(const unsigned char *from, std::size_t count, Sample *to) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto bits = loaded<Unsigned>(from + i * sizeof(Unsigned), kOrder);
    to[i] = nearest_sample<Sample>(std::bit_cast<Number>(bits));
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
    to[i] = nearest_sample<Sample>(value);
  }
  return true;
}

/* A data type: how its samples are stored.  A conversion gives false for a text that is not
 * a number.  Samples of the same size may be converted in place. */
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

template <>
constexpr Format<std::int32_t> kFormats<std::int32_t>[] = {
    {"s4", 4, convert<std::uint32_t, std::int32_t, kBig, std::int32_t>},
    {"i4", 4, convert<std::uint32_t, std::int32_t, kLittle, std::int32_t>},
    {"s3", 3, convert_24_bits<std::int32_t>},
    {"s2", 2, convert<std::uint16_t, std::int16_t, kBig, std::int32_t>},
    {"i2", 2, convert<std::uint16_t, std::int16_t, kLittle, std::int32_t>},
};

template <class Sample>
const Format<Sample> *find_format(std::string_view datatype) {
  for (const Format<Sample> &format : kFormats<Sample>) {
    if (datatype == format.name) return &format;
  }
  return nullptr;
}

bool is_miniseed(std::string_view datatype) { return datatype == "sd"; }

/* Opens the file of a segment, whose size is then at least `end`. */
FileHandle open_waveform(const std::string &path, std::int64_t end) {
  /* A fifo would wait here for a writer. */
  FileHandle file = open_file(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    fail_errno("read_samples", "open(%s) error", path.c_str());
    return FileHandle();
  }
  if (!S_ISREG(status.st_mode)) {
    fail("read_samples", "%s is not a regular file", path.c_str());
    return FileHandle();
  }
  if (status.st_size < end) {
    fail("read_samples", "%s has %lld bytes, the samples end at byte %lld",
         path.c_str(), static_cast<long long>(status.st_size),
         static_cast<long long>(end));
    return FileHandle();
  }
  return file;
}

/* Reads and converts `count` samples from byte `begin` on. */
template <class Sample>
bool read_numbers(int fd, const std::string &path, const Format<Sample> &format,
                  std::int64_t begin, std::size_t count, Sample *to) {
  constexpr std::size_t kChunk = 16384;  // samples; the bytes stay in the cache
  const auto size = static_cast<std::size_t>(format.size);
  const bool in_place = size == sizeof(Sample);
  std::vector<unsigned char> chunk(in_place ? 0 : std::min(count, kChunk) * size);
  for (std::size_t done = 0; done < count;) {
    const std::size_t part = std::min(count - done, kChunk);
    auto *const bytes =
        in_place ? reinterpret_cast<unsigned char *>(to + done) : chunk.data();
    const auto at = static_cast<off_t>(begin) + static_cast<off_t>(done * size);
    if (read_at(fd, bytes, part * size, at) != static_cast<ssize_t>(part * size)) {
      return fail_errno(kReadSamples, "read(%s) error", path.c_str());
    }
    if (!format.convert(bytes, part, to + done)) {
      return fail(kReadSamples, "%s holds a sample that is not a number", path.c_str());
    }
    done += part;
  }
  return true;
}

template <class Sample>
bool read_vector(const WaveformSegment &segment, std::int64_t first, std::int64_t count,
                 std::vector<Sample> &samples) {
  return at_boundary(kReadSamples, [&] {
    std::vector<Sample> found;
    const auto allocate = [&] {
      /* Never null, also for no samples. */
      found.reserve(static_cast<std::size_t>(std::max<std::int64_t>(count, 1)));
      found.resize(static_cast<std::size_t>(count));
      return found.data();
    };
    if (!read_samples_into<Sample>(segment, first, count, allocate)) return false;
    samples = std::move(found);
    return true;
  });
}

}  // namespace

bool find_kind(const WaveformSegment &segment, bool &counts) {
  if (is_miniseed(segment.datatype)) {
    return find_miniseed_kind(kReadSamples, segment.path, segment.foff, counts);
  }
  counts = find_format<std::int32_t>(segment.datatype) != nullptr;
  return true;
}

template <class Sample>
bool read_samples_into(const WaveformSegment &segment, std::int64_t first,
                       std::int64_t count, const std::function<Sample *()> &allocate) {
  const bool miniseed = is_miniseed(segment.datatype);
  const Format<Sample> *const format = find_format<Sample>(segment.datatype);
  if (format == nullptr && !miniseed) {
    return fail(kReadSamples, "Data type '%s' of %s is not supported",
                segment.datatype.c_str(), segment.path.c_str());
  }
  if (first < 0 || count < 0 || first > segment.nsamp ||
      count > segment.nsamp - first) {
    return fail(kReadSamples, "The segment has no %lld samples from %lld on",
                static_cast<long long>(count), static_cast<long long>(first));
  }
  /* Counts and offsets whose bytes no file can have. */
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / 64;
  if (segment.nsamp > kMost || segment.foff < 0 || segment.foff > kMost) {
    return fail(kReadSamples, "nsamp or foff of %s is out of range",
                segment.path.c_str());
  }
  if (miniseed) {
    const MiniseedRun run{segment.path, segment.foff, segment.time, segment.samprate};
    return read_miniseed_into<Sample>(kReadSamples, run, first, count, allocate);
  }
  const std::int64_t begin = segment.foff + first * format->size;
  const FileHandle file = open_waveform(segment.path, begin + count * format->size);
  if (!file) return false;
  Sample *const to = allocate();
  return to != nullptr && read_numbers(file.get(), segment.path, *format, begin,
                                       static_cast<std::size_t>(count), to);
}

template bool read_samples_into(const WaveformSegment &, std::int64_t, std::int64_t,
                                const std::function<float *()> &);
template bool read_samples_into(const WaveformSegment &, std::int64_t, std::int64_t,
                                const std::function<double *()> &);
template bool read_samples_into(const WaveformSegment &, std::int64_t, std::int64_t,
                                const std::function<std::int32_t *()> &);

bool read_samples(const WaveformSegment &segment, std::int64_t first,
                  std::int64_t count, std::vector<float> &samples) {
  return read_vector(segment, first, count, samples);
}

bool read_samples(const WaveformSegment &segment, std::int64_t first,
                  std::int64_t count, std::vector<double> &samples) {
  return read_vector(segment, first, count, samples);
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
