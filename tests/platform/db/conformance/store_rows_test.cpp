/* A store that hands out another byte than was given to it, or misses a change, is a
 * wrong magnitude on every screen of the network. */
#include <algorithm>
#include <random>
#include <set>

#include "platform/db/row_removal.h"
#include "tests/platform/db/conformance/suites.h"

namespace ksutil::db::conformance {
namespace {

using ksutil::test::taken_messages;

bool removed(TableStore &table, const std::vector<long> &records) {
  return table.exclusively(
      [&](TableStore::Exclusive &rows) { return remove_rows(rows, records); });
}

TEST_P(StoreRows, StartsWithTheTablesOfItsSchemaAllEmpty) {
  const auto store = open();
  EXPECT_EQ(store->name(), name());
  EXPECT_TRUE(store->writable());
  EXPECT_EQ(store->schema()->name(), "css3.0");
  for (const Relation &relation : store->schema()->relations()) {
    TableStore *const table = store->table(relation.name);
    ASSERT_NE(table, nullptr) << relation.name;
    EXPECT_EQ(store->table(relation.name), table);
    Stamp stamp;
    EXPECT_TRUE(table->stamp(stamp)) << taken_messages();
    EXPECT_EQ(stamp.count, 0);
    EXPECT_EQ(table->layout().width, relation.width);
    const auto rows = table->snapshot();
    ASSERT_NE(rows, nullptr) << taken_messages();
    EXPECT_EQ(rows->count(), 0);
    EXPECT_TRUE(rows->complete());
    EXPECT_EQ(rows->row(0), "");
    EXPECT_NE(taken_messages(), "");
  }
  EXPECT_EQ(store->table("nosuch"), nullptr);
  EXPECT_EQ(open_store(name() + "x", "r+", 1 << 20), nullptr);
  EXPECT_NE(taken_messages(), "");
}

/* Values of each type at the edges of what its field can show, in every table. */
std::string edge_row(const Relation &layout, std::mt19937 &random) {
  static const char *const kTexts[] = {
      "a",  "it's", "a\\b", "\"q\"", "x  y", "%s", "\\N", "NULL", ";--",   "{a,b}",
      "$1", "\\.",  "<&>",  "-",     "0",    "\\", "'",   "é",    "\\001", "true"};
  std::string row = null_record(layout);
  for (const Field &field : layout.fields) {
    const auto dice = random() % 6;
    if (dice == 0) continue;  // the null
    const auto digits = static_cast<int>(
        random() % static_cast<unsigned>(std::min(field.width, 17)) + 1);
    std::string number(static_cast<std::size_t>(digits), '9');
    if (dice == 1 && digits > 1) number[0] = '-';
    if (dice == 2) number = "0";
    bool written = true;
    switch (field.type) {
      case FieldType::kInteger:
      case FieldType::kYearday:
        written = write_integer(field, std::stol(number), row);
        break;
      case FieldType::kReal:
      case FieldType::kTime:
      case FieldType::kDate: {
        const double value = (dice == 1 ? -1.0 : 1.0) *
                             static_cast<double>(random() % 100000000) /
                             (field.type == FieldType::kReal ? 1e7 : 1e-1);
        written = write_real(field, dice == 2 ? 0.0 : value, row);
        break;
      }
      case FieldType::kText: {
        std::string text = kTexts[random() % std::size(kTexts)];
        if (text.size() > static_cast<std::size_t>(field.width)) text = "z";
        if (dice == 3) text = std::string(static_cast<std::size_t>(field.width), 'W');
        written = write_text(field, text, row);
        break;
      }
      default:
        break;
    }
    if (!written) taken_messages();
  }
  return row;
}

TEST_P(StoreRows, GivesBackEveryTableByteForByte) {
  const auto writer = open();
  std::mt19937 random(5);
  for (const Relation &relation : writer->schema()->relations()) {
    std::vector<std::string> written;
    std::string many;
    for (int i = 0; i < 25; i++) {
      written.push_back(edge_row(relation, random));
      many += written.back();
    }
    TableStore &table = *writer->table(relation.name);
    EXPECT_EQ(append_all(table, many), 0) << relation.name << taken_messages();
    written.push_back(edge_row(relation, random));
    std::string last = written.back();
    last.pop_back();  // a newline at the end may be missing
    EXPECT_EQ(append(table, last), 25);
    written[3] = edge_row(relation, random);
    EXPECT_TRUE(overwrite(table, 3, written[3])) << taken_messages();
    EXPECT_EQ(rows_of(table), written) << relation.name;
  }
  const auto reader = open("r");
  for (const Relation &relation : writer->schema()->relations()) {
    EXPECT_EQ(rows_of(*reader->table(relation.name)),
              rows_of(*writer->table(relation.name)))
        << relation.name;
  }
}

TEST_P(StoreRows, RefusesWhatIsNoRowAndChangesNothing) {
  const auto store = open();
  TableStore &table = *store->table("lastid");
  ASSERT_EQ(append(table, lastid_row("a", 1)), 0);
  const std::string row = lastid_row("b", 2);
  const auto refused = [&](const std::function<bool(TableStore::Exclusive &)> &work) {
    EXPECT_FALSE(table.exclusively(work));
    EXPECT_NE(taken_messages(), "");
    EXPECT_EQ(rows_of(*open("r")->table("lastid")),
              std::vector<std::string>{lastid_row("a", 1)});
  };
  using Rows = TableStore::Exclusive;
  refused([&](Rows &rows) { return rows.append(row.substr(3)) >= 0; });
  refused([&](Rows &rows) { return rows.append(row + "x") >= 0; });
  refused([&](Rows &rows) { return rows.append_all(row + row.substr(3)) >= 0; });
  refused([&](Rows &rows) { return rows.overwrite(0, row.substr(1)); });
  refused([&](Rows &rows) { return rows.overwrite(1, row); });
  refused([&](Rows &rows) { return rows.overwrite(-1, row); });

  const auto reader = open("r");
  EXPECT_FALSE(reader->writable());
  EXPECT_EQ(append(*reader->table("lastid"), row), -1);
  EXPECT_NE(taken_messages(), "");
  EXPECT_EQ(append(table, row), 1);
  EXPECT_EQ(rows_of(*reader->table("lastid")).size(), 2);
}

TEST_P(StoreRows, StampsMoveWithEveryChangeAndOnlyThen) {
  const auto writer = open(), reader = open("r");
  TableStore &table = *writer->table("origin");
  TableStore &other = *reader->table("origin");
  ASSERT_EQ(append(table, origin_row(1, 1.0)), 0);
  const auto changes = std::vector<std::function<void()>>{
      [&] { append(table, origin_row(2, 1.0)); },
      [&] { overwrite(table, 0, origin_row(1, 2.0)); }, [&] { removed(table, {1}); },
      [&] { append_all(table, origin_row(3, 1.0) + origin_row(4, 1.0)); },
      [&] {
        writer->transaction({"origin"}, [](Transaction &step) {
          return step.overwrite(0, 1, origin_row(3, 9.0));
        });
      }};
  for (const auto &change : changes) {
    Stamp before, same, after;
    ASSERT_TRUE(other.stamp(before));
    EXPECT_TRUE(before.exists);
    const auto rows = other.snapshot();
    EXPECT_EQ(rows->stamp(), before);
    ASSERT_TRUE(other.stamp(same));
    EXPECT_EQ(same, before);
    EXPECT_EQ(other.snapshot(), rows) << "the same object while nothing changes";
    const auto anew = other.snapshot_anew();
    EXPECT_NE(anew, rows);
    EXPECT_EQ(rows_of(*anew), rows_of(*rows));

    change();
    ASSERT_TRUE(other.stamp(after));
    EXPECT_NE(after, before);
    EXPECT_GT(after.time, before.time);
    EXPECT_EQ(after.count, other.snapshot()->count());
    EXPECT_EQ(rows_of(other), rows_of(table));
    Stamp own;
    ASSERT_TRUE(table.stamp(own));
    EXPECT_EQ(own.time, after.time);
  }
}

TEST_P(StoreRows, AHeldSnapshotNeverChanges) {
  auto writer = open(), reader = open("r");
  TableStore &table = *writer->table("origin");
  std::string many;
  for (long i = 0; i < 2000; i++) many += origin_row(i, 1.0);
  ASSERT_EQ(append_all(table, many), 0);
  const auto held = reader->table("origin")->snapshot();
  const std::vector<std::string> before = rows_of(*held);
  const RowText text = held->text(7);
  for (long i = 0; i < 90; i += 3) {
    ASSERT_TRUE(overwrite(table, i, origin_row(i, 2.0)));
  }
  append(table, origin_row(5000, 1.0));
  ASSERT_TRUE(removed(table, {0, 7, 1999}));
  const auto now = reader->table("origin")->snapshot();
  EXPECT_EQ(now->count(), 1998);
  EXPECT_EQ(rows_of(*held), before);
  reader.reset();
  writer.reset();
  EXPECT_EQ(rows_of(*held), before);
  EXPECT_EQ(text.str(), before[7]);
}

/* Random writes of one program, followed by another that looks now and then. */
TEST_P(StoreRows, ChangesBetweenSnapshotsAreThoseThatWereMade) {
  const auto writer = open(), reader = open("r");
  TableStore &table = *writer->table("origin");
  TableStore &followed = *reader->table("origin");
  std::mt19937 random(11);
  std::vector<std::string> model;
  auto before = followed.snapshot();
  std::vector<std::string> old;
  for (int round = 0; round < 40; round++) {
    for (unsigned i = 0; i < random() % 5; i++) {
      const auto dice = random() % 3;
      if (dice == 0 || model.empty()) {
        std::string many;
        for (unsigned n = 0; n <= random() % 40; n++) {
          model.push_back(origin_row(static_cast<long>(random() % 999), 1.0));
          many += model.back();
        }
        ASSERT_GE(append_all(table, many), 0);
      } else {
        const std::size_t record = random() % model.size();
        /* Often the same text again, which is not a change. */
        if (dice == 1) {
          model[record] = origin_row(static_cast<long>(random() % 999), 2.0);
        }
        ASSERT_TRUE(overwrite(table, static_cast<long>(record), model[record]));
      }
    }
    const auto after = followed.snapshot();
    ASSERT_NE(after, nullptr) << taken_messages();
    EXPECT_EQ(rows_of(*after), model);
    std::vector<long> expected;
    for (std::size_t i = 0; i < old.size(); i++) {
      if (old[i] != model[i]) expected.push_back(static_cast<long>(i));
    }
    const Changes changes = changes_between(*before, *after);
    EXPECT_TRUE(changes.known);
    EXPECT_EQ(changes.changed, expected) << "round " << round;
    EXPECT_EQ(changes.old_count, static_cast<long>(old.size()));
    EXPECT_EQ(changes.new_count, static_cast<long>(model.size()));
    before = after;
    old = model;
  }
}

TEST_P(StoreRows, RemovalTakesTheRowsOfAListAndNoOthers) {
  const auto writer = open(), reader = open("r");
  TableStore &table = *writer->table("lastid");
  std::mt19937 random(7);
  std::vector<std::string> model;
  for (int round = 0; round < 12; round++) {
    std::string many;
    for (unsigned i = 0; i < 1 + random() % 200; i++) {
      model.push_back(lastid_row("k", static_cast<long>(random() % 100000)));
      many += model.back();
    }
    ASSERT_GE(append_all(table, many), 0);
    std::vector<long> records;
    std::vector<std::string> left;
    const auto share = random() % 5;
    for (std::size_t i = 0; i < model.size(); i++) {
      if (random() % 4 < share) {
        records.push_back(static_cast<long>(i));
      } else {
        left.push_back(model[i]);
      }
    }
    std::shuffle(records.begin(), records.end(), random);
    const auto held = reader->table("lastid")->snapshot();
    const std::vector<std::string> before = rows_of(*held);
    ASSERT_TRUE(removed(table, records)) << taken_messages();
    EXPECT_EQ(rows_of(table), left);
    EXPECT_EQ(rows_of(*reader->table("lastid")), left);
    EXPECT_EQ(rows_of(*held), before);
    model = std::move(left);
  }
  EXPECT_FALSE(removed(table, {static_cast<long>(model.size())}));
  EXPECT_FALSE(removed(table, {-1}));
  EXPECT_NE(taken_messages(), "");
  EXPECT_EQ(rows_of(table), model);
}

TEST_P(StoreRows, MoreRowsThanTheBudgetOfBlocksAreAllRead) {
  const auto writer = open();
  std::string many;
  for (long i = 0; i < 30000; i++) many += origin_row(i, 1.0);
  ASSERT_EQ(append_all(*writer->table("origin"), many), 0);
  const auto reader = open("r", std::size_t{2} << 20);
  const auto rows = reader->table("origin")->snapshot();
  ASSERT_EQ(rows->count(), 30000);
  std::mt19937 random(3);
  for (int i = 0; i < 300; i++) {
    const auto record = static_cast<long>(random() % 30000);
    ASSERT_EQ(rows->row(record), origin_row(record, 1.0)) << taken_messages();
  }
  ASSERT_TRUE(overwrite(*writer->table("origin"), 17, origin_row(17, 5.0)));
  EXPECT_EQ(reader->table("origin")->snapshot()->row(17), origin_row(17, 5.0));
  EXPECT_TRUE(rows->complete());
}

TEST_P(StoreRows, AnUnreadableRowKeepsItsPlaceAndSpoilsNoOther) {
  const auto store = open();
  TableStore &table = *store->table("origin");
  for (long i = 0; i < 4; i++) ASSERT_EQ(append(table, origin_row(i, 1.0)), i);
  backend_->damage("origin", 2);
  const auto rows = table.snapshot_anew();
  ASSERT_EQ(rows->count(), 4);
  EXPECT_EQ(rows->row(2), "");
  EXPECT_THAT(taken_messages(), testing::HasSubstr("origin"));
  for (const long record : {0L, 1L, 3L}) {
    EXPECT_EQ(rows->row(record), origin_row(record, 1.0));
  }
  const ksutil::test::OpenDatabase db(name(), "r");
  long unreadable = -1;
  EXPECT_EQ(dbquery(db.at("origin"), dbq_unreadable_count, &unreadable), 0);
  EXPECT_EQ(unreadable, 1);
}

}  // namespace
}  // namespace ksutil::db::conformance
