/* header_names: the names that the SAC format gives to values of enumerated variables. */
#ifndef KSUTIL_TOOLS_KSSAC_HEADER_NAMES_H
#define KSUTIL_TOOLS_KSSAC_HEADER_NAMES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "formats/kssac.h"

namespace ksutil::tools {

/* The name of an enumerated value, such as "ITIME" for 1; the number for one without. */
std::string enumerated_name(std::int64_t value);

/* Reads a name, in capitals, or a number.  False for neither. */
bool parse_enumerated(std::string_view text, std::int64_t &value);

/* Reads TRUE, FALSE (in any letters), 1 or 0. */
bool parse_logical(std::string_view text, std::int64_t &value);

}  // namespace ksutil::tools
#endif
