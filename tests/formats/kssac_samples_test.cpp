/* The time of the first sample is spread over seven header variables; a carry lost between
 * them moves every pick that is read from the file. */
#include <climits>
#include <cmath>

#include "formats/kssac.h"
#include "tests/formats/sac_bytes.h"

namespace ksutil::sac::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const float kSamples[] = {1.0F, -3.0F, 5.0F, 3.0F};

/* NZYEAR to NZMSEC. */
std::vector<int> reference_fields(const KSSac &kssac) {
  std::vector<int> fields;
  for (int word = kNzyear; word <= kNzmsec; ++word)
    fields.push_back(integer_at(kssac, word));
  return fields;
}

TEST(Putdata, DescribesTheSamples) {
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 4, kSamples, "V", 1252026123.25, 4.0), 0);
  EXPECT_THAT(reference_fields(*kssac), ElementsAre(2009, 247, 1, 2, 3, 250));
  EXPECT_EQ(real_at(*kssac, kB), 0.0F);
  EXPECT_EQ(real_at(*kssac, kE), 0.75F);
  EXPECT_EQ(real_at(*kssac, kDelta), 0.25F);
  EXPECT_EQ(real_at(*kssac, kScale), 1.0F);
  EXPECT_EQ(real_at(*kssac, kDepmin), -3.0F);
  EXPECT_EQ(real_at(*kssac, kDepmax), 5.0F);
  EXPECT_EQ(real_at(*kssac, kDepmen), 1.5F);
  EXPECT_EQ(integer_at(*kssac, kNpts), 4);
  EXPECT_EQ(integer_at(*kssac, kIftype), 1);
  EXPECT_EQ(integer_at(*kssac, kIztype), 9);
  EXPECT_EQ(integer_at(*kssac, kLeven), 1);
  EXPECT_EQ(kssac->image->npts_data, 4);
  EXPECT_EQ(kssac->image->data_bytes, 16);
  const std::pair<const char *, int> types[] = {{"D", 6}, {"V", 7},  {"A", 8},
                                                {"-", 5}, {"VV", 5}, {nullptr, 5}};
  for (const auto &[type, idep] : types) {
    ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 4, kSamples, type, 0.0, 1.0), 0);
    EXPECT_EQ(integer_at(*kssac, kIdep), idep);
  }
}

TEST(Putdata, CutsTheReferenceTimeToTheMillisecond) {
  struct Case {
    double time;
    std::vector<int> fields;
    double b;
  };
  const Case cases[] = {
      {1000000000.0006, {2001, 252, 1, 46, 40, 0}, 0.0006},
      {978307199.99975, {2000, 366, 23, 59, 59, 999}, 0.00075},  // a year's last moment
      {68169600.0, {1972, 60, 0, 0, 0, 0}, 0.0},                 // a leap day begins
      {-0.75, {1969, 365, 23, 59, 59, 250}, 0.0},
      {-31536000.5, {1968, 366, 23, 59, 59, 500}, 0.0},
  };
  for (const Case &c : cases) {
    const KSSacPtr kssac = new_sac();
    ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 4, kSamples, "-", c.time, 1.0), 0);
    EXPECT_EQ(reference_fields(*kssac), c.fields) << c.time;
    EXPECT_NEAR(real_at(*kssac, kB), c.b, 5e-7) << c.time;
    double reference;
    ASSERT_EQ(kssac_getreftime_kssac(kssac.get(), &reference), 0);
    EXPECT_NEAR(reference + static_cast<double>(real_at(*kssac, kB)), c.time, 1e-6);
  }
}

TEST(Putdata, RefusesWhatCannotBeStored) {
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 4, kSamples, "V", 5.0, 4.0), 0);
  const std::string before(kssac->image->header, KSSAC_HEADER_SIZE);
  elog_clear_register(0);
  struct Case {
    long nsamp;
    double time, samprate;
    const char *message;
  };
  const Case cases[] = {
      {4, 0.0, 0.0, "kssac_putdata_kssac: Sample rate must be positive.\n"},
      {4, 0.0, -1.0, "kssac_putdata_kssac: Sample rate must be positive.\n"},
      {4, 0.0, NAN, "kssac_putdata_kssac: Sample rate must be positive.\n"},
      {4, NAN, 1.0, "kssac_putdata_kssac: Time must be a finite number.\n"},
      {1L + INT_MAX, 0.0, 1.0, "kssac_putdata_kssac: Too many samples.\n"},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(
        kssac_putdata_kssac(kssac.get(), c.nsamp, kSamples, "V", c.time, c.samprate),
        -1);
    EXPECT_EQ(messages(), c.message);
  }
  ks_test_fail_alloc(1);
  EXPECT_EQ(kssac_putdata_kssac(kssac.get(), 3, kSamples, "A", 0.0, 1.0), -1);
  EXPECT_THAT(messages(), HasSubstr("kssac_putdata_kssac: malloc(data,12) error.\n"));
  EXPECT_EQ(kssac->image->npts_data, 4);
  EXPECT_EQ(std::string(kssac->image->header, KSSAC_HEADER_SIZE), before);

  EXPECT_EQ(kssac_putdata_kssac(kssac.get(), 0, kSamples, "V", 0.0, 1.0), -1);
  EXPECT_EQ(messages(), "kssac_putdata_kssac: Number of samples < 1\n");
  EXPECT_EQ(kssac->image->data, nullptr);
}

TEST(Putdata, TakesTheRecordsOwnSamples) {
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 4, kSamples, "V", 5.0, 4.0), 0);
  ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 3, kssac->image->data + 1, "V", 5.25, 4.0),
            0);
  EXPECT_THAT(std::vector<float>(kssac->image->data, kssac->image->data + 3),
              ElementsAre(-3.0F, 5.0F, 3.0F));
}

TEST(Getdata, GivesBackWhatWasPut) {
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 4, kSamples, "A", 1252026123.2504, 40.0),
            0);
  long nsamp;
  double time, samprate;
  auto *samples = static_cast<float *>(std::malloc(1));
  char type[2];
  ASSERT_EQ(kssac_getdata_kssac(kssac.get(), &nsamp, &time, &samprate, &samples, type),
            0);
  const MallocPtr<float> owner(samples);
  EXPECT_EQ(nsamp, 4);
  EXPECT_NEAR(time, 1252026123.2504, 1e-6);
  EXPECT_NEAR(samprate, 39.9999994, 1e-7);
  EXPECT_THAT(std::vector<float>(samples, samples + 4),
              testing::ElementsAreArray(kSamples));
  EXPECT_STREQ(type, "A");
}

TEST(Getdata, FollowsNptsNotTheSamplesHeld) {
  const KSSacPtr kssac = new_sac();
  kssac_putdata_kssac(kssac.get(), 4, kSamples, "A", 0.0, 1.0);
  long nsamp;
  double time = 7.0, samprate;
  float *samples = nullptr;
  kssac_puthdr_kssac(kssac.get(), "NPTS", std::int64_t{6}, "IDEP", std::int64_t{50},
                     (char *)nullptr);
  char type[2];
  ASSERT_EQ(kssac_getdata_kssac(kssac.get(), &nsamp, &time, &samprate, &samples, type),
            0);
  EXPECT_THAT(std::vector<float>(samples, samples + nsamp),
              ElementsAre(1, -3, 5, 3, 0, 0));
  EXPECT_STREQ(type, "-");
  kssac_puthdr_kssac(kssac.get(), "NPTS", std::int64_t{2}, (char *)nullptr);
  ASSERT_EQ(
      kssac_getdata_kssac(kssac.get(), &nsamp, &time, &samprate, &samples, nullptr), 0);
  EXPECT_THAT(std::vector<float>(samples, samples + nsamp), ElementsAre(1, -3));

  time = 7.0;
  kssac_puthdr_kssac(kssac.get(), "NPTS", std::int64_t{-1}, (char *)nullptr);
  EXPECT_EQ(
      kssac_getdata_kssac(kssac.get(), &nsamp, &time, &samprate, &samples, nullptr), 0);
  EXPECT_EQ(nsamp, 0);
  EXPECT_EQ(time, 7.0);
  std::free(samples);

  const KSSacPtr empty = new_sac();
  nsamp = 5;
  EXPECT_EQ(
      kssac_getdata_kssac(empty.get(), &nsamp, &time, &samprate, &samples, nullptr), 0);
  EXPECT_EQ(nsamp, 0);
}

TEST(Getdata, RefusesSpectra) {
  const KSSacPtr kssac = new_sac();
  kssac_putdata_kssac(kssac.get(), 4, kSamples, "A", 0.0, 1.0);
  kssac_puthdr_kssac(kssac.get(), "IFTYPE", std::int64_t{3}, (char *)nullptr);
  elog_clear_register(0);
  long nsamp;
  double time, samprate;
  float *samples = nullptr;
  EXPECT_EQ(
      kssac_getdata_kssac(kssac.get(), &nsamp, &time, &samprate, &samples, nullptr),
      -1);
  EXPECT_EQ(messages(), "kssac_getdata_kssac: sac file type, 3, not supported.\n");
}

TEST(Getreftime, MayBeTheBeginningOfTheDay) {
  const KSSacPtr kssac = new_sac();
  kssac_putdata_kssac(kssac.get(), 4, kSamples, "A", 86400.0 * 3 + 3661.5, 1.0);
  double reference;
  kssac_puthdr_kssac(kssac.get(), "IZTYPE", std::int64_t{10}, (char *)nullptr);
  ASSERT_EQ(kssac_getreftime_kssac(kssac.get(), &reference), 0);
  EXPECT_EQ(reference, 86400.0 * 3);
  elog_clear_register(0);
  EXPECT_EQ(kssac_getreftime_kssac(nullptr, &reference), -1);
  EXPECT_THAT(messages(),
              HasSubstr("kssac_getreftime_kssac: kssac_gethdr_kssac() error.\n"));
}

TEST(Getreftime, SurvivesAnyHeader) {
  const KSSacPtr kssac = new_sac();
  for (const std::int64_t extreme : {std::int64_t{INT_MAX}, std::int64_t{INT_MIN}}) {
    for (int word = kNzyear; word <= kNzmsec; ++word) {
      const auto value = static_cast<std::int32_t>(extreme);
      std::memcpy(kssac->image->header + 4 * word, &value, 4);
    }
    double reference = NAN;
    EXPECT_EQ(kssac_getreftime_kssac(kssac.get(), &reference), 0);
    EXPECT_TRUE(std::isfinite(reference));
  }
}

}  // namespace
}  // namespace ksutil::sac::test
