/* StoreBackend: what a store brings to the tests that every store has to pass, and the
 * rows that these tests write. */
#ifndef KSUTIL_TESTS_PLATFORM_DB_CONFORMANCE_STORE_BACKEND_H
#define KSUTIL_TESTS_PLATFORM_DB_CONFORMANCE_STORE_BACKEND_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/store.h"
#include "tests/support/register.h"
#include "tests/support/rows.h"

namespace ksutil::db::conformance {

/* An empty css3.0 database of one store, removed at the end of the scope. */
class StoreBackend {
 public:
  virtual ~StoreBackend() = default;
  /* The name under which programs open it. */
  virtual const std::string &name() const = 0;
  /* Makes the text of one row unreadable, as a careless program would. */
  virtual void damage(const std::string &table, long record) = 0;
};

struct StoreKind {
  const char *name;
  /* Whether the tests of this store can run here; else they skip or fail. */
  void (*check)();
  std::unique_ptr<StoreBackend> (*make)();
};

inline std::string kind_name(const testing::TestParamInfo<StoreKind> &info) {
  return info.param.name;
}

/* One database of the store for each test. */
class StoreTest : public testing::TestWithParam<StoreKind> {
 protected:
  void SetUp() override {
    GetParam().check();
    if (HasFatalFailure() || IsSkipped()) return;
    backend_ = GetParam().make();
  }
  void TearDown() override { ksutil::test::taken_messages(); }

  const std::string &name() const { return backend_->name(); }
  std::unique_ptr<DatabaseStore> open(const char *mode = "r+",
                                      std::size_t budget = std::size_t{64}
                                                           << 20) const {
    auto store = open_store(name(), mode, budget);
    if (store == nullptr) throw std::runtime_error(ksutil::test::taken_messages());
    return store;
  }

  std::unique_ptr<StoreBackend> backend_;
};

inline std::string lastid_row(const std::string &counter, long value) {
  return ksutil::test::RowMaker("lastid")
      .set("keyname", counter)
      .set("keyvalue", value)
      .text();
}
inline std::string origin_row(long orid, double lat) {
  return ksutil::test::RowMaker("origin")
      .set("orid", orid)
      .set("lat", lat)
      .set("time", 1274400000.25)
      .text();
}
inline std::string event_row(long evid, long prefor = -1) {
  return ksutil::test::RowMaker("event").set("evid", evid).set("prefor", prefor).text();
}

/* An integer field of a row; -999 when it cannot be read. */
inline std::int64_t integer_in(const Snapshot &rows, const char *field, long record) {
  std::int64_t value = -999;
  EXPECT_TRUE(IntegerColumn(rows.layout(), field).read(rows.row(record), value));
  return value;
}

inline std::vector<std::string> rows_of(const Snapshot &snapshot) {
  std::vector<std::string> rows;
  for (long i = 0; i < snapshot.count(); i++) rows.emplace_back(snapshot.row(i));
  return rows;
}
inline std::vector<std::string> rows_of(TableStore &table) {
  const auto snapshot = table.snapshot();
  EXPECT_NE(snapshot, nullptr) << ksutil::test::taken_messages();
  return snapshot == nullptr ? std::vector<std::string>() : rows_of(*snapshot);
}

inline long append(TableStore &table, const std::string &row) {
  long record = -1;
  const bool made = table.exclusively([&](TableStore::Exclusive &rows) {
    record = rows.append(row);
    return record >= 0;
  });
  return made ? record : -1;
}
inline long append_all(TableStore &table, const std::string &many) {
  long record = -1;
  const bool made = table.exclusively([&](TableStore::Exclusive &rows) {
    record = rows.append_all(many);
    return record >= 0;
  });
  return made ? record : -1;
}
inline bool overwrite(TableStore &table, long record, const std::string &row) {
  return table.exclusively(
      [&](TableStore::Exclusive &rows) { return rows.overwrite(record, row); });
}

/* Runs `work` in a child process and returns the child; the process ends with 0 when it
 * gave true. */
pid_t start_process(const std::function<bool()> &work);
/* Waits for a child: whether it ended with 0. */
bool ended_well(pid_t child);

}  // namespace ksutil::db::conformance
#endif
