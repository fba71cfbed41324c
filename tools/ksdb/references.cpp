#include "tools/ksdb/references.h"

#include <algorithm>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/ksdb/key_reader.h"

namespace ksutil::tools {

std::vector<Referrer> referrers_of(const db::Schema &schema, const std::string &table) {
  std::vector<Referrer> referrers;
  const db::Relation *const target = schema.find(table);
  for (const db::Relation &relation : schema.relations()) {
    for (const db::ForeignKey &key : relation.foreign) {
      if (key.table == table) {
        referrers.push_back({relation.name, key.field, key.table_field, false});
      }
    }
    if (target != nullptr && !target->id_field.empty() &&
        relation.find("tagname") != nullptr && relation.find("tagid") != nullptr) {
      referrers.push_back({relation.name, "tagid", target->id_field, true});
    }
  }
  return referrers;
}

ValuesOfFields values_in(const db::Snapshot &rows,
                         const std::vector<Referrer> &referrers,
                         const std::function<bool(long record)> &takes) {
  const ElogScope quiet;
  ValuesOfFields values;
  std::map<std::string, KeyReader> readers;
  for (const Referrer &referrer : referrers) {
    readers.try_emplace(referrer.target, rows.layout(), db::Key{referrer.target});
  }
  std::string value;
  for (long i = 0; i < rows.count(); i++) {
    if (!takes(i)) continue;
    const std::string_view row = rows.row(i);
    if (row.empty()) continue;
    for (const auto &[field, reader] : readers) {
      if (reader.valid() && reader.read(row, value)) values[field].insert(value);
    }
  }
  return values;
}

void take_away(ValuesOfFields &values, const ValuesOfFields &others) {
  for (auto &[field, list] : values) {
    const auto other = others.find(field);
    if (other == others.end()) continue;
    std::erase_if(
        list, [&](const std::string &value) { return other->second.contains(value); });
  }
}

void each_reference(
    const Referrer &referrer, const db::Snapshot &rows, const ValuesOfFields &values,
    const std::function<void(long record, const std::string &)> &visit) {
  const auto wanted = values.find(referrer.target);
  if (wanted == values.end() || wanted->second.empty()) return;
  const ElogScope quiet;
  const KeyReader reader(rows.layout(), {referrer.field});
  const db::TextColumn tagname(rows.layout(), "tagname");
  if (!reader.valid()) return;
  std::string value;
  for (long i = 0; i < rows.count(); i++) {
    const std::string_view row = rows.row(i);
    std::string_view tag;
    if (row.empty() || !reader.read(row, value) || !wanted->second.contains(value) ||
        (referrer.tagged && (!tagname.read(row, tag) || tag != referrer.target))) {
      continue;
    }
    visit(i, value);
  }
}

std::vector<std::string> told_references(const std::vector<Referrer> &referrers,
                                         const SnapshotOf &snapshot,
                                         const ValuesOfFields &values) {
  std::vector<std::string> lines;
  for (const Referrer &referrer : referrers) {
    std::shared_ptr<const db::Snapshot> rows;
    const bool had = snapshot(referrer.table, rows);
    if (had && rows == nullptr) continue;
    long count = 0, first = -1;
    std::string example;
    if (had) {
      each_reference(referrer, *rows, values,
                     [&](long record, const std::string &value) {
                       if (count++ == 0) {
                         first = record;
                         example = trimmed(value);
                       }
                     });
    }
    if (!had || !rows->complete()) {
      lines.push_back("rows of " + referrer.table +
                      " that cannot be read may refer by " + referrer.field);
    }
    if (count == 0) continue;
    lines.push_back(std::to_string(count) + " row" + (count == 1 ? "" : "s") + " of " +
                    referrer.table + (count == 1 ? " refers" : " refer") + " by " +
                    referrer.field + " (record " + std::to_string(first) + ": " +
                    referrer.target + " " + example + ")");
  }
  return lines;
}

}  // namespace ksutil::tools
