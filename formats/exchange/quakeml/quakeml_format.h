/* quakeml_format: QuakeML 1.2, and the dialect of it that real-time systems write. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kQuakemlFormat;

}  // namespace ksutil::exchange
#endif
