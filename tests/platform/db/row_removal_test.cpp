/* A removal rewrites the whole table: a fault of it costs not the rows that an operator
 * wanted to be rid of but all the others. */
#include "platform/db/row_removal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <thread>

#include "platform/db/store/internal/flat_files.h"
#include "platform/db/store/internal/scratch_store.h"
#include "platform/stock/files.h"
#include "table_files.h"

namespace ksutil::db {
namespace {

using namespace testing;
using ::testing::HasSubstr;

bool removed(TableStore &table, const std::vector<long> &records) {
  return table.exclusively(
      [&](TableStore::Exclusive &rows) { return remove_rows(rows, records); });
}

std::vector<std::string> rows_of(const Snapshot &snapshot) {
  std::vector<std::string> rows;
  for (long i = 0; i < snapshot.count(); ++i) rows.emplace_back(snapshot.row(i));
  return rows;
}

class RowRemovalInFiles : public ::testing::Test {
 protected:
  ~RowRemovalInFiles() override { elog_clear_register(0); }
  std::unique_ptr<DatabaseStore> open() const {
    return open_flat_files(directory_ / "db", "r+");
  }
  std::string path() const { return directory_ / "db.lastid"; }
  bool leftover() const { return ::access(beside_.c_str(), F_OK) == 0; }
  void fill(long count) {
    std::string rows;
    for (long i = 0; i < count; ++i) rows += lastid_row("k", i);
    write_file(path(), rows);
  }
  TempDirectory directory_;
  const std::string beside_ = directory_ / ".db.lastid.rewritten";
  const bool made_ = create_flat_files(directory_ / "db", "css3.0");
  std::unique_ptr<DatabaseStore> store_ = open();
  TableStore &lastid_ = *store_->table("lastid");
};

/* Both stores against a plain list, with rows added in between; the snapshot before a
 * removal keeps its rows. */
TEST_F(RowRemovalInFiles, TakesTheRowsOfAListAndNoOthers) {
  const auto scratch = open_scratch("css3.0");
  std::mt19937 random(7);
  for (TableStore *table : {&lastid_, scratch->table("lastid")}) {
    std::vector<std::string> model;
    for (int round = 0; round < 60; ++round) {
      const long more = static_cast<long>(random() % 400);
      for (long i = 0; i < more; ++i) {
        model.push_back(lastid_row("k", static_cast<long>(random() % 100000)));
        ASSERT_GE(append(*table, model.back()), 0);
      }
      std::vector<long> records;
      std::vector<std::string> left;
      const unsigned share = static_cast<unsigned>(random() % 4);
      for (std::size_t i = 0; i < model.size(); ++i) {
        if (random() % 4 < share) {
          records.push_back(static_cast<long>(i));
        } else {
          left.push_back(model[i]);
        }
      }
      std::shuffle(records.begin(), records.end(), random);
      if (!records.empty()) records.push_back(records.front());
      const auto before = table->snapshot();
      ASSERT_TRUE(removed(*table, records));
      EXPECT_EQ(rows_of(*before), model);
      Stamp stamp;
      ASSERT_TRUE(table->stamp(stamp));
      EXPECT_EQ(stamp.count, static_cast<long>(left.size()));
      EXPECT_GE(stamp.time, before->stamp().time);
      ASSERT_EQ(rows_of(*table->snapshot()), left);
      model = std::move(left);
    }
    EXPECT_FALSE(removed(*table, {static_cast<long>(model.size())}));
    EXPECT_FALSE(removed(*table, {-1}));
    EXPECT_EQ(rows_of(*table->snapshot()), model);
  }
}

TEST_F(RowRemovalInFiles, KeepsLinkPermissionsAndTheFileOfAnEmptyTable) {
  fill(3);
  const std::string real = directory_ / "elsewhere";
  ASSERT_EQ(std::rename(path().c_str(), real.c_str()), 0);
  ASSERT_EQ(::symlink(real.c_str(), path().c_str()), 0);
  ASSERT_EQ(::chmod(real.c_str(), 0640), 0);
  ASSERT_TRUE(removed(lastid_, {0, 2}));
  EXPECT_EQ(file_text(real), lastid_row("k", 1));
  struct stat status;
  ASSERT_EQ(::lstat(path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(::stat(real.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  ASSERT_TRUE(removed(lastid_, {0}));
  EXPECT_EQ(file_text(real), "");
  EXPECT_EQ(append(lastid_, lastid_row("new", 9)), 0);
  EXPECT_EQ(open()->table("lastid")->snapshot()->row(0), lastid_row("new", 9));
}

TEST_F(RowRemovalInFiles, FailureLeavesTheTableAndNothingBeside) {
  fill(100000);
  const std::string before = file_text(path());
  static int refused;
  for (int which = 0; which < 3; ++which) {
    FileCalls calls = system_file_calls();
    refused = 0;
    if (which == 0) {
      calls.write = [](int fd, const void *from, std::size_t bytes) -> ssize_t {
        if (++refused > 1) return errno = ENOSPC, -1;
        return ::write(fd, from, bytes);
      };
    } else if (which == 1) {
      calls.fsync = [](int) { return ++refused, errno = EIO, -1; };
    } else {
      calls.open = [](const char *name, int flags, mode_t mode) {
        if ((flags & O_EXCL) == 0) return ::open(name, flags, mode);
        return ++refused, errno = EACCES, -1;
      };
    }
    const ScopedFileCalls scope(calls);
    EXPECT_FALSE(removed(lastid_, {5}));
    EXPECT_GT(refused, 0) << which;
    EXPECT_THAT(messages(), HasSubstr(path())) << which;
    EXPECT_EQ(file_text(path()), before) << which;
    EXPECT_FALSE(leftover()) << which;
  }
  EXPECT_TRUE(removed(lastid_, {5}));
}

/* The file of a process that died stays beside the table until the next program writes. */
TEST_F(RowRemovalInFiles, KilledProcessHasRemovedNothing) {
  fill(100000);
  const std::string before = file_text(path());
  const pid_t child = ::fork();
  if (child == 0) {
    FileCalls calls = system_file_calls();
    calls.fsync = [](int) { return ::raise(SIGKILL); };
    const ScopedFileCalls scope(calls);
    removed(*open()->table("lastid"), {7});
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(leftover());
  EXPECT_EQ(file_text(path()), before);
  EXPECT_EQ(open()->table("lastid")->snapshot()->count(), 100000);
  ASSERT_GE(append(*open()->table("lastid"), lastid_row("next", 1)), 0);
  EXPECT_FALSE(leftover());
  ASSERT_TRUE(removed(lastid_, {7}));
  EXPECT_EQ(lastid_.snapshot()->count(), 100000);
}

/* Writers that wait for the lock of the old file must find the new one. */
TEST_F(RowRemovalInFiles, RowsOfWaitingWritersAreNotLost) {
  constexpr long kRows = 100;
  fill(kRows);
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 2; ++writer) {
    writers.emplace_back([this, writer] {
      const auto store = open();
      for (long i = 0; i < kRows; ++i) {
        EXPECT_GE(append(*store->table("lastid"),
                         lastid_row("w" + std::to_string(writer), i)),
                  0);
      }
    });
  }
  for (long i = 0; i < kRows; ++i) EXPECT_TRUE(removed(lastid_, {0}));
  for (std::thread &writer : writers) writer.join();
  std::vector<std::string> expected, found = rows_of(*lastid_.snapshot());
  for (const char *name : {"w0", "w1"}) {
    for (long i = 0; i < kRows; ++i) expected.push_back(lastid_row(name, i));
  }
  std::sort(found.begin(), found.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(found, expected);
}

}  // namespace
}  // namespace ksutil::db
