/* ksvector2_waveform: makes vectors of the samples of waveforms. */
#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>

#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/failure.h"
#include "platform/trace/segment.h"
#include "platform/trace/shared/waveform_samples.h"
#include "platform/trace/shared/waveform_window.h"
#include "platform/trace/trace.h"

namespace {

using namespace ksutil::vector2;
using ksutil::fail, ksutil::WaveformWindow;

constexpr char kFromDb[] = "ksvector2_create_tsamp_from_db";

/* Reads the samples of a window straight into a new vector; null with messages. */
Vector2Ptr read_window(const WaveformWindow &window) {
  const auto count = static_cast<int>(window.count);
  Vector2Ptr vector;
  const auto allocate = [&]() -> double * {
    vector.reset(ksvector2_find_space(count, 1, 1));
    return vector == nullptr ? nullptr : vector->data;
  };
  if (window.data != nullptr) {
    if (double *const to = allocate()) {
      std::copy_n(window.data + window.first, count, to);
    }
  } else if (!ksutil::read_samples_into<double>(window.row, window.first, window.count,
                                                allocate)) {
    return nullptr;
  }
  return vector;
}

constexpr char kFromSegments[] = "ksvector2_create_from_segments";
constexpr double kMostSamples = 250e6;

/* The samples of a vector of several segments. */
struct Stretch {
  double time = 0.0, samprate = 0.0, nsamp = 0.0;
};

/* Finds the stretch of all segments that have samples; false with a message. */
bool measure(const ksutil::Segment *segments, int count, Stretch &all) {
  double end = 0.0;
  for (int i = 0; i < count; ++i) {
    const ksutil::Segment &each = segments[i];
    if (each.size() == 0) continue;
    if (!std::isfinite(each.samprate) || each.samprate <= 0.0) {
      return fail(kFromSegments, "Sample rate must be positive");
    }
    if (!std::isfinite(each.time)) return fail(kFromSegments, "A segment has no time");
    const bool first = all.samprate == 0.0;
    if (first) all.samprate = each.samprate;
    const auto steps = static_cast<double>(each.size() - 1);
    if (std::abs(steps * (all.samprate / each.samprate - 1.0)) > 0.5) {
      return fail(kFromSegments, "Sample rates %g and %g differ too much", all.samprate,
                  each.samprate);
    }
    const double endtime = each.time + steps / all.samprate;
    all.time = first ? each.time : std::min(all.time, each.time);
    end = first ? endtime : std::max(end, endtime);
  }
  if (all.samprate == 0.0) return fail(kFromSegments, "No samples");
  all.nsamp = std::round((end - all.time) * all.samprate) + 1.0;
  if (all.nsamp <= kMostSamples) return true;
  return fail(kFromSegments, "%.12g samples from the first to the last are too many",
              all.nsamp);
}

double gap_value() {
  float gap;
  trfill_gap(&gap, 1);
  return gap;
}

/* Copies the samples of a segment that are not gaps to their places. */
void lay_over(const ksutil::Segment &segment, const Stretch &all, double *data) {
  if (segment.size() == 0) return;
  double *const to = data + static_cast<std::ptrdiff_t>(
                                std::llround((segment.time - all.time) * all.samprate));
  std::visit(
      [&](const auto &samples) {
        /* Rounding may put the last sample one place behind the end. */
        const auto room = static_cast<std::size_t>(data + std::llround(all.nsamp) - to);
        for (std::size_t i = 0; i < std::min(samples.size(), room); ++i) {
          const auto value = static_cast<double>(samples[i]);
          if (!ksutil::is_gap_sample(value)) to[i] = value;
        }
      },
      segment.samples);
}

}  // namespace

ksvector2 *ksvector2_create_tsamp_from_db(Dbptr row, const char *name, char *tag,
                                          double tstart, double tend) {
  Vectors2::none(tag);
  return ksutil::at_boundary(kFromDb, [&]() -> ksvector2 * {
    WaveformWindow window;
    Vector2Ptr vector;
    if (find_window(kFromDb, row, tstart, tend, window)) vector = read_window(window);
    if (vector == nullptr) return fail(kFromDb, "Cannot read the samples");
    const char *const creator = "ksvector2_create_tsamp";
    set_series(*vector, static_cast<int>(window.count), window.time(),
               window.row.samprate, name);
    ksvector2 *const published =
        Vectors2::open(creator) ? Vectors2::publish(creator, std::move(vector), tag)
                                : nullptr;
    if (published == nullptr) fail(kFromDb, "ksvector2_create_tsamp() error");
    return published;
  });
}

ksvector2 *ksvector2_create_from_segment(const ksutil::Segment &segment,
                                         const char *name, char *tag) {
  return create_series("ksvector2_create_from_segment", segment, name, tag);
}

ksvector2 *ksvector2_create_from_segments(const ksutil::Segment *segments, int count,
                                          const char *name, char *tag) {
  if (!begin_creation(kFromSegments, tag)) return nullptr;
  Stretch all;
  if (!measure(segments, count, all)) return nullptr;
  Vector2Ptr vector(ksvector2_find_space(static_cast<int>(all.nsamp), 1, 1));
  if (vector == nullptr) return fail(kFromSegments, "ksvector2_find_space() error");
  std::fill_n(vector->data, static_cast<std::size_t>(all.nsamp), gap_value());
  for (int i = 0; i < count; ++i) lay_over(segments[i], all, vector->data);
  set_series(*vector, static_cast<int>(all.nsamp), all.time, all.samprate, name);
  return Vectors2::publish(kFromSegments, std::move(vector), tag);
}

ksvector2 *ksutil::vector2::create_series(const char *who, const Segment &segment,
                                          const char *name, char *tag) {
  if (!begin_creation(who, tag)) return nullptr;
  if (!std::isfinite(segment.samprate) || segment.samprate <= 0.0) {
    return fail(who, "Sample rate must be positive");
  }
  if (segment.size() > INT_MAX) return fail(who, "Too many samples");
  const int nsamp = static_cast<int>(segment.size());
  Vector2Ptr vector(ksvector2_find_space(nsamp, 1, 1));
  if (vector == nullptr) return fail(who, "ksvector2_find_space() error");
  segment.copy_to(vector->data);
  set_series(*vector, nsamp, segment.time, segment.samprate, name);
  return Vectors2::publish(who, std::move(vector), tag);
}
