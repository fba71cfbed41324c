#include "formats/sac/internal/joined_row.h"

#include "platform/db/columns.h"

namespace ksutil::sac {

bool JoinedRow::is_valid(Dbptr record) {
  return record.database != dbINVALID && record.table != dbINVALID &&
         record.record != dbINVALID;
}

bool JoinedRow::open(Dbptr record) {
  std::vector<Dbptr> rows;
  if (!db::view_parts(record, rows)) return false;
  for (const Dbptr &row : rows) {
    db::TableStore *const store = db::table_store(row);
    db::RowText text = db::record_text(row);
    if (store == nullptr || text.empty()) return false;
    parts_.push_back({row, &store->layout(), std::move(text)});
  }
  return true;
}

const RowPart *JoinedRow::part(std::string_view table) const {
  for (const RowPart &part : parts_) {
    if (part.layout->name == table) return &part;
  }
  return nullptr;
}

std::vector<const RowPart *> JoinedRow::parts(Tables tables) const {
  std::vector<const RowPart *> found;
  for (const std::string_view table : tables) {
    if (const RowPart *const row = part(table)) found.push_back(row);
  }
  return found;
}

bool JoinedRow::real(Tables tables, const char *field, double &value) const {
  for (const RowPart *const row : parts(tables)) {
    const db::RealColumn column(*row->layout, field);
    double found = column.null();
    if (column.valid() && column.read(row->text, found) && found != column.null()) {
      value = found;
      return true;
    }
  }
  return false;
}

bool JoinedRow::integer(Tables tables, const char *field, std::int64_t &value) const {
  for (const RowPart *const row : parts(tables)) {
    const db::IntegerColumn column(*row->layout, field);
    std::int64_t found = column.null();
    if (column.valid() && column.read(row->text, found) && found != column.null()) {
      value = found;
      return true;
    }
  }
  return false;
}

bool JoinedRow::text(Tables tables, const char *field, std::string &value) const {
  for (const RowPart *const row : parts(tables)) {
    const db::TextColumn column(*row->layout, field);
    std::string_view found;
    if (column.valid() && column.read(row->text, found) && !column.is_null(found)) {
      value = std::string(found);
      return true;
    }
  }
  return false;
}

}  // namespace ksutil::sac
