/* chunk: holds the samples of one chunk of a segment, and its pyramid of envelopes.
 *
 * A chunk is 2^kChunkShift samples of a segment, the last one fewer.  Level l of its pyramid
 * has the least and the greatest of each 2^l samples.  The levels from kFineShift to
 * kCoarseShift - 1 (fine, an eighth of the size of the samples) and from kCoarseShift to
 * kChunkShift (coarse, 1 KB) are kept and dropped apart. */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_CHUNK_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_CHUNK_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <variant>
#include <vector>

#include "platform/trace/waveform.h"

namespace ksutil::scv {

inline constexpr int kChunkShift = 16, kFineShift = 6, kCoarseShift = 10;
inline constexpr std::int64_t kChunkSamples = std::int64_t{1} << kChunkShift;

/* Counts are kept as integers, and single-precision samples as such. */
using Samples =
    std::variant<std::vector<std::int32_t>, std::vector<float>, std::vector<double>>;

/* Whether samples are kept as integers.  Those of miniSEED files are kept in double precision:
 * only the file tells whether they are counts. */
bool is_counts(const WaveformSegment &row);

/* Bytes of a sample of this data type in Samples. */
std::size_t kept_size(const WaveformSegment &row);

/* The least and the greatest of some samples; nothing when there are only gaps. */
struct Extremes {
  double min = std::numeric_limits<double>::infinity();
  double max = -std::numeric_limits<double>::infinity();

  bool empty() const { return !(min <= max); }
  void add(const Extremes &other) {
    if (other.min < min) min = other.min;
    if (other.max > max) max = other.max;
  }
};

/* Extremes in 8 bytes: of counts as integers, of others as floats, which were rounded
 * outwards from double precision. */
struct PackedExtremes {
  std::int32_t min, max;
  bool operator==(const PackedExtremes &) const = default;
};
/* Those of samples that have not been read. */
inline constexpr PackedExtremes kUnknown{1, 0};

Extremes unpacked(PackedExtremes extremes, bool counts);
PackedExtremes merged(PackedExtremes a, PackedExtremes b, bool counts);

/* The extremes of samples first ... end - 1 of a chunk. */
Extremes extremes_of(const Samples &samples, std::size_t first, std::size_t end);

/* One sample as a double: a gap (1e34) for infinities, NaN and what is above 1e30. */
double sample_at(const Samples &samples, std::size_t index);
inline constexpr double kGap = 1e34;

/* Levels low ... high - 1 of the pyramid of a chunk of n samples, one after another. */
inline std::size_t blocks_of(std::int64_t n, int level) {
  return static_cast<std::size_t>((n + (std::int64_t{1} << level) - 1) >> level);
}
inline std::size_t level_begin(std::int64_t n, int low, int level) {
  std::size_t begin = 0;
  for (int l = low; l < level; l++) begin += blocks_of(n, l);
  return begin;
}
using Levels = std::vector<PackedExtremes>;
void build_levels(const Samples &samples, Levels &fine, Levels &coarse);

/* Reads the samples of one chunk; false, with messages, as read_samples. */
bool read_chunk(const WaveformSegment &row, std::int64_t first, std::int64_t count,
                Samples &samples);

}  // namespace ksutil::scv
#endif
