/* kssac_segment: takes segments from SAC files and records, and makes records of them. */
#include <climits>
#include <cmath>
#include <cstring>
#include <utility>

#include "formats/kssac.h"
#include "formats/sac/internal/sac_header.h"
#include "formats/sac/internal/sac_record.h"
#include "platform/elog/failure.h"
#include "platform/trace/segment.h"

using namespace ksutil::sac;
using ksutil::fail, ksutil::Segment;

namespace {

/* A text of the header; "" for a null. */
std::string known_text(const KSSac &kssac, const char *name) {
  const std::string_view text = text_of(kssac, name);
  return is_null(text) ? std::string() : std::string(text);
}

/* Fills a segment with the record's samples, which stay the record's. */
bool fill_segment(const char *who, KSSac &kssac, Segment &segment) {
  if (integer_of(kssac, "IFTYPE") != kTimeSeries) {
    return fail(who, "The record holds %s, not a time series",
                kssac_file_type_text(&kssac));
  }
  if (integer_of(kssac, "LEVEN") == 0) {
    return fail(who, "The samples are unevenly spaced");
  }
  const double begin = real_of(kssac, "B");
  const std::optional<double> samprate = known_samprate(kssac);
  double reference = 0.0;
  if (is_null(begin) || !has_reference_time(kssac) ||
      kssac_getreftime_kssac(&kssac, &reference) != 0) {
    return fail(who, "The header has no time of the first sample");
  }
  if (!samprate) return fail(who, "The header has no sample interval");
  const SacImage &image = *kssac.image;
  if (image.data == nullptr) return fail(who, "The record has no samples");
  segment.sta = known_text(kssac, "KSTNM");
  segment.chan = known_text(kssac, "KCMPNM");
  segment.time = reference + begin;
  segment.samprate = *samprate;
  segment.calib = 0.0;
  segment.samples =
      Segment::Floats(image.data, static_cast<std::size_t>(image.npts_data));
  segment.owner = nullptr;
  return true;
}

int get_segment(const char *who, KSSac &kssac, Segment &segment) {
  return ksutil::at_boundary(who, [&]() -> int {
    Segment found;
    if (!fill_segment(who, kssac, found)) return -1;
    segment = std::move(found);
    return 0;
  });
}

}  // namespace

const char *kssac_file_type_text(const KSSac *kssac) {
  if (kssac == nullptr || kssac->image == nullptr) return "nothing";
  switch (integer_of(*kssac, "IFTYPE")) {
    case kTimeSeries:
      return "a time series";
    case kRealImaginary:
      return "a spectrum (real and imaginary parts)";
    case kAmplitudePhase:
      return "a spectrum (amplitudes and phases)";
    case kXversusY:
      return "pairs of x and y";
    case kXyz:
      return "values over a plane (x, y, z)";
    default:
      return "data of unknown type";
  }
}

int kssac_get_segment_kssac(KSSac *kssac, Segment &segment) {
  const char *const self = "kssac_get_segment_kssac";
  if (kssac == nullptr || kssac->image == nullptr) return fail(self, "No kssac");
  return get_segment(self, *kssac, segment);
}

int kssac_read_segment(const char *path, Segment &segment) {
  const char *const self = "kssac_read_segment";
  RecordPtr kssac = read_record(self, path, true, nullptr);
  if (kssac == nullptr) return -1;
  return ksutil::at_boundary(self, [&]() -> int {
    Segment found;
    if (!fill_segment(self, *kssac, found)) return -1;
    /* The record goes on as the owner of its samples. */
    found.owner = std::shared_ptr<const KSSac>(std::move(kssac));
    segment = std::move(found);
    return 0;
  });
}

KSSac *kssac_create_from_segment(const Segment &segment, const char *type,
                                 const char *name, char *tag) {
  const char *const self = "kssac_create_from_segment";
  Sacs::none(tag);
  const std::size_t nsamp = segment.size();
  if (nsamp < 1) return fail(self, "Number of samples < 1");
  if (nsamp > INT_MAX) return fail(self, "Too many samples");
  RecordPtr kssac = make_record(name);
  if (kssac == nullptr) return fail(self, "kssac_create() error");
  ksutil::MallocPtr<float> data(static_cast<float *>(ks_malloc(nsamp * sizeof(float))));
  if (data == nullptr) return ksutil::fail_memory(self);
  segment.copy_to(data.get());
  if (!store_samples(self, kssac.get(), std::move(data), static_cast<long>(nsamp), type,
                     segment.time, segment.samprate)) {
    return nullptr;
  }
  char *const header = kssac->image->header;
  const auto store = [header](const char *variable, const std::string &text) {
    if (!text.empty()) store_text(header, *kssac_get_header_define(variable), text);
  };
  store("KSTNM", segment.sta);
  store("KCMPNM", segment.chan);
  return Sacs::publish(self, std::move(kssac), tag);
}
