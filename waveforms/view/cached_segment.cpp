#include "waveforms/view/internal/cached_segment.h"

#include <algorithm>
#include <cmath>

#include "waveforms/ksscv.h"

namespace ksutil::scv {

void Want::add(long plan, std::int64_t first, std::int64_t end, unsigned need) {
  if (plan_ != plan) parts_.clear();
  plan_ = plan;
  if (!parts_.empty() && parts_.back().need == need && parts_.back().first <= first &&
      parts_.back().end >= first) {
    parts_.back().end = std::max(parts_.back().end, end);
  } else {
    parts_.push_back({first, end, need});
  }
}

bool Want::covers(long plan, std::int64_t chunk, unsigned need) const {
  return plan_ == plan &&
         std::any_of(parts_.begin(), parts_.end(), [=](const Part &part) {
           return chunk >= part.first && chunk < part.end && (part.need & need) == need;
         });
}

void Retry::fail() {
  pause = pause > 0 ? std::min(2 * pause, kKsscvLongestPause) : kKsscvFirstPause;
  at = Clock::now() + std::chrono::microseconds(static_cast<long>(1e6 * pause));
}

CachedSegment::CachedSegment(const WaveformSegment &row_in, std::int64_t count_in)
    : row(row_in), count(0), counts(is_counts(row_in)) {
  extend(count_in);
}

bool CachedSegment::lacks(std::int64_t chunk, unsigned need) const {
  const Chunk &held = chunks[static_cast<std::size_t>(chunk)];
  return held.count < expected(chunk) || ((need & kFine) != 0 && held.fine.empty()) ||
         ((need & kAllSamples) != 0 && held.samples == nullptr);
}

bool CachedSegment::blocked(std::int64_t chunk, Clock::time_point now_is,
                            Clock::time_point &next) const {
  if (suspended) return true;
  const auto waits = [&](const Retry &retry) {
    if (retry.pause <= 0 || retry.at <= now_is) return false;
    next = std::min(next, retry.at);
    return true;
  };
  if (waits(file_retry)) return true;
  const auto retry = chunk_retries.find(chunk);
  return retry != chunk_retries.end() && waits(retry->second);
}

std::int64_t CachedSegment::first_at(double time) const {
  constexpr double kSlack = 0.01;
  const double sample = std::ceil((time - row.time) * row.samprate - kSlack);
  if (!(sample > 0)) return 0;
  if (sample >= static_cast<double>(count)) return count;
  return static_cast<std::int64_t>(sample);
}

void CachedSegment::extend(std::int64_t new_count) {
  const std::int64_t last = chunk_count() - 1;  // perhaps to be read again
  count = new_count;
  chunks.resize(static_cast<std::size_t>(chunk_count()));
  std::size_t level = 0;
  for (std::size_t size = chunks.size(); size > 1; level++) {
    size = (size + 1) / 2;
    if (upper.size() <= level) upper.emplace_back();
    upper[level].resize(size, kUnknown);
  }
  upper.resize(level);
  for (std::int64_t chunk = std::max<std::int64_t>(last, 0); chunk < chunk_count();
       chunk++) {
    update_upper(chunk);
  }
}

void CachedSegment::update_upper(std::int64_t chunk) {
  const auto node = [this](std::size_t level, std::size_t index) -> PackedExtremes {
    if (level > 0) return upper[level - 1][index];
    const Chunk &held = chunks[index];
    const bool whole =
        held.count > 0 && held.count == expected(static_cast<std::int64_t>(index));
    return whole ? held.coarse.back() : kUnknown;
  };
  auto index = static_cast<std::size_t>(chunk);
  for (std::size_t level = 0; level < upper.size(); level++) {
    index /= 2;
    const std::size_t below = level == 0 ? chunks.size() : upper[level - 1].size();
    const PackedExtremes left = node(level, 2 * index);
    upper[level][index] =
        2 * index + 1 < below ? merged(left, node(level, 2 * index + 1), counts) : left;
  }
}

PackedExtremes CachedSegment::block(int level, std::int64_t index) const {
  if (level > kChunkShift) {
    const Levels &nodes = upper[static_cast<std::size_t>(level - kChunkShift - 1)];
    return nodes[static_cast<std::size_t>(index)];
  }
  const std::int64_t number = index >> (kChunkShift - level);
  const Chunk &chunk = chunks[static_cast<std::size_t>(number)];
  const auto inside =
      static_cast<std::size_t>(index - (number << (kChunkShift - level)));
  const int low = level < kCoarseShift ? kFineShift : kCoarseShift;
  const Levels &levels = level < kCoarseShift ? chunk.fine : chunk.coarse;
  if (levels.empty() || inside >= blocks_of(chunk.count, level)) return kUnknown;
  return levels[level_begin(chunk.count, low, level) + inside];
}

void CachedSegment::add_block(int level, std::int64_t index, Found &found) const {
  const PackedExtremes extremes = block(level, index);
  if (extremes != kUnknown) found.extremes.add(unpacked(extremes, counts));
  if (level <= kChunkShift) {
    /* The blocks of a chunk that has grown since it was read are from its first part. */
    const std::int64_t number = index >> (kChunkShift - level);
    const Chunk &chunk = chunks[static_cast<std::size_t>(number)];
    const std::int64_t end = (index + 1) << level;
    const std::int64_t read = (number << kChunkShift) + chunk.count;
    if (extremes == kUnknown || std::min(end, count) > read) found.partial = true;
    return;
  }
  if (extremes != kUnknown) return;
  const std::int64_t below =
      (count + (std::int64_t{1} << (level - 1)) - 1) >> (level - 1);
  add_block(level - 1, 2 * index, found);
  if (2 * index + 1 < below) add_block(level - 1, 2 * index + 1, found);
}

void CachedSegment::add_blocks(int level, std::int64_t first, std::int64_t end,
                               Found &found) const {
  const int top = kChunkShift + static_cast<int>(upper.size());
  for (; first < end; level++) {
    if (level >= top) {
      /* A block above the top is the whole segment. */
      for (; first < end; first++) {
        if ((first << level) < count) add_block(top, (first << level) >> top, found);
      }
      return;
    }
    if ((first & 1) != 0) add_block(level, first++, found);
    if (first < end && (end & 1) != 0) add_block(level, --end, found);
    first >>= 1;
    end >>= 1;
  }
}

}  // namespace ksutil::scv
