/* CachedSegment: holds what the cache has of the samples of one row of wfdisc.
 *
 * Above the pyramids of the chunks (chunk.h) stands the segment's own: its levels from
 * kChunkShift + 1 on join the chunks by two, four, eight ..., up to the whole segment.
 * Threads: guarded by the lock of the view, `row` too.  Only the thread that reads the
 * table changes `row`, `count` and `stamp`. */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_CACHED_SEGMENT_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_CACHED_SEGMENT_H

#include <algorithm>
#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "waveforms/view/internal/chunk.h"
#include "waveforms/view/internal/file_stamp.h"

namespace ksutil::scv {

using Clock = std::chrono::steady_clock;

struct CachedSegment;

/* A chunk in a list of those used least recently. */
struct ChunkUse {
  CachedSegment *segment;
  std::int64_t chunk;
};
using ChunkUses = std::list<ChunkUse>;

struct Chunk {
  std::shared_ptr<const Samples> samples;  // null: not held
  Levels fine, coarse;                     // empty: not held
  std::int64_t count = 0;                  // samples that all of these describe
  bool reading = false;
  ChunkUses::iterator samples_use, fine_use;  // while samples, fine are held
};

/* The parts of a chunk that are needed besides its coarse envelopes. */
enum Need : unsigned { kCoarseOnly = 0, kFine = 1, kAllSamples = 2 };

/* The chunks that a plan needs.  Where other rows hide the middle of a segment these are
 * several parts, and the chunks between them are not needed. */
class Want {
 public:
  void add(long plan, std::int64_t first, std::int64_t end, unsigned need);
  /* Whether this plan needs the chunk, and all of `need` of it. */
  bool covers(long plan, std::int64_t chunk, unsigned need = kCoarseOnly) const;

 private:
  struct Part {
    std::int64_t first, end;
    unsigned need;
  };
  long plan_ = -1;  // number of the plan; another one needs nothing
  std::vector<Part> parts_;
};

/* When something that failed is tried again. */
struct Retry {
  Clock::time_point at;
  double pause = 0.0;  // s
  void fail();         // sets the next time
};

struct CachedSegment {
  CachedSegment(const WaveformSegment &row_in, std::int64_t count_in);

  WaveformSegment row;
  std::int64_t count;      // samples that the file has, at most row.nsamp
  bool counts;             // samples are integers
  FileStamp stamp;         // of the file that the samples are of
  int version = 0;         // increases when what was read is dropped
  bool gone = false;       // the file was not there at the last look
  bool suspended = false;  // the file seems to be another one: look before reading on
  std::vector<Chunk> chunks;
  std::vector<Levels> upper;  // levels kChunkShift + 1, ...; the last one has one entry
  Want now, ahead;
  std::string message;  // of the last failure; "" none
  Retry file_retry;     // pause above 0: the file cannot be read
  std::map<std::int64_t, Retry> chunk_retries;  // chunks that cannot be read
  std::list<std::shared_ptr<CachedSegment>>::iterator use;  // in the cache
  std::size_t bytes =
      0;  // that the cache counts for it, without samples and fine levels

  std::int64_t chunk_count() const {
    return (count + kChunkSamples - 1) >> kChunkShift;
  }
  std::int64_t expected(std::int64_t chunk) const {
    return std::min(count - (chunk << kChunkShift), kChunkSamples);
  }
  bool lacks(std::int64_t chunk, unsigned need) const;
  bool failed(std::int64_t chunk) const {
    return file_retry.pause > 0 || chunk_retries.contains(chunk);
  }
  /* Whether the chunk must not be read yet; then `next` becomes the time of the next attempt,
   * when that is earlier. */
  bool blocked(std::int64_t chunk, Clock::time_point now_is,
               Clock::time_point &next) const;

  double time_of(std::int64_t sample) const {
    return row.time + static_cast<double>(sample) / row.samprate;
  }
  /* The first sample at or after a time, a hundredth of an interval early at most; 0 to
   * `count`. */
  std::int64_t first_at(double time) const;

  /* Makes room for another number of samples, of which the first ones are as before. */
  void extend(std::int64_t new_count);
  /* To be called when the envelopes of a chunk have changed. */
  void update_upper(std::int64_t chunk);

  struct Found {
    Extremes extremes;
    bool partial = false;  // samples of the blocks have not been read
  };
  /* Adds the extremes of blocks first ... end - 1 of 2^level samples; level is kFineShift
   * or more. */
  void add_blocks(int level, std::int64_t first, std::int64_t end, Found &found) const;

 private:
  void add_block(int level, std::int64_t index, Found &found) const;
  PackedExtremes block(int level, std::int64_t index) const;
};

}  // namespace ksutil::scv
#endif
