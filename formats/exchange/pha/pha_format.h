/* pha_format: the format of phase files for relocation by double differences. */
#ifndef KSUTIL_FORMATS_EXCHANGE_PHA_PHA_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_PHA_PHA_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kPhaFormat;

}  // namespace ksutil::exchange
#endif
