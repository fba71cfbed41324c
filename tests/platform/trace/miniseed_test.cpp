/* A record that is put in the wrong place, left out or taken twice shifts everything after
 * it in time, and the seismogram still looks good.  And the records of a day's file come
 * from radio links and repaired disks: no byte of them may be trusted. */
#include "platform/trace/miniseed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <random>
#include <thread>

#include "platform/trace/trace.h"
#include "tests/support/folder.h"
#include "tests/support/miniseed.h"
#include "tests/support/register.h"
#include "tests/support/rows.h"

namespace ksutil {
namespace {

using test::counting_record;
using test::record_bytes;
using test::RecordPlan;
using test::taken_messages;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr double kTime = 1000000000.0;

class Miniseed : public testing::Test {
 protected:
  void SetUp() override { taken_messages(); }

  MiniseedContents listed(const std::string &bytes) {
    MiniseedContents contents;
    EXPECT_TRUE(miniseed_list(folder_.write("m", bytes), contents)) << taken_messages();
    return contents;
  }
  std::vector<std::int32_t> samples(const MiniseedPiece &piece) {
    std::vector<std::int32_t> found;
    EXPECT_TRUE(miniseed_read(folder_ / "m", piece, 0, piece.nsamp, found))
        << taken_messages();
    return found;
  }
  static std::vector<std::int32_t> counting(int first, int count) {
    std::vector<std::int32_t> values(static_cast<std::size_t>(count));
    std::iota(values.begin(), values.end(), first);
    return values;
  }

  test::TempFolder folder_;
};

/* Tests that decode. */
class MiniseedSamples : public Miniseed {
 protected:
  void SetUp() override {
    if (!miniseed_available()) GTEST_SKIP() << "built without libmseed";
    Miniseed::SetUp();
  }
};

using MiniseedPacked = MiniseedSamples;  // tests that encode

/* Samples of a packed file, decoded here: Steim 1 and 2 after the SEED reference manual,
 * version 2.4, appendix B. */
std::vector<std::int32_t> decoded(const std::string &record, bool second) {
  const auto word = [&](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      value = value << 8 | static_cast<unsigned char>(record[at + i]);
    }
    return value;
  };
  const std::size_t count = word(28) & 0xffff;
  std::vector<std::int32_t> differences;
  const auto split = [&](std::uint32_t value, int number, int bits) {
    for (int i = number - 1; i >= 0; --i) {
      const auto high = value >> (i * bits) << (32 - bits);
      differences.push_back(static_cast<std::int32_t>(high) >> (32 - bits));
    }
  };
  const std::size_t data = word(44) >> 16;
  for (std::size_t frame = data; frame < record.size(); frame += 64) {
    for (std::size_t i = frame == data ? 3 : 1; i < 16; ++i) {
      const std::uint32_t value = word(frame + 4 * i);
      const auto kind = word(frame) >> (30 - 2 * i) & 3, sub = value >> 30;
      if (kind == 1) split(value, 4, 8);
      if (kind == 2 && !second) split(value, 2, 16);
      if (kind == 3 && !second) split(value, 1, 32);
      if (kind == 2 && second)
        split(value, static_cast<int>(sub), 30 / static_cast<int>(sub));
      if (kind == 3 && second)
        split(value, 5 + static_cast<int>(sub), sub == 2 ? 4 : sub == 1 ? 5 : 6);
    }
  }
  std::vector<std::int32_t> values{static_cast<std::int32_t>(word(data + 4))};
  while (values.size() < count) {
    values.push_back(values.back() + differences.at(values.size()));
  }
  EXPECT_EQ(values.back(), static_cast<std::int32_t>(word(data + 8)));
  return values;
}

/* Small and great differences, so that every way to pack them occurs. */
std::vector<std::int32_t> rough_counts(std::size_t count) {
  std::mt19937 random(7);
  std::vector<std::int32_t> values;
  std::int32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const int bits = static_cast<int>(i / 7 % 27);
    const auto step = static_cast<std::int32_t>(random() % (2U << bits)) - (1 << bits);
    value += (value > 0) == (step > 0) && std::abs(value) > (1 << 29) ? -step : step;
    values.push_back(value);
  }
  return values;
}

Segment segment_of(std::span<const std::int32_t> counts, double time = kTime,
                   double samprate = 100.0) {
  Segment segment;
  segment.time = time;
  segment.samprate = samprate;
  segment.samples = counts;
  return segment;
}

const MiniseedCodes kCodes{"XX", "ABC", "00", "HHZ", 'D'};

TEST_F(MiniseedPacked, CountsAgreeWithADecoderOfItsOwn) {
  const auto counts = rough_counts(20000);
  std::string bytes;
  std::vector<std::int32_t> own;
  const auto sink = [&](std::string_view record) {
    bytes += record;
    const auto part = decoded(std::string(record), true);
    own.insert(own.end(), part.begin(), part.end());
    return true;
  };
  for (const int length : {256, 512, 4096}) {
    bytes.clear();
    own.clear();
    ASSERT_TRUE(miniseed_pack(segment_of(counts), kCodes, length, sink))
        << taken_messages();
    EXPECT_EQ(own, counts);
    const auto contents = listed(bytes);
    ASSERT_EQ(contents.pieces.size(), 1U);
    const MiniseedPiece &piece = contents.pieces[0];
    EXPECT_EQ(piece.codes, kCodes);
    EXPECT_EQ(std::tuple(piece.time, piece.samprate, piece.nsamp, piece.record_length),
              std::tuple(kTime, 100.0, 20000, length));
    EXPECT_STREQ(miniseed_encoding_text(piece.encoding), "STEIM2");
    EXPECT_EQ(samples(piece), counts);
  }
}

/* One frame after the manual's rules, made by hand: differences of 8, 16 and 32 bits. */
TEST_F(MiniseedSamples, Steim1FrameOfKnownDifferences) {
  const std::vector<std::int32_t> values{100,        101, 99,      102,
                                         102 + 3000, 102, 1000000, 5};
  RecordPlan plan;
  plan.exponent = 7;
  plan.samples.assign(16, 0);
  const auto put = [&](std::size_t word, std::uint32_t value) {
    plan.samples[word] = static_cast<std::int32_t>(value);
  };
  put(0, 1U << 24 | 2U << 22 | 3U << 20 | 3U << 18);
  put(1, 100);
  put(2, 5);
  put(3, 0x0001fe03);  // 0, 1, -2, 3
  put(4, 3000U << 16 | (static_cast<std::uint32_t>(-3000) & 0xffff));
  put(5, 999898);
  put(6, static_cast<std::uint32_t>(-999995));
  std::string record = record_bytes(plan);
  record[31] = 8;   // samples
  record[52] = 10;  // Steim 1
  EXPECT_EQ(decoded(record, false), values);
  EXPECT_EQ(samples(listed(record).pieces.at(0)), values);
}

TEST_F(MiniseedPacked, FloatsLeaveOutTheirGaps) {
  std::vector<float> values(1000);
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = static_cast<float>(i) * 0.1F;
  }
  trfill_gap(values.data(), 10);
  trfill_gap(values.data() + 400, 100);
  Segment segment = segment_of({}, kTime + 0.000123, 12.5);
  segment.samples = Segment::Floats(values);
  ASSERT_TRUE(miniseed_append(folder_ / "m", segment, kCodes, 512)) << taken_messages();
  const auto contents = listed(test::read_file(folder_ / "m"));
  ASSERT_EQ(contents.pieces.size(), 2U);
  EXPECT_NEAR(contents.pieces[0].time, kTime + 0.000123 + 10 / 12.5, 1e-6);
  EXPECT_NEAR(contents.pieces[1].time, kTime + 0.000123 + 500 / 12.5, 1e-6);
  std::vector<float> found;
  ASSERT_TRUE(miniseed_read(folder_ / "m", contents.pieces[1], 100, 400, found));
  EXPECT_EQ(found, std::vector<float>(values.begin() + 600, values.end()));
  std::vector<std::int32_t> counts{1};
  EXPECT_FALSE(miniseed_read(folder_ / "m", contents.pieces[1], 0, 1, counts));
  EXPECT_THAT(taken_messages(), HasSubstr("holds floats, not counts"));
  EXPECT_THAT(counts, ElementsAre(1));
}

TEST_F(MiniseedPacked, KeepsExtremeCountsAndOddRates) {
  const std::vector<std::int32_t> counts{INT32_MAX, INT32_MIN, 0, -1, INT32_MAX};
  for (const double samprate : {0.01, 1.0 / 3.0, 31.25, 99.99873, 5000.0, M_PI}) {
    std::string bytes;
    ASSERT_TRUE(miniseed_pack(segment_of(counts, kTime, samprate), kCodes, 512,
                              [&](std::string_view record) {
                                bytes += record;
                                return true;
                              }));
    const auto contents = listed(bytes);
    ASSERT_EQ(contents.pieces.size(), 1U);
    EXPECT_NEAR(contents.pieces[0].samprate / samprate, 1.0, 1e-7);
    EXPECT_EQ(samples(contents.pieces[0]), counts);
  }
}

TEST_F(MiniseedPacked, RefusesWhatAHeaderCannotHold) {
  const std::vector<std::int32_t> counts{1, 2};
  const auto sink = [](std::string_view) { return true; };
  struct Case {
    MiniseedCodes codes;
    int length;
    double time;
    const char *message;
  };
  for (const Case &c : {Case{{"NET", "ABC", "", "BHZ"}, 512, kTime, "A code does not"},
                        Case{{"XX", "", "", "BHZ"}, 512, kTime, "A code does not"},
                        Case{{"XX", "A C", "", "BHZ"}, 512, kTime, "A code does not"},
                        Case{kCodes, 500, kTime, "not a power of two"},
                        Case{kCodes, 512, NAN, "not between 1900 and 2100"}}) {
    EXPECT_FALSE(miniseed_pack(segment_of(counts, c.time), c.codes, c.length, sink));
    EXPECT_THAT(taken_messages(),
                AllOf(HasSubstr("miniseed_pack: "), HasSubstr(c.message)));
  }
}

TEST_F(MiniseedSamples, BothByteOrdersAndRecordsWithoutLength) {
  for (const bool big : {true, false}) {
    for (const bool with_length : {true, false}) {
      RecordPlan plan;
      plan.big = big;
      plan.with_length = with_length;
      const auto contents =
          listed(counting_record(plan, 0) + counting_record(plan, 100));
      ASSERT_EQ(contents.pieces.size(), 1U);
      EXPECT_EQ(contents.pieces[0].nsamp, 200);
      EXPECT_EQ(contents.pieces[0].record_length, 512);
      /* Without blockette 1000 nothing tells the encoding; it is taken as Steim 1. */
      if (!with_length) continue;
      EXPECT_EQ(samples(contents.pieces[0]), counting(0, 200));
    }
  }
}

TEST_F(Miniseed, GapsOverlapsAndOrderMakePieces) {
  const RecordPlan plan;
  RecordPlan other = plan;
  other.loc = "10";
  const auto record = [&](int index) { return counting_record(plan, index); };
  struct Case {
    const char *name;
    std::string bytes;
    std::vector<std::pair<std::int64_t, std::int64_t>> pieces;  // nsamp, foff
  };
  const Case cases[] = {
      {"in order", record(0) + record(100) + record(200), {{300, 0}}},
      {"gap", record(0) + record(100) + record(300), {{200, 0}, {100, 1024}}},
      {"overlap", record(0) + record(50) + record(150), {{100, 0}, {200, 512}}},
      {"twice", record(0) + record(0) + record(100), {{200, 0}, {100, 512}}},
      {"hole filled later", record(0) + record(200) + record(100), {{300, 0}}},
      {"backwards", record(200) + record(100) + record(0), {{300, 0}}},
      {"two channels",
       record(0) + counting_record(other, 0) + record(100) +
           counting_record(other, 100),
       {{200, 0}, {200, 512}}},
      {"foreign bytes between",
       record(0) + "noise 000001D noise" + record(100) + "end",
       {{200, 0}}},
  };
  for (const Case &c : cases) {
    std::vector<std::pair<std::int64_t, std::int64_t>> found;
    for (const MiniseedPiece &piece : listed(c.bytes).pieces) {
      found.emplace_back(piece.nsamp, piece.foff);
      if (!miniseed_available()) continue;
      const auto values = samples(piece);
      EXPECT_EQ(values, counting(values.at(0), static_cast<int>(piece.nsamp)))
          << c.name;
      EXPECT_DOUBLE_EQ(piece.time, plan.time + values.at(0) / 20.0) << c.name;
    }
    EXPECT_EQ(found, c.pieces) << c.name;
  }
  EXPECT_THAT(taken_messages(), IsEmpty());
}

/* Clocks drift: each record begins 0.4 samples late, and none may be lost for it. */
TEST_F(MiniseedSamples, RecordsOfADriftingClockFollowEachOther) {
  std::string bytes;
  for (int i = 0; i < 50; ++i) {
    RecordPlan plan;
    plan.time += i * 0.02;
    bytes += counting_record(plan, i * 100);
  }
  const auto contents = listed(bytes);
  ASSERT_EQ(contents.pieces.size(), 1U);
  EXPECT_EQ(samples(contents.pieces[0]), counting(0, 5000));
  EXPECT_NEAR(contents.pieces[0].endtime, kTime + 4999 / 20.0 + 49 * 0.02, 1e-4);
}

TEST_F(Miniseed, TellsOfACutRecordAndOfForeignBytes) {
  const RecordPlan plan;
  const std::string whole = counting_record(plan, 0) + counting_record(plan, 100);
  const auto cut = listed(whole + counting_record(plan, 200).substr(0, 300));
  ASSERT_EQ(cut.pieces.size(), 1U);
  EXPECT_EQ(cut.pieces[0].nsamp, 200);
  EXPECT_EQ(std::pair(cut.lost_samples, cut.foreign_bytes), std::pair(100L, 300L));
  EXPECT_THAT(
      taken_messages(),
      HasSubstr("ends within the record at byte 1024; its 100 samples are lost."));
  /* A volume header before the data, and a record whose length was damaged. */
  std::string damaged = counting_record(plan, 200);
  damaged[54] = 16;
  const auto volume = listed("000001V 0100095 2.412" + std::string(4075, ' ') + whole +
                             damaged + counting_record(plan, 300));
  ASSERT_EQ(volume.pieces.size(), 2U);
  EXPECT_EQ(volume.pieces[0].foff, 4096);
  EXPECT_EQ(volume.pieces[1].nsamp, 100);
  EXPECT_EQ(std::pair(volume.lost_samples, volume.foreign_bytes), std::pair(0L, 4608L));
  EXPECT_THAT(taken_messages(), IsEmpty());
}

TEST_F(Miniseed, RefusesWhatIsNotMiniseed) {
  MiniseedContents contents;
  contents.records = 5;
  for (const std::string &bytes :
       {std::string(), std::string("a text\n"), std::string(5000, '\0'),
        std::string("000001D ") + std::string(600, ' '),
        counting_record({}, 0).substr(0, 511)}) {
    EXPECT_FALSE(miniseed_list(folder_.write("m", bytes), contents));
    EXPECT_THAT(taken_messages(), HasSubstr("has no whole miniSEED record."));
  }
  EXPECT_FALSE(miniseed_list(folder_ / "none", contents));
  EXPECT_THAT(taken_messages(), HasSubstr("miniseed_list: open("));
  EXPECT_FALSE(miniseed_list(folder_.path(), contents));
  EXPECT_THAT(taken_messages(), HasSubstr("is not a regular file."));
  EXPECT_EQ(contents.records, 5);
  /* More samples than a record of 512 bytes can hold. */
  std::string greedy = counting_record({}, 0);
  greedy[30] = 0x7f;
  EXPECT_FALSE(miniseed_list(folder_.write("m", greedy), contents));
}

TEST_F(MiniseedSamples, DamagedSamplesAreAnError) {
  const auto counts = rough_counts(300);
  std::string bytes;
  ASSERT_TRUE(miniseed_pack(segment_of(counts), kCodes, 512, [&](std::string_view r) {
    bytes += r;
    return true;
  }));
  const auto contents = listed(bytes);
  for (std::size_t i = 64; i < 512; ++i) bytes[i] = static_cast<char>(0xff);
  folder_.write("m", bytes);
  std::vector<double> found{1.0};
  EXPECT_FALSE(miniseed_read(folder_ / "m", contents.pieces.at(0), 0, 10, found));
  EXPECT_THAT(taken_messages(), HasSubstr("miniseed_read: The record at byte 0 of"));
  EXPECT_THAT(found, ElementsAre(1.0));
}

/* Windows of a file whose middle cannot be decoded: what lies outside is not unpacked. */
TEST_F(MiniseedSamples, AWindowDecodesItsRecordsAlone) {
  std::string bytes;
  for (int i = 0; i < 10; ++i) {
    RecordPlan plan;
    std::string record = counting_record(plan, i * 100);
    if (i == 4) record[52] = 11, std::fill(record.begin() + 64, record.end(), '\xff');
    bytes += record;
  }
  const MiniseedPiece piece = listed(bytes).pieces.at(0);
  for (const auto &[first, count] : std::vector<std::pair<int, int>>{
           {0, 400}, {399, 1}, {500, 500}, {550, 300}, {7, 0}}) {
    std::vector<std::int32_t> found;
    EXPECT_TRUE(miniseed_read(folder_ / "m", piece, first, count, found))
        << taken_messages();
    EXPECT_EQ(found, counting(first, count));
  }
  std::vector<std::int32_t> found;
  EXPECT_FALSE(miniseed_read(folder_ / "m", piece, 399, 2, found));
  EXPECT_FALSE(miniseed_read(folder_ / "m", piece, 999, 2, found));
  EXPECT_FALSE(miniseed_read(folder_ / "m", piece, -1, 1, found));
}

TEST_F(MiniseedSamples, ThreadsReadAtTheSameTime) {
  const auto counts = rough_counts(50000);
  ASSERT_TRUE(miniseed_append(folder_ / "m", segment_of(counts), kCodes, 512));
  const MiniseedPiece piece = listed(test::read_file(folder_ / "m")).pieces.at(0);
  std::vector<int> equal(4);
  {
    std::vector<std::jthread> threads;
    for (int &result : equal) {
      threads.emplace_back([&] {
        std::vector<std::int32_t> found;
        result = miniseed_read(folder_ / "m", piece, 0, piece.nsamp, found) &&
                 found == counts;
      });
    }
  }
  EXPECT_THAT(equal, Each(1));
}

TEST_F(Miniseed, RowsOfWfdiscGiveSegments) {
  using ksutil::test::kEndOfArguments;
  Dbptr db;
  ASSERT_EQ(dbcreate((folder_ / "db").c_str(), "css3.0"), 0);
  ASSERT_EQ(dbopen_noshare((folder_ / "db").c_str(), "r+", &db), 0);
  RecordPlan plan, other;
  other.sta = "ZZZ";
  folder_.write("m", "foreign" + counting_record(plan, 0) + counting_record(other, 0) +
                         counting_record(plan, 100) + counting_record(plan, 300));
  const auto row = [&](double time, long nsamp, long foff) {
    Dbptr record = dblookup(db, "", "wfdisc", "", "");
    record.record =
        dbaddv(record, "sta", "ABC", "chan", "BHZ", "time", time, "samprate", 20.0,
               "nsamp", nsamp, "calib", 2.0, "datatype", "sd", "foff", foff, "dir", ".",
               "dfile", "m", kEndOfArguments);
    return record;
  };
  Segment segment;
  if (!miniseed_available()) {
    EXPECT_FALSE(read_segment(row(kTime, 200, 7), 0, 0, segment));
    EXPECT_THAT(taken_messages(), HasSubstr("built without"));
    dbclose(db);
    return;
  }
  ASSERT_TRUE(read_segment(row(kTime, 200, 7), kTime + 4.0, kTime + 6.0, segment))
      << taken_messages();
  ASSERT_TRUE(std::holds_alternative<Segment::Counts>(segment.samples));
  const auto found = std::get<Segment::Counts>(segment.samples);
  EXPECT_EQ(std::vector<std::int32_t>(found.begin(), found.end()), counting(80, 41));
  EXPECT_EQ(std::tuple(segment.time, segment.calib), std::tuple(kTime + 4.0, 2.0));
  /* A row of another program may begin within a record. */
  ASSERT_TRUE(read_segment(row(kTime + 1.0, 180, 7), 0, 0, segment))
      << taken_messages();
  EXPECT_EQ(std::get<Segment::Counts>(segment.samples)[0], 20);
  struct Case {
    Dbptr row;
    const char *message;
  };
  for (const Case &c :
       {Case{row(kTime, 400, 7),
             "m holds 200 samples of the segment at byte 7, wanted"},
        Case{row(kTime, 200, 0), "has no whole miniSEED record with samples at byte 0"},
        Case{row(kTime + 50.0, 10, 7), "m holds 0 samples"},
        Case{row(kTime, 200, 999999), "with samples at byte 999999"}}) {
    EXPECT_FALSE(read_segment(c.row, 0, 0, segment));
    EXPECT_THAT(taken_messages(), HasSubstr(c.message));
  }
  dbclose(db);
}

/* What is remembered of the places of samples must not outlive the bytes: windows of a long
 * piece, asked for in any order, from a file that is rewritten in place between them, with
 * the same size and the same time of change. */
TEST_F(MiniseedSamples, WindowsInAnyOrderAreThoseOfTheWhole) {
  constexpr std::size_t kCount = 300000, kPart = 7000;
  const std::vector<std::int32_t> counts = rough_counts(kCount);
  std::mt19937 random(11);
  const auto write = [&](bool other_first) {
    std::filesystem::remove(folder_ / "new");
    for (std::size_t at = 0; at < kCount; at += kPart) {
      for (const bool other : {other_first, !other_first}) {
        Segment segment;
        segment.time = kTime + static_cast<double>(at) / 100.0;
        segment.samprate = 100.0;
        segment.samples =
            Segment::Counts(counts).subspan(at, std::min(kPart, kCount - at));
        const MiniseedCodes codes{"XX", "ABC", "", other ? "HHN" : "HHZ", 'D'};
        ASSERT_TRUE(miniseed_append(folder_ / "new", segment, codes, 512));
      }
    }
    folder_.write("m", test::read_file(folder_ / "new"));  // in place
  };
  const auto check = [&](const MiniseedPiece &piece) {
    for (int i = 0; i < 30; ++i) {
      const auto first = static_cast<std::int64_t>(random() % kCount);
      const auto count = std::min<std::int64_t>(
          static_cast<std::int64_t>(random() % 3000 + 1), std::int64_t{kCount} - first);
      std::vector<std::int32_t> read;
      ASSERT_TRUE(miniseed_read(folder_ / "m", piece, first, count, read))
          << taken_messages();
      const auto from = counts.begin() + first;
      ASSERT_TRUE(std::equal(read.begin(), read.end(), from, from + count)) << first;
    }
  };
  write(false);
  MiniseedContents contents;
  ASSERT_TRUE(miniseed_list(folder_ / "m", contents));
  ASSERT_EQ(contents.pieces.size(), 2U);
  const MiniseedPiece second = contents.pieces[1];  // HHZ, the first in the file
  ASSERT_EQ(second.foff, 0);
  check(contents.pieces[0]);
  check(second);
  /* The second half has gone; then other records lie at the places that were met. */
  const auto changed = std::filesystem::last_write_time(folder_ / "m");
  const std::string before = test::read_file(folder_ / "m");
  std::string half = before;
  std::fill(half.begin() + static_cast<long>(half.size() / 2), half.end(), '\0');
  folder_.write("m", half);
  std::filesystem::last_write_time(folder_ / "m", changed);
  std::vector<std::int32_t> read;
  EXPECT_FALSE(miniseed_read(folder_ / "m", second, kCount - 100, 100, read));
  write(true);
  ASSERT_EQ(std::filesystem::file_size(folder_ / "m"), before.size());
  std::filesystem::last_write_time(folder_ / "m", changed);
  ASSERT_TRUE(miniseed_list(folder_ / "m", contents));
  MiniseedPiece moved = second;
  moved.foff = contents.pieces[1].foff;
  check(moved);
  check(contents.pieces[0]);  // begins at byte 0, as the other channel did
}

}  // namespace
}  // namespace ksutil
