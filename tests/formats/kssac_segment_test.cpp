/* The road of a sample from a file to a vector: files of both byte orders give the same
 * samples and times, and a spectrum does not pass for a seismogram. */
#include <cmath>
#include <numeric>

#include "objects/ksvector.h"
#include "objects/ksvector2.h"
#include "platform/trace/segment.h"
#include "platform/trace/trace.h"
#include "tests/formats/sac_bytes.h"

namespace ksutil::sac::test {
namespace {

using testing::HasSubstr;

constexpr std::endian kOther =
    std::endian::native == std::endian::little ? std::endian::big : std::endian::little;

class KssacOrders : public testing::TestWithParam<std::endian> {
 protected:
  std::string write(SacBytes &bytes) const {
    return write_file(folder_ / "file", bytes.str());
  }
  TempDirectory folder_;
};

TEST_P(KssacOrders, GiveTheSameRecord) {
  const std::string path = write(SacBytes(GetParam())
                                     .series(5, 0.025F)
                                     .real(kStla, 34.5F)
                                     .integer(kLcalda, 1)
                                     .text(kKstnm, "ANMO    "));
  const KSSacPtr kssac(kssac_read_from_file_either_order(path.c_str(), "n", nullptr));
  ASSERT_NE(kssac, nullptr) << messages();
  const SacBytes expected = SacBytes()
                                .series(5, 0.025F)
                                .real(kStla, 34.5F)
                                .integer(kLcalda, 1)
                                .text(kKstnm, "ANMO    ");
  EXPECT_EQ(std::string(kssac->image->header, KSSAC_HEADER_SIZE),
            expected.str().substr(0, KSSAC_HEADER_SIZE));
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(kssac->image->data),
                        static_cast<std::size_t>(kssac->image->data_bytes)),
            expected.str().substr(KSSAC_HEADER_SIZE));
}

TEST_P(KssacOrders, LeadToTheSameVectors) {
  SacBytes bytes(GetParam());
  const std::string path = write(
      bytes.series(100, 0.025F).text(kKstnm, "ANMO    ").text(kKcmpnm, "BHZ     "));
  Segment segment;
  ASSERT_EQ(kssac_read_segment(path.c_str(), segment), 0) << messages();
  EXPECT_EQ(segment.sta + segment.chan, "ANMOBHZ");
  EXPECT_EQ(segment.samprate, 40.0);
  EXPECT_EQ(segment.time, kSeriesTime);
  const Segment copy = segment;
  segment = Segment();
  std::vector<double> expected(100);
  std::iota(expected.begin(), expected.end(), 1.0);
  KSVector *const points = ksvector_create_from_segment(copy, "n", nullptr);
  ksvector2 *const cached = ksvector2_create_from_segment(copy, "n", nullptr);
  ASSERT_TRUE(points != nullptr && cached != nullptr) << messages();
  EXPECT_EQ(std::vector<double>(points->data, points->data + points->npts), expected);
  EXPECT_EQ(std::vector<double>(cached->data, cached->data + cached->npts), expected);
  EXPECT_EQ(std::pair(points->time, points->dt), std::pair(kSeriesTime, 0.025));
  EXPECT_EQ(std::pair(cached->time, cached->dt), std::pair(kSeriesTime, 0.025));
  ksvector_free_vector(points);
  ksvector2_free_vector(cached);
}

TEST_P(KssacOrders, RefuseWhatIsCutShortOrNoSacFile) {
  SacBytes bytes(GetParam());
  const std::string whole = bytes.series(3).str();
  for (std::size_t size = 0; size < whole.size(); size += 4) {
    const std::string path = write_file(folder_ / "file", whole.substr(0, size));
    Segment segment;
    EXPECT_EQ(kssac_read_segment(path.c_str(), segment), -1) << size;
    EXPECT_THAT(messages(), HasSubstr("kssac_read_segment: read("));
  }
  const std::string path = write(bytes.integer(kNvhdr, 7));
  EXPECT_EQ(kssac_read_from_file_either_order(path.c_str(), nullptr, nullptr), nullptr);
  EXPECT_THAT(messages(), HasSubstr("kssac_read_from_file_either_order: sac header "
                                    "version from "));
}

INSTANTIATE_TEST_SUITE_P(Both, KssacOrders,
                         testing::Values(std::endian::native, kOther),
                         [](const auto &tested) {
                           return tested.param == std::endian::native ? "Native"
                                                                      : "Other";
                         });

TEST(KssacSegment, NamesWhatIsNotATimeSeries) {
  const struct {
    int type;
    const char *text;
  } cases[] = {{2, "a spectrum (real and imaginary parts)"},
               {3, "a spectrum (amplitudes and phases)"},
               {4, "pairs of x and y"},
               {51, "values over a plane (x, y, z)"},
               {-12345, "data of unknown type"}};
  const TempDirectory folder;
  for (const auto &c : cases) {
    const std::string path = write_file(
        folder / "file", SacBytes().series(4).integer(kIftype, c.type).str());
    const KSSacPtr kssac = read_sac(path);
    ASSERT_NE(kssac, nullptr);
    EXPECT_STREQ(kssac_file_type_text(kssac.get()), c.text);
    Segment segment;
    EXPECT_EQ(kssac_get_segment_kssac(kssac.get(), segment), -1);
    EXPECT_EQ(messages(), std::string("kssac_get_segment_kssac: The record holds ") +
                              c.text + ", not a time series.\n");
  }
  EXPECT_STREQ(kssac_file_type_text(nullptr), "nothing");
}

TEST(KssacSegment, NeedsEvenSamplesTimeAndInterval) {
  const TempDirectory folder;
  const SacBytes faulty[] = {
      SacBytes().series(4).integer(kLeven, 0), SacBytes().series(4).real(kDelta, 0.0F),
      SacBytes().series(4).real(kB, -12345.0F),
      SacBytes().series(4).integer(kNzjday, -12345), SacBytes().series(0)};
  for (const SacBytes &bytes : faulty) {
    const KSSacPtr kssac = read_sac(write_file(folder / "file", bytes.str()));
    ASSERT_NE(kssac, nullptr);
    Segment segment;
    segment.sta = "OLD";
    EXPECT_EQ(kssac_get_segment_kssac(kssac.get(), segment), -1);
    EXPECT_EQ(segment.sta, "OLD");
    EXPECT_THAT(messages(), HasSubstr("kssac_get_segment_kssac: The "));
  }
}

TEST(KssacSegment, MakesARecordOfCountsAndFloats) {
  const std::vector<std::int32_t> counts = {5, -7, 16777217};
  Segment segment;
  segment.sta = "ANMO";
  segment.chan = "BHZ";
  segment.time = 1000.5;
  segment.samprate = 20.0;
  segment.samples = Segment::Counts(counts);
  const KSSacPtr kssac(kssac_create_from_segment(segment, "V", "n", nullptr));
  ASSERT_NE(kssac, nullptr) << messages();
  EXPECT_EQ(std::vector<float>(kssac->image->data, kssac->image->data + 3),
            (std::vector<float>{5, -7, 16777216}));
  EXPECT_EQ(text_at(*kssac, kKstnm), "ANMO    ");
  EXPECT_EQ(text_at(*kssac, kKcmpnm), "BHZ     ");
  EXPECT_EQ(integer_at(*kssac, kIdep), 7);
  EXPECT_EQ(integer_at(*kssac, kNpts), 3);
  EXPECT_EQ(real_at(*kssac, kDepmin), -7.0F);
  EXPECT_EQ(real_at(*kssac, kDelta), 0.05F);
  /* And back: the record's own samples, without a copy. */
  Segment again;
  ASSERT_EQ(kssac_get_segment_kssac(kssac.get(), again), 0) << messages();
  EXPECT_EQ(std::get<Segment::Floats>(again.samples).data(), kssac->image->data);
  EXPECT_EQ(std::pair(again.time, again.samprate), std::pair(1000.5, 20.0));
  for (const double wrong : {0.0, -1.0, std::nan("")}) {
    segment.samprate = wrong;
    EXPECT_EQ(kssac_create_from_segment(segment, "V", nullptr, nullptr), nullptr);
    EXPECT_EQ(ksvector_create_from_segment(segment, nullptr, nullptr), nullptr);
    EXPECT_EQ(ksvector2_create_from_segment(segment, nullptr, nullptr), nullptr);
  }
  elog_clear_register(0);
}

/* Whatever fails, a row must not count more samples than it points to. */
TEST(KssacTraceRowFailures, NeverLeaveARowThatCountsMoreThanItHas) {
  const std::vector<float> samples(1000, 1.0F);
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 1000, samples.data(), "V", 0.0, 1.0), 0);
  bool failed = true;
  for (int refused = 1; failed; ++refused) {
    Dbptr trace = dblookup(trnew(), "", "trace", "", "");
    void *const own = std::calloc(4, sizeof(float));
    Dbptr row = trace;
    row.record = dbaddv(trace, "sta", "ANMO", "chan", "BHZ", "time", 1000.5, "samprate",
                        20.0, "nsamp", 4L, "data", own, (char *)nullptr);
    ks_test_fail_alloc(refused);
    failed = kssac_getevent_kssac(kssac.get(), row, dbinvalid()) != 0;
    ks_test_fail_alloc(0);
    long nsamp = 0;
    float *data = nullptr;
    ASSERT_EQ(dbgetv(row, "nsamp", &nsamp, "data", &data, (char *)nullptr), 0);
    EXPECT_EQ(nsamp, failed ? 4 : 1000);
    EXPECT_EQ(static_cast<void *>(data) == own, failed);
    EXPECT_EQ(std::accumulate(data, data + nsamp, 0.0F), failed ? 0.0F : 1000.0F);
    trdestroy(&trace);
  }
  elog_clear_register(0);
}

}  // namespace
}  // namespace ksutil::sac::test
