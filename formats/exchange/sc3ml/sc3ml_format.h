/* sc3ml_format: the sc3ml dialect: events beside origins and picks, depths in km. */
#ifndef KSUTIL_FORMATS_EXCHANGE_SC3ML_SC3ML_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_SC3ML_SC3ML_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kSc3mlFormat;

}  // namespace ksutil::exchange
#endif
