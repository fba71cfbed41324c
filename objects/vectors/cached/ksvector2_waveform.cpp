/* ksvector2 from the samples of waveforms in databases. */
#include <cerrno>
#include <climits>
#include <cmath>
#include <new>
#include <string_view>
#include <vector>

#include "objects/vectors/cached/internal/vector2.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/trace/waveform.h"

namespace {

using ksutil::WaveformSegment;

const char kSelf[] = "ksvector2_create_tsamp_from_db";

/* The row of "trace" or "wfdisc" that a record is or, in a view, is made of; `trace` tells
 * which.  False with a message. */
bool find_row(Dbptr record, Dbptr &row, bool &trace) {
  std::vector<Dbptr> parts;
  if (!ksutil::db::view_parts(record, parts)) return false;
  for (const Dbptr part : parts) {
    const char *table = nullptr;
    if (dbquery(part, dbq_table_name, &table) != 0) return false;
    trace = std::string_view(table) == "trace";
    if (!trace && std::string_view(table) != "wfdisc") continue;
    row = part;
    return true;
  }
  elog_log(0, "%s: The record has no wfdisc and no trace row.\n", kSelf);
  return false;
}

/* The segment of a row of "trace", and its samples in memory. */
bool read_trace(Dbptr row, WaveformSegment &segment, const float *&data) {
  void *samples = nullptr;
  long nsamp = 0;
  if (dbgetv(row, "time", &segment.time, "samprate", &segment.samprate, "nsamp", &nsamp,
             "data", &samples, nullptr) != 0) {
    return false;
  }
  if (!(segment.samprate > 0) || !std::isfinite(segment.samprate) || nsamp < 0 ||
      samples == nullptr) {
    elog_log(0, "%s: The trace row has no samples or no sample rate.\n", kSelf);
    return false;
  }
  segment.nsamp = nsamp;
  data = static_cast<const float *>(samples);
  return true;
}

/* The samples from tstart to tend, and the time of the first of them. */
bool read_window(Dbptr record, double tstart, double tend, WaveformSegment &segment,
                 double &time, std::vector<double> &samples) {
  Dbptr row;
  bool trace = false;
  const float *data = nullptr;
  if (!find_row(record, row, trace)) return false;
  if (!(trace ? read_trace(row, segment, data) : read_segment(row, segment))) {
    return false;
  }
  std::int64_t first = 0;
  std::int64_t count = segment.nsamp;
  if (tstart != 0 || tend != 0) count = samples_between(segment, tstart, tend, first);
  if (count <= 0 || count > INT_MAX) {
    elog_log(0, "%s: %s samples from %.5f to %.5f.\n", kSelf,
             count <= 0 ? "No" : "Too many", tstart, tend);
    return false;
  }
  time = segment.time + static_cast<double>(first) / segment.samprate;
  if (!trace) return read_samples(segment, first, count, samples);
  samples.assign(data + first, data + first + count);
  return true;
}

}  // namespace

ksvector2 *ksvector2_create_tsamp_from_db(Dbptr row, const char *name, char *tag,
                                          double tstart, double tend) {
  if (tag != nullptr) tag[0] = '\0';
  try {
    WaveformSegment segment;
    std::vector<double> samples;
    double time = 0;
    if (!read_window(row, tstart, tend, segment, time, samples)) {
      elog_log(0, "%s: Cannot read the samples.\n", kSelf);
      return nullptr;
    }
    ksvector2 *const vector =
        ksvector2_create_tsamp(static_cast<int>(samples.size()), samples.data(), name,
                               tag, time, segment.samprate);
    if (vector == nullptr) {
      elog_log(0, "%s: ksvector2_create_tsamp() error.\n", kSelf);
    }
    return vector;
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "%s: malloc() error.\n", kSelf);
    return nullptr;
  }
}
