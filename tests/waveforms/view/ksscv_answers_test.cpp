/* An analyst who zooms out sees the envelope alone: a spike that it loses, or a column that
 * shows another hour, is an event that is missed or made up. */
#include "objects/ksvector2.h"
#include "tests/waveforms/view/view_support.h"

namespace ksutil::test {
namespace {

/* Rows of one channel with gaps, overlaps and several lengths and types. */
std::vector<TrueRow> random_rows(std::mt19937 &random, bool one_rate) {
  std::vector<TrueRow> rows;
  double time = kStart;
  const char *const types[] = {"i4", "s4", "i2", "f4", "f8"};
  const std::size_t lengths[] = {1, 20, 700, 70000, 140000, 250000};
  for (unsigned i = 0; i < 7; i++) {
    TrueRow row{time, one_rate || random() % 3 != 0 ? 100.0 : 40.0,
                wandering(lengths[random() % 6], static_cast<unsigned>(random()))};
    row.datatype = types[random() % 5];
    row.lddate = 1e9 + static_cast<double>(random() % 3);
    rows.push_back(row);
    const double length = static_cast<double>(row.samples.size()) / row.samprate;
    /* Whole samples and a bit apart, so that no sample lies on the border of a row. */
    const double step = 0.0007 + 0.01 * std::round(100.0 * length);
    switch (random() % 3) {
      case 0:
        time += step;
        break;
      case 1:
        time += step + 0.01 * static_cast<double>(random() % 90000);
        break;
      default:
        time += 0.0007 + 0.01 * std::round(60.0 * length);
    }
  }
  return rows;
}

class RandomRows : public testing::TestWithParam<unsigned> {};

TEST_P(RandomRows, GiveTheEnvelopeOfEverySampleInAnyWindow) {
  std::mt19937 random(GetParam());
  Scene scene;
  std::vector<TrueRow> rows = random_rows(random, false);
  for (TrueRow &row : rows) scene.add(row);
  double end = kStart;
  for (const TrueRow &row : rows) {
    end = std::max(end, row.time_of(row.samples.size()));
  }
  /* With a small cache each window drives out the one before. */
  const ViewPtr view = GetParam() % 2 == 0 ? scene.open(8 << 20, 2, 1) : scene.open();
  set_channel(view.get());
  std::uniform_real_distribution<double> part(-0.1, 1.1);
  for (int i = 0; i < 12; i++) {
    double from = kStart + part(random) * (end - kStart);
    double to = i % 5 == 0 ? from + 60.0 * part(random)
                           : kStart + part(random) * (end - kStart);
    if (to < from) std::swap(from, to);
    const int choices[] = {1, 7, 60, 333, 1000};
    const int columns = choices[random() % 5];
    ASSERT_EQ(ksscv_set_window(view.get(), from, to, columns), 0);
    const DataPtr data = final_answer(view.get());
    ASSERT_EQ(data->n, columns);
    ASSERT_TRUE(data->state == KSSCV_COMPLETE || data->state == KSSCV_NOTHING)
        << data->message;
    ASSERT_NO_FATAL_FAILURE(expect_envelope(*data, rows))
        << "window " << i << ": " << from - kStart << " to " << to - kStart;
    const ksscv_counts counts = counts_of(view.get());
    ASSERT_LE(counts.cache_bytes, counts.cache_bound);
  }
}

TEST_P(RandomRows, GiveEverySampleOfAWindow) {
  std::mt19937 random(GetParam() + 100);
  Scene scene;
  std::vector<TrueRow> rows = random_rows(random, true);
  for (TrueRow &row : rows) scene.add(row);
  const ViewPtr view = scene.open();
  set_channel(view.get());
  for (int i = 0; i < 5; i++) {
    const TrueRow &row = rows[random() % rows.size()];
    const double from = row.time_of(row.samples.size() / 2) - 100.003;
    const double to = from + 1000.0;
    ASSERT_EQ(ksscv_set_window(view.get(), from, to, 100), 0);
    const DataPtr data = final_answer(view.get(), KSSCV_SAMPLES);
    ASSERT_EQ(data->state, KSSCV_COMPLETE) << data->message;
    ASSERT_NO_FATAL_FAILURE(expect_series(*data, to, rows, from));
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRows, testing::Range(1U, 5U));

class Answers : public testing::Test {
 protected:
  Scene scene_;
};

TEST_F(Answers, AreCalibratedOnRequestAlone) {
  TrueRow row{kStart, 10.0, {1, -2, 3}};
  row.calib = -0.5;
  scene_.add(row);
  TrueRow bare{kStart + 1, 10.0, {7, 8}};
  bare.calib = 0.0;
  scene_.add(bare);
  const ViewPtr view = scene_.open();
  set_channel(view.get());
  ksscv_set_window(view.get(), kStart, kStart + 2, 2);
  DataPtr data = final_answer(view.get());
  EXPECT_EQ(data->min[0], -2);
  EXPECT_EQ(data->max[1], 8);
  EXPECT_STREQ(data->message, "");
  data = final_answer(view.get(), KSSCV_ENVELOPE, 0, 1);
  EXPECT_EQ(data->min[0], -1.5);
  EXPECT_EQ(data->max[0], 1.0);
  EXPECT_EQ(data->here[1], KSSCV_GAP);
  EXPECT_STREQ(data->message, "Rows without calib are left out");
  data = final_answer(view.get(), KSSCV_SAMPLES, 0, 1);
  EXPECT_EQ(data->samples[1], 1.0);
  EXPECT_EQ(data->n, 12);
  EXPECT_EQ(data->samples[11], 1e34);
}

TEST_F(Answers, LeaveOutGapsAndEncloseDoubles) {
  std::vector<double> samples(70000, 0.1);  // no float is 0.1
  samples[5] = 1e31;
  samples[6] = std::nan("");
  samples[7] = -std::numeric_limits<double>::infinity();
  samples[69999] = 1.0 / 3.0;
  TrueRow row{kStart, 10.0, samples};
  row.datatype = "f8";
  scene_.add(row);
  const ViewPtr view = scene_.open();
  set_channel(view.get());
  ksscv_set_window(view.get(), kStart, kStart + 7000, 1);
  DataPtr data = final_answer(view.get());
  EXPECT_LE(data->min[0], 0.1);
  EXPECT_GE(data->max[0], 1.0 / 3.0);
  EXPECT_NEAR(data->min[0], 0.1, 1e-8);
  EXPECT_NEAR(data->max[0], 1.0 / 3.0, 1e-7);
  ksscv_set_window(view.get(), kStart, kStart + 1, 1);
  data = final_answer(view.get(), KSSCV_SAMPLES);
  EXPECT_EQ(data->here[4], KSSCV_HERE);
  for (int i = 5; i < 8; i++) {
    EXPECT_EQ(data->samples[i], 1e34);
    EXPECT_EQ(data->here[i], KSSCV_GAP);
  }
}

TEST_F(Answers, RepeatSamplesOfALowerRate) {
  TrueRow fast{kStart, 10.0, {1, 2, 3}}, slow{kStart + 0.5, 5.0, {20, 30}};
  scene_.add(fast);
  scene_.add(slow);
  const ViewPtr view = scene_.open();
  set_channel(view.get());
  ksscv_set_window(view.get(), kStart - 1, kStart + 1, 10);
  const DataPtr data = final_answer(view.get(), KSSCV_SAMPLES);
  EXPECT_DOUBLE_EQ(data->time, kStart);
  ASSERT_EQ(data->n, 8);
  EXPECT_EQ(data->samples[2], 3);
  EXPECT_EQ(data->samples[3], 1e34);
  EXPECT_EQ(data->samples[5], 20);
  EXPECT_EQ(data->samples[7], 30);
}

TEST_F(Answers, AreVectorsToo) {
  TrueRow row{kStart, 10.0, {1, 2, 3, 4}};
  scene_.add(row);
  const ViewPtr view = scene_.open();
  set_channel(view.get());
  ksscv_set_window(view.get(), kStart, kStart + 0.8, 4);
  final_answer(view.get(), KSSCV_SAMPLES);
  int state = -1;
  ksvector2 *vector =
      ksscv_get_vector(view.get(), 0, KSSCV_ENVELOPE, 0, "env", nullptr, &state);
  ASSERT_NE(vector, nullptr) << taken_messages();
  EXPECT_EQ(state, KSSCV_COMPLETE);
  ASSERT_EQ(vector->npts, 4);
  EXPECT_EQ(vector->ny, 2);
  EXPECT_DOUBLE_EQ(vector->data[3], kStart + 0.3);
  EXPECT_EQ(vector->data[4], 3);
  EXPECT_EQ(vector->data[5], 4);
  EXPECT_EQ(vector->data[7], 1e34);
  ksvector2_free_vector(vector);
  char tag[KS_TAG_SIZE];
  vector = ksscv_get_vector(view.get(), 0, KSSCV_SAMPLES, 0, "series", tag, nullptr);
  ASSERT_NE(vector, nullptr) << taken_messages();
  EXPECT_EQ(vector->tsamp, 1);
  EXPECT_EQ(vector->npts, 4);
  EXPECT_EQ(vector->data[3], 4);
  EXPECT_DOUBLE_EQ(vector->dt, 0.1);
  ksvector2_free(tag);
  ksscv_set_window(view.get(), kStart + 10, kStart + 11, 4);
  EXPECT_EQ(final_answer(view.get())->state, KSSCV_NOTHING);
  EXPECT_EQ(ksscv_get_vector(view.get(), 0, KSSCV_SAMPLES, 0, "", nullptr, nullptr),
            nullptr);
}

TEST_F(Answers, SayWhatDoesNotFit) {
  TrueRow row{kStart, 100.0, wandering(1500000, 1)};
  scene_.add(row);
  TrueRow other{kStart, 100.0, {1, 2, 3}};
  other.chan = "BHN";
  scene_.add(other);
  TrueRow late{kStart + 1e7, 100.0, {1, 2, 3}};
  late.chan = "BHN";
  scene_.add(late);
  const ViewPtr view = scene_.open(1, 1);
  const char *const stations[] = {"AAA", "AAA"}, *const channels[] = {"BHN", "BHZ"};
  ksscv_set_channels(view.get(), 2, stations, channels);
  ksscv_set_window(view.get(), kStart, kStart + 15000, 100);
  ask(view.get(), KSSCV_SAMPLES, 1);
  EXPECT_EQ(final_answer(view.get(), KSSCV_SAMPLES, 0)->state, KSSCV_COMPLETE);
  const DataPtr refused = final_answer(view.get(), KSSCV_SAMPLES, 1);
  EXPECT_EQ(refused->state, KSSCV_ERROR);
  EXPECT_STREQ(refused->message,
               "The cache of 4194304 bytes is too small for this window");
  ksscv_set_window(view.get(), kStart, kStart + 2e7, 100);
  const DataPtr sparse = final_answer(view.get(), KSSCV_SAMPLES, 0);
  EXPECT_EQ(sparse->state, KSSCV_ERROR);
  EXPECT_STREQ(sparse->message,
               "More than 16777216 samples in the window: ask for the envelope");
  /* The envelope of the same row fits. */
  ksscv_set_window(view.get(), kStart, kStart + 15000, 100);
  final_answer(view.get(), KSSCV_ENVELOPE, 1);
  ksscv_set_window(view.get(), kStart, kStart + 15001, 100);
  EXPECT_EQ(final_answer(view.get(), KSSCV_ENVELOPE, 1)->state, KSSCV_COMPLETE);
}

/* 2,000,000 bytes of samples and 700,000 of an envelope do not fit together. */
TEST_F(Answers, GiveEnvelopesWhereOnlySamplesDoNotFit) {
  TrueRow first{kStart, 100.0, wandering(500000, 1)};
  scene_.add(first);
  TrueRow last{kStart, 100.0, wandering(3000000, 2)};
  last.chan = "BHN";
  last.datatype = "i2";
  scene_.add(last);
  const ViewPtr view = scene_.open(1, 1);
  const char *const stations[] = {"AAA", "AAA"}, *const channels[] = {"BHZ", "BHN"};
  ksscv_set_channels(view.get(), 2, stations, channels);
  ksscv_set_window(view.get(), kStart, kStart + 30000, 1000);
  const DataPtr samples = final_answer(view.get(), KSSCV_SAMPLES, 0);
  EXPECT_EQ(samples->state, KSSCV_ERROR);
  for (int i = 0; i < 2; i++) {
    const DataPtr envelope = final_answer(view.get(), KSSCV_ENVELOPE, i);
    EXPECT_EQ(envelope->state, KSSCV_COMPLETE) << envelope->message;
    expect_envelope(*envelope, {i == 0 ? first : last});
  }
}

/* What the cache holds of the hidden part of a row gives way to other channels. */
TEST_F(Answers, DoNotKeepWhatAnotherRowHides) {
  TrueRow hidden{kStart, 100.0, wandering(900000, 1)};
  scene_.add(hidden);
  TrueRow other{kStart, 100.0, wandering(300000, 2)};
  other.chan = "BHN";
  scene_.add(other);
  const ViewPtr view = scene_.open(1, 1);
  const char *const stations[] = {"AAA", "AAA"}, *const channels[] = {"BHZ", "BHN"};
  ksscv_set_channels(view.get(), 1, stations, channels);
  for (const double from : {kStart, kStart + 4500}) {
    ksscv_set_window(view.get(), from, from + 4500, 1000);
    EXPECT_EQ(final_answer(view.get(), KSSCV_SAMPLES)->state, KSSCV_COMPLETE);
  }
  EXPECT_EQ(counts_of(view.get()).evictions, 0);
  TrueRow above{kStart + 500, 10.0, wandering(80000, 3), 2e9};
  scene_.add(above);
  ksscv_set_channels(view.get(), 2, stations, channels);
  ksscv_set_window(view.get(), kStart, kStart + 9000, 1000);
  ask(view.get(), KSSCV_SAMPLES, 0);
  ask(view.get(), KSSCV_SAMPLES, 1);
  look(view.get());
  for (int i = 0; i < 2; i++) {
    const DataPtr samples = final_answer(view.get(), KSSCV_SAMPLES, i);
    EXPECT_EQ(samples->state, KSSCV_COMPLETE) << samples->message;
  }
}

}  // namespace
}  // namespace ksutil::test
