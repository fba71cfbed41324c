#include <algorithm>
#include <cmath>
#include <cstdint>
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

namespace {

constexpr std::size_t kMostOfName = 32;  // dfile
constexpr std::uint64_t kMillisecondsOfDay = 86400000;
constexpr double kBeyondNine = 101559956668.0;  // s: nine digits to base 36 hold the ms

/* Source: Fowler, Noll and Vo's hash FNV-1a of 64 bits. */
std::uint64_t hash_of_name(std::string_view text) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  }
  return hash;
}

/* A number to base 36 in `digits` characters. */
std::string base_36(std::uint64_t number, std::size_t digits) {
  std::string text(digits, '0');
  for (std::size_t i = digits; i-- > 0; number /= 36) {
    text[i] = "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36];
  }
  return text;
}

/* The time of a name that fits; "" when no time does.  `time` is in whole milliseconds. */
std::string time_of_name(double time, std::size_t room) {
  const std::string text = time_text(time, 3);  // 2009-09-04T01:02:03.004
  const std::string clock = text.substr(text.find('T') + 1);
  const std::string second =
      clock.substr(0, 2) + clock.substr(3, 2) + clock.substr(6, 2);
  const std::string rest = clock.substr(9);
  const std::string day = std::to_string(yearday(time));
  std::string name = day + "." + second + "." + rest;
  if (name.size() <= room) return name;
  name = day + second + rest;
  if (name.size() <= room) return name;
  name = day + second;
  if (rest == "000" && name.size() <= room) return name;
  if (time < 0.0 || time >= kBeyondNine) return "";
  const auto since_1970 = static_cast<std::uint64_t>(std::llround(time * 1000.0));
  name = day.substr(2) + base_36(since_1970 % kMillisecondsOfDay, 6);
  if (yearday(time) / 1000 < 2070 && name.size() <= room) return name;
  name = base_36(since_1970, 9);
  return name.size() <= room ? name : "";
}

}  // namespace

std::string waveform_file_name(const std::string &channel, double time,
                               std::string_view ending) {
  /* Day and time of day are those of one number. */
  time = std::round(time * 1000.0) / 1000.0;
  std::string name = channel;
  for (char &c : name) {
    if (c == '/' || static_cast<unsigned char>(c) <= ' ') c = '_';
  }
  const std::string end = "." + std::string(ending);
  const std::size_t around = name.size() + 1 + end.size();
  const std::string when =
      time_of_name(time, around < kMostOfName ? kMostOfName - around : 0);
  if (!when.empty()) return name + "." + when + end;
  const std::string number = base_36(hash_of_name(name + "." + time_text(time, 3)), 13);
  const std::size_t behind = 1 + number.size() + end.size();
  name.resize(std::min(name.size(), behind < kMostOfName ? kMostOfName - behind : 0));
  return name + "." + number + end;
}

std::string waveform_name_fault(const db::Field &field, std::string_view text) {
  const auto is_control = [](unsigned char c) { return c < ' ' || c == 0x7F; };
  if (text.size() > static_cast<std::size_t>(field.width)) {
    return "is longer than the " + std::to_string(field.width) + " characters of " +
           field.name;
  }
  if (std::any_of(text.begin(), text.end(), is_control)) {
    return "has a control character";
  }
  if (text != trimmed(text)) {
    return "begins or ends with a blank, which " + field.name + " does not keep";
  }
  if (text.empty() || text == trimmed(field.null_text)) {
    return "is the null of " + field.name;
  }
  return "";
}

}  // namespace ksutil
