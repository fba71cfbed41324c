/* What the tests of ksscv share: waveform files with rows, and a plain reading of every
 * sample that answers are compared with. */
#ifndef KSUTIL_TESTS_WAVEFORMS_VIEW_VIEW_SUPPORT_H
#define KSUTIL_TESTS_WAVEFORMS_VIEW_VIEW_SUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/db/values.h"
#include "tests/support/folder.h"
#include "tests/support/rows.h"
#include "waveforms/ksscv.h"

namespace ksutil::test {

inline constexpr double kStart = 1.6e9;
inline constexpr double kPatience = 60.0;  // s that a test waits before it fails

struct CloseView {
  void operator()(ksscv *view) const { ksscv_close(view); }
};
using ViewPtr = std::unique_ptr<ksscv, CloseView>;
struct FreeData {
  void operator()(ksscv_data *data) const { ksscv_free_data(data); }
};
using DataPtr = std::unique_ptr<ksscv_data, FreeData>;

/* Samples in the bytes of a data type. */
inline std::string encoded(const std::string &datatype,
                           const std::vector<double> &samples) {
  std::string bytes;
  const auto append = [&bytes](auto value) {
    char text[sizeof value];
    std::memcpy(text, &value, sizeof value);
    bytes.append(text, sizeof value);
  };
  for (const double sample : samples) {
    if (datatype == "i4") append(static_cast<std::int32_t>(sample));
    if (datatype == "s4") {
      append(__builtin_bswap32(
          static_cast<std::uint32_t>(static_cast<std::int32_t>(sample))));
    }
    if (datatype == "i2") append(static_cast<std::int16_t>(sample));
    if (datatype == "f4") append(static_cast<float>(sample));
    if (datatype == "f8") append(sample);
  }
  return bytes;
}

struct TrueRow {
  double time, samprate;
  std::vector<double> samples;
  double lddate = 1e9, calib = 1.0;
  std::string sta = "AAA", chan = "BHZ", datatype = "i4", file = "";
  long record = -1;
  double time_of(std::size_t i) const {
    return time + static_cast<double>(i) / samprate;
  }
};

/* Samples that move about, with a spike now and then; whole numbers. */
inline std::vector<double> wandering(std::size_t n, unsigned seed,
                                     double limit = 30000) {
  std::mt19937 random(seed);
  std::vector<double> samples(n);
  double value = 0;
  for (double &sample : samples) {
    value = 0.999 * value + static_cast<double>(random() % 201) - 100.0;
    sample = std::round(std::clamp(value, -limit, limit));
    if (random() % 4096 == 0) sample = random() % 2 == 0 ? limit : -limit;
  }
  return samples;
}

class Scene {
 public:
  Scene() : name_(folder_ / "db") {
    EXPECT_EQ(dbcreate(name_.c_str(), "css3.0"), 0);
    db_ = std::make_unique<OpenDatabase>(name_, "r+");
  }
  const std::string &name() const { return name_; }
  std::string file(const std::string &file) const { return folder_ / file; }
  Dbptr db() const { return *db_; }
  Dbptr row(long record) const { return db_->at("wfdisc", record); }

  /* Writes the file of a row, and the row. */
  void add(TrueRow &row) {
    if (row.file.empty()) row.file = "w" + std::to_string(files_++);
    write_file(folder_ / row.file, encoded(row.datatype, row.samples));
    add_row(row);
  }
  void add_row(TrueRow &row) {
    const auto n = static_cast<long>(row.samples.size());
    row.record =
        dbaddv(db_->at("wfdisc"), "sta", row.sta.c_str(), "chan", row.chan.c_str(),
               "time", row.time, "endtime", row.time_of(row.samples.size() - 1),
               "samprate", row.samprate, "nsamp", n, "calib", row.calib, "datatype",
               row.datatype.c_str(), "dir", ".", "dfile", row.file.c_str(), "foff", 0L,
               "lddate", row.lddate, kEndOfArguments);
    EXPECT_GE(row.record, 0) << taken_messages();
  }
  /* Appends samples to the file of a row, and then to the row. */
  void append(TrueRow &row, const std::vector<double> &samples) {
    append_to_file(row, samples);
    row.samples.insert(row.samples.end(), samples.begin(), samples.end());
    set_nsamp(row, static_cast<long>(row.samples.size()));
  }
  void append_to_file(const TrueRow &row, const std::vector<double> &samples) {
    std::ofstream(folder_ / row.file, std::ios::binary | std::ios::app)
        << encoded(row.datatype, samples);
  }
  void set_nsamp(const TrueRow &row, long nsamp) {
    EXPECT_EQ(dbputv(this->row(row.record), "nsamp", nsamp, "endtime",
                     row.time + static_cast<double>(nsamp - 1) / row.samprate,
                     kEndOfArguments),
              0);
  }

  ViewPtr open(long cache_bytes = 0, int threads = 2, int prefetch = 0,
               double period = -1.0) const {
    const ksscv_options options{cache_bytes, threads, period, prefetch};
    ViewPtr view(ksscv_open(db(), &options));
    EXPECT_NE(view, nullptr) << taken_messages();
    return view;
  }

 private:
  TempFolder folder_;
  std::string name_;
  std::unique_ptr<OpenDatabase> db_;
  int files_ = 0;
};

inline void set_channel(ksscv *view, const char *sta = "AAA",
                        const char *chan = "BHZ") {
  EXPECT_EQ(ksscv_set_channels(view, 1, &sta, &chan), 0);
}

inline DataPtr ask(ksscv *view, int what = KSSCV_ENVELOPE, int channel = 0,
                   int calibrated = 0) {
  ksscv_data *data = nullptr;
  EXPECT_EQ(ksscv_get(view, channel, what, calibrated, &data), 0) << taken_messages();
  return DataPtr(data);
}

/* The answer when all has been read. */
inline DataPtr final_answer(ksscv *view, int what = KSSCV_ENVELOPE, int channel = 0,
                            int calibrated = 0) {
  ask(view, what, channel, calibrated);
  EXPECT_EQ(ksscv_wait(view, kPatience), 1) << taken_messages();
  return ask(view, what, channel, calibrated);
}

inline ksscv_counts counts_of(ksscv *view) {
  ksscv_counts counts{};
  EXPECT_EQ(ksscv_counters(view, &counts), 0);
  return counts;
}

/* Lets the view see what has changed. */
inline void look(ksscv *view) {
  EXPECT_EQ(ksscv_refresh(view), 0);
  EXPECT_EQ(ksscv_wait(view, kPatience), 1) << taken_messages();
}

struct TrueSample {
  double time, dt, value;
  bool shown;
};

/* Every sample of the rows; hidden ones are those within the span of a later row. */
inline std::vector<TrueSample> all_samples(const std::vector<TrueRow> &rows) {
  std::vector<TrueSample> all;
  for (const TrueRow &row : rows) {
    std::vector<const TrueRow *> above;
    for (const TrueRow &other : rows) {
      const bool later = other.lddate != row.lddate ? other.lddate > row.lddate
                                                    : other.record > row.record;
      if (later) above.push_back(&other);
    }
    for (std::size_t i = 0; i < row.samples.size(); i++) {
      const double time = row.time_of(i);
      const bool hidden =
          std::any_of(above.begin(), above.end(), [time](const TrueRow *other) {
            return time >= other->time - 0.5 / other->samprate &&
                   time < other->time_of(other->samples.size() - 1) +
                              0.5 / other->samprate;
          });
      all.push_back({time, 1.0 / row.samprate, row.samples[i], !hidden});
    }
  }
  return all;
}

struct Bounds {
  double min = 1e300, max = -1e300;
  void add(double value) {
    min = std::min(min, value);
    max = std::max(max, value);
  }
  bool empty() const { return min > max; }
};

/* Expects the envelope to be that of all samples: exactly where columns have few samples,
 * else with what the header allows columns to lend and to borrow. */
inline void expect_envelope(const ksscv_data &data, const std::vector<TrueRow> &rows) {
  const auto all = all_samples(rows);
  const auto columns = static_cast<std::size_t>(data.n);
  double most = 0.0;  // samples in a column
  for (const TrueRow &row : rows) most = std::max(most, row.samprate * data.dt);
  std::vector<Bounds> exact(columns), inner(columns), outer(columns), middle(columns);
  const auto add = [&](std::vector<Bounds> &to, double column, double value) {
    if (column >= 0 && column < static_cast<double>(columns)) {
      to[static_cast<std::size_t>(column)].add(value);
    }
  };
  constexpr double kLent = 1.0 / 16, kHidden = 1.0 / 8;
  for (const TrueSample &sample : all) {
    const double at = (sample.time + 0.01 * sample.dt - data.time) / data.dt;
    const double column = std::floor(at), part = at - column;
    const double reach = (sample.shown ? kLent : kHidden) + 1e-9;
    if (sample.shown) {
      add(exact, column, sample.value);
      if (part > kLent && part < 1 - kLent) add(inner, column, sample.value);
      /* From the middle of one column to that of the next. */
      add(middle, std::floor(at - 0.5), sample.value);
    }
    add(outer, column, sample.value);
    if (part < reach) add(outer, column - 1, sample.value);
    if (part > 1 - reach) add(outer, column + 1, sample.value);
  }
  for (std::size_t i = 0; i < columns; i++) {
    const bool null = data.min[i] == 1e34;
    if (most < 512) {
      ASSERT_EQ(null, exact[i].empty()) << i << " of " << columns;
      if (null) continue;
      ASSERT_EQ(data.min[i], exact[i].min) << i << " of " << columns;
      ASSERT_EQ(data.max[i], exact[i].max) << i << " of " << columns;
      continue;
    }
    if (!null) {
      ASSERT_GE(data.min[i], outer[i].min) << i << " of " << columns;
      ASSERT_LE(data.max[i], outer[i].max) << i << " of " << columns;
    }
    if (!inner[i].empty()) {
      ASSERT_FALSE(null) << i << " of " << columns;
      ASSERT_LE(data.min[i], inner[i].min) << i << " of " << columns;
      ASSERT_GE(data.max[i], inner[i].max) << i << " of " << columns;
    }
    if (i + 1 < columns && !middle[i].empty()) {
      const bool next = data.min[i + 1] != 1e34;
      ASSERT_TRUE(next || !null);
      const double min =
          std::min(null ? 1e300 : data.min[i], next ? data.min[i + 1] : 1e300);
      const double max =
          std::max(null ? -1e300 : data.max[i], next ? data.max[i + 1] : -1e300);
      ASSERT_LE(min, middle[i].min) << i << " of " << columns;
      ASSERT_GE(max, middle[i].max) << i << " of " << columns;
    }
  }
}

/* Expects the series to have each shown sample of rows of one rate. */
inline void expect_series(const ksscv_data &data, double tend,
                          const std::vector<TrueRow> &rows, double tstart) {
  std::vector<TrueSample> shown;
  for (const TrueSample &sample : all_samples(rows)) {
    const double early = sample.time + 0.01 * sample.dt;
    if (sample.shown && early >= tstart && early < tend) shown.push_back(sample);
  }
  const auto here = std::count(data.here, data.here + data.n, KSSCV_HERE);
  ASSERT_EQ(static_cast<std::size_t>(here), shown.size());
  for (const TrueSample &sample : shown) {
    const double place = (sample.time - data.time) / data.dt;
    const auto at = static_cast<std::ptrdiff_t>(std::round(place));
    ASSERT_TRUE(at >= 0 && at < data.n) << place;
    ASSERT_EQ(data.samples[at], sample.value) << place;
  }
}

}  // namespace ksutil::test
#endif
