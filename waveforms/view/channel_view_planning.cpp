#include <algorithm>

#include "waveforms/view/internal/channel_view.h"

namespace ksutil::scv {
namespace {

/* Bytes that the chunks of a range take when they are held. */
std::size_t bytes_of(const CachedSegment &segment, SampleRange chunks, unsigned need) {
  const std::int64_t n = std::min(chunks.end << kChunkShift, segment.count) -
                         (chunks.first << kChunkShift);
  const auto count = static_cast<std::size_t>(chunks.end - chunks.first);
  /* Blocks that are cut at the end of each level of the last chunk. */
  constexpr std::size_t kCutBlocks = 64 * sizeof(PackedExtremes);
  std::size_t bytes = SegmentCache::coarse_bytes(n) + count * kCutBlocks;
  if ((need & kFine) != 0) bytes += SegmentCache::fine_bytes(n) + count * kCutBlocks;
  if ((need & kAllSamples) != 0) {
    bytes += SegmentCache::sample_bytes(segment, n) + count * kCutBlocks;
  }
  return bytes;
}

}  // namespace

std::string ChannelView::too_small() const {
  return "The cache of " + std::to_string(cache_.bound()) +
         " bytes is too small for this window";
}

void ChannelView::plan_soon() {
  constexpr std::size_t kFewChannels = 256;  // that are planned in no time
  plan_due_ = true;
  if (channels_.size() <= kFewChannels || Clock::now() >= next_plan_) return replan();
  reader_work_.notify_one();
  table_work_.notify_one();
}

void ChannelView::replan() {
  const Clock::time_point begin = Clock::now();
  plan_due_ = true;  // until the end: memory may be short
  make_plan();
  plan_due_ = false;
  /* Plans take a fifth of the time at most. */
  next_plan_ = Clock::now() + 4 * (Clock::now() - begin);
  reader_work_.notify_all();
  table_work_.notify_one();
}

void ChannelView::make_plan() {
  plan_++;
  cache_.set_plan(plan_);
  cursor_ = {};
  now_.clear();
  ahead_.clear();
  if (!window_) return;
  const Window &window = *window_;
  std::size_t budget = room_for_plan();
  plan_window(window, budget);
  mark_wants(now_, &CachedSegment::now);
  if (options_.prefetch != 0) {
    for (const bool after : {true, false}) {
      for (const Channel &channel : channels_) {
        if (channel.refused) continue;
        const double from = after ? window.tend : window.tstart - window.length();
        plan_channel(channel, channel.samples_planned && !channel.samples_refused, from,
                     from + window.length(), ahead_, budget);
      }
    }
    mark_wants(ahead_, &CachedSegment::ahead);
  }
}

std::size_t ChannelView::room_for_plan() const {
  std::size_t rows = 0;
  for (const Channel &channel : channels_) {
    for (const auto &segment : channel.segments) {
      rows += SegmentCache::own_bytes(*segment);
    }
  }
  /* A quarter stays for the chunks that are being read, and an eighth at least for rows. */
  const std::size_t bound = cache_.bound();
  const std::size_t kept = bound / 4 + std::max(bound / 8, rows);
  return bound - std::min(bound, kept);
}

void ChannelView::plan_window(const Window &window, std::size_t &budget) {
  const auto plan = [&](const Channel &channel, bool samples) {
    return plan_channel(channel, samples, window.tstart, window.tend, now_, budget);
  };
  /* The envelopes of all channels come before the samples of any. */
  const bool with_samples =
      std::any_of(channels_.begin(), channels_.end(),
                  [](const Channel &channel) { return channel.samples_planned; });
  std::vector<std::size_t> envelopes(with_samples ? channels_.size() : 0);  // bytes
  for (std::size_t i = 0; i < envelopes.size(); i++) {
    const std::size_t before = budget;
    plan(channels_[i], false);
    envelopes[i] = before - budget;
  }
  now_.clear();
  for (std::size_t i = 0; i < channels_.size(); i++) {
    Channel &channel = channels_[i];
    if (with_samples) budget += envelopes[i];
    const bool fits = plan(channel, channel.samples_planned);
    const bool envelope_fits =
        fits || (channel.samples_planned && plan(channel, false));
    const bool refused = !envelope_fits, samples_refused = !fits && envelope_fits;
    const bool news =
        (refused && !channel.refused) || (samples_refused && !channel.samples_refused);
    channel.refused = refused;
    channel.samples_refused = samples_refused;
    if (news) mark_dirty(i);
  }
}

bool ChannelView::plan_channel(const Channel &channel, bool with_samples, double from,
                               double to, std::vector<Range> &ranges,
                               std::size_t &budget) const {
  const std::size_t begin = ranges.size();
  std::size_t bytes = 0;
  for (auto piece = first_piece(channel.pieces, from);
       piece != channel.pieces.end() && bytes <= budget; ++piece) {
    const CachedSegment &segment = *piece->segment;
    const SampleRange samples = range_in(*piece, from, to);
    if (samples.empty()) {
      if (segment.time_of(piece->first) >= to) break;
      continue;
    }
    const ColumnPlan plan(segment, *window_);
    unsigned need = plan.need;
    SampleRange chunks = chunks_of(segment, samples, 0);
    if (need != kAllSamples) {
      const SampleRange blocks = blocks_for(*piece, samples, plan.level);
      const SampleRange outer = chunks_of(segment, blocks, plan.level);
      chunks = with_samples ? SampleRange{std::min(chunks.first, outer.first),
                                          std::max(chunks.end, outer.end)}
                            : outer;
    }
    if (with_samples) need |= kAllSamples;
    if (chunks.empty()) continue;
    bytes += bytes_of(segment, chunks, need);
    ranges.push_back({piece->segment, chunks.first, chunks.end, need});
  }
  if (bytes > budget) {
    ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(begin), ranges.end());
    return false;
  }
  budget -= bytes;
  return true;
}

void ChannelView::mark_wants(std::vector<Range> &ranges, Want CachedSegment::*want) {
  for (Range &range : ranges) {
    ((*range.segment).*want).add(plan_, range.first, range.end, range.need);
  }
}

bool ChannelView::window_settled() const {
  if (look_asked_ || looking_ || reading_now_ > 0 || cursor_.phase == 0) return false;
  if (!table_error_.empty()) return true;
  if (plan_due_) return false;
  for (std::size_t i = first_unknown_; i < channels_.size(); i++) {
    if (!channels_[i].knows(*window_)) return false;
  }
  for (const Range &range : now_) {
    const std::int64_t end = std::min(range.end, range.segment->chunk_count());
    for (std::int64_t i = range.first; i < end; i++) {
      if (range.segment->lacks(i, range.need) && !range.segment->failed(i))
        return false;
    }
  }
  return true;
}

long ChannelView::lacking() const {
  long count = 0;
  for (const Range &range : now_) {
    const std::int64_t end = std::min(range.end, range.segment->chunk_count());
    for (std::int64_t i = range.first; i < end; i++) {
      const Chunk &chunk = range.segment->chunks[static_cast<std::size_t>(i)];
      if (!chunk.reading && range.segment->lacks(i, range.need)) count++;
    }
  }
  return count;
}

}  // namespace ksutil::scv
