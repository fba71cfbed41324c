/* A disk that fills and fails while rows are written: a call that says it failed must have
 * left the tables alone, one that says it worked must have written exactly its row. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "core/register.h"
#include "platform/stock/files.h"
#include "tests/events/bare_server.h"
#include "tests/events/event_database.h"
#include "tests/stress/stress_support.h"
#include "tests/stress/writer.h"

using namespace stress;

namespace {

/* The faults of one call of the library.  A short write is followed by the fault, as on a
 * real disk; what undoes it must work, and does there. */
std::mt19937 chance;
int faults_left = 0;
bool cut = false;  // a short write has just been made

int any_fault() {
  constexpr int kFaults[] = {ENOSPC, EIO, EDQUOT, EFBIG};
  return kFaults[below(chance, 4)];
}

bool strikes() {
  if (faults_left == 0 || below(chance, 6) != 0) return false;
  faults_left--;
  errno = any_fault();
  return true;
}

ssize_t failing_pwrite(int fd, const void *from, std::size_t bytes, off_t at) {
  if (cut) {
    cut = false;
    errno = any_fault();
    return -1;
  }
  if (faults_left > 0 && bytes > 1 && below(chance, 8) == 0) {
    faults_left--;
    cut = true;
    return ::pwrite(fd, from, 1 + below(chance, static_cast<unsigned>(bytes) - 1), at);
  }
  return strikes() ? -1 : ::pwrite(fd, from, bytes, at);
}

ssize_t failing_pread(int fd, void *to, std::size_t bytes, off_t at) {
  return strikes() ? -1 : ::pread(fd, to, bytes, at);
}

int failing_fsync(int fd) { return strikes() ? -1 : ::fsync(fd); }

int failing_open(const char *path, int flags, mode_t mode) {
  return strikes() ? -1 : ::open(path, flags, mode);
}

class FullDisk : public testing::Test {
 protected:
  FullDisk() {
    std::ofstream(database.name(), std::ios::app) << "sync yes\n";
    EXPECT_EQ(dbopen_noshare(database.name().c_str(), "r+", &db), 0);
  }
  ~FullDisk() override { dbclose(db); }

  Dbptr table(const char *name, long record = dbALL) const {
    Dbptr found = dblookup(db, nullptr, name, nullptr, nullptr);
    found.record = record;
    return found;
  }
  std::string text(const char *table) const {
    std::ifstream file(database.name() + "." + table, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /* Runs a call under faults; expects the table untouched when it fails, and otherwise all
   * rows but `record` untouched. */
  template <class Call>
  long attempt(const char *table, long record, Call call) {
    const std::string before = text(table);
    faults_left = static_cast<int>(below(chance, 2));
    const long result = call();
    faults_left = 0;
    cut = false;
    const std::string after = text(table);
    if (result < 0) {
      failed++;
      EXPECT_EQ(after, before) << taken_messages();
      taken_messages();
      return result;
    }
    worked++;
    const std::size_t length = after.find('\n') + 1;
    const auto at = static_cast<std::size_t>(record < 0 ? result : record) * length;
    EXPECT_EQ(after.size(), record < 0 ? before.size() + length : before.size());
    EXPECT_EQ(after.substr(0, at), before.substr(0, at));
    if (record >= 0) {
      EXPECT_EQ(after.substr(at + length), before.substr(at + length));
    }
    return result;
  }

  ksutil::events::test::EventDatabase database;
  Dbptr db = dbinvalid();
  long failed = 0, worked = 0;
};

TEST_F(FullDisk, LeavesWhatWasThere) {
  const Watchdog watchdog("writing to a full disk");
  chance.seed(seed());
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.open = failing_open;
  calls.pread = failing_pread;
  calls.pwrite = failing_pwrite;
  calls.fsync = failing_fsync;
  const ksutil::ScopedFileCalls scope(calls);
  std::vector<double> depths;  // of each row of origin
  long last_orid = 0;
  const Deadline deadline;
  while (!deadline.over() && !HasFailure()) {
    const double depth = static_cast<double>(below(chance, 700));
    const unsigned action = below(chance, 3);
    if (action == 0) {
      const std::string before = text("lastid");
      faults_left = static_cast<int>(below(chance, 2));
      const long orid = dbnextid(db, "orid");
      faults_left = 0;
      cut = false;
      if (orid < 0) {
        EXPECT_EQ(text("lastid"), before) << taken_messages();
        continue;
      }
      EXPECT_GT(orid, last_orid);
      last_orid = orid;
    } else if (action == 1 || depths.empty()) {
      const long record = attempt("origin", -1, [&] {
        return dbaddv(table("origin"), "orid", last_orid, "evid", 1L, "time",
                      1e9 + static_cast<double>(depths.size()), "depth", depth,
                      nullptr);
      });
      if (record < 0) continue;
      EXPECT_EQ(record, static_cast<long>(depths.size()));
      depths.push_back(depth);
    } else {
      const long record =
          static_cast<long>(below(chance, static_cast<unsigned>(depths.size())));
      if (attempt("origin", record, [&] {
            return long{dbputv(table("origin", record), "depth", depth, nullptr)};
          }) < 0) {
        continue;
      }
      depths[static_cast<std::size_t>(record)] = depth;
    }
    /* The handle that failed and worked reads what is there. */
    if (depths.empty()) continue;
    const std::size_t row = below(chance, static_cast<unsigned>(depths.size()));
    double found = -1.0;
    EXPECT_EQ(dbgetv(table("origin", static_cast<long>(row)), "depth", &found, nullptr),
              0)
        << taken_messages();
    EXPECT_EQ(found, depths[row]) << row;
    /* Each step is compared byte by byte: begin anew before that gets slow. */
    if (depths.size() > 300) {
      std::filesystem::remove(database.name() + ".origin");
      depths.clear();
    }
  }
  std::printf("%ld calls worked, %ld failed\n", worked, failed);
  EXPECT_GT(worked, 0);
  EXPECT_GT(failed, 0);
}

std::atomic<bool> disk_is_bad{false};
std::atomic<unsigned> reads{0};

/* Eight reads in a row fail, or one tried again would hide it. */
ssize_t sometimes_failing_pread(int fd, void *to, std::size_t bytes, off_t at) {
  if (disk_is_bad && ((++reads >> 3) * 2654435761U >> 16) % 16 == 0) {
    errno = EIO;
    return -1;
  }
  return ::pread(fd, to, bytes, at);
}

/* A server whose reads fail now and then, beside a writer whose disk is well. */
TEST(FailingReads, TakeNothingOffAServer) {
  const Watchdog watchdog("a server whose reads fail");
  const unsigned chosen = seed();
  WrittenDatabase database;
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.pread = sometimes_failing_pread;
  const ksutil::ScopedFileCalls scope(calls);
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  disk_is_bad = true;
  server.autoRefreshEvents(0.001);
  const pid_t writer = spawn_writer(database.name(), database.journal(), chosen, 0,
                                    seconds(), End::after_its_time);
  const Deadline deadline(seconds() + 0.2);
  long events_before = 1;
  while (!deadline.over()) {
    witness.grabEventsLock();
    const auto list = witness.eventsList();
    witness.releaseEventsLock();
    EXPECT_GE(list->size(), events_before) << "events have vanished";
    events_before = list->size();
    for (const EVEvent &event : *list) EXPECT_GE(event.origins.size(), 1);
    EVEvent event;
    witness.getExpandedEvent(static_cast<long>(list->ptr(list->size() - 1)->evid),
                             event);
    usleep(2000);
  }
  EXPECT_EQ(wait_for(writer), 0);
  disk_is_bad = false;
  settle(witness);
  std::printf("%ld events\n", events_before);
  Written written;
  written.read(database.journal());
  const std::set<long> told = witness.evids();
  for (const auto &[evid, origins] : written.origins) {
    EXPECT_TRUE(told.contains(evid)) << "not told: " << evid;
  }
  expect_same_as_fresh(server, database.name());
  server.deregisterClient(&witness);
  taken_messages();
}

}  // namespace
