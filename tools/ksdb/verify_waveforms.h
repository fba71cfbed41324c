/* verify_waveforms: checks that the files named by the rows of wfdisc hold the
 * waveforms that the rows describe. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_WAVEFORMS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_WAVEFORMS_H

#include "platform/db/db.h"
#include "platform/db/snapshot.h"
#include "tools/ksdb/verify_problems.h"

namespace ksutil::tools {

/* Every row of a wfdisc table is plausible and names a regular file that can be read
 * and is long enough for the samples; no two rows have the same station, channel and
 * time.  A row of miniSEED records points to a record of its channel, time and sample
 * rate, and its last sample is in the file.  Of other compressed samples only the beginning
 * is checked.
 *
 * seedcode   the SEED codes of the channels; null without such a table */
void verify_waveforms(Dbptr wfdisc, const db::Snapshot *seedcode, const Report &report);

}  // namespace ksutil::tools
#endif
