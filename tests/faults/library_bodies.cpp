#include "tests/faults/library_bodies.h"

#include <memory>

#include "config/kspf.h"
#include "events/evclient.h"
#include "events/evserver.h"
#include "events/kseventview.h"
#include "platform/db/db.h"
#include "platform/pf/owners.h"
#include "platform/stock/owners.h"
#include "platform/trace/filetbl.h"
#include "waveforms/ksdsseis.h"
#include "waveforms/ksscv.h"

namespace faults {
namespace {

constexpr char *kEnd = nullptr;

/* A database that is closed at the end of the scope. */
class Opened {
 public:
  Opened(const char *name, const char *mode) {
    good_ = dbopen_noshare(name, mode, &db_) == 0;
  }
  ~Opened() {
    if (good_) dbclose(db_);
  }
  Opened(const Opened &) = delete;
  Opened &operator=(const Opened &) = delete;
  explicit operator bool() const { return good_; }
  Dbptr table(const char *name) const {
    return dblookup(db_, nullptr, name, nullptr, nullptr);
  }
  Dbptr db() const { return db_; }

 private:
  Dbptr db_ = dbinvalid();
  bool good_ = false;
};

std::string serve() {
  EVServer server("ridge", 0, 0, -1);
  EVClient client(&server);
  if (client.refreshEvents(1) != 0) return "";
  client.grabEventsLock();
  const auto list = client.eventsList();
  client.releaseEventsLock();
  if (list == nullptr || list->size() != 1) return "";
  const Table<int> order = client.sort(list.get(), "depth", 1, 0);
  EVEvent event;
  const long evid = client.dbnextid("evid");
  if (client.getExpandedEvent(17L, event) != 0 || evid < 0) return "";
  return std::to_string(order.size()) + " " + std::to_string(event.origins.size()) +
         " " + std::to_string(evid);
}

std::string view() {
  Pf *made = nullptr;
  if (pfcompile("dbname ridge\n", &made) != 0) return "";
  const std::unique_ptr<Pf, void (*)(Pf *)> pf(made, [](Pf *p) { pffree(p); });
  KSEventView events(pf.get());
  Tbl *list = nullptr;
  if (events.refreshEvents(&list) != 0) return "";
  const std::string result = std::to_string(counttbl(list));
  events.freeEvents(list);
  return result;
}

std::string edit() {
  const Opened db("ridge", "r+");
  if (!db) return "";
  Dbptr origin = db.table("origin");
  const long record = dbaddv(origin, "orid", 900L, "evid", 17L, "time", 1e9, kEnd);
  if (record < 0) return "";
  origin.record = record;
  if (dbputv(origin, "depth", 12.5, "auth", "me", kEnd) != 0) return "";
  double depth = 0.0;
  if (dbgetv(origin, "depth", &depth, kEnd) != 0) return "";
  return std::to_string(record) + " " + std::to_string(depth);
}

std::string look_through() {
  const Opened db("ridge", "r");
  if (!db) return "";
  const ksutil::TblPtr keys(newtbl(1));
  char key[] = "magnitude";
  if (keys == nullptr || pushtbl(keys.get(), key) < 0) return "";
  const Dbptr joined = dbjoin(db.table("event"), db.table("origin"), nullptr, nullptr);
  const Dbptr sorted = dbsort(db.table("netmag"), keys.get(), 0);
  const Dbptr chosen = dbsubset(db.table("netmag"), "magnitude > 6.6");
  std::string result;
  for (const Dbptr &table : {joined, sorted, chosen}) {
    long count = -1;
    if (table.table < 0 || dbquery(table, dbq_record_count, &count) != 0) return "";
    result += std::to_string(count) + " ";
  }
  return result;
}

std::string settings() {
  KSPf pf;
  if (pf.read("settings/server.pf") != 0) return "";
  if (pf.write("written.pf") != 0) return "";
  KSPf again;
  return again.read("written.pf") != 0 ? "" : "read";
}

std::string history() {
  const ksutil::TblPtr list(filetbl("a.hst", "faults", 10, sizeof(double)));
  if (list == nullptr) return "";
  double value = 2.5;
  /* The functions of lists register nothing. */
  if (pushtbl(list.get(), &value) < 0) throw "pushtbl";
  const auto *first = static_cast<const double *>(gettbl(list.get(), 0));
  if (first == nullptr) throw "gettbl";
  return std::to_string(*first);
}

std::string data_set() {
  const Opened db("mlr/mlr", "r");
  if (!db) return "";
  const std::unique_ptr<ksdsseis, void (*)(ksdsseis *)> set(
      ksdsseis_open(db.db(), "MLR", "BHZ", 0, 0), ksdsseis_close);
  if (set == nullptr) return "";
  if (ksdsseis_unusable(set.get()) != 0) throw "rows that cannot be read";
  if (ksdsseis_count(set.get()) != 1) return "";
  return std::to_string(ksdsseis_describe(set.get(), 0)->nsamp);
}

std::string channels() {
  const Opened db("mlr/mlr", "r");
  if (!db) return "";
  const std::unique_ptr<ksscv, void (*)(ksscv *)> view(ksscv_open(db.db(), nullptr),
                                                       ksscv_close);
  if (view == nullptr) return "";
  const char *const sta[] = {"MLR"}, *const chan[] = {"BHZ"};
  if (ksscv_set_channels(view.get(), 1, sta, chan) < 0 ||
      ksscv_set_window(view.get(), 1274313600.0, 1274313700.0, 100) != 0 ||
      ksscv_wait(view.get(), 10.0) != 1) {
    return "";
  }
  ksscv_data *data = nullptr;
  if (ksscv_get(view.get(), 0, KSSCV_ENVELOPE, 0, &data) != 0) return "";
  const int state = data->state;
  ksscv_free_data(data);
  if (state == KSSCV_ERROR) throw "a channel in error";
  return state == KSSCV_COMPLETE ? "complete" : "";
}

}  // namespace

const std::vector<Body> &bodies() {
  static const std::vector<Body> all = {{"server", {"data/ridge*"}, serve},
                                        {"view", {"data/ridge*"}, view},
                                        {"edit", {"data/ridge*"}, edit},
                                        {"look", {"data/ridge*"}, look_through},
                                        {"settings", {"data/settings"}, settings},
                                        {"history", {}, history},
                                        {"dataset", {"data/mlr"}, data_set},
                                        {"channels", {"data/mlr"}, channels}};
  return all;
}

}  // namespace faults
