/* importer_fixture: a database that events are imported into. */
#ifndef KSUTIL_TESTS_FORMATS_EXCHANGE_IMPORTER_FIXTURE_H
#define KSUTIL_TESTS_FORMATS_EXCHANGE_IMPORTER_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formats/exchange/import/importer.h"
#include "platform/db/db.h"
#include "platform/db/store.h"
#include "platform/elog/elog.h"
#include "tests/tools/scratch.h"
#include "tools/common/open_database.h"

namespace ksutil::exchange {

inline Event event_at(const std::string &id, double time) {
  Event event;
  event.id = id;
  event.author = "us";
  event.type = "earthquake";
  event.place = "10km N of " + id;
  event.updated = time + 1000.0;
  Origin &origin = event.origins.emplace_back();
  origin.time = time;
  origin.lat = 10.0;
  origin.lon = 20.0;
  origin.depth = 5.0;
  origin.rms = 0.5;
  origin.gap = 161.0;
  origin.author = "us";
  Magnitude &magnitude = origin.magnitudes.emplace_back();
  magnitude.value = 4.5;
  magnitude.type = "Ml";
  return event;
}

/* The rows that an import has written. */
class ImportedDatabase {
 protected:
  std::string table(const std::string &name) const {
    return tools::read_text(name_ + "." + name);
  }
  std::string all_tables() const {
    std::string all;
    for (const char *name :
         {"event", "origin", "origerr", "netmag", "remark", "mt", "publicid", "lastid",
          "arrival", "assoc", "stamag", "seedcode", "affiliation"}) {
      all += table(name) + "\n";
    }
    return all;
  }
  long rows(const std::string &name) const {
    const tools::OpenDatabase database(name_, "r");
    long count = -1;
    dbquery(database.table(name.c_str()), dbq_record_count, &count);
    return count;
  }

  const tools::ScratchFolder folder_;
  const std::string name_ = folder_ / "db";
};

class ImporterTest : public testing::Test, protected ImportedDatabase {
 protected:
  void SetUp() override { ASSERT_EQ(dbcreate(name_.c_str(), "css3.0"), 0); }
  void TearDown() override { elog_clear_register(0); }

  struct Result {
    Imported imported = Imported::kFailed;
    ImportCounts counts;
    std::int64_t superseded = 0;
    std::vector<std::string> refused;
  };
  Result run(const std::vector<Event> &events,
             const ImportOptions &options = {}) const {
    Result result;
    Gathering gathering;
    for (const Event &event : events) EXPECT_TRUE(gathering.add(event));
    const auto store = db::open_store(name_, "r+", 1 << 26);
    if (store == nullptr) return result;
    ImportListener listener;
    listener.refused = [&](std::int64_t line, const std::string &reason) {
      result.refused.push_back(std::to_string(line) + ": " + reason);
    };
    result.imported =
        import_events(*store, gathering, options, listener, result.counts);
    result.superseded = gathering.superseded();
    return result;
  }
  ImportCounts import(const std::vector<Event> &events,
                      const ImportOptions &options = {}) const {
    const Result result = run(events, options);
    EXPECT_EQ(result.imported, Imported::kYes);
    return result.counts;
  }

  /* The values of some fields of a row of each table. */
  struct Values {
    long evid = 0, orid = 0, magid = 0;
    double magnitude = 0.0, ml = 0.0, sdobs = 0.0;
    std::string magtype, etype;
  };
  Values values(long record) const {
    const tools::OpenDatabase database(name_, "r");
    Values v;
    char etype[16] = "", magtype[16] = "";
    const auto at = [&](const char *name) {
      Dbptr row = database.table(name);
      row.record = record;
      return row;
    };
    char *const end = nullptr;
    EXPECT_EQ(dbgetv(at("event"), "evid", &v.evid, "prefor", &v.orid, end), 0);
    long orid = 0, mlid = 0;
    EXPECT_EQ(dbgetv(at("origin"), "orid", &orid, "ml", &v.ml, "mlid", &mlid, "etype",
                     etype, end),
              0);
    EXPECT_EQ(dbgetv(at("netmag"), "magid", &v.magid, "magnitude", &v.magnitude,
                     "magtype", magtype, end),
              0);
    EXPECT_EQ(dbgetv(at("origerr"), "sdobs", &v.sdobs, end), 0);
    EXPECT_EQ(orid, v.orid);
    if (mlid >= 0) {
      EXPECT_EQ(mlid, v.magid);
    }
    v.etype = etype;
    v.magtype = magtype;
    return v;
  }
};

}  // namespace ksutil::exchange
#endif
