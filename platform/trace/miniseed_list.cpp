#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "platform/elog/failure.h"
#include "platform/trace/internal/miniseed_record.h"
#include "platform/trace/miniseed.h"

namespace ksutil {
namespace {

constexpr char kMiniseedList[] = "miniseed_list";

struct OpenPiece {
  MiniseedPiece piece;
  double next = 0.0;    // the time of the sample after the last
  bool merged = false;  // into another
};

/* Puts the records of one channel and one kind of samples together to pieces. */
class Assembly {
 public:
  void add(const MiniseedRecord &record) {
    const double half = 0.5 / record.samprate;
    std::size_t index = find(by_next_, record.time, half, record.samprate);
    if (index != kNone) {
      append(index, record.next_time(), record.nsamp, record.samprate);
    } else if ((index = find(by_time_, record.next_time(), half, record.samprate)) !=
               kNone) {
      prepend(index, record);
    } else {
      begin(record);
      return;
    }
    heal(index);
  }

  void take(std::vector<MiniseedPiece> &pieces) const {
    for (const OpenPiece &open : pieces_) {
      if (!open.merged) pieces.push_back(open.piece);
    }
  }

 private:
  /* Pieces by a time of theirs; of equal times the earlier in the file comes first. */
  using Index = std::set<std::pair<double, std::size_t>>;
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  /* Pieces that are looked at to each side of a time.  A file that has more of them within
   * half a sample, at other sample rates, leaves pieces apart that could be joined. */
  static constexpr int kMostLooked = 64;

  /* The piece nearest to a time, the earlier in the file of two equal ones. */
  std::size_t find(const Index &index, double time, double half,
                   double samprate) const {
    const auto fits = [&](std::size_t piece) {
      return same_samprate(pieces_[piece].piece.samprate, samprate);
    };
    std::size_t best = kNone;
    double distance = half;
    const auto from = index.lower_bound({time, 0});
    auto place = from;
    for (int looked = 0; looked < kMostLooked && place != index.end(); ++looked) {
      if (place->first > time + half) break;
      if (fits(place->second)) {
        best = place->second;
        distance = place->first - time;
        break;
      }
      ++place;
    }
    place = from;
    for (int looked = 0; looked < kMostLooked && place != index.begin(); ++looked) {
      --place;
      const double off = time - place->first;
      if (off > distance) break;
      if (!fits(place->second)) continue;
      if (best == kNone || off < distance || place->second < best) {
        best = place->second;
      }
      distance = off;
    }
    return best;
  }

  static void move(Index &index, double from, double to, std::size_t piece) {
    erase(index, from, piece);
    index.emplace(to, piece);
  }
  static void erase(Index &index, double from, std::size_t piece) {
    index.erase({from, piece});
  }

  void begin(const MiniseedRecord &record) {
    OpenPiece &open = pieces_.emplace_back();
    open.piece.codes = codes_of(record);
    open.piece.time = record.time;
    open.piece.endtime = record.time + (record.nsamp - 1) / record.samprate;
    open.piece.samprate = record.samprate;
    open.piece.nsamp = record.nsamp;
    open.piece.foff = record.offset;
    open.piece.encoding = record.encoding;
    open.piece.record_length = static_cast<int>(record.length);
    open.next = record.next_time();
    by_next_.emplace(open.next, pieces_.size() - 1);
    by_time_.emplace(open.piece.time, pieces_.size() - 1);
  }

  void append(std::size_t index, double next, std::int64_t nsamp, double samprate) {
    OpenPiece &open = pieces_[index];
    move(by_next_, open.next, next, index);
    open.next = next;
    open.piece.endtime = next - 1.0 / samprate;
    open.piece.nsamp += nsamp;
  }

  void prepend(std::size_t index, const MiniseedRecord &record) {
    OpenPiece &open = pieces_[index];
    move(by_time_, open.piece.time, record.time, index);
    open.piece.time = record.time;
    open.piece.nsamp += record.nsamp;
  }

  /* Joins a piece with the one that begins where it ends, and with the one that ends where
   * it begins. */
  void heal(std::size_t index) {
    const double half = 0.5 / pieces_[index].piece.samprate;
    const std::size_t after =
        find(by_time_, pieces_[index].next, half, pieces_[index].piece.samprate);
    if (after != kNone && after != index) join(index, after);
    const std::size_t before =
        find(by_next_, pieces_[index].piece.time, half, pieces_[index].piece.samprate);
    if (before != kNone && before != index) join(before, index);
  }

  void join(std::size_t first, std::size_t second) {
    OpenPiece &one = pieces_[first], &other = pieces_[second];
    erase(by_next_, other.next, second);
    erase(by_time_, other.piece.time, second);
    move(by_next_, one.next, other.next, first);
    one.next = other.next;
    one.piece.endtime = other.piece.endtime;
    one.piece.nsamp += other.piece.nsamp;
    if (other.piece.foff < one.piece.foff) {
      one.piece.foff = other.piece.foff;
      one.piece.encoding = other.piece.encoding;
      one.piece.record_length = other.piece.record_length;
      one.piece.codes.quality = other.piece.codes.quality;
    }
    other.merged = true;
  }

  std::vector<OpenPiece> pieces_;
  Index by_next_, by_time_;
};

bool before(const MiniseedPiece &a, const MiniseedPiece &b) {
  return std::tie(a.codes.net, a.codes.sta, a.codes.loc, a.codes.chan, a.time, a.foff) <
         std::tie(b.codes.net, b.codes.sta, b.codes.loc, b.codes.chan, b.time, b.foff);
}

bool list(const std::string &path, MiniseedContents &contents) {
  MiniseedWalker walker(kMiniseedList);
  if (!walker.open(path)) return false;
  MiniseedContents found;
  std::map<std::pair<std::array<char, 12>, bool>, Assembly> channels;
  MiniseedRecord record;
  for (;;) {
    const MiniseedWalker::Got got = walker.next(record);
    if (got == MiniseedWalker::Got::kFailed) return false;
    if (got == MiniseedWalker::Got::kEnd) break;
    found.records++;
    if (!record.has_samples()) {
      found.other_records++;
      continue;
    }
    channels[{record.codes, miniseed_holds_counts(record.encoding)}].add(record);
  }
  if (found.records == 0) {
    return fail(kMiniseedList, "%s has no whole miniSEED record", path.c_str());
  }
  for (const auto &[key, assembly] : channels) assembly.take(found.pieces);
  std::sort(found.pieces.begin(), found.pieces.end(), before);
  found.foreign_bytes = walker.foreign_bytes();
  found.lost_samples = walker.lost_samples();
  if (walker.cut_at() >= 0) {
    fail(kMiniseedList,
         "%s ends within the record at byte %lld; its %lld samples are lost",
         path.c_str(), static_cast<long long>(walker.cut_at()),
         static_cast<long long>(walker.lost_samples()));
  }
  contents = std::move(found);
  return true;
}

}  // namespace

bool miniseed_list(const std::string &path, MiniseedContents &contents) {
  return at_boundary(kMiniseedList, [&] { return list(path, contents); });
}

namespace {

/* Whether a record with blockette 1000 begins where one could after a damaged beginning, and
 * another follows it as far as `head` reaches. */
bool record_follows(std::string_view head) {
  constexpr std::size_t kShortest = 128;
  for (std::size_t at = kShortest; at < head.size(); at += kShortest) {
    MiniseedRecord record, next;
    if (!parse_miniseed(head.data() + at, head.size() - at, record) ||
        !record.has_length || !record.has_samples()) {
      continue;
    }
    const std::size_t end = at + record.length;
    if (end + kShortest > head.size() ||
        parse_miniseed(head.data() + end, head.size() - end, next)) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool miniseed_recognise(std::string_view head) {
  MiniseedRecord record;
  if (parse_miniseed(head.data(), head.size(), record)) return true;
  /* A control header of a SEED volume (volume, abbreviations, station, time span), which
   * begins with the number of a blockette, or a record of blanks. */
  constexpr std::size_t kBlank = 48;
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  if (record_follows(head)) return true;
  if (head.size() < kBlank || !std::all_of(head.begin(), head.begin() + 6, is_digit)) {
    return false;
  }
  if (head.substr(6, kBlank - 6).find_first_not_of(' ') == head.npos) return true;
  return std::string_view("VAST").find(head[6]) != std::string_view::npos &&
         (head[7] == ' ' || head[7] == '*') &&
         std::all_of(head.begin() + 8, head.begin() + 11, is_digit);
}

const char *miniseed_encoding_text(int encoding) {
  constexpr std::pair<int, const char *> kNames[] = {
      {0, "ASCII"},        {1, "INT16"},        {3, "INT32"},   {4, "FLOAT32"},
      {5, "FLOAT64"},      {10, "STEIM1"},      {11, "STEIM2"}, {12, "GEOSCOPE24"},
      {13, "GEOSCOPE163"}, {14, "GEOSCOPE164"}, {16, "CDSN"},   {30, "SRO"},
      {32, "DWWSSN"},
  };
  for (const auto &[number, name] : kNames) {
    if (number == encoding) return name;
  }
  return "unknown";
}

bool miniseed_holds_counts(int encoding) {
  for (const int counts : {1, 3, 10, 11, 16, 30, 32}) {
    if (encoding == counts) return true;
  }
  return false;
}

}  // namespace ksutil
