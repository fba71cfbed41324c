#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>

#include "objects/vectors/points/internal/vector_record.h"
#include "platform/elog/failure.h"

using ksutil::fail, ksutil::fail_errno;
using ksutil::VectorPtr;
using ksutil::Vectors;

namespace {

constexpr int kDefaultSlots = 100;
constexpr int kDefaultSamples = 1000;

KSVector *out_of_memory(const char *function, char *tag) {
  fail_errno(function, "malloc() error");
  return Vectors::none(tag);
}

/* A new empty point vector for `hint` points; logs nothing. */
VectorPtr make_for(int hint, int ny, const char *name) {
  return ksutil::make_point_vector(ksutil::slots_for(hint, kDefaultSlots), ny, name);
}

/* A new series with room for nsamp samples, which are zero. */
VectorPtr make_empty_series(int nsamp, const char *name, double time, double dt) {
  VectorPtr vector =
      ksutil::make_series(ksutil::slots_for(nsamp, kDefaultSamples), name);
  if (vector == nullptr) return nullptr;
  vector->npts = std::max(nsamp, 0);
  vector->time = time;
  vector->dt = dt;
  return vector;
}

VectorPtr make_series_of(int nsamp, const double *samples, const char *name,
                         double time, double dt) {
  VectorPtr vector = make_empty_series(nsamp, name, time, dt);
  if (vector != nullptr) std::copy_n(samples, vector->npts, vector->data);
  return vector;
}

/* The x values, labels and `ny` y values from column iy on. */
VectorPtr copy_points(const KSVector &from, int iy, int ny, const char *name) {
  VectorPtr copy = make_for(from.npts, ny, name);
  if (copy == nullptr) return nullptr;
  for (int i = 0; i < from.npts; i++) {
    const KSVectorPoint &point = from.points[i];
    if (!ksutil::add_point(*copy, point.x, point.y + iy, point.label)) return nullptr;
  }
  return copy;
}

/* A copy under the caller's names; `function` is already in the messages. */
KSVector *publish_copy(const char *function, VectorPtr copy, char *tag) {
  if (copy == nullptr) return out_of_memory(function, tag);
  return Vectors::publish(function, std::move(copy), tag);
}

KSVector *copy_whole(const char *function, const KSVector &from, const char *name,
                     char *tag) {
  if (from.points != nullptr) {
    return publish_copy(function, copy_points(from, 0, from.ny, name), tag);
  }
  /* Not through the sample rate: its reciprocal need not be the interval again. */
  return publish_copy(
      function, make_series_of(from.npts, from.data, name, from.time, from.dt), tag);
}

}  // namespace

KSVector *ksvector_create(int hint, int ny, const char *name, char *tag) {
  if (!Vectors::open("ksvector_create")) return Vectors::none(tag);
  if (ny < 1) {
    fail("ksvector_create", "Number of y values must be positive");
    return Vectors::none(tag);
  }
  VectorPtr vector = make_for(hint, ny, name);
  if (vector == nullptr) return out_of_memory("ksvector_create", tag);
  return Vectors::publish("ksvector_create", std::move(vector), tag);
}

KSVector *ksvector_create_tsamp(int nsamp, const double *samples, const char *name,
                                char *tag, double time, double samprate) {
  if (!Vectors::open("ksvector_create_tsamp")) {
    return Vectors::none(tag);
  }
  if (!std::isfinite(samprate) || samprate <= 0.0) {
    fail("ksvector_create_tsamp", "Sample rate must be positive");
    return Vectors::none(tag);
  }
  if (nsamp > 0 && samples == nullptr) {
    fail("ksvector_create_tsamp", "No samples");
    return Vectors::none(tag);
  }
  VectorPtr vector = make_series_of(nsamp, samples, name, time, 1.0 / samprate);
  if (vector == nullptr) return out_of_memory("ksvector_create_tsamp", tag);
  return Vectors::publish("ksvector_create_tsamp", std::move(vector), tag);
}

KSVector *ksutil::create_series(const char *who, const Segment &segment,
                                const char *name, char *tag) {
  if (!Vectors::open(who)) return Vectors::none(tag);
  if (!std::isfinite(segment.samprate) || segment.samprate <= 0.0) {
    fail(who, "Sample rate must be positive");
    return Vectors::none(tag);
  }
  if (segment.size() > INT_MAX) {
    fail(who, "Too many samples");
    return Vectors::none(tag);
  }
  VectorPtr vector = make_empty_series(static_cast<int>(segment.size()), name,
                                       segment.time, 1.0 / segment.samprate);
  if (vector == nullptr) return out_of_memory(who, tag);
  segment.copy_to(vector->data);
  return Vectors::publish(who, std::move(vector), tag);
}

KSVector *ksvector_create_from_segment(const ksutil::Segment &segment, const char *name,
                                       char *tag) {
  return ksutil::create_series("ksvector_create_from_segment", segment, name, tag);
}

KSVector *ksvector_copy(const char *tag, const char *name, char *newtag) {
  const KSVector *const vector = Vectors::find("ksvector_copy", tag);
  if (vector == nullptr) return Vectors::none(newtag);
  return copy_whole("ksvector_copy", *vector, name, newtag);
}

KSVector *ksvector_copy_1y(const char *tag, int iy, const char *name, char *newtag) {
  const KSVector *const vector = Vectors::find("ksvector_copy_1y", tag);
  if (vector == nullptr) return Vectors::none(newtag);
  if (iy < 0 || vector->points == nullptr) {
    return copy_whole("ksvector_copy_1y", *vector, name, newtag);
  }
  if (iy >= vector->ny) {
    fail("ksvector_copy_1y", "Illegal yindex value");
    return Vectors::none(newtag);
  }
  return publish_copy("ksvector_copy_1y", copy_points(*vector, iy, 1, name), newtag);
}
