/* event_types: the codes of origin.etype for the words of the exchange formats. */
#ifndef KSUTIL_FORMATS_EXCHANGE_EVENT_TYPES_H
#define KSUTIL_FORMATS_EXCHANGE_EVENT_TYPES_H

#include <string_view>

namespace ksutil::exchange {

/* The code of a word in lower case ("quarry blast": "qb") or of a two-letter code of IMS
 * ("ke": "eq").  A code of origin.etype stays as it is, also one that IMS has with another
 * meaning ("fi"), and so does a word without a code. */
std::string_view event_type_code(std::string_view word);

/* The QuakeML word of a code; "" for another text. */
std::string_view event_type_word(std::string_view code);

}  // namespace ksutil::exchange
#endif
