/* geojson_format: the format of GeoJSON feeds of events. */
#ifndef KSUTIL_FORMATS_EXCHANGE_GEOJSON_GEOJSON_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_GEOJSON_GEOJSON_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kGeojsonFormat;

}  // namespace ksutil::exchange
#endif
