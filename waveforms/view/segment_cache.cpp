#include "waveforms/view/internal/segment_cache.h"

#include <cstring>

namespace ksutil::scv {
namespace {

constexpr std::size_t kListNode = 48;  // bytes of an entry of ChunkUses with its block

/* Rows with one key are the same samples, whatever else of the row changes. */
std::string key_of(const WaveformSegment &row) {
  std::string key = row.path + '\n' + row.sta + '\n' + row.chan + '\n' + row.datatype;
  const auto append = [&key](const auto &number) {
    char bytes[sizeof number];
    std::memcpy(bytes, &number, sizeof number);
    key.append(bytes, sizeof bytes);
  };
  append(row.time);
  append(row.samprate);
  append(row.foff);
  return key;
}

/* Of a segment without what was read: the record, its texts and its places in lists. */
std::size_t row_bytes(const WaveformSegment &row) {
  return sizeof(CachedSegment) + 2 * row.path.size() + 256;
}

}  // namespace

std::size_t SegmentCache::sample_bytes(const CachedSegment &segment, std::int64_t n) {
  return static_cast<std::size_t>(n) * kept_size(segment.row) + kListNode;
}

std::size_t SegmentCache::fine_bytes(std::int64_t n) {
  return level_begin(n, kFineShift, kCoarseShift) * sizeof(PackedExtremes) + kListNode;
}

std::size_t SegmentCache::coarse_bytes(std::int64_t n) {
  return level_begin(n, kCoarseShift, kChunkShift + 1) * sizeof(PackedExtremes);
}

std::size_t SegmentCache::own_bytes(const CachedSegment &segment) {
  /* The levels above the chunks have as many entries as there are chunks. */
  return row_bytes(segment.row) +
         segment.chunks.size() * (sizeof(Chunk) + sizeof(PackedExtremes));
}

std::shared_ptr<CachedSegment> SegmentCache::find(const WaveformSegment &row,
                                                  std::int64_t count) {
  const std::string key = key_of(row);
  const auto found = by_key_.find(key);
  if (found != by_key_.end()) {
    segment_uses_.splice(segment_uses_.end(), segment_uses_, found->second->use);
    return found->second;
  }
  const std::size_t slots =
      static_cast<std::size_t>(count >> kChunkShift) * sizeof(Chunk) * 5 / 4;
  const std::size_t bytes = row_bytes(row) + slots;
  if (bytes > bound_ || !reserve(bytes, false)) return nullptr;
  release(bytes);
  auto segment = std::make_shared<CachedSegment>(row, count);
  by_key_.emplace(key, segment);
  segment->use = segment_uses_.insert(segment_uses_.end(), segment);
  count_segment(*segment);
  return segment;
}

void SegmentCache::count_segment(CachedSegment &segment) {
  std::size_t bytes = row_bytes(segment.row) + segment.chunks.size() * sizeof(Chunk);
  for (const Chunk &chunk : segment.chunks) {
    bytes += chunk.coarse.size() * sizeof(PackedExtremes);
  }
  for (const Levels &level : segment.upper) {
    bytes += level.size() * sizeof(PackedExtremes);
  }
  held_ += bytes - segment.bytes;
  segment.bytes = bytes;
}

bool SegmentCache::needed(const CachedSegment &segment, std::int64_t chunk,
                          unsigned need, bool ahead) const {
  return segment.now.covers(plan_, chunk, need) ||
         (ahead && segment.ahead.covers(plan_, chunk, need));
}

bool SegmentCache::reserve(std::size_t bytes, bool ahead) {
  const std::size_t limit = ahead ? bound_ - bound_ / 8 : bound_;
  while (held_ + reserved_ + bytes > limit) {
    if (!evict_one(ahead)) return false;
  }
  reserved_ += bytes;
  return true;
}

bool SegmentCache::evict_one(bool ahead) {
  if (fine_held_ > bound_ / 2 && evict_fine(ahead)) return true;
  return evict_samples(ahead) || evict_fine(ahead) || evict_segment() ||
         evict_coarse(ahead);
}

bool SegmentCache::evict_samples(bool ahead) {
  for (std::size_t i = samples_uses_.size(); i > 0; i--) {
    const ChunkUse use = samples_uses_.front();
    if (!needed(*use.segment, use.chunk, kAllSamples, ahead)) {
      drop_samples(*use.segment,
                   use.segment->chunks[static_cast<std::size_t>(use.chunk)]);
      evictions_++;
      return true;
    }
    samples_uses_.splice(samples_uses_.end(), samples_uses_, samples_uses_.begin());
  }
  return false;
}

bool SegmentCache::evict_fine(bool ahead) {
  for (std::size_t i = fine_uses_.size(); i > 0; i--) {
    const ChunkUse use = fine_uses_.front();
    if (!needed(*use.segment, use.chunk, kFine, ahead)) {
      drop_fine(use.segment->chunks[static_cast<std::size_t>(use.chunk)]);
      evictions_++;
      return true;
    }
    fine_uses_.splice(fine_uses_.end(), fine_uses_, fine_uses_.begin());
  }
  return false;
}

bool SegmentCache::evict_segment() {
  /* The map and the list refer to each segment; channels and reads to those in use. */
  constexpr long kOwnReferences = 2;
  for (std::size_t i = segment_uses_.size(); i > 0; i--) {
    const std::shared_ptr<CachedSegment> &segment = segment_uses_.front();
    if (segment.use_count() <= kOwnReferences) {
      drop(*segment, 0);
      held_ -= segment->bytes;
      by_key_.erase(key_of(segment->row));
      segment_uses_.pop_front();
      evictions_++;
      return true;
    }
    segment_uses_.splice(segment_uses_.end(), segment_uses_, segment_uses_.begin());
  }
  return false;
}

bool SegmentCache::evict_coarse(bool ahead) {
  for (const std::shared_ptr<CachedSegment> &segment : segment_uses_) {
    bool dropped = false;
    for (std::int64_t i = 0; i < segment->chunk_count(); i++) {
      Chunk &chunk = segment->chunks[static_cast<std::size_t>(i)];
      if (chunk.coarse.empty() || chunk.samples != nullptr || !chunk.fine.empty() ||
          needed(*segment, i, kCoarseOnly, ahead)) {
        continue;
      }
      chunk.coarse = Levels();
      chunk.count = 0;
      segment->update_upper(i);
      dropped = true;
    }
    if (dropped) {
      count_segment(*segment);
      evictions_++;
      return true;
    }
  }
  return false;
}

void SegmentCache::put(CachedSegment &segment, std::int64_t chunk, std::int64_t count,
                       std::shared_ptr<const Samples> samples, Levels fine,
                       Levels coarse) {
  /* Nothing below can fail: these were made before anything changes. */
  ChunkUses samples_use{{&segment, chunk}}, fine_use{{&segment, chunk}};
  Chunk &held = segment.chunks[static_cast<std::size_t>(chunk)];
  if (held.samples != nullptr) drop_samples(segment, held);
  if (!held.fine.empty()) drop_fine(held);
  held.count = count;
  const auto add = [&](ChunkUses &uses, ChunkUses &use, unsigned need) {
    const auto place = use.begin();
    const bool stays = needed(segment, chunk, need, true);
    uses.splice(stays ? uses.end() : uses.begin(), use);
    return place;
  };
  held.samples_use = add(samples_uses_, samples_use, kAllSamples);
  held.samples = std::move(samples);
  held_ += sample_bytes(segment, count);
  held.fine_use = add(fine_uses_, fine_use, kFine);
  held.fine = std::move(fine);
  held_ += fine_bytes(count);
  fine_held_ += fine_bytes(count);
  const std::size_t before = held.coarse.size(), after = coarse.size();
  held.coarse = std::move(coarse);
  segment.bytes += (after - before) * sizeof(PackedExtremes);
  held_ += (after - before) * sizeof(PackedExtremes);
  segment.update_upper(chunk);
}

void SegmentCache::touch(CachedSegment &segment, std::int64_t first, std::int64_t end) {
  for (std::int64_t i = first; i < end; i++) {
    Chunk &chunk = segment.chunks[static_cast<std::size_t>(i)];
    if (chunk.samples != nullptr) {
      samples_uses_.splice(samples_uses_.end(), samples_uses_, chunk.samples_use);
    }
    if (!chunk.fine.empty()) {
      fine_uses_.splice(fine_uses_.end(), fine_uses_, chunk.fine_use);
    }
  }
}

void SegmentCache::drop_samples(CachedSegment &segment, Chunk &chunk) {
  samples_uses_.erase(chunk.samples_use);
  chunk.samples = nullptr;
  held_ -= sample_bytes(segment, chunk.count);
}

void SegmentCache::drop_fine(Chunk &chunk) {
  fine_uses_.erase(chunk.fine_use);
  chunk.fine = Levels();
  held_ -= fine_bytes(chunk.count);
  fine_held_ -= fine_bytes(chunk.count);
}

void SegmentCache::drop(CachedSegment &segment, std::int64_t new_count) {
  for (Chunk &chunk : segment.chunks) {
    if (chunk.samples != nullptr) drop_samples(segment, chunk);
    if (!chunk.fine.empty()) drop_fine(chunk);
  }
  segment.chunks.clear();
  segment.upper.clear();
  segment.chunk_retries.clear();
  segment.count = 0;
  segment.version++;
  segment.extend(new_count);
  count_segment(segment);
}

}  // namespace ksutil::scv
