#include "platform/trace/shared/waveform_window.h"

#include <climits>
#include <cmath>
#include <string_view>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

/* The row of "trace" or "wfdisc" that a record is or, in a view, is made of. */
bool find_row(const char *who, Dbptr record, Dbptr &row, bool &trace) {
  std::vector<Dbptr> parts;
  if (!db::view_parts(record, parts)) return false;
  for (const Dbptr part : parts) {
    const char *table = nullptr;
    if (dbquery(part, dbq_table_name, &table) != 0) return false;
    trace = std::string_view(table) == "trace";
    if (!trace && std::string_view(table) != "wfdisc") continue;
    row = part;
    return true;
  }
  return fail(who, "The record has no wfdisc and no trace row");
}

/* A text field of a row; "" for a null or an unreadable one. */
std::string text_of(Dbptr row, const char *field) {
  db::TableStore *const store = db::table_store(row);
  if (store == nullptr) return "";
  const db::RowText text = db::record_text(row);
  const db::TextColumn column(store->layout(), field);
  std::string_view value;
  const db::RowText::Reading row_text(text);
  if (text.empty() || !column.valid() || !column.read(row_text.text(), value))
    return "";
  value = trimmed(value);
  return column.is_null(value) ? std::string() : std::string(value);
}

/* The row of a trace, and its samples in memory. */
bool read_trace(const char *who, Dbptr row, WaveformSegment &segment,
                const float *&data) {
  void *samples = nullptr;
  long nsamp = 0;
  if (dbgetv(row, "time", &segment.time, "samprate", &segment.samprate, "nsamp", &nsamp,
             "calib", &segment.calib, "data", &samples,
             static_cast<char *>(nullptr)) != 0) {
    return false;
  }
  if (!(segment.samprate > 0) || !std::isfinite(segment.samprate) || nsamp < 0 ||
      samples == nullptr) {
    return fail(who, "The trace row has no samples or no sample rate");
  }
  segment.sta = text_of(row, "sta");
  segment.chan = text_of(row, "chan");
  segment.nsamp = nsamp;
  data = static_cast<const float *>(samples);
  return true;
}

}  // namespace

bool find_window(const char *who, Dbptr record, double tstart, double tend,
                 WaveformWindow &window) {
  Dbptr row;
  bool trace = false;
  if (!find_row(who, record, row, trace)) return false;
  if (!(trace ? read_trace(who, row, window.row, window.data)
              : read_segment(row, window.row))) {
    return false;
  }
  window.count = window.row.nsamp;
  if (tstart != 0 || tend != 0) {
    window.count = samples_between(window.row, tstart, tend, window.first);
  }
  if (window.count > 0 && window.count <= INT_MAX) return true;
  return fail(who, "%s samples from %.5f to %.5f",
              window.count <= 0 ? "No" : "Too many", tstart, tend);
}

}  // namespace ksutil
