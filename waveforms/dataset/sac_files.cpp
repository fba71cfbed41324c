#include "waveforms/dataset/internal/sac_files.h"

#include <algorithm>
#include <memory>

#include "platform/elog/failure.h"
#include "platform/trace/trace.h"
#include "waveforms/dataset/internal/data_set.h"

namespace ksutil::dataset {
namespace {

struct FreeSac {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};
using SacPtr = std::unique_ptr<KSSac, FreeSac>;

}  // namespace

bool SacWriter::write(const ksdsseis_channel &channel, const ksvector2 &vector,
                      const char *type, double factor) {
  const auto stretches = stretches_of(vector);
  return std::all_of(stretches.begin(), stretches.end(), [&](const Stretch &each) {
    return write_stretch(channel, vector, each, type, factor);
  });
}

bool SacWriter::write_stretch(const ksdsseis_channel &channel, const ksvector2 &vector,
                              const Stretch &stretch, const char *type, double factor) {
  std::vector<float> samples(stretch.end - stretch.begin);
  std::transform(vector.data + stretch.begin, vector.data + stretch.end,
                 samples.begin(),
                 [&](double sample) { return static_cast<float>(factor * sample); });
  const double time = time_of(vector, stretch.begin);
  const SacPtr kssac(kssac_create(nullptr, nullptr));
  if (kssac == nullptr || !fill_header(channel, kssac.get()) ||
      kssac_putdata_kssac(kssac.get(), static_cast<long>(samples.size()),
                          samples.data(), type, time, 1.0 / vector.dt) != 0) {
    return false;
  }
  /* After the samples: the time of the origin counts from the reference time. */
  if (kssac_putevent_kssac(kssac.get(), dbinvalid(), origin_) != 0) return false;
  const std::string path =
      files_.path_of(waveform_file_name(channel_name(channel), time, "sac"));
  return files_.put(path, [&](const std::string &to) {
    return kssac_write_to_file_kssac(kssac.get(), to.c_str()) == 0 ||
           bool(fail(who_, "kssac_write_to_file_kssac() error"));
  });
}

bool SacWriter::fill_header(const ksdsseis_channel &from, KSSac *kssac) {
  const auto text = [](const char *code) { return *code == '\0' ? nullptr : code; };
  const auto metres = [](double km, double null) {
    return km == null ? -12345.0 : 1000.0 * km;
  };
  const auto degrees = [](double value, double null) {
    return value == null ? -12345.0 : value;
  };
  return kssac_puthdr_kssac(
             kssac, "KSTNM", seed_sta(from), "KCMPNM", seed_chan(from), "KNETWK",
             text(from.net), "KHOLE", text(from.loc), "STLA", degrees(from.lat, -999.0),
             "STLO", degrees(from.lon, -999.0), "STEL", metres(from.elev, -999.0),
             "STDP", metres(from.edepth, -1.0), "CMPAZ", degrees(from.hang, -1.0),
             "CMPINC", degrees(from.vang, -1.0), static_cast<char *>(nullptr)) == 0;
}

}  // namespace ksutil::dataset
