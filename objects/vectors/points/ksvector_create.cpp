#include <algorithm>
#include <cmath>
#include <utility>

#include "objects/vectors/points/internal/vector_record.h"
#include "platform/elog/elog.h"

using ksutil::VectorPtr;

namespace {

constexpr int kDefaultSlots = 100;
constexpr int kDefaultSamples = 1000;

KSVector *out_of_memory(const char *function, char *tag) {
  elog_log(1, "%s: malloc() error.\n", function);
  return ksutil::no_vector(tag);
}

/* A new empty point vector for `hint` points; logs nothing. */
VectorPtr make_for(int hint, int ny, const char *name) {
  return ksutil::make_point_vector(ksutil::slots_for(hint, kDefaultSlots), ny, name);
}

VectorPtr make_series_of(int nsamp, const double *samples, const char *name,
                         double time, double dt) {
  VectorPtr vector =
      ksutil::make_series(ksutil::slots_for(nsamp, kDefaultSamples), name);
  if (vector == nullptr) return nullptr;
  vector->npts = std::max(nsamp, 0);
  std::copy_n(samples, vector->npts, vector->data);
  vector->time = time;
  vector->dt = dt;
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
  return ksutil::publish_vector(function, std::move(copy), tag);
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
  if (!ksutil::open_vector_registry("ksvector_create")) return ksutil::no_vector(tag);
  if (ny < 1) {
    elog_log(0, "ksvector_create: Number of y values must be positive.\n");
    return ksutil::no_vector(tag);
  }
  VectorPtr vector = make_for(hint, ny, name);
  if (vector == nullptr) return out_of_memory("ksvector_create", tag);
  return ksutil::publish_vector("ksvector_create", std::move(vector), tag);
}

KSVector *ksvector_create_tsamp(int nsamp, const double *samples, const char *name,
                                char *tag, double time, double samprate) {
  if (!ksutil::open_vector_registry("ksvector_create_tsamp")) {
    return ksutil::no_vector(tag);
  }
  if (!std::isfinite(samprate) || samprate <= 0.0) {
    elog_log(0, "ksvector_create_tsamp: Sample rate must be positive.\n");
    return ksutil::no_vector(tag);
  }
  if (nsamp > 0 && samples == nullptr) {
    elog_log(0, "ksvector_create_tsamp: No samples.\n");
    return ksutil::no_vector(tag);
  }
  VectorPtr vector = make_series_of(nsamp, samples, name, time, 1.0 / samprate);
  if (vector == nullptr) return out_of_memory("ksvector_create_tsamp", tag);
  return ksutil::publish_vector("ksvector_create_tsamp", std::move(vector), tag);
}

KSVector *ksvector_copy(const char *tag, const char *name, char *newtag) {
  const KSVector *const vector = ksutil::find_vector("ksvector_copy", tag);
  if (vector == nullptr) return ksutil::no_vector(newtag);
  return copy_whole("ksvector_copy", *vector, name, newtag);
}

KSVector *ksvector_copy_1y(const char *tag, int iy, const char *name, char *newtag) {
  const KSVector *const vector = ksutil::find_vector("ksvector_copy_1y", tag);
  if (vector == nullptr) return ksutil::no_vector(newtag);
  if (iy < 0 || vector->points == nullptr) {
    return copy_whole("ksvector_copy_1y", *vector, name, newtag);
  }
  if (iy >= vector->ny) {
    elog_log(0, "ksvector_copy_1y: Illegal yindex value.\n");
    return ksutil::no_vector(newtag);
  }
  return publish_copy("ksvector_copy_1y", copy_points(*vector, iy, 1, name), newtag);
}
