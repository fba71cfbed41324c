#include "events/records/internal/print.h"

#include <cstdio>

#include "events/records/internal/fields.h"
#include "platform/stock/text.h"

namespace ksutil::events {
namespace {

std::string value_text(int64_t value, Form) {
  return format_text("%ld\n", static_cast<long>(value));
}
std::string value_text(int32_t value, Form) { return format_text("%d\n", value); }
std::string value_text(double value, Form form) {
  return format_text(form == Form::kResidual ? "%.3f\n" : "%.6f\n", value);
}
std::string value_text(const std::string &value, Form form) {
  return form == Form::kRecord ? value : value + "\n";
}
/* A row text has its own newline; after an empty one the next field follows on the same
 * line. */
std::string value_text(const db::RowText &value, Form) { return value.str(); }

/* Pads the name to its column, which includes the blank before the sign; a longer name
 * gets one blank. */
std::string label(const std::string &prefix, const char *name, int column) {
  return prefix + format_text("%-*s ", column - 1, name) + "= ";
}

template <class Record>
void print_fields(const Record &record, const std::string &prefix) {
  for_each_field(Fields<Record>::kPrinted, [&](const auto &field) {
    print_text(label(prefix, field.name, Fields<Record>::kColumn) +
               value_text(record.*field.member, field.form));
  });
}

template <class Record>
void print_rows(const Table<Record> &rows, const char *header,
                const std::string &prefix) {
  for (long i = 0; i < rows.size(); i++) {
    print_text(prefix + format_text("%s %ld:\n", header, i));
    print_record(*rows.ptr(i), prefix + "    ");
  }
}

}  // namespace

void print_text(const std::string &text) { std::fputs(text.c_str(), stdout); }

void print_record(const EVEvent &event, const std::string &prefix) {
  print_fields(event, prefix);
}
void print_record(const EVOrigin &origin, const std::string &prefix) {
  print_fields(origin, prefix);
}
void print_record(const EVMagnitude &magnitude, const std::string &prefix) {
  print_fields(magnitude, prefix);
}
void print_record(const EVStamag &stamag, const std::string &prefix) {
  print_fields(stamag, prefix);
}
void print_record(const EVMoment &moment, const std::string &prefix) {
  print_fields(moment, prefix);
}
void print_record(const EVAssociation &association, const std::string &prefix) {
  print_fields(association, prefix);
}
void print_record(const EVDetection &detection, const std::string &prefix) {
  print_fields(detection, prefix);
}
void print_record(const EVTableRecord &record, const std::string &prefix) {
  constexpr int column = Fields<EVTableRecord>::kColumn;
  print_text(label(prefix, "recno", column) + value_text(record.recno, Form::kNumber));
  print_text(label(prefix, "record", column) +
             value_text(record.record, Form::kRecord));
}
void print_record(const EVStaChan &stachan, const std::string &prefix) {
  print_text(prefix + format_text("%s %s %.6f %.6f\n", stachan.sta.c_str(),
                                  stachan.chan.c_str(), stachan.tstart, stachan.tend));
}

void print_list(const Table<EVEvent> &events, const std::string &prefix) {
  print_rows(events, "Event", prefix);
}
void print_list(const Table<EVOrigin> &origins, const std::string &prefix) {
  print_rows(origins, "Origin", prefix);
}
void print_list(const Table<EVMagnitude> &magnitudes, const std::string &prefix) {
  print_rows(magnitudes, "Magnitude", prefix);
}
void print_list(const Table<EVStamag> &stamags, const std::string &prefix) {
  print_rows(stamags, "Stamag", prefix);
}
void print_list(const Table<EVMoment> &moments, const std::string &prefix) {
  print_rows(moments, "Moment", prefix);
}
void print_list(const Table<EVAssociation> &associations, const std::string &prefix) {
  print_rows(associations, "Association", prefix);
}
void print_list(const Table<EVDetection> &detections, const std::string &prefix) {
  print_rows(detections, "Detection", prefix);
}
void print_list(const Table<EVTableRecord> &records, const std::string &prefix) {
  /* The header of generic rows is a blank and the index. */
  print_rows(records, "", prefix);
}
void print_list(const Table<EVStaChan> &stachans, const std::string &prefix) {
  print_rows(stachans, "StaChan", prefix);
}

}  // namespace ksutil::events
