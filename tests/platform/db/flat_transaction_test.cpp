/* A step that is half made leaves origins without events, or ids that two rows share, and
 * nobody notices until an analyst does. */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>

#include "platform/db/row_removal.h"
#include "platform/db/store/internal/flat_files.h"
#include "platform/db/write_attempt.h"
#include "platform/stock/files.h"
#include "table_files.h"

namespace ksutil::db {
namespace {

using namespace testing;
using ::testing::HasSubstr;

const std::vector<std::string> kTables{"origin", "event", "lastid"};
enum : std::size_t { kOrigin, kEvent, kLastid };

std::string event_row(long evid) {
  const Relation &layout = relation("css3.0", "event");
  std::string row = null_record(layout);
  EXPECT_TRUE(write_integer(*layout.find("evid"), evid, row));
  return row;
}

/* Two origins more and two changed, the first event, a counter moved on. */
bool change(Transaction &step) {
  return step.append(kOrigin, origin_row("css3.0", 4, 2.0)) == 3 &&
         step.overwrite(kOrigin, 0, origin_row("css3.0", 1, 5.0)) &&
         step.append(kOrigin, origin_row("css3.0", 5, 2.0)) == 4 &&
         step.overwrite(kOrigin, 2, origin_row("css3.0", 3, 6.0)) &&
         step.append(kEvent, event_row(7)) == 0 &&
         step.overwrite(kLastid, 0, lastid_row("orid", 5));
}

class FlatTransactions : public ::testing::Test {
 protected:
  FlatTransactions() {
    create_flat_files(name_, "css3.0");
    for (long i = 1; i <= 3; ++i) origins_ += origin_row("css3.0", i, 1.0);
    write_file(name_ + ".origin", origins_);
    write_file(name_ + ".lastid", lastid_row("orid", 3));
  }
  ~FlatTransactions() override { elog_clear_register(0); }

  std::unique_ptr<DatabaseStore> open(const char *mode = "r+") const {
    return open_flat_files(name_, mode);
  }

  /* The tables that have rows: an empty file is left when a process dies that has just
   * made it. */
  using Files = std::map<std::string, std::string>;
  Files files() const {
    Files found;
    for (const std::string &table : kTables) {
      const std::string path = name_ + "." + table;
      const std::string text = file_text(path);
      if (!text.empty()) found[table] = text;
    }
    return found;
  }
  Files after() const {
    return {{"origin", origin_row("css3.0", 1, 5.0) + origin_row("css3.0", 2, 1.0) +
                           origin_row("css3.0", 3, 6.0) + origin_row("css3.0", 4, 2.0) +
                           origin_row("css3.0", 5, 2.0)},
            {"event", event_row(7)},
            {"lastid", lastid_row("orid", 5)}};
  }
  long entries() const {
    return std::distance(std::filesystem::directory_iterator(directory_ / ""),
                         std::filesystem::directory_iterator());
  }
  bool journal_is_there() const { return std::filesystem::exists(name_ + ".journal"); }
  void reset() const {
    std::filesystem::remove(name_ + ".event");
    std::filesystem::remove(name_ + ".journal");
    write_file(name_ + ".origin", origins_);
    write_file(name_ + ".lastid", lastid_row("orid", 3));
  }

  void die_amid_publication() const;

  TempDirectory directory_;
  const std::string name_ = directory_ / "db";
  std::string origins_;
};

/* The calls that write: the one at which something happens, counted from 0. */
struct Strike {
  int fail_at = -1;  // this one finds a full disk half way, the next not at all
  int kill_at = -1;  // the process dies before this one
  int calls = 0;
} strike;

void count_call() {
  if (strike.calls == strike.kill_at) ::raise(SIGKILL);
}

ssize_t striking_pwrite(int fd, const void *from, std::size_t bytes, off_t at) {
  count_call();
  const int call = strike.calls++;
  if (call == strike.fail_at) return ::pwrite(fd, from, bytes / 2, at);
  if (strike.fail_at >= 0 && call == strike.fail_at + 1) {
    errno = ENOSPC;
    return -1;
  }
  return ::pwrite(fd, from, bytes, at);
}

int striking_ftruncate(int fd, off_t size) {
  count_call();
  strike.calls++;
  return ::ftruncate(fd, size);
}

FileCalls striking_calls() {
  FileCalls calls = system_file_calls();
  calls.pwrite = striking_pwrite;
  calls.ftruncate = striking_ftruncate;
  calls.fsync = [](int fd) {
    count_call();
    strike.calls++;
    return ::fsync(fd);
  };
  return calls;
}

TEST_F(FlatTransactions, MakesAllChangesOrNone) {
  const auto store = open();
  const Files before = files();
  EXPECT_FALSE(store->transaction(kTables, [](Transaction &step) {
    change(step);
    return false;
  }));
  EXPECT_FALSE(store->transaction(kTables, [](Transaction &step) {
    return change(step) && step.append(kEvent, "short") >= 0;
  }));
  EXPECT_FALSE(store->transaction({"origin", "nosuch"}, change));
  EXPECT_FALSE(open("r")->transaction(kTables, change));
  EXPECT_EQ(files(), before);
  EXPECT_FALSE(journal_is_there());

  EXPECT_TRUE(store->transaction(kTables, [](Transaction &step) {
    const bool changed = change(step);
    EXPECT_EQ(step.snapshot(kOrigin)->count(), 3) << "as before, until it is published";
    return changed;
  }));
  EXPECT_EQ(files(), after());
  EXPECT_FALSE(journal_is_there());
  EXPECT_EQ(store->table("origin")->snapshot()->count(), 5);
  EXPECT_EQ(integer_of(*store->table("lastid"), "keyvalue", 0), 5);
  EXPECT_EQ(append(*store->table("event"), event_row(8)), 1);
}

TEST_F(FlatTransactions, AFullDiskAtAnyWriteLeavesTheTablesAsTheyWere) {
  const Files before = files();
  bool published = false;
  int failures = 0;
  for (strike = {0, -1, 0}; !published; strike = {strike.fail_at + 1, -1, 0}) {
    const ScopedFileCalls scope(striking_calls());
    published = open()->transaction(kTables, change);
    if (published) break;
    failures++;
    EXPECT_EQ(files(), before) << "write " << strike.fail_at;
    EXPECT_FALSE(journal_is_there());
    EXPECT_THAT(messages(), HasSubstr("Cannot"));
    ASSERT_LT(failures, 100);
  }
  EXPECT_GT(failures, 10);
  EXPECT_EQ(files(), after());
}

/* Runs the transaction in a child that dies as `strike` says; whether it died. */
bool dies(const std::string &name, bool (*work)(Transaction &) = change) {
  const pid_t child = ::fork();
  if (child == 0) {
    const ScopedFileCalls scope(striking_calls());
    const auto store = open_flat_files(name, "r+");
    ::_exit(store != nullptr && store->transaction(kTables, work) ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFSIGNALED(status);
}

TEST_F(FlatTransactions, AProcessKilledAtAnyWriteLeavesAllOrNothingToTheNext) {
  const Files before = files();
  int undone = 0, finished = 0;
  for (int kill_at = 0;; kill_at++) {
    strike = {-1, kill_at, 0};
    if (!dies(name_)) break;
    /* A reader settles what it finds, and a writer that was there before as well. */
    if (kill_at % 2 == 0) {
      EXPECT_NE(open("r"), nullptr);
    }
    EXPECT_TRUE(open()->transaction(kTables, [](Transaction &) { return true; }));
    EXPECT_FALSE(journal_is_there());
    const Files now = files();
    EXPECT_TRUE(now == before || now == after()) << "write " << kill_at;
    (now == before ? undone : finished)++;
    reset();
    ASSERT_LT(kill_at, 100);
  }
  EXPECT_GT(undone, 5);
  EXPECT_GT(finished, 2);
}

TEST_F(FlatTransactions, AProcessKilledWhileItUndoesIsUndoneToTheEnd) {
  const Files before = files();
  int interrupted = 0;
  for (int fail_at = 0; fail_at < 40; fail_at++) {
    for (int kill_at = fail_at + 2; kill_at < fail_at + 8; kill_at++) {
      strike = {fail_at, kill_at, 0};
      if (!dies(name_)) break;
      interrupted++;
      EXPECT_NE(open(), nullptr) << messages();
      const Files now = files();
      EXPECT_TRUE(now == before || now == after()) << fail_at << ' ' << kill_at;
      EXPECT_FALSE(journal_is_there());
      reset();
    }
    reset();
  }
  EXPECT_GT(interrupted, 10);
}

/* Other origins in the place of the old ones, no counter, and the first event. */
bool replace_rows(Transaction &step) {
  return step.append(kEvent, event_row(7)) == 0 && remove_all_rows(step, kOrigin) &&
         step.append(kOrigin, origin_row("css3.0", 8, 2.0)) == 0 &&
         step.append(kOrigin, origin_row("css3.0", 9, 3.0)) == 1 &&
         remove_all_rows(step, kLastid);
}

std::map<std::string, std::string> replaced() {
  return {{"origin", origin_row("css3.0", 8, 2.0) + origin_row("css3.0", 9, 3.0)},
          {"event", event_row(7)}};
}

TEST_F(FlatTransactions, PutNewRowsInThePlaceOfAllRows) {
  const std::string origin = name_ + ".origin";
  ASSERT_EQ(::chmod(origin.c_str(), 0640), 0);
  const auto reader = open("r");
  const auto held = reader->table("origin")->snapshot();
  const auto store = open();
  const Files before = files();
  EXPECT_FALSE(store->transaction(
      kTables, [](Transaction &step) { return replace_rows(step) && false; }));
  EXPECT_FALSE(store->transaction(kTables, [](Transaction &step) {
    return step.append(kOrigin, origin_row("css3.0", 4, 2.0)) == 3 &&
           remove_all_rows(step, kOrigin);
  }));
  EXPECT_THAT(messages(), HasSubstr("changed before it was cleared"));
  EXPECT_EQ(files(), before);
  ASSERT_TRUE(store->transaction(kTables, replace_rows)) << messages();
  EXPECT_EQ(files(), replaced());
  EXPECT_FALSE(journal_is_there());
  EXPECT_EQ(entries(), 4) << "the descriptor and three tables";
  struct stat status;
  ASSERT_EQ(::stat(origin.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  EXPECT_EQ(held->row(2), origin_row("css3.0", 3, 1.0)) << "rows that are held stay";
  EXPECT_EQ(reader->table("origin")->snapshot()->count(), 2);
  EXPECT_EQ(append(*store->table("origin"), origin_row("css3.0", 4, 2.0)), 2);
}

TEST_F(FlatTransactions, AFullDiskNeverLosesTheRowsThatWereToBeReplaced) {
  const Files before = files();
  int failures = 0;
  for (strike = {0, -1, 0};; strike = {strike.fail_at + 1, -1, 0}) {
    const ScopedFileCalls scope(striking_calls());
    if (open()->transaction(kTables, replace_rows)) break;
    failures++;
    EXPECT_EQ(files(), before) << "write " << strike.fail_at;
    EXPECT_FALSE(journal_is_there());
    ASSERT_LT(failures, 100);
  }
  EXPECT_GT(failures, 5);
  EXPECT_EQ(files(), replaced());
}

TEST_F(FlatTransactions, AProcessKilledAnywhereLeavesTheOldRowsOrTheNew) {
  const Files before = files();
  int undone = 0, finished = 0;
  for (int kill_at = 0;; kill_at++) {
    strike = {-1, kill_at, 0};
    if (!dies(name_, replace_rows)) break;
    if (kill_at % 2 == 0) {
      EXPECT_NE(open("r"), nullptr);
    }
    EXPECT_TRUE(open()->transaction(kTables, [](Transaction &) { return true; }));
    EXPECT_FALSE(journal_is_there());
    EXPECT_FALSE(std::filesystem::exists(directory_ / ".db.origin.replacement"));
    const Files now = files();
    EXPECT_TRUE(now == before || now == replaced()) << "call " << kill_at;
    (now == before ? undone : finished)++;
    reset();
    ASSERT_LT(kill_at, 100);
  }
  EXPECT_GT(undone, 5);
  EXPECT_GE(finished, 2);
}

/* A program that heeds no locks may append to the table of a step that was killed. */
TEST_F(FlatTransactions, ARowThatCameMeanwhileIsNotReplaced) {
  int refused = 0;
  for (int kill_at = 0;; kill_at++) {
    strike = {-1, kill_at, 0};
    if (!dies(name_, replace_rows)) break;
    std::ofstream(name_ + ".origin", std::ios::app) << origin_row("css3.0", 77, 7.0);
    const auto store = open();
    if (store == nullptr ||
        !store->transaction(kTables, [](Transaction &) { return true; })) {
      refused++;
      EXPECT_THAT(messages(), HasSubstr("interrupted"));
    }
    EXPECT_THAT(file_text(name_ + ".origin"), HasSubstr(origin_row("css3.0", 77, 7.0)));
    std::filesystem::remove(directory_ / ".db.origin.replacement");
    std::filesystem::remove(directory_ / ".db.lastid.replacement");
    reset();
    ASSERT_LT(kill_at, 100);
  }
  EXPECT_GT(refused, 0);
}

TEST_F(FlatTransactions, AFileThatCannotTakeItsPlaceIsPutThereByTheNext) {
  const auto store = open();
  EXPECT_FALSE(store->transaction(kTables, [&](Transaction &step) {
    if (!replace_rows(step)) return false;
    std::filesystem::remove(directory_ / ".db.lastid.replacement");
    return true;
  }));
  EXPECT_THAT(messages(), HasSubstr("The next program that writes completes"));
  EXPECT_TRUE(journal_is_there());
  /* What the disk had lost is back. */
  write_file(directory_ / ".db.lastid.replacement", "");
  EXPECT_NE(open(), nullptr);
  EXPECT_EQ(files(), replaced());
  EXPECT_FALSE(journal_is_there());
}

/* A server keeps its database open while an import dies beside it. */
TEST_F(FlatTransactions, AWriterThatWasThereBeforeFinishesTheStepBeforeItsOwn) {
  const auto server = open();
  ASSERT_EQ(server->table("origin")->snapshot()->count(), 3);
  for (int kill_at = 0;; kill_at++) {
    strike = {-1, kill_at, 0};
    if (!dies(name_)) break;
    const long record = append(*server->table("origin"), origin_row("css3.0", 9, 9.0));
    /* A journal that does not name its tables yet is left to the next transaction. */
    EXPECT_EQ(journal_is_there(), kill_at == 0);
    const Files now = files();
    const bool finished = now.contains("event");
    EXPECT_EQ(record, finished ? 5 : 3) << "write " << kill_at;
    EXPECT_EQ(now.at("lastid"), lastid_row("orid", finished ? 5 : 3));
    reset();
  }
}

TEST_F(FlatTransactions, ADamagedOrForeignJournalChangesNothing) {
  /* A journal that is committed, and nothing published. */
  int kill_at = 0;
  std::string journal;
  for (;; kill_at++) {
    strike = {-1, kill_at, 0};
    ASSERT_TRUE(dies(name_));
    journal = file_text(name_ + ".journal");
    if (journal.size() > 8 && journal[8] == 'C') break;
    reset();
  }
  const Files before{{"origin", origins_}, {"lastid", lastid_row("orid", 3)}};
  const auto leaves_tables = [&](const std::string &bytes) {
    reset();
    write_file(name_ + ".journal", bytes);
    open();
    elog_clear_register(0);
    const Files now = files();
    return now == before || now == after();
  };
  EXPECT_TRUE(leaves_tables(journal));
  EXPECT_EQ(files(), after());
  for (std::size_t at = 0; at < journal.size(); at += at < 200 ? 1 : 11) {
    std::string bytes = journal;
    bytes[at] = static_cast<char>(bytes[at] ^ 0x11);
    EXPECT_TRUE(leaves_tables(bytes)) << "byte " << at;
    EXPECT_TRUE(leaves_tables(journal.substr(0, at))) << "length " << at;
  }

  const std::string foreign(200, 'x');
  const std::string note = "notes\n";
  for (const std::string &text : {note, foreign}) {
    reset();
    write_file(name_ + ".journal", text);
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(file_text(name_ + ".journal"), text);
  }
  EXPECT_THAT(messages(), HasSubstr("db.journal"));
  EXPECT_NE(open("r"), nullptr) << "reading goes on";
  EXPECT_EQ(file_text(name_ + ".journal"), foreign);
}

/* A user who may not write: the permissions of files do not stop root. */
FileCalls calls_of_a_reader() {
  FileCalls calls = system_file_calls();
  calls.open = [](const char *path, int flags, mode_t mode) {
    if ((flags & O_ACCMODE) == O_RDONLY) return ::open(path, flags, mode);
    errno = EACCES;
    return -1;
  };
  return calls;
}

TEST_F(FlatTransactions, AReaderIsToldOfAStepThatItMayNotFinish) {
  const ScopedFileCalls scope(calls_of_a_reader());
  int told = 0;
  for (int kill_at = 0;; kill_at++) {
    reset();
    strike = {-1, kill_at, 0};
    if (!dies(name_)) break;
    const std::string journal = file_text(name_ + ".journal");
    elog_clear_register(0);
    EXPECT_NE(open("r"), nullptr);
    const bool partly_made = journal.size() > 8 && journal[8] == 'C';
    EXPECT_EQ(messages(), partly_made
                              ? "dbopen: " + name_ +
                                    ": an interrupted change is not finished; open the "
                                    "database with permission to write.\n"
                              : "")
        << "write " << kill_at;
    EXPECT_EQ(file_text(name_ + ".journal"), journal);
    told += partly_made ? 1 : 0;
    ASSERT_LT(kill_at, 100);
    if (!partly_made) continue;

    /* The same journal in the hands of a living process. */
    const FileHandle owner(::open((name_ + ".journal").c_str(), O_RDWR));
    const FileLock lock(owner.get());
    elog_clear_register(0);
    EXPECT_NE(open("r"), nullptr);
    EXPECT_EQ(messages(), "") << "write " << kill_at;
  }
  EXPECT_GT(told, 2);
}

/* Leaves a step whose first event is in its table, and the rest in the journal. */
void FlatTransactions::die_amid_publication() const {
  for (int kill_at = 0;; kill_at++) {
    strike = {-1, kill_at, 0};
    ASSERT_TRUE(dies(name_)) << "published everything";
    if (file_text(name_ + ".event") != "") return;
    reset();
  }
}

/* A stopped program that holds one of the tables must hold up nobody who does not wait. */
TEST_F(FlatTransactions, AStepThatCannotBeFinishedNowHoldsUpNoAttempt) {
  const auto server = open();
  ASSERT_NO_FATAL_FAILURE(die_amid_publication());
  const FileHandle stopped(::open((name_ + ".origin").c_str(), O_RDWR));
  auto lock = std::make_unique<FileLock>(stopped.get());
  elog_clear_register(0);
  EXPECT_NE(open("r"), nullptr);
  EXPECT_THAT(messages(),
              HasSubstr("an interrupted change is not finished while another "
                        "program holds the lock of origin"));
  const WriteAttempt attempt;
  EXPECT_EQ(append(*server->table("lastid"), lastid_row("evid", 1)), -1);
  EXPECT_TRUE(attempt.busy());
  {
    const WriteAttempt whole;
    EXPECT_FALSE(server->transaction(kTables, change));
    EXPECT_TRUE(whole.busy());
    int asked = 0;
    EXPECT_FALSE(whole.wait([&] { return ++asked < 3; }));
    EXPECT_EQ(asked, 3);
  }
  EXPECT_TRUE(journal_is_there());
  lock.reset();
  EXPECT_TRUE(attempt.wait());
  EXPECT_EQ(append(*server->table("lastid"), lastid_row("evid", 1)), 1);
  EXPECT_FALSE(journal_is_there());
  EXPECT_EQ(files().at("event"), after().at("event"));
}

TEST_F(FlatTransactions, AnotherProgramsAppendBehindADeadOneIsKept) {
  ASSERT_NO_FATAL_FAILURE(die_amid_publication());
  /* A program that heeds no locks. */
  std::ofstream(name_ + ".origin", std::ios::app) << origin_row("css3.0", 9, 9.0);
  const Files mixed = files();
  EXPECT_EQ(open(), nullptr);
  EXPECT_THAT(messages(), HasSubstr("have changed since"));
  EXPECT_EQ(files(), mixed);
}

TEST_F(FlatTransactions, StepsOfSeveralProcessesFollowEachOther) {
  constexpr int kProcesses = 4, kSteps = 25;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; i++) {
    const pid_t child = ::fork();
    if (child == 0) {
      const auto store = open();
      bool good = true;
      for (int step = 0; step < kSteps && good; step++) {
        if (i == 0) {  // a writer of single rows
          good = append(*store->table("origin"), origin_row("css3.0", 99, 0.0)) >= 0;
          continue;
        }
        good = store->transaction(kTables, [](Transaction &rows) {
          const auto counter = rows.snapshot(kLastid);
          std::int64_t last = 0;
          IntegerColumn(counter->layout(), "keyvalue").read(counter->row(0), last);
          return rows.append(kOrigin, origin_row("css3.0", last + 1, 0.0)) >= 0 &&
                 rows.append(kEvent, event_row(last + 1)) >= 0 &&
                 rows.overwrite(kLastid, 0, lastid_row("orid", last + 1));
        });
      }
      ::_exit(good ? 0 : 1);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  const auto store = open();
  EXPECT_EQ(store->table("origin")->snapshot()->count(), 3 + kProcesses * kSteps);
  const long events = (kProcesses - 1) * kSteps;
  EXPECT_EQ(integer_of(*store->table("lastid"), "keyvalue", 0), 3 + events);
  for (long i = 0; i < events; i++) {
    EXPECT_EQ(integer_of(*store->table("event"), "evid", i), 4 + i);
  }
}

}  // namespace
}  // namespace ksutil::db
