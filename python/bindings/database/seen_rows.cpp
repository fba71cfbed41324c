#include "bindings/database/seen_rows.h"

#include <algorithm>

#include "platform/db/access.h"
#include "platform/elog/elog.h"

namespace ksutil::python {

SeenTables seen_tables(const std::vector<const View *> &sources) {
  SeenTables seen;
  const ElogScope quiet;
  for (const View *const source : sources) {
    if (!source->handle->writes()) return {};
    if (source->is_table()) {
      seen.push_back(db::table_snapshot(source->dbptr));
      continue;
    }
    for (std::size_t part = 0; part < source->tables.size(); part++) {
      seen.push_back(source->seen == nullptr
                         ? nullptr
                         : source->handle->seen_table(source->seen->id, part));
    }
  }
  return seen;
}

bool settle_seen(const SeenTables &before, SeenTables &after, bool &moved) {
  bool settled = true;
  for (std::size_t i = 0; i < after.size(); i++) {
    if (after[i] == before[i] && after[i] != nullptr) continue;
    if (after[i] != nullptr && before[i] != nullptr) {
      /* Rows that were only appended do not matter. */
      const ElogScope quiet;
      const db::Changes changes = db::changes_between(*before[i], *after[i]);
      if (changes.known && changes.changed.empty()) continue;
      moved = moved || !(before[i]->stamp() == after[i]->stamp());
    }
    after[i] = nullptr;
    settled = false;
  }
  return settled;
}

std::shared_ptr<SeenRows> see_rows(const View &table, long start, long end) {
  if (!table.handle->writes()) return nullptr;
  const long id = table.handle->use([&](Dbptr, Failure &failure) {
    std::shared_ptr<const db::Snapshot> rows = db::table_snapshot(table.dbptr);
    if (rows == nullptr) failure.raise();
    /* A row that has been read has a fingerprint, with which later rows are compared. */
    const ElogScope quiet;
    for (long record = std::max(0L, start); record < std::min(end, rows->count());
         record++) {
      rows->row(record);
    }
    return table.handle->keep_seen({std::move(rows)});
  });
  return std::make_shared<SeenRows>(table.handle, id);
}

bool is_as_seen(const db::Snapshot &seen, const db::Snapshot &now, long record) {
  if (&seen == &now) return true;
  if (record >= seen.count()) return false;
  const ElogScope quiet;
  const std::string_view then = seen.row(record);
  return !then.empty() && then == now.row(record);
}

}  // namespace ksutil::python
