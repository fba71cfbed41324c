/* gse_format: the format of GSE2.0 bulletins. */
#ifndef KSUTIL_FORMATS_EXCHANGE_GSE_GSE_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_GSE_GSE_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kGseFormat;

}  // namespace ksutil::exchange
#endif
