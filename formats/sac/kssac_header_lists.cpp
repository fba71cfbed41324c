#include <cstdarg>
#include <cstring>

#include "formats/sac/internal/sac_header.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/arguments.h"

using namespace ksutil::sac;

namespace {

using ksutil::Arguments;
using ksutil::fail;

/* Takes a value to be put from the list. */
void take_value(Arguments &arguments, const KSSacDefine &define, char *header) {
  switch (kind_of(define)) {
    case KSSAC_KIND_REAL:
      store_real(header, define, arguments.next<double>());
      break;
    case KSSAC_KIND_INTEGER:
      store_integer(header, define, arguments.next<std::int64_t>());
      break;
    default: {
      const char *const text = arguments.next<const char *>();
      store_text(header, define, text == nullptr ? kNullText : text);
      break;
    }
  }
}

/* Passes by a value to be put. */
void skip_value(Arguments &arguments, const KSSacDefine &define) {
  switch (kind_of(define)) {
    case KSSAC_KIND_REAL:
      arguments.next<double>();
      break;
    case KSSAC_KIND_INTEGER:
      arguments.next<std::int64_t>();
      break;
    default:
      arguments.next<const char *>();
      break;
  }
}

/* Takes an address from the list and fills it. */
void fill_address(Arguments &arguments, const KSSacDefine &define, const char *header) {
  void *const to = arguments.next<void *>();
  switch (kind_of(define)) {
    case KSSAC_KIND_REAL:
      *static_cast<double *>(to) = real_of(header, define);
      break;
    case KSSAC_KIND_INTEGER:
      *static_cast<std::int64_t *>(to) = integer_of(header, define);
      break;
    default: {
      const std::string_view text = text_of(header, define);
      std::memcpy(to, text.data(), text.size());
      static_cast<char *>(to)[text.size()] = '\0';
      break;
    }
  }
}

/* Whether a record can be used, and a definition found for each name of the list, whose
 * values `skip` passes by; a message in the name of `who` otherwise. */
template <class Skip>
bool is_defined(const char *who, const KSSac *kssac, va_list args, Skip skip) {
  if (kssac == nullptr || kssac->image == nullptr) return fail(who, "No kssac");
  Arguments names(args);
  while (const char *const name = names.next<const char *>()) {
    const KSSacDefine *const define = kssac_get_header_define(name);
    if (define == nullptr) {
      elog_log(0, "%s: Undefined header name '%s'\n", who, name);
      return false;
    }
    skip(names, *define);
  }
  return true;
}

}  // namespace

int kssac_puthdr_kssac(KSSac *kssac, ...) {
  va_list args;
  va_start(args, kssac);
  const bool good = is_defined("kssac_puthdr_kssac", kssac, args, skip_value);
  if (good) {
    Arguments values(args);
    while (const char *const name = values.next<const char *>()) {
      take_value(values, *kssac_get_header_define(name), kssac->image->header);
    }
  }
  va_end(args);
  return good ? 0 : -1;
}

int kssac_gethdr_kssac(KSSac *kssac, ...) {
  va_list args;
  va_start(args, kssac);
  const bool good =
      is_defined("kssac_gethdr_kssac", kssac, args,
                 [](Arguments &names, const KSSacDefine &) { names.next<void *>(); });
  if (good) {
    Arguments addresses(args);
    while (const char *const name = addresses.next<const char *>()) {
      fill_address(addresses, *kssac_get_header_define(name), kssac->image->header);
    }
  }
  va_end(args);
  return good ? 0 : -1;
}
