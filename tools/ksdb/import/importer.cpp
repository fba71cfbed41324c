#include "tools/ksdb/import/importer.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"

namespace ksutil::tools {
namespace {

using Fill = bool (*)(const db::Relation &, const CatalogueEvent &, const EventIds &,
                      std::string &);

}  // namespace

Importer::Importer(Dbptr database) : database_(database) {
  const auto target = [&](const char *table, Target &to) {
    to.store = db::table_store(dblookup(database, "", table, "", ""));
  };
  target("event", event_);
  target("origin", origin_);
  target("origerr", origerr_);
  target("netmag", netmag_);
}

bool Importer::ready() const {
  return event_.store != nullptr && origin_.store != nullptr &&
         origerr_.store != nullptr && netmag_.store != nullptr;
}

bool Importer::import(std::span<const CatalogueEvent> events, ImportCounts &counts) {
  return event_.store->exclusively([&](db::TableStore::Exclusive &rows) {
    events_ = rows.snapshot();
    if (events_ == nullptr || !follow_children()) return false;
    learn_names(*events_);
    if (!reserve_ids(events)) return false;
    ImportCounts planned = counts;
    for (const CatalogueEvent &event : events) {
      if (!plan(event, planned)) return false;
    }
    if (!origin_.write() || !origerr_.write() || !netmag_.write()) return false;
    if (!event_.write(rows)) return false;
    counts = planned;
    return true;
  });
}

bool Importer::Target::write() {
  if (added.empty() && changed.empty()) return true;
  return store->exclusively(
      [this](db::TableStore::Exclusive &rows) { return write(rows); });
}

bool Importer::Target::write(db::TableStore::Exclusive &rows) {
  for (const auto &[record, row] : changed) {
    if (!rows.overwrite(record, row)) return false;
  }
  if (!added.empty() && rows.append_all(added) < 0) return false;
  changed.clear();
  added.clear();
  return true;
}

/* Reads all names anew: other programs may have added or changed rows since the last
 * call. */
void Importer::learn_names(const db::Snapshot &events) {
  record_by_name_.clear();
  const db::TextColumn evname(events.layout(), "evname");
  for (long i = 0; i < events.count(); i++) {
    std::string_view name;
    if (evname.read(events.row(i), name) && !evname.is_null(name)) {
      record_by_name_.try_emplace(std::string(name), i);
    }
  }
}

bool Importer::follow_children() {
  const auto follow = [](Target &target, db::KeyIndex &index) {
    const std::shared_ptr<const db::Snapshot> rows = target.store->snapshot();
    if (rows == nullptr) return false;
    index.follow(rows);
    return true;
  };
  return follow(origin_, origin_by_orid_) && follow(origerr_, origerr_by_orid_) &&
         follow(netmag_, netmag_by_orid_);
}

std::string Importer::name_of(const CatalogueEvent &event) const {
  const db::Field *evname = event_.store->layout().find("evname");
  return event_name(event.id, evname == nullptr ? 0 : evname->width);
}

/* Ids for the events that are new; an import that adds nothing takes none. */
bool Importer::reserve_ids(std::span<const CatalogueEvent> events) {
  const long fresh =
      std::count_if(events.begin(), events.end(), [this](const CatalogueEvent &event) {
        return !record_by_name_.contains(name_of(event));
      });
  if (fresh == 0) return true;
  next_.evid = db::reserve_ids(database_, "evid", fresh);
  next_.orid = db::reserve_ids(database_, "orid", fresh);
  next_.magid = db::reserve_ids(database_, "magid", fresh);
  return next_.evid >= 0 && next_.orid >= 0 && next_.magid >= 0;
}

bool Importer::plan(const CatalogueEvent &event, ImportCounts &counts) {
  const auto [known, fresh] = record_by_name_.try_emplace(name_of(event), -1);
  if (!fresh && known->second < 0) return true;  // twice in the file: the first counts
  if (!fresh) return plan_update(event, known->second, counts);
  counts.added++;
  return plan_new(event);
}

bool Importer::plan_new(const CatalogueEvent &event) {
  const EventIds ids{next_.evid++, next_.orid++, next_.magid++};
  const auto add = [&](Target &target, Fill fill) {
    std::string row = db::null_record(target.layout());
    if (event.updated == 0.0 && !stamp_row(target.layout(), std_now(), row))
      return false;
    if (!fill(target.layout(), event, ids, row)) return false;
    target.added += row;
    return true;
  };
  return add(origin_, fill_origin) &&
         (!has_errors(event) || add(origerr_, fill_origerr)) &&
         (!has_magnitude(event) || add(netmag_, fill_netmag)) &&
         add(event_, fill_event);
}

bool Importer::plan_update(const CatalogueEvent &event, long record,
                           ImportCounts &counts) {
  std::string event_row(events_->row(record));
  EventIds ids;
  double loaded = 0.0;
  const db::RealColumn lddate(event_.layout(), "lddate");
  db::IntegerColumn(event_.layout(), "evid").read(event_row, ids.evid);
  db::IntegerColumn(event_.layout(), "prefor").read(event_row, ids.orid);
  if (event.updated != 0.0 && lddate.read(event_row, loaded) &&
      loaded > event.updated + 1e-5) {
    counts.older++;
    return true;
  }
  const db::KeyIndex::Rows magnitudes = netmag_by_orid_.find(ids.orid);
  if (!magnitudes.empty()) {
    db::IntegerColumn(netmag_.layout(), "magid")
        .read(netmag_by_orid_.snapshot()->row(magnitudes.front()), ids.magid);
  } else if (has_magnitude(event)) {
    ids.magid = db::reserve_ids(database_, "magid", 1);
    if (ids.magid < 0) return false;
  }

  bool differs = false;
  const auto set = [&](Target &target, long at, std::string row, Fill fill) {
    const std::string before = row;
    if (!fill(target.layout(), event, ids, row)) return false;
    if (row == before) return true;
    if (event.updated == 0.0 && !stamp_row(target.layout(), std_now(), row))
      return false;
    differs = true;
    if (at < 0) {
      target.added += row;
    } else {
      target.changed.emplace_back(at, std::move(row));
    }
    return true;
  };
  const auto set_child = [&](Target &target, const db::KeyIndex &index, Fill fill) {
    const db::KeyIndex::Rows rows = index.find(ids.orid);
    return rows.empty() ? set(target, -1, db::null_record(target.layout()), fill)
                        : set(target, rows.front(),
                              std::string(index.snapshot()->row(rows.front())), fill);
  };
  if (!set_child(origin_, origin_by_orid_, fill_origin)) return false;
  if (has_errors(event) && !set_child(origerr_, origerr_by_orid_, fill_origerr)) {
    return false;
  }
  if (has_magnitude(event) && !set_child(netmag_, netmag_by_orid_, fill_netmag)) {
    return false;
  }
  if (!set(event_, record, std::move(event_row), fill_event)) return false;
  (differs ? counts.updated : counts.unchanged)++;
  return true;
}

}  // namespace ksutil::tools
