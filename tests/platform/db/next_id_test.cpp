/* An id given out twice merges two earthquakes into one, and nobody notices until the
 * rows of both are mixed. */
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "platform/stock/files.h"
#include "tests/platform/db/api_test_support.h"

namespace ksutil::db::test {
namespace {

std::string lastid(const std::string &counter, long value) {
  return RowMaker("lastid").set("keyname", counter).set("keyvalue", value).text();
}

TEST(NextId, CountsFromTheCounterOrFromWhatIsInUse) {
  TestDatabase database;
  database.write("lastid", {lastid("arid", 900), lastid("evid", 100)});
  database.write("origin",
                 {RowMaker("origin").set("orid", 40L).set("evid", 3L).text()});
  const Handle db(database.name(), "r+");
  EXPECT_EQ(dbnextid(db, "evid"), 101) << messages();
  EXPECT_EQ(dbnextid(db, "evid"), 102);
  EXPECT_EQ(dbnextid(db, "orid"), 41);  // no counter yet
  EXPECT_EQ(dbnextid(db, "arid"), 901);
  EXPECT_EQ(dbnextid(db, "stassid"), 1);
  long count, evid = 0;
  char name[16];
  EXPECT_EQ(dbquery(db.at("lastid"), dbq_record_count, &count), 0);
  EXPECT_EQ(count, 4);
  EXPECT_EQ(dbgetv(db.at("lastid", 1), "keyname", name, "keyvalue", &evid, nullptr), 0);
  EXPECT_STREQ(name, "evid");
  EXPECT_EQ(evid, 102);
}

TEST(NextId, RisesAboveRowsThatDrawOnTheCounterUnderAnyName) {
  TestDatabase database;
  database.write("lastid", {lastid("orid", 5)});
  const Handle db(database.name(), "r+");
  EXPECT_EQ(dbnextid(db, "orid"), 6);
  database.write("event", {RowMaker("event").set("prefor", 70L).text()});
  EXPECT_EQ(dbnextid(db, "orid"), 71);
  database.write("event", {RowMaker("event").set("prefor", 99L).text()});
  EXPECT_EQ(dbnextid(db, "orid"), 100);
  database.write("event", {});  // a removed row's id is not given out again
  EXPECT_EQ(dbnextid(db, "orid"), 101);
  database.write("origin", {RowMaker("origin").set("mlid", 33L).text()});
  EXPECT_EQ(dbnextid(db, "magid"), 34);
}

constexpr int kNever = 1'000'000;
int reads_before_failure = kNever;
int failing_reads = 0;

ssize_t failing_pread(int fd, void *to, std::size_t bytes, off_t at) {
  if (reads_before_failure-- > 0 || failing_reads-- <= 0) {
    return ::pread(fd, to, bytes, at);
  }
  errno = EIO;
  return -1;
}

/* What cannot be read may hold the counter, or a greater id. */
TEST(NextId, GivesNoneTwiceWhenReadingFails) {
  TestDatabase database;
  database.write("lastid", {lastid("evid", 100), lastid("arid", 900)});
  database.write("event", {RowMaker("event").set("evid", 1L).text()});
  const Handle db(database.name(), "r+");
  EXPECT_EQ(dbnextid(db, "evid"), 101);
  FileCalls calls = system_file_calls();
  calls.pread = failing_pread;
  const ScopedFileCalls scope(calls);
  long last = 101, failures = 0;
  for (int round = 0; round < 24; round++) {
    /* Another program counts on, or uses an id, before some of the reads fail. */
    last += 10;
    if (round % 2 == 0) {
      database.write("lastid", {lastid("evid", last), lastid("arid", 900)});
    } else {
      database.write("event", {RowMaker("event").set("evid", last).text()});
    }
    reads_before_failure = round / 4;
    failing_reads = round % 4 < 2 ? 1 : kNever;
    const long evid = dbnextid(db, "evid");
    reads_before_failure = kNever;
    if (evid >= 0) {
      EXPECT_EQ(evid, last + 1) << "round " << round;
      last = evid;
    } else {
      failures++;
    }
    EXPECT_EQ(dbnextid(db, "evid"), last + 1) << "round " << round;
    last++;
  }
  EXPECT_GE(failures, 4);
  messages();
}

/* The table is so long that its rows are read in parts, some of them twice. */
TEST(NextId, IsGivenWhileAnotherProgramOverwritesRows) {
  constexpr long kRows = 17000;
  TestDatabase database;
  const std::string row = RowMaker("origin").set("orid", 7L).text();
  database.write("origin", std::vector<std::string>(kRows, row));
  const pid_t other = fork();
  ASSERT_GE(other, 0);
  if (other == 0) {
    const Handle db(database.name(), "r+");
    for (long i = 0;; i++) dbputv(db.at("origin", 0), "nass", i % 1000, nullptr);
  }
  for (long i = 0; i < 100 && !testing::Test::HasFailure(); i++) {
    const Handle db(database.name(), "r+");
    EXPECT_EQ(dbnextid(db, "orid"), 8 + i) << messages();
  }
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
}

TEST(NextId, EndsWhereTheFieldEnds) {
  TestDatabase database;
  database.write("lastid", {lastid("evid", 99999998)});
  const Handle db(database.name(), "r+");
  EXPECT_EQ(dbnextid(db, "evid"), 99999999);
  EXPECT_EQ(dbnextid(db, "evid"), -1);
  EXPECT_THAT(messages(), testing::HasSubstr("dbnextid: no next id of counter 'evid'"));
  EXPECT_EQ(dbnextid(db, ""), -1);
  EXPECT_EQ(dbnextid(db, "a name longer than the field"), -1);
  messages();
}

TEST(NextId, IsDifferentInEveryProcess) {
  TestDatabase database;
  constexpr int kProcesses = 4, kIds = 50;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      Dbptr db;
      bool good = dbopen_noshare(database.name().c_str(), "r+", &db) == 0;
      for (int i = 0; i < kIds; ++i) {
        const long id = dbnextid(db, "evid");
        good = good && write(ends[1], &id, sizeof id) == sizeof id;
      }
      _exit(good ? 0 : 1);
    }
    children.push_back(child);
  }
  close(ends[1]);
  std::vector<long> ids;
  long id;
  while (read(ends[0], &id, sizeof id) == sizeof id) ids.push_back(id);
  close(ends[0]);
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  std::sort(ids.begin(), ids.end());
  ASSERT_EQ(ids.size(), static_cast<std::size_t>(kProcesses * kIds));
  for (std::size_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(ids[i], static_cast<long>(i) + 1);
  }
}

}  // namespace
}  // namespace ksutil::db::test
