/* ksdsseis_samples: reads the samples of a data set. */
#include <algorithm>

#include "platform/elog/failure.h"
#include "platform/stock/owners.h"
#include "platform/trace/segment.h"
#include "waveforms/dataset/internal/data_set.h"

using namespace ksutil;
using namespace ksutil::dataset;

namespace {

constexpr char kRead[] = "ksdsseis_read";
constexpr double kMostSamples = 250e6;

}  // namespace

namespace ksutil::dataset {

bool read_channel(const char *who, const ksdsseis &set, const Channel &channel,
                  bool for_vector, std::vector<Segment> &segments,
                  std::vector<const WaveformRow *> *used) {
  std::vector<const WaveformRow *> rows, taken;
  for (const WaveformRow &row : channel.rows) {
    if (!for_vector ||
        same_samprate(row.segment.samprate, channel.description.samprate)) {
      rows.push_back(&row);
    }
  }
  if (for_vector) {
    /* What is loaded later lies on top. */
    std::stable_sort(rows.begin(), rows.end(), [](const auto *a, const auto *b) {
      if (a->lddate != b->lddate) return a->lddate < b->lddate;
      return a->record.record < b->record.record;
    });
  }
  std::vector<Segment> found;
  std::size_t samples = 0;  // of all rows, which may overlap
  for (const WaveformRow *const row : rows) {
    Segment segment;
    if (read_segment(row->record, set.tstart, set.tend, segment)) {
      /* Rates that differ by rounding are one clock. */
      if (for_vector) segment.samprate = channel.description.samprate;
      samples += segment.size();
      if (static_cast<double>(samples) > kMostSamples) {
        return fail(who, "%s %s has %zu samples or more in its rows, too many",
                    channel.description.sta, channel.description.chan, samples);
      }
      found.push_back(std::move(segment));
      taken.push_back(row);
    }
  }
  if (found.empty()) {
    return fail(who, "cannot read any samples of %s %s", channel.description.sta,
                channel.description.chan);
  }
  segments = std::move(found);
  if (used != nullptr) *used = std::move(taken);
  return true;
}

ksvector2 *read_vector(const char *who, const ksdsseis &set, const Channel &channel,
                       char *tag, std::vector<const WaveformRow *> *used) {
  /* Refused before anything is read: rows may promise any number of samples. */
  const ksdsseis_channel &of = channel.description;
  double begin = 1e300, end = -1e300;
  for (const WaveformRow &row : channel.rows) {
    if (!same_samprate(row.segment.samprate, of.samprate)) continue;
    begin = std::min(begin, row.time());
    end = std::max(end, row.endtime());
  }
  const double nsamp = (end - begin) * of.samprate + 1.0;
  if (!(nsamp <= kMostSamples)) {
    return fail(who, "%s %s has %.12g samples from the first to the last, too many",
                of.sta, of.chan, nsamp);
  }
  std::vector<Segment> segments;
  if (!read_channel(who, set, channel, true, segments, used)) return nullptr;
  ksvector2 *const vector =
      ksvector2_create_from_segments(segments.data(), static_cast<int>(segments.size()),
                                     channel_name(of).c_str(), tag);
  if (vector == nullptr) fail(who, "ksvector2_create_from_segments() error");
  return vector;
}

}  // namespace ksutil::dataset

ksvector2 *ksdsseis_read(ksdsseis *set, int channel, char *tag) {
  if (tag != nullptr) *tag = '\0';
  return at_boundary(kRead, [&]() -> ksvector2 * {
    const Channel *const found = find_channel(kRead, set, channel);
    return found == nullptr ? nullptr : read_vector(kRead, *set, *found, tag);
  });
}

int ksdsseis_read_all(ksdsseis *set, Tbl **tags) {
  constexpr char kSelf[] = "ksdsseis_read_all";
  return at_boundary(kSelf, [&]() -> int {
    if (set == nullptr || tags == nullptr) return fail(kSelf, "No data set given");
    std::vector<std::string> found;
    int read = 0;
    for (const Channel &channel : set->channels) {
      char tag[KS_TAG_SIZE] = "";
      if (read_vector(kSelf, *set, channel, tag) != nullptr) ++read;
      found.emplace_back(tag);
    }
    *tags = from_texts(found).release();
    return read;
  });
}

int ksdsseis_read_segments(ksdsseis *set, int channel, std::vector<Segment> &segments) {
  constexpr char kSelf[] = "ksdsseis_read_segments";
  return at_boundary(kSelf, [&]() -> int {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return -1;
    return read_channel(kSelf, *set, *found, false, segments) ? 0 : -1;
  });
}
