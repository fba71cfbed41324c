/* segment: carries evenly spaced samples of one channel between rows, files and vectors.
 *
 * Rows of wfdisc, rows of a trace database (read_segment below), SAC files and records
 * (formats/kssac.h) and miniSEED files through rows of wfdisc give segments; both families
 * of vectors and SAC records are made from them (ksvector_create_from_segment,
 * ksvector2_create_from_segment, kssac_create_from_segment).  A sample is read into a segment and copied once, into the
 * vector or the record. */
#ifndef KSUTIL_PLATFORM_TRACE_SEGMENT_H
#define KSUTIL_PLATFORM_TRACE_SEGMENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <variant>

#include "platform/db/db.h"
#include "platform/stock/export.h"

namespace ksutil {

struct KSUTIL_API Segment {
  using Floats = std::span<const float>;
  using Counts = std::span<const std::int32_t>;

  std::string sta, chan;  // "" unknown
  double time = 0.0;      // of the first sample, epoch seconds
  double samprate = 0.0;  // Hz, finite and above 0
  double calib =
      0.0;  // nm, nm/s or nm/s^2 per count; 0 unknown.  Not applied to samples
  /* Without calib; a float above 1e30 is a gap. */
  std::variant<Floats, Counts> samples;
  /* Keeps the samples alive, also in copies of the segment.  Null: the samples belong to
   * whatever gave the segment (a trace database, a SAC record), which must outlive it. */
  std::shared_ptr<const void> owner;

  std::size_t size() const;
  /* The time of the last sample; `time` for a segment without samples. */
  double endtime() const;

  /* Copies the samples into to[size()]; a count beyond 2^24 is rounded in a float. */
  void copy_to(float *to) const;
  void copy_to(double *to) const;
};

/* The samples of a row of "wfdisc", read from its file, or of "trace", which stay in the
 * database; or of a record of a view that has one of them.
 *
 * tstart, tend   epoch seconds: the samples from tstart to tend, both included within a
 *                hundredth of a sample interval; both 0: all samples
 * segment        out: samples of the data types s4, s3, s2, i4 and i2, and integers of
 *                miniSEED records (sd), as counts, others as floats.  Those of a file are
 *                owned by the segment; those of a trace row live until the row gets other
 *                samples or its database is destroyed
 * False, with messages and `segment` untouched, for a record without such a row, a row
 * without a usable time, sample rate or file, a window without samples, and a file of
 * another data type or without all the samples.
 * Threads: the thread of the database. */
KSUTIL_API bool read_segment(Dbptr record, double tstart, double tend,
                             Segment &segment);

}  // namespace ksutil
#endif
