/* stationxml_format: the format of FDSN StationXML, versions 1.0 to 1.2. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kStationXmlFormat;

}  // namespace ksutil::exchange
#endif
