/* ndk_format: the format of moment tensors of the global CMT project. */
#ifndef KSUTIL_FORMATS_EXCHANGE_NDK_NDK_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_NDK_NDK_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kNdkFormat;

}  // namespace ksutil::exchange
#endif
