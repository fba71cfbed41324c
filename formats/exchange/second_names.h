/* second_names: the ids under which an event stands in catalogues of the same source.
 *
 * One event has the EventID "us1000778i" in a table, and in QuakeML the identifier
 * "quakeml:us.anss.org/event/1000778i" or ".../query?eventid=us1000778i".  Only forms are
 * known whose ids one source gives out: the last part of any other identifier may be
 * another event's elsewhere. */
#ifndef KSUTIL_FORMATS_EXCHANGE_SECOND_NAMES_H
#define KSUTIL_FORMATS_EXCHANGE_SECOND_NAMES_H

#include <string>
#include <string_view>

#include "formats/exchange/records.h"

namespace ksutil::exchange {

/* Adds a further id of the event, unless it is empty or one that it has. */
void add_alias(Event &event, std::string_view id);

/* The id that the identifier of an event's element in QuakeML holds:
 *   quakeml:us.anss.org/event/1000778i, .../us1000778i     us1000778i
 *   quakeml:eu.emsc/event/20230206_0000008                 20230206_0000008
 *   ...eventid=us1000778i...                               us1000778i
 *   smi:ISC/evid=602339374                                 ISC:602339374
 * "" for all others. */
std::string id_in_identifier(std::string_view identifier);

/* A number of a source, as bulletins have it: "ISC:602339374"; "" when the id is not a
 * number, or the source has no name. */
std::string numbered_id(std::string_view source, std::string_view id);

/* The id of a network's event: the network's code and its number, unless the number begins
 * with the code. */
std::string networked_id(std::string_view network, std::string_view number);

}  // namespace ksutil::exchange
#endif
