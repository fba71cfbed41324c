/* stationxml_response: reads the Response element of StationXML. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_RESPONSE_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_RESPONSE_H

#include "formats/exchange/stations/stations.h"
#include "formats/exchange/stationxml/stationxml_values.h"
#include "formats/exchange/unplaced.h"
#include "waveforms/response.h"

namespace ksutil::exchange {

/* Sets the sensitivity, its units and the response of a channel.  A response with a stage
 * that has no place in a Response (a polynomial, an analog filter given by coefficients, a
 * digital filter without a sample rate) is left out as a whole, since the rest would be
 * another response, and counted.  Throws ValueFault. */
void read_response(const XmlElement &element, Channel &channel,
                   UnplacedCounts &unplaced);

}  // namespace ksutil::exchange
#endif
