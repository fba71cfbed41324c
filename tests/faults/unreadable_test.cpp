/* A disk that fails for a moment, or memory that is short, must not make a station vanish
 * from a list or an expression look misspelt: the user would mend what is not broken.
 * Each call of one piece of work is made to fail, one after another. */
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <new>
#include <string>

#include "events/kseventview.h"
#include "formats/exchange/export/export_tables.h"
#include "formats/waveform_index/waveform_scan.h"
#include "platform/db/db.h"
#include "platform/db/store.h"
#include "platform/db/view_rows.h"
#include "platform/stock/owners.h"
#include "tests/faults/fault_plan.h"
#include "tests/support/register.h"
#include "waveforms/ksdsseis.h"

namespace {

using namespace ksutil;
using faults::Kind;
using test::taken_messages;

struct Failing {
  const char *name;
  Kind kind;
  int error;
};

class Unreadable : public testing::TestWithParam<Failing> {
 protected:
  void TearDown() override { taken_messages(); }

  /* Does the work with its n-th call failing, for n = 1, 2, 3 ... up to the last one, and
   * calls judge(n) after each, unless the work throws: no caller overlooks that. */
  static void fail_each(const std::function<void()> &work,
                        const std::function<void(long)> &judge) {
    long strikes = 1;
    for (long n = 1; strikes > 0; n++) {
      taken_messages();
      const faults::Plan plan{GetParam().kind, faults::Way::kOnce, GetParam().error, n};
      ksutil_faults_arm(&plan);
      bool thrown = false;
      try {
        work();
      } catch (const std::bad_alloc &) {
        thrown = true;
      }
      strikes = ksutil_faults_counts()->strikes;
      ksutil_faults_arm(nullptr);
      if (!thrown) judge(n);
      if (HasFailure()) return;
    }
  }

  /* Work that fails tells of it, or gives nothing: never something else than `good`. */
  static void expect_told(const std::function<std::string()> &work,
                          const std::string &good) {
    std::string told;
    fail_each([&] { told = work(); },
              [&](long n) {
                const bool silent = taken_messages().empty();
                EXPECT_TRUE(!silent || told.empty() || told == good)
                    << "call " << n << ": " << told;
              });
  }
};

class Opened {
 public:
  explicit Opened(const char *name) {
    const std::string path = std::string(KSUTIL_SOURCE_DIR "/data/") + name;
    if (dbopen_noshare(path.c_str(), "r", &db_) != 0) db_ = dbinvalid();
  }
  ~Opened() {
    if (db_.database != dbINVALID) dbclose(db_);
  }
  Opened(const Opened &) = delete;
  Opened &operator=(const Opened &) = delete;
  Dbptr get() const { return db_; }
  Dbptr table(const char *name) const { return dblookup(db_, "", name, "", ""); }

 private:
  Dbptr db_ = dbinvalid();
};

/* What a data set says of its channels; "" when it cannot be had, or tells of rows that
 * cannot be used. */
std::string told_of_channels() {
  const Opened database("mlr/mlr");
  if (database.get().database == dbINVALID) return "";
  ksdsseis *const set = ksdsseis_open(database.get(), "", "", 0.0, 0.0);
  if (set == nullptr) return "";
  std::string told;
  for (int i = 0; i < ksdsseis_count(set); i++) {
    const ksdsseis_channel &channel = *ksdsseis_describe(set, i);
    told += std::string(channel.chan) + ' ' + std::to_string(channel.lat) + ' ' +
            std::to_string(channel.hang) + ' ' + channel.instype + " without " +
            channel.missing_text + '\n';
  }
  const bool whole = ksdsseis_unusable(set) == 0;
  ksdsseis_close(set);
  return whole ? told : "";
}

TEST_P(Unreadable, MetadataIsNotTakenForMissing) {
  const std::string good = told_of_channels();
  ASSERT_EQ(taken_messages(), "");
  ASSERT_NE(good, "");
  expect_told(told_of_channels, good);
}

/* The preferred magnitude of an event; "" when it cannot be had. */
std::string told_of_event() {
  KSEventView view(nullptr);
  const std::string name = KSUTIL_SOURCE_DIR "/data/ridge";
  if (view.configure("dbname", name.c_str(), static_cast<char *>(nullptr)) < 0)
    return "";
  KSEVEvent *const event = view.findEvid(17);
  if (event == nullptr) return "";
  const double magnitude = event->magnitude;
  view.freeEvent(event);
  return std::to_string(magnitude);
}

TEST_P(Unreadable, RulesOfMagnitudesAreNotTakenForMissing) {
  const std::string good = told_of_event();
  ASSERT_NE(good, "");
  expect_told(told_of_event, good);
}

TEST_P(Unreadable, FilesAreNotTakenForOtherKinds) {
  long others = 0, refused = 0;
  bool added = false;
  const auto scan = [&] {
    others = refused = 0;
    waveform_index::ScanListener listener;
    listener.other = [&](const std::string &) { others++; };
    listener.refused = [&](const std::string &, const std::string &) { refused++; };
    added = waveform_index::Scan(listener).add(KSUTIL_SOURCE_DIR "/data/mlr");
  };
  scan();
  ASSERT_TRUE(added);
  const long good = others;
  ASSERT_GT(good, 5);
  fail_each(scan, [&](long n) {
    EXPECT_TRUE(!added || refused > 0 || others == good) << "call " << n;
  });
}

TEST_P(Unreadable, TablesOfAnExportAreTold) {
  bool opened = false;
  fail_each(
      [&] {
        const auto store =
            db::open_store(KSUTIL_SOURCE_DIR "/data/ridge", "r", 1 << 20);
        exchange::ExportTables tables;
        opened = store != nullptr && tables.open(*store);
      },
      [&](long n) {
        const bool silent = taken_messages().empty();
        EXPECT_TRUE(opened || !silent) << "call " << n;
      });
}

TEST_P(Unreadable, ConditionIsNotTakenForWrong) {
  bool wrong = false, good = false;
  fail_each(
      [&] {
        const Opened database("ridge");
        good = db::ViewCondition::compile(database.table("origin"), "depth > 5",
                                          &wrong) != nullptr;
      },
      [&](long n) {
        EXPECT_FALSE(wrong) << "call " << n;
        EXPECT_NE(good, !taken_messages().empty()) << "call " << n;
      });
  const Opened database("ridge");
  EXPECT_EQ(db::ViewCondition::compile(database.table("origin"), "depht > 5", &wrong),
            nullptr);
  EXPECT_TRUE(wrong);
}

TEST_P(Unreadable, KeysOfAJoinAreNotTakenForWrong) {
  char prefor[] = "prefor", orid[] = "orid", chan[] = "chan";
  const auto list_of = [](char *text) {
    TblPtr list(newtbl(1));
    pushtbl(list.get(), text);
    return list;
  };
  const TblPtr left = list_of(prefor), right = list_of(orid), other = list_of(chan);
  bool refused = false;
  fail_each(
      [&] {
        const Opened database("ridge");
        const Dbptr event = database.table("event"), origin = database.table("origin");
        refused = event.table >= 0 && origin.table >= 0 &&
                  dbjoin(event, origin, left.get(), right.get()).table < 0 &&
                  db::refuses_join(event, origin, left.get(), right.get());
      },
      [&](long n) { EXPECT_FALSE(refused) << "call " << n; });
  const Opened database("ridge");
  EXPECT_TRUE(db::refuses_join(database.table("event"), database.table("origin"),
                               left.get(), other.get()));
}

INSTANTIATE_TEST_SUITE_P(Calls, Unreadable,
                         testing::Values(Failing{"Alloc", Kind::kAlloc, ENOMEM},
                                         Failing{"Open", Kind::kOpen, EMFILE},
                                         Failing{"Read", Kind::kRead, EIO},
                                         Failing{"Stat", Kind::kStat, EIO}),
                         [](const auto &tested) { return tested.param.name; });

}  // namespace
