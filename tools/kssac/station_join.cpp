#include "tools/kssac/station_join.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "platform/db/access.h"
#include "platform/stock/owners.h"

namespace ksutil::tools {
namespace {

TblPtr list_of(std::vector<std::string> &items) {
  TblPtr list(newtbl(static_cast<long>(items.size())));
  for (std::string &item : items) pushtbl(list.get(), item.data());
  return list;
}

/* The record of wfdisc, which is the first table of every view here. */
long stored_record(Dbptr record) {
  std::vector<Dbptr> parts;
  return db::view_parts(record, parts) ? parts.front().record : long{dbINVALID};
}

}  // namespace

StationJoin::StationJoin(Dbptr rows) : rows_(rows) {
  /* A null offdate is an open end. */
  const Link links[] = {
      {"site", {"wfdisc.sta", "yearday(wfdisc.time)"}, {"sta", "ondate::offdate"}},
      {"sitechan",
       {"wfdisc.sta", "wfdisc.chan", "yearday(wfdisc.time)"},
       {"sta", "chan", "ondate::offdate"}},
      {"affiliation", {"wfdisc.sta"}, {"sta"}},
  };
  for (const Link &link : links) {
    if (db::has_table(rows, link.table)) links_.push_back(link);
  }
  views_.resize(std::size_t{1} << links_.size());
}

Dbptr StationJoin::record(Dbptr row) {
  const long stored = stored_record(row);
  unsigned tables = 0;
  for (std::size_t i = 0; i < links_.size(); ++i) {
    const View *const one = view(1U << i);
    if (one == nullptr) return dbinvalid();
    if (one->records.contains(stored)) tables |= 1U << i;
  }
  const View *const all = view(tables);
  if (all == nullptr || !all->records.contains(stored)) return dbinvalid();
  Dbptr found = all->view;
  found.record = all->records.at(stored);
  return found;
}

const StationJoin::View *StationJoin::view(unsigned tables) {
  std::optional<View> &known = views_[tables];
  if (known) return &*known;
  View made{joined(tables), {}};
  long count;
  if (made.view.table == dbINVALID ||
      dbquery(made.view, dbq_record_count, &count) != 0) {
    return nullptr;
  }
  Dbptr record = made.view;
  for (record.record = 0; record.record < count; ++record.record) {
    made.records.emplace(stored_record(record), record.record);
  }
  return &known.emplace(std::move(made));
}

Dbptr StationJoin::joined(unsigned tables) {
  Dbptr view = rows_;
  std::vector<std::shared_ptr<const db::Snapshot>> read;
  for (std::size_t i = 0; i < links_.size() && view.table != dbINVALID; ++i) {
    if ((tables & (1U << i)) == 0) continue;
    const TblPtr left = list_of(links_[i].of_rows), right = list_of(links_[i].of_table);
    const Dbptr table = dblookup(rows_, "", links_[i].table.c_str(), "", "");
    read.push_back(db::table_snapshot(table));
    if (read.back() == nullptr) return dbinvalid();
    view = dbjoin(view, table, left.get(), right.get());
  }
  /* A row that a failing disk hides would be missing in the view. */
  const bool complete = std::all_of(read.begin(), read.end(),
                                    [](const auto &rows) { return rows->complete(); });
  return complete ? view : dbinvalid();
}

}  // namespace ksutil::tools
