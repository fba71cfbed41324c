#include <fcntl.h>
#include <sys/stat.h>

#include <bit>
#include <cmath>
#include <string>

#include "platform/elog/failure.h"
#include "platform/stock/files.h"
#include "platform/trace/internal/miniseed_codec.h"
#include "platform/trace/miniseed.h"
#include "platform/trace/trace.h"

namespace ksutil {
namespace {

bool is_code(const std::string &code, std::size_t most, std::size_t least) {
  const auto graphic = [](char c) { return c > ' ' && c <= '~'; };
  return code.size() >= least && code.size() <= most &&
         code.find_first_not_of(' ') == (code.empty() ? code.npos : 0) &&
         std::all_of(code.begin(), code.end(), graphic);
}

/* What is wrong with the arguments; null for nothing. */
const char *fault(const Segment &segment, const MiniseedCodes &codes,
                  int record_length) {
  if (!is_code(codes.sta, 5, 1) || !is_code(codes.chan, 3, 1) ||
      !is_code(codes.net, 2, 0) || !is_code(codes.loc, 2, 0)) {
    return "A code does not fit a miniSEED header";
  }
  if (std::string_view("DRQM").find(codes.quality) == std::string_view::npos) {
    return "The quality is none of D, R, Q, M";
  }
  if (record_length < 256 || record_length > 65536 ||
      !std::has_single_bit(static_cast<unsigned>(record_length))) {
    return "The record length is not a power of two from 256 to 65536";
  }
  constexpr double kEarliest = -2208988800.0, kLatest = 4102444800.0;  // 1900 to 2100
  if (!(segment.time >= kEarliest && segment.endtime() < kLatest)) {
    return "The time is not between 1900 and 2100";
  }
  if (!std::isfinite(segment.samprate) || segment.samprate <= 0.0) {
    return "The sample rate is not a positive number";
  }
  return nullptr;
}

/* Encodes the samples from `first` to `end` and hands the records on. */
template <class Span>
bool pack_run(const char *who, const Segment &segment, Span samples, std::size_t first,
              std::size_t end, const MiniseedCodes &codes, int record_length,
              const MiniseedSink &sink) {
  /* In parts, so that the records of a long segment are never all in memory; a part fills
   * its last record as well as it can. */
  constexpr std::size_t kPart = std::size_t{1} << 20;
  for (; first < end; first += std::min(kPart, end - first)) {
    const std::size_t count = std::min(kPart, end - first);
    const double time = segment.time + static_cast<double>(first) / segment.samprate;
    std::string records;
    if (!encode_miniseed(who, codes, time, segment.samprate,
                         samples.subspan(first, count), record_length, records)) {
      return false;
    }
    const auto length = static_cast<std::size_t>(record_length);
    for (std::size_t at = 0; at + length <= records.size(); at += length) {
      if (!sink(std::string_view(records).substr(at, length))) return false;
    }
  }
  return true;
}

bool pack(const char *who, const Segment &segment, const MiniseedCodes &codes,
          int record_length, const MiniseedSink &sink) {
  if (const char *const wrong = fault(segment, codes, record_length)) {
    return fail(who, "%s", wrong);
  }
  if (const auto *const counts = std::get_if<Segment::Counts>(&segment.samples)) {
    return pack_run(who, segment, *counts, 0, counts->size(), codes, record_length,
                    sink);
  }
  const auto floats = std::get<Segment::Floats>(segment.samples);
  const auto is_gap = [](float sample) { return tr_isgap(sample) != 0; };
  for (std::size_t first = 0; first < floats.size();) {
    const auto begin = std::find_if_not(floats.begin() + static_cast<long>(first),
                                        floats.end(), is_gap);
    const auto end = std::find_if(begin, floats.end(), is_gap);
    first = static_cast<std::size_t>(end - floats.begin());
    if (!pack_run(who, segment, floats,
                  static_cast<std::size_t>(begin - floats.begin()), first, codes,
                  record_length, sink)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool miniseed_pack(const Segment &segment, const MiniseedCodes &codes,
                   int record_length, const MiniseedSink &sink) {
  constexpr char kSelf[] = "miniseed_pack";
  return at_boundary(kSelf,
                     [&] { return pack(kSelf, segment, codes, record_length, sink); });
}

bool miniseed_append(const std::string &path, const Segment &segment,
                     const MiniseedCodes &codes, int record_length) {
  constexpr char kSelf[] = "miniseed_append";
  return at_boundary(kSelf, [&] {
    const FileHandle file = open_file(path, O_WRONLY | O_CREAT);
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
      return bool(fail_errno(kSelf, "open(%s) error", path.c_str()));
    }
    if (!S_ISREG(status.st_mode)) {
      return bool(fail(kSelf, "%s is not a regular file", path.c_str()));
    }
    off_t at = status.st_size;
    std::string waiting;  // records are written some at a time
    const auto flush = [&] {
      if (write_at(file.get(), waiting.data(), waiting.size(), at) !=
          static_cast<ssize_t>(waiting.size())) {
        return bool(fail_errno(kSelf, "write(%s) error", path.c_str()));
      }
      at += static_cast<off_t>(waiting.size());
      waiting.clear();
      return true;
    };
    const auto sink = [&](std::string_view record) {
      constexpr std::size_t kBlock = std::size_t{1} << 20;
      waiting += record;
      return waiting.size() < kBlock || flush();
    };
    if (pack(kSelf, segment, codes, record_length, sink) && flush()) return true;
    truncate_file(file.get(), status.st_size);
    return false;
  });
}

}  // namespace ksutil
