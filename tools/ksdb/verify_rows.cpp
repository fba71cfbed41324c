#include "tools/ksdb/verify_rows.h"

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

constexpr double kDay = 86400.0;

std::string_view field_text(const db::Field &field, std::string_view row) {
  const auto at = static_cast<std::size_t>(field.offset);
  if (at >= row.size()) return {};
  return trimmed(row.substr(at, static_cast<std::size_t>(field.width)));
}

/* Calls visit(record, row) for each whole row. */
template <class Visit>
void each_row(const db::Snapshot &rows, Visit visit) {
  const ElogScope quiet;
  for (long i = 0; i < rows.count(); i++) {
    const std::string_view row = rows.row(i);
    if (!row.empty()) visit(i, row);
  }
}

/* The values of one field as texts without blanks; numbers in their shortest form, so
 * that "007" and "7" are one id. */
class FieldValues {
 public:
  FieldValues(const db::Relation &layout, const std::string &field)
      : field_(layout.find(field)),
        number_(field_ != nullptr && (field_->type == db::FieldType::kInteger ||
                                      field_->type == db::FieldType::kYearday)) {
    if (number_) integer_ = db::IntegerColumn(layout, field);
  }
  bool valid() const { return field_ != nullptr; }

  /* False for a null or unreadable value. */
  bool read(std::string_view row, std::string &value) const {
    if (number_) {
      std::int64_t number = 0;
      if (!integer_.read(row, number) || number == integer_.null()) return false;
      value = std::to_string(number);
      return true;
    }
    value = field_text(*field_, row);
    return !value.empty() && value != field_->null_text;
  }

 private:
  const db::Field *field_;
  bool number_;
  db::IntegerColumn integer_;
};

std::unordered_set<std::string> values_of(const db::Snapshot &rows,
                                          const std::string &field) {
  std::unordered_set<std::string> values;
  const FieldValues reader(rows.layout(), field);
  if (!reader.valid()) return values;
  std::string value;
  each_row(rows, [&](long, std::string_view row) {
    if (reader.read(row, value)) values.insert(value);
  });
  return values;
}

}  // namespace

void verify_readable(const db::Snapshot &rows, const Report &report) {
  const ElogScope quiet;
  for (long i = 0; i < rows.count(); i++) {
    const std::string_view row = rows.row(i);
    if (row.empty()) {
      report("broken records", i, "its newline is not where it belongs");
      continue;
    }
    for (const db::Field &field : rows.layout().fields) {
      /* Load dates have a check of their own; pointers exist in memory only. */
      if (field.type == db::FieldType::kDate || field.type == db::FieldType::kPointer ||
          db::is_readable(rows.layout(), field, row)) {
        continue;
      }
      report("unreadable fields", i,
             field.name + " is '" + std::string(field_text(field, row)) + "'");
    }
  }
}

void verify_load_dates(const db::Snapshot &rows, double now, const Report &report) {
  const db::Field *field = rows.layout().find("lddate");
  if (field == nullptr) return;
  each_row(rows, [&](long i, std::string_view row) {
    const std::string text(field_text(*field, row));
    double epoch = 0.0;
    if (!db::read_load_date(text, field->null_real, epoch)) {
      report("load dates", i, "lddate '" + text + "' is neither a time nor a date");
    } else if (epoch == field->null_real) {
      report("load dates", i, "lddate is null");
    } else if (epoch < 0.0) {
      report("load dates", i, "lddate " + time_text(epoch, 0) + " is before 1970");
    } else if (epoch > now + kDay) {
      report("load dates", i, "lddate " + time_text(epoch, 0) + " is in the future");
    }
  });
}

void verify_ids(const db::Snapshot &rows, const Report &report) {
  const std::string &field = rows.layout().id_field;
  const FieldValues reader(rows.layout(), field);
  if (field.empty() || !reader.valid()) return;
  std::unordered_map<std::string, long> first;
  std::string value;
  each_row(rows, [&](long i, std::string_view row) {
    if (!reader.read(row, value)) return;
    const auto [known, fresh] = first.try_emplace(value, i);
    if (fresh) return;
    report("repeated ids", i,
           field + " " + value + " is that of record " + std::to_string(known->second));
  });
}

void verify_references(const db::Snapshot &rows, const Tables &tables,
                       const Report &report) {
  for (const db::ForeignKey &key : rows.layout().foreign) {
    const auto target = tables.find(key.table);
    const FieldValues reader(rows.layout(), key.field);
    if (target == tables.end() || !reader.valid()) continue;
    const auto known = values_of(*target->second, key.table_field);
    std::string value;
    each_row(rows, [&](long i, std::string_view row) {
      if (!reader.read(row, value) || known.contains(value)) return;
      report("dangling references", i,
             key.field + " " + value + " is not in " + key.table);
    });
  }
}

void verify_preferred_origins(const Tables &tables, const Report &report) {
  const auto event = tables.find("event"), origin = tables.find("origin");
  if (event == tables.end() || origin == tables.end()) return;
  const db::Snapshot &events = *event->second, &origins = *origin->second;
  std::unordered_map<std::string, std::string> evid_of;
  std::string orid, evid;
  const FieldValues origin_orid(origins.layout(), "orid"),
      origin_evid(origins.layout(), "evid");
  each_row(origins, [&](long, std::string_view row) {
    if (!origin_orid.read(row, orid)) return;
    if (!origin_evid.read(row, evid)) evid = "-";
    evid_of[orid] = evid;
  });
  const FieldValues event_prefor(events.layout(), "prefor"),
      event_evid(events.layout(), "evid");
  each_row(events, [&](long i, std::string_view row) {
    if (!event_prefor.read(row, orid) || !event_evid.read(row, evid)) return;
    const auto known = evid_of.find(orid);
    if (known == evid_of.end() || known->second == evid) return;
    report("foreign preferred origins", i,
           "prefor " + orid + " belongs to evid " + known->second + ", not to " + evid);
  });
}

}  // namespace ksutil::tools
