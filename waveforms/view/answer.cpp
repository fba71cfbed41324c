#include "waveforms/view/internal/answer.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace ksutil::scv {
namespace {

/* Columns of fewer samples are made from the samples themselves; others from blocks of at
 * most an eighth of the column's samples. */
constexpr int kBlocksPerColumn = 8;
constexpr double kFewSamples = kBlocksPerColumn << kFineShift;

bool same_rate(double a, double b) { return std::abs(a - b) < 1e-6 * b; }

}  // namespace

void Answer::publish() {
  min = max = samples = nullptr;
  if (what == KSSCV_ENVELOPE) {
    min = first_values.data();
    max = second_values.data();
  } else {
    samples = first_values.data();
  }
  n = static_cast<int>(here_values.size());
  here = here_values.data();
  message = text.data();
}

ColumnPlan::ColumnPlan(const CachedSegment &segment, const Window &window)
    : need(kAllSamples), level(0) {
  const double samples = segment.row.samprate * window.column_length();
  if (samples < kFewSamples) return;
  constexpr double kMost = 1e18;
  const auto whole = static_cast<std::uint64_t>(std::min(samples, kMost));
  level = static_cast<int>(std::bit_width(whole / kBlocksPerColumn)) - 1;
  need = level < kCoarseShift ? kFine : kCoarseOnly;
}

SampleRange range_in(const Piece &piece, double from, double to) {
  return {std::max(piece.first, piece.segment->first_at(from)),
          std::min(piece.end, piece.segment->first_at(to))};
}

SampleRange blocks_for(const Piece &piece, SampleRange samples, int level) {
  const std::int64_t whole = std::int64_t{1} << level, half = whole / 2;
  return {samples.first == piece.first ? samples.first >> level
                                       : (samples.first + half) >> level,
          samples.end == piece.end ? (samples.end + whole - 1) >> level
                                   : (samples.end + half) >> level};
}

SampleRange chunks_of(const CachedSegment &segment, SampleRange blocks, int level) {
  const std::int64_t first = (blocks.first << level) >> kChunkShift;
  const std::int64_t end = ((blocks.end << level) + kChunkSamples - 1) >> kChunkShift;
  return {first, std::min(end, segment.chunk_count())};
}

std::vector<Piece>::const_iterator first_piece(const std::vector<Piece> &pieces,
                                               double from) {
  return std::partition_point(pieces.begin(), pieces.end(), [from](const Piece &piece) {
    return piece.segment->time_of(piece.end) < from;
  });
}

bool factor_of(const CachedSegment &segment, bool calibrated, double &factor) {
  factor = calibrated ? segment.row.calib : 1.0;
  return std::isfinite(factor) && factor != 0.0;
}

EnvelopeMaker::EnvelopeMaker(const Window &window, bool calibrated)
    : window_(window),
      calibrated_(calibrated),
      columns_(static_cast<std::size_t>(window.columns)),
      awaited_(static_cast<std::size_t>(window.columns)) {}

bool EnvelopeMaker::add(const Piece &piece) {
  const CachedSegment &segment = *piece.segment;
  const SampleRange range = range_in(piece, window_.tstart, window_.tend);
  if (range.empty()) return false;
  double factor;
  if (!factor_of(segment, calibrated_, factor)) {
    lacks_calib_ = true;
    return false;
  }
  const ColumnPlan plan(segment, window_);
  partial_ = false;
  const double before =
      (segment.time_of(range.first) - window_.tstart) / window_.column_length() - 1.0;
  /* Columns that are too short for a number of their own begin all at once. */
  int column =
      before > 0 ? static_cast<int>(std::min(before, window_.columns - 1.0)) : 0;
  for (std::int64_t first = range.first; first < range.end; column++) {
    std::int64_t end = range.end;
    if (column + 1 < window_.columns) {
      end = std::clamp(segment.first_at(window_.column_begin(column + 1)), first,
                       range.end);
    }
    if (first < end) add_column(piece, plan, {first, end}, column, factor);
    first = end;
  }
  return partial_;
}

void EnvelopeMaker::add_column(const Piece &piece, const ColumnPlan &plan,
                               SampleRange samples, int column, double factor) {
  if (plan.need == kAllSamples) {
    add_raw(*piece.segment, samples, column, factor);
    return;
  }
  const SampleRange blocks = blocks_for(piece, samples, plan.level);
  CachedSegment::Found found;
  piece.segment->add_blocks(plan.level, blocks.first, blocks.end, found);
  merge(column, found.extremes, factor);
  if (found.partial) {
    awaited_[static_cast<std::size_t>(column)] = 1;
    partial_ = true;
  }
}

void EnvelopeMaker::add_raw(const CachedSegment &segment, SampleRange samples,
                            int column, double factor) {
  for (std::int64_t first = samples.first; first < samples.end;) {
    const std::int64_t number = first >> kChunkShift, begin = number << kChunkShift;
    const std::int64_t end = std::min(samples.end, begin + kChunkSamples);
    const Chunk &chunk = segment.chunks[static_cast<std::size_t>(number)];
    const std::int64_t held = chunk.samples == nullptr ? 0 : begin + chunk.count;
    if (held < end) {
      awaited_[static_cast<std::size_t>(column)] = 1;
      partial_ = true;
    }
    if (first < std::min(held, end)) {
      raw_.push_back({chunk.samples, static_cast<std::size_t>(first - begin),
                      static_cast<std::size_t>(std::min(held, end) - begin), column,
                      factor});
    }
    first = end;
  }
}

void EnvelopeMaker::merge(int column, Extremes extremes, double factor) {
  if (extremes.empty()) return;
  extremes.min *= factor;
  extremes.max *= factor;
  if (factor < 0) std::swap(extremes.min, extremes.max);
  columns_[static_cast<std::size_t>(column)].add(extremes);
}

void EnvelopeMaker::finish(Answer &answer) {
  for (const RawPart &part : raw_) {
    merge(part.column, extremes_of(*part.samples, part.first, part.end), part.factor);
  }
  answer.time = window_.tstart;
  answer.dt = window_.column_length();
  answer.first_values.assign(columns_.size(), kGap);
  answer.second_values.assign(columns_.size(), kGap);
  answer.here_values.assign(columns_.size(), KSSCV_GAP);
  for (std::size_t i = 0; i < columns_.size(); i++) {
    if (!columns_[i].empty()) {
      answer.first_values[i] = columns_[i].min;
      answer.second_values[i] = columns_[i].max;
      answer.here_values[i] = KSSCV_HERE;
    }
    if (awaited_[i] != 0) answer.here_values[i] = KSSCV_AWAITED;
  }
}

SeriesMaker::SeriesMaker(const Window &window, bool calibrated)
    : window_(window), calibrated_(calibrated) {}

bool SeriesMaker::add(const Piece &piece) {
  const CachedSegment &segment = *piece.segment;
  const SampleRange range = range_in(piece, window_.tstart, window_.tend);
  if (range.empty()) return false;
  Part part{segment.row.time, segment.row.samprate, range, 0.0, {}};
  if (!factor_of(segment, calibrated_, part.factor)) {
    lacks_calib_ = true;
    part.factor = 0.0;
    parts_.push_back(std::move(part));
    return false;
  }
  bool partial = false;
  const std::int64_t last = (range.end - 1) >> kChunkShift;
  for (std::int64_t number = range.first >> kChunkShift; number <= last; number++) {
    const Chunk &chunk = segment.chunks[static_cast<std::size_t>(number)];
    part.chunks.push_back(chunk.samples);
    const std::int64_t end =
        std::min(range.end - (number << kChunkShift), kChunkSamples);
    if (chunk.samples == nullptr || chunk.count < end) partial = true;
  }
  parts_.push_back(std::move(part));
  return partial;
}

bool SeriesMaker::finish(Answer &answer) {
  answer.time = window_.tstart;
  answer.dt = 0.0;
  if (parts_.empty()) return true;
  const auto fastest = std::max_element(
      parts_.begin(), parts_.end(),
      [](const Part &a, const Part &b) { return a.samprate < b.samprate; });
  const double samprate = fastest->samprate;
  double earliest = fastest->time_of(fastest->samples.first), latest = earliest;
  const double phase = earliest;
  for (const Part &part : parts_) {
    earliest = std::min(earliest, part.time_of(part.samples.first));
    latest = std::max(latest, part.time_of(part.samples.end - 1));
  }
  const double begin = phase - std::round((phase - earliest) * samprate) / samprate;
  const double n = std::round((latest - begin) * samprate) + 1.0;
  if (!(n <= static_cast<double>(KSSCV_MAX_SAMPLES))) return false;
  answer.time = begin;
  answer.dt = 1.0 / samprate;
  answer.first_values.assign(static_cast<std::size_t>(n), kGap);
  answer.here_values.assign(static_cast<std::size_t>(n), KSSCV_GAP);
  for (const Part &part : parts_) copy(part, begin, samprate, answer);
  return true;
}

void SeriesMaker::copy(const Part &part, double begin, double samprate,
                       Answer &answer) const {
  if (part.factor == 0.0) return;
  const bool same = same_rate(part.samprate, samprate);
  const double reach = same ? 0.0 : 0.5 / part.samprate;
  const auto n = static_cast<std::int64_t>(answer.here_values.size());
  /* A sample of a slow row may reach further than an integer counts. */
  const auto place = [&](double time) {
    const double at = std::round((time - begin) * samprate);
    return static_cast<std::int64_t>(std::clamp(at, -1.0, static_cast<double>(n)));
  };
  const std::int64_t from =
      std::max<std::int64_t>(place(part.time_of(part.samples.first) - reach), 0);
  const std::int64_t to =
      std::min(place(part.time_of(part.samples.end - 1) + reach) + 1, n);
  const std::int64_t first_chunk = part.samples.first >> kChunkShift;
  for (std::int64_t i = from; i < to; i++) {
    std::int64_t sample;
    if (part.samprate == samprate) {
      sample = part.samples.first + (i - from);
    } else {
      const double time = begin + static_cast<double>(i) / samprate;
      sample =
          static_cast<std::int64_t>(std::round((time - part.time) * part.samprate));
    }
    if (sample < part.samples.first || sample >= part.samples.end) continue;
    const auto &chunk =
        part.chunks[static_cast<std::size_t>((sample >> kChunkShift) - first_chunk)];
    const auto inside = static_cast<std::size_t>(sample & (kChunkSamples - 1));
    const auto at = static_cast<std::size_t>(i);
    const std::size_t held =
        chunk == nullptr
            ? 0
            : std::visit([](const auto &all) { return all.size(); }, *chunk);
    if (inside >= held) {
      answer.here_values[at] = KSSCV_AWAITED;
      continue;
    }
    const double value = sample_at(*chunk, inside);
    if (value == kGap) continue;
    answer.first_values[at] = value * part.factor;
    answer.here_values[at] = KSSCV_HERE;
  }
}

}  // namespace ksutil::scv
