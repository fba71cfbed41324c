/* The formats of NonLinLoc: locations with phases, and observations alone, which are named
 * and refused. */
#ifndef KSUTIL_FORMATS_EXCHANGE_NONLINLOC_NONLINLOC_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_NONLINLOC_NONLINLOC_FORMAT_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kNonLinLocFormat;
extern const Format kNonLinLocObservationFormat;

}  // namespace ksutil::exchange
#endif
