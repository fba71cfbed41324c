#include "platform/trace/trace.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

using ksutil::fail, ksutil::fail_errno;

namespace {

/* Far from both kGapLimit and the largest float: a gap that is scaled from counts to ground
 * motion, or back, remains a gap. */
constexpr float kGap = 1e34F;

/* Frees the samples of the rows.  Collects the addresses first, since rows that share a
 * block need not be neighbours. */
void free_samples(Dbptr rows) {
  long count = 0;
  if (dbquery(rows, dbq_record_count, &count) != 0 || count <= 0) return;
  const ksutil::MallocPtr<void *> blocks(
      static_cast<void **>(ks_calloc(static_cast<std::size_t>(count), sizeof(void *))));
  if (blocks == nullptr) {
    fail_errno("trdestroy", "malloc() error: the samples of %ld rows stay allocated",
               count);
    return;
  }
  void **end = blocks.get();
  for (rows.record = 0; rows.record < count; ++rows.record) {
    if (dbgetv(rows, "data", end, static_cast<char *>(nullptr)) == 0) ++end;
  }
  std::sort(blocks.get(), end);
  std::for_each(blocks.get(), std::unique(blocks.get(), end), std::free);
}

}  // namespace

Dbptr trnew(void) {
  const Dbptr trace = dbtmp("trace");
  if (trace.database == dbINVALID) fail("trnew", "dbtmp(trace) error");
  return trace;
}

void trdestroy(Dbptr *trace) {
  if (trace == nullptr || trace->database < 0) return;
  const Dbptr rows = dblookup(*trace, nullptr, "trace", nullptr, nullptr);
  if (rows.table >= 0) free_samples(rows);
  dbclose(*trace);
  *trace = dbinvalid();
}

void trfill_gap(float *samples, long n) {
  if (n > 0) std::fill_n(samples, n, kGap);
}

int tr_isgap(float value) {
  return value > static_cast<float>(ksutil::kGapLimit) ? 1 : 0;
}
