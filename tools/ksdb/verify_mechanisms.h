/* verify_mechanisms: checks the values of mt rows against the tensors of the rows. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_MECHANISMS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_MECHANISMS_H

#include "platform/db/db.h"
#include "tools/ksdb/verify_problems.h"

namespace ksutil::tools {

/* Reports moments, magnitudes, axes and nodal planes that differ from those of the
 * row's tensor by more than rounding and the usual definitions explain. */
void verify_mechanisms(Dbptr mt, const Report &report);

}  // namespace ksutil::tools
#endif
