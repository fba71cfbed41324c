#include "tools/ksdb/verify_rows.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

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

/* The fields of a layout that may be unreadable in a whole row, each with its reader.
 * Load dates have a check of their own; pointers exist in memory only. */
class CheckedFields {
 public:
  explicit CheckedFields(const db::Relation &layout) {
    for (const db::Field &field : layout.fields) {
      switch (field.type) {
        case db::FieldType::kInteger:
        case db::FieldType::kYearday:
          readers_.push_back({&field, db::IntegerColumn(layout, field.name)});
          break;
        case db::FieldType::kReal:
        case db::FieldType::kTime:
          readers_.push_back({&field, db::RealColumn(layout, field.name)});
          break;
        case db::FieldType::kText:
        case db::FieldType::kDate:
        case db::FieldType::kPointer:
          break;
      }
    }
  }

  /* Calls visit(field) for each field of the row that cannot be read. */
  template <class Visit>
  void each_unreadable(std::string_view row, Visit visit) const {
    for (const auto &[field, reader] : readers_) {
      std::int64_t integer = 0;
      double real = 0.0;
      const auto *const column = std::get_if<db::IntegerColumn>(&reader);
      const bool good = column != nullptr
                            ? column->read(row, integer)
                            : std::get<db::RealColumn>(reader).read(row, real);
      if (!good) visit(*field);
    }
  }

 private:
  struct Reader {
    const db::Field *field;
    std::variant<db::IntegerColumn, db::RealColumn> column;
  };
  std::vector<Reader> readers_;
};

}  // namespace

void verify_readable(const db::Snapshot &rows, const Report &report) {
  const ElogScope quiet;
  const CheckedFields fields(rows.layout());
  for (long i = 0; i < rows.count(); i++) {
    const std::string_view row = rows.row(i);
    if (row.empty()) {
      report("broken records", i, "its newline is not where it belongs");
      continue;
    }
    fields.each_unreadable(row, [&](const db::Field &field) {
      report("unreadable fields", i,
             field.name + " is '" + std::string(field_text(field, row)) + "'");
    });
  }
}

void verify_load_dates(const db::Snapshot &rows, double now, const Report &report) {
  const db::Field *field = rows.layout().find("lddate");
  if (field == nullptr) return;
  each_row(rows, [&](long i, std::string_view row) {
    const std::string_view text = field_text(*field, row);
    double epoch = 0.0;
    if (!db::read_load_date(text, field->null_real, epoch)) {
      report("load dates", i,
             "lddate '" + std::string(text) + "' is neither a time nor a date");
    } else if (epoch == field->null_real) {
      report("load dates", i, "lddate is null");
    } else if (epoch < 0.0) {
      report("load dates", i, "lddate " + time_text(epoch, 0) + " is before 1970");
    } else if (epoch > now + kDay) {
      report("load dates", i, "lddate " + time_text(epoch, 0) + " is in the future");
    }
  });
}

}  // namespace ksutil::tools
