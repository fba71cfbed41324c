#include "bindings/database/view_columns.h"
#include "bindings/interpreter/failure.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <variant>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/db/settled_reading.h"
#include "platform/db/view_rows.h"
#include "platform/elog/elog.h"
#include "tools/ksdb/view_field.h"

namespace ksutil::python {
namespace {

bool is_field_name(const std::string &name) {
  return !name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' ||
                  c == '.';
         });
}

/* An expression over the fields of a view, with the fields that it uses. */
class ViewExpression : public expr::Fields, public expr::Record {
 public:
  ViewExpression(const View &view, const std::vector<db::Relation> &layouts,
                 const std::string &text)
      : view_(view), layouts_(layouts) {
    expr::Error error;
    program_ = expr::Program::compile(text, *this, error);
    if (program_ == nullptr) {
      throw Error("Can't compile '" + text.substr(0, 200) + "': " + error.message +
                  " at position " + std::to_string(error.position));
    }
  }

  expr::Type type() const { return program_->type(); }

  bool evaluate(const std::string_view *rows, expr::Value &result) {
    rows_ = rows;
    return program_->evaluate(*this, workspace_, result);
  }

  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    try {
      const FieldPlace place = find_field(view_, layouts_, std::string(name));
      if (place.field.type == db::FieldType::kPointer) return false;
      slot = static_cast<int>(fields_.size());
      fields_.emplace_back(layouts_[place.part], place.field, place.part);
      type = fields_.back().type();
      return true;
    } catch (const py::key_error &) {
      return false;
    }
  }

  bool value(int slot, expr::Value &result) const override {
    const tools::ViewField &field = fields_[static_cast<std::size_t>(slot)];
    return field.value(rows_[field.part()], result);
  }

 private:
  const View &view_;
  const std::vector<db::Relation> &layouts_;
  mutable std::vector<tools::ViewField> fields_;
  std::unique_ptr<const expr::Program> program_;
  expr::Workspace workspace_;
  const std::string_view *rows_ = nullptr;
};

/* Reads one column of record after record. */
class ColumnReader {
 public:
  ColumnReader(const View &view, const std::vector<db::Relation> &layouts,
               const std::string &name)
      : values_(name, ColumnKind::kText) {
    if (!is_field_name(name)) {
      auto expression = std::make_unique<ViewExpression>(view, layouts, name);
      values_.kind = kind_of(expression->type());
      reader_ = std::move(expression);
      return;
    }
    const FieldPlace place = find_field(view, layouts, name);
    const db::Relation &layout = layouts[place.part];
    part_ = place.part;
    switch (place.field.type) {
      case db::FieldType::kInteger:
      case db::FieldType::kYearday:
        reader_ = db::IntegerColumn(layout, place.field.name);
        values_.kind = ColumnKind::kInteger;
        break;
      case db::FieldType::kReal:
        reader_ = db::RealColumn(layout, place.field.name);
        values_.kind = ColumnKind::kReal;
        break;
      case db::FieldType::kTime:
      case db::FieldType::kDate:
        reader_ = db::RealColumn(layout, place.field.name);
        values_.kind = ColumnKind::kTime;
        break;
      case db::FieldType::kText:
        reader_ = db::TextColumn(layout, place.field.name);
        break;
      case db::FieldType::kPointer:
        throw py::key_error("'" + name + "' holds pointers");
    }
  }

  /* False, with a null added, when there is no value. */
  bool add(const std::string_view *rows) {
    if (auto *const expression =
            std::get_if<std::unique_ptr<ViewExpression>>(&reader_)) {
      expr::Value value;
      if (!(*expression)->evaluate(rows, value)) return add_none();
      values_.add(value);
      return true;
    }
    const std::string_view row = rows[part_];
    if (const auto *const reals = std::get_if<db::RealColumn>(&reader_)) {
      double value = 0.0;
      if (!reals->read(row, value)) return add_none();
      if (value == reals->null() || std::isnan(value)) {
        values_.add_null();
      } else {
        values_.add_real(value);
      }
      return true;
    }
    if (const auto *const integers = std::get_if<db::IntegerColumn>(&reader_)) {
      std::int64_t value = 0;
      if (!integers->read(row, value)) return add_none();
      if (value == integers->null()) {
        values_.add_null();
      } else {
        values_.add_integer(value);
      }
      return true;
    }
    const auto &texts = std::get<db::TextColumn>(reader_);
    std::string_view text;
    if (!texts.read(row, text)) return add_none();
    if (texts.is_null(text)) {
      values_.add_null();
    } else {
      values_.add_text(text);
    }
    return true;
  }

  bool add_none() {
    values_.add_null();
    return false;
  }

  ColumnValues &values() { return values_; }

 private:
  ColumnValues values_;
  std::size_t part_ = 0;
  std::variant<db::TextColumn, db::IntegerColumn, db::RealColumn,
               std::unique_ptr<ViewExpression>>
      reader_;
};

/* One attempt to read; gives the rows of a record, null when they cannot be read. */
template <class RowsOf>
ViewReading read_records(const View &view, const std::vector<db::Relation> &layouts,
                         const std::vector<std::string> &names, long start, long end,
                         bool with_texts, const RowsOf &rows_of) {
  std::vector<std::unique_ptr<ColumnReader>> readers;
  const auto count = static_cast<std::size_t>(std::max(0L, end - start));
  for (const std::string &name : names) {
    readers.push_back(std::make_unique<ColumnReader>(view, layouts, name));
    readers.back()->values().reserve(count);
  }
  ViewReading reading;
  if (with_texts) reading.texts.reserve(count);
  ElogScope quiet;
  for (long record = start; record < end; record++) {
    const std::string_view *const rows = rows_of(record);
    bool readable = rows != nullptr;
    for (const auto &reader : readers) {
      if (rows == nullptr) {
        reader->add_none();
      } else if (!reader->add(rows)) {
        readable = false;
      }
    }
    if (!readable) {
      reading.unreadable++;
      quiet.drop();
    }
    if (with_texts) {
      reading.texts.emplace_back(rows == nullptr ? "" : rows[0]);
      reading.records.push_back(record);
    }
  }
  for (const auto &reader : readers) {
    reading.columns.push_back(std::move(reader->values()));
  }
  return reading;
}

ViewReading read_table(const View &view, const std::vector<std::string> &names,
                       long start, long count, bool with_texts,
                       const Failure &failure) {
  bool looked = false;
  ViewReading reading;
  const bool whole = db::read_settled(
      [&] { return db::table_snapshot(view.dbptr); },
      [&](const std::shared_ptr<const db::Snapshot> &rows) {
        looked = true;
        const long all = rows->count(), first = std::min(start, all);
        const long end = count < 0 ? all : first + std::min(count, all - first);
        std::string_view row;
        reading = read_records(view, {rows->layout()}, names, first, end, with_texts,
                               [&](long record) {
                                 row = rows->row(record);
                                 return row.empty() ? nullptr : &row;
                               });
      });
  if (whole) return reading;
  if (!looked) failure.raise();
  throw Error("cannot read all rows of " + view.tables[0]);
}

}  // namespace

ViewReading read_view(const View &view, const std::vector<std::string> &names,
                      long start, long count, bool with_texts) {
  return view.handle->use([&](Dbptr db, Failure &failure) {
    if (view.is_table()) {
      return read_table(view, names, start, count, with_texts, failure);
    }
    const std::vector<db::Relation> layouts = layouts_of(view, db, failure);
    db::ViewRows rows(view.dbptr);
    if (!rows.good()) failure.raise();
    const long all = rows.count(), first = std::min(start, all);
    const long end = count < 0 ? all : first + std::min(count, all - first);
    ViewReading reading = read_records(view, layouts, names, first, end, with_texts,
                                       [&](long record) { return rows.read(record); });
    Dbptr at = view.dbptr;
    std::vector<Dbptr> parts;
    for (long &record : reading.records) {
      at.record = record;
      if (!db::view_parts(at, parts)) failure.raise();
      record = parts[0].record;
    }
    return reading;
  });
}

}  // namespace ksutil::python
