#include <cstdlib>
#include <cstring>
#include <mutex>

#include "formats/sac/internal/sac_header.h"
#include "platform/elog/failure.h"
#include "platform/stock/arr.h"
#include "platform/stock/text.h"

using namespace ksutil::sac;
using ksutil::fail_errno;

namespace {

/* The text that a type's null is converted from. */
const char *null_text(int type) {
  switch (type) {
    case KSSAC_FLOAT:
      return "-12345.0";
    case KSSAC_LOGICAL:
      return "0";
    default:
      return kNullText;
  }
}

/* The variables by name, and the header that has only nulls; built when first needed and
 * never freed. */
class Definitions {
 public:
  /* False, with a message, when memory is short; the next call tries again. */
  bool ready() {
    const std::lock_guard lock(mutex_);
    if (by_name_ == nullptr) by_name_ = built_map();
    return by_name_ != nullptr;
  }
  const KSSacDefine *find(const char *name) const {
    return static_cast<const KSSacDefine *>(getarr(by_name_, name));
  }
  const char *null_header() const { return null_header_; }

 private:
  Arr *built_map() {
    Arr *const map = newarr(nullptr);
    for (const KSSacDefine &define : SacHeaderDefines) {
      setarr(map, define.name, const_cast<KSSacDefine *>(&define));
      store_null(define);
    }
    if (countarr(map) != KSSAC_HEADER_COUNT) {
      freearr(map, nullptr);
      return fail_errno("kssac_fill_null_header", "newarr() error");
    }
    store_integer(null_header_, *static_cast<const KSSacDefine *>(getarr(map, "NVHDR")),
                  kVersion);
    return map;
  }

  void store_null(const KSSacDefine &define) {
    const char *const text = null_text(define.type);
    switch (kind_of(define)) {
      case KSSAC_KIND_REAL:
        store_real(null_header_, define, fix_strtod(text, nullptr));
        break;
      case KSSAC_KIND_INTEGER:
        store_integer(null_header_, define, std::atoi(text));
        break;
      default:
        std::memcpy(null_header_ + define.offset, text, std::strlen(text));
        break;
    }
  }

  std::mutex mutex_;  // guards the building
  Arr *by_name_ = nullptr;
  char null_header_[KSSAC_HEADER_SIZE] = {};
};

Definitions *definitions() {
  static Definitions the_definitions;
  return the_definitions.ready() ? &the_definitions : nullptr;
}

}  // namespace

int kssac_fill_null_header(void *header632) {
  const Definitions *const known = definitions();
  if (known == nullptr) return -1;
  std::memcpy(header632, known->null_header(), KSSAC_HEADER_SIZE);
  return 0;
}

const KSSacDefine *kssac_get_header_define(const char *name) {
  const Definitions *const known = definitions();
  return known == nullptr || name == nullptr ? nullptr : known->find(name);
}
