/* stationxml_response: reads the Response element of StationXML, and writes it. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_RESPONSE_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_RESPONSE_H

#include "formats/exchange/stations/stations.h"
#include "formats/exchange/stationxml/stationxml_values.h"
#include "formats/exchange/text/xml_writer.h"
#include "formats/exchange/unplaced.h"
#include "waveforms/response.h"

namespace ksutil::exchange {

/* Sets the sensitivity, its units and the response of a channel.  A response with a stage
 * that has no place in a Response (a polynomial, an analog filter given by coefficients, a
 * digital filter without a sample rate) is left out as a whole, since the rest would be
 * another response, and counted.  Throws ValueFault. */
void read_response(const XmlElement &element, Channel &channel,
                   UnplacedCounts &unplaced);

/* Writes the Response element of a channel; nothing when it has neither a sensitivity nor a
 * response.  Values that the schema requires and the channel does not give: an input unit
 * is NM (ground displacement, as response files mean it) or the output unit of the stage
 * before, an output unit is the input unit of the stage behind, V before other stages, and
 * COUNTS at the end; a frequency is 0. */
void write_response(const Channel &channel, XmlWriter &xml);

}  // namespace ksutil::exchange
#endif
