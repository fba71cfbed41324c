#include "tools/ksdb/verify_counters.h"

#include <algorithm>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"

namespace ksutil::tools {
namespace {

/* The greatest id of a counter in the tables; 0 when none is in use. */
std::int64_t greatest_id(const db::Schema &schema, const Tables &tables,
                         const std::string &counter) {
  std::int64_t greatest = 0;
  for (const db::Schema::CounterUse &use : schema.counter_uses(counter)) {
    const auto table = tables.find(use.table);
    if (table == tables.end()) continue;
    const db::IntegerColumn column(table->second->layout(), use.field);
    for (long i = 0; i < table->second->count(); i++) {
      std::int64_t id = 0;
      if (column.read(table->second->row(i), id)) greatest = std::max(greatest, id);
    }
  }
  return greatest;
}

}  // namespace

std::set<std::string> counters_of(const db::Schema &schema) {
  std::set<std::string> counters;
  for (const db::Relation &relation : schema.relations()) {
    if (!relation.id_field.empty()) counters.insert(relation.id_field);
    for (const db::ForeignKey &key : relation.foreign) {
      const db::Relation *const target = schema.find(key.table);
      const db::Field *const field =
          target == nullptr ? nullptr : target->find(key.table_field);
      if (field != nullptr && field->type == db::FieldType::kInteger) {
        counters.insert(key.table_field);
      }
    }
  }
  return counters;
}

std::vector<StaleCounter> stale_counters(const db::Schema &schema,
                                         const Tables &tables) {
  std::vector<StaleCounter> stale;
  const auto lastid = tables.find("lastid");
  if (lastid == tables.end()) return stale;
  const ElogScope quiet;
  const db::Snapshot &rows = *lastid->second;
  const db::TextColumn keyname(rows.layout(), "keyname");
  const db::IntegerColumn keyvalue(rows.layout(), "keyvalue");
  for (long i = 0; i < rows.count(); i++) {
    std::string_view name;
    std::int64_t value = 0;
    if (!keyname.read(rows.row(i), name) || !keyvalue.read(rows.row(i), value))
      continue;
    const std::string counter(name);
    const std::int64_t greatest = greatest_id(schema, tables, counter);
    if (greatest > value) stale.push_back({i, counter, value, greatest});
  }
  return stale;
}

void verify_counters(const db::Schema &schema, const Tables &tables,
                     const Report &report) {
  for (const StaleCounter &counter : stale_counters(schema, tables)) {
    report("stale counters", counter.record,
           counter.name + " is at " + std::to_string(counter.value) + ", but " +
               std::to_string(counter.greatest) + " is in use");
  }
}

}  // namespace ksutil::tools
