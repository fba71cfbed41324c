#include "formats/exchange/import/last_id.h"

#include <algorithm>

#include "formats/exchange/import/column_values.h"

namespace ksutil::exchange {
bool find_last_id(db::DatabaseStore &store, const db::Snapshot &lastid,
                  const std::string &counter, const OpenTable &open_table,
                  LastId &last) {
  last = LastId();
  const db::TextColumn name(lastid.layout(), "keyname");
  const db::IntegerColumn value(lastid.layout(), "keyvalue");
  for (long row = 0; row < lastid.count(); row++) {
    const std::string_view record = lastid.row(row);
    std::string_view text;
    if (record.empty() || !name.read(record, text) || text != counter) continue;
    const std::int64_t known = integer_of(value, record);
    if (last.record < 0 || known > last.value) last.record = row;
    last.value = std::max(last.value, known);
  }
  for (const auto &use : store.schema()->counter_uses(counter)) {
    std::shared_ptr<const db::Snapshot> table = open_table(use.table);
    if (table == nullptr) {
      db::TableStore *other = store.table(use.table);
      if (other != nullptr) table = other->snapshot();
    }
    if (table == nullptr) return false;
    const db::IntegerColumn column(table->layout(), use.field);
    for (long row = 0; row < table->count(); row++) {
      const std::string_view record = table->row(row);
      if (!record.empty())
        last.value = std::max(last.value, integer_of(column, record));
    }
    if (!table->complete()) return false;
  }
  return true;
}

}  // namespace ksutil::exchange
