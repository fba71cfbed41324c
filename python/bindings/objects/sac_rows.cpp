/* sac_rows: copies between the header of a seismogram and rows of a database. */
#include <ksutil/platform/db/db.h>
#include <ksutil/platform/elog/elog.h>
#include "platform/db/access.h"
#include "platform/stock/owners.h"

#include <memory>
#include <string>
#include <vector>

#include "bindings/interpreter/arguments.h"
#include "bindings/objects/sac.h"

namespace ksutil::python {
namespace {

/* A handle of its own, so that no other thread is in it. */
class OwnDatabase {
 public:
  OwnDatabase(const std::string &path, const char *mode) : db_(dbinvalid()) {
    if (dbopen_noshare(path.c_str(), mode, &db_) != 0) db_ = dbinvalid();
  }
  ~OwnDatabase() {
    if (good()) dbclose(db_);
  }
  OwnDatabase(const OwnDatabase &) = delete;
  OwnDatabase &operator=(const OwnDatabase &) = delete;

  bool good() const { return db_.database != dbINVALID; }
  Dbptr table(const char *name) const { return dblookup(db_, "", name, "", ""); }
  bool has_table(const char *name) const { return db::has_table(db_, name); }

 private:
  Dbptr db_;
};

TblPtr list_of(std::vector<std::string> &items) {
  TblPtr list(newtbl(static_cast<long>(items.size())));
  for (std::string &item : items) pushtbl(list.get(), item.data());
  return list;
}

long count_rows(Dbptr view) {
  long count = -1;
  return dbquery(view, dbq_record_count, &count) == 0 ? count : -1;
}

/* The first record of a table with an id; invalid, with a message, when there is none. */
Dbptr find(const OwnDatabase &database, const char *table, const char *field,
           std::int64_t id) {
  const std::string condition = std::string(field) + " == " + std::to_string(id);
  Dbptr found = dbsubset(database.table(table), condition.c_str());
  if (found.database == dbINVALID || found.table == dbINVALID) return dbinvalid();
  if (count_rows(found) < 1) {
    elog_log(0, "there is no row of %s with %s.\n", table, condition.c_str());
    return dbinvalid();
  }
  found.record = 0;
  return found;
}

/* The record of wfdisc together with those rows of the station tables that there are;
 * invalid, with messages, when a table cannot be read. */
Dbptr with_station(const OwnDatabase &database, Dbptr row) {
  struct Link {
    const char *table;
    std::vector<std::string> of_row, of_table;
  };
  Link links[] = {
      {"site", {"wfdisc.sta", "yearday(wfdisc.time)"}, {"sta", "ondate::offdate"}},
      {"sitechan",
       {"wfdisc.sta", "wfdisc.chan", "yearday(wfdisc.time)"},
       {"sta", "chan", "ondate::offdate"}},
      {"affiliation", {"wfdisc.sta"}, {"sta"}},
      {"seedcode", {"wfdisc.sta", "wfdisc.chan"}, {"sta", "chan"}}};
  for (Link &link : links) {
    if (!database.has_table(link.table)) continue;
    ElogScope messages;  // broken rows are of no station
    const Dbptr table = database.table(link.table);
    const std::shared_ptr<const db::Snapshot> rows = db::table_snapshot(table);
    Dbptr all = row;
    all.record = dbALL;
    const TblPtr left = list_of(link.of_row), right = list_of(link.of_table);
    Dbptr joined =
        rows == nullptr ? dbinvalid() : dbjoin(all, table, left.get(), right.get());
    const long count = joined.table == dbINVALID ? -1 : count_rows(joined);
    if (count < 0 || !rows->complete()) {
      messages.keep();
      return dbinvalid();
    }
    if (count == 0) continue;
    joined.record = 0;
    row = joined;
  }
  return row;
}

template <class Copy>
void with_rows(const Sac &self, const py::object &database, const char *mode,
               std::optional<std::int64_t> wfid, std::optional<std::int64_t> orid,
               const Copy &copy) {
  if (!wfid && !orid) throw py::type_error("wfid, orid or both are needed");
  const std::string path = database_path(database);
  self.call([&] {
    const OwnDatabase opened(path, mode);
    if (!opened.good()) return -1;
    Dbptr wf = dbinvalid(), origin = dbinvalid();
    if (wfid) {
      wf = find(opened, "wfdisc", "wfid", *wfid);
      if (wf.database == dbINVALID) return -1;
    }
    if (orid) {
      origin = find(opened, "origin", "orid", *orid);
      if (origin.database == dbINVALID) return -1;
    }
    return copy(opened, wf, origin);
  });
}

}  // namespace

void put_rows(const Sac &self, const py::object &database,
              std::optional<std::int64_t> wfid, std::optional<std::int64_t> orid) {
  with_rows(self, database, "r", wfid, orid,
            [&](const OwnDatabase &opened, Dbptr wf, Dbptr origin) {
              if (wfid) {
                wf = with_station(opened, wf);
                if (wf.table == dbINVALID) return -1;
              }
              return kssac_putevent_kssac(self.get(), wf, origin);
            });
}

void get_rows(const Sac &self, const py::object &database,
              std::optional<std::int64_t> wfid, std::optional<std::int64_t> orid) {
  with_rows(self, database, "r+", wfid, orid,
            [&](const OwnDatabase &, Dbptr wf, Dbptr origin) {
              return kssac_getevent_kssac(self.get(), wf, origin);
            });
}

}  // namespace ksutil::python
