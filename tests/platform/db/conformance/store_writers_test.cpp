/* Writers on many machines share one database: what one of them loses, writes twice or
 * leaves half done is an earthquake without a location, or two of them under one id. */
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>

#include "platform/db/row_removal.h"
#include "tests/platform/db/conformance/suites.h"

namespace ksutil::db::conformance {
namespace {

using ksutil::test::taken_messages;

const std::vector<std::string> kTables{"origin", "event", "lastid"};
enum : std::size_t { kOrigin, kEvent, kLastid };

/* All rows of the tables of a step. */
using Rows = std::vector<std::vector<std::string>>;

Rows rows_in(DatabaseStore &store) {
  Rows rows;
  for (const std::string &table : kTables) rows.push_back(rows_of(*store.table(table)));
  return rows;
}

/* Three origins, and a counter at 3. */
Rows fill(DatabaseStore &store) {
  append_all(*store.table("origin"),
             origin_row(1, 1.0) + origin_row(2, 1.0) + origin_row(3, 1.0));
  append(*store.table("lastid"), lastid_row("orid", 3));
  return rows_in(store);
}

/* Two origins more and two changed, the first event, the counter moved on. */
bool change(Transaction &step) {
  return step.append(kOrigin, origin_row(4, 2.0)) == 3 &&
         step.overwrite(kOrigin, 0, origin_row(1, 5.0)) &&
         step.append(kOrigin, origin_row(5, 2.0)) == 4 &&
         step.overwrite(kOrigin, 2, origin_row(3, 6.0)) &&
         step.append(kEvent, event_row(7)) == 0 &&
         step.overwrite(kLastid, 0, lastid_row("orid", 5));
}

/* An event with its origin under the next id of the counter. */
bool add_event(Transaction &step) {
  const auto counter = step.snapshot(kLastid);
  if (counter == nullptr || counter->count() == 0) return false;
  const long id = integer_in(*counter, "keyvalue", 0) + 1;
  return step.append(kOrigin, origin_row(id, 0.0)) >= 0 &&
         step.append(kEvent, event_row(id, id)) >= 0 &&
         step.overwrite(kLastid, 0, lastid_row("orid", id));
}

TEST_P(StoreWriters, ATransactionMakesAllItsChangesOrNone) {
  const auto store = open(), reader = open("r");
  const Rows before = fill(*store);
  const auto refused = [&](const std::vector<std::string> &tables,
                           const std::function<bool(Transaction &)> &work) {
    EXPECT_FALSE(store->transaction(tables, work));
    EXPECT_EQ(rows_in(*store), before);
    EXPECT_EQ(rows_in(*reader), before);
  };
  refused(kTables, [](Transaction &step) {
    change(step);
    return false;
  });
  taken_messages();
  refused(kTables, [](Transaction &step) {
    return change(step) && step.append(kEvent, "short") >= 0;
  });
  EXPECT_NE(taken_messages(), "");
  refused(kTables, [](Transaction &step) {
    return change(step) && step.overwrite(kOrigin, 9, origin_row(1, 1.0));
  });
  EXPECT_NE(taken_messages(), "");
  refused({"origin", "nosuch"}, change);
  EXPECT_NE(taken_messages(), "");
  EXPECT_FALSE(reader->transaction(kTables, change));
  EXPECT_NE(taken_messages(), "");

  EXPECT_TRUE(store->transaction(kTables, [](Transaction &step) {
    const bool changed = change(step);
    EXPECT_EQ(step.snapshot(kOrigin)->count(), 3) << "as before, until it is made";
    EXPECT_EQ(step.layout(kEvent).name, "event");
    return changed;
  })) << taken_messages();
  const Rows after{{origin_row(1, 5.0), origin_row(2, 1.0), origin_row(3, 6.0),
                    origin_row(4, 2.0), origin_row(5, 2.0)},
                   {event_row(7)},
                   {lastid_row("orid", 5)}};
  EXPECT_EQ(rows_in(*store), after);
  EXPECT_EQ(rows_in(*reader), after);
  EXPECT_EQ(append(*store->table("event"), event_row(8)), 1);
}

TEST_P(StoreWriters, ATransactionReplacesAllRowsOrNone) {
  const auto store = open(), reader = open("r");
  const Rows before = fill(*store);
  const auto replace = [](Transaction &step) {
    return remove_all_rows(step, kOrigin) &&
           step.append(kOrigin, origin_row(8, 2.0)) == 0 &&
           step.append(kOrigin, origin_row(9, 3.0)) == 1 &&
           remove_all_rows(step, kLastid) && step.append(kEvent, event_row(7)) == 0;
  };
  EXPECT_FALSE(store->transaction(
      kTables, [&](Transaction &step) { return replace(step) && false; }));
  EXPECT_FALSE(store->transaction(kTables, [&](Transaction &step) {
    return replace(step) && step.append(kOrigin, "short") >= 0;
  }));
  taken_messages();
  EXPECT_EQ(rows_in(*store), before);
  EXPECT_EQ(rows_in(*reader), before);

  EXPECT_TRUE(store->transaction(kTables, replace)) << taken_messages();
  const Rows after{{origin_row(8, 2.0), origin_row(9, 3.0)}, {event_row(7)}, {}};
  EXPECT_EQ(rows_in(*store), after);
  EXPECT_EQ(rows_in(*reader), after);
  EXPECT_EQ(append(*store->table("origin"), origin_row(10, 1.0)), 2);
}

TEST_P(StoreWriters, WorkUnderTheLockSeesItsOwnRows) {
  const auto store = open();
  TableStore &table = *store->table("lastid");
  ASSERT_EQ(append(table, lastid_row("a", 1)), 0);
  EXPECT_TRUE(table.exclusively([](TableStore::Exclusive &rows) {
    EXPECT_EQ(rows.append(lastid_row("b", 2)), 1);
    EXPECT_TRUE(rows.overwrite(0, lastid_row("a", 9)));
    EXPECT_TRUE(rows.overwrite(1, lastid_row("b", 3)));
    const auto now = rows.snapshot();
    EXPECT_EQ(rows_of(*now),
              (std::vector<std::string>{lastid_row("a", 9), lastid_row("b", 3)}));
    EXPECT_EQ(rows.append_all(lastid_row("c", 4) + lastid_row("d", 5)), 2);
    return true;
  })) << taken_messages();
  EXPECT_EQ(rows_of(*open("r")->table("lastid")),
            (std::vector<std::string>{lastid_row("a", 9), lastid_row("b", 3),
                                      lastid_row("c", 4), lastid_row("d", 5)}));
  EXPECT_FALSE(table.exclusively([](TableStore::Exclusive &) { return false; }));
}

TEST_P(StoreWriters, ThreadsAndProcessesCountTogetherWithoutLoss) {
  constexpr int kSteps = 20, kEach = 2;
  ASSERT_EQ(append(*open()->table("lastid"), lastid_row("orid", 0)), 0);
  const auto count_on = [&] {
    const auto store = open();
    for (int i = 0; i < kSteps; i++) {
      if (!store->table("lastid")->exclusively([](TableStore::Exclusive &rows) {
            const long now = integer_in(*rows.snapshot(), "keyvalue", 0);
            return rows.overwrite(0, lastid_row("orid", now + 1)) &&
                   rows.append(lastid_row("x", now)) >= 0;
          })) {
        return false;
      }
    }
    return true;
  };
  std::vector<pid_t> processes;
  for (int i = 0; i < kEach; i++) processes.push_back(start_process(count_on));
  std::vector<std::thread> threads;
  for (int i = 0; i < kEach; i++) {
    threads.emplace_back([&] { EXPECT_TRUE(count_on()) << taken_messages(); });
  }
  for (std::thread &thread : threads) thread.join();
  for (const pid_t process : processes) EXPECT_TRUE(ended_well(process));
  const auto rows = open("r")->table("lastid")->snapshot();
  ASSERT_EQ(rows->count(), 2 * kEach * kSteps + 1);
  EXPECT_EQ(integer_in(*rows, "keyvalue", 0), 2 * kEach * kSteps);
  for (long i = 1; i < rows->count(); i++) {
    EXPECT_EQ(integer_in(*rows, "keyvalue", i), i - 1);
  }
}

TEST_P(StoreWriters, StepsOfSeveralProcessesFollowEachOther) {
  constexpr int kProcesses = 4, kSteps = 15;
  fill(*open());
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; i++) {
    children.push_back(start_process([&] {
      const auto store = open();
      bool good = true;
      for (int step = 0; step < kSteps && good; step++) {
        /* The first one writes single rows; the others name the tables in other orders. */
        good = i == 0 ? append(*store->table("origin"), origin_row(99, 0.0)) >= 0
                      : store->transaction(kTables, add_event);
        if (i == 3 && good) {
          good = store->transaction({"lastid", "event"}, [](Transaction &both) {
            return both.snapshot(0) != nullptr && both.snapshot(1) != nullptr;
          });
        }
      }
      return good;
    }));
  }
  for (const pid_t child : children) EXPECT_TRUE(ended_well(child));
  const auto store = open("r");
  EXPECT_EQ(store->table("origin")->snapshot()->count(), 3 + kProcesses * kSteps);
  const auto counter = store->table("lastid")->snapshot();
  const auto events = store->table("event")->snapshot();
  ASSERT_EQ(events->count(), (kProcesses - 1) * kSteps);
  EXPECT_EQ(integer_in(*counter, "keyvalue", 0), 3 + events->count());
  for (long i = 0; i < events->count(); i++) {
    EXPECT_EQ(integer_in(*events, "evid", i), 4 + i);
  }
}

TEST_P(StoreWriters, AReaderThatFindsAParentFindsItsChildren) {
  fill(*open());
  std::atomic<bool> done{false};
  std::thread writer([&] {
    const auto store = open();
    for (int i = 0; i < 40; i++) {
      EXPECT_TRUE(store->transaction(kTables, add_event)) << taken_messages();
    }
    done = true;
  });
  const auto store = open("r");
  long seen = 0;
  for (bool last = false; !last;) {
    last = done;
    const auto events = store->table("event")->snapshot();
    const auto origins = store->table("origin")->snapshot();
    ASSERT_NE(events, nullptr) << taken_messages();
    ASSERT_NE(origins, nullptr) << taken_messages();
    EXPECT_GE(events->count(), seen) << "rows have vanished";
    seen = events->count();
    std::set<long> orids;
    for (long i = 0; i < origins->count(); i++) {
      orids.insert(integer_in(*origins, "orid", i));
    }
    for (long i = 0; i < events->count(); i++) {
      EXPECT_TRUE(orids.contains(integer_in(*events, "prefor", i)));
    }
  }
  writer.join();
  EXPECT_EQ(seen, 40);
}

/* Each row is overwritten with a text whose fields agree; a mixture of two texts, or of a
 * row and its neighbour, does not. */
TEST_P(StoreWriters, ReadersSeeWholeRowsWhileWritersChangeThem) {
  const auto agreeing = [](long value) {
    return ksutil::test::RowMaker("origin")
        .set("orid", value)
        .set("evid", value)
        .set("auth", "v" + std::to_string(value))
        .text();
  };
  {
    const auto store = open();
    std::string many;
    for (long i = 0; i < 300; i++) many += agreeing(i);
    ASSERT_EQ(append_all(*store->table("origin"), many), 0);
  }
  std::atomic<bool> done{false};
  std::thread writer([&] {
    const auto store = open();
    for (long i = 0; i < 150; i++) {
      EXPECT_TRUE(
          overwrite(*store->table("origin"), (i * 37) % 300, agreeing(1000 + i)));
      if (i % 10 == 0) append(*store->table("origin"), agreeing(5000 + i));
    }
    done = true;
  });
  const auto store = open("r");
  long count = 0;
  for (bool last = false; !last;) {
    last = done;
    const auto rows = store->table("origin")->snapshot();
    ASSERT_NE(rows, nullptr) << taken_messages();
    EXPECT_GE(rows->count(), count);
    count = rows->count();
    for (long i = 0; i < count; i++) {
      const std::string text(rows->row(i));
      ASSERT_EQ(text, agreeing(integer_in(*rows, "orid", i)));
    }
  }
  writer.join();
  EXPECT_EQ(count, 315);
}

/* A child that writes until it is killed, and says through a pipe what it was told was
 * written. */
struct KilledWriter {
  pid_t child;
  std::vector<long> told;
};
KilledWriter run_and_kill(const std::function<long(long)> &write_one,
                          int microseconds) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = start_process([&] {
    close(ends[0]);
    for (long i = 0;; i++) {
      const long told = write_one(i);
      if (told < 0 || ::write(ends[1], &told, sizeof told) != sizeof told) return false;
    }
  });
  close(ends[1]);
  KilledWriter writer{child, {}};
  long told = 0;
  /* The time to its end begins with its first row. */
  if (::read(ends[0], &told, sizeof told) == sizeof told) writer.told.push_back(told);
  usleep(static_cast<useconds_t>(microseconds));
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status)) << "the writer has ended by itself";
  while (::read(ends[0], &told, sizeof told) == sizeof told)
    writer.told.push_back(told);
  close(ends[0]);
  return writer;
}

TEST_P(StoreWriters, AKilledWriterLeavesWholeRowsAndNoLock) {
  const auto store = open();
  TableStore &table = *store->table("lastid");
  std::size_t expected = 0;
  for (int round = 0; round < 5; round++) {
    std::unique_ptr<DatabaseStore> own;
    const KilledWriter writer = run_and_kill(
        [&](long i) {
          if (own == nullptr) own = open();
          return append(*own->table("lastid"), lastid_row("k" + std::to_string(i), i));
        },
        3000 + 4100 * round);
    ASSERT_GE(append(table, lastid_row("next", round)), 0) << taken_messages();
    const std::vector<std::string> rows = rows_of(table);
    const std::size_t told = writer.told.size();
    EXPECT_GE(rows.size(), expected + told + 1) << "a returned row is missing";
    EXPECT_LE(rows.size(), expected + told + 2) << "more than the row in hand";
    for (std::size_t i = 0; i + expected + 1 < rows.size(); i++) {
      EXPECT_EQ(rows[expected + i],
                lastid_row("k" + std::to_string(i), static_cast<long>(i)));
    }
    EXPECT_EQ(rows.back(), lastid_row("next", round));
    expected = rows.size();
  }
}

TEST_P(StoreWriters, AKilledStepIsMadeWholeOrNotAtAll) {
  fill(*open());
  for (int round = 0; round < 5; round++) {
    std::unique_ptr<DatabaseStore> own;
    const KilledWriter writer = run_and_kill(
        [&](long i) {
          if (own == nullptr) own = open();
          return own->transaction(kTables, add_event) ? i : -1;
        },
        2000 + 5300 * round);
    const auto store = open();
    const auto events_before = store->table("event")->snapshot()->count();
    ASSERT_TRUE(store->transaction(kTables, add_event)) << taken_messages();
    const auto events = store->table("event")->snapshot();
    const auto origins = store->table("origin")->snapshot();
    EXPECT_EQ(events->count(), events_before + 1);
    EXPECT_EQ(origins->count(), 3 + events->count());
    EXPECT_EQ(integer_in(*store->table("lastid")->snapshot(), "keyvalue", 0),
              3 + events->count());
    for (long i = 0; i < events->count(); i++) {
      EXPECT_EQ(integer_in(*events, "evid", i), 4 + i);
      EXPECT_EQ(integer_in(*origins, "orid", 3 + i), 4 + i);
    }
  }
}

}  // namespace
}  // namespace ksutil::db::conformance
