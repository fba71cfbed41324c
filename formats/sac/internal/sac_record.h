/* sac_record: makes and frees SAC records. */
#ifndef KSUTIL_FORMATS_SAC_INTERNAL_SAC_RECORD_H
#define KSUTIL_FORMATS_SAC_INTERNAL_SAC_RECORD_H

#include "formats/kssac.h"
#include "objects/family/shared/family.h"
#include "platform/stock/memory.h"

namespace ksutil::sac {

struct SacTraits {
  using Record = KSSac;
  static constexpr char kWord[] = "sac";
  static constexpr char kGet[] = "kssac_get_kssac";
  static constexpr char kPlural[] = "kssacs";
  static constexpr char kEntering[] = "setarr";
  static constexpr char kListing[] = "keysarr";
  static bool is_record(const KSSac & /*kssac*/) { return true; }
  static const char *name(const KSSac &kssac) { return kssac.name; }
  static void destroy(KSSac *kssac);
};
using Sacs = Family<SacTraits>;
using RecordPtr = Sacs::Ptr;

/* A record that is not registered; null with the messages of kssac_create. */
RecordPtr make_record(const char *name);

/* Reads a file into a record that is not registered; null with messages of `who`. */
RecordPtr read_record(const char *who, const char *path, bool either_order,
                      const char *name);

/* Sets the header of a time series and gives the record its samples, nsamp >= 1.  False
 * with a message of `who`: the arguments of kssac_putdata_kssac are wrong. */
bool store_samples(const char *who, KSSac *kssac, MallocPtr<float> data, long nsamp,
                   const char *type, double time, double samprate);

/* Replaces the samples; `data` becomes the record's. */
void take_samples(SacImage &image, float *data, std::int64_t count);

/* A time as the header's reference time, in whole milliseconds. */
struct ReferenceTime {
  int year, day, hour, minute, second, millisecond;
  double epoch;
};
ReferenceTime reference_time(double time);

}  // namespace ksutil::sac
#endif
