/* The sc3ml dialect: events, origins and picks beside each other, depths in km. */
#ifndef KSUTIL_FORMATS_EXCHANGE_SC3ML_SC3ML_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_SC3ML_SC3ML_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kSc3mlFormat;

}  // namespace ksutil::exchange
#endif
