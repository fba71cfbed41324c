/* sac_header: reads and stores single variables of a SAC header. */
#ifndef KSUTIL_FORMATS_SAC_INTERNAL_SAC_HEADER_H
#define KSUTIL_FORMATS_SAC_INTERNAL_SAC_HEADER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "formats/kssac.h"

namespace ksutil::sac {

inline constexpr double kNullReal = -12345.0;
inline constexpr std::int64_t kNullInteger = -12345;
inline constexpr const char *kNullText = "-12345";

/* Values of enumerations. */
inline constexpr std::int64_t kTimeSeries = 1;                          // IFTYPE
inline constexpr std::int64_t kRealImaginary = 2, kAmplitudePhase = 3;  // IFTYPE
inline constexpr std::int64_t kXversusY = 4, kXyz = 51;                 // IFTYPE
inline constexpr std::int64_t kUnknown = 5, kDisplacement = 6;          // IDEP
inline constexpr std::int64_t kVelocity = 7, kAcceleration = 8;         // IDEP
inline constexpr std::int64_t kReferenceIsBegin = 9;                    // IZTYPE
inline constexpr std::int64_t kReferenceIsDay = 10;                     // IZTYPE

inline constexpr std::int64_t kVersion = 6;

/* The kind of the values of a type: KSSAC_KIND_REAL, ... */
int kind_of(const KSSacDefine &define);

/* Bytes of a variable. */
std::size_t width_of(const KSSacDefine &define);

double real_of(const char *header, const KSSacDefine &define);
std::int64_t integer_of(const char *header, const KSSacDefine &define);
/* Up to the first NUL, without the blanks at the right end. */
std::string_view text_of(const char *header, const KSSacDefine &define);

void store_real(char *header, const KSSacDefine &define, double value);
void store_integer(char *header, const KSSacDefine &define, std::int64_t value);
void store_text(char *header, const KSSacDefine &define, std::string_view value);

/* The same by name, of a variable that is known to exist. */
double real_of(const KSSac &kssac, const char *name);
std::int64_t integer_of(const KSSac &kssac, const char *name);
std::string_view text_of(const KSSac &kssac, const char *name);

/* Whether the header has the variables that its reference time is made of. */
bool has_reference_time(const KSSac &kssac);

/* The sample rate for which DELTA stands: of all rates whose reciprocal is DELTA in single
 * precision, the one with the fewest digits.  Empty for a null or an impossible DELTA. */
std::optional<double> known_samprate(const KSSac &kssac);

/* NaN counts as a null. */
bool is_null(double value);
bool is_null(std::string_view text);

}  // namespace ksutil::sac
#endif
