/* Analysts' work exists only as rows in these files, which several programs write at the
 * same time: a lost append, a half-written row or a change that no server notices is lost
 * work. */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>
#include <utility>

#include "platform/db/store/internal/flat_files.h"
#include "platform/db/write_attempt.h"
#include "platform/stock/files.h"
#include "table_files.h"

namespace ksutil::db {
namespace {

using namespace testing;
using ::testing::HasSubstr;

class FlatWrites : public ::testing::Test {
 protected:
  ~FlatWrites() override { elog_clear_register(0); }
  std::string path() const { return directory_ / "db.lastid"; }
  std::unique_ptr<DatabaseStore> open(const char *mode = "r+") const {
    return open_flat_files(directory_ / "db", mode);
  }
  TempDirectory directory_;
  const bool made_ = create_flat_files(directory_ / "db", "css3.0");
  std::unique_ptr<DatabaseStore> store_ = open();
  TableStore &lastid_ = *store_->table("lastid");
};

TEST_F(FlatWrites, AppendedAndOverwrittenRowsAreInTheFileAsGiven) {
  EXPECT_EQ(append(lastid_, lastid_row("orid", 1)), 0);
  EXPECT_EQ(append(lastid_, lastid_row("evid", 2).substr(0, 42)), 1);
  EXPECT_TRUE(overwrite(lastid_, 0, lastid_row("arid", 3)));
  EXPECT_EQ(file_text(path()), lastid_row("arid", 3) + lastid_row("evid", 2));
  EXPECT_EQ(lastid_.snapshot()->row(0), lastid_row("arid", 3));
  long first = -1;
  EXPECT_TRUE(lastid_.exclusively([&](TableStore::Exclusive &rows) {
    first = rows.append_all(lastid_row("a", 4) + lastid_row("b", 5));
    return rows.snapshot()->count() == 4;
  }));
  EXPECT_EQ(first, 2);
  EXPECT_EQ(integer_of(lastid_, "keyvalue", 3), 5);
}

TEST_F(FlatWrites, RowsThatAreNoRecordsAreRefused) {
  ASSERT_EQ(append(lastid_, lastid_row("orid", 1)), 0);
  const std::string before = file_text(path()), row = lastid_row("evid", 2);
  std::string control = row, inner = row;
  control[3] = '\t';
  inner[10] = '\n';
  for (const std::string &bad :
       {std::string(), std::string("x"), row + row, row + "x", " " + row, control,
        inner, row.substr(0, 41) + "\r\n"}) {
    EXPECT_EQ(append(lastid_, bad), -1) << bad;
    EXPECT_FALSE(overwrite(lastid_, 0, bad)) << bad;
  }
  EXPECT_FALSE(overwrite(lastid_, 1, row));
  EXPECT_FALSE(overwrite(lastid_, -1, row));
  EXPECT_EQ(file_text(path()), before);
  EXPECT_THAT(messages(), HasSubstr(path()));
}

TEST_F(FlatWrites, ReadOnlyDatabaseAndDirectoryWithoutRightsAreErrors) {
  ASSERT_EQ(append(lastid_, lastid_row("orid", 1)), 0);
  const auto reader = open("r");
  EXPECT_EQ(append(*reader->table("lastid"), lastid_row("evid", 2)), -1);
  EXPECT_THAT(messages(), HasSubstr("reading only"));
  FileCalls calls = system_file_calls();
  calls.open = [](const char *name, int flags, mode_t mode) {
    errno = EACCES;
    return (flags & O_ACCMODE) == O_RDONLY ? ::open(name, flags, mode) : -1;
  };
  const ScopedFileCalls scope(calls);
  EXPECT_EQ(append(lastid_, lastid_row("evid", 2)), -1);
  EXPECT_THAT(messages(), HasSubstr("Cannot open for writing"));
  EXPECT_EQ(lastid_.snapshot()->count(), 1) << "a read-only archive is still read";
}

TEST_F(FlatWrites, NextWriterRepairsTheEndOfTheFile) {
  const std::string row = lastid_row("orid", 1), added = lastid_row("evid", 2);
  const std::string crlf = row.substr(0, 42) + "\r\n",
                    added_crlf = added.substr(0, 42) + "\r\n";
  const struct {
    std::string before, after;
  } cases[] = {{row + row.substr(0, 30), row + added},
               {row + row.substr(0, 42), row + row + added},
               {row + std::string(20, ' '), row + added},
               {row.substr(0, 20), added},
               {crlf + crlf.substr(0, 42), crlf + crlf + added_crlf},
               {crlf + crlf.substr(0, 43), crlf + crlf + added_crlf}};
  for (const auto &c : cases) {
    write_file(path(), c.before);
    /* The file's own layout has a place for the carriage return. */
    const bool cr = c.after.find('\r') != c.after.npos;
    EXPECT_GE(append(lastid_, cr ? added.substr(0, 42) + " \n" : added), 0)
        << messages();
    EXPECT_EQ(file_text(path()), c.after);
  }
}

/* Faults: what is to fail, at which call. */
struct Fault {
  enum Kind { kNone, kWrite, kShort, kSync } kind = kNone;
  int after = 0;  // calls that still work
};
Fault fault;

bool strikes(Fault::Kind kind) { return fault.kind == kind && fault.after-- == 0; }

ssize_t faulty_pwrite(int fd, const void *from, std::size_t bytes, off_t at) {
  if (strikes(Fault::kWrite)) {
    errno = ENOSPC;
    return -1;
  }
  if (strikes(Fault::kShort)) {
    fault = {Fault::kWrite, 0};
    return ::pwrite(fd, from, bytes / 2, at);
  }
  return ::pwrite(fd, from, bytes, at);
}

int faulty_fsync(int fd) {
  if (strikes(Fault::kSync)) {
    errno = EIO;
    return -1;
  }
  return ::fsync(fd);
}

TEST_F(FlatWrites, FailedStepsLeaveTheFileAsItWas) {
  write_file(directory_ / "db", "schema css3.0\nsync yes\n");
  write_file(path(), lastid_row("a", 1) + lastid_row("b", 2));
  const auto store = open();
  TableStore &lastid = *store->table("lastid");
  const std::string before = file_text(path());
  FileCalls calls = system_file_calls();
  calls.pwrite = faulty_pwrite;
  calls.fsync = faulty_fsync;
  const ScopedFileCalls scope(calls);
  for (const auto kind : {Fault::kWrite, Fault::kShort, Fault::kSync}) {
    fault = {kind, 0};
    EXPECT_EQ(append(lastid, lastid_row("c", 3)), -1);
    EXPECT_EQ(file_text(path()), before) << "append, fault " << kind;
    EXPECT_THAT(messages(), HasSubstr("db.lastid: Cannot "));
    fault = {kind, 0};
    EXPECT_FALSE(overwrite(lastid, 0, lastid_row("c", 3)));
    EXPECT_EQ(file_text(path()), before) << "overwrite, fault " << kind;
    EXPECT_EQ(lastid.snapshot()->count(), 2);
    EXPECT_EQ(lastid.snapshot()->row(0), lastid_row("a", 1));
  }
  /* A new file whose first row cannot be written is not left behind. */
  std::filesystem::remove(path());
  fault = {Fault::kWrite, 0};
  EXPECT_EQ(append(lastid, lastid_row("c", 3)), -1);
  EXPECT_FALSE(std::filesystem::exists(path()));
  fault = {};
  EXPECT_EQ(append(lastid, lastid_row("c", 3)), 0);
}

TEST_F(FlatWrites, RepairThatFailsLeavesTheTornEndForTheNextWriter) {
  const std::string torn = lastid_row("a", 1) + lastid_row("b", 2).substr(0, 42);
  write_file(path(), torn);
  FileCalls calls = system_file_calls();
  calls.pwrite = faulty_pwrite;
  const ScopedFileCalls scope(calls);
  fault = {Fault::kWrite, 0};
  EXPECT_EQ(append(lastid_, lastid_row("c", 3)), -1);
  EXPECT_EQ(file_text(path()), torn);
  fault = {};
  EXPECT_EQ(append(lastid_, lastid_row("c", 3)), 2);
}

TEST_F(FlatWrites, TimeMovesForwardWithEveryWrite) {
  ASSERT_EQ(append(lastid_, lastid_row("a", 0)), 0);
  Stamp before, now;
  ASSERT_TRUE(lastid_.stamp(before));
  for (int i = 0; i < 2000; ++i) {
    ASSERT_TRUE(overwrite(lastid_, 0, lastid_row("a", i)));
    ASSERT_TRUE(lastid_.stamp(now));
    ASSERT_GT(now.time, before.time);
    ASSERT_FALSE(now == before);
    before = now;
  }
  /* From a time in the future, too. */
  const struct timespec times[2] = {{0, UTIME_OMIT}, {4000000000, 999999999}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path().c_str(), times, 0), 0);
  ASSERT_TRUE(overwrite(lastid_, 0, lastid_row("a", 1)));
  ASSERT_TRUE(lastid_.stamp(now));
  EXPECT_GT(now.time, 4000000000.9999999);
  EXPECT_LT(now.time, 4000000001.1);
}

/* What this program wrote itself is not read again, so another program's change beside it
 * must still be found. */
TEST_F(FlatWrites, OwnWritesDoNotHideThoseOfOthers) {
  std::string text;
  for (int i = 0; i < 30000; ++i) text += lastid_row("k", i);
  write_file(path(), text);
  auto before = lastid_.snapshot();
  for (long i = 0; i < before->count(); ++i) before->row(i);
  ASSERT_TRUE(overwrite(lastid_, 29000, lastid_row("mine", 1)));
  const auto other = open();
  ASSERT_TRUE(overwrite(*other->table("lastid"), 5, lastid_row("other", 2)));
  ASSERT_TRUE(overwrite(lastid_, 100, lastid_row("mine", 3)));
  const Changes changes = changes_between(*before, *lastid_.snapshot());
  EXPECT_TRUE(changes.known);
  EXPECT_THAT(changes.changed, ::testing::ElementsAre(5, 100, 29000));
  EXPECT_EQ(lastid_.snapshot()->row(5), lastid_row("other", 2));
}

TEST_F(FlatWrites, ManyAppendsFollowedByOneHandleShowEachRow) {
  for (long i = 0; i < 500; ++i) {
    ASSERT_EQ(append(lastid_, lastid_row("k", i)), i);
    ASSERT_EQ(lastid_.snapshot()->row(i), lastid_row("k", i));
    ASSERT_EQ(lastid_.snapshot()->row(i / 2), lastid_row("k", i / 2));
  }
}

TEST_F(FlatWrites, FileReplacedBeforeTheLockIsWrittenInItsPlace) {
  write_file(path(), lastid_row("old", 1));
  Stamp stamp;
  ASSERT_TRUE(lastid_.stamp(stamp));
  write_file(directory_ / "next", lastid_row("new", 1) + lastid_row("new", 2));
  std::filesystem::rename(directory_ / "next", path());
  EXPECT_EQ(append(lastid_, lastid_row("k", 3)), 2);
  EXPECT_EQ(file_text(path()),
            lastid_row("new", 1) + lastid_row("new", 2) + lastid_row("k", 3));
}

/* What another program does to the file while the lock is held: between the look and the
 * write, or between the write and the answer. */
std::function<void()> meddle;

ssize_t pwrite_after_meddling(int fd, const void *from, std::size_t bytes, off_t at) {
  if (meddle) std::exchange(meddle, nullptr)();
  return ::pwrite(fd, from, bytes, at);
}

ssize_t pwrite_before_meddling(int fd, const void *from, std::size_t bytes, off_t at) {
  const ssize_t written = ::pwrite(fd, from, bytes, at);
  if (meddle) std::exchange(meddle, nullptr)();
  return written;
}

TEST_F(FlatWrites, WorkStartsAgainOnTheFileThatTookThePlaceOfTheLockedOne) {
  const std::string row = lastid_row("k", 3);
  const auto after = [&](const std::function<void()> &exchange, auto write) {
    write_file(path(), lastid_row("old", 1));
    int runs = 0;
    EXPECT_TRUE(lastid_.exclusively([&](TableStore::Exclusive &rows) {
      if (runs++ == 0) exchange();
      return write(rows);
    })) << messages();
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(messages(), "");
  };
  const auto append_row = [&](TableStore::Exclusive &rows) {
    return rows.append(row) >= 0;
  };
  const auto replace = [&] {
    write_file(directory_ / "next", lastid_row("new", 1) + lastid_row("new", 2));
    std::filesystem::rename(directory_ / "next", path());
  };
  after([&] { std::filesystem::remove(path()); }, append_row);
  EXPECT_EQ(file_text(path()), row);
  after(replace, append_row);
  EXPECT_EQ(file_text(path()), lastid_row("new", 1) + lastid_row("new", 2) + row);
  after(replace, [&](TableStore::Exclusive &rows) {
    return rows.snapshot() != nullptr && rows.overwrite(0, row);
  });
  EXPECT_EQ(file_text(path()), row + lastid_row("new", 2));

  /* Not once something has been written: the work would write it twice. */
  int runs = 0;
  EXPECT_FALSE(lastid_.exclusively([&](TableStore::Exclusive &rows) {
    ++runs;
    EXPECT_GE(rows.append(row), 0);
    replace();
    return rows.append(row) >= 0;
  }));
  EXPECT_EQ(runs, 1);
  EXPECT_THAT(messages(), HasSubstr("removed or replaced"));
  EXPECT_EQ(file_text(path()), lastid_row("new", 1) + lastid_row("new", 2));
}

TEST_F(FlatWrites, RowInAFileThatIsGoneIsNoSuccess) {
  const std::string row = lastid_row("k", 3), old = lastid_row("old", 1);
  FileCalls calls = system_file_calls();
  calls.pwrite = pwrite_before_meddling;
  const ScopedFileCalls scope(calls);
  write_file(path(), old);
  meddle = [&] { std::filesystem::remove(path()); };
  EXPECT_EQ(append(lastid_, row), -1);
  EXPECT_THAT(messages(), HasSubstr("removed or replaced"));
  EXPECT_FALSE(std::filesystem::exists(path()));

  write_file(path(), old);
  meddle = [&] { std::filesystem::rename(path(), directory_ / "aside"); };
  EXPECT_FALSE(overwrite(lastid_, 0, row));
  EXPECT_EQ(file_text(directory_ / "aside"), old) << "the row is taken back";
  meddle = [&] { std::filesystem::rename(path(), directory_ / "aside"); };
  EXPECT_EQ(append(lastid_, row), -1) << "in a file made for it";
  EXPECT_EQ(file_text(directory_ / "aside"), "");
}

TEST_F(FlatWrites, FileCutOrExtendedUnderTheLockGetsNoHoleAndLosesNoRow) {
  const std::string row = lastid_row("k", 3), a = lastid_row("a", 1),
                    b = lastid_row("b", 2);
  FileCalls calls = system_file_calls();
  calls.pwrite = pwrite_after_meddling;
  const ScopedFileCalls scope(calls);
  write_file(path(), a + b);
  meddle = [&] { ASSERT_EQ(::truncate(path().c_str(), 43), 0); };
  EXPECT_EQ(append(lastid_, row), 1);
  EXPECT_EQ(file_text(path()), a + row);
  EXPECT_EQ(integer_of(lastid_, "keyvalue", 1), 3);

  meddle = [&] { std::ofstream(path(), std::ios::app) << b; };
  EXPECT_EQ(append(lastid_, row), 3) << "after the row of a program that takes no lock";
  EXPECT_EQ(file_text(path()), a + row + b + row);

  meddle = [&] { ASSERT_EQ(::truncate(path().c_str(), 43), 0); };
  EXPECT_FALSE(overwrite(lastid_, 3, row));
  EXPECT_EQ(file_text(path()), a);
  EXPECT_THAT(messages(), HasSubstr("cut the file"));
}

TEST_F(FlatWrites, NestedUseOfATableDoesNotWaitForItself) {
  EXPECT_TRUE(lastid_.exclusively([&](TableStore::Exclusive &rows) {
    return append(lastid_, lastid_row("inner", 1)) == 0 &&
           rows.append(lastid_row("outer", 2)) == 1;
  }));
}

void append_many(const std::string &name, const std::string &who, int count) {
  const auto store = open_flat_files(name, "r+");
  for (int i = 0; i < count; ++i) append(*store->table("lastid"), lastid_row(who, i));
}

TEST_F(FlatWrites, AttemptFailsAtALockedTableAndWaitsUntilItIsFree) {
  const std::unique_ptr<DatabaseStore> other = open();
  const WriteAttempt outer;
  EXPECT_TRUE(other->table("lastid")->exclusively([&](TableStore::Exclusive &rows) {
    const WriteAttempt attempt;
    EXPECT_EQ(append(lastid_, lastid_row("mine", 1)), -1)
        << "the table is not there yet";
    EXPECT_TRUE(attempt.busy());
    EXPECT_TRUE(std::filesystem::exists(path())) << "the other one writes to it";
    return rows.append(lastid_row("other", 2)) == 0;
  }));
  EXPECT_FALSE(outer.busy());
  std::atomic<bool> locked = false, tried = false;
  std::thread holder([&] {
    other->table("lastid")->exclusively([&](TableStore::Exclusive &rows) {
      locked = true;
      while (!tried) std::this_thread::yield();
      return rows.append(lastid_row("other", 3)) == 1;
    });
  });
  while (!locked) std::this_thread::yield();
  const WriteAttempt attempt;
  EXPECT_FALSE(overwrite(lastid_, 0, lastid_row("mine", 4)));
  EXPECT_TRUE(attempt.busy());
  tried = true;
  attempt.wait();
  EXPECT_EQ(append(lastid_, lastid_row("mine", 5)), 2);
  holder.join();
  EXPECT_EQ(file_text(path()),
            lastid_row("other", 2) + lastid_row("other", 3) + lastid_row("mine", 5));
}

TEST_F(FlatWrites, WritersInThreadsAndProcessesLoseNothing) {
  constexpr int kEach = 200;
  const std::string name = directory_ / "db";
  std::vector<pid_t> children;
  for (const char *who : {"p1", "p2"}) {
    const pid_t child = ::fork();
    if (child == 0) {
      append_many(name, who, kEach);
      ::_exit(0);
    }
    children.push_back(child);
  }
  std::thread one(append_many, name, "t1", kEach), two(append_many, name, "t2", kEach);
  one.join();
  two.join();
  for (const pid_t child : children) ::waitpid(child, nullptr, 0);

  ASSERT_EQ(lastid_.snapshot()->count(), 4 * kEach);
  std::set<std::string> rows;
  for (long i = 0; i < 4 * kEach; ++i)
    rows.insert(std::string(lastid_.snapshot()->row(i)));
  for (const char *who : {"p1", "p2", "t1", "t2"}) {
    for (int i = 0; i < kEach; ++i) EXPECT_EQ(rows.count(lastid_row(who, i)), 1u);
  }
}

TEST_F(FlatWrites, KilledWriterLeavesWholeRecords) {
  const std::string name = directory_ / "db";
  for (int round = 0; round < 10; ++round) {
    const pid_t child = ::fork();
    if (child == 0) {
      append_many(name, "k", 1 << 20);
      ::_exit(0);
    }
    Stamp stamp;
    const long before = lastid_.snapshot()->count();
    do {
      ASSERT_TRUE(lastid_.stamp(stamp));
    } while (stamp.count < before + 20);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const auto snapshot = lastid_.snapshot();
    for (long i = 0; i < snapshot->count(); ++i) {
      ASSERT_EQ(snapshot->row(i).substr(0, 2), "k ") << i;
    }
  }
  EXPECT_GE(append(lastid_, lastid_row("last", 1)), 200);
}

}  // namespace
}  // namespace ksutil::db
