#include "formats/kssac.h"

#include <utility>

#include "formats/sac/internal/sac_record.h"

using namespace ksutil::sac;

KSSac *kssac_create(const char *name, char *tag) {
  Sacs::none(tag);
  RecordPtr kssac = make_record(name);
  if (kssac == nullptr) return nullptr;
  return Sacs::publish("kssac_create", std::move(kssac), tag);
}

KSSac *kssac_get_kssac(const char *tag) { return Sacs::get(tag); }

int kssac_free(const char *tag) {
  KSSac *const kssac = Sacs::get_as("kssac_free", SacTraits::kPlural, tag);
  return kssac == nullptr ? -1 : Sacs::free_record(kssac);
}

int kssac_free_tag(const char *name) { return Sacs::free_tag("kssac_free_tag", name); }

int kssac_free_kssac(KSSac *kssac) { return Sacs::free_record(kssac); }
