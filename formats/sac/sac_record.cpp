#include <cerrno>
#include <cstring>
#include <new>

#include "formats/sac/internal/sac_record.h"
#include "objects/family/internal/tag_registry.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"

namespace ksutil::sac {
namespace {

/* Lives as long as the process: records may be freed while it ends. */
TagRegistry<KSSac> &registry() {
  static auto *const records = new TagRegistry<KSSac>("sac");
  return *records;
}

/* The record of a tag; null, with a message in the name of `who`. */
KSSac *find_record(const char *who, const char *tag) {
  if (!registry().opened()) {
    elog_log(0, "%s: No kssacs defined", who);
    return nullptr;
  }
  KSSac *const found = registry().find(tag);
  if (found == nullptr) {
    elog_log(0, "%s: Cannot find %s", who, tag == nullptr ? "" : tag);
  }
  return found;
}

}  // namespace

RecordPtr make_record(const char *name) {
  if (!registry().open()) {
    elog_log(1, "kssac_create: newarr() error.\n");
    return nullptr;
  }
  RecordPtr kssac(static_cast<KSSac *>(ks_calloc(1, sizeof(KSSac))));
  if (kssac != nullptr && name != nullptr) kssac->name = ks_strdup(name);
  if (kssac == nullptr || (name != nullptr && kssac->name == nullptr)) {
    elog_log(1, "kssac_create: malloc(KSSac) error.\n");
    return nullptr;
  }
  kssac->image = static_cast<SacImage *>(ks_calloc(1, sizeof(SacImage)));
  if (kssac->image == nullptr) {
    elog_log(1, "kssac_create: malloc(SacImage) error.\n");
    return nullptr;
  }
  if (kssac_fill_null_header(kssac->image->header) != 0) {
    elog_log(0, "kssac_create: kssac_fill_null_header(SacImage) error.\n");
    return nullptr;
  }
  return kssac;
}

bool register_record(KSSac *kssac, char *tag) {
  if (tag == nullptr || registry().add(kssac, tag)) return true;
  errno = ENOMEM;
  elog_log(1, "kssac_create: setarr() error.\n");
  return false;
}

void take_samples(SacImage &image, float *data, std::int64_t count) {
  std::free(image.data);
  image.data = data;
  image.npts_data = count;
  image.data_bytes = count * static_cast<std::int64_t>(sizeof(float));
}

}  // namespace ksutil::sac

using namespace ksutil::sac;

KSSac *kssac_create(const char *name, char *tag) {
  RecordPtr kssac = make_record(name);
  if (kssac == nullptr || !register_record(kssac.get(), tag)) {
    if (tag != nullptr) *tag = '\0';
    return nullptr;
  }
  return kssac.release();
}

KSSac *kssac_get_kssac(const char *tag) { return find_record("kssac_get_kssac", tag); }

int kssac_free(const char *tag) {
  KSSac *const kssac = find_record("kssac_free", tag);
  return kssac == nullptr ? -1 : kssac_free_kssac(kssac);
}

int kssac_free_tag(const char *name) try {
  if (name == nullptr || !registry().opened()) return 0;
  for (KSSac *const kssac : registry().records()) {
    if (kssac->name != nullptr && std::strcmp(kssac->name, name) == 0) {
      kssac_free_kssac(kssac);
    }
  }
  return 0;
} catch (const std::bad_alloc &) {
  elog_log(1, "kssac_free_tag: keysarr() error.\n");
  return 0;
}

int kssac_free_kssac(KSSac *kssac) {
  if (kssac == nullptr) return 0;
  if (registry().opened()) registry().remove(kssac);
  if (kssac->image != nullptr) std::free(kssac->image->data);
  std::free(kssac->image);
  std::free(kssac->name);
  std::free(kssac);
  return 0;
}
