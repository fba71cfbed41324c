#include "waveforms/dataset/internal/miniseed_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "platform/elog/failure.h"
#include "platform/trace/miniseed.h"
#include "platform/trace/segment.h"
#include "platform/trace/trace.h"

namespace ksutil::dataset {
namespace {

constexpr int kRecordLength = 512;

}  // namespace

RowCover::RowCover(const std::vector<const WaveformRow *> &rows,
                   const ksvector2 &vector) {
  owners_[0] = nullptr;
  for (const WaveformRow *const row : rows) {
    const auto begin = std::llround((row->time() - vector.time) / vector.dt);
    paint(begin, begin + row->count, row);
  }
}

std::vector<std::pair<Stretch, const WaveformRow *>> RowCover::cut(
    const Stretch &stretch) const {
  std::vector<std::pair<Stretch, const WaveformRow *>> parts;
  auto owner = std::prev(owners_.upper_bound(static_cast<long>(stretch.begin)));
  for (std::size_t at = stretch.begin; at < stretch.end; ++owner) {
    const auto next = std::next(owner);
    const std::size_t end =
        next == owners_.end()
            ? stretch.end
            : std::min(stretch.end, static_cast<std::size_t>(next->first));
    if (parts.empty() ||
        calibration(owner->second) != calibration(parts.back().second)) {
      parts.push_back({{at, end}, owner->second});
    } else {
      parts.back().first.end = end;
    }
    at = end;
  }
  return parts;
}

Calibration RowCover::calibration(const WaveformRow *row) {
  if (row == nullptr) return {};
  return {row->segment.calib, row->segment.calper, row->segment.segtype};
}

void RowCover::split(long at) {
  const auto before = std::prev(owners_.upper_bound(at));
  if (before->first != at) owners_[at] = before->second;
}

void RowCover::paint(long begin, long end, const WaveformRow *row) {
  begin = std::max(begin, 0L);
  if (begin >= end) return;
  split(begin);
  split(end);
  owners_.erase(owners_.lower_bound(begin), owners_.lower_bound(end));
  owners_[begin] = row;
}

bool MiniseedWriter::write(const Channel &channel, const ksvector2 &vector,
                           const RowCover *cover) {
  const ksdsseis_channel &of = channel.description;
  const auto stretches = stretches_of(vector);
  if (stretches.empty()) {
    return fail(who_, "%s %s has no samples", of.sta, of.chan);
  }
  const std::string path = files_.path_of(waveform_file_name(
      channel_name(of), time_of(vector, stretches.front().begin), "mseed"));
  std::vector<NewRow> rows;
  const bool good = files_.put(path, [&](const std::string &to) {
    for (const Stretch &stretch : stretches) {
      if (cover == nullptr) {
        if (!append(to, of, vector, stretch)) return false;
        continue;
      }
      for (const auto &[part, source] : cover->cut(stretch)) {
        struct stat status {};
        const bool there = ::stat(to.c_str(), &status) == 0;
        if (!append(to, of, vector, part)) return false;
        const double time = time_of(vector, part.begin);
        const auto nsamp = static_cast<std::int64_t>(part.end - part.begin);
        rows.push_back({&channel, source, path, time, time_of(vector, part.end - 1),
                        1.0 / vector.dt, nsamp,
                        there ? std::int64_t{status.st_size} : 0});
      }
    }
    return cover == nullptr || take_times(to, rows);
  });
  if (good) rows_.insert(rows_.end(), rows.begin(), rows.end());
  return good;
}

bool MiniseedWriter::append(const std::string &path, const ksdsseis_channel &of,
                            const ksvector2 &vector, const Stretch &stretch) {
  MiniseedCodes codes;
  codes.net = of.net;
  codes.sta = seed_sta(of);
  codes.chan = seed_chan(of);
  codes.loc = of.loc;
  const double *const from = vector.data + stretch.begin;
  const double *const to = vector.data + stretch.end;
  Segment segment;
  segment.time = time_of(vector, stretch.begin);
  segment.samprate = 1.0 / vector.dt;
  std::vector<std::int32_t> counts;
  std::vector<float> floats;
  if (std::all_of(from, to, [](double value) {
        return std::abs(value) < 2147483647.0 && value == std::trunc(value);
      })) {
    counts.assign(from, to);
    segment.samples = Segment::Counts(counts);
  } else {
    std::transform(from, to, std::back_inserter(floats),
                   [](double value) { return static_cast<float>(value); });
    segment.samples = Segment::Floats(floats);
  }
  return miniseed_append(path, segment, codes, kRecordLength);
}

/* Gives rows the times that an index of the file would give them: those of its records. */
bool MiniseedWriter::take_times(const std::string &path, std::vector<NewRow> &rows) {
  MiniseedContents contents;
  if (!miniseed_list(path, contents)) return false;
  for (const MiniseedPiece &piece : contents.pieces) {
    for (NewRow &row : rows) {
      if (row.foff != piece.foff || row.nsamp != piece.nsamp) continue;
      row.time = piece.time;
      row.endtime = piece.endtime;
      row.samprate = piece.samprate;
    }
  }
  return true;
}

}  // namespace ksutil::dataset
