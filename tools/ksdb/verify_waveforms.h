/* verify_waveforms: checks that the files behind the rows of wfdisc hold what the rows say. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_WAVEFORMS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_WAVEFORMS_H

#include "platform/db/db.h"
#include "tools/ksdb/verify_problems.h"

namespace ksutil::tools {

/* Every row of a wfdisc table makes sense and names a regular file that can be read and is
 * long enough for the samples; no two rows have the same station, channel and time.  Of
 * compressed samples only the beginning is looked for. */
void verify_waveforms(Dbptr wfdisc, const Report &report);

}  // namespace ksutil::tools
#endif
