#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <utility>

#include "formats/sac/internal/sac_header.h"
#include "formats/sac/internal/sac_record.h"
#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

namespace ksutil::sac {

ReferenceTime reference_time(double time) {
  ReferenceTime reference{};
  double seconds;
  e2h(time, &reference.year, &reference.day, &reference.hour, &reference.minute,
      &seconds);
  reference.second = static_cast<int>(seconds);
  reference.millisecond = static_cast<int>((seconds - reference.second) * 1000.0);
  reference.epoch = h2e(reference.year, reference.day, reference.hour, reference.minute,
                        reference.second + 0.001 * reference.millisecond);
  return reference;
}

namespace {

struct Extremes {
  double least, greatest, mean;
};

Extremes extremes(const float *samples, long nsamp) {
  float least = samples[0], greatest = samples[0];
  double sum = 0.0;
  for (long i = 0; i < nsamp; ++i) {
    least = std::min(least, samples[i]);
    greatest = std::max(greatest, samples[i]);
    sum += samples[i];
  }
  return {least, greatest, sum / static_cast<double>(nsamp)};
}

/* IDEP of a type; null is an unknown one. */
std::int64_t dependent_type(const char *type) {
  if (type == nullptr) return kUnknown;
  if (std::strcmp(type, "D") == 0) return kDisplacement;
  if (std::strcmp(type, "V") == 0) return kVelocity;
  return std::strcmp(type, "A") == 0 ? kAcceleration : kUnknown;
}

const char *type_text(std::int64_t idep) {
  switch (idep) {
    case kDisplacement:
      return "D";
    case kVelocity:
      return "V";
    case kAcceleration:
      return "A";
    default:
      return "-";
  }
}

/* The fault of a time or sample rate to be stored; null for none. */
const char *fault(double time, double samprate) {
  if (!std::isfinite(time)) return "Time must be a finite number.";
  if (!std::isfinite(samprate) || samprate <= 0.0)
    return "Sample rate must be positive.";
  return nullptr;
}

int put_time_series(KSSac *kssac, long nsamp, const Extremes &values, const char *type,
                    double time, double samprate) {
  const ReferenceTime reference = reference_time(time);
  const double begin = time - reference.epoch;
  return kssac_puthdr_kssac(
      kssac, "NZYEAR", std::int64_t{reference.year}, "NZJDAY",
      std::int64_t{reference.day}, "NZHOUR", std::int64_t{reference.hour}, "NZMIN",
      std::int64_t{reference.minute}, "NZSEC", std::int64_t{reference.second}, "NZMSEC",
      std::int64_t{reference.millisecond}, "NPTS", std::int64_t{nsamp}, "IZTYPE",
      kReferenceIsBegin, "B", begin, "E",
      begin + static_cast<double>(nsamp - 1) / samprate, "IFTYPE", kTimeSeries, "LEVEN",
      std::int64_t{1}, "DELTA", 1.0 / samprate, "IDEP", dependent_type(type), "SCALE",
      1.0, "DEPMIN", values.least, "DEPMAX", values.greatest, "DEPMEN", values.mean,
      (char *)nullptr);
}

}  // namespace

bool store_samples(const char *who, KSSac *kssac, MallocPtr<float> data, long nsamp,
                   const char *type, double time, double samprate) {
  if (const char *const wrong = fault(time, samprate)) {
    elog_log(0, "%s: %s\n", who, wrong);
    return false;
  }
  if (put_time_series(kssac, nsamp, extremes(data.get(), nsamp), type, time,
                      samprate) != 0) {
    return fail(who, "kssac_puthdr_kssac() error");
  }
  take_samples(*kssac->image, data.release(), nsamp);
  return true;
}

}  // namespace ksutil::sac

using namespace ksutil::sac;
using ksutil::fail, ksutil::fail_errno;

int kssac_putdata_kssac(KSSac *kssac, long nsamp, const float *samples,
                        const char *type, double time, double samprate) {
  if (nsamp < 1) {
    if (kssac != nullptr && kssac->image != nullptr) {
      take_samples(*kssac->image, nullptr, 0);
    }
    elog_log(0, "kssac_putdata_kssac: Number of samples < 1\n");
    return -1;
  }
  if (samples == nullptr || nsamp > INT_MAX) {
    elog_log(0, "kssac_putdata_kssac: %s\n",
             nsamp > INT_MAX ? "Too many samples." : "No samples given.");
    return -1;
  }
  /* Copied before the samples held are freed: the caller may have given those. */
  const std::size_t bytes = static_cast<std::size_t>(nsamp) * sizeof(float);
  ksutil::MallocPtr<float> data(static_cast<float *>(ks_malloc(bytes)));
  if (data == nullptr) {
    return fail_errno("kssac_putdata_kssac", "malloc(data,%ld) error",
                      static_cast<long>(bytes));
  }
  std::memcpy(data.get(), samples, bytes);
  return store_samples("kssac_putdata_kssac", kssac, std::move(data), nsamp, type, time,
                       samprate)
             ? 0
             : -1;
}

int kssac_getreftime_kssac(KSSac *kssac, double *reftime) {
  std::int64_t year, day, hour, minute, second, millisecond, equivalence;
  if (kssac_gethdr_kssac(kssac, "NZYEAR", &year, "NZJDAY", &day, "NZHOUR", &hour,
                         "NZMIN", &minute, "NZSEC", &second, "NZMSEC", &millisecond,
                         "IZTYPE", &equivalence, (char *)nullptr) != 0) {
    return fail("kssac_getreftime_kssac", "kssac_gethdr_kssac() error");
  }
  const auto whole_day = equivalence == kReferenceIsDay;
  *reftime = h2e(
      static_cast<int>(year), static_cast<int>(day),
      whole_day ? 0 : static_cast<int>(hour), whole_day ? 0 : static_cast<int>(minute),
      whole_day
          ? 0.0
          : static_cast<double>(second) + 0.001 * static_cast<double>(millisecond));
  return 0;
}

int kssac_getdata_kssac(KSSac *kssac, long *nsamp, double *time, double *samprate,
                        float **samples, char *type) {
  if (kssac != nullptr && kssac->image != nullptr && kssac->image->data == nullptr) {
    *nsamp = 0;
    return 0;
  }
  std::int64_t count, file_type, idep;
  double begin, delta, scale;
  if (kssac_gethdr_kssac(kssac, "NPTS", &count, "B", &begin, "IFTYPE", &file_type,
                         "DELTA", &delta, "IDEP", &idep, "SCALE", &scale,
                         (char *)nullptr) != 0) {
    return fail("kssac_getdata_kssac", "kssac_gethdr_kssac() error");
  }
  if (count < 0) {
    *nsamp = 0;
    return 0;
  }
  if (file_type != kTimeSeries) {
    return fail("kssac_getdata_kssac", "sac file type, %ld, not supported",
                static_cast<long>(file_type));
  }
  double reference;
  if (kssac_getreftime_kssac(kssac, &reference) != 0) {
    return fail("kssac_getdata_kssac", "kssac_getreftime_kssac()error");
  }
  const auto wanted = static_cast<std::size_t>(count);
  ksutil::MallocPtr<float> copy(
      static_cast<float *>(ks_calloc(std::max<std::size_t>(wanted, 1), sizeof(float))));
  if (copy == nullptr) {
    return fail_errno("kssac_getdata_kssac", "malloc(data,%ld) error",
                      static_cast<long>(wanted * sizeof(float)));
  }
  const auto held = static_cast<std::size_t>(kssac->image->data_bytes);
  std::memcpy(copy.get(), kssac->image->data, std::min(wanted * sizeof(float), held));
  std::free(*samples);
  *samples = copy.release();
  *nsamp = static_cast<long>(count);
  *time = reference + begin;
  *samprate = 1.0 / delta;
  if (type != nullptr) std::memcpy(type, type_text(idep), 2);
  return 0;
}
