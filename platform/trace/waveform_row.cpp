#include <cmath>
#include <new>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"
#include "platform/trace/waveform.h"

namespace ksutil {
namespace {

/* The row of wfdisc in a record; false, with a message, when there is none. */
bool wfdisc_part(Dbptr record, Dbptr &part) {
  std::vector<Dbptr> parts;
  if (!db::view_parts(record, parts)) return false;
  for (const Dbptr &candidate : parts) {
    db::TableStore *const store = db::table_store(candidate);
    if (store == nullptr) return false;
    if (store->layout().name == "wfdisc") {
      part = candidate;
      return true;
    }
  }
  return fail("read_segment", "The record has no row of wfdisc");
}

/* The fields of one row; the first that cannot be read is remembered. */
class FieldReader {
 public:
  FieldReader(const db::Relation &layout, std::string_view row)
      : layout_(layout), row_(row) {}

  std::int64_t integer(const char *name) {
    const db::IntegerColumn column(layout_, name);
    std::int64_t value = column.null();
    if (column.valid() && !column.read(row_, value)) fail(name);
    return value;
  }
  double real(const char *name) {
    const db::RealColumn column(layout_, name);
    double value = column.null();
    if (column.valid() && !column.read(row_, value)) fail(name);
    return value;
  }
  /* Empty for a null.  Some writers put texts at the right of their fields. */
  std::string text(const char *name) {
    const db::TextColumn column(layout_, name);
    std::string_view value;
    if (column.valid() && !column.read(row_, value)) fail(name);
    value = trimmed(value);
    return column.is_null(value) ? std::string() : std::string(value);
  }
  const char *failed() const { return failed_; }

 private:
  void fail(const char *name) {
    if (failed_ == nullptr) failed_ = name;
  }
  const db::Relation &layout_;
  std::string_view row_;
  const char *failed_ = nullptr;
};

std::string joined(const std::string &folder, const std::string &name) {
  if (folder.empty() || name.front() == '/') return name;
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

/* What is wrong with a segment that was read; null for nothing. */
const char *fault(const WaveformSegment &segment, double null_time,
                  const std::string &dfile) {
  if (!std::isfinite(segment.time) || segment.time == null_time) return "time";
  if (!std::isfinite(segment.samprate) || segment.samprate <= 0.0) return "samprate";
  if (segment.nsamp < 0) return "nsamp";
  if (segment.datatype.empty()) return "datatype";
  if (dfile.empty()) return "dfile";
  if (segment.foff < 0) return "foff";
  return nullptr;
}

}  // namespace

bool read_segment(Dbptr row, WaveformSegment &segment) try {
  Dbptr part;
  if (!wfdisc_part(row, part)) return false;
  db::TableStore *const store = db::table_store(part);
  const db::RowText text = db::record_text(part);
  if (store == nullptr || text.empty()) return false;

  const db::Relation &layout = store->layout();
  const db::RowText::Reading reading(text);
  FieldReader fields(layout, reading.text());
  WaveformSegment found;
  found.sta = fields.text("sta");
  found.chan = fields.text("chan");
  found.time = fields.real("time");
  found.samprate = fields.real("samprate");
  found.nsamp = fields.integer("nsamp");
  found.calib = fields.real("calib");
  found.calper = fields.real("calper");
  found.segtype = fields.text("segtype");
  if (found.segtype.empty()) found.segtype = "-";
  found.datatype = fields.text("datatype");
  found.wfid = fields.integer("wfid");
  found.foff = fields.integer("foff");
  const std::string dir = fields.text("dir"), dfile = fields.text("dfile");

  const char *const wrong =
      fields.failed() != nullptr
          ? fields.failed()
          : fault(found, db::RealColumn(layout, "time").null(), dfile);
  if (wrong != nullptr) {
    return fail("read_segment", "%s of record %ld of %s cannot be used", wrong,
                part.record, store->file_name().c_str());
  }
  const std::string folder = dir.empty() || dir == "." || dir == "./"
                                 ? store->directory()
                                 : joined(store->directory(), dir);
  found.path = joined(folder, dfile);
  segment = std::move(found);
  return true;
} catch (const std::bad_alloc &) {
  return fail_errno("read_segment", "malloc() error");
}

std::string waveform_file_name(const std::string &channel, double time,
                               std::string_view ending) {
  /* Day and time of day are those of one number. */
  time = std::round(time * 1000.0) / 1000.0;
  const std::string text = time_text(time, 3);  // 2009-09-04T01:02:03.004
  const std::string of_day = text.substr(text.find('T') + 1);
  std::string name = channel;
  for (char &c : name) {
    if (c == '/' || static_cast<unsigned char>(c) <= ' ') c = '_';
  }
  return name + "." + std::to_string(yearday(time)) + "." + of_day.substr(0, 2) +
         of_day.substr(3, 2) + of_day.substr(6) + "." + std::string(ending);
}

}  // namespace ksutil
