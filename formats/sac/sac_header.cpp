#include "formats/sac/internal/sac_header.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>

#include "platform/stock/nearest_float.h"
#include "platform/stock/text.h"

namespace ksutil::sac {

int kind_of(const KSSacDefine &define) {
  switch (define.type) {
    case KSSAC_FLOAT:
      return KSSAC_KIND_REAL;
    case KSSAC_STRING8:
    case KSSAC_STRING16:
      return KSSAC_KIND_STRING;
    default:
      return KSSAC_KIND_INTEGER;
  }
}

std::size_t width_of(const KSSacDefine &define) {
  return define.type == KSSAC_STRING16 ? 16 : define.type == KSSAC_STRING8 ? 8 : 4;
}

double real_of(const char *header, const KSSacDefine &define) {
  float value;
  std::memcpy(&value, header + define.offset, sizeof value);
  return value;
}

std::int64_t integer_of(const char *header, const KSSacDefine &define) {
  std::int32_t value;
  std::memcpy(&value, header + define.offset, sizeof value);
  return value;
}

std::string_view text_of(const char *header, const KSSacDefine &define) {
  std::string_view text(header + define.offset, width_of(define));
  text = text.substr(0, text.find('\0'));
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

void store_real(char *header, const KSSacDefine &define, double value) {
  const float stored = nearest_float(value);
  std::memcpy(header + define.offset, &stored, sizeof stored);
}

void store_integer(char *header, const KSSacDefine &define, std::int64_t value) {
  const auto stored = static_cast<std::int32_t>(value);
  std::memcpy(header + define.offset, &stored, sizeof stored);
}

void store_text(char *header, const KSSacDefine &define, std::string_view value) {
  char *const to = header + define.offset;
  const std::size_t width = width_of(define);
  std::fill_n(to, width, ' ');
  std::copy_n(value.data(), std::min(value.size(), width), to);
}

double real_of(const KSSac &kssac, const char *name) {
  return real_of(kssac.image->header, *kssac_get_header_define(name));
}

std::int64_t integer_of(const KSSac &kssac, const char *name) {
  return integer_of(kssac.image->header, *kssac_get_header_define(name));
}

std::string_view text_of(const KSSac &kssac, const char *name) {
  return text_of(kssac.image->header, *kssac_get_header_define(name));
}

bool has_reference_time(const KSSac &kssac) {
  const auto all_known = [&](std::initializer_list<const char *> names) {
    return std::all_of(names.begin(), names.end(), [&](const char *name) {
      return integer_of(kssac, name) != kNullInteger;
    });
  };
  return all_known({"NZYEAR", "NZJDAY"}) &&
         (integer_of(kssac, "IZTYPE") == kReferenceIsDay ||
          all_known({"NZHOUR", "NZMIN", "NZSEC", "NZMSEC"}));
}

std::optional<double> known_samprate(const KSSac &kssac) {
  const double delta = real_of(kssac, "DELTA");
  if (is_null(delta) || !std::isfinite(delta) || delta <= 0.0) return std::nullopt;
  for (int digits = 1; digits < 10; ++digits) {
    double rate;
    if (parse_real(format_text("%.*g", digits, 1.0 / delta), rate) &&
        static_cast<float>(1.0 / rate) == static_cast<float>(delta)) {
      return rate;
    }
  }
  return 1.0 / delta;
}

bool is_null(double value) { return std::isnan(value) || value == kNullReal; }

bool is_null(std::string_view text) {
  return text == kNullText || text.find_first_not_of(' ') == text.npos;
}

}  // namespace ksutil::sac
