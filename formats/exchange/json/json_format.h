/* json_format: the format of events as JSON, one event on each line. */
#ifndef KSUTIL_FORMATS_EXCHANGE_JSON_JSON_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_JSON_JSON_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kJsonLinesFormat;

}  // namespace ksutil::exchange
#endif
