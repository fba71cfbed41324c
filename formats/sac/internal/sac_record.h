/* Records outside and inside the registry. */
#ifndef KSUTIL_FORMATS_SAC_INTERNAL_SAC_RECORD_H
#define KSUTIL_FORMATS_SAC_INTERNAL_SAC_RECORD_H

#include <memory>

#include "formats/kssac.h"

namespace ksutil::sac {

struct FreeRecord {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};
using RecordPtr = std::unique_ptr<KSSac, FreeRecord>;

/* A record that is not registered; null with the messages of kssac_create. */
RecordPtr make_record(const char *name);

/* Registers the record when there is a tag buffer; false with a message of kssac_create,
 * and the buffer empty. */
bool register_record(KSSac *kssac, char *tag);

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
