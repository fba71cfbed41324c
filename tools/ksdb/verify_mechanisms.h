/* verify_mechanisms: recomputes what rows of mt say beside their tensors. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_MECHANISMS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_MECHANISMS_H

#include "platform/db/db.h"
#include "tools/ksdb/verify_problems.h"

namespace ksutil::tools {

/* Moments, magnitudes, axes and nodal planes that do not follow from the tensor of their
 * row, beyond what rounding and the usual definitions explain. */
void verify_mechanisms(Dbptr mt, const Report &report);

}  // namespace ksutil::tools
#endif
