#include "platform/trace/internal/miniseed_record.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr std::size_t kHeader = 48;  // bytes of the fixed part
constexpr std::size_t kWindow =
    1024;  // where the blockettes of a header are looked for
constexpr std::uint32_t kLongRecord =
    8192;  // bytes, above which records are not read whole
constexpr int kLeastExponent = 7, kMostExponent = 20;  // of the length of a record
constexpr std::int64_t kMostLength = std::int64_t{1} << kMostExponent;

constexpr int kText = 0, kSteim1 = 10, kSteim2 = 11;

bool is_digit_or_blank(char c) { return (c >= '0' && c <= '9') || c == ' ' || c == 0; }
bool is_quality(char c) { return c == 'D' || c == 'R' || c == 'Q' || c == 'M'; }

/* Numbers of a header in its byte order. */
class Numbers {
 public:
  Numbers(const char *bytes, bool big)
      : bytes_(bytes), swap_(big != (std::endian::native == std::endian::big)) {}

  std::uint16_t u16(std::size_t at) const {
    std::uint16_t value;
    std::memcpy(&value, bytes_ + at, sizeof value);
    return swap_ ? __builtin_bswap16(value) : value;
  }
  std::uint32_t u32(std::size_t at) const {
    std::uint32_t value;
    std::memcpy(&value, bytes_ + at, sizeof value);
    return swap_ ? __builtin_bswap32(value) : value;
  }
  std::uint8_t u8(std::size_t at) const {
    return static_cast<std::uint8_t>(bytes_[at]);
  }
  std::int16_t i16(std::size_t at) const { return static_cast<std::int16_t>(u16(at)); }

 private:
  const char *bytes_;
  bool swap_;
};

bool is_day(const Numbers &numbers) {
  const int year = numbers.u16(20), day = numbers.u16(22);
  return year >= 1900 && year <= 2100 && day >= 1 && day <= 366;
}

/* The samples per second that a factor and a multiplier stand for. */
double nominal_samprate(int factor, int multiplier) {
  if (factor == 0 || multiplier == 0) return 0.0;
  const double rate = factor > 0 ? factor : -1.0 / factor;
  return multiplier > 0 ? rate * multiplier : rate / -multiplier;
}

/* Bits that the shortest sample of an encoding takes; 0 for unknown encodings. */
int least_bits(int encoding) {
  switch (encoding) {
    case kText:
      return 8;
    case 1:   // 16-bit integers
    case 13:  // gain-ranged, 16 bits
    case 14:
    case 16:
    case 30:
    case 32:
      return 16;
    case 12:  // gain-ranged, 24 bits
      return 24;
    case 3:  // 32-bit integers and floats
    case 4:
      return 32;
    case 5:  // 64-bit floats
      return 64;
    case kSteim1:
      return 8;
    case kSteim2:
      return 4;
    default:
      return 0;
  }
}

/* The samples that the bytes of a record can hold. */
std::int64_t most_samples(const MiniseedRecord &record) {
  const int bits = least_bits(record.encoding);
  if (bits == 0 || record.data_offset >= record.length) return 0;
  return std::int64_t{record.length - record.data_offset} * 8 / bits;
}

double time_of(const Numbers &numbers) {
  const std::chrono::sys_days day =
      std::chrono::sys_days(std::chrono::year(numbers.u16(20)) / 1 / 1) +
      std::chrono::days(numbers.u16(22) - 1);
  const auto seconds = std::int64_t{day.time_since_epoch().count()} * 86400 +
                       numbers.u8(24) * 3600 + numbers.u8(25) * 60 + numbers.u8(26);
  std::int64_t ticks = numbers.u16(28);  // of 0.1 ms
  constexpr unsigned kCorrected = 2;     // the correction is in the time already
  if ((numbers.u8(36) & kCorrected) == 0) {
    ticks += static_cast<std::int32_t>(numbers.u32(40));
  }
  return static_cast<double>(seconds) + static_cast<double>(ticks) * 1e-4;
}

}  // namespace

bool same_samprate(double a, double b) { return std::abs(1.0 - a / b) < 1e-4; }

bool parse_miniseed(const char *bytes, std::size_t count, MiniseedRecord &record) {
  if (count < kHeader || !is_quality(bytes[6]) || (bytes[7] != ' ' && bytes[7] != 0) ||
      !std::all_of(bytes, bytes + 6, is_digit_or_blank)) {
    return false;
  }
  MiniseedRecord found;
  found.big_header = is_day(Numbers(bytes, true));
  const Numbers numbers(bytes, found.big_header);
  if (!is_day(numbers) || numbers.u8(24) > 23 || numbers.u8(25) > 59 ||
      numbers.u8(26) > 60 || numbers.u16(28) > 9999) {
    return false;
  }
  const auto printable = [](char c) { return c == 0 || (c >= ' ' && c <= '~'); };
  if (!std::all_of(bytes + 8, bytes + 20, printable)) return false;
  std::copy_n(bytes + 8, found.codes.size(), found.codes.begin());
  found.quality = bytes[6];
  found.time = time_of(numbers);
  found.nsamp = numbers.u16(30);
  found.samprate = nominal_samprate(numbers.i16(32), numbers.i16(34));
  found.data_offset = numbers.u16(44);
  found.encoding = kSteim1;  // of records without blockette 1000
  found.big_data = found.big_header;

  /* Blockettes point forward, so that the chain ends. */
  std::size_t at = numbers.u16(46);
  for (std::size_t least = kHeader; at >= least && at + 8 <= count;) {
    const int type = numbers.u16(at);
    const std::size_t next = numbers.u16(at + 2);
    if (type == 1000) {
      const int exponent = numbers.u8(at + 6);
      if (exponent < kLeastExponent || exponent > kMostExponent) return false;
      found.has_length = true;
      found.encoding = numbers.u8(at + 4);
      found.big_data = numbers.u8(at + 5) != 0;
      found.length = std::uint32_t{1} << exponent;
    } else if (type == 1001) {
      found.time += static_cast<std::int8_t>(numbers.u8(at + 5)) * 1e-6;
    } else if (type == 100) {
      const auto rate = double{std::bit_cast<float>(numbers.u32(at + 4))};
      if (std::isfinite(rate) && rate > 0.0) found.samprate = rate;
    }
    least = at + 4;
    at = next;
  }
  if (least_bits(found.encoding) == 0) found.nsamp = 0;  // nothing that can be decoded
  if (found.nsamp > 0 && found.data_offset < kHeader) return false;
  if (found.has_length && found.has_samples() && found.nsamp > most_samples(found)) {
    return false;
  }
  record = found;
  return true;
}

MiniseedCodes codes_of(const MiniseedRecord &record) {
  const auto code = [&](std::size_t at, std::size_t width) {
    std::string text(record.codes.data() + at, width);
    std::erase_if(text, [](char c) { return c == ' ' || c == 0; });
    return text;
  };
  return {code(10, 2), code(0, 5), std::string(location_code(code(5, 2))), code(7, 3),
          record.quality};
}

bool MiniseedWalker::open(const std::string &path) {
  path_ = path;
  /* A fifo would wait here for a writer. */
  file_ = open_file(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file_ || ::fstat(file_.get(), &status) != 0) {
    return fail_errno(who_, "open(%s) error", path.c_str());
  }
  if (!S_ISREG(status.st_mode)) {
    return fail(who_, "%s is not a regular file", path.c_str());
  }
  size_ = status.st_size;
  return true;
}

const char *MiniseedWalker::bytes(std::int64_t at, std::size_t wanted,
                                  std::size_t &count) {
  const auto left = static_cast<std::size_t>(std::max<std::int64_t>(size_ - at, 0));
  wanted = std::min(wanted, left);
  if (at < buffer_at_ || static_cast<std::size_t>(at - buffer_at_) + wanted > held_) {
    constexpr std::size_t kChunk = std::size_t{1} << 16;
    const std::size_t chunk =
        std::min(left, std::max(wanted, long_records_ ? kWindow : kChunk));
    buffer_.resize(std::max(buffer_.size(), chunk));
    errno = 0;
    const ssize_t got = read_at(file_.get(), buffer_.data(), chunk, at);
    if (got < 0 || (static_cast<std::size_t>(got) < chunk && errno != 0)) {
      held_ = 0;
      return fail_errno(who_, "read(%s) error", path_.c_str());
    }
    buffer_at_ = at;
    held_ = static_cast<std::size_t>(got);
  }
  const auto skip = static_cast<std::size_t>(at - buffer_at_);
  count = held_ > skip ? held_ - skip : 0;
  return buffer_.data() + skip;
}

/* The length of a record without blockette 1000: up to the next header at a multiple of
 * the shortest length, or to the end of the file.  False with a message. */
bool MiniseedWalker::find_length(MiniseedRecord &record) {
  constexpr std::int64_t kStep = std::int64_t{1} << kLeastExponent;
  std::int64_t length = kStep;
  for (; length < kMostLength && record.offset + length < size_; length += kStep) {
    std::size_t count = 0;
    const char *const head = bytes(record.offset + length, kWindow, count);
    if (head == nullptr) return false;
    MiniseedRecord next;
    if (parse_miniseed(head, count, next)) break;
  }
  length = std::min(length, size_ - record.offset);
  const auto whole = std::bit_floor(static_cast<std::uint64_t>(length));
  record.length = whole < std::uint64_t{kStep} ? 0 : static_cast<std::uint32_t>(whole);
  return true;
}

MiniseedWalker::Got MiniseedWalker::next(MiniseedRecord &record) {
  bool searching = false;
  for (;;) {
    if (size_ - at_ < static_cast<std::int64_t>(kHeader)) {
      foreign_ += std::max<std::int64_t>(size_ - at_, 0);
      at_ = size_;
      return Got::kEnd;
    }
    std::size_t count = 0;
    const char *const head = bytes(at_, kWindow, count);
    if (head == nullptr) return Got::kFailed;
    if (count < kHeader) {  // the file has become shorter
      size_ = at_ + static_cast<std::int64_t>(count);
      continue;
    }
    MiniseedRecord found;
    bool good = parse_miniseed(head, count, found);
    found.offset = at_;
    if (good && !found.has_length) {
      good = !searching;  // while searching, only a full header is a record
      if (good && !find_length(found)) return Got::kFailed;
      good = good && found.length > 0 && found.nsamp <= most_samples(found);
    }
    if (good && found.length > size_ - at_) {
      cut_at_ = at_;
      lost_ = found.has_samples() ? found.nsamp : 0;
      good = false;
    }
    if (good) {
      cut_at_ = -1;
      lost_ = 0;
      at_ += found.length;
      long_records_ = found.length > kLongRecord;
      record = found;
      return Got::kRecord;
    }
    /* To the next byte that may begin a header: the quality is its 7th character. */
    searching = true;
    long_records_ = false;
    const char *const held = bytes(at_, kWindow, count);
    if (held == nullptr) return Got::kFailed;
    std::size_t step = 1;
    while (step + kHeader <= count &&
           !(is_quality(held[step + 6]) && is_digit_or_blank(held[step + 5]) &&
             is_digit_or_blank(held[step]))) {
      ++step;
    }
    foreign_ += static_cast<std::int64_t>(step);
    at_ += static_cast<std::int64_t>(step);
  }
}

}  // namespace ksutil
