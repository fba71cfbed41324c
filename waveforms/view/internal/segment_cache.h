/* SegmentCache: holds segments with what was read of them, bounded in bytes.
 *
 * Room is made, least recently used first, from samples, from fine envelopes, from whole
 * segments that nothing else refers to, and from the coarse envelopes of the others; what the
 * present plan needs stays.  Fine envelopes that no plan needs give way to samples only when
 * they fill more than half of the bound, so that they outlive the samples that they were made
 * from.
 * Threads: guarded by the lock of the view. */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_SEGMENT_CACHE_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_SEGMENT_CACHE_H

#include <cstddef>
#include <string>
#include <unordered_map>

#include "waveforms/view/internal/cached_segment.h"

namespace ksutil::scv {

class SegmentCache {
 public:
  explicit SegmentCache(std::size_t bound) : bound_(bound) {}
  SegmentCache(const SegmentCache &) = delete;
  SegmentCache &operator=(const SegmentCache &) = delete;

  std::size_t bound() const { return bound_; }
  std::size_t held() const { return held_; }
  std::size_t segments() const { return by_key_.size(); }
  long evictions() const { return evictions_; }

  /* The plan whose needs are protected. */
  void set_plan(long plan) { plan_ = plan; }

  /* The segment of a row, with what was read of it before; a new one when there is none.
   * Null when the bound leaves no room for another segment. */
  std::shared_ptr<CachedSegment> find(const WaveformSegment &row, std::int64_t count);
  /* Counts what a segment has come to hold. */
  void count_segment(CachedSegment &segment);

  /* Makes room for bytes that are about to be read, and reserves it; false when all that is
   * held is needed.  With `ahead` also what is wanted ahead is needed, and an eighth of the
   * bound stays free. */
  bool reserve(std::size_t bytes, bool ahead);
  void release(std::size_t bytes) { reserved_ -= bytes; }

  /* Puts what was read in place of what was held of the chunk; the bytes must be reserved
   * meanwhile.  What the plans do not need is the next to go. */
  void put(CachedSegment &segment, std::int64_t chunk, std::int64_t count,
           std::shared_ptr<const Samples> samples, Levels fine, Levels coarse);
  /* Tells that chunks first ... end - 1 are in use. */
  void touch(CachedSegment &segment, std::int64_t first, std::int64_t end);
  /* Drops all that was read of a segment, and gives it another number of samples. */
  void drop(CachedSegment &segment, std::int64_t new_count);

  /* The bytes of the samples and of the fine and coarse envelopes of n samples. */
  static std::size_t sample_bytes(const CachedSegment &segment, std::int64_t n);
  static std::size_t fine_bytes(std::int64_t n);
  static std::size_t coarse_bytes(std::int64_t n);
  /* The bytes of a segment of which nothing has been read. */
  static std::size_t own_bytes(const CachedSegment &segment);

 private:
  bool evict_one(bool ahead);
  bool evict_samples(bool ahead);
  bool evict_fine(bool ahead);
  bool evict_segment();
  bool evict_coarse(bool ahead);
  void drop_samples(CachedSegment &segment, Chunk &chunk);
  void drop_fine(Chunk &chunk);
  bool needed(const CachedSegment &segment, std::int64_t chunk, unsigned need,
              bool ahead) const;

  const std::size_t bound_;
  std::size_t held_ = 0, reserved_ = 0, fine_held_ = 0;
  long plan_ = 0, evictions_ = 0;
  std::unordered_map<std::string, std::shared_ptr<CachedSegment>> by_key_;
  std::list<std::shared_ptr<CachedSegment>> segment_uses_;  // least recently used first
  ChunkUses samples_uses_, fine_uses_;                      // least recently used first
};

}  // namespace ksutil::scv
#endif
