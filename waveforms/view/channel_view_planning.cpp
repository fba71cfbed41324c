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
  std::size_t bytes =
      count * sizeof(Chunk) + SegmentCache::coarse_bytes(n) + kCutBlocks;
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
  /* A quarter stays for the chunks that are being read, and an eighth for the rows. */
  std::size_t budget = cache_.bound() - cache_.bound() / 4 - cache_.bound() / 8;
  for (std::size_t i = 0; i < channels_.size(); i++) {
    Channel &channel = channels_[i];
    const auto plan = [&](bool samples) {
      return plan_channel(channel, samples, window.tstart, window.tend, now_, budget);
    };
    const bool fits = plan(channel.samples_planned);
    const bool envelope_fits = fits || (channel.samples_planned && plan(false));
    const bool refused = !envelope_fits, samples_refused = !fits && envelope_fits;
    const bool news =
        (refused && !channel.refused) || (samples_refused && !channel.samples_refused);
    channel.refused = refused;
    channel.samples_refused = samples_refused;
    if (news) mark_dirty(i);
  }
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
