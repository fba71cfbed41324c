/* An import that repeats itself must not repeat the events, a revision must not cost the
 * ids that other rows refer to, and an import that fails must leave nothing behind. */
#include "formats/exchange/import/importer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <random>
#include <set>

#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/import/record_bytes.h"
#include "formats/exchange/import/row_index.h"
#include "platform/db/db.h"
#include "platform/db/store.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "tests/support/rows.h"
#include "tests/tools/scratch.h"
#include "tools/common/open_database.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tools::OpenDatabase;

Event event_at(const std::string &id, double time) {
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

class ImporterTest : public testing::Test {
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
    const OpenDatabase database(name_, "r");
    long count = -1;
    dbquery(database.table(name.c_str()), dbq_record_count, &count);
    return count;
  }

  /* The values of some fields of a row of each table. */
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

  const tools::ScratchFolder folder_;
  const std::string name_ = folder_ / "db";
};

/* An entry that is lost is an event that comes in twice.  Ids that ascend with the rows are
 * kept in another way than all others, and an index may change over at any entry. */
TEST(RowIndex, FindsWhatAMultimapFinds) {
  std::mt19937_64 random(7);
  for (const char *order : {"dense", "gaps", "repeated", "turns", "far", "hashes"}) {
    const std::string_view kind(order);
    RowIndex index;
    std::multimap<std::uint64_t, std::int64_t> model;
    std::uint64_t key = 1;
    std::int64_t row = 0;
    for (int i = 0; i < 1000; ++i) {
      if (kind == "dense") key++;
      if (kind == "gaps")
        key += random() % 900, row += static_cast<long>(random() % 900);
      if (kind == "repeated") key += i % 200 == 0 ? 1 : 0;
      if (kind == "turns") key = i < 500 ? key + 1 : key - 1;
      if (kind == "far") key += i % 100 == 99 ? 70000 : 1, row += i == 700 ? 70000 : 0;
      if (kind == "hashes") key = random();
      index.add(key, row);
      model.emplace(key, row++);
    }
    index.settle();
    std::set<std::uint64_t> keys{0, key + 1, ~std::uint64_t{0}};
    for (const auto &[known, at] : model) keys.insert({known, known - 1, known + 1});
    for (const std::uint64_t wanted : keys) {
      std::vector<std::int64_t> found, expected;
      for (const RowIndex::Item item : index.find(wanted)) found.push_back(item.row);
      const auto range = model.equal_range(wanted);
      for (auto at = range.first; at != range.second; ++at)
        expected.push_back(at->second);
      ASSERT_EQ(found, expected) << order << ' ' << wanted;
      EXPECT_EQ(index.find(wanted).size(), expected.size());
      EXPECT_EQ(index.first(static_cast<std::int64_t>(wanted)),
                expected.empty() ? -1 : expected.front());
    }
  }
}

TEST_F(ImporterTest, AddsRowsOnceAndRepeatsNothing) {
  EXPECT_EQ(import({event_at("b", 1.1e9), event_at("a", 1e9)}).added, 2);
  const Values b = values(1);
  EXPECT_EQ(b.ml, 4.5);
  EXPECT_EQ(b.magtype, "Ml");
  EXPECT_EQ(b.etype, "eq");
  EXPECT_EQ(b.sdobs, 0.5);
  EXPECT_THAT(table("remark"), HasSubstr("place: 10km N of b"));
  EXPECT_THAT(table("remark"), HasSubstr("gap: 161"));

  const std::string before = all_tables();
  EXPECT_EQ(import({event_at("a", 1e9), event_at("b", 1.1e9)}).unchanged, 2);
  EXPECT_EQ(all_tables(), before);
  /* The counters have moved, so that no other program gets an id twice. */
  const OpenDatabase database(name_, "r+");
  EXPECT_EQ(dbnextid(database.get(), "evid"), 3);
  EXPECT_EQ(dbnextid(database.get(), "commid"), 5);
}

TEST_F(ImporterTest, OfSeveralRevisionsInOneFileTheLatestCounts) {
  Event first = event_at("a", 1e9), last = first, tie = first;
  last.updated += 10.0;
  last.origins[0].magnitudes[0].value = 5.5;
  tie.origins[0].magnitudes[0].value = 5.0;
  for (const auto &order : {std::vector{first, last, tie}, {last, tie, first}}) {
    const Result result = run(order);
    const ImportCounts &counts = result.counts;
    EXPECT_EQ(result.superseded, 2);
    EXPECT_EQ(counts.added + counts.unchanged + counts.updated, 1);
    EXPECT_EQ(values(0).magnitude, 5.5);
    const std::string before = all_tables();
    EXPECT_EQ(run(order).counts.unchanged, 1);
    EXPECT_EQ(all_tables(), before);
  }
}

TEST_F(ImporterTest, RevisesInPlaceAndKeepsIds) {
  import({event_at("a", 1e9), event_at("b", 1.1e9)});
  const Values before = values(0);
  Event revised = event_at("a", 1e9);
  revised.updated += 500.0;
  revised.place = "elsewhere";
  revised.origins[0].rms = 0.75;
  revised.origins[0].magnitudes[0].value = 5.25;
  revised.origins[0].magnitudes[0].type = "mww";
  EXPECT_EQ(import({revised}).updated, 1);
  const Values after = values(0);
  EXPECT_EQ(after.evid, before.evid);
  EXPECT_EQ(after.orid, before.orid);
  EXPECT_EQ(after.magid, before.magid);
  EXPECT_EQ(after.magnitude, 5.25);
  EXPECT_EQ(after.ml, -999.0);
  EXPECT_EQ(after.sdobs, 0.75);
  EXPECT_EQ(values(1).magnitude, 4.5);
  EXPECT_THAT(table("remark"), HasSubstr("place: elsewhere "));
  EXPECT_THAT(table("remark"), testing::Not(HasSubstr("N of a")));

  const std::string kept = all_tables();
  EXPECT_EQ(import({event_at("a", 1e9)}).older, 1);
  EXPECT_EQ(all_tables(), kept);
}

TEST_F(ImporterTest, KeepsEarlierSolutionsWhenAsked) {
  import({event_at("a", 1e9)});
  Event revised = event_at("a", 1e9);
  ImportOptions keep;
  keep.keep_origins = true;
  EXPECT_EQ(import({revised}, keep).unchanged, 1);
  revised.updated += 5.0;
  EXPECT_EQ(import({revised}, keep).kept, 0) << "the same solution, loaded later";
  revised.updated += 5.0;
  revised.origins[0].depth = 33.0;
  const ImportCounts counts = import({revised}, keep);
  EXPECT_EQ(counts.updated, 1);
  EXPECT_EQ(counts.kept, 1);
  EXPECT_EQ(rows("event"), 1);
  EXPECT_EQ(rows("origin"), 2);
  EXPECT_EQ(rows("netmag"), 2);
  const OpenDatabase database(name_, "r");
  Dbptr event = database.table("event"), origin = database.table("origin");
  event.record = 0;
  origin.record = 1;
  long prefor = 0, orid = 0, evid = 0;
  double depth = 0.0;
  dbgetv(event, "prefor", &prefor, static_cast<char *>(nullptr));
  dbgetv(origin, "orid", &orid, "evid", &evid, "depth", &depth,
         static_cast<char *>(nullptr));
  EXPECT_EQ(prefor, orid);
  EXPECT_EQ(evid, 1);
  EXPECT_EQ(depth, 33.0);
  const std::string before = all_tables();
  EXPECT_EQ(import({revised}, keep).unchanged, 1);
  EXPECT_EQ(all_tables(), before);
}

TEST_F(ImporterTest, AddsTheMagnitudeThatComesLater) {
  Event bare = event_at("a", 1e9);
  bare.origins[0].magnitudes.clear();
  import({bare});
  EXPECT_EQ(table("netmag"), "");
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  EXPECT_EQ(import({revised}).updated, 1);
  EXPECT_EQ(values(0).magnitude, 4.5);
}

TEST_F(ImporterTest, LeavesCommentsOfOthersAlone) {
  import({event_at("a", 1e9)});
  {
    const OpenDatabase database(name_, "r+");
    Dbptr remark = database.table("remark");
    ASSERT_GE(dbaddv(remark, "commid", 1L, "lineno", 7L, "remark", "felt widely",
                     static_cast<char *>(nullptr)),
              0);
    remark.record = 0;
    ASSERT_EQ(dbputv(remark, "remark", "an analyst's", static_cast<char *>(nullptr)),
              0);
  }
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  import({revised});
  const std::string remarks = table("remark");
  for (const char *text :
       {"an analyst's", "felt widely", "place: 10km N of a", "gap:"}) {
    EXPECT_THAT(remarks, HasSubstr(text));
  }
}

/* Earlier versions kept the text id in event.evname alone. */
TEST_F(ImporterTest, RecognisesDatabasesWithoutPublicIds) {
  const std::string long_id = "official20110311054624120_30";
  import({event_at("a", 1e9), event_at(long_id, 1.1e9)});
  const std::string public_ids = table("publicid");
  std::filesystem::remove(name_ + ".publicid");
  EXPECT_EQ(import({event_at("a", 1e9), event_at(long_id, 1.1e9)}).unchanged, 2);
  EXPECT_EQ(rows("event"), 2);
  EXPECT_EQ(table("publicid"), public_ids);
  {
    /* From then on the name is free for a name. */
    const OpenDatabase database(name_, "r+");
    Dbptr event = database.table("event");
    event.record = 0;
    ASSERT_EQ(dbputv(event, "evname", "Tohoku", static_cast<char *>(nullptr)), 0);
  }
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  EXPECT_EQ(import({revised, event_at("Tohoku", 1.2e9)}).added, 1);
  EXPECT_EQ(rows("event"), 3);
}

TEST_F(ImporterTest, HealsOriginsThatLostTheirEvents) {
  import({event_at("a", 1e9), event_at("b", 1.1e9)});
  const std::string origins = table("origin"), netmags = table("netmag");
  std::filesystem::remove(name_ + ".event");
  std::filesystem::remove(name_ + ".publicid");
  const ImportCounts counts =
      import({event_at("b", 1.1e9), event_at("a", 1e9), event_at("c", 1.2e9)});
  EXPECT_EQ(counts.added, 3);
  EXPECT_EQ(counts.healed, 2);
  EXPECT_EQ(rows("origin"), 3);
  EXPECT_EQ(table("origin").substr(0, origins.size()), origins);
  EXPECT_EQ(table("netmag").substr(0, netmags.size()), netmags);
  EXPECT_EQ(values(0).evid, 1);
}

/* ksdb verify --fix gives such origins rows of event that say nothing but their ids. */
TEST_F(ImporterTest, TakesUpEventsThatWereMadeUpForOrigins) {
  import({event_at("a", 1e9), event_at("b", 1.1e9)});
  std::filesystem::remove(name_ + ".publicid");
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(name_.c_str(), "r+", &db), 0);
  Dbptr row = dblookup(db, "", "event", "", "");
  for (row.record = 0; row.record < 2; ++row.record) {
    ASSERT_EQ(dbputv(row, "evname", "-", test::kEndOfArguments), 0);
  }
  dbclose(db);
  const ImportCounts counts = import({event_at("b", 1.1e9), event_at("a", 1e9)});
  EXPECT_EQ(counts.healed, 2);
  EXPECT_EQ(rows("event"), 2);
  EXPECT_EQ(rows("origin"), 2);
  EXPECT_EQ(import({event_at("a", 1e9), event_at("b", 1.1e9)}).unchanged, 2);
}

TEST_F(ImporterTest, RefusesOneEventForAValueThatDoesNotFit) {
  Event early = event_at("early", -1.1e10);
  early.updated = 0.0;
  early.line = 7;
  const std::vector<Event> events{early, event_at("a", 1e9), event_at("b", 1.1e9)};
  ImportOptions options;
  options.strict = true;
  EXPECT_EQ(run(events, options).imported, Imported::kStrict);
  EXPECT_EQ(table("event") + table("origin") + table("lastid"), "");
  const Result result = run(events);
  EXPECT_EQ(result.counts.added, 2);
  EXPECT_EQ(result.counts.refused, 1);
  EXPECT_THAT(result.refused,
              ElementsAre(HasSubstr("7: origin.time cannot hold 1621")));
  EXPECT_EQ(values(1).evid, 2) << "a refused event takes no id";
}

TEST_F(ImporterTest, DryRunCountsAndChangesNothing) {
  import({event_at("a", 1e9)});
  const std::string before = all_tables();
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  ImportOptions options;
  options.dry_run = true;
  const ImportCounts counts = import({revised, event_at("b", 1.1e9)}, options);
  EXPECT_EQ(counts.added, 1);
  EXPECT_EQ(counts.updated, 1);
  EXPECT_EQ(all_tables(), before);
}

/* The write that fails, counted from 0, and whether the process dies there instead. */
struct {
  int at = -1, calls = 0;
  bool kill = false;
} strike;

ssize_t striking_pwrite(int fd, const void *from, std::size_t bytes, off_t at) {
  if (strike.calls++ != strike.at) return ::pwrite(fd, from, bytes, at);
  if (strike.kill) ::raise(SIGKILL);
  errno = ENOSPC;
  return -1;
}

class ImportFaults : public ImporterTest {
 protected:
  ImportFaults() : calls_(system_file_calls()) { calls_.pwrite = striking_pwrite; }
  static std::vector<Event> events() {
    std::vector<Event> events;
    for (int i = 0; i < 3000; i++) {
      events.push_back(event_at("e" + std::to_string(i), 1e9 + i));
    }
    events[0].updated += 1.0;
    return events;
  }
  FileCalls calls_;
};

TEST_F(ImportFaults, AFullDiskLeavesTheDatabaseAsItWas) {
  import({event_at("e0", 1e9)});
  const std::string before = all_tables();
  int failures = 0;
  for (int at = 0;; at++) {
    strike = {at, 0, false};
    const ScopedFileCalls scope(calls_);
    const Result result = run(events());
    if (result.imported == Imported::kYes) {
      EXPECT_EQ(result.counts.added, 2999);
      EXPECT_EQ(result.counts.updated, 1);
      break;
    }
    failures++;
    ASSERT_EQ(all_tables(), before) << "write " << at;
    ASSERT_FALSE(std::filesystem::exists(name_ + ".journal"));
  }
  EXPECT_GT(failures, 20);
  EXPECT_EQ(import(events()).unchanged, 3000);
}

TEST_F(ImportFaults, AKilledImportIsFinishedOrUndoneByTheNext) {
  import({event_at("e0", 1e9)});
  const std::string first = all_tables();
  int undone = 0, finished = 0;
  for (int at = 0; at < 1000; at += 3) {
    const pid_t child = fork();
    if (child == 0) {
      strike = {at, 0, true};
      const ScopedFileCalls scope(calls_);
      run(events());
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (!WIFSIGNALED(status)) break;
    const ImportCounts counts = import({event_at("e0", 1e9)});
    EXPECT_FALSE(std::filesystem::exists(name_ + ".journal"));
    const long events = rows("event");
    EXPECT_TRUE(events == 1 || events == 3000) << events;
    EXPECT_EQ(rows("origin"), events);
    EXPECT_EQ(rows("netmag"), events);
    if (events == 1) {
      EXPECT_EQ(all_tables(), first);
      undone++;
      continue;
    }
    EXPECT_EQ(counts.older, 1);
    finished++;
    break;
  }
  EXPECT_GT(undone, 3);
  EXPECT_EQ(finished, 1);
}

TEST_F(ImporterTest, TwoImportsAtOnceAddEachEventOnce) {
  std::vector<Event> events;
  for (int i = 0; i < 200; i++) {
    events.push_back(event_at("e" + std::to_string(i), 1e9 + i));
  }
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
  EXPECT_EQ(rows("origin"), 200);
}

/* Rows of a table, which counts how often one is read. */
class CountingRows final : public db::Snapshot {
 public:
  CountingRows(std::shared_ptr<const db::Snapshot> rows, long &reads)
      : Snapshot(std::shared_ptr<const db::Relation>(rows, &rows->layout()),
                 rows->stamp()),
        rows_(std::move(rows)),
        reads_(reads) {}
  std::string_view row(long record) const override {
    reads_++;
    return rows_->row(record);
  }
  db::RowText text(long record) const override { return rows_->text(record); }
  bool complete() const override { return rows_->complete(); }
  db::Changes changes_to(const Snapshot &) const override { return {}; }

 private:
  const std::shared_ptr<const db::Snapshot> rows_;
  long &reads_;
};

class CountingTransaction final : public db::Transaction {
 public:
  CountingTransaction(db::Transaction &step, long &reads)
      : step_(step), reads_(reads) {}
  const db::Relation &layout(std::size_t table) const override {
    return step_.layout(table);
  }
  std::shared_ptr<const db::Snapshot> snapshot(std::size_t table) override {
    return std::make_shared<CountingRows>(step_.snapshot(table), reads_);
  }
  long append(std::size_t table, std::string_view rows) override {
    return step_.append(table, rows);
  }
  bool overwrite(std::size_t table, long record, std::string_view row) override {
    return step_.overwrite(table, record, row);
  }

 private:
  db::Transaction &step_;
  long &reads_;
};

class CountingStore final : public db::DatabaseStore {
 public:
  explicit CountingStore(db::DatabaseStore &store) : store_(store) {}
  const std::string &name() const override { return store_.name(); }
  std::shared_ptr<const db::Schema> schema() const override { return store_.schema(); }
  bool writable() const override { return true; }
  db::TableStore *table(std::string_view name) override { return store_.table(name); }
  bool transaction(const std::vector<std::string> &tables,
                   const std::function<bool(db::Transaction &)> &work) override {
    return store_.transaction(tables, [&](db::Transaction &step) {
      CountingTransaction counting(step, reads_);
      return work(counting);
    });
  }
  long reads() const { return reads_; }

 private:
  db::DatabaseStore &store_;
  long reads_ = 0;
};

/* A catalogue of a million events takes minutes when each part of an import looks at all
 * rows again. */
TEST_F(ImporterTest, ReadsRowsInProportionToTheEvents) {
  long added = 0;
  const auto reads_with = [&](long count) {
    std::vector<Event> events;
    for (; added < count; added++) {
      events.push_back(
          event_at("e" + std::to_string(added), 1e9 + static_cast<double>(added)));
    }
    import(events);
    Gathering again;
    for (long i = 0; i < count; i++) {
      EXPECT_TRUE(
          again.add(event_at("e" + std::to_string(i), 1e9 + static_cast<double>(i))));
    }
    const auto store = db::open_store(name_, "r+", 1 << 26);
    CountingStore counting(*store);
    ImportCounts counts;
    EXPECT_EQ(import_events(counting, again, {}, {}, counts), Imported::kYes);
    EXPECT_EQ(counts.unchanged, count);
    return counting.reads();
  };
  const long few = reads_with(1000), many = reads_with(4000);
  EXPECT_GT(few, 1000);
  EXPECT_LE(many, 4 * few + 100);
}

/* Beyond its memory the gathering writes to a file: order, revisions and contents must not
 * depend on where an event lies. */
TEST(Gathering, KeepsMoreThanItsMemoryHolds) {
  constexpr int kEvents = 3000;
  const std::string filler(40000, 'x');
  Gathering gathering;
  for (int pass = 0; pass < 2; pass++) {
    for (int i = 0; i < kEvents; i++) {
      Event event = event_at("e" + std::to_string(i * 7 % kEvents), 1e9 - i);
      event.place = std::to_string(pass) + (pass == 0 ? filler : "");
      event.updated += pass;
      ASSERT_TRUE(gathering.add(event)) << gathering.problem();
    }
  }
  EXPECT_EQ(gathering.superseded(), kEvents);
  double last = 0.0;
  for (const std::uint32_t index : gathering.by_time()) {
    Event event;
    ASSERT_TRUE(gathering.get(index, event));
    EXPECT_EQ(event.place, "1");
    EXPECT_GT(event.origins[0].time, last);
    last = event.origins[0].time;
  }
}

TEST(EventName, KeepsShortIdsAndTellsLongOnesApart) {
  EXPECT_EQ(event_name("us700063vr", 15), "us700063vr");
  const std::string one = event_name("official20110311054624120_30", 15),
                    other = event_name("official20110311054624120_31", 15);
  EXPECT_EQ(one.size(), 15U);
  EXPECT_EQ(one.substr(0, 9), "official~");
  EXPECT_NE(one, other);
}

}  // namespace
}  // namespace ksutil::exchange
