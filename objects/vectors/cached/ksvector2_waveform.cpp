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
