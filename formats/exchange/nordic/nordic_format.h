/* nordic_format: the Nordic format of bulletins. */
#ifndef KSUTIL_FORMATS_EXCHANGE_NORDIC_NORDIC_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_NORDIC_NORDIC_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kNordicFormat;

}  // namespace ksutil::exchange
#endif
