#include <cerrno>
#include <memory>
#include <string>

#include "formats/sac/internal/sac_header.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

using namespace ksutil::sac;
using ksutil::fail, ksutil::fail_errno;

namespace {

struct FreeTable {
  void operator()(Tbl *table) const { kssac_free_header_tbl(table); }
};

void free_texts(void *element) {
  auto *const entry = static_cast<KSSacHeaderValue *>(element);
  std::free(entry->name);
  if (entry->kind == KSSAC_KIND_STRING) std::free(entry->value.s);
}

/* A malloced copy; null when memory is short. */
char *copied(std::string_view text) {
  const auto copy = static_cast<char *>(ks_malloc(text.size() + 1));
  if (copy != nullptr) copy[text.copy(copy, text.size())] = '\0';
  return copy;
}

/* One entry with its own texts; false when memory is short. */
bool fill_entry(const KSSac &kssac, const KSSacDefine &define,
                KSSacHeaderValue &entry) {
  const char *const header = kssac.image->header;
  entry.kind = kind_of(define);
  entry.name = ks_strdup(define.name);
  switch (entry.kind) {
    case KSSAC_KIND_REAL:
      entry.value.d = real_of(header, define);
      break;
    case KSSAC_KIND_INTEGER:
      entry.value.i = integer_of(header, define);
      break;
    default:
      entry.value.s = copied(text_of(header, define));
      break;
  }
  if (entry.name != nullptr &&
      (entry.kind != KSSAC_KIND_STRING || entry.value.s != nullptr)) {
    return true;
  }
  free_texts(&entry);
  return false;
}

}  // namespace

void kssac_free_header_tbl(Tbl *table) { freetbl(table, free_texts); }

int kssac_header_2_tbl(KSSac *kssac, Tbl **table) {
  if (kssac == nullptr || kssac->image == nullptr) {
    return fail("kssac_header_2_tbl", "No kssac");
  }
  std::unique_ptr<Tbl, FreeTable> made(
      inittbl(KSSAC_HEADER_COUNT, static_cast<int>(sizeof(KSSacHeaderValue))));
  if (made == nullptr) return fail_errno("kssac_header_2_tbl", "inittbl() error");
  for (const KSSacDefine &define : SacHeaderDefines) {
    KSSacHeaderValue entry{};
    if (!fill_entry(*kssac, define, entry)) {
      return fail_errno("kssac_header_2_tbl", "malloc() error");
    }
    if (pushtbl(made.get(), &entry) < 0) {
      fail_errno("kssac_header_2_tbl", "pushtbl() error");
      free_texts(&entry);
      return -1;
    }
  }
  kssac_free_header_tbl(*table);
  *table = made.release();
  return 0;
}

int kssac_tbl_2_header(Tbl *table, KSSac *kssac) {
  if (kssac == nullptr || kssac->image == nullptr) {
    return fail("kssac_tbl_2_header", "No kssac");
  }
  const long count = counttbl(table);
  for (long i = 0; i < count; ++i) {
    const auto *const entry = static_cast<const KSSacHeaderValue *>(gettbl(table, i));
    const KSSacDefine *const define = kssac_get_header_define(entry->name);
    if (define == nullptr || kind_of(*define) != entry->kind) {
      elog_log(0, "kssac_tbl_2_header: Undefined header name '%s'\n",
               entry->name == nullptr ? "" : entry->name);
      return -1;
    }
  }
  char *const header = kssac->image->header;
  for (long i = 0; i < count; ++i) {
    const auto *const entry = static_cast<const KSSacHeaderValue *>(gettbl(table, i));
    const KSSacDefine &define = *kssac_get_header_define(entry->name);
    switch (entry->kind) {
      case KSSAC_KIND_REAL:
        store_real(header, define, entry->value.d);
        break;
      case KSSAC_KIND_INTEGER:
        store_integer(header, define, entry->value.i);
        break;
      default:
        store_text(header, define,
                   entry->value.s == nullptr ? kNullText : entry->value.s);
        break;
    }
  }
  return 0;
}
