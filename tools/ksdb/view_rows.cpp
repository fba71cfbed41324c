#include "tools/ksdb/view_rows.h"

#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/cli.h"

namespace ksutil::tools {
namespace {

/* Where a field of a view stands: its table, and its number there; false if nowhere. */
bool find_place(const std::vector<Dbptr> &parts, const std::string &name,
                std::size_t &part, int &field) {
  const ElogScope quiet;
  for (part = 0; part < parts.size(); part++) {
    field = dblookup(parts[part], nullptr, nullptr, name.c_str(), nullptr).field;
    if (field >= 0) return true;
  }
  return false;
}

}  // namespace

Column column_of(Dbptr view, const std::string &name) {
  const ElogScope quiet;
  const Dbptr field = dblookup(view, nullptr, nullptr, name.c_str(), nullptr);
  int type = dbSTRING;
  if (field.field >= 0) dbquery(field, dbq_field_type, &type);
  const bool number = type != dbSTRING && type != dbDATE;
  return {name, number, number};
}

bool ViewFields::choose(Dbptr view, const std::vector<std::string> &names) {
  view_ = view;
  std::vector<Dbptr> parts;
  Dbptr null = view;
  null.record = dbNULL;
  Tbl *fields = nullptr;
  if (!db::view_parts(null, parts) || dbquery(view, dbq_fields, &fields) < 0) {
    return false;
  }
  std::vector<std::string> all = names;
  for (long i = 0; names.empty() && i < counttbl(fields); i++) {
    all.emplace_back(static_cast<const char *>(gettbl(fields, i)));
  }
  for (const std::string &name : all) {
    Shown shown{column_of(view, name), 0, 0};
    if (!find_place(parts, name, shown.part, shown.field)) {
      complain("no field " + name);
      return false;
    }
    shown_.push_back(std::move(shown));
  }
  return true;
}

std::vector<Column> ViewFields::columns() const {
  std::vector<Column> columns;
  for (const Shown &shown : shown_) columns.push_back(shown.column);
  return columns;
}

bool ViewFields::read(long record, std::vector<std::string> &cells) const {
  Dbptr at = view_;
  at.record = record;
  std::vector<Dbptr> parts;
  if (!db::view_parts(at, parts)) return false;
  std::vector<db::RowText> rows;
  for (const Dbptr &part : parts) {
    rows.push_back(db::record_text(part));
    if (rows.back().empty()) return false;
  }
  cells.clear();
  for (const Shown &shown : shown_) {
    const db::Field &field = db::table_store(parts[shown.part])
                                 ->layout()
                                 .fields[static_cast<std::size_t>(shown.field)];
    const std::string_view row = rows[shown.part];
    const auto offset = static_cast<std::size_t>(field.offset);
    cells.emplace_back(
        offset < row.size()
            ? trimmed(row.substr(offset, static_cast<std::size_t>(field.width)))
            : std::string_view());
  }
  return true;
}

}  // namespace ksutil::tools
