#include "platform/trace/internal/miniseed_reader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/trace/internal/miniseed_codec.h"
#include "platform/trace/internal/miniseed_record.h"
#include "platform/trace/internal/miniseed_waypoints.h"
#include "platform/trace/internal/nearest_sample.h"
#include "platform/trace/miniseed.h"

namespace ksutil {
namespace {

/* Links records to a run, and keeps those with samples of a window of it. */
class Chain {
 public:
  struct Link {
    MiniseedRecord record;
    std::int64_t
        begin;  // the place of its first sample in the run; below 0 for the first
  };

  Chain(double time, std::int64_t first, std::int64_t count)
      : next_(time), first_(first), end_(first + count) {}
  /* Goes on at a waypoint. */
  Chain(const MiniseedWaypoint &from, std::int64_t first, std::int64_t count)
      : next_(from.time), length_(from.begin), first_(first), end_(first + count) {}

  bool done() const { return length_ >= end_; }
  std::int64_t length() const { return length_; }
  const std::vector<Link> &links() const { return links_; }
  const std::vector<MiniseedWaypoint> &waypoints() const { return waypoints_; }

  void offer(const MiniseedRecord &record) {
    const double half = 0.5 / record.samprate;
    std::int64_t begin = length_;
    if (std::abs(record.time - next_) > half) {
      /* A row may begin within a record. */
      if (length_ > 0 || record.time > next_ || record.next_time() - half <= next_) {
        return;
      }
      begin = -std::llround((next_ - record.time) * record.samprate);
      if (begin + record.nsamp <= 0) return;
    }
    const std::int64_t end = begin + record.nsamp;
    if (end > first_ && begin < end_) links_.push_back({record, begin});
    if (begin >= kWaypointStep && begin >= last_waypoint_ + kWaypointStep) {
      waypoints_.push_back({record.offset, begin, next_});
      last_waypoint_ = begin;
    }
    length_ = end;
    next_ = record.next_time();
  }

 private:
  double next_;  // the time of the sample that follows
  std::int64_t length_ = 0;
  std::int64_t first_, end_;
  std::int64_t last_waypoint_ = 0;
  std::vector<Link> links_;
  std::vector<MiniseedWaypoint> waypoints_;
};

/* The records of a channel, as far as their order needs them: 32 bytes each, up to kMost. */
class RecordsByTime {
 public:
  static constexpr std::size_t kMost = std::size_t{1} << 20;

  void add(const MiniseedRecord &record) {
    if (overflowed_) return;
    if (records_.size() < kMost) {
      records_.push_back({record.time, record.samprate, record.offset, record.nsamp});
    } else {
      overflowed_ = true;
      records_ = {};
    }
  }
  bool overflowed() const { return overflowed_; }

  /* Offers them by their times, in the order of the file those of one time. */
  void offer_to(Chain &chain) {
    std::stable_sort(records_.begin(), records_.end(),
                     [](const Seen &a, const Seen &b) { return a.time < b.time; });
    for (std::size_t i = 0; i < records_.size() && !chain.done(); ++i) {
      MiniseedRecord record;
      record.time = records_[i].time;
      record.samprate = records_[i].samprate;
      record.offset = records_[i].offset;
      record.nsamp = records_[i].nsamp;
      chain.offer(record);
    }
  }

 private:
  struct Seen {
    double time, samprate;
    std::int64_t offset;
    int nsamp;
  };
  std::vector<Seen> records_;
  bool overflowed_ = false;
};

/* The channel that a run belongs to. */
struct Channel {
  MiniseedRecord record;
  double samprate;

  bool has(const MiniseedRecord &other) const {
    /* Rows round their sample rates. */
    return other.has_samples() && other.codes == record.codes &&
           miniseed_holds_counts(other.encoding) ==
               miniseed_holds_counts(record.encoding) &&
           std::abs(1.0 - other.samprate / samprate) < 0.01;
  }
};

bool first_record(const char *who, MiniseedWalker &walker, const std::string &path,
                  std::int64_t foff, MiniseedRecord &record) {
  walker.start_at(foff);
  const MiniseedWalker::Got got = walker.next(record);
  if (got == MiniseedWalker::Got::kFailed) return false;
  if (got == MiniseedWalker::Got::kRecord && record.offset == foff &&
      record.has_samples()) {
    return true;
  }
  return fail(who, "%s has no whole miniSEED record with samples at byte %lld",
              path.c_str(), static_cast<long long>(foff));
}

/* Finds the records of a window from a waypoint on; false, without a message, when the file is
 * not as it was or its records do not follow each other. */
bool find_links_from(const MiniseedWaypoint &from, MiniseedWalker &walker,
                     const Channel &channel, std::int64_t first, std::int64_t count,
                     Chain &chain) {
  chain = Chain(from, first, count);
  walker.start_at(from.offset);
  MiniseedRecord record;
  for (bool begun = false; !chain.done(); begun = true) {
    if (walker.next(record) != MiniseedWalker::Got::kRecord) return false;
    if (!begun && (record.offset != from.offset || !channel.has(record))) return false;
    if (channel.has(record)) chain.offer(record);
    if (!begun && chain.length() == from.begin) return false;
  }
  return true;
}

/* Finds the records of a window: in the order of the file as long as they follow each
 * other, else in the order of time. */
bool find_links(const char *who, MiniseedWalker &walker, const MiniseedRun &run,
                std::int64_t first, std::int64_t count,
                std::vector<Chain::Link> &links) {
  Channel channel{{}, run.samprate};
  if (!first_record(who, walker, run.path, run.foff, channel.record)) return false;
  Chain chain(run.time, first, count);
  MiniseedRunKey key;
  const bool known = key.set_file(walker.fd());
  key.foff = run.foff;
  key.time = run.time;
  key.samprate = run.samprate;
  if (MiniseedWaypoint waypoint; known && find_waypoint(key, first, waypoint)) {
    const ElogScope quiet;  // what goes wrong here is met again below
    if (find_links_from(waypoint, walker, channel, first, count, chain)) {
      keep_waypoints(key, chain.waypoints());
      links = chain.links();
      return true;
    }
    chain = Chain(run.time, first, count);
  }
  walker.start_at(run.foff + channel.record.length);
  RecordsByTime seen;
  MiniseedRecord record = channel.record;
  for (auto got = MiniseedWalker::Got::kRecord; got != MiniseedWalker::Got::kEnd;
       got = walker.next(record)) {
    if (got == MiniseedWalker::Got::kFailed) return false;
    if (!channel.has(record)) continue;
    seen.add(record);
    chain.offer(record);
    if (chain.done()) {
      if (known) keep_waypoints(key, chain.waypoints());
      links = chain.links();
      return true;
    }
  }
  if (seen.overflowed()) {
    return fail(who, "%s has more than %zu records of a segment that are out of order",
                run.path.c_str(), RecordsByTime::kMost);
  }
  Chain sorted(run.time, first, count);
  seen.offer_to(sorted);
  if (sorted.done()) {
    links = sorted.links();
    /* What is needed to decode them was not kept. */
    return std::all_of(links.begin(), links.end(), [&](Chain::Link &link) {
      return first_record(who, walker, run.path, link.record.offset, link.record);
    });
  }
  return fail(who, "%s holds %lld samples of the segment at byte %lld, wanted are %lld",
              run.path.c_str(), static_cast<long long>(sorted.length()),
              static_cast<long long>(run.foff), static_cast<long long>(first + count));
}

/* Copies the samples of a record that lie in the window to their places. */
template <class Sample>
bool copy_samples(const MiniseedSamples &samples, std::int64_t begin,
                  std::int64_t first, std::int64_t count, Sample *to) {
  return std::visit(
      [&](auto span) {
        using Number = typename decltype(span)::value_type;
        if constexpr (std::is_same_v<Sample, std::int32_t> &&
                      !std::is_same_v<Number, std::int32_t>) {
          return false;
        } else {
          const std::int64_t from = std::max(begin, first);
          const std::int64_t end =
              std::min(begin + static_cast<std::int64_t>(span.size()), first + count);
          std::transform(span.begin() + (from - begin), span.begin() + (end - begin),
                         to + (from - first), nearest_sample<Sample, Number>);
          return true;
        }
      },
      samples);
}

}  // namespace

bool find_miniseed_kind(const char *who, const std::string &path, std::int64_t foff,
                        bool &counts) {
  MiniseedWalker walker(who);
  MiniseedRecord record;
  if (!walker.open(path) || !first_record(who, walker, path, foff, record))
    return false;
  counts = miniseed_holds_counts(record.encoding);
  return true;
}

template <class Sample>
bool read_miniseed_into(const char *who, const MiniseedRun &run, std::int64_t first,
                        std::int64_t count, const std::function<Sample *()> &allocate) {
  if (!miniseed_available()) {
    return fail(who, "%s is miniSEED, and the library was built without it (libmseed)",
                run.path.c_str());
  }
  MiniseedWalker walker(who);
  std::vector<Chain::Link> links;
  if (!walker.open(run.path) ||
      (count > 0 && !find_links(who, walker, run, first, count, links))) {
    return false;
  }
  Sample *const to = allocate();
  if (to == nullptr) return false;
  MiniseedDecoder decoder;
  std::string bytes;
  for (const Chain::Link &link : links) {
    bytes.resize(link.record.length);
    if (read_at(walker.fd(), bytes.data(), bytes.size(),
                static_cast<off_t>(link.record.offset)) !=
        static_cast<ssize_t>(bytes.size())) {
      return fail_errno(who, "read(%s) error", run.path.c_str());
    }
    MiniseedSamples samples;
    if (!decoder.decode(link.record, bytes, samples)) {
      return fail(who, "The record at byte %lld of %s is damaged",
                  static_cast<long long>(link.record.offset), run.path.c_str());
    }
    if (!copy_samples<Sample>(samples, link.begin, first, count, to)) {
      return fail(who, "%s holds floats, not counts", run.path.c_str());
    }
  }
  return true;
}

template bool read_miniseed_into(const char *, const MiniseedRun &, std::int64_t,
                                 std::int64_t, const std::function<float *()> &);
template bool read_miniseed_into(const char *, const MiniseedRun &, std::int64_t,
                                 std::int64_t, const std::function<double *()> &);
template bool read_miniseed_into(const char *, const MiniseedRun &, std::int64_t,
                                 std::int64_t, const std::function<std::int32_t *()> &);

namespace {

template <class Sample>
bool read_piece(const std::string &path, const MiniseedPiece &piece, std::int64_t first,
                std::int64_t count, std::vector<Sample> &samples) {
  constexpr char kSelf[] = "miniseed_read";
  return at_boundary(kSelf, [&] {
    if (first < 0 || count < 0 || first > piece.nsamp || count > piece.nsamp - first) {
      return bool(fail(kSelf, "The piece has no %lld samples from %lld on",
                       static_cast<long long>(count), static_cast<long long>(first)));
    }
    std::vector<Sample> found;
    const auto allocate = [&] {
      found.reserve(static_cast<std::size_t>(std::max<std::int64_t>(count, 1)));
      found.resize(static_cast<std::size_t>(count));
      return found.data();
    };
    const MiniseedRun run{path, piece.foff, piece.time, piece.samprate};
    if (!read_miniseed_into<Sample>(kSelf, run, first, count, allocate)) return false;
    samples = std::move(found);
    return true;
  });
}

}  // namespace

bool miniseed_record_at(const std::string &path, std::int64_t foff,
                        MiniseedPiece &record) {
  constexpr char kSelf[] = "miniseed_record_at";
  return at_boundary(kSelf, [&] {
    MiniseedWalker walker(kSelf);
    MiniseedRecord found;
    if (!walker.open(path)) return false;
    /* Looked at first: the walker would search the rest of the file for a record. */
    char head[512];
    const ssize_t count =
        foff < 0 ? 0
                 : read_at(walker.fd(), head, sizeof head, static_cast<off_t>(foff));
    if (count <= 0 || !parse_miniseed(head, static_cast<std::size_t>(count), found)) {
      return bool(fail(kSelf, "%s has no miniSEED record at byte %lld", path.c_str(),
                       static_cast<long long>(foff)));
    }
    if (!first_record(kSelf, walker, path, foff, found)) return false;
    record.codes = codes_of(found);
    record.time = found.time;
    record.endtime = found.time + (found.nsamp - 1) / found.samprate;
    record.samprate = found.samprate;
    record.nsamp = found.nsamp;
    record.foff = foff;
    record.encoding = found.encoding;
    record.record_length = static_cast<int>(found.length);
    return true;
  });
}

bool miniseed_read(const std::string &path, const MiniseedPiece &piece,
                   std::int64_t first, std::int64_t count,
                   std::vector<std::int32_t> &samples) {
  return read_piece(path, piece, first, count, samples);
}
bool miniseed_read(const std::string &path, const MiniseedPiece &piece,
                   std::int64_t first, std::int64_t count,
                   std::vector<float> &samples) {
  return read_piece(path, piece, first, count, samples);
}
bool miniseed_read(const std::string &path, const MiniseedPiece &piece,
                   std::int64_t first, std::int64_t count,
                   std::vector<double> &samples) {
  return read_piece(path, piece, first, count, samples);
}

}  // namespace ksutil
