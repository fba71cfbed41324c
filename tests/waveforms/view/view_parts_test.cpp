/* The pyramid of a segment and the rule for overlapping rows decide every picture; here each
 * is held against the plainest way to do the same. */
#include <gtest/gtest.h>

#include <random>

#include "waveforms/view/internal/cached_segment.h"
#include "waveforms/view/internal/pieces.h"
#include "waveforms/view/internal/segment_cache.h"

namespace ksutil::scv {
namespace {

WaveformSegment row_of(std::int64_t nsamp) {
  WaveformSegment row;
  row.samprate = 100.0;
  row.nsamp = nsamp;
  row.datatype = "i4";
  row.path = "file";
  return row;
}

/* Chunks arrive in any order while the segment grows; at each moment the blocks that have
 * been read, and no others, count. */
TEST(CachedSegment, JoinsTheChunksThatAreThere) {
  std::mt19937 random(5);
  for (int round = 0; round < 8; round++) {
    SegmentCache cache(std::size_t{1} << 30);
    std::int64_t count = 1 + static_cast<std::int64_t>(random() % (9 * kChunkSamples));
    const auto segment = cache.find(row_of(count), count);
    std::vector<std::int32_t> samples(static_cast<std::size_t>(count));
    for (auto &sample : samples) sample = static_cast<std::int32_t>(random());
    std::vector<std::int64_t> read(segment->chunks.size());
    for (int step = 0; step < 30; step++) {
      if (random() % 5 == 0) {
        count += static_cast<std::int64_t>(random() % (2 * kChunkSamples));
        while (samples.size() < static_cast<std::size_t>(count)) {
          samples.push_back(static_cast<std::int32_t>(random()));
        }
        segment->extend(count);
        read.resize(segment->chunks.size());
      }
      const auto chunk = static_cast<std::int64_t>(random() % segment->chunks.size());
      const std::int64_t n = segment->expected(chunk), begin = chunk << kChunkShift;
      auto held = std::make_shared<Samples>(std::vector<std::int32_t>(
          samples.begin() + begin, samples.begin() + begin + n));
      Levels fine, coarse;
      build_levels(*held, fine, coarse);
      cache.put(*segment, chunk, n, held, std::move(fine), std::move(coarse));
      read[static_cast<std::size_t>(chunk)] = n;

      const int level = kFineShift + static_cast<int>(random() % 14);
      const std::int64_t blocks = (count + (std::int64_t{1} << level) - 1) >> level;
      std::int64_t first = static_cast<std::int64_t>(random()) % (blocks + 1);
      std::int64_t end = static_cast<std::int64_t>(random()) % (blocks + 1);
      if (end < first) std::swap(first, end);
      CachedSegment::Found found;
      segment->add_blocks(level, first, end, found);
      Extremes expected;
      bool partial = false;
      for (std::int64_t i = first << level; i < std::min(end << level, count); i++) {
        const std::int64_t number = i >> kChunkShift;
        if (i - (number << kChunkShift) >= read[static_cast<std::size_t>(number)]) {
          partial = true;
          continue;
        }
        const double value = samples[static_cast<std::size_t>(i)];
        expected.add({value, value});
      }
      ASSERT_EQ(found.partial, partial);
      ASSERT_EQ(found.extremes.min, expected.min);
      ASSERT_EQ(found.extremes.max, expected.max);
    }
  }
}

TEST(ShownParts, AreThoseOfTheLaterRowEverywhere) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; round++) {
    std::vector<RowSpan> rows;
    for (long i = 0; i < 6; i++) {
      rows.push_back(
          {1.6e9 + static_cast<double>(random() % 300) + 0.003 * static_cast<double>(i),
           random() % 2 == 0 ? 1.0 : 4.0, static_cast<std::int64_t>(random() % 200),
           static_cast<double>(random() % 3), i});
    }
    std::vector<std::vector<char>> shown;
    for (const RowSpan &row : rows)
      shown.emplace_back(static_cast<std::size_t>(row.count), 0);
    double time = 0.0;
    for (const RowPart &part : shown_parts(rows)) {
      const RowSpan &row = rows[part.row];
      const double begin = row.time + static_cast<double>(part.first) / row.samprate;
      ASSERT_GT(begin, time);
      time = row.time + static_cast<double>(part.end - 1) / row.samprate;
      for (auto i = part.first; i < part.end; i++) {
        shown[part.row][static_cast<std::size_t>(i)]++;
      }
    }
    for (std::size_t k = 0; k < rows.size(); k++) {
      for (std::int64_t i = 0; i < rows[k].count; i++) {
        const double at = rows[k].time + static_cast<double>(i) / rows[k].samprate;
        int expected = 1;
        for (const RowSpan &other : rows) {
          const bool later = other.lddate != rows[k].lddate
                                 ? other.lddate > rows[k].lddate
                                 : other.record > rows[k].record;
          const double half = 0.5 / other.samprate;
          const double last =
              other.time + static_cast<double>(other.count - 1) / other.samprate;
          if (later && other.count > 0 && at >= other.time - half && at < last + half) {
            expected = 0;
          }
        }
        ASSERT_EQ(shown[k][static_cast<std::size_t>(i)], expected)
            << round << ": row " << k << ", sample " << i;
      }
    }
  }
}

/* Whatever is needed, nothing beyond the bound is held; and what the plan needs stays. */
TEST(SegmentCache, KeepsToItsBoundAndToThePlan) {
  std::mt19937 random(3);
  constexpr std::size_t kBound = 2 << 20;
  SegmentCache cache(kBound);
  constexpr std::int64_t kCount = 64 * kChunkSamples;
  std::shared_ptr<CachedSegment> segments[3];
  for (int i = 0; i < 3; i++) {
    WaveformSegment row = row_of(kCount);
    row.path += std::to_string(i);
    segments[i] = cache.find(row, kCount);
  }
  cache.set_plan(1);
  segments[0]->now.add(1, 3, 5, kAllSamples);
  const auto samples =
      std::make_shared<Samples>(std::vector<std::int32_t>(kChunkSamples, 7));
  for (int step = 0; step < 400; step++) {
    CachedSegment &segment = *segments[random() % 3];
    const auto chunk = static_cast<std::int64_t>(random() % 64);
    const std::size_t bytes = SegmentCache::sample_bytes(segment, kChunkSamples) +
                              SegmentCache::fine_bytes(kChunkSamples) +
                              SegmentCache::coarse_bytes(kChunkSamples);
    ASSERT_TRUE(cache.reserve(bytes, false));
    ASSERT_LE(cache.held() + bytes, kBound);
    cache.release(bytes);
    Levels fine, coarse;
    build_levels(*samples, fine, coarse);
    cache.put(segment, chunk, kChunkSamples, samples, std::move(fine),
              std::move(coarse));
    ASSERT_LE(cache.held(), kBound);
  }
  EXPECT_GT(cache.evictions(), 100);
  EXPECT_NE(segments[0]->chunks[3].samples, nullptr);
  EXPECT_NE(segments[0]->chunks[4].samples, nullptr);
  /* Envelopes outlive samples. */
  EXPECT_FALSE(segments[1]->chunks[20].coarse.empty());
  /* Coarse envelopes of segments in use go last, but for those that the plan needs. */
  cache.set_plan(2);
  segments[0]->now.add(2, 3, 4, kCoarseOnly);
  segments[0]->now.add(2, 60, 61, kCoarseOnly);
  std::size_t needed = 2 * SegmentCache::coarse_bytes(kChunkSamples);
  for (const auto &segment : segments) needed += SegmentCache::own_bytes(*segment);
  EXPECT_TRUE(cache.reserve(kBound - needed, false));
  EXPECT_FALSE(segments[0]->chunks[3].coarse.empty());
  EXPECT_TRUE(segments[0]->chunks[4].coarse.empty());
  EXPECT_TRUE(segments[0]->lacks(4, kCoarseOnly));
  CachedSegment::Found found;
  segments[0]->add_blocks(kChunkShift, 3, 4, found);
  EXPECT_FALSE(found.partial);
  segments[0]->add_blocks(kChunkShift + 6, 0, 1, found);
  EXPECT_TRUE(found.partial);
  cache.release(kBound - needed);
  const std::size_t before = cache.held();
  for (auto &segment : segments) segment.reset();
  cache.set_plan(3);
  EXPECT_FALSE(cache.reserve(kBound + 1, false));
  EXPECT_EQ(cache.segments(), 0U);
  EXPECT_EQ(cache.held(), 0U) << before;
}

}  // namespace
}  // namespace ksutil::scv
