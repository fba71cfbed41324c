/* fdsn_station_formats: the text of the FDSN station service, at its three levels. */
#ifndef KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_FORMATS_H
#define KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_FORMATS_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kFdsnNetworkFormat;
extern const Format kFdsnStationFormat;
extern const Format kFdsnChannelFormat;

}  // namespace ksutil::exchange
#endif
