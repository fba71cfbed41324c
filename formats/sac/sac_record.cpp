#include "formats/sac/internal/sac_record.h"

#include <cstdlib>

#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

namespace ksutil::sac {

void SacTraits::destroy(KSSac *kssac) {
  if (kssac->image != nullptr) std::free(kssac->image->data);
  std::free(kssac->image);
  std::free(kssac->name);
  std::free(kssac);
}

RecordPtr make_record(const char *name) {
  if (!Sacs::open("kssac_create")) return nullptr;
  RecordPtr kssac(static_cast<KSSac *>(ks_calloc(1, sizeof(KSSac))));
  if (kssac != nullptr && name != nullptr) kssac->name = ks_strdup(name);
  if (kssac == nullptr || (name != nullptr && kssac->name == nullptr)) {
    return fail_errno("kssac_create", "malloc(KSSac) error");
  }
  kssac->image = static_cast<SacImage *>(ks_calloc(1, sizeof(SacImage)));
  if (kssac->image == nullptr) {
    return fail_errno("kssac_create", "malloc(SacImage) error");
  }
  if (kssac_fill_null_header(kssac->image->header) != 0) {
    return fail("kssac_create", "kssac_fill_null_header(SacImage) error");
  }
  return kssac;
}

void take_samples(SacImage &image, float *data, std::int64_t count) {
  std::free(image.data);
  image.data = data;
  image.npts_data = count;
  image.data_bytes = count * static_cast<std::int64_t>(sizeof(float));
}

}  // namespace ksutil::sac
