/* kml_format: the format of events as placemarks of KML, for maps and globes. */
#ifndef KSUTIL_FORMATS_EXCHANGE_KML_KML_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_KML_KML_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kKmlFormat;

}  // namespace ksutil::exchange
#endif
