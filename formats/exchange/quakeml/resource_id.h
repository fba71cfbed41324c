/* resource_id: makes QuakeML's resource identifiers of the ids of records.
 *
 * Source: QuakeML-BED-1.2.xsd, ResourceIdentifier. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_RESOURCE_ID_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_RESOURCE_ID_H

#include <string>
#include <string_view>

namespace ksutil::exchange {

/* What stands before ids that are no resource identifiers of their own. */
inline constexpr std::string_view kLocalPrefix = "smi:local/";

/* Whether a text is a resource identifier in ASCII. */
bool is_resource_id(std::string_view text);

/* The identifier of an id: itself, or with kLocalPrefix before it.  Characters that no
 * identifier may have become "_", and a number computed from the whole id stands at the end
 * then, so that different ids stay different. */
std::string resource_id(std::string_view id);

/* The id behind an identifier that resource_id has made without replacing characters; the
 * identifier itself when it does not begin with kLocalPrefix. */
std::string_view id_of_resource(std::string_view identifier);

}  // namespace ksutil::exchange
#endif
