#include "tools/ksdb/new_ids.h"

#include <algorithm>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "tools/ksdb/row_values.h"

namespace ksutil::tools {
namespace {

/* The greatest id in use of a counter; false with a message. */
bool greatest_used(db::DatabaseStore &store, const std::string &counter,
                   std::int64_t &greatest) {
  for (const auto &use : store.schema()->counter_uses(counter)) {
    db::TableStore *const table = store.table(use.table);
    if (table == nullptr) continue;
    const auto rows = table->snapshot();
    if (rows == nullptr) return false;
    const ElogScope quiet;
    const db::IntegerColumn column(rows->layout(), use.field);
    for (long i = 0; i < rows->count(); i++) {
      std::int64_t id = 0;
      if (column.read(rows->row(i), id)) greatest = std::max(greatest, id);
    }
    if (!rows->complete()) {
      elog_log(0, "take_new_ids: cannot read all rows of %s.\n", use.table.c_str());
      return false;
    }
  }
  return true;
}

}  // namespace

bool take_new_ids(db::DatabaseStore &store, db::Transaction &step, std::size_t lastid,
                  const std::string &counter, std::int64_t count, std::int64_t raised,
                  std::int64_t &first) {
  const auto rows = step.snapshot(lastid);
  if (rows == nullptr) return false;
  const db::Relation &layout = step.layout(lastid);
  const db::TextColumn keyname(layout, "keyname");
  const db::IntegerColumn keyvalue(layout, "keyvalue");
  long record = -1;
  std::int64_t last = 0;
  for (long i = 0; i < rows->count(); i++) {
    std::string_view name;
    std::int64_t value = 0;
    const ElogScope quiet;
    if (!keyname.read(rows->row(i), name) || name != counter ||
        !keyvalue.read(rows->row(i), value) || (record >= 0 && value <= last)) {
      continue;
    }
    record = i;
    last = value;
  }
  if (count == 0 && (record < 0 || raised <= last)) return true;
  std::int64_t greatest = std::max<std::int64_t>({last, raised, 0});
  if (count > 0 && !greatest_used(store, counter, greatest)) return false;
  first = greatest + 1;
  std::string row =
                  record < 0 ? db::null_record(layout) : std::string(rows->row(record)),
              problem;
  if (!write_values(
          layout,
          {{"keyname", counter}, {"keyvalue", std::to_string(greatest + count)}}, row,
          problem)) {
    elog_log(0, "take_new_ids: %s.\n", problem.c_str());
    return false;
  }
  stamp_row(layout, row);
  return record < 0 ? step.append(lastid, row) >= 0
                    : step.overwrite(lastid, record, row);
}

}  // namespace ksutil::tools
