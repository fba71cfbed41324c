/* A refresh reads what the versions of a table say has changed.  A change that they do not
 * tell leaves an event server with an old picture until it is started anew. */
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/row_removal.h"
#include "tests/postgresql/server_database.h"
#include "tests/support/rows.h"

namespace ksutil::test {
namespace {

std::vector<std::string> rows_of(const db::Snapshot &snapshot) {
  std::vector<std::string> rows;
  for (long i = 0; i < snapshot.count(); ++i) rows.emplace_back(snapshot.row(i));
  return rows;
}

/* The orids and latitudes of a snapshot as SQL shows them. */
std::string summary(const db::Snapshot &snapshot) {
  const db::IntegerColumn orid(snapshot.layout(), "orid");
  const db::RealColumn lat(snapshot.layout(), "lat");
  std::string text;
  for (long i = 0; i < snapshot.count(); ++i) {
    std::int64_t id = 0;
    double degrees = 0.0;
    EXPECT_TRUE(orid.read(snapshot.row(i), id) && lat.read(snapshot.row(i), degrees));
    text += std::to_string(id) + ":" + std::to_string(static_cast<long>(degrees)) + " ";
  }
  return text;
}

class RandomChanges {
 public:
  RandomChanges(const ServerDatabase &database, unsigned seed)
      : sql_(database.connection()), store_(database.open()), random_(seed) {}

  void change() {
    switch (random_() % 9) {
      case 0:
        sql_.run("INSERT INTO origin (orid, lat) SELECT i, 1 FROM generate_series(1, " +
                 std::to_string(1 + random_() % 40) + ") AS i");
        break;
      case 1:
        sql_.copy_in("origin (orid, lat)", "77\t7\n78\t7\n");
        break;
      case 2:
        sql_.run("UPDATE origin SET lat = " + std::to_string(random_() % 80) + some());
        break;
      case 3:
        sql_.run("DELETE FROM origin" + some());
        break;
      case 4:
        sql_.run(
            "BEGIN; INSERT INTO origin (orid) VALUES (5); UPDATE origin SET lat = 2" +
            some() + "; DELETE FROM origin" + some() + "; " +
            (random_() % 2 == 0 ? "COMMIT" : "ROLLBACK"));
        break;
      case 5:
        if (random_() % 4 == 0) sql_.run("TRUNCATE origin RESTART IDENTITY");
        break;
      case 6:
        sql_.run("UPDATE origin SET lat = lat" + some());  // the same as before
        break;
      default:
        change_by_store();
        break;
    }
  }

  std::string truth() {
    return sql_.value(
        "SELECT coalesce(string_agg(orid || ':' || coalesce(lat, -999)::bigint || ' ', "
        "'' ORDER BY ks_record), '') FROM origin");
  }

 private:
  std::string some() {
    return " WHERE ks_record % 7 = " + std::to_string(random_() % 7) +
           " AND ks_record > " + std::to_string(random_() % 100);
  }
  void change_by_store() {
    const std::string row = RowMaker("origin").set("orid", 9L).set("lat", 3.0).text();
    EXPECT_TRUE(store_->table("origin")->exclusively([&](db::TableStore::Exclusive &t) {
      const auto rows = t.snapshot();
      if (rows == nullptr || t.append_all(row + row) != rows->count()) return false;
      if (!t.overwrite(rows->count() + 1, row) || !t.overwrite(0, row)) return false;
      return random_() % 2 == 0 || db::remove_rows(t, {0, rows->count()});
    })) << taken_messages();
  }

  Sql sql_;
  const std::unique_ptr<db::DatabaseStore> store_;
  std::mt19937 random_;
};

TEST(ServerChanges, SnapshotsFollowRandomChangesAndTellThemExactly) {
  KSUTIL_SKIP_WITHOUT_POSTGRESQL();
  const ServerDatabase database;
  RandomChanges changes(database, 11);
  const auto store = database.open("r");
  db::TableStore &table = *store->table("origin");
  auto before = table.snapshot();
  ASSERT_NE(before, nullptr) << taken_messages();
  std::vector<std::string> old_rows = rows_of(*before);
  for (int round = 0; round < 150; ++round) {
    for (unsigned i = 1 + static_cast<unsigned>(round) % 3; i > 0; --i)
      changes.change();
    db::Stamp stamp;
    ASSERT_TRUE(table.stamp(stamp)) << taken_messages();
    const auto now = round % 10 == 9 ? table.snapshot_anew() : table.snapshot();
    ASSERT_NE(now, nullptr) << taken_messages();
    EXPECT_EQ(now->stamp(), stamp);
    const db::Changes told = db::changes_between(*before, *now);
    const std::vector<std::string> new_rows = rows_of(*now);
    ASSERT_EQ(summary(*now), changes.truth()) << "round " << round;
    if (told.known) {
      std::vector<long> differ;
      for (std::size_t i = 0; i < std::min(old_rows.size(), new_rows.size()); ++i) {
        if (old_rows[i] != new_rows[i]) differ.push_back(static_cast<long>(i));
      }
      ASSERT_EQ(told.changed, differ) << "round " << round;
    } else {
      EXPECT_LT(now->count(), before->count()) << "round " << round;
    }
    ASSERT_EQ(rows_of(*before), old_rows) << "a held snapshot has changed";
    before = now;
    old_rows = new_rows;
  }
  EXPECT_EQ(taken_messages(), "");
}

/* A look at all tables costs one question, and shows no table older than its beginning. */
TEST(ServerChanges, OneLookShowsAllTablesAsTheyWereAtItsBeginning) {
  KSUTIL_SKIP_WITHOUT_POSTGRESQL();
  const ServerDatabase database;
  Sql sql(database.connection());
  const auto store = database.open("r");
  const auto count = [&](const char *table) {
    db::Stamp stamp;
    EXPECT_TRUE(store->table(table)->stamp(stamp)) << taken_messages();
    return stamp.count;
  };
  sql.run("INSERT INTO event (evid) VALUES (1)");
  {
    const db::OneLook look(store.get());
    EXPECT_EQ(count("event"), 1);
    sql.run("INSERT INTO origin (orid) VALUES (1)");
    EXPECT_EQ(count("origin"), 0);
    ASSERT_EQ(store->table("origin")->snapshot()->count(), 1);
    EXPECT_EQ(count("origin"), 1);  // never older than what was shown
  }
  sql.run("INSERT INTO origin (orid) VALUES (2)");
  EXPECT_EQ(count("origin"), 2);
}

}  // namespace
}  // namespace ksutil::test
