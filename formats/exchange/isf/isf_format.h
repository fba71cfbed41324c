/* isf_format: the format of bulletins in IMS1.0 and ISF. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_ISF_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_ISF_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kIsfFormat;

}  // namespace ksutil::exchange
#endif
