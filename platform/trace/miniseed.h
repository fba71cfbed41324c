/* miniseed: lists, reads and writes files of miniSEED records.
 *
 * A record is a header of one channel and some hundred samples; a file has records of any
 * channels in any order.  A piece is a run of records of one channel whose times follow each
 * other within half a sample interval: what a row of wfdisc with datatype "sd" describes.
 * Bytes that are not records (control headers of SEED volumes, damaged records, foreign
 * bytes) are skipped.  Where records overlap, the first in the file counts.
 *
 * Samples are decoded and encoded by libmseed, where the library was built with it.
 * Without it (miniseed_available() is false) files can be listed, and reading or writing
 * samples fails with a message that says so.
 *
 * Threads: all functions may run concurrently; decoding and encoding of single records is
 * serialised, as libmseed has one buffer of messages for all threads.  The first use
 * directs the messages of libmseed, for the whole process, to the error register.
 * Errors: false, with a message in the error register and the results untouched. */
#ifndef KSUTIL_PLATFORM_TRACE_MINISEED_H
#define KSUTIL_PLATFORM_TRACE_MINISEED_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/export.h"
#include "platform/trace/segment.h"

namespace ksutil {

/* Whether samples can be read and written. */
KSUTIL_API bool miniseed_available();

/* The codes of a channel in records, without blanks: at most 2, 5, 2 and 3 characters.
 * Hyphens alone for the location are read as a blank one. */
struct MiniseedCodes {
  std::string net, sta, loc, chan;
  char quality = 'D';  // D, R, Q or M
  bool operator==(const MiniseedCodes &) const = default;
};

struct MiniseedPiece {
  MiniseedCodes codes;     // the quality is that of the record at foff
  double time = 0.0;       // of the first sample, epoch seconds
  double endtime = 0.0;    // of the last sample, by the time of its record
  double samprate = 0.0;   // Hz, above 0
  std::int64_t nsamp = 0;  // above 0
  std::int64_t foff = 0;   // byte at which the first of its records in the file begins
  int encoding = 0;        // of the record at foff, as SEED numbers encodings
  int record_length = 0;   // bytes, of the record at foff
};

struct MiniseedContents {
  /* By channel codes, then by time. */
  std::vector<MiniseedPiece> pieces;
  std::int64_t records = 0;        // whole records
  std::int64_t other_records = 0;  // of these: without samples of a rate, such as texts
  std::int64_t foreign_bytes = 0;  // that belong to no whole record
  std::int64_t lost_samples = 0;   // of a last record that the end of the file cuts off
};

/* Lists the pieces of a file from the headers of its records.
 *
 * A last record that is cut off is told by a message (and lost_samples), with result true.
 * False for a file that cannot be read, is not a regular file or has no whole record. */
KSUTIL_API bool miniseed_list(const std::string &path, MiniseedContents &contents);

/* The one record with samples that begins at a byte of a file, as a piece of its own.  False
 * when there is none, or its end is cut off. */
KSUTIL_API bool miniseed_record_at(const std::string &path, std::int64_t foff,
                                   MiniseedPiece &record);

/* Whether a file begins like miniSEED or a SEED volume: `head` holds its first bytes, 512
 * or all of them.  More of them, some records, show a file whose first record is damaged,
 * too. */
KSUTIL_API bool miniseed_recognise(std::string_view head);

/* The name of an encoding, such as "STEIM2"; "unknown" for others. */
KSUTIL_API const char *miniseed_encoding_text(int encoding);

/* Whether samples of an encoding are integers of at most 32 bits. */
KSUTIL_API bool miniseed_holds_counts(int encoding);

/* Samples first ... first + count - 1 of a piece; 0 <= first, 0 <= count,
 * first + count <= nsamp.  Only the records that have some of them are decoded.
 * The integers are refused for a piece of floats (see miniseed_holds_counts); a double
 * beyond the range of float becomes an infinity. */
KSUTIL_API bool miniseed_read(const std::string &path, const MiniseedPiece &piece,
                              std::int64_t first, std::int64_t count,
                              std::vector<std::int32_t> &samples);
KSUTIL_API bool miniseed_read(const std::string &path, const MiniseedPiece &piece,
                              std::int64_t first, std::int64_t count,
                              std::vector<float> &samples);
KSUTIL_API bool miniseed_read(const std::string &path, const MiniseedPiece &piece,
                              std::int64_t first, std::int64_t count,
                              std::vector<double> &samples);

/* Hands out one record after another; false ends the packing. */
using MiniseedSink = std::function<bool(std::string_view record)>;

/* Packs a segment into big-endian records: counts by Steim 2 (as 32-bit integers where two
 * samples differ by 2^29 or more), floats as they are.  Gaps (tr_isgap) are left out, so
 * that the records before and after one make pieces of their own.
 *
 * record_length  a power of two from 256 to 65536
 * Times are kept to the microsecond, sample rates to 10^-7 of their value.
 * False also for codes that do not fit and when `sink` gives false (without a message). */
KSUTIL_API bool miniseed_pack(const Segment &segment, const MiniseedCodes &codes,
                              int record_length, const MiniseedSink &sink);

/* Adds the records of a segment to the end of a file, which is made if needed.  After a
 * failure the file is as long as before. */
KSUTIL_API bool miniseed_append(const std::string &path, const Segment &segment,
                                const MiniseedCodes &codes, int record_length);

}  // namespace ksutil
#endif
