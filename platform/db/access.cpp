#include "platform/db/access.h"

#include "platform/db/internal/next_id.h"
#include "platform/db/internal/registry.h"
#include "platform/db/match/internal/match_state.h"
#include "platform/db/views/internal/view_source.h"
#include "platform/elog/failure.h"

namespace ksutil::db {

TableStore *table_store(Dbptr db) {
  return at_boundary(
      "table_store", static_cast<TableStore *>(nullptr), [&]() -> TableStore * {
        const Opened opened("table_store", db);
        TableSource *const table = opened ? opened.table("table_store", db) : nullptr;
        return table == nullptr ? nullptr : &table->store();
      });
}

DatabaseStore *database_store(Dbptr db) {
  return at_boundary("database_store", static_cast<DatabaseStore *>(nullptr),
                     [&]() -> DatabaseStore * {
                       const Opened opened("database_store", db);
                       return opened ? &opened->store() : nullptr;
                     });
}

bool has_table(Dbptr db, std::string_view name) {
  const DatabaseStore *const store = database_store(db);
  return store != nullptr && store->schema()->find(name) != nullptr;
}

bool table_stamp(Dbptr db, Stamp &stamp) {
  return at_boundary("table_stamp", false, [&] {
    const Opened opened("table_stamp", db);
    TableSource *const table = opened ? opened.table("table_stamp", db) : nullptr;
    return table != nullptr && table->stamp("table_stamp", stamp);
  });
}

std::shared_ptr<const Snapshot> table_snapshot(Dbptr db) {
  return at_boundary("table_snapshot", std::shared_ptr<const Snapshot>(), [&] {
    const Opened opened("table_snapshot", db);
    TableSource *const table = opened ? opened.table("table_snapshot", db) : nullptr;
    return table == nullptr ? nullptr : table->look("table_snapshot");
  });
}

std::shared_ptr<const Snapshot> table_snapshot_anew(Dbptr db) {
  return at_boundary("table_snapshot_anew", std::shared_ptr<const Snapshot>(), [&] {
    const Opened opened("table_snapshot_anew", db);
    TableSource *const table =
        opened ? opened.table("table_snapshot_anew", db) : nullptr;
    return table == nullptr ? nullptr : table->look_anew("table_snapshot_anew");
  });
}

RowText record_text(Dbptr record) {
  return at_boundary("record_text", RowText(), [&] {
    const Opened opened("record_text", record);
    TableSource *const table = opened ? opened.table("record_text", record) : nullptr;
    return table == nullptr ? RowText() : table->text("record_text", record.record);
  });
}

bool set_scratch(Dbptr db, std::string_view text) {
  return at_boundary("set_scratch", false, [&] {
    const Opened opened("set_scratch", db);
    TableSource *const table = opened ? opened.table("set_scratch", db) : nullptr;
    return table != nullptr && table->set_scratch("set_scratch", text);
  });
}

bool view_parts(Dbptr record, std::vector<Dbptr> &parts) {
  return at_boundary("view_parts", false, [&] {
    const Opened opened("view_parts", record);
    RecordSource *const source = opened ? opened.source("view_parts", record) : nullptr;
    if (source == nullptr) return false;
    if (source->table() != nullptr) {
      parts = {{record.database, record.table, dbALL, record.record}};
      return true;
    }
    const Tuples &tuples = static_cast<ViewSource *>(source)->tuples();
    parts.clear();
    for (std::size_t i = 0; i < tuples.parts.size(); ++i) {
      const bool real = record.record >= 0 && record.record < tuples.count();
      parts.push_back({record.database, tuples.parts[i].number, dbALL,
                       real ? tuples.tuple(record.record)[i] : record.record});
    }
    return true;
  });
}

std::shared_ptr<const Snapshot> matched_rows(const Hook *hook) {
  const MatchState *const state = MatchState::of(hook);
  return state == nullptr ? nullptr : state->table_rows();
}

const KeyIndex *match_index(const std::shared_ptr<const Snapshot> &snapshot,
                            Tbl *kpattern, Tbl *tpattern, Hook **hook) {
  IndexRequest request{snapshot, kpattern, tpattern, hook};
  return match_indexes({&request, 1}) ? request.index : nullptr;
}

bool match_indexes(std::span<IndexRequest> requests) {
  return at_boundary("match_index", false, [&]() -> bool {
    std::vector<KeyIndex::Following> all;
    all.reserve(requests.size());
    for (const IndexRequest &each : requests) {
      if (each.snapshot == nullptr || each.hook == nullptr) {
        return fail("match_index", "no table or no hook");
      }
      MatchState *const state = MatchState::in("match_index", each.hook);
      KeyIndex *const index =
          state == nullptr
              ? nullptr
              : state->ids(each.snapshot->layout(), each.kpattern, each.tpattern);
      if (index == nullptr) return false;
      all.push_back({index, each.snapshot});
    }
    KeyIndex::follow_all(all);
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (all[i].index->snapshot() != all[i].snapshot) return false;
      requests[i].index = all[i].index;
    }
    return true;
  });
}

long reserve_ids(Dbptr db, const char *key, long count) {
  return at_boundary("dbnextid", -1L, [&] {
    const Opened opened("dbnextid", db);
    return opened ? next_ids(*opened, key, count) : -1L;
  });
}

}  // namespace ksutil::db
