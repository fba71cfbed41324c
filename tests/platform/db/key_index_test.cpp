/* The event server finds every row of an event by these indexes; a row lost after an edit
 * is a magnitude missing from a bulletin, a row kept is one that was withdrawn. */
#include "platform/db/key_index.h"

#include <algorithm>
#include <map>
#include <random>

#include "platform/db/access.h"
#include "tests/platform/db/api_test_support.h"

namespace ksutil::db::test {
namespace {

std::vector<long> rows_of(const KeyIndex &index, std::int64_t key) {
  std::vector<long> rows;
  for (const long row : index.find(key)) rows.push_back(row);
  return rows;
}

/* The ids of a table as written, and the index that follows them. */
class FollowedTable {
 public:
  FollowedTable() : handle_((write(), database_.name()), "r") {}

  std::vector<long> ids;

  void write() {
    std::vector<std::string> rows;
    for (const long id : ids) rows.push_back(RowMaker("netmag").set("orid", id).text());
    database_.write("netmag", rows);
  }

  void expect_index_follows() {
    write();
    index_.follow(table_snapshot(handle_.at("netmag")));
    std::map<long, std::vector<long>> model;
    for (std::size_t row = 0; row < ids.size(); ++row) {
      model[ids[row]].push_back(static_cast<long>(row));
    }
    model.erase(-1);  // the null
    for (long id = -1; id <= 60; ++id) {
      ASSERT_EQ(rows_of(index_, id), model[id]) << "id " << id;
    }
    long greatest = 0;
    for (const auto &[id, rows] : model) {
      if (!rows.empty()) greatest = std::max(greatest, id);
    }
    EXPECT_EQ(index_.greatest(), greatest);
  }

 private:
  TestDatabase database_;
  Handle handle_;
  KeyIndex index_{"orid"};
};

TEST(KeyIndexFollow, AgreesWithTheRowsAfterEveryChange) {
  std::mt19937 random(20);
  const auto below = [&random](std::size_t n) {
    return static_cast<std::size_t>(random() % static_cast<unsigned>(n));
  };
  const auto id = [&] { return static_cast<long>(below(60)) - 1; };
  FollowedTable table;
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE(round);
    for (std::size_t i = below(12); i > 0; --i) table.ids.push_back(id());
    for (std::size_t i = below(8); i > 0 && !table.ids.empty(); --i) {
      table.ids[below(table.ids.size())] = id();
    }
    if (below(20) == 0) table.ids.resize(table.ids.size() / 2);
    table.expect_index_follows();
    if (testing::Test::HasFatalFailure()) return;
  }
}

TEST(KeyIndexFollow, MovesManyRowsOfOneKey) {
  FollowedTable table;
  table.ids.assign(3000, 7);
  table.expect_index_follows();
  for (std::size_t row = 0; row < table.ids.size(); row += 2) table.ids[row] = 9;
  table.expect_index_follows();
  std::fill(table.ids.begin(), table.ids.end(), -1);
  table.expect_index_follows();
}

/* Keys of more than 32 bits come late, when the index has taken the others for all. */
TEST(KeyIndexFind, TellsApartKeysOfMoreThan32Bits) {
  TestDatabase database;
  const Handle handle((database.write("wfdisc", {}), database.name()), "r");
  KeyIndex index("foff");
  std::vector<std::string> rows;
  const long keys[] = {5,          -7,         705032709, 4294967291, 5000000005,
                       705032709,  5000000005, 5,         9999999999, 1410065407,
                       -999999999, 4294967296, 1};
  std::map<long, std::vector<long>> model;
  for (const long key : keys) {
    model[key].push_back(static_cast<long>(rows.size()));
    rows.push_back(RowMaker("wfdisc").set("foff", key).text());
    database.write("wfdisc", rows);
    index.follow(table_snapshot(handle.at("wfdisc")));
    for (const long each : keys) EXPECT_EQ(rows_of(index, each), model[each]) << each;
  }
  rows[2] = RowMaker("wfdisc").set("foff", 9999999999L).text();
  database.write("wfdisc", rows);
  index.follow(table_snapshot(handle.at("wfdisc")));
  EXPECT_EQ(rows_of(index, 9999999999), (std::vector<long>{2, 8}));
  EXPECT_EQ(rows_of(index, 705032709), (std::vector<long>{5}));
  EXPECT_EQ(index.greatest(), 9999999999);
}

TEST(KeyIndexFind, TellsApartKeysThatShareTheirPlaces) {
  TestDatabase database;
  std::vector<std::string> rows;
  std::vector<long> ids;
  for (long i = 0; i < 3000; ++i) ids.push_back(i * 4096 % 99999999);
  for (const long id : ids) rows.push_back(RowMaker("event").set("evid", id).text());
  database.write("event", rows);
  const Handle handle(database.name(), "r");
  KeyIndex index("evid");
  EXPECT_TRUE(index.find(0).empty());
  index.follow(table_snapshot(handle.at("event")));
  for (std::size_t row = 0; row < ids.size(); ++row) {
    EXPECT_THAT(rows_of(index, ids[row]), testing::Contains(static_cast<long>(row)));
    EXPECT_TRUE(index.find(ids[row] + 1).empty());
  }
}

TEST(MatchIndex, SharesTheHookOfMatchesAndRefusesOtherPatterns) {
  TestDatabase database;
  database.write("origin", {RowMaker("origin").set("orid", 5L).set("evid", 2L).text(),
                            RowMaker("origin").set("orid", 6L).set("evid", 2L).text()});
  const Handle handle(database.name(), "r");
  Pattern evid({"evid"}), sta({"sta"});
  HookHolder hook;
  const auto snapshot = table_snapshot(handle.at("origin"));
  const KeyIndex *const index =
      match_index(snapshot, *evid.list(), *evid.list(), hook.hook());
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(rows_of(*index, 2), (std::vector<long>{0, 1}));
  EXPECT_EQ(matches(handle.at("origin", 0), handle.at("origin"), evid, evid, hook),
            (std::vector<long>{0, 1}));
  EXPECT_EQ(match_index(snapshot, *sta.list(), *sta.list(), hook.hook()), nullptr);
  EXPECT_THAT(messages(), testing::HasSubstr("match_index: 'sta' is not"));
}

}  // namespace
}  // namespace ksutil::db::test
