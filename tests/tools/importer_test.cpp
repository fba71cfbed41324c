/* An import that repeats itself must not repeat the events, and a revision must not cost
 * the ids that other rows refer to. */
#include "tools/ksdb/import/importer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/tools/scratch.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

CatalogueEvent event(const std::string &id, double time) {
  CatalogueEvent event;
  event.id = id;
  event.time = time;
  event.lat = 10.0;
  event.lon = 20.0;
  event.depth = 5.0;
  event.magnitude = 4.5;
  event.magtype = "Ml";
  event.net = "us";
  event.type = "earthquake";
  event.updated = time + 1000.0;
  event.rms = 0.5;
  return event;
}

class ImporterTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(dbcreate(name_.c_str(), "css3.0"), 0); }

  ImportCounts import(const std::vector<CatalogueEvent> &events) const {
    const OpenDatabase database(name_, "r+");
    Importer importer(database.get());
    ImportCounts counts;
    EXPECT_TRUE(importer.ready() && importer.import(events, counts));
    return counts;
  }
  std::string table(const std::string &name) const {
    return read_text(name_ + "." + name);
  }
  std::string all_tables() const {
    return table("event") + table("origin") + table("origerr") + table("netmag") +
           table("lastid");
  }

  /* The values of some fields of a row. */
  struct Values {
    long evid = 0, orid = 0, magid = 0;
    double magnitude = 0.0, ml = 0.0, sdobs = 0.0;
    std::string magtype, etype;
  };
  Values values(long record) const {
    const OpenDatabase database(name_, "r");
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

  ScratchFolder folder_;
  std::string name_ = folder_ / "db";
};

TEST_F(ImporterTest, AddsRowsOnceAndRepeatsNothing) {
  const std::vector<CatalogueEvent> events{event("a", 1e9), event("b", 1.1e9),
                                           event("a", 1e9)};
  EXPECT_EQ(import(events).added, 2);
  const Values b = values(1);
  EXPECT_EQ(b.ml, 4.5);
  EXPECT_EQ(b.magtype, "Ml");
  EXPECT_EQ(b.etype, "eq");
  EXPECT_EQ(b.sdobs, 0.5);

  const std::string before = all_tables();
  const ImportCounts again = import({event("a", 1e9), event("b", 1.1e9)});
  EXPECT_EQ(again.unchanged, 2);
  EXPECT_EQ(all_tables(), before);
}

TEST_F(ImporterTest, RevisesInPlaceAndKeepsIds) {
  import({event("a", 1e9), event("b", 1.1e9)});
  const Values before = values(0);
  CatalogueEvent revised = event("a", 1e9);
  revised.updated += 500.0;
  revised.magnitude = 5.25;
  revised.magtype = "mww";
  revised.rms = 0.75;
  EXPECT_EQ(import({revised}).updated, 1);
  const Values after = values(0);
  EXPECT_EQ(after.evid, before.evid);
  EXPECT_EQ(after.orid, before.orid);
  EXPECT_EQ(after.magid, before.magid);
  EXPECT_EQ(after.magnitude, 5.25);
  EXPECT_EQ(after.ml, -999.0);
  EXPECT_EQ(after.sdobs, 0.75);
  EXPECT_EQ(values(1).magnitude, 4.5);

  const std::string kept = all_tables();
  EXPECT_EQ(import({event("a", 1e9)}).older, 1);
  EXPECT_EQ(all_tables(), kept);
}

TEST_F(ImporterTest, AddsTheMagnitudeThatComesLater) {
  CatalogueEvent bare = event("a", 1e9);
  bare.magnitude = -999.0;
  bare.magtype.clear();
  import({bare});
  EXPECT_EQ(table("netmag"), "");
  CatalogueEvent revised = event("a", 1e9);
  revised.updated += 1.0;
  EXPECT_EQ(import({revised}).updated, 1);
  EXPECT_EQ(values(0).magnitude, 4.5);
}

TEST_F(ImporterTest, TwoImportsAtOnceAddEachEventOnce) {
  std::vector<CatalogueEvent> events;
  for (int i = 0; i < 200; i++)
    events.push_back(event("e" + std::to_string(i), 1e9 + i));
  std::vector<pid_t> children;
  for (int i = 0; i < 3; i++) {
    const pid_t child = fork();
    if (child == 0) {
      for (std::size_t at = 0; at < events.size(); at += 20) {
        import({events.begin() + static_cast<long>(at),
                events.begin() + static_cast<long>(at) + 20});
      }
      _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(import(events).unchanged, 200);
  const OpenDatabase database(name_, "r");
  long rows = 0;
  dbquery(database.table("origin"), dbq_record_count, &rows);
  EXPECT_EQ(rows, 200);
}

}  // namespace
}  // namespace ksutil::tools
