/* resource_id: makes QuakeML's resource identifiers of the ids of records.
 *
 * Source: QuakeML-BED-1.2.xsd, ResourceIdentifier. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_RESOURCE_ID_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_RESOURCE_ID_H

#include <string>
#include <string_view>

namespace ksutil::exchange {

/* Stands before ids that are not resource identifiers. */
inline constexpr std::string_view kLocalPrefix = "smi:local/";

/* Stands before ids with characters that no identifier may have: these, and "*", are
 * written as "*" and two hexadecimal digits for each byte. */
inline constexpr std::string_view kEscapedPrefix = "smi:local.escaped/";

/* Whether a text is a resource identifier in ASCII. */
bool is_resource_id(std::string_view text);

/* Makes an identifier of an id that is not empty: the id itself, or the id behind one of the
 * prefixes.  Different ids have different identifiers. */
std::string resource_id(std::string_view id);

/* Gives the id back of which resource_id has made an identifier.  Another identifier is
 * given back as it is, also one with escaped bytes that are control characters. */
std::string id_of_resource(std::string_view identifier);

}  // namespace ksutil::exchange
#endif
